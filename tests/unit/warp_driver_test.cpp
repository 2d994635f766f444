// warp_driver_test.cpp - the tiled warp driver and the kernel family's
// dispatch: tile splits, tile rectangles, thread-count determinism, the
// cases that do nothing, and the warp against a float bilinear model.
#include "warp/warp_driver.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "runtime/cpu.h"
#include "runtime/pool.h"
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

// Gives each tile its own inverse matrix (a slightly different scale and
// shift), so that neighbouring tiles' arithmetic differs at shared edges.
void perturb(Grids* g) {
  for (int i = 0; i < kKqGridTiles; ++i) {
    g->inverse[i].h[0] *= 1.0f + 0.004f * float(i % 5);
    g->inverse[i].h[4] *= 1.0f - 0.003f * float(i % 3);
    g->inverse[i].h[2] += 0.37f * float(i % 4);
    g->inverse[i].h[5] += 0.21f * float(i / 4);
  }
}

WarpJob jobFor(int32_t cols, int32_t rows) {
  WarpJob job = {};
  job.tileColumns = cols;
  job.tileRows = rows;
  return job;
}

class WarpDriver : public testing::Test {
 protected:
  // The split latches its tile total on first use in the process; make sure
  // that use is a 4 x 4 job whichever test runs first.
  static void SetUpTestSuite() {
    WarpJob job = jobFor(4, 4);
    kqWarpTileSplit(0, 1, 0, &job);
  }
};

TEST_F(WarpDriver, SplitHandsOutEveryTileOnce) {
  ASSERT_EQ(kqWarpLatchedTileTotal(), 16);
  struct Expect {
    int32_t slices;
    std::vector<std::pair<int, int>> ranges;
  };
  const Expect named[] = {
      {1, {{0, 15}}},
      {3, {{0, 4}, {5, 9}, {10, 15}}},
      {4, {{0, 3}, {4, 7}, {8, 11}, {12, 15}}},
      {5, {{0, 2}, {3, 5}, {6, 8}, {9, 11}, {12, 15}}},
  };
  for (const Expect& e : named)
    for (int32_t k = 0; k < e.slices; ++k) {
      WarpJob job = jobFor(4, 4);
      kqWarpTileSplit(k, e.slices, 1, &job);
      EXPECT_EQ(job.firstTile, e.ranges[k].first) << e.slices << " slices, slice " << k;
      EXPECT_EQ(job.lastTile, e.ranges[k].second) << e.slices << " slices, slice " << k;
    }
  // Any slice count: ranges are consecutive, cover 0..15 once, and counts
  // above 16 leave some slices empty.
  for (int32_t slices : {2, 6, 7, 16, 17, 31, 64, 2048}) {
    int32_t next = 0, empty = 0;
    for (int32_t k = 0; k < slices; ++k) {
      WarpJob job = jobFor(4, 4);
      kqWarpTileSplit(k, slices, 1, &job);
      EXPECT_EQ(job.firstTile, next) << slices << " slices, slice " << k;
      if (job.lastTile < job.firstTile)
        ++empty;
      else
        next = job.lastTile + 1;
    }
    EXPECT_EQ(next, 16) << slices << " slices";
    EXPECT_EQ(empty, slices > 16 ? slices - 16 : 0) << slices << " slices";
  }
  // The total stays latched whatever grid a later job has.
  WarpJob small = jobFor(2, 2);
  kqWarpTileSplit(1, 2, 1, &small);
  EXPECT_EQ(small.firstTile, 8);
  EXPECT_EQ(small.lastTile, 15);
}

WarpJob pipelineJob(KQImage8* list, const Grids& g) {
  WarpJob job = jobFor(4, 4);
  job.planes = list;
  job.dstWidth = list[1].width;
  job.dstHeight = list[1].height;
  job.forwardGrid = g.forward;
  job.inverseGrid = g.inverse;
  job.imageCount = 1;
  job.useHomography = 1;
  return job;
}

