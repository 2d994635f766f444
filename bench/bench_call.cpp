// bench_call.cpp - kq_bench_call: the exported call end to end (KQUpScale_ScaleImage and
// KQUpScale_ScaleImageFromROI through the public header and libKQUpScale.so) on camera-like NV21
// frames, beside what a caller would use instead on the same inputs and output sizes.
//
//   kq_bench_call [--benchmark_...]   warm: Google Benchmark cases, repeated calls in one process
//   kq_bench_call --cold=CASE         cold: one call of one case in this fresh process
//   kq_bench_call --list              the case names, one a line
//   kq_bench_call --verify            PSNR of every output against OpenCV's resize of the input
//
// Every case reports milliseconds per call (wall clock, and CPU time summed over all threads),
// minor page faults per call (getrusage, summed over all threads) and the peak resident memory
// above the level just before the call (VmHWM after a reset through /proc/self/clear_refs). Inputs
// and outputs are allocated and written before anything is measured, so the faults and the memory
// are the implementation's own.
//
// The library writes two information lines to stdout per call; the C stdout stream is sent to
// /dev/null so that thousands of them do not bury the results. This program's own lines (cold
// results, lists, checks) go to the original standard output, Google Benchmark's table to stderr.
#include <benchmark/benchmark.h>
#include <libyuv/scale.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "KQUpScale.h"
#include "camera_frame.h"

