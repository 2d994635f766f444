// bench_main.cpp - entry point of kq_bench. Benchmark files register their
// cases from static initialisers (see bench_util.h).
#include <benchmark/benchmark.h>

#include "runtime/log.h"

namespace {
void quietLog(void*, FILE*, int32_t priority, const char*, const char* message) {
  if (priority >= 6) std::fprintf(stderr, "E/Orvane: %s\n", message);
}
}  // namespace

int main(int argc, char** argv) {
  kqLogSetSink(quietLog, nullptr);  // information lines would drown the table
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