TEST_F(WarpDriver, TileRectanglesOfTheFourTimesEnlargement) {
  Plane src(1024, 768), dst(4096, 3072);
  KQImage8 list[2] = {src.view(), dst.view()};
  const Grids g = scaling(1024, 768, 4096, 3072);
  const WarpJob job = pipelineJob(list, g);
  const int32_t xs[4][2] = {{0, 1027}, {1028, 2055}, {2056, 3083}, {3084, 4095}};
  const int32_t ys[4][2] = {{0, 770}, {771, 1541}, {1542, 2312}, {2313, 3071}};
  for (int32_t ty = 0; ty < 4; ++ty)
    for (int32_t tx = 0; tx < 4; ++tx) {
      int32_t r[4];
      kqWarpTileRect(&job, 16, tx, ty, r);
      EXPECT_EQ(r[0], xs[tx][0]) << tx << "," << ty;
      EXPECT_EQ(r[2], xs[tx][1]) << tx << "," << ty;
      EXPECT_EQ(r[1], ys[ty][0]) << tx << "," << ty;
      EXPECT_EQ(r[3], ys[ty][1]) << tx << "," << ty;
    }
}

TEST_F(WarpDriver, WidenedLastColumnBelongsToTheLastTile) {
  // An odd destination width puts the last column's right edge on an even
  // column: the last tile starts one column left of its cut, and its left
  // neighbour stops one column short of that.
  Plane src(1024, 768), dst(4095, 3072);
  KQImage8 list[2] = {src.view(), dst.view()};
  const Grids g = scaling(1024, 768, 4096, 3072);
  const WarpJob job = pipelineJob(list, g);
  int32_t last[4], neighbour[4];
  kqWarpTileRect(&job, 16, 3, 1, last);
  kqWarpTileRect(&job, 16, 2, 1, neighbour);
  EXPECT_EQ(last[2], 4094);
  EXPECT_EQ(last[0], 3083);
  EXPECT_EQ(neighbour[2], 3082);

  // The identity mapping (second driver form) cuts the destination evenly
  // and holds rectangles to the source bounds.
  WarpJob identity = job;
  identity.useHomography = 0;
  identity.srcMinX = 10;
  identity.srcMaxX = 2000;
  identity.srcMinY = 0;
  identity.srcMaxY = 3071;
  int32_t r[4];
  kqWarpTileRect(&identity, 16, 0, 0, r);
  EXPECT_EQ(r[0], 10);
  EXPECT_EQ(r[2], 1022);
  kqWarpTileRect(&identity, 16, 3, 3, r);
  EXPECT_EQ(r[0], 3071);
  EXPECT_EQ(r[2], 2000);
  EXPECT_EQ(r[1], 2304);
  EXPECT_EQ(r[3], 3071);
}

// Rectangles of all 16 tiles never overlap, for square grids and for the
// grid shapes whose lower cut (divided by the column count) would overlap.
TEST_F(WarpDriver, TileRectanglesNeverOverlap) {
  struct Shape {
    int32_t sw, sh, dw, dh, cols, rows;
  };
  const Shape shapes[] = {{64, 48, 255, 191, 4, 4},
                          {8, 6, 33, 25, 4, 4},
                          {3, 2, 9, 7, 4, 4},
                          {64, 48, 255, 191, 2, 8},
                          {64, 48, 255, 191, 8, 2}};
  for (const Shape& s : shapes) {
    SCOPED_TRACE(testing::Message() << s.sw << "x" << s.sh << " -> " << s.dw << "x" << s.dh
                                    << " grid " << s.cols << "x" << s.rows);
    Plane src(s.sw, s.sh), dst(s.dw, s.dh);
    KQImage8 list[2] = {src.view(), dst.view()};
    Grids g = scaling(s.sw, s.sh, s.dw, s.dh);
    WarpJob job = pipelineJob(list, g);
    job.tileColumns = s.cols;
    job.tileRows = s.rows;
    std::vector<int> owner(size_t(s.dw) * s.dh, -1);
    for (int32_t t = 0; t < 16; ++t) {
      int32_t r[4];
      kqWarpTileRect(&job, 16, t % s.cols, t / s.cols, r);
      for (int32_t y = r[1]; y <= r[3]; ++y)
        for (int32_t x = r[0]; x <= r[2]; ++x) {
          ASSERT_TRUE(x >= 0 && y >= 0 && x < s.dw && y < s.dh) << "tile " << t;
          ASSERT_EQ(owner[size_t(y) * s.dw + x], -1)
              << "tiles " << owner[size_t(y) * s.dw + x] << " and " << t << " share (" << x << ","
              << y << ")";
          owner[size_t(y) * s.dw + x] = t;
        }
    }
    // Square grids also cover the whole destination (for sources of at
    // least the 4 pixels the margin needs).
    if (s.cols == s.rows && s.sw >= 4 && s.sh >= 4)
      for (size_t i = 0; i < owner.size(); ++i)
        ASSERT_NE(owner[i], -1) << "pixel (" << i % s.dw << "," << i / s.dw << ") has no tile";
  }
}