namespace {

using kqbench::Frame;
using kqbench::kWorkloadCount;
using kqbench::kWorkloads;
using kqbench::paintCameraFrame;
using kqbench::Workload;

FILE* gReport = stderr;  // the original standard output once main has set it up

// ---------------------------------------------------------------------------------------------
// Workloads and cases

enum class Impl { kKqWarp, kKqDefaults, kCvResize, kLibyuv, kCvPipeline, kMemcpy };

struct ImplInfo {
  Impl impl;
  const char* name;
  bool threaded;  // measured at 1 and 2 threads; the others have no threads of their own
};
constexpr ImplInfo kImpls[] = {
    {Impl::kKqWarp, "kq.warp", true},
    {Impl::kKqDefaults, "kq.defaults", true},
    {Impl::kCvResize, "opencv.resize", true},
    {Impl::kLibyuv, "libyuv.NV12Scale", false},
    {Impl::kCvPipeline, "opencv.pipeline", true},
    {Impl::kMemcpy, "memcpy", false},
};

// The command-line tool's defaults.
constexpr int32_t kNoiseReduction = 3;
constexpr int32_t kChromaNoiseReduction = 4;
constexpr float kSharpening = 0.6f;

// The OpenCV pipeline's settings: a 5x5 bilateral filter (sigmaSpace 2 pixels; its range weight
// halves at a difference of 35 levels, about ten times the luma noise of the test frames) on luma
// and on each chroma plane, then an unsharp mask with the blur OpenCV itself picks for a 5x5
// kernel (sigma 1.1) and an amount of 0.6, the number the tool uses for its own strength. The
// filters' cost in OpenCV does not depend on the sigmas.
constexpr int kBilateralDiameter = 5;
constexpr double kBilateralSigmaColor = 30.0;
constexpr double kBilateralSigmaSpace = 2.0;
constexpr double kUnsharpSigma = 1.1;
constexpr double kUnsharpAmount = 0.6;

struct Case {
  int workload;
  ImplInfo impl;
  int threads;
  std::string name;  // "<workload>/<impl>/threads:<n>"
};

std::vector<Case> allCases() {
  std::vector<Case> cases;
  for (int w = 0; w < kWorkloadCount; ++w)
    for (int threads : {1, 2})
      for (const ImplInfo& impl : kImpls) {
        if (!impl.threaded && threads != 1) continue;
        cases.push_back({w, impl, threads,
                         std::string(kWorkloads[w].name) + "/" + impl.name +
                             "/threads:" + std::to_string(threads)});
      }
  return cases;
}

// ---------------------------------------------------------------------------------------------
// Frames

// Inputs and outputs of one workload, built on first use and kept for the process.
struct Bench {
  const Workload& wl;
  Frame in, out, floorSource;  // floorSource: bytes the memcpy floor copies into `out`
  explicit Bench(const Workload& w)
      : wl(w), in(w.inW, w.inH, 0), out(w.outW, w.outH, 0x5a), floorSource(w.outW, w.outH, 0x33) {
    paintCameraFrame(&in, 1);
  }
  // The region as OpenCV matrices over the input planes (no copy).
  cv::Mat srcY() const {
    const int32_t x0 = wl.left < 0 ? 0 : wl.left, y0 = wl.left < 0 ? 0 : wl.top;
    return cv::Mat(wl.h, wl.w, CV_8UC1, in.y.get() + size_t(y0) * in.w + x0, size_t(in.w));
  }
  cv::Mat srcVU() const {
    const int32_t x0 = wl.left < 0 ? 0 : wl.left, y0 = wl.left < 0 ? 0 : wl.top;
    return cv::Mat(wl.h / 2, wl.w / 2, CV_8UC2, in.vu.get() + size_t(y0 / 2) * in.w + x0,
                   size_t(in.w));
  }
  cv::Mat dstY() { return cv::Mat(out.h, out.w, CV_8UC1, out.y.get(), size_t(out.w)); }
  cv::Mat dstVU() { return cv::Mat(out.h / 2, out.w / 2, CV_8UC2, out.vu.get(), size_t(out.w)); }
};

Bench& benchFor(int workload) {
  static std::unique_ptr<Bench> benches[kWorkloadCount];
  if (!benches[workload]) benches[workload] = std::make_unique<Bench>(kWorkloads[workload]);
  return *benches[workload];
}

// ---------------------------------------------------------------------------------------------
// The calls

void callKq(Bench& b, int threads, int32_t nr, int32_t chromaNr, float sharpening) {
  const Workload& w = b.wl;
  if (w.left < 0) {
    KQUpScale_ScaleImage(&b.in.image, &b.out.image, nr, chromaNr, sharpening, threads, 0);
  } else {
    KQUpScale_ScaleImageFromROI(&b.in.image, &b.out.image, w.left, w.top, w.left + w.w - 1,
                                w.top + w.h - 1, nr, chromaNr, sharpening, threads, 0);
  }
}

// cv::resize writes into the caller's planes: the destination matrices already have the size
// and type it asks for, so it allocates none.
void callCvResize(Bench& b) {
  cv::Mat dy = b.dstY(), dvu = b.dstVU();
  cv::resize(b.srcY(), dy, dy.size(), 0.0, 0.0, cv::INTER_LINEAR);
  cv::resize(b.srcVU(), dvu, dvu.size(), 0.0, 0.0, cv::INTER_LINEAR);
}

void callLibyuv(Bench& b) {
  const cv::Mat sy = b.srcY(), svu = b.srcVU();
  libyuv::NV12Scale(sy.data, int(sy.step), svu.data, int(svu.step), b.wl.w, b.wl.h, b.out.y.get(),
                    b.out.w, b.out.vu.get(), b.out.w, b.out.w, b.out.h, libyuv::kFilterBilinear);
}

// The stages of our default call written with OpenCV as a caller would: enlarge, bilateral
// filter on luma, unsharp mask on luma, bilateral filter on each chroma plane at output size.
// Working planes are local, allocated per call as the library allocates its own.
void callCvPipeline(Bench& b) {
  cv::Mat dy = b.dstY(), dvu = b.dstVU();
  cv::Mat upY, nrY, blurY;
  cv::resize(b.srcY(), upY, dy.size(), 0.0, 0.0, cv::INTER_LINEAR);
  cv::bilateralFilter(upY, nrY, kBilateralDiameter, kBilateralSigmaColor, kBilateralSigmaSpace);
  cv::GaussianBlur(nrY, blurY, cv::Size(5, 5), kUnsharpSigma, kUnsharpSigma);
  cv::addWeighted(nrY, 1.0 + kUnsharpAmount, blurY, -kUnsharpAmount, 0.0, dy);
  cv::Mat upVU, planes[2], filtered[2];
  cv::resize(b.srcVU(), upVU, dvu.size(), 0.0, 0.0, cv::INTER_LINEAR);
  cv::split(upVU, planes);
  for (int i = 0; i < 2; ++i)
    cv::bilateralFilter(planes[i], filtered[i], kBilateralDiameter, kBilateralSigmaColor,
                        kBilateralSigmaSpace);
  cv::merge(filtered, 2, dvu);
}

void callMemcpy(Bench& b) {
  std::memcpy(b.out.y.get(), b.floorSource.y.get(), b.out.lumaBytes());
  std::memcpy(b.out.vu.get(), b.floorSource.vu.get(), b.out.chromaBytes());
}

void prepare(const Case& c) {
  // OpenCV's own pool gets the thread count under test (1 = no worker threads).
  if (c.impl.impl == Impl::kCvResize || c.impl.impl == Impl::kCvPipeline)
    cv::setNumThreads(c.threads);
}

void runOnce(const Case& c, Bench& b) {
  switch (c.impl.impl) {
    case Impl::kKqWarp:
      callKq(b, c.threads, 0, 0, 0.0f);
      break;
    case Impl::kKqDefaults:
      callKq(b, c.threads, kNoiseReduction, kChromaNoiseReduction, kSharpening);
      break;
    case Impl::kCvResize:
      callCvResize(b);
      break;
    case Impl::kLibyuv:
      callLibyuv(b);
      break;
    case Impl::kCvPipeline:
      callCvPipeline(b);
      break;
    case Impl::kMemcpy:
      callMemcpy(b);
      break;
  }
}

// ---------------------------------------------------------------------------------------------
// Process counters

// Minor page faults and CPU time (user + system, in ms) of the whole process so far: the
// threads of the pools included, also those that have ended.
struct Usage {
  int64_t faults;
  double cpuMs;
};

Usage processUsage() {
  rusage u;
  getrusage(RUSAGE_SELF, &u);
  const double cpuUs = double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) * 1e6 +
                       double(u.ru_utime.tv_usec + u.ru_stime.tv_usec);
  return {int64_t(u.ru_minflt), cpuUs / 1000.0};
}

