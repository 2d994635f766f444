// filters_test.cpp - the three filter stages (luma noise reduction,
// sharpening, chroma noise reduction): small planes, bad input, and each
// stage's own rules (the noise filter's frame, the chroma weight tables and
// odd-size fix-up). The row kernels' bytes are the kernel checks' part; the
// strength blends, the golden checksums'; the stages' row splits across
// thread counts, the stress test's.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "filters/chroma_nr.h"
#include "filters/luma_dsp.h"
#include "filters/luma_nr.h"
#include "filters/sharpen.h"
#include "kernels/check_util.h"
#include "runtime/pool.h"
#include "support/log_capture.h"

namespace {

// A packed plane with its KQImage8 view.
struct Plane {
  std::vector<uint8_t> bytes;
  KQImage8 img;
  Plane(int w, int h, uint8_t fill = 0) : bytes(size_t(w) * h, fill), img{w, h, bytes.data()} {}
  Plane(const Plane& o) : bytes(o.bytes), img{o.img.width, o.img.height, bytes.data()} {}
  uint8_t& at(int x, int y) { return bytes[size_t(y) * img.width + x]; }
};

Plane randomPlane(int w, int h, uint64_t seed, KqFill fill = KqFill::kSmooth) {
  Plane p(w, h);
  KqRng rng(seed);
  kqFillPlane(p.img.data, w, h, w, fill, rng);
  return p;
}

KQLumaDsp lumaDsp(uint32_t level) {
  KQLumaDsp d;
  kqLumaDspInit(&d, level);
  return d;
}

Plane runNr(const Plane& in, int strength, int threads, const KQLumaDsp* dsp,
            const KQImage8* ref = nullptr) {
  Plane out(in.img.width, in.img.height);
  kqLumaNoiseReductionDsp(&in.img, &out.img, ref, strength, threads, dsp);
  return out;
}

// A packed plane inside a sentinel frame, with its KQImage8 view.
struct Framed {
  KqFramedPlane framed;
  KQImage8 img;
  Framed(int w, int h) : framed(w * h, 1, 0x5A), img{w, h, framed.data()} {}
  Framed(const Framed&) = delete;
  uint8_t& at(int x, int y) { return img.data[size_t(y) * img.width + x]; }
  const std::vector<uint8_t>& raw() const { return framed.raw(); }
};

// Everything one chroma call needs: output luma, in-place U/V and the
// scratch planes.
struct Frame {
  int w, h;
  Framed luma, u, v, h1u, h1v, h2u, h2v;
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
    for (Framed* p : {&luma, &u, &v})
      kqFillPlane(p->img.data, p->img.width, p->img.height, p->img.width, kind, rng);
  }
};

// Runs `stage(in, out, threads, dsp)` on a w x h plane whose input ends at a
// guard page into framed outputs: nothing may be written outside the
// output, every output byte must be written (outputs prefilled with 0 and
// 255 agree), and every level must give the scalar bytes.
template <class Stage>
void expectTinyPlaneSafe(int w, int h, KqRng& rng, Stage stage) {
  SCOPED_TRACE(testing::Message() << w << "x" << h);
  const KQLumaDsp c = lumaDsp(0);
  KqGuardedBuffer buf(size_t(w) * h);
  kqFillPlane(buf.data(), w, h, w, KqFill::kUniform, rng);
  const KQImage8 in{w, h, buf.data()};
  KqFramedPlane a(w * h, 1, 0x00), b(w * h, 1, 0xFF), clean(w * h, 1, 0x00);
  KQImage8 outA{w, h, a.data()}, outB{w, h, b.data()};
  stage(&in, &outA, 2, &c);
  stage(&in, &outB, 2, &c);
  std::memcpy(clean.data(), a.data(), size_t(w) * h);
  ASSERT_TRUE(kqFramedEqual(clean, a));
  ASSERT_TRUE(kqPlanesEqual(a.data(), w, b.data(), w, w, h)) << "unwritten output bytes";
  for (uint32_t level : kqCpuLevels()) {
    const KQLumaDsp dsp = lumaDsp(level);
    KqFramedPlane o(w * h, 1, 0x00);
    KQImage8 out{w, h, o.data()};
    stage(&in, &out, 3, &dsp);
    ASSERT_TRUE(kqFramedEqual(a, o)) << kqCpuLevelName(level);
  }
}

