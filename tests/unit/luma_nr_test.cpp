// luma_nr_test.cpp - the luma noise-reduction stage: slicing, the border
// frame, the blends, small planes, bad input, thread and ISA invariance.
// The row kernels' bytes are the kernel checks' part.
#include "filters/luma_nr.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "support/log_capture.h"
#include "support/luma_stage.h"

namespace {

using Plane = KqLumaPlane;

Plane runNr(const Plane& in, int strength, int threads, const KQLumaDsp* dsp,
            const KQImage8* ref = nullptr) {
  Plane out(in.img.width, in.img.height);
  kqLumaNoiseReductionDsp(&in.img, &out.img, ref, strength, threads, dsp);
  return out;
}

}  // namespace

// Pass 1 slices output rows start + 4 .. end - 4 and never read below the
// plane; blend slices start on 4-row boundaries (end -1: empty). Each form
// produces every row it owns once.
TEST(LumaNrSplit, SlicesProduceEveryRowOnce) {
  for (int blend : {0, 1})
    for (int height : {1, 2, 3, 8, 9, 10, 17, 21, 64, 101, 1081})
      for (int slices : {1, 2, 3, 4, 5, 7, 12, 32, 200}) {
        SCOPED_TRACE(testing::Message()
                     << "blend " << blend << " height " << height << " slices " << slices);
        std::vector<int> count(size_t(height), 0);
        for (int i = 0; i < slices; ++i) {
          KQLumaNrContext c{};
          c.end = blend ? height : height - 1;
          (blend ? kqLumaNrBlendSplit : kqLumaNrInteriorSplit)(i, slices, 1, &c);
          if (blend) {
            ASSERT_EQ(c.start % 4, 0);
            if (c.end == -1) ASSERT_GT(c.start, height);
          } else {
            ASSERT_GE(c.start, 0);
            ASSERT_LE(c.end, height - 1) << "reads below the plane";
          }
          for (int y = c.start + (blend ? 0 : 4); y < c.end - (blend ? 0 : 3); ++y)
            ++count[size_t(y)];
        }
        for (int y = 0; y < height; ++y)
          ASSERT_EQ(count[size_t(y)], blend || (y >= 4 && y <= height - 5) ? 1 : 0) << "row " << y;
      }
}

// The frame goes through runs of one tap shift: on widths around the 18
// from which the runs take the vector kernel and around the right strip's
// start moving by 16, it equals the scalar border kernel applied to the
// four parts of the frame (strength 10 keeps the filtered bytes).
TEST(LumaNr, FrameEqualsTheScalarBorderKernel) {
  for (int w : {16, 17, 18, 19, 24, 45, 46, 47, 61, 62, 100, 257})
    for (int h : {9, 12, 23}) {
      SCOPED_TRACE(testing::Message() << w << "x" << h);
      Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + uint64_t(w * 31 + h), KqFill::kSmooth);
      Plane frame(w, h);
      const int right = kqLumaNrRightStripStart(w);
      kqLumaNrBorder_c(in.img.data, frame.img.data, w, h, 0, w, 0, 4);
      kqLumaNrBorder_c(in.img.data, frame.img.data, w, h, 0, w, h - 4, h);
      kqLumaNrBorder_c(in.img.data, frame.img.data, w, h, 0, 6, 4, h - 4);
      kqLumaNrBorder_c(in.img.data, frame.img.data, w, h, right, w, 4, h - 4);
      Plane out = runNr(in, 10, 1, kqLumaDspGet());
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          if (y < 4 || y >= h - 4 || x < 6 || x >= right)
            ASSERT_EQ(out.at(x, y), frame.at(x, y)) << x << "," << y;
    }
}

// Strength 10 is the filtered plane, 0 the input and 5 half of each
// (rounded down), in the first 8 * (width / 8) columns; the tail columns
// keep the filtered value at every strength. Weights saturate instead of
// overflowing.
TEST(LumaNr, BlendStrengthsAndTail) {
  const int w = 61, h = 13;  // 5 tail columns
  Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + 2, KqFill::kUniform);
  EXPECT_EQ(kqLumaBlendWeight(INT32_MAX), INT32_MAX);
  EXPECT_EQ(kqLumaBlendWeight(INT32_MIN), INT32_MIN);
  const KQLumaDsp* dsp = kqLumaDspGet();
  const Plane filtered = runNr(in, 10, 1, dsp);
  const Plane none = runNr(in, 0, 3, dsp), half = runNr(in, 5, 3, dsp);
  for (size_t i = 0; i < in.bytes.size(); ++i) {
    const int f = filtered.bytes[i], o = in.bytes[i];
    const bool tail = i % w >= 56;
    ASSERT_EQ(none.bytes[i], tail ? f : o) << i;
    ASSERT_EQ(half.bytes[i], tail ? f : (f + o) / 2) << i;
  }
}

