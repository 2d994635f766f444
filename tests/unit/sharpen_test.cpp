// sharpen_test.cpp - the sharpening stage: the worked detail examples, edge
// rows, the scalar tail, kinds and mask, thread and ISA invariance.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "filters/luma_dsp.h"
#include "filters/sharpen.h"
#include "kernels/check_util.h"
#include "runtime/cpu.h"
#include "runtime/pool.h"
#include "runtime/timer.h"
#include "support/log_capture.h"

namespace {

struct Plane {
  std::vector<uint8_t> bytes;
  KQImage8 img;
  Plane(int w, int h, uint8_t fill = 0) : bytes(size_t(w) * h, fill), img{w, h, nullptr} {
    img.data = bytes.data();
  }
  uint8_t& at(int x, int y) { return bytes[size_t(y) * img.width + x]; }
  uint8_t at(int x, int y) const { return bytes[size_t(y) * img.width + x]; }
};

Plane randomPlane(int w, int h, uint64_t seed, KqFill fill = KqFill::kSmooth) {
  Plane p(w, h);
  KqRng rng(seed);
  kqFillPlane(p.img.data, w, h, w, fill, rng);
  return p;
}

KQLumaDsp dspFor(uint32_t level) {
  KQLumaDsp d;
  kqLumaDspInit(&d, level);
  return d;
}

Plane sharpen(const Plane& in, float strength, int kind, int threads, const KQLumaDsp* dsp,
              float threshold = 0.0f, const KQImage8* mask = nullptr) {
  Plane out(in.img.width, in.img.height, 0x5A);
  kqImageSharpeningDsp(&in.img, &out.img, mask, strength, threshold, kind, threads, dsp);
  return out;
}

}  // namespace

TEST(SharpenSplit, SlicesCoverEveryRowOnce) {
  for (int height : {1, 2, 5, 17, 1080})
    for (int slices : {1, 2, 3, 12, 40}) {
      std::vector<int> count(size_t(height), 0);
      for (int i = 0; i < slices; ++i) {
        KQSharpenContext c{};
        c.start = 0;
        c.end = height;
        kqSharpenSplit(i, slices, 1, &c);
        for (int y = c.start; y < c.end; ++y) ++count[size_t(y)];
      }
      for (int y = 0; y < height; ++y) ASSERT_EQ(count[size_t(y)], 1) << height << "/" << slices;
    }
}

// A flat plane has no detail (V = p, H = 128 p, D = 0) at any strength, and
// a gain of 0 leaves every plane as it is (4o + 2 >> 2 = o).
TEST(Sharpen, FlatPlaneAndZeroGainAreIdentity) {
  const Plane noisy = randomPlane(45, 19, kqTestSeed() + 11, KqFill::kUniform);
  for (uint32_t level : kqCpuLevels()) {
    const KQLumaDsp dsp = dspFor(level);
    for (int kind : {4, 6, 7}) {
      for (int v : {0, 3, 128, 255})
        for (float s : {0.5f, 1.0f, 3.7f, 100.0f}) {
          const Plane flat(45, 19, uint8_t(v));
          EXPECT_EQ(sharpen(flat, s, kind, 1, &dsp).bytes, flat.bytes)
              << kqLevelName(level) << " kind " << kind << " v " << v << " s " << s;
        }
      // strength 0.003 -> g = 0; the tail form truncates instead of rounding,
      // but 4o >> 2 is exact as well.
      EXPECT_EQ(sharpen(noisy, 0.003f, kind, 1, &dsp).bytes, noisy.bytes)
          << kqLevelName(level) << " kind " << kind;
    }
  }
}

// With strength 1 (g = 256): a detail D = 100 lifts the pixel by 25, D = 400
// is soft-limited (C = 120) and lifts it by 65 instead of 100. Rows are all
// alike, so V = p, and H = 52 o + 62 a + 14 b around the peak.
TEST(Sharpen, WorkedDetailExamples) {
  struct Case { int o, a, lift; };  // a = both direct neighbours, others 0
  // o = 42, a = 0: D = 168 - (2184 >> 5) = 100. o = 170, a = 2: D = 680 - (8964 >> 5) = 400.
  for (const Case& k : {Case{42, 0, 25}, Case{170, 2, 65}}) {
    Plane in(32, 6, 0);
    for (int y = 0; y < 6; ++y) {
      in.at(12, y) = uint8_t(k.o);
      in.at(11, y) = in.at(13, y) = uint8_t(k.a);
    }
    for (uint32_t level : kqCpuLevels()) {
      const KQLumaDsp dsp = dspFor(level);
      const Plane out = sharpen(in, 1.0f, 4, 1, &dsp);
      for (int y = 0; y < 6; ++y) EXPECT_EQ(out.at(12, y), k.o + k.lift) << kqLevelName(level) << " row " << y;
    }
  }
}

