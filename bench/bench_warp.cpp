// bench_warp.cpp - luma (bilinear) and chroma (nearest-sample) warps at
// camera sizes, per instruction-set level, single-threaded and on the pool,
// with libyuv's bilinear plane scale on the same sizes as the anchor.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bench_util.h"
#include "runtime/pool.h"
#include "warp/homography.h"
#include "warp/warp_dsp.h"
#include "warp/warp_engine.h"

#if defined(KQ_BENCH_LIBYUV)
#include <libyuv/scale.h>
#endif

namespace {

struct WarpSize {
  int32_t sw, sh, dw, dh;
};
constexpr WarpSize kSizes[] = {{1024, 768, 4096, 3072}, {1920, 1080, 3840, 2160}};

std::string sizeName(const WarpSize& s) {
  return std::to_string(s.sw) + "x" + std::to_string(s.sh) + "_" + std::to_string(s.dw) + "x" +
         std::to_string(s.dh);
}

// One luma warp (or one U+V chroma warp at half size) per iteration, as the
// pipeline issues it. Items are output pixels of the warped plane(s), so
// items/s reads as output pixels per second. threads 1 runs on the calling
// thread; 2 (the machine's cores) goes through the pool.
void benchWarp(benchmark::State& state, uint32_t level, WarpSize s, bool luma, int32_t threads) {
  KQWarpDsp dsp;
  kqWarpDspInit(&dsp, level);
  const int32_t div = luma ? 1 : 2;
  const int32_t sw = s.sw / div, sh = s.sh / div, dw = s.dw / div, dh = s.dh / div;
  std::vector<uint8_t> src0 = kqBenchPlane(sw, sh, 1), src1 = kqBenchPlane(sw, sh, 2);
  std::vector<uint8_t> dst0(size_t(dw) * dh), dst1(size_t(dw) * dh);
  KQScalingGrids grids;
  kqScalingGrids(s.sw, s.sh, s.dw, s.dh, &grids);
  if (!luma) kqHalveHomographyTranslations(grids.forward, grids.inverse);
  KQWarpRequest request = {};
  request.kind = luma ? KQWarpKind::kLuma : KQWarpKind::kChromaPlanes;
  request.source[0] = {src0.data(), sw, sh, sw};
  request.target[0] = {dst0.data(), dw, dh, dw};
  if (!luma) {
    request.source[1] = {src1.data(), sw, sh, sw};
    request.target[1] = {dst1.data(), dw, dh, dw};
  }
  request.forwardGrid = grids.forward;
  request.inverseGrid = grids.inverse;
  request.tileColumns = request.tileRows = 4;
  request.tileLimit = kKqGridTiles;
  request.dsp = &dsp;
  std::vector<uint8_t> scratch(kqWarpScratchBytes(request, kqStepWorkers(threads)));
  if (threads > 1) kqPoolStart(threads, 0, "KQBench");
  for (auto _ : state) {
    kqWarpRun(request, threads, scratch.data(), scratch.size());
    benchmark::DoNotOptimize(dst0.data());
    benchmark::DoNotOptimize(dst1.data());
    benchmark::ClobberMemory();
  }
  if (threads > 1) kqPoolStop();
  const int64_t pixels = int64_t(dw) * dh * (luma ? 1 : 2);
  state.SetItemsProcessed(state.iterations() * pixels);
}

#if defined(KQ_BENCH_LIBYUV)
// libyuv's bilinear scale of the same plane(s): luma alone, or the two
// half-size chroma planes.
void benchLibyuv(benchmark::State& state, WarpSize s, bool luma) {
  const int32_t div = luma ? 1 : 2;
  const int32_t sw = s.sw / div, sh = s.sh / div, dw = s.dw / div, dh = s.dh / div;
  std::vector<uint8_t> src = kqBenchPlane(sw, sh, 1), dst(size_t(dw) * dh);
  for (auto _ : state) {
    for (int i = 0; i < (luma ? 1 : 2); ++i)
      libyuv::ScalePlane(src.data(), sw, sw, sh, dst.data(), dw, dw, dh, libyuv::kFilterBilinear);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * int64_t(dw) * dh * (luma ? 1 : 2));
}
#endif

void registerWarpBenches() {
  for (const WarpSize& s : kSizes)
    for (int luma = 1; luma >= 0; --luma) {
      const std::string plane = luma ? "luma" : "chroma";
      for (uint32_t level : kqCpuLevels()) {
        for (int32_t threads : {1, 2}) {
          const std::string name = "warp." + plane + "/" + kqCpuLevelName(level) + "/" + sizeName(s) +
                                   "/threads:" + std::to_string(threads);
          benchmark::RegisterBenchmark(
              name.c_str(),
              [=](benchmark::State& st) { benchWarp(st, level, s, luma != 0, threads); })
              ->UseRealTime()
              ->Unit(benchmark::kMillisecond);
        }
      }
#if defined(KQ_BENCH_LIBYUV)
      benchmark::RegisterBenchmark(
          ("libyuv.bilinear." + plane + "/" + sizeName(s)).c_str(),
          [s, luma](benchmark::State& st) { benchLibyuv(st, s, luma != 0); })
          ->UseRealTime()
          ->Unit(benchmark::kMillisecond);
#endif
    }
}

const int kReg = (registerWarpBenches(), 0);

}  // namespace