// Luma planes below the noise filter's interior minimum (32 columns, 9
// rows) and tiny sharpened planes (mirrored row indices clamped, widths
// below 8 all tail) stay inside their buffers and write every byte. Chroma
// planes too small to filter stay as they were; the smallest filterable
// ones write nothing outside their planes.
TEST(FilterStages, SmallPlanesStayInsideTheirBuffers) {
  KqRng rng(kqTestSeed() + 4);
  kqPoolStart(3, 0, "filters-test");  // slices through the pool: no thread start per call
  for (int h = 1; h <= 12; ++h)
    for (int w : {1, 2, 3, 5, 6, 7, 8, 11, 12, 13, 16, 17, 18, 19, 25, 31, 32, 33, 40, 45, 46, 47})
      expectTinyPlaneSafe(w, h, rng,
                          [](const KQImage8* in, KQImage8* out, int threads, const KQLumaDsp* d) {
                            kqLumaNoiseReductionDsp(in, out, nullptr, 6, threads, d);
                          });
  for (int kind : {4, 7})
    for (int h = 1; h <= 6; ++h)
      for (int w = 1; w <= 20; ++w) {
        SCOPED_TRACE(testing::Message() << "sharpening kind " << kind);
        expectTinyPlaneSafe(
            w, h, rng, [kind](const KQImage8* in, KQImage8* out, int threads, const KQLumaDsp* d) {
              kqImageSharpeningDsp(in, out, nullptr, 1.5f, 0.0f, kind, threads, d);
            });
      }
  kqPoolStop();
  const int sizes[][3] = {{0, 0, 1}, {1, 1, 1}, {1, 6, 1}, {6, 1, 1}, {0, 4, 1},
                          {2, 2, 0}, {3, 3, 0}, {2, 7, 0}, {9, 2, 0}};  // w, h, too small
  for (const auto& s : sizes) {
    Frame f(s[0], s[1]);
    f.fill(5, KqFill::kUniform);
    std::vector<uint8_t> u = f.u.raw(), v = f.v.raw();
    f.run(10.0f, s[2] ? 2 : 8);
    if (!s[2]) {  // only the planes' own bytes may change
      const size_t at = KqFramedPlane::kFrame * f.u.framed.stride() + KqFramedPlane::kFrame;
      std::memcpy(&u[at], f.u.img.data, size_t(s[0]) * s[1]);
      std::memcpy(&v[at], f.v.img.data, size_t(s[0]) * s[1]);
    }
    EXPECT_TRUE(u == f.u.raw() && v == f.v.raw()) << "chroma " << s[0] << "x" << s[1];
  }
}

// Missing, mismatched or aliased planes are logged as one error each and
// leave every output alone, as does a NaN chroma strength (silently); an
// unknown sharpening kind copies the input.
TEST(FilterStages, BadInputIsLoggedAndWritesNothing) {
  KqLogCapture log;
  const KQLumaDsp c = lumaDsp(0);
  Plane in = randomPlane(40, 20, 7), out(40, 20, 0x33), small(39, 20, 0x33);
  KQImage8 empty{0, 20, in.img.data}, noData{40, 20, nullptr};
  Frame f(32, 16);
  f.fill(8, KqFill::kUniform);
  Framed narrow(15, 8), shortLuma(64, 30);  // the luma needs 2 * (16 - 1) + 1 = 31 rows
  auto chroma = [&](const KQImage8* luma, KQImage8* h1u) {
    kqChromaNoiseReductionDsp(luma, &f.u.img, &f.v.img, &f.u.img, &f.v.img, h1u, &f.h1v.img,
                              &f.h2u.img, &f.h2v.img, nullptr, 0, 3.0f, 1, kqChromaDspGet());
  };
  auto sharpen = [&](const KQImage8* from, KQImage8* to) {
    kqImageSharpeningDsp(from, to, nullptr, 1.0f, 0.0f, 4, 1, &c);
  };
  const std::vector<uint8_t> u = f.u.raw(), v = f.v.raw();
  const std::pair<const char*, std::function<void()>> calls[] = {
      {"nr, no input", [&] { kqLumaNoiseReductionDsp(nullptr, &out.img, nullptr, 5, 1, &c); }},
      {"nr, no output", [&] { kqLumaNoiseReductionDsp(&in.img, nullptr, nullptr, 5, 1, &c); }},
      {"nr, other size", [&] { kqLumaNoiseReductionDsp(&in.img, &small.img, nullptr, 5, 1, &c); }},
      {"nr, empty", [&] { kqLumaNoiseReductionDsp(&empty, &out.img, nullptr, 5, 1, &c); }},
      {"nr, no data", [&] { kqLumaNoiseReductionDsp(&noData, &out.img, nullptr, 5, 1, &c); }},
      {"nr, in place", [&] { kqLumaNoiseReductionDsp(&in.img, &in.img, nullptr, 5, 1, &c); }},
      {"sharpen, no input", [&] { sharpen(nullptr, &out.img); }},
      {"sharpen, other size", [&] { sharpen(&in.img, &small.img); }},
      {"sharpen, in place", [&] { sharpen(&in.img, &in.img); }},
      {"chroma, no luma", [&] { chroma(nullptr, &f.h1u.img); }},
      {"chroma, narrow scratch", [&] { chroma(&f.luma.img, &narrow.img); }},
      {"chroma, short luma", [&] { chroma(&shortLuma.img, &f.h1u.img); }},
  };
  const Plane input = in;
  for (const auto& call : calls) {
    log.clear();
    call.second();
    const std::vector<KqLogLine> lines = log.lines();
    EXPECT_TRUE(lines.size() == 1 && lines[0].priority == KQ_LOG_ERROR) << call.first;
  }
  log.clear();
  f.run(std::nanf(""), 1);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(out.bytes, std::vector<uint8_t>(40 * 20, 0x33));
  EXPECT_EQ(small.bytes, std::vector<uint8_t>(39 * 20, 0x33));
  EXPECT_EQ(in.bytes, input.bytes);
  EXPECT_TRUE(u == f.u.raw() && v == f.v.raw());
  kqImageSharpeningDsp(&in.img, &out.img, nullptr, 1.0f, 0.0f, 5, 1, &c);
  EXPECT_EQ(out.bytes, in.bytes) << "unknown sharpening kind";
}

