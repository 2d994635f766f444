// warp_driver_test.cpp - the tiled warp: the engine's bytes across thread
// counts, bands and kinds, its tile limit and scratch check; the original
// driver's tile split and the cases that do nothing. The warp's bytes at
// each level are the kernel checks' part; the same bytes on every target
// (float evaluation order in the row set-up), the golden checksums'.
#include "warp/warp_family.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "runtime/pool.h"
#include "warp/homography.h"
#include "warp/warp_engine.h"
#include "warp/warp_family.h"

namespace {

constexpr uint8_t kSentinel = 0xA5;

// Source content with detail in both directions (no flat areas that would
// hide a wrong sample).
std::vector<uint8_t> pattern(int32_t w, int32_t h, uint32_t seed) {
  std::vector<uint8_t> p(size_t(w) * h);
  uint32_t s = seed * 2654435761u + 7;
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      s ^= s << 13, s ^= s >> 17, s ^= s << 5;
      p[size_t(y) * w + x] = uint8_t((x * 7 + y * 3) % 200 + (s & 31));
    }
  return p;
}

struct Grids {
  Homography forward[kKqGridTiles], inverse[kKqGridTiles], fs, is;
  int32_t limitX, limitY;
};

Grids scaling(int32_t sw, int32_t sh, int32_t dw, int32_t dh) {
  Grids g;
  kqCreateScalingHomographies(g.forward, g.inverse, &g.fs, &g.is, sw, sh, dw, dh, &g.limitX,
                              &g.limitY);
  return g;
}

class WarpDriver : public testing::Test {
 protected:
  // The split latches its tile total on first use in the process; make sure
  // that use is a 4 x 4 job whichever test runs first.
  static void SetUpTestSuite() {
    WarpJob job = {};
    job.tileColumns = job.tileRows = 4;
    kqWarpTileSplit(0, 1, 0, &job);
  }
};

// Any slice count: ranges are consecutive and cover the 16 tiles once;
// counts above 16 leave some slices empty. The total stays latched whatever
// grid a later job has.
TEST_F(WarpDriver, SplitHandsOutEveryTileOnce) {
  ASSERT_EQ(kqWarpLatchedTileTotal(), 16);
  for (int32_t slices : {1, 2, 3, 5, 7, 16, 17, 31, 2048}) {
    int32_t next = 0, empty = 0;
    for (int32_t k = 0; k < slices; ++k) {
      WarpJob job = {};
      job.tileColumns = job.tileRows = k % 2 ? 2 : 4;
      kqWarpTileSplit(k, slices, 1, &job);
      EXPECT_EQ(job.firstTile, next) << slices << " slices, slice " << k;
      if (job.lastTile < job.firstTile)
        ++empty;
      else
        next = job.lastTile + 1;
    }
    EXPECT_EQ(next, 16) << slices << " slices";
    EXPECT_EQ(empty, std::max(0, slices - 16)) << slices << " slices";
  }
}

// Image counts without a kernel group, members the pipeline never reaches
// (other layouts, planeValueA != 0), flag pairs outside the four kernels,
// empty rectangles, rows < 1 and a null grid: nothing is written.
TEST_F(WarpDriver, CasesThatDoNothing) {
  std::vector<uint8_t> src = pattern(32, 24, 5), dst(128 * 96, kSentinel);
  KQImage8 list[2] = {{32, 24, src.data()}, {128, 96, dst.data()}};
  Grids g = scaling(32, 24, 128, 96);
  const int32_t calls[][6] = {// imageCount, planeValueA, layout, luma, tileRows, grid
                              {0, 0, 0, 1, 4, 1}, {51, 0, 0, 1, 4, 1}, {-1, 0, 0, 1, 4, 1},
                              {1, 0, 2, 1, 4, 1}, {1, 0, 4, 0, 4, 1},  {1, 7, 0, 1, 4, 1},
                              {1, 0, 0, 1, 0, 1}, {1, 0, 0, 1, 4, 0}};
  for (const auto& c : calls)
    warpAll(list, nullptr, nullptr, c[5] ? g.forward : nullptr, g.inverse, 0, g.limitX, 0, g.limitY,
            c[0], c[1], 0, 2, c[2], c[3], 4, c[4]);
  const int32_t empty[][4] = {{5, 5, 4, 9}, {5, 5, 9, 4}, {200, 0, 300, 10}, {0, -9, 10, -1}};
  for (const auto& r : empty)
    warpDispatch(1, 1, 1, 1, list, nullptr, nullptr, r, &g.inverse[5], &g.forward[5], 4, 4, 1, 1, 0,
                 0);
  const int32_t rect[4] = {0, 0, 20, 20};
  for (int32_t flags : {0, 1})
    warpDispatch(1, flags ? 2 : 1, 1, flags ? 1 : 2, list, nullptr, nullptr, rect, &g.inverse[0],
                 &g.forward[0], 4, 4, 0, 0, 0, 0);
  EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](uint8_t b) { return b == kSentinel; }));
}

// One warp of each kind through the engine, source and target rows padded
// (pairs: with their bytes exchanged), into sentinel-filled targets.
struct EngineWarp {
  KQWarpKind kind;
  int32_t sw, sh, dw, dh;
  int32_t cols = 4, rows = 4, limit = 16;
  std::vector<uint8_t> src[2];
  KQScalingGrids grids;