// Same bytes for every thread count, with and without a pool, at every ISA
// level: plain blends on sizes that are not multiples of 8 or 16, and
// reference-guided ones at scales 1, 2 and 4 (vector blends) and others
// (the generic one), the reference ending at a PROT_NONE page.
TEST(LumaNr, ThreadCountsAndIsaLevelsGiveSameBytes) {
  const KQLumaDsp c = kqLumaDspFor(0);
  for (const auto& size :
       {std::make_pair(203, 77), std::make_pair(64, 9), std::make_pair(33, 41)}) {
    const int w = size.first, h = size.second;
    SCOPED_TRACE(testing::Message() << w << "x" << h);
    const Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + 3);
    const Plane want = runNr(in, 7, 1, &c);
    kqForEachLevelAndThreadCount(kqLumaDspInit, [&](const KQLumaDsp& dsp, int threads) {
      ASSERT_TRUE(kqPlanesEqual(want.img.data, w, runNr(in, 7, threads, &dsp).img.data, w, w, h));
    });
  }
  const int w = 83, h = 48;
  const Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + 5, KqFill::kUniform);
  const int refs[][3] = {{83, 48, 4}, {42, 24, 4}, {21, 12, 4}, {30, 17, -6}, {100, 50, -6}};
  for (const auto& rc : refs) {
    SCOPED_TRACE(testing::Message() << "ref " << rc[0] << "x" << rc[1]);
    KqGuardedBuffer buf(size_t(rc[0]) * rc[1]);
    KQImage8 ref{rc[0], rc[1], buf.data()};
    KqRng rng(kqTestSeed() + uint64_t(rc[0]));
    kqFillPlane(buf.data(), rc[0], rc[1], rc[0], KqFill::kZeroOne, rng);
    // The generic blend's base weight saturates from strength 2 on; a
    // negative strength keeps the reference visible there.
    const Plane want = runNr(in, rc[2], 1, &c, &ref);
    ASSERT_NE(want.bytes, runNr(in, rc[2], 1, &c).bytes) << "the reference had no effect";
    kqForEachLevelAndThreadCount(kqLumaDspInit, [&](const KQLumaDsp& dsp, int threads) {
      ASSERT_EQ(runNr(in, rc[2], threads, &dsp, &ref).bytes, want.bytes);
    });
  }
}

// Planes below the interior kernel's minimum (32 columns, 9 rows) go through
// the scalar kernel and must stay inside their buffers and write every byte.
TEST(LumaNr, SmallPlanesStayInBoundsAndAreFullyWritten) {
  KqRng rng(kqTestSeed() + 4);
  kqPoolStart(3, 0, "luma-test");  // slices through the pool: no thread start per call
  for (int h = 1; h <= 12; ++h)
    for (int w : {1, 2, 3, 5, 6, 7, 8, 11, 12, 13, 16, 17, 18, 19, 25, 31, 32, 33, 40, 45, 46, 47})
      kqExpectTinyPlaneSafe(w, h, rng,
                            [](const KQImage8* in, KQImage8* out, int threads, const KQLumaDsp* d) {
                              kqLumaNoiseReductionDsp(in, out, nullptr, 6, threads, d);
                            });
  kqPoolStop();
}

TEST(LumaNr, InvalidPlanesAreLoggedAndLeaveTheOutputUntouched) {
  KqLogCapture log;
  Plane in = kqRandomLumaPlane(40, 20, 7), out(40, 20, 0x33), small(39, 20, 0x33);
  const KQLumaDsp c = kqLumaDspFor(0);
  KQImage8 empty{0, 20, in.img.data}, noData{40, 20, nullptr};
  kqLumaNoiseReductionDsp(nullptr, &out.img, nullptr, 5, 1, &c);
  kqLumaNoiseReductionDsp(&in.img, nullptr, nullptr, 5, 1, &c);
  kqLumaNoiseReductionDsp(&in.img, &small.img, nullptr, 5, 1, &c);
  kqLumaNoiseReductionDsp(&empty, &out.img, nullptr, 5, 1, &c);
  kqLumaNoiseReductionDsp(&noData, &out.img, nullptr, 5, 1, &c);
  kqLumaNoiseReductionDsp(&in.img, &in.img, nullptr, 5, 1, &c);
  EXPECT_EQ(out.bytes, std::vector<uint8_t>(40 * 20, 0x33));
  EXPECT_EQ(small.bytes, std::vector<uint8_t>(39 * 20, 0x33));
  EXPECT_EQ(log.lines().size(), 6u);
}
