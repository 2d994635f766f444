// warp_driver_test.cpp - the tiled warp driver and the kernel family's
// dispatch: tile splits, tile rectangles, the warp against a model of its
// arithmetic at every thread count, and the cases that do nothing.
#include "warp/warp_driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
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
      int32_t r[4], last[2];
      kqWarpTileRect(&job, 16, tx, ty, r, last);
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
  int32_t last[4], neighbour[4], lastWrites[2], neighbourWrites[2];
  kqWarpTileRect(&job, 16, 3, 1, last, lastWrites);
  kqWarpTileRect(&job, 16, 2, 1, neighbour, neighbourWrites);
  EXPECT_EQ(last[2], 4094);
  EXPECT_EQ(last[0], 3083);
  EXPECT_EQ(lastWrites[0], 4094);
  // The neighbour's rows still span its whole rectangle.
  EXPECT_EQ(neighbour[2], 3083);
  EXPECT_EQ(neighbourWrites[0], 3082);

  // The identity mapping (second driver form) cuts the destination evenly
  // and holds rectangles to the source bounds.
  WarpJob identity = job;
  identity.useHomography = 0;
  identity.srcMinX = 10;
  identity.srcMaxX = 2000;
  identity.srcMinY = 0;
  identity.srcMaxY = 3071;
  int32_t r[4], w[2];
  kqWarpTileRect(&identity, 16, 0, 0, r, w);
  EXPECT_EQ(r[0], 10);
  EXPECT_EQ(r[2], 1022);
  kqWarpTileRect(&identity, 16, 3, 3, r, w);
  EXPECT_EQ(r[0], 3071);
  EXPECT_EQ(r[2], 2000);
  EXPECT_EQ(r[1], 2304);
  EXPECT_EQ(r[3], 3071);
}