// Rows 0 and 1 take both upper neighbours from below, so row 1 never reads
// row 0 (clamping to the edge would); likewise row h - 2 never reads row
// h - 1. Row 2 does read row 0 (the control).
TEST(Sharpen, EdgeRowsMirrorFromInside) {
  const int w = 40, h = 12;
  const Plane base = randomPlane(w, h, kqTestSeed() + 12, KqFill::kUniform);
  for (uint32_t level : kqCpuLevels()) {
    const KQLumaDsp dsp = dspFor(level);
    const Plane ref = sharpen(base, 2.0f, 4, 1, &dsp);
    Plane top = base, bottom = base;
    top.img.data = top.bytes.data();
    bottom.img.data = bottom.bytes.data();
    for (int x = 0; x < w; ++x) {
      top.at(x, 0) = uint8_t(255 - top.at(x, 0));
      bottom.at(x, h - 1) = uint8_t(255 - bottom.at(x, h - 1));
    }
    const Plane outTop = sharpen(top, 2.0f, 4, 1, &dsp);
    const Plane outBottom = sharpen(bottom, 2.0f, 4, 1, &dsp);
    auto row = [w](const Plane& p, int y) {
      return std::vector<uint8_t>(p.bytes.begin() + y * w, p.bytes.begin() + (y + 1) * w);
    };
    EXPECT_EQ(row(outTop, 1), row(ref, 1)) << kqLevelName(level);
    EXPECT_NE(row(outTop, 2), row(ref, 2)) << kqLevelName(level);
    EXPECT_EQ(row(outBottom, h - 2), row(ref, h - 2)) << kqLevelName(level);
    EXPECT_NE(row(outBottom, h - 3), row(ref, h - 3)) << kqLevelName(level);
  }
}

// The width % 8 tail reads only its own row and the columns to its left,
// and truncates the final shift: o = 11 after two zeros gives
// D = 44 - (572 >> 5) = 27, R = 44 + 13 + 13 = 70, 70 >> 2 = 17 (a rounding
// shift would give 18).
TEST(Sharpen, TailIsUnroundedAndLooksLeftOnly) {
  const int w = 11, h = 5;
  Plane in(w, h, 0);
  in.at(8, 2) = 11;
  for (uint32_t level : kqCpuLevels()) {
    const KQLumaDsp dsp = dspFor(level);
    const Plane out = sharpen(in, 1.0f, 4, 1, &dsp);
    EXPECT_EQ(out.at(8, 2), 17) << kqLevelName(level);
    Plane changed = randomPlane(w, h, kqTestSeed() + 13, KqFill::kUniform);
    for (int x = 6; x <= 8; ++x) changed.at(x, 2) = in.at(x, 2);  // keep x - 2 .. x
    EXPECT_EQ(sharpen(changed, 1.0f, 4, 1, &dsp).at(8, 2), 17) << kqLevelName(level);
  }
}

// Same bytes for every thread count, with and without a pool, at every ISA
// level, for each kind, with and without a mask.
TEST(Sharpen, ThreadCountsAndIsaLevelsGiveSameBytes) {
  const KQLumaDsp c = dspFor(0);
  for (const auto& size : {std::make_pair(203, 77), std::make_pair(13, 9)}) {
    const int w = size.first, h = size.second;
    const Plane in = randomPlane(w, h, kqTestSeed() + 14);
    const Plane maskPlane = randomPlane(w, h, kqTestSeed() + 15, KqFill::kUniform);
    Plane mask(w, h);
    for (size_t i = 0; i < mask.bytes.size(); ++i) mask.bytes[i] = uint8_t(maskPlane.bytes[i] % 17);
    for (int kind : {4, 6, 7})
      for (int useMask = 0; useMask < 2; ++useMask) {
        const KQImage8* m = useMask ? &mask.img : nullptr;
        const Plane want = sharpen(in, 1.3f, kind, 1, &c, 9.0f, m);
        for (uint32_t level : kqCpuLevels()) {
          const KQLumaDsp dsp = dspFor(level);
          for (bool pool : {false, true}) {
            if (pool) kqPoolStart(4, 0, "sharpen-test");
            for (int threads : {1, 0, 2, 3, 8, -3}) {
              const Plane got = sharpen(in, 1.3f, kind, threads, &dsp, 9.0f, m);
              ASSERT_TRUE(kqPlanesEqual(want.img.data, w, got.img.data, w, w, h))
                  << kqLevelName(level) << " kind " << kind << " mask " << (m != nullptr)
                  << " threads " << threads << " pool " << pool;
            }
            if (pool) kqPoolStop();
          }
        }
      }
  }
}