// The noise filter's frame goes through runs of one tap shift: on widths
// around the 18 from which the runs take the vector kernel, around the
// right strip's start moving by 16 and around the 64 from which the fused
// row's strips go to the kernel in whole blocks that overlap the interior,
// it equals the scalar border kernel applied to the four parts of the frame
// (strength 10 keeps the filtered bytes), with this machine's kernels and
// with the scalar ones (the only fused row on x86).
TEST(LumaNr, FrameEqualsTheScalarBorderKernel) {
  KQLumaDsp scalar;
  kqLumaDspInit(&scalar, 0);
  for (const KQLumaDsp* dsp : {kqLumaDspGet(), static_cast<const KQLumaDsp*>(&scalar)})
    for (int w : {16, 17, 18, 19, 24, 45, 46, 47, 61, 62, 63, 64, 65, 79, 100, 257})
      for (int h : {9, 12, 23}) {
        SCOPED_TRACE(testing::Message() << w << "x" << h << (dsp == &scalar ? " scalar" : ""));
        Plane in = randomPlane(w, h, kqTestSeed() + uint64_t(w * 31 + h));
        Plane frame(w, h);
        const int right = kqLumaNrRightStripStart(w);
        kqLumaNrBorder_c(in.img.data, frame.img.data, w, h, 0, w, 0, 4);
        kqLumaNrBorder_c(in.img.data, frame.img.data, w, h, 0, w, h - 4, h);
        kqLumaNrBorder_c(in.img.data, frame.img.data, w, h, 0, 6, 4, h - 4);
        kqLumaNrBorder_c(in.img.data, frame.img.data, w, h, right, w, 4, h - 4);
        Plane out = runNr(in, 10, 1, dsp);
        for (int y = 0; y < h; ++y)
          for (int x = 0; x < w; ++x)
            if (y < 4 || y >= h - 4 || x < 6 || x >= right)
              ASSERT_EQ(out.at(x, y), frame.at(x, y)) << x << "," << y;
        // Strength 3: the interior rows' strips are blended with the input
        // up to the last whole group of 8 columns.
        const uint32_t weight = uint32_t(kqLumaBlendWeight(3));
        out = runNr(in, 3, 1, dsp);
        for (int y = 4; y < h - 4; ++y)
          for (int x = 0; x < w; ++x)
            if (x < 6 || x >= right) {
              const uint8_t want = x < (w & ~7)
                                       ? kqLumaBlendPixel(frame.at(x, y), in.at(x, y), weight)
                                       : frame.at(x, y);
              ASSERT_EQ(out.at(x, y), want) << x << "," << y << " strength 3";
            }
      }
}

// The chroma kernels rely on falling weights (a slope never exceeds its
// weight) from full weight at distance 0, rows 1 and 2 alike; a NaN
// strength is refused.
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

// The chroma filter covers the even part, which is what the same image
// cropped to even size gives; an odd last row copies the row above, then an
// odd last column copies its left neighbour in every even-part row, so the
// corner keeps the unfiltered pixel from above.
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

}  // namespace
