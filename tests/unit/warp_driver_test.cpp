// warp_driver_test.cpp - the tiled warp driver: the tile split and the cases
// that do nothing. The warp's bytes at each level are the kernel checks'
// part; tiles that leave gaps and the same bytes on every target (float
// evaluation order in the row set-up), the golden checksums'; across thread
// counts, the stress test's.
#include "warp/warp_family.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "warp/homography.h"
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

}  // namespace