// Mask 16 keeps the sharpened pixel, 0 the original, 8 their rounded mean.
TEST(Sharpen, MaskBlend) {
  const int w = 24, h = 8;
  const Plane in = randomPlane(w, h, kqTestSeed() + 16, KqFill::kUniform);
  const KQLumaDsp c = dspFor(0);
  const Plane sharp = sharpen(in, 2.0f, 4, 1, &c);
  Plane mask(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) mask.at(x, y) = uint8_t(x % 3 == 0 ? 16 : x % 3 == 1 ? 0 : 8);
  const Plane out = sharpen(in, 2.0f, 4, 1, &c, 0.0f, &mask.img);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const int s = sharp.at(x, y), o = in.at(x, y);
      const int want = x % 3 == 0 ? s : x % 3 == 1 ? o : (s + o + 1) >> 1;
      ASSERT_EQ(out.at(x, y), want) << x << "," << y;
    }
}

// Small planes: no read past the input (it ends at a PROT_NONE page), no
// write outside the output, every byte written, same bytes per level.
TEST(Sharpen, SmallPlanesStayInBoundsAndAreFullyWritten) {
  const KQLumaDsp c = dspFor(0);
  KqRng rng(kqTestSeed() + 17);
  kqPoolStart(3, 0, "sharpen-test");  // slices through the pool: no thread start per call
  for (int kind : {4, 7})
    for (int h = 1; h <= 6; ++h)
      for (int w = 1; w <= 20; ++w) {
        KqGuardedBuffer buf(size_t(w) * h);
        kqFillPlane(buf.data(), w, h, w, KqFill::kUniform, rng);
        KQImage8 in{w, h, buf.data()};
        std::vector<uint8_t> a(size_t(w) * h + 128, 0x00), b(size_t(w) * h + 128, 0xFF);
        KQImage8 outA{w, h, a.data() + 64}, outB{w, h, b.data() + 64};
        kqImageSharpeningDsp(&in, &outA, nullptr, 1.5f, 0.0f, kind, 2, &c);
        kqImageSharpeningDsp(&in, &outB, nullptr, 1.5f, 0.0f, kind, 2, &c);
        for (int i = 0; i < 64; ++i) {
          ASSERT_EQ(a[size_t(i)], 0x00) << "write before the plane at " << w << "x" << h;
          ASSERT_EQ(a[a.size() - 1 - size_t(i)], 0x00) << "write after the plane at " << w << "x" << h;
        }
        ASSERT_TRUE(std::equal(a.begin() + 64, a.end() - 64, b.begin() + 64))
            << "unwritten bytes at " << w << "x" << h;
        for (uint32_t level : kqCpuLevels()) {
          const KQLumaDsp dsp = dspFor(level);
          std::vector<uint8_t> o(size_t(w) * h, 0x5A);
          KQImage8 out{w, h, o.data()};
          kqImageSharpeningDsp(&in, &out, nullptr, 1.5f, 0.0f, kind, 3, &dsp);
          ASSERT_TRUE(std::equal(o.begin(), o.end(), a.begin() + 64))
              << kqLevelName(level) << " kind " << kind << " " << w << "x" << h;
        }
      }
  kqPoolStop();
}

TEST(Sharpen, InvalidInputAndUnknownKind) {
  KqLogCapture log;
  const KQLumaDsp c = dspFor(0);
  Plane in = randomPlane(20, 6, 3), out(20, 6, 0x33), other(20, 5, 0x33);
  kqImageSharpeningDsp(nullptr, &out.img, nullptr, 1.0f, 0.0f, 4, 1, &c);
  kqImageSharpeningDsp(&in.img, &other.img, nullptr, 1.0f, 0.0f, 4, 1, &c);
  kqImageSharpeningDsp(&in.img, &in.img, nullptr, 1.0f, 0.0f, 4, 1, &c);
  for (uint8_t b : out.bytes) ASSERT_EQ(b, 0x33);
  for (uint8_t b : other.bytes) ASSERT_EQ(b, 0x33);
  EXPECT_EQ(log.lines().size(), 3u);
  kqImageSharpeningDsp(&in.img, &out.img, nullptr, 1.0f, 0.0f, 5, 1, &c);
  EXPECT_EQ(out.bytes, in.bytes);  // unknown kind: copied, never left unwritten
  EXPECT_EQ(log.lines().size(), 4u);
}

TEST(Sharpen, StageTimersNested) {
  Plane in = randomPlane(20, 6, 4), out(20, 6);
  KqLogCapture log;
  kqTimerSetEnabled(true);
  kqImageSharpening(&in.img, &out.img, nullptr, 1.0f, 0.0f, 4, 1);
  kqTimerSetEnabled(false);
  const auto msgs = log.messages();
  ASSERT_EQ(msgs.size(), 2u);
  EXPECT_NE(msgs[0].find("kqImageSharpening (91)"), std::string::npos) << msgs[0];
  EXPECT_NE(msgs[1].find("kqImageSharpening uusi neon (95)"), std::string::npos) << msgs[1];
}