// A "Vm...:" line of /proc/self/status in bytes (-1 if absent).
int64_t statusBytes(const char* key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const size_t n = std::strlen(key);
  while (std::getline(status, line))
    if (line.compare(0, n, key) == 0) return std::stoll(line.substr(n)) * 1024;
  return -1;
}

// Sets the peak resident size back to the current one (Linux 4.0 and later); false if the
// kernel refuses, and then the peak is the process's since it started.
bool resetPeakResident() {
  std::ofstream clearRefs("/proc/self/clear_refs");
  clearRefs << "5" << std::flush;
  return bool(clearRefs);
}

struct Sample {
  double ms;
  double cpuMs;
  int64_t faults;
  int64_t peakExtraBytes;
};

// One timed call with its counters.
Sample measureOnce(const Case& c, Bench& b) {
  resetPeakResident();
  const int64_t rss = statusBytes("VmRSS:");
  const Usage before = processUsage();
  const auto t0 = std::chrono::steady_clock::now();
  runOnce(c, b);
  const auto t1 = std::chrono::steady_clock::now();
  const Usage after = processUsage();
  Sample s;
  s.ms = std::chrono::duration<double, std::milli>(t1 - t0).count();
  s.cpuMs = after.cpuMs - before.cpuMs;
  s.faults = after.faults - before.faults;
  s.peakExtraBytes = std::max<int64_t>(0, statusBytes("VmHWM:") - rss);
  return s;
}

// ---------------------------------------------------------------------------------------------
// Warm: Google Benchmark

