// homography_test.cpp - the scaling homography grids and source limits, to
// the bit, for matching, taller and wider regions (their halving for the
// chroma warp: the golden checksums).
#include "warp/homography.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

uint32_t bitsOf(float v) {
  uint32_t u;
  std::memcpy(&u, &v, sizeof u);
  return u;
}

struct Built {
  Homography forward[kKqGridTiles], inverse[kKqGridTiles], forwardScale, inverseScale;
  int32_t limitX = -1, limitY = -1;
};

Built build(int32_t sw, int32_t sh, int32_t dw, int32_t dh) {
  Built b;
  std::memset(&b.forward, 0xFF, sizeof b.forward);  // NaN garbage: every entry must be written
  std::memset(&b.inverse, 0xFF, sizeof b.inverse);
  kqCreateScalingHomographies(b.forward, b.inverse, &b.forwardScale, &b.inverseScale, sw, sh, dw,
                              dh, &b.limitX, &b.limitY);
  return b;
}

// Every tile holds diag(a, b, 1) with +0.0 everywhere else off the diagonal
// (the translations come out as +0.0, not -0.0).
void expectDiagonalGrid(const Homography* grid, uint32_t a, uint32_t b, const char* what) {
  for (int i = 0; i < kKqGridTiles; ++i) {
    SCOPED_TRACE(testing::Message() << what << " tile " << i);
    const float* h = grid[i].h;
    EXPECT_EQ(bitsOf(h[0]), a);
    EXPECT_EQ(bitsOf(h[4]), b);
    EXPECT_EQ(bitsOf(h[8]), bitsOf(1.0f));
    for (int k : {1, 2, 3, 5, 6, 7}) EXPECT_EQ(bitsOf(h[k]), 0u) << "entry h" << k;
  }
}

// Expected bit patterns below were computed independently (float32 rounding
// of each operation emulated in double precision).
struct Case {
  int32_t sw, sh, dw, dh;
  int32_t limitX, limitY;
  uint32_t fwd0, fwd4, inv0, inv4, sx, sy, rsx, rsy;
};

constexpr Case kCases[] = {
    // Same aspect ratio: no crop; s = 765/768 = 0.99609375 (the height's).
    {1024, 768, 4096, 3072, 1020, 764, 0x40808081, 0x40808081, 0x3E7F0000, 0x3E7F0000, 0x40800000,
     0x40800000, 0x3E800000, 0x3E800000},
    // Relatively taller: rows cut at the bottom to 562 (even).
    {1000, 1000, 1920, 1080, 996, 558, 0x3FF71433, 0x3FF74C7A, 0x3F049F21, 0x3F0480F3, 0x3FF5C28F,
     0x3FF5FA89, 0x3F055556, 0x3F0536FE},
    // Relatively wider: columns cut at the right to 1776 (even).
    {2000, 1000, 1920, 1080, 1772, 996, 0x3F8ACB76, 0x3F8AA7EE, 0x3F6C16F0, 0x3F6C536F, 0x3F8A60DD,
     0x3F8A3D71, 0x3F6CCCCD, 0x3F6D097B},
    {1920, 1080, 3840, 2160, 1916, 1076, 0x40005B46, 0x40005B46, 0x3EFF49F5, 0x3EFF49F5, 0x40000000,
     0x40000000, 0x3F000000, 0x3F000000},
};

TEST(Homography, GridsLimitsAndScalesToTheBit) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh);
    const Built b = build(c.sw, c.sh, c.dw, c.dh);
    EXPECT_EQ(b.limitX, c.limitX);
    EXPECT_EQ(b.limitY, c.limitY);
    expectDiagonalGrid(b.forward, c.fwd0, c.fwd4, "forward");
    expectDiagonalGrid(b.inverse, c.inv0, c.inv4, "inverse");
    EXPECT_EQ(bitsOf(b.forwardScale.h[0]), c.sx);
    EXPECT_EQ(bitsOf(b.forwardScale.h[4]), c.sy);
    EXPECT_EQ(bitsOf(b.inverseScale.h[0]), c.rsx);
    EXPECT_EQ(bitsOf(b.inverseScale.h[4]), c.rsy);
    EXPECT_EQ(bitsOf(b.forwardScale.h[8]), bitsOf(1.0f));
  }
}

}  // namespace
