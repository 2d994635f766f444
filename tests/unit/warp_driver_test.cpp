// warp_driver_test.cpp - the tiled warp driver: the tile split, tile
// rectangles that neither overlap nor leave gaps, the same bytes on every
// target, and the cases that do nothing. The warp's bytes at each level are
// the kernel checks' part; across thread counts, the stress test's.
#include "warp/warp_driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "warp/homography.h"
#include "warp/warp_dispatch.h"

namespace {

constexpr uint8_t kSentinel = 0xA5;

struct Plane {
  int32_t w, h;
  std::vector<uint8_t> px;
  Plane(int32_t width, int32_t height, uint8_t fill = kSentinel)
      : w(width), h(height), px(size_t(width) * height, fill) {}
  KQImage8 view() { return KQImage8{w, h, px.data()}; }
};

// Source content with detail in both directions (no flat areas that would
// hide a wrong sample).
Plane pattern(int32_t w, int32_t h, uint32_t seed) {
  Plane p(w, h);
  uint32_t s = seed * 2654435761u + 7;
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      s ^= s << 13, s ^= s >> 17, s ^= s << 5;
      p.px[size_t(y) * w + x] = uint8_t((x * 7 + y * 3) % 200 + (s & 31));
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

// The pixels the 16 tiles write never overlap and, for square grids (and
// sources of at least the 4 pixels the margin needs), cover the whole
// destination; also for the grid shapes whose lower cut would overlap.
TEST_F(WarpDriver, TileWritesNeitherOverlapNorLeaveGaps) {
  const int32_t shapes[][6] = {{64, 48, 255, 191, 4, 4}, {8, 6, 33, 25, 4, 4},
                               {3, 2, 9, 7, 4, 4},       {1024, 768, 4095, 3072, 4, 4},
                               {64, 48, 255, 191, 2, 8}, {64, 48, 255, 191, 8, 2}};
  for (const auto& s : shapes) {
    SCOPED_TRACE(testing::Message() << s[0] << "x" << s[1] << " -> " << s[2] << "x" << s[3]
                                    << " grid " << s[4] << "x" << s[5]);
    const Grids g = scaling(s[0], s[1], s[2], s[3]);
    KQImage8 list[2] = {{s[0], s[1], nullptr}, {s[2], s[3], nullptr}};
    WarpJob job = {};
    job.tileColumns = s[4];
    job.tileRows = s[5];
    job.planes = list;
    job.dstWidth = s[2];
    job.dstHeight = s[3];
    job.forwardGrid = g.forward;
    job.inverseGrid = g.inverse;
    job.imageCount = 1;
    job.useHomography = 1;
    std::vector<int> owner(size_t(s[2]) * s[3], -1);
    for (int32_t t = 0; t < 16; ++t) {
      int32_t r[4], last[2];
      kqWarpTileRect(&job, 16, t % s[4], t / s[4], r, last);
      for (int32_t y = r[1]; y <= last[1]; ++y)
        for (int32_t x = r[0]; x <= last[0]; ++x) {
          ASSERT_TRUE(x >= 0 && y >= 0 && x < s[2] && y < s[3]) << "tile " << t;
          ASSERT_EQ(owner[size_t(y) * s[2] + x], -1)
              << "tiles " << owner[size_t(y) * s[2] + x] << " and " << t << " share (" << x << ","
              << y << ")";
          owner[size_t(y) * s[2] + x] = t;
        }
    }
    if (s[4] == s[5] && s[0] >= 4 && s[1] >= 4)
      for (size_t i = 0; i < owner.size(); ++i)
        ASSERT_NE(owner[i], -1) << "pixel (" << i % s[2] << "," << i / s[2] << ") has no tile";
  }
}

uint64_t fnv1a(const std::vector<uint8_t>& bytes) {
  uint64_t h = 0xCBF29CE484222325ull;
  for (uint8_t b : bytes) h = (h ^ b) * 0x100000001B3ull;
  return h;
}

// The same bytes on every target: the row set-up is float arithmetic (blend
// of the corner matrices, the double-precision step) that a fused
// multiply-add or a different evaluation order would change on one target
// only, where the per-level comparisons cannot see it. The tiles get sheared,
// unequal matrices with full-precision entries so that positions use every
// mantissa bit. The hash was taken from an x86-64 run; armv7 and aarch64
// reproduce it.
TEST_F(WarpDriver, SameBytesOnEveryTarget) {
  KQWarpDsp ref;
  kqWarpDspInit(&ref, 0);
  const int32_t sw = 200, sh = 150, dw = 641, dh = 479;
  Plane src = pattern(sw, sh, 9), luma(dw, dh), chroma(dw, dh);
  Grids g = scaling(sw, sh, dw, dh);
  for (int i = 0; i < kKqGridTiles; ++i) {
    float* h = g.inverse[i].h;
    h[0] = 0.3129f + 0.0107f * float(i % 4);
    h[1] = 0.0173f * float(i % 3);
    h[2] = 1.37f * float(i) / 7.0f;
    h[3] = -0.0121f * float(i % 2);
    h[4] = 0.3071f - 0.0093f * float(i / 4);
    h[5] = 0.93f * float(i % 5) / 3.0f;
  }
  KQImage8 a[2] = {src.view(), luma.view()}, b[2] = {src.view(), chroma.view()};
  warpAllDsp(&ref, a, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, 1,
             0, 1, 4, 4);
  warpAllDsp(&ref, b, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, 1,
             1, 0, 4, 4);
  EXPECT_EQ(fnv1a(luma.px), 0x0FA226446183CCF7ull) << "luma";
  EXPECT_EQ(fnv1a(chroma.px), 0xAB607D43A5D03EAEull) << "chroma";
}

// Image counts without a kernel group, members the pipeline never reaches
// (other layouts, planeValueA != 0), flag pairs outside the four kernels,
// empty rectangles, rows < 1 and a null grid: nothing is written.
TEST_F(WarpDriver, CasesThatDoNothing) {
  Plane src = pattern(32, 24, 5), dst(128, 96);
  KQImage8 list[2] = {src.view(), dst.view()};
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
  EXPECT_TRUE(std::all_of(dst.px.begin(), dst.px.end(), [](uint8_t b) { return b == kSentinel; }));
}

}  // namespace
