// warp_driver_test.cpp - the tiled warp driver: the tile split, tile
// rectangles that neither overlap nor leave gaps, every pixel of whole warps
// against an independent model of the arithmetic at every thread count, the
// same bytes on every target, and the cases that do nothing.
#include "warp/warp_driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

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
      return std::string(plane) + " (" + std::to_string(i % w) + ", " + std::to_string(i / w) +
             "): " + std::to_string(got[i]) + " instead of " + std::to_string(want[i]);
  return "";
}

// Warps luma, and U and V (each from its own source) of a sw x sh work area
// to dw x dh as the pipeline does and compares every byte with the model;
// "" when all agree. perturbed gives each tile its own inverse matrix, so
// that neighbouring tiles' arithmetic differs at shared edges.
std::string compareWithModel(int32_t sw, int32_t sh, int32_t dw, int32_t dh, int32_t threads,
                             uint32_t seed, bool perturbed) {
  Plane y = pattern(sw, sh, seed), u = pattern(sw / 2, sh / 2, seed + 1),
        v = pattern(sw / 2, sh / 2, seed + 2);
  Plane oy(dw, dh), ou(dw / 2, dh / 2), ov(dw / 2, dh / 2);
  Grids g = scaling(sw, sh, dw, dh);
  for (int i = 0; perturbed && i < kKqGridTiles; ++i) {
    g.inverse[i].h[0] *= 1.0f + 0.004f * float(i % 5);
    g.inverse[i].h[4] *= 1.0f - 0.003f * float(i % 3);
    g.inverse[i].h[2] += 0.37f * float(i % 4);
    g.inverse[i].h[5] += 0.21f * float(i / 4);
  }
  std::vector<uint8_t> wantY(oy.px), wantU(ou.px), wantV(ov.px);
  modelWarp({sw, sh, y.px.data()}, wantY.data(), dw, dh, g.forward, g.inverse, true);
  KQImage8 ly[2] = {y.view(), oy.view()}, lu[2] = {u.view(), ou.view()},
           lv[2] = {v.view(), ov.view()};
  warpAll(ly, nullptr, nullptr, g.forward, g.inverse, 0, g.limitX, 0, g.limitY, 1, 0, 0, threads, 0,
          1, 4, 4);
  kqHalveHomographyTranslations(g.forward, g.inverse);
  modelWarp({sw / 2, sh / 2, u.px.data()}, wantU.data(), dw / 2, dh / 2, g.forward, g.inverse,
            false);
  modelWarp({sw / 2, sh / 2, v.px.data()}, wantV.data(), dw / 2, dh / 2, g.forward, g.inverse,
            false);
  warpAll(lu, lv, nullptr, g.forward, g.inverse, 0, g.limitX / 2, 0, g.limitY / 2, 1, 0, 0, threads,
          1, 0, 4, 4);
  std::string diff = firstDifference(oy.px, wantY, dw, "luma");
  if (diff.empty()) diff = firstDifference(ou.px, wantU, dw / 2, "U");
  if (diff.empty()) diff = firstDifference(ov.px, wantV, dw / 2, "V");
  return diff;
}

TEST_F(WarpDriver, EveryPixelFollowsItsTilesRectangle) {
  // Work areas and outputs where blocks of the tile left of a widened last
  // column start within a rounding error of a whole source pixel.
  const int32_t named[][4] = {{48, 64, 177, 236},
                              {1102, 987, 1771, 1694},
                              {1276, 592, 2542, 1179},
                              {768, 880, 1618, 1853},
                              {480, 74, 1458, 198}};
  for (const auto& c : named)
    EXPECT_EQ(compareWithModel(c[0], c[1], c[2], c[3], 1, 11, false), "")
        << c[0] << "x" << c[1] << " -> " << c[2] << "x" << c[3];

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
