// sharpen_test.cpp - the sharpening stage: the worked detail examples, edge
// rows, the scalar tail, kinds and mask, thread and ISA invariance.
#include "filters/sharpen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "filters/luma_dsp.h"
#include "runtime/cpu.h"
#include "runtime/pool.h"
#include "runtime/timer.h"
#include "support/log_capture.h"
#include "support/luma_stage.h"

namespace {

using Plane = KqLumaPlane;

Plane sharpen(const Plane& in, float strength, int kind, int threads,
              const KQLumaDsp* dsp = kqLumaDspGet(), float threshold = 0.0f,
              const KQImage8* mask = nullptr) {
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
        c.end = height;
        kqSharpenSplit(i, slices, 1, &c);
        for (int y = c.start; y < c.end; ++y) ++count[size_t(y)];
      }
      ASSERT_EQ(count, std::vector<int>(size_t(height), 1)) << height << "/" << slices;
    }
}

// A flat plane has no detail (V = p, H = 128 p, D = 0) at any strength, and
// a gain of 0 leaves every plane as it is (4o + 2 >> 2 = o). These and the
// worked examples below run on the machine's own level: the kernel checks
// hold the row kernels of the others to the scalar ones.
TEST(Sharpen, FlatPlaneAndZeroGainAreIdentity) {
  const Plane noisy = kqRandomLumaPlane(45, 19, kqTestSeed() + 11, KqFill::kUniform);
  for (int kind : {4, 6, 7}) {
    SCOPED_TRACE(testing::Message() << "kind " << kind);
    for (int v : {0, 3, 128, 255})
      for (float s : {0.5f, 1.0f, 3.7f, 100.0f}) {
        const Plane flat(45, 19, uint8_t(v));
        EXPECT_EQ(sharpen(flat, s, kind, 1).bytes, flat.bytes) << "v " << v << " s " << s;
      }
    // strength 0.003 -> g = 0; the tail form truncates instead of rounding,
    // but 4o >> 2 is exact as well.
    EXPECT_EQ(sharpen(noisy, 0.003f, kind, 1).bytes, noisy.bytes);
  }
}

// Strength 1 (g = 256), rows all alike (V = p), H = 52 o + 62 a + 14 b:
// o = 42, a = 0: D = 168 - (2184 >> 5) = 100 lifts the pixel by 25;
// o = 170, a = 2: D = 680 - (8964 >> 5) = 400 is soft-limited (C = 120) and
// lifts it by 65 instead of 100. The width % 8 tail reads only its own row
// and the columns to its left, and truncates the final shift: o = 11 after
// two zeros gives D = 44 - (572 >> 5) = 27, R = 44 + 13 + 13 = 70,
// 70 >> 2 = 17 (a rounding shift would give 18).
TEST(Sharpen, WorkedDetailExamplesAndUnroundedLeftLookingTail) {
  struct Case {
    int o, a, lift;
  };  // a = both direct neighbours, others 0
  Plane tail(11, 5, 0);
  tail.at(8, 2) = 11;
  Plane changed = kqRandomLumaPlane(11, 5, kqTestSeed() + 13, KqFill::kUniform);
  for (int x = 6; x <= 8; ++x) changed.at(x, 2) = tail.at(x, 2);  // keep x - 2 .. x
  for (const Case& k : {Case{42, 0, 25}, Case{170, 2, 65}}) {
    Plane in(32, 6, 0);
    for (int y = 0; y < 6; ++y) {
      in.at(12, y) = uint8_t(k.o);
      in.at(11, y) = in.at(13, y) = uint8_t(k.a);
    }
    const Plane out = sharpen(in, 1.0f, 4, 1);
    for (int y = 0; y < 6; ++y)
      EXPECT_EQ(out.at(12, y), k.o + k.lift) << "o " << k.o << " row " << y;
  }
  EXPECT_EQ(sharpen(tail, 1.0f, 4, 1).at(8, 2), 17);
  EXPECT_EQ(sharpen(changed, 1.0f, 4, 1).at(8, 2), 17);
}

// Rows 0 and 1 take both upper neighbours from below, so row 1 never reads
// row 0 (clamping to the edge would); likewise row h - 2 never reads row
// h - 1. Row 2 does read row 0 (the control).
TEST(Sharpen, EdgeRowsMirrorFromInside) {
  const int w = 40, h = 12;
  const Plane base = kqRandomLumaPlane(w, h, kqTestSeed() + 12, KqFill::kUniform);
  Plane top = base, bottom = base;
  for (int x = 0; x < w; ++x) {
    top.at(x, 0) = uint8_t(255 - top.at(x, 0));
    bottom.at(x, h - 1) = uint8_t(255 - bottom.at(x, h - 1));
  }
  const Plane ref = sharpen(base, 2.0f, 4, 1);
  const Plane outTop = sharpen(top, 2.0f, 4, 1), outBottom = sharpen(bottom, 2.0f, 4, 1);
  EXPECT_EQ(outTop.row(1), ref.row(1));
  EXPECT_NE(outTop.row(2), ref.row(2));
  EXPECT_EQ(outBottom.row(h - 2), ref.row(h - 2));
  EXPECT_NE(outBottom.row(h - 3), ref.row(h - 3));
}

