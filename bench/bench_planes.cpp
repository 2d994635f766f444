// bench_planes.cpp - chroma split (intake) and merge (output assembly) over
// the chroma plane of a 4096 x 3072 NV21 image, per instruction-set level,
// with libyuv's SplitUVPlane / MergeUVPlane as the anchor when available.
#include <benchmark/benchmark.h>

#include <vector>

#include "bench_util.h"
#include "image/output_assembly.h"
#include "image/plane_intake.h"
#include "image/planes_dsp.h"
#include "runtime/pool.h"

#if defined(KQ_BENCH_LIBYUV)
#include <libyuv/planar_functions.h>
#endif

namespace {

constexpr int kWidth = 4096;
constexpr int kHeight = 3072;
constexpr int kPairs = kWidth / 2;
constexpr int kRows = kHeight / 2;
constexpr int64_t kChromaBytes = int64_t(kWidth) * kRows;

void splitRows(benchmark::State& state, uint32_t level) {
  KQPlanesDsp dsp;
  kqPlanesDspInit(&dsp, level);
  const std::vector<uint8_t> src = kqBenchPlane(kWidth, kRows, 3);
  std::vector<uint8_t> u(size_t(kPairs) * kRows), v(size_t(kPairs) * kRows);
  for (auto _ : state) {
    for (int r = 0; r < kRows; ++r) {
      const size_t d = size_t(r) * kPairs;
      dsp.splitUVRow(v.data() + d, u.data() + d, src.data() + size_t(r) * kWidth, kPairs);
    }
    benchmark::DoNotOptimize(u.data());
    benchmark::DoNotOptimize(v.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kChromaBytes);
}

void mergeRows(benchmark::State& state, uint32_t level) {
  KQPlanesDsp dsp;
  kqPlanesDspInit(&dsp, level);
  const std::vector<uint8_t> u = kqBenchPlane(kPairs, kRows, 4);
  const std::vector<uint8_t> v = kqBenchPlane(kPairs, kRows, 5);
  std::vector<uint8_t> dst(size_t(kWidth) * kRows);
  for (auto _ : state) {
    for (int r = 0; r < kRows; ++r) {
      const size_t s = size_t(r) * kPairs;
      dsp.mergeUVRow(dst.data() + size_t(r) * kWidth, v.data() + s, u.data() + s, kPairs);
    }
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kChromaBytes);
}

// The whole stages with their thread spreading (best kernels for this CPU).
void intakeStage(benchmark::State& state) {
  std::vector<uint8_t> luma = kqBenchPlane(kWidth, kHeight, 6);
  std::vector<uint8_t> chroma = kqBenchPlane(kWidth, kRows, 7);
  KQYUVMultiPlaneImage rec{};
  rec.type = 10;
  rec.width = kWidth;
  rec.height = kHeight;
  rec.yRowStride = kWidth;
  rec.yScanlines = kHeight;
  rec.yData = luma.data();
  rec.chromaData = chroma.data();
  std::vector<uint8_t> y(size_t(kWidth) * kHeight), u(size_t(kPairs) * kRows),
      v(size_t(kPairs) * kRows);
  KQImage8 inY{kWidth, kHeight, y.data()}, inU{kPairs, kRows, u.data()},
      inV{kPairs, kRows, v.data()};
  const int32_t threads = int32_t(state.range(0));
  kqPoolStart(threads, 0, "kq_bench");  // as the pipeline holds it
  for (auto _ : state) {
    kqTakeYUVPlanes(&rec, &inY, &inU, &inV, threads);
    benchmark::ClobberMemory();
  }
  kqPoolStop();
  state.SetBytesProcessed(state.iterations() * (int64_t(kWidth) * kHeight + kChromaBytes));
}

void assemblyStage(benchmark::State& state) {
  const std::vector<uint8_t> u = kqBenchPlane(kPairs, kRows, 8);
  const std::vector<uint8_t> v = kqBenchPlane(kPairs, kRows, 9);
  const int32_t stride = kWidth + 64;
  std::vector<uint8_t> chroma(size_t(stride) * kRows);
  KQYUVMultiPlaneImage rec{};
  rec.type = 10;
  rec.width = kWidth;
  rec.height = kHeight;
  rec.yRowStride = stride;
  rec.yScanlines = kHeight;
  rec.chromaData = chroma.data();
  const KQImage8 outU{kPairs, kRows, const_cast<uint8_t*>(u.data())};
  const KQImage8 outV{kPairs, kRows, const_cast<uint8_t*>(v.data())};
  const int32_t threads = int32_t(state.range(0));
  kqPoolStart(threads, 0, "kq_bench");
  for (auto _ : state) {
    kqSetUVData(&outU, &outV, &rec, 0, stride - kWidth, threads);
    benchmark::ClobberMemory();
  }
  kqPoolStop();
  state.SetBytesProcessed(state.iterations() * kChromaBytes);
}

#if defined(KQ_BENCH_LIBYUV)
void libyuvSplit(benchmark::State& state) {
  const std::vector<uint8_t> src = kqBenchPlane(kWidth, kRows, 3);
  std::vector<uint8_t> u(size_t(kPairs) * kRows), v(size_t(kPairs) * kRows);
  for (auto _ : state) {
    libyuv::SplitUVPlane(src.data(), kWidth, v.data(), kPairs, u.data(), kPairs, kPairs, kRows);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kChromaBytes);
}

void libyuvMerge(benchmark::State& state) {
  const std::vector<uint8_t> u = kqBenchPlane(kPairs, kRows, 4);
  const std::vector<uint8_t> v = kqBenchPlane(kPairs, kRows, 5);
  std::vector<uint8_t> dst(size_t(kWidth) * kRows);
  for (auto _ : state) {
    libyuv::MergeUVPlane(v.data(), kPairs, u.data(), kPairs, dst.data(), kWidth, kPairs, kRows);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kChromaBytes);
}
#endif

void registerPlaneBenches() {
  kqBenchPerLevel("planes.splitUVRow/4096x3072", splitRows);
  kqBenchPerLevel("planes.mergeUVRow/4096x3072", mergeRows);
  benchmark::RegisterBenchmark("planes.kqTakeYUVPlanes/4096x3072", intakeStage)
      ->Arg(1)
      ->Arg(2)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("planes.kqSetUVData/4096x3072", assemblyStage)
      ->Arg(1)
      ->Arg(2)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
#if defined(KQ_BENCH_LIBYUV)
  benchmark::RegisterBenchmark("planes.libyuv.SplitUVPlane/4096x3072", libyuvSplit);
  benchmark::RegisterBenchmark("planes.libyuv.MergeUVPlane/4096x3072", libyuvMerge);
#endif
}

const int kRegistered = (registerPlaneBenches(), 0);

}  // namespace
