// chroma_nr_test.cpp - chroma noise reduction stage: weight tables, the row
// split, thread and instruction-set independence, the odd-size fix-up and
// bad input. The kernels' bytes are the kernel checks' part.
#include "filters/chroma_nr.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/luma_stage.h"

namespace {

// The kernels rely on falling weights (a slope never exceeds its weight)
// from full weight at distance 0, rows 1 and 2 alike; a NaN strength is
// refused.
TEST(ChromaSetup, WeightTablesFallFromFullWeight) {
  KQChromaParams p;
  for (int mode : {0, 1, 3})
    for (float s = -1.0f; s <= 11.0f; s += 0.25f) {
      ASSERT_TRUE(kqChromaSetup(mode, s, 2, &p));
      for (int r = 0; r < 3; ++r) {
        EXPECT_EQ(p.weights[r][0], 255) << "strength " << s << " row " << r;
        for (int k = 0; k < 8; ++k) ASSERT_GE(p.weights[r][k], p.weights[r][k + 1]) << s;
      }
      EXPECT_EQ(0, std::memcmp(p.weights[1], p.weights[2], 9));
    }
  EXPECT_FALSE(kqChromaSetup(0, std::nanf(""), 2, &p));
}

// Slices of both forms tile [0, y1) in order on even boundaries, with no gap
// and no overlap, for any slice count (also more slices than rows).
TEST(ChromaSplit, BothFormsTileTheRowsOnEvenBoundaries) {
  for (int flag : {0, 1})
    for (int32_t y1 : {0, 2, 6, 10, 48, 96, 100, 382, 1536})
      for (int32_t n = 1; n <= 80; ++n) {
        int32_t expected = 0;
        for (int32_t i = 0; i < n; ++i) {
          KQChromaPassContext c;
          std::memset(&c, 0, sizeof c);
          c.endRow = y1;
          kqChromaSplit(i, n, flag, &c);
          ASSERT_EQ(c.firstRow, expected)
              << "flag " << flag << " rows " << y1 << " n " << n << " slice " << i;
          ASSERT_GE(c.endRow, c.firstRow);
          ASSERT_EQ(c.firstRow % 2 + c.endRow % 2, 0);
          expected = c.endRow;
        }
        ASSERT_EQ(expected, y1) << "flag " << flag << " rows " << y1 << " n " << n;
      }
}

// A packed plane inside a sentinel frame, with its KQImage8 view.
struct Plane {
  KqFramedPlane framed;
  KQImage8 img;
  Plane(int w, int h) : framed(w * h, 1, 0x5A), img{w, h, framed.data()} {}
  Plane(const Plane&) = delete;
  uint8_t& at(int x, int y) { return img.data[size_t(y) * img.width + x]; }
  const std::vector<uint8_t>& raw() const { return framed.raw(); }
};

// Everything one call needs: output luma, in-place U/V and the scratch planes.
struct Frame {
  int w, h;
  Plane luma, u, v, h1u, h1v, h2u, h2v;
  Frame(int cw, int ch, int lumaExtra = 0)
      : w(cw),
        h(ch),
        luma(2 * cw + lumaExtra, 2 * ch + lumaExtra),
        u(cw, ch),
        v(cw, ch),
        h1u(cw / 2, ch / 2),
        h1v(cw / 2, ch / 2),
        h2u(cw / 2, ch / 2),
        h2v(cw / 2, ch / 2) {}
  void run(float strength, int threads, const KQChromaDsp* dsp = kqChromaDspGet()) {
    kqChromaNoiseReductionDsp(&luma.img, &u.img, &v.img, &u.img, &v.img, &h1u.img, &h1v.img,
                              &h2u.img, &h2v.img, nullptr, 0, strength, threads, dsp);
  }
  void fill(uint64_t seed, KqFill kind = KqFill::kSmooth) {
    KqRng rng(seed);
    for (Plane* p : {&luma, &u, &v})
      kqFillPlane(p->img.data, p->img.width, p->img.height, p->img.width, kind, rng);
  }
};

// Every level, thread count and split form gives the scalar single-thread
// bytes, sentinels included, on odd widths and heights and on a plane wide
// enough for every vector loop.
TEST(ChromaStage, SameBytesForEveryLevelThreadCountAndSplitForm) {
  KQChromaDsp ref;
  kqChromaDspInit(&ref, 0);
  const int sizes[][2] = {{203, 77}, {256, 96}, {131, 30}};
  for (const auto& size : sizes)
    for (float strength : {1.0f, 3.0f, 10.0f}) {
      Frame expected(size[0], size[1]);
      expected.fill(7 + size[0]);
      expected.run(strength, 1, &ref);
      SCOPED_TRACE(testing::Message() << size[0] << "x" << size[1] << " strength " << strength);
      kqForEachLevelAndThreadCount(kqChromaDspInit, [&](const KQChromaDsp& dsp, int threads) {
        Frame got(size[0], size[1]);
        got.fill(7 + size[0]);
        got.run(strength, threads, &dsp);
        ASSERT_EQ(got.u.raw(), expected.u.raw());
        ASSERT_EQ(got.v.raw(), expected.v.raw());
        ASSERT_EQ(got.h1u.raw(), expected.h1u.raw());
        ASSERT_EQ(got.h2v.raw(), expected.h2v.raw());
      });
    }
}

// The filter covers the even part, which is what the same image cropped to
// even size gives; an odd last row copies the row above, then an odd last
// column copies its left neighbour in every even-part row, so the corner
// keeps the unfiltered pixel from above.
TEST(ChromaStage, OddSizesGetTheBorderFixUp) {
  const int w = 61, h = 45;
  for (int threads : {1, 3}) {
    Frame odd(w, h, 1), even(w - 1, h - 1, 3);  // same luma size
    odd.fill(11);
    for (int y = 0; y < h - 1; ++y) {
      std::memcpy(&even.u.at(0, y), &odd.u.at(0, y), size_t(w - 1));
      std::memcpy(&even.v.at(0, y), &odd.v.at(0, y), size_t(w - 1));
    }
    std::memcpy(even.luma.img.data, odd.luma.img.data, size_t(2 * w + 1) * (2 * h + 1));
    const uint8_t cornerSourceU = odd.u.at(w - 1, h - 2);
    odd.run(5.0f, threads);
    even.run(5.0f, threads);
    for (int y = 0; y < h - 1; ++y) {
      ASSERT_EQ(0, std::memcmp(&even.u.at(0, y), &odd.u.at(0, y), size_t(w - 1))) << "row " << y;
      ASSERT_EQ(0, std::memcmp(&even.v.at(0, y), &odd.v.at(0, y), size_t(w - 1))) << "row " << y;
      ASSERT_EQ(odd.u.at(w - 1, y), odd.u.at(w - 2, y)) << "row " << y;
      ASSERT_EQ(odd.v.at(w - 1, y), odd.v.at(w - 2, y)) << "row " << y;
    }
    EXPECT_EQ(0, std::memcmp(&odd.u.at(0, h - 1), &odd.u.at(0, h - 2), size_t(w - 1)));
    EXPECT_EQ(odd.u.at(w - 1, h - 1), cornerSourceU);
  }
}

// Planes too small to filter stay as they were; the smallest filterable
// ones write nothing outside their planes (sentinel frames). Inconsistent
// records are logged and leave the planes alone, as does a NaN strength.
TEST(ChromaStage, TinyAndBadInputStayInsideOrUnchanged) {
  const int sizes[][3] = {{0, 0, 1}, {1, 1, 1}, {1, 6, 1}, {6, 1, 1}, {0, 4, 1},
                          {2, 2, 0}, {3, 3, 0}, {2, 7, 0}, {9, 2, 0}};  // w, h, too small
  for (const auto& s : sizes) {
    Frame f(s[0], s[1]);
    f.fill(5, KqFill::kUniform);
    std::vector<uint8_t> u = f.u.raw(), v = f.v.raw();
    f.run(10.0f, s[2] ? 2 : 8);
    if (!s[2]) {  // only the planes' own bytes may change
      std::memcpy(&u[KqFramedPlane::kFrame * f.u.framed.stride() + KqFramedPlane::kFrame],
                  f.u.img.data, size_t(s[0]) * s[1]);
      std::memcpy(&v[KqFramedPlane::kFrame * f.v.framed.stride() + KqFramedPlane::kFrame],
                  f.v.img.data, size_t(s[0]) * s[1]);
    }
    EXPECT_TRUE(u == f.u.raw() && v == f.v.raw()) << s[0] << "x" << s[1];
  }

  KqLogCapture log;
  Frame f(32, 16);
  f.fill(8, KqFill::kUniform);
  const std::vector<uint8_t> u = f.u.raw();
  Plane narrow(15, 8), shortLuma(64, 30);  // luma needs 2 * (16 - 1) + 1 = 31 rows
  for (const auto& planes :
       {std::make_pair<const KQImage8*, KQImage8*>(nullptr, &f.h1u.img),
        std::make_pair<const KQImage8*, KQImage8*>(&f.luma.img, &narrow.img),
        std::make_pair<const KQImage8*, KQImage8*>(&shortLuma.img, &f.h1u.img)})
    kqChromaNoiseReductionDsp(planes.first, &f.u.img, &f.v.img, &f.u.img, &f.v.img, planes.second,
                              &f.h1v.img, &f.h2u.img, &f.h2v.img, nullptr, 0, 3.0f, 1,
                              kqChromaDspGet());
  f.run(std::nanf(""), 1);
  EXPECT_EQ(u, f.u.raw());
  ASSERT_EQ(log.lines().size(), 3u);
  for (const KqLogLine& line : log.lines()) EXPECT_EQ(line.priority, KQ_LOG_ERROR);
}

}  // namespace