struct WarpCase {
  int32_t sw, sh, dw, dh;
  bool nonUniform;
};

// Runs the luma warp and the chroma warp (two plane lists) as the pipeline
// does, returning luma, U and V outputs back to back.
std::vector<uint8_t> runWarps(const WarpCase& c, int32_t threads, const KQWarpDsp* dsp) {
  Plane y = pattern(c.sw, c.sh, 1), u = pattern(c.sw / 2, c.sh / 2, 2),
        v = pattern(c.sw / 2, c.sh / 2, 3);
  Plane oy(c.dw, c.dh), ou(c.dw / 2, c.dh / 2), ov(c.dw / 2, c.dh / 2);
  KQImage8 ly[2] = {y.view(), oy.view()}, lu[2] = {u.view(), ou.view()},
           lv[2] = {v.view(), ov.view()};
  Grids g = scaling(c.sw, c.sh, c.dw, c.dh);
  if (c.nonUniform) perturb(&g);
  warpAllDsp(dsp, ly, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0,
             threads, 0, 1, 4, 4);
  kqHalveHomographyTranslations(g.forward, g.inverse);
  warpAllDsp(dsp, lu, lv, nullptr, g.forward, g.inverse, 0, g.limitX / 2, 0, g.limitY / 2, 1, 0, 0,
             threads, 1, 0, 4, 4);
  std::vector<uint8_t> out = oy.px;
  out.insert(out.end(), ou.px.begin(), ou.px.end());
  out.insert(out.end(), ov.px.begin(), ov.px.end());
  return out;
}

const WarpCase kWarpCases[] = {
    {64, 48, 255, 191, true},   // odd sizes: widened last column, non-uniform tiles
    {64, 48, 256, 192, false},  // the pipeline's uniform grid
    {40, 40, 97, 61, true},     // cropped source (relatively taller)
    {9, 7, 31, 23, true},       // tiny: tiles a few pixels wide
};

