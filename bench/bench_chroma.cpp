// bench_chroma.cpp - chroma noise reduction on the chroma of a 4096x3072
// output (2048x1536 U and V), per instruction-set level, one thread and the
// pool; items are chroma pixels (one U and one V sample each).
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench_util.h"
#include "filters/chroma_nr.h"
#include "runtime/pool.h"

namespace {

constexpr int kW = 2048, kH = 1536;

struct ChromaPlanes {
  std::vector<uint8_t> luma = kqBenchPlane(2 * kW, 2 * kH, 1);
  std::vector<uint8_t> u = kqBenchPlane(kW, kH, 2), v = kqBenchPlane(kW, kH, 3);
  std::vector<uint8_t> h[4];
  ChromaPlanes() {
    for (auto& p : h) p.assign(size_t(kW / 2) * (kH / 2), 0);
  }
};

void benchChroma(benchmark::State& st, uint32_t level, float strength) {
  static ChromaPlanes planes;
  const std::vector<uint8_t> u0 = planes.u, v0 = planes.v;
  KQChromaDsp dsp;
  kqChromaDspInit(&dsp, level);
  const int threads = int(st.range(0));
  if (threads > 1) kqPoolStart(threads, 0, "kq-bench");
  KQImage8 luma{2 * kW, 2 * kH, planes.luma.data()};
  KQImage8 u{kW, kH, planes.u.data()}, v{kW, kH, planes.v.data()};
  KQImage8 h[4];
  for (int i = 0; i < 4; ++i) h[i] = KQImage8{kW / 2, kH / 2, planes.h[i].data()};
  for (auto _ : st) {
    kqChromaNoiseReductionDsp(&luma, &u, &v, &u, &v, &h[0], &h[1], &h[2], &h[3], nullptr, 0,
                              strength, threads, &dsp);
    benchmark::ClobberMemory();
  }
  if (threads > 1) kqPoolStop();
  planes.u = u0;  // in place: keep the input the same for the next case
  planes.v = v0;
  st.SetItemsProcessed(st.iterations() * int64_t(kW) * kH);
}

void registerChromaBenches() {
  for (float strength : {1.0f, 10.0f})
    for (uint32_t level : kqCpuLevels()) {
      const std::string name = "chroma.nr/2048x1536/s" + std::to_string(int(strength)) + "/" +
                               kqCpuLevelName(level);
      benchmark::RegisterBenchmark(name.c_str(),
                                   [level, strength](benchmark::State& st) {
                                     benchChroma(st, level, strength);
                                   })
          ->ArgName("threads")
          ->Arg(1)
          ->Arg(2)
          ->Arg(4)
          ->UseRealTime()
          ->Unit(benchmark::kMillisecond);
    }
}

}  // namespace

static const int kReg = (registerChromaBenches(), 0);
