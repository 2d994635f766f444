// bench_luma.cpp - luma noise reduction and sharpening on a 4096x3072 plane,
// per ISA level, single-threaded and on the pool, with OpenCV's bilateral
// filter and an unsharp mask (GaussianBlur + addWeighted) as anchors.
#include <benchmark/benchmark.h>

#include <string>
#include <thread>
#include <vector>

#include "bench_util.h"
#include "filters/luma_dsp.h"
#include "filters/luma_nr.h"
#include "filters/sharpen.h"
#include "runtime/cpu.h"
#include "runtime/pool.h"

#if defined(KQ_BENCH_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

constexpr int kW = 4096, kH = 3072;

const std::vector<uint8_t>& benchInput() {
  static const std::vector<uint8_t> plane = kqBenchPlane(kW, kH);
  return plane;
}

// threads 1: the calling thread; otherwise the pool with that many slots.
template <typename Run>
void runStage(benchmark::State& st, int threads, Run run) {
  std::vector<uint8_t> out(size_t(kW) * kH);
  KQImage8 in{kW, kH, const_cast<uint8_t*>(benchInput().data())};
  KQImage8 dst{kW, kH, out.data()};
  if (threads > 1) kqPoolStart(threads, 0, "kq-bench");
  for (auto _ : st) {
    run(&in, &dst, threads);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  if (threads > 1) kqPoolStop();
  st.SetItemsProcessed(int64_t(st.iterations()) * kW * kH);
}

void registerLumaBenches() {
  const int poolThreads =
      int(std::thread::hardware_concurrency()) > 1 ? int(std::thread::hardware_concurrency()) : 2;
  for (uint32_t level : kqCpuLevels()) {
    for (int threads : {1, poolThreads}) {
      const std::string suffix = std::string("/") + kqCpuLevelName(level) + "/" + std::to_string(kW) +
                                 "x" + std::to_string(kH) + "/threads:" + std::to_string(threads);
      benchmark::RegisterBenchmark(
          ("luma.noiseReduction" + suffix).c_str(),
          [level, threads](benchmark::State& st) {
            KQLumaDsp dsp;
            kqLumaDspInit(&dsp, level);
            runStage(st, threads, [&](const KQImage8* in, KQImage8* out, int t) {
              kqLumaNoiseReductionDsp(in, out, nullptr, 7, t, &dsp);
            });
          })
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
      benchmark::RegisterBenchmark(
          ("luma.sharpen" + suffix).c_str(),
          [level, threads](benchmark::State& st) {
            KQLumaDsp dsp;
            kqLumaDspInit(&dsp, level);
            runStage(st, threads, [&](const KQImage8* in, KQImage8* out, int t) {
              kqImageSharpeningDsp(in, out, nullptr, 1.0f, 0.0f, kKqSharpen5Tap, t, &dsp);
            });
          })
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
      // The same with a detail threshold (the kernels' clamp-and-subtract
      // step, skipped when the threshold is zero).
      if (threads == 1)
        benchmark::RegisterBenchmark(
            ("luma.sharpenThreshold" + suffix).c_str(),
            [level, threads](benchmark::State& st) {
              KQLumaDsp dsp;
              kqLumaDspInit(&dsp, level);
              runStage(st, threads, [&](const KQImage8* in, KQImage8* out, int t) {
                kqImageSharpeningDsp(in, out, nullptr, 1.0f, 4.0f, kKqSharpen5Tap, t, &dsp);
              });
            })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
  }
#if defined(KQ_BENCH_OPENCV)
  // Anchors, single-threaded (OpenCV's own threading switched off).
  benchmark::RegisterBenchmark("anchor.opencv.bilateralFilter_d5/4096x3072/threads:1",
                               [](benchmark::State& st) {
                                 cv::setNumThreads(1);
                                 const cv::Mat in(kH, kW, CV_8UC1,
                                                  const_cast<uint8_t*>(benchInput().data()));
                                 cv::Mat out;
                                 for (auto _ : st) {
                                   cv::bilateralFilter(in, out, 5, 30.0, 2.0);
                                   benchmark::DoNotOptimize(out.data);
                                 }
                                 st.SetItemsProcessed(int64_t(st.iterations()) * kW * kH);
                               })
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  benchmark::RegisterBenchmark("anchor.opencv.unsharpMask_gauss5x5/4096x3072/threads:1",
                               [](benchmark::State& st) {
                                 cv::setNumThreads(1);
                                 const cv::Mat in(kH, kW, CV_8UC1,
                                                  const_cast<uint8_t*>(benchInput().data()));
                                 cv::Mat blur, out;
                                 for (auto _ : st) {
                                   cv::GaussianBlur(in, blur, cv::Size(5, 5), 0.0);
                                   cv::addWeighted(in, 2.0, blur, -1.0, 0.0, out);
                                   benchmark::DoNotOptimize(out.data);
                                 }
                                 st.SetItemsProcessed(int64_t(st.iterations()) * kW * kH);
                               })
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
#endif
}

const int kRegistered = (registerLumaBenches(), 0);

}  // namespace