TEST_F(WarpDriver, SameBytesForEveryThreadCountAndLevel) {
  KQWarpDsp ref;
  kqWarpDspInit(&ref, 0);
  for (const WarpCase& c : kWarpCases) {
    SCOPED_TRACE(testing::Message() << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh);
    const std::vector<uint8_t> expect = runWarps(c, 1, &ref);
    for (uint32_t level : kqCpuLevels()) {
      KQWarpDsp dsp;
      kqWarpDspInit(&dsp, level);
      for (int32_t threads : {1, 0, 2, 3, 8, -3})
        EXPECT_TRUE(runWarps(c, threads, &dsp) == expect)
            << "threads " << threads << " level " << level << " (no pool)";
      kqPoolStart(4, 0, "KQWarpTest");
      for (int32_t threads : {2, 3, 8, 5})
        EXPECT_TRUE(runWarps(c, threads, &dsp) == expect)
            << "threads " << threads << " level " << level << " (pool)";
      kqPoolStop();
    }
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
  EXPECT_EQ(fnv1a(luma.px), 0x99AACC3AB2460AB9ull) << "luma";
  EXPECT_EQ(fnv1a(chroma.px), 0x7F22DE0D314368F8ull) << "chroma";
}

TEST_F(WarpDriver, SharedColumnHoldsTheLastTilesBytes) {
  // Non-uniform tiles with an odd width: the widened column is computed by
  // the last tile alone, so a warp of only the last tile column must agree
  // with the full warp there.
  const int32_t sw = 64, sh = 48, dw = 255, dh = 191;
  Plane src = pattern(sw, sh, 4), full(dw, dh), lastOnly(dw, dh);
  Grids g = scaling(sw, sh, dw, dh);
  perturb(&g);
  KQImage8 a[2] = {src.view(), full.view()}, b[2] = {src.view(), lastOnly.view()};
  warpAll(a, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, 3, 0, 1, 4,
          4);
  WarpJob job = pipelineJob(b, g);
  job.lumaSelect = 1;
  job.layoutCode = 1;
  job.planeValueAIsZero = 1;
  job.dsp = kqWarpDspGet();
  job.tileTotal = 16;
  int32_t last[4];
  kqWarpTileRect(&job, 16, 3, 0, last);
  ASSERT_EQ(last[2] % 2, 0) << "the case must widen the last column";
  for (int32_t t : {3, 7, 11, 15}) {
    job.firstTile = job.lastTile = t;
    kqWarpTileTask(&job);
  }
  // The last tile column spans every row; compare the shared column and the
  // one to its right.
  for (int32_t y = 0; y < dh; ++y)
    for (int32_t x : {last[0], last[0] + 1}) {
      const size_t i = size_t(y) * dw + x;
      EXPECT_EQ(full.px[i], lastOnly.px[i]) << "(" << x << ", " << y << ")";
    }
}

TEST_F(WarpDriver, CasesThatDoNothing) {
  Plane src = pattern(32, 24, 5), dst(128, 96);
  KQImage8 list[2] = {src.view(), dst.view()};
  Grids g = scaling(32, 24, 128, 96);
  const std::vector<uint8_t> before = dst.px;
  // Image counts without a kernel group.
  for (int32_t n : {0, 51, -1}) {
    warpAll(list, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, n, 0, 0, 2, 0,
            1, 4, 4);
    EXPECT_TRUE(dst.px == before) << "n = " << n;
  }
  // Members the pipeline never reaches: other layouts, planeValueA != 0.
  warpAll(list, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, 1, 2, 1,
          4, 4);
  warpAll(list, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, 1, 4, 0,
          4, 4);
  warpAll(list, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 7, 0, 1, 0, 1,
          4, 4);
  EXPECT_TRUE(dst.px == before);
  // Empty rectangles and flag pairs outside the four kernels.
  const int32_t empty[][4] = {{5, 5, 4, 9}, {5, 5, 9, 4}, {200, 0, 300, 10}, {0, -9, 10, -1}};
  for (const auto& r : empty)
    warpDispatch(1, 1, 1, 1, list, nullptr, nullptr, r, &g.inverse[5], &g.forward[5], 4, 4, 1, 1, 0,
                 0);
  const int32_t rect[4] = {0, 0, 20, 20};
  warpDispatch(1, 2, 1, 1, list, nullptr, nullptr, rect, &g.inverse[0], &g.forward[0], 4, 4, 0, 0,
               0, 0);
  warpDispatch(1, 1, 1, 2, list, nullptr, nullptr, rect, &g.inverse[0], &g.forward[0], 4, 4, 0, 0,
               0, 0);
  EXPECT_TRUE(dst.px == before);
  // Rows < 1 and a null grid stop the task.
  warpAll(list, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, 1, 0, 1,
          4, 0);
  warpAll(list, nullptr, nullptr, nullptr, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, 1, 0, 1, 4,
          4);
  EXPECT_TRUE(dst.px == before);
}

TEST_F(WarpDriver, FamilyShape) {
  // Only n = 1, layout 1 has working kernels; every other in-range member
  // exists and does nothing; out-of-range counts and flag pairs have none.
  for (int32_t n = -1; n <= 52; ++n)
    for (int32_t layout : {1, 3, 0, 2, 9})
      for (int32_t luma : {0, 1, 2})
        for (int32_t zero : {0, 1, -1}) {
          KQWarpKernelFn* k = kqWarpFamilyKernel(n, layout, luma, zero);
          const bool inRange = n >= 1 && n <= 50 && luma <= 1 && zero >= 0;
          KQWarpKernelFn* want = !inRange ? nullptr
                                 : n == 1 && layout == 1 && zero == 1
                                     ? (luma == 1 ? kqWarpLumaKernel : kqWarpChromaKernel)
                                     : kqWarpKernelNoop;
          ASSERT_EQ(k, want) << n << " " << layout << " " << luma << " " << zero;
        }
}

TEST_F(WarpDriver, SecondPlaneListIsWarpedWithItsOwnSource) {
  Plane u = pattern(16, 12, 6), v = pattern(16, 12, 7), ou(64, 48), ov(64, 48), oc(64, 48);
  KQImage8 lu[2] = {u.view(), ou.view()}, lv[2] = {v.view(), ov.view()},
           lc[2] = {v.view(), oc.view()};
  Grids g = scaling(32, 24, 128, 96);
  kqHalveHomographyTranslations(g.forward, g.inverse);
  warpAll(lu, lv, nullptr, g.forward, g.inverse, 0, g.limitX / 2, 0, g.limitY / 2, 1, 0, 0, 2, 1, 0,
          4, 4);
  warpAll(lc, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX / 2, 0, g.limitY / 2, 1, 0, 0, 1,
          1, 0, 4, 4);
  EXPECT_TRUE(ov.px == oc.px);
  EXPECT_FALSE(ou.px == ov.px);
}

// With a uniform grid the luma warp is plain bilinear sampling through the
// inverse matrix, up to the 1/32 horizontal and 1/16 vertical weights and
// the truncating shifts; chroma is the nearest sample.
TEST_F(WarpDriver, MatchesFloatSamplingModel) {
  const int32_t sw = 40, sh = 30, dw = 160, dh = 120;
  Plane src(sw, sh);
  for (int32_t y = 0; y < sh; ++y)
    for (int32_t x = 0; x < sw; ++x)
      src.px[size_t(y) * sw + x] = uint8_t(20 + 4 * x + 2 * y + ((x * y) % 3));
  Plane luma(dw, dh), chroma(dw, dh);
  Grids g = scaling(sw, sh, dw, dh);
  KQImage8 a[2] = {src.view(), luma.view()}, b[2] = {src.view(), chroma.view()};
  warpAll(a, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, 1, 0, 1, 4,
          4);
  warpAll(b, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, 1, 1, 0, 4,
          4);
  const double s = g.inverse[0].h[0];
  int worst = 0, chromaMiss = 0;
  for (int32_t y = 0; y < dh; ++y)
    for (int32_t x = 0; x < dw; ++x) {
      const double fx = s * x, fy = s * y;
      const int ix = int(fx), iy = int(fy);
      const double ax = fx - ix, ay = fy - iy;
      auto at = [&](int xx, int yy) {
        xx = xx < sw ? xx : sw - 1;
        yy = yy < sh ? yy : sh - 1;
        return double(src.px[size_t(yy) * sw + xx]);
      };
      const double model = (at(ix, iy) * (1 - ax) + at(ix + 1, iy) * ax) * (1 - ay) +
                           (at(ix, iy + 1) * (1 - ax) + at(ix + 1, iy + 1) * ax) * ay;
      const int diff = std::abs(int(luma.px[size_t(y) * dw + x]) - int(std::lround(model)));
      worst = diff > worst ? diff : worst;
      // Float rounding and the 1/32 lane positions can move a position
      // that lies near a sample boundary across it: then a neighbour is
      // picked, never a sample further away.
      const int nx = int(fx + 0.5), ny = int(fy + 0.5);
      const uint8_t got = chroma.px[size_t(y) * dw + x];
      if (got != uint8_t(at(nx, ny))) {
        ++chromaMiss;
        bool neighbour = false;
        for (int j = -1; j <= 1; ++j)
          for (int i = -1; i <= 1; ++i)
            neighbour |= nx + i >= 0 && ny + j >= 0 && got == uint8_t(at(nx + i, ny + j));
        EXPECT_TRUE(neighbour) << "chroma at (" << x << ", " << y << ")";
      }
    }
  // 4 grey levels per source pixel: quantising the phase to 1/32 and 1/16
  // and truncating twice stays within 2 levels.
  EXPECT_LE(worst, 2);
  // Only positions within 1/32 pixel of a sample boundary may differ.
  EXPECT_LT(chromaMiss, dw * dh / 10);
  EXPECT_EQ(luma.px[0], src.px[0]);
}

}  // namespace