// The pixels the 16 tiles write never overlap, for square grids and for the
// grid shapes whose lower cut (divided by the column count) would overlap.
TEST_F(WarpDriver, TileWritesNeverOverlap) {
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
      int32_t r[4], last[2];
      kqWarpTileRect(&job, 16, t % s.cols, t / s.cols, r, last);
      for (int32_t y = r[1]; y <= last[1]; ++y)
        for (int32_t x = r[0]; x <= last[0]; ++x) {
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

// The warp's defined arithmetic, stated on its own: tile rectangles from the
// forward grid's cuts (the last column widened to the left when its right
// edge is even), and in each rectangle, row by row, the left end L and the
// step D from the corner matrices at x0 and x1, blocks of 8 starting at
// L + 8D + 8D + ..., lanes in 1/32 pixel. Tiles paint in index order, so
// where two rectangles share a column the later tile's bytes stand.
struct ModelPlane {
  int32_t w, h;
  const uint8_t* px;
  uint8_t at(int32_t x, int32_t y) const {
    x = x < 0 ? 0 : x >= w ? w - 1 : x;
    return px[size_t(y) * w + x];
  }
};

float modelMapX(const Homography& m, float x, float y) { return m.h[0] * x + m.h[1] * y + m.h[2]; }
float modelMapY(const Homography& m, float x, float y) { return m.h[3] * x + m.h[4] * y + m.h[5]; }

int32_t floorShift(int32_t v, int k) { return int32_t(std::floor(double(v) / double(1 << k))); }

void modelWarp(const ModelPlane& src, uint8_t* dst, int32_t dw, int32_t dh,
               const Homography* forward, const Homography* inverse, bool luma) {
  const int32_t cols = 4, rows = 4;
  const Homography& H = forward[0];
  for (int32_t ty = 0; ty < rows; ++ty)
    for (int32_t tx = 0; tx < cols; ++tx) {
      const int32_t a = tx * src.w / cols, c = (src.w + tx * src.w) / cols;
      const int32_t b = ty * src.h / rows, d = (ty + 1) * src.h / cols;
      const float xa = H.h[2] + H.h[0] * float(a), xc = H.h[2] + H.h[0] * float(c);
      const float yb = H.h[5] + H.h[0] * float(b), yd = H.h[5] + H.h[0] * float(d);
      int32_t x0 = xa > 0.0f ? int32_t(xa) : 0, y0 = yb > 0.0f ? int32_t(yb) : 0;
      const int32_t x1 = std::min(int32_t(xc) - 1, dw - 1), y1 = std::min(int32_t(yd) - 1, dh - 1);
      if (tx == cols - 1 && x1 % 2 == 0 && x0 > 0) x0 -= 1;
      if (x1 < x0 || y1 < y0) continue;

      const int32_t t = ty * cols + tx;
      const Homography& own = inverse[t];
      const Homography& left = tx > 0 ? inverse[t - 1] : own;
      const Homography& up = ty > 0 ? inverse[t - cols] : own;
      const Homography& upLeft = ty > 0 ? (tx > 0 ? inverse[t - cols - 1] : up) : left;
      for (int32_t y = y0; y <= y1; ++y) {
        const float tr = float(y - y0) / (y1 == y0 ? 1.0f : float(y1 - y0));
        const float u = 1.0f - tr, fy = float(y), fx0 = float(x0), fx1 = float(x1);
        float lx = u * modelMapX(upLeft, fx0, fy) + tr * modelMapX(left, fx0, fy);
        const float ly = u * modelMapY(upLeft, fx0, fy) + tr * modelMapY(left, fx0, fy);
        const float rx = u * modelMapX(up, fx1, fy) + tr * modelMapX(own, fx1, fy);
        const float D = x1 > x0 ? float((double(rx) - double(lx)) / double(x1 - x0)) : 0.0f;
        const int32_t S = int32_t(D * 2048.0f);
        int32_t r0, r1, w1 = 0;
        if (luma) {
          const float cy = std::min(std::max(ly, 0.0f), float(src.h - 1));
          r0 = int32_t(cy);
          r1 = std::min(r0 + 1, src.h - 1);
          w1 = int32_t((cy - float(r0)) * 16.0f);
        } else {
          r0 = r1 = int32_t(std::min(std::max(ly + 0.5f, 0.0f), float(src.h - 1)));
          lx = lx + 0.5f;
        }
        float p = lx;
        for (int32_t k0 = x0; k0 <= x1; k0 += 8, p = p + 8.0f * D) {
          const int32_t base = int32_t(std::floor(p));
          const int32_t phase = int32_t((p - float(base)) * 32.0f);
          for (int32_t l = 0; l < 8 && k0 + l <= x1; ++l) {
            const int32_t q = phase + floorShift(l * S, 6);
            const int32_t xi = base + floorShift(q, 5);
            const int32_t f = q & 31;
            uint32_t v;
            if (luma) {
              const uint32_t hu = (src.at(xi, r0) * (32u - f) + src.at(xi + 1, r0) * f) >> 1;
              const uint32_t hl = (src.at(xi, r1) * (32u - f) + src.at(xi + 1, r1) * f) >> 1;
              v = (hu * uint32_t(16 - w1) + hl * uint32_t(w1)) >> 8;
            } else {
              v = src.at(xi, r0);
            }
            dst[size_t(y) * dw + k0 + l] = uint8_t(v);
          }
        }
      }
    }
}

// First pixel where a warp differs from the model, as text ("" if none).
std::string firstDifference(const std::vector<uint8_t>& got, const std::vector<uint8_t>& want,
                            int32_t w, const char* plane) {
  for (size_t i = 0; i < got.size(); ++i)
    if (got[i] != want[i])
      return testing::PrintToString(plane) + " (" + std::to_string(i % w) + ", " +
             std::to_string(i / w) + "): " + std::to_string(got[i]) + " instead of " +
             std::to_string(want[i]);
  return "";
}

// Warps luma and chroma of a sw x sh work area to dw x dh as the pipeline
// does and compares every byte with the model; "" when all agree.
std::string compareWithModel(int32_t sw, int32_t sh, int32_t dw, int32_t dh, int32_t threads,
                             uint32_t seed, bool perturbed) {
  Plane y = pattern(sw, sh, seed), u = pattern(sw / 2, sh / 2, seed + 1);
  Plane oy(dw, dh), ou(dw / 2, dh / 2), ov(dw / 2, dh / 2);
  Grids g = scaling(sw, sh, dw, dh);
  if (perturbed) perturb(&g);
  std::vector<uint8_t> wantY(oy.px), wantU(ou.px);
  modelWarp({sw, sh, y.px.data()}, wantY.data(), dw, dh, g.forward, g.inverse, true);
  KQImage8 ly[2] = {y.view(), oy.view()}, lu[2] = {u.view(), ou.view()},
           lv[2] = {u.view(), ov.view()};
  warpAll(ly, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, threads, 0,
          1, 4, 4);
  kqHalveHomographyTranslations(g.forward, g.inverse);
  modelWarp({sw / 2, sh / 2, u.px.data()}, wantU.data(), dw / 2, dh / 2, g.forward, g.inverse,
            false);
  warpAll(lu, lv, nullptr, g.forward, g.inverse, 0, g.limitX / 2, 0, g.limitY / 2, 1, 0, 0, threads,
          1, 0, 4, 4);
  std::string diff = firstDifference(oy.px, wantY, dw, "luma");
  if (diff.empty()) diff = firstDifference(ou.px, wantU, dw / 2, "U");
  if (diff.empty()) diff = firstDifference(ov.px, wantU, dw / 2, "V");
  return diff;
}

TEST_F(WarpDriver, EveryPixelFollowsItsTilesRectangle) {
  // Work areas and outputs where blocks of the tile left of a widened last
  // column start within a rounding error of a whole source pixel.
  struct Case {
    int32_t sw, sh, dw, dh;
  };
  const Case named[] = {
      {48, 64, 177, 236},       // a 52x66 region cut to 48x64
      {1102, 987, 1771, 1694},  // whole image
      {1276, 592, 2542, 1179},  // region of 1468x594: chroma
      {768, 880, 1618, 1853},   // region of 810x880: chroma
      {480, 74, 1458, 198},     // whole image: chroma
  };
  for (const Case& c : named)
    EXPECT_EQ(compareWithModel(c.sw, c.sh, c.dw, c.dh, 1, 11, false), "")
        << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh;

  // Random work areas (whole images of any size, regions cut to multiples
  // of 4) and outputs of up to 4x per side, some with unequal tiles, on one
  // thread and on more: slices that end inside a tile row, fresh threads,
  // and for the second half the pool. The bytes must not depend on any.
  uint32_t s = 0x2545F491u;
  auto next = [&s](int32_t lo, int32_t hi) {
    s ^= s << 13, s ^= s >> 17, s ^= s << 5;
    return lo + int32_t(s % uint32_t(hi - lo + 1));
  };
  int32_t failures = 0, cases = 0;
  // Fresh threads now and then only: qemu-user keeps memory for every
  // thread it has started.
  const int32_t threadCounts[] = {1, 3, 1, 8, 1, 3};
  for (int32_t i = 0; i < 3000; ++i) {
    if (i == 1500) kqPoolStart(4, 0, "KQWarpTest");
    int32_t sw = next(8, 120), sh = next(8, 120);
    if (i % 2) sw &= ~3, sh &= ~3;
    const int32_t dw = sw + next(0, 3 * sw), dh = sh + next(0, 3 * sh);
    int32_t fw, fh;
    kqFitSourceToAspect(sw, sh, dw, dh, &fw, &fh);
    if (fw < 4 || fh < 4) continue;
    ++cases;
    const std::string diff = compareWithModel(
        sw, sh, dw, dh, i % 30 == 5 ? -2 : threadCounts[i % 6], uint32_t(i), i % 5 == 0);
    if (!diff.empty() && ++failures <= 5)
      ADD_FAILURE() << sw << "x" << sh << " -> " << dw << "x" << dh << ": " << diff;
  }
  kqPoolStop();
  EXPECT_EQ(failures, 0) << "of " << cases << " random sizes";
  EXPECT_GT(cases, 2500);
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

// The family's members, told apart by what they do to one tile: a 4x
// enlargement of a picture of three grey levels. The luma member blends
// (levels between the three appear), the chroma member picks samples (only
// the three appear), the others leave the plane as it was, and selections
// outside the family have no member.
TEST_F(WarpDriver, FamilyMembersBlendPickOrDoNothing) {
  Plane src(16, 12);
  for (size_t i = 0; i < src.px.size(); ++i) src.px[i] = uint8_t(60 + 60 * ((i / 3) % 3));
  Grids g = scaling(16, 12, 64, 48);
  const int32_t rect[4] = {0, 0, 63, 47};
  enum Kind { kNone, kBlends, kPicks, kNothing };
  struct Member {
    int32_t n, layout, luma, zero;
    Kind kind;
  };
  const Member members[] = {
      {1, 1, 1, 1, kBlends},  {1, 1, 0, 1, kPicks},   {1, 3, 1, 1, kNothing},
      {1, 0, 0, 1, kNothing}, {2, 1, 1, 1, kNothing}, {50, 9, 0, 0, kNothing},
      {1, 1, 1, 0, kNothing}, {0, 1, 1, 1, kNone},    {51, 1, 1, 1, kNone},
      {1, 1, 2, 1, kNone},    {1, 1, 1, -1, kNone},   {-1, 1, 0, 1, kNone},
  };
  for (const Member& m : members) {
    SCOPED_TRACE(testing::Message() << m.n << " " << m.layout << " " << m.luma << " " << m.zero);
    KQWarpKernelFn* kernel = kqWarpFamilyKernel(m.n, m.layout, m.luma, m.zero);
    if (m.kind == kNone) {
      EXPECT_EQ(kernel, nullptr);
      continue;
    }
    ASSERT_NE(kernel, nullptr);
    Plane dst(64, 48);
    KQImage8 list[2] = {src.view(), dst.view()};
    kernel(kqWarpDspGet(), list, nullptr, rect, nullptr, &g.inverse[0], &g.forward[0], 1, 1, 0, 0,
           0);
    bool written = false, between = false;
    for (uint8_t v : dst.px) {
      written |= v != kSentinel;
      between |= v != kSentinel && v != 60 && v != 120 && v != 180;
    }
    EXPECT_EQ(written, m.kind != kNothing);
    EXPECT_EQ(between, m.kind == kBlends);
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

}  // namespace