// Same bytes for every thread count, with and without a pool, at every ISA
// level, for each kind, with and without a mask.
TEST(Sharpen, ThreadCountsAndIsaLevelsGiveSameBytes) {
  const KQLumaDsp c = kqLumaDspFor(0);
  for (const auto& size : {std::make_pair(203, 77), std::make_pair(13, 9)}) {
    const int w = size.first, h = size.second;
    const Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + 14);
    Plane mask = kqRandomLumaPlane(w, h, kqTestSeed() + 15, KqFill::kUniform);
    for (uint8_t& m : mask.bytes) m %= 17;
    const KQImage8* masks[] = {nullptr, &mask.img};
    for (int kind : {4, 6, 7})
      for (const KQImage8* m : masks) {
        SCOPED_TRACE(testing::Message() << w << "x" << h << " kind " << kind << " mask " << !!m);
        const Plane want = sharpen(in, 1.3f, kind, 1, &c, 9.0f, m);
        kqForEachLevelAndThreadCount(kqLumaDspInit, [&](const KQLumaDsp& dsp, int threads) {
          const Plane got = sharpen(in, 1.3f, kind, threads, &dsp, 9.0f, m);
          ASSERT_TRUE(kqPlanesEqual(want.img.data, w, got.img.data, w, w, h));
        });
      }
  }
}

// Mask 16 keeps the sharpened pixel, 0 the original, 8 their rounded mean.
TEST(Sharpen, MaskBlend) {
  const int w = 24, h = 8;
  const Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + 16, KqFill::kUniform);
  const KQLumaDsp c = kqLumaDspFor(0);
  const Plane sharp = sharpen(in, 2.0f, 4, 1, &c);
  Plane mask(w, h);
  for (size_t i = 0; i < mask.bytes.size(); ++i)
    mask.bytes[i] = uint8_t(i % 3 == 0 ? 16 : i % 3 == 1 ? 0 : 8);
  const Plane out = sharpen(in, 2.0f, 4, 1, &c, 0.0f, &mask.img);
  for (size_t i = 0; i < out.bytes.size(); ++i) {
    const int s = sharp.bytes[i], o = in.bytes[i];
    ASSERT_EQ(out.bytes[i], i % 3 == 0 ? s : i % 3 == 1 ? o : (s + o + 1) >> 1) << "at " << i;
  }
}

// Tiny planes (mirrored row indices clamped, widths below 8 all tail) stay
// inside their buffers.
TEST(Sharpen, SmallPlanesStayInBoundsAndAreFullyWritten) {
  KqRng rng(kqTestSeed() + 17);
  kqPoolStart(3, 0, "sharpen-test");  // slices through the pool: no thread start per call
  for (int kind : {4, 7})
    for (int h = 1; h <= 6; ++h)
      for (int w = 1; w <= 20; ++w) {
        SCOPED_TRACE(testing::Message() << "kind " << kind);
        kqExpectTinyPlaneSafe(
            w, h, rng, [kind](const KQImage8* in, KQImage8* out, int threads, const KQLumaDsp* d) {
              kqImageSharpeningDsp(in, out, nullptr, 1.5f, 0.0f, kind, threads, d);
            });
      }
  kqPoolStop();
}

// Bad records are logged and leave the output alone; an unknown kind copies
// the input (never leaves the output unwritten). Timers nest in the stage's.
TEST(Sharpen, InvalidInputUnknownKindAndTimers) {
  KqLogCapture log;
  const KQLumaDsp c = kqLumaDspFor(0);
  Plane in = kqRandomLumaPlane(20, 6, 3), out(20, 6, 0x33), other(20, 5, 0x33);
  kqImageSharpeningDsp(nullptr, &out.img, nullptr, 1.0f, 0.0f, 4, 1, &c);
  kqImageSharpeningDsp(&in.img, &other.img, nullptr, 1.0f, 0.0f, 4, 1, &c);
  kqImageSharpeningDsp(&in.img, &in.img, nullptr, 1.0f, 0.0f, 4, 1, &c);
  EXPECT_EQ(out.bytes, std::vector<uint8_t>(20 * 6, 0x33));
  EXPECT_EQ(other.bytes, std::vector<uint8_t>(20 * 5, 0x33));
  EXPECT_EQ(log.lines().size(), 3u);
  kqImageSharpeningDsp(&in.img, &out.img, nullptr, 1.0f, 0.0f, 5, 1, &c);
  EXPECT_EQ(out.bytes, in.bytes);
  EXPECT_EQ(log.lines().size(), 4u);

  log.clear();
  kqTimerSetEnabled(true);
  kqImageSharpening(&in.img, &out.img, nullptr, 1.0f, 0.0f, 4, 1);
  kqTimerSetEnabled(false);
  const auto msgs = log.messages();
  ASSERT_EQ(msgs.size(), 2u);
  EXPECT_NE(msgs[0].find("kqImageSharpening (91)"), std::string::npos) << msgs[0];
  EXPECT_NE(msgs[1].find("kqImageSharpening uusi neon (95)"), std::string::npos) << msgs[1];
}