void runWarm(benchmark::State& st, const Case& c) {
  Bench& b = benchFor(c.workload);
  prepare(c);
  runOnce(c, b);  // untimed: the process has made this call before every timed one
  resetPeakResident();
  const int64_t rss = statusBytes("VmRSS:");
  const int64_t faults = processUsage().faults;
  for (auto _ : st) {
    runOnce(c, b);
    benchmark::DoNotOptimize(b.out.y.get());
    benchmark::DoNotOptimize(b.out.vu.get());
    benchmark::ClobberMemory();
  }
  st.counters["minflt"] = benchmark::Counter(double(processUsage().faults - faults),
                                             benchmark::Counter::kAvgIterations);
  st.counters["peakExtraBytes"] = double(std::max<int64_t>(0, statusBytes("VmHWM:") - rss));
  st.counters["outBytes"] = double(b.out.bytes());
  st.SetItemsProcessed(int64_t(st.iterations()) * b.out.w * b.out.h);
}

// ---------------------------------------------------------------------------------------------
// Cold and verification modes

int runCold(const std::string& name) {
  for (const Case& c : allCases()) {
    if (c.name != name) continue;
    Bench& b = benchFor(c.workload);
    prepare(c);
    const Sample s = measureOnce(c, b);
    std::fprintf(gReport,
                 "cold %s ms=%.3f cpuMs=%.3f minflt=%lld peakExtraBytes=%lld outBytes=%zu\n",
                 c.name.c_str(), s.ms, s.cpuMs, (long long)s.faults, (long long)s.peakExtraBytes,
                 b.out.bytes());
    return 0;
  }
  std::fprintf(stderr, "kq_bench_call: no case named '%s' (see --list)\n", name.c_str());
  return 2;
}

double psnr(const uint8_t* a, const uint8_t* b, size_t n) {
  double sum = 0.0;
  for (size_t i = 0; i < n; ++i) {
    const double d = double(a[i]) - double(b[i]);
    sum += d * d;
  }
  return sum == 0.0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * double(n) / sum);
}

// Every output of every workload against OpenCV's bilinear resize of the same region, so that a
// case working on the wrong region, plane or byte order stands out before it is timed.
int runVerify() {
  std::fprintf(gReport, "%-34s %-18s %8s %8s\n", "workload", "output", "Y dB", "VU dB");
  for (int w = 0; w < kWorkloadCount; ++w) {
    Bench& b = benchFor(w);
    Case ref{w, kImpls[2], 1, ""};
    prepare(ref);
    runOnce(ref, b);
    const std::vector<uint8_t> refY(b.out.y.get(), b.out.y.get() + b.out.lumaBytes());
    const std::vector<uint8_t> refVU(b.out.vu.get(), b.out.vu.get() + b.out.chromaBytes());
    for (const ImplInfo& impl : kImpls) {
      if (impl.impl == Impl::kCvResize || impl.impl == Impl::kMemcpy) continue;
      const Case c{w, impl, 1, ""};
      prepare(c);
      runOnce(c, b);
      std::fprintf(gReport, "%-34s %-18s %8.2f %8.2f\n", kWorkloads[w].name, impl.name,
                   psnr(refY.data(), b.out.y.get(), refY.size()),
                   psnr(refVU.data(), b.out.vu.get(), refVU.size()));
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // The library's information lines (stdout) are not wanted here; its errors go to stderr.
  const int reportFd = dup(STDOUT_FILENO);
  if (reportFd >= 0) gReport = fdopen(reportFd, "w");
  if (gReport == nullptr) gReport = stderr;
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.rfind("--cold=", 0) == 0) return runCold(arg.substr(7));
    if (arg == "--verify") return runVerify();
    if (arg == "--list") {
      for (const Case& c : allCases()) std::fprintf(gReport, "%s\n", c.name.c_str());
      return 0;
    }
  }
  for (const Case& c : allCases())
    benchmark::RegisterBenchmark(c.name.c_str(), [c](benchmark::State& st) { runWarm(st, c); })
        ->UseRealTime()
        ->MeasureProcessCPUTime()  // CPU time of all threads, less disturbed by other load
        ->Unit(benchmark::kMillisecond);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::ConsoleReporter console;
  console.SetOutputStream(&std::cerr);
  console.SetErrorStream(&std::cerr);
  benchmark::RunSpecifiedBenchmarks(&console);
  benchmark::Shutdown();
  return 0;
}