  EngineWarp(KQWarpKind k, int32_t srcW, int32_t srcH, int32_t dstW, int32_t dstH)
      : kind(k), sw(srcW), sh(srcH), dw(dstW), dh(dstH) {
    for (int i = 0; i < 2; ++i) src[i] = pattern(2 * sw + 7, sh, uint32_t(i + 3));
    kqScalingGrids(sw, sh, dw, dh, &grids);
    if (kind != KQWarpKind::kLuma) kqHalveHomographyTranslations(grids.forward, grids.inverse);
  }
  ptrdiff_t dstPitch() const { return (kind == KQWarpKind::kChromaPairs ? 2 : 1) * dw + 5; }
  // Runs with `threads` and `scratchBytes` of scratch (0: what it asks).
  std::vector<uint8_t> run(int32_t threads, size_t scratchBytes = 0) const {
    std::vector<uint8_t> dst(2 * size_t(dstPitch()) * dh, kSentinel);
    KQWarpRequest r = {};
    r.kind = kind;
    r.forwardGrid = grids.forward;
    r.inverseGrid = grids.inverse;
    r.tileColumns = cols;
    r.tileRows = rows;
    r.tileLimit = limit;
    r.dsp = kqWarpDspGet();
    r.swapPairs = true;
    const int planes = kind == KQWarpKind::kChromaPlanes ? 2 : 1;
    for (int i = 0; i < planes; ++i) {
      r.source[i] = {src[i].data(), sw, sh, 2 * sw + 7};
      r.target[i] = {dst.data() + size_t(i) * size_t(dstPitch()) * dh, dw, dh, dstPitch()};
    }
    const size_t need = kqWarpScratchBytes(r, kqStepWorkers(threads));
    std::vector<uint8_t> scratch(scratchBytes > 0 ? scratchBytes : need);
    kqWarpRun(r, threads, scratch.data(), scratch.size());
    return dst;
  }
};

// Every thread count (the pool, fresh threads, more workers than bands)
// gives the bytes of one thread, for each kind, for square and non-square
// grids; an enlargement, a near-copy and a reduction.
TEST(WarpEngine, SameBytesForEveryThreadCount) {
  kqPoolStart(8, 0, "KQUpScale");
  for (KQWarpKind kind : {KQWarpKind::kLuma, KQWarpKind::kChromaPairs, KQWarpKind::kChromaPlanes})
    for (const auto& size : {std::vector<int32_t>{37, 23, 150, 97}, {64, 48, 66, 50},
                             {90, 60, 30, 20}})
      for (int32_t grid : {0, 1}) {
        EngineWarp w(kind, size[0], size[1], size[2], size[3]);
        if (grid == 1) {
          w.cols = 3;
          w.rows = 2;
          w.limit = 6;
        }
        const std::vector<uint8_t> one = w.run(1);
        ASSERT_NE(std::count(one.begin(), one.end(), kSentinel), ptrdiff_t(one.size()));
        for (int32_t threads : {2, 3, 8, -2, -5, 0})
          ASSERT_EQ(w.run(threads), one) << int(kind) << " " << size[0] << "x" << size[1]
                                         << " -> " << size[2] << "x" << size[3] << " grid "
                                         << grid << " threads " << threads;
      }
  kqPoolStop();
}

// Tiles from the limit on are not warped (their rows keep the sentinel),
// and a scratch one byte short of what the warp asks writes nothing.
TEST(WarpEngine, TileLimitAndShortScratchWriteNothingMore) {
  EngineWarp w(KQWarpKind::kLuma, 40, 30, 160, 120);
  w.limit = 8;  // the upper two tile rows
  const std::vector<uint8_t> half = w.run(3);
  KQWarpRequest r = {};
  r.kind = KQWarpKind::kLuma;
  r.forwardGrid = w.grids.forward;
  r.target[0].width = w.dw;
  r.source[0].width = w.sw;
  r.source[0].height = w.sh;
  r.target[0].height = w.dh;
  r.tileColumns = r.tileRows = 4;
  int32_t rect[4], last[2];
  kqWarpTileRect(r, 0, 2, rect, last);  // the first tile of the third row
  const size_t pitch = size_t(w.dstPitch());
  for (size_t y = 0; y < size_t(w.dh); ++y) {
    const bool warped = int32_t(y) < rect[1];
    const auto row = half.begin() + ptrdiff_t(y * pitch);
    const ptrdiff_t sentinels = std::count(row, row + w.dw, kSentinel);
    if (warped)
      ASSERT_LT(sentinels, w.dw) << "row " << y;
    else
      ASSERT_EQ(sentinels, w.dw) << "row " << y;
  }
  w.limit = 16;
  const std::vector<uint8_t> all = w.run(1);
  KQWarpRequest sized = r;
  sized.inverseGrid = w.grids.inverse;
  const size_t bytes = kqWarpScratchBytes(sized, 1);
  const std::vector<uint8_t> shortRun = w.run(1, bytes - 1);
  EXPECT_EQ(std::count(shortRun.begin(), shortRun.end(), kSentinel), ptrdiff_t(shortRun.size()));
  EXPECT_EQ(w.run(1, bytes), all);
}

}  // namespace
