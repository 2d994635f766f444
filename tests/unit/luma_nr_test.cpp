// luma_nr_test.cpp - the luma noise-reduction stage: slicing, the border
// frame, the blends, edge cases of small planes, thread and ISA invariance.
#include "filters/luma_nr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
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

Plane runNr(const Plane& in, int strength, int threads, const KQLumaDsp* dsp,
            const KQImage8* ref = nullptr) {
  Plane out(in.img.width, in.img.height);
  kqLumaNoiseReductionDsp(&in.img, &out.img, ref, strength, threads, dsp);
  return out;
}

}  // namespace

// Pass 1 slices output rows start + 4 .. end - 4 and never read below the
// plane; blend slices start on 4-row boundaries (end -1: empty). Each form
// produces every row it owns once. Worked examples: 1081 rows in 3 pass 1
// slices overlap by seven rows; 8 rows in 3 blend slices leave the last 8..8.
TEST(LumaNrSplit, SlicesProduceEveryRowOnce) {
  for (int blend : {0, 1})
    for (int height : {1, 2, 3, 8, 9, 10, 17, 21, 64, 101, 1081})
      for (int slices : {1, 2, 3, 4, 5, 7, 12, 32, 200}) {
        SCOPED_TRACE(testing::Message()
                     << "blend " << blend << " height " << height << " slices " << slices);
        std::vector<int> count(size_t(height), 0);
        std::vector<std::pair<int, int>> spans;
        for (int i = 0; i < slices; ++i) {
          KQLumaNrContext c{};
          c.end = blend ? height : height - 1;
          (blend ? kqLumaNrBlendSplit : kqLumaNrInteriorSplit)(i, slices, 1, &c);
          spans.push_back({c.start, c.end});
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
        if (height == 1081 && slices == 3 && !blend)
          EXPECT_EQ(spans, (std::vector<std::pair<int, int>>{{0, 367}, {360, 727}, {720, 1080}}));
        if (height == 8 && slices == 3 && blend) EXPECT_EQ(spans[2], std::make_pair(8, 8));
      }
}

// Width 60: the interior ends at column 38 but the right strip starts at 22,
// so columns 22..37 are computed twice and the scalar result must stand;
// columns 6..21 keep the interior kernel's result.
TEST(LumaNr, RightStripRecomputesInteriorColumns) {
  EXPECT_EQ(kqLumaNrRightStripStart(45), 6);
  EXPECT_EQ(kqLumaNrRightStripStart(46), 22);
  EXPECT_EQ(kqLumaNrRightStripStart(60), 22);
  EXPECT_EQ(kqLumaNrRightStripStart(62), 38);  // equals the interior end here
  const int w = 60, h = 20;
  Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + 1, KqFill::kSmooth);
  const KQLumaDsp c = kqLumaDspFor(0);
  Plane out = runNr(in, 10, 1, &c);
  Plane border(w, h), interior(w, h);
  kqLumaNrBorder_c(in.img.data, border.img.data, w, h, 22, w, 4, h - 4);
  for (int y = 4; y < h - 4; ++y)
    kqLumaNrRow_c(interior.img.data + y * w, in.img.data + y * w, w, w);
  int differ = 0;
  for (int y = 4; y < h - 4; ++y) {
    for (int x = 6; x < 22; ++x) ASSERT_EQ(out.at(x, y), interior.at(x, y)) << x << "," << y;
    for (int x = 22; x < w; ++x) ASSERT_EQ(out.at(x, y), border.at(x, y)) << x << "," << y;
    for (int x = 22; x < 38; ++x) differ += border.at(x, y) != interior.at(x, y);
  }
  EXPECT_GT(differ, 0) << "the plane does not tell the two kernels apart";
}

// The frame goes through runs of one tap shift: on widths around the 18
// from which the runs take the vector kernel and around the right strip's
// start moving by 16, it equals the scalar border kernel applied to the
// four parts of the frame (strength 10 keeps the filtered bytes). The
// machine's own level: the run kernels of the others are held to the
// scalar run by the kernel checks.
TEST(LumaNr, FrameEqualsTheScalarBorderKernel) {
  for (int w : {16, 17, 18, 19, 24, 45, 46, 47, 61, 62, 100, 257})
    for (int h : {9, 12, 23}) {
      SCOPED_TRACE(testing::Message() << w << "x" << h);
      Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + uint64_t(w * 31 + h), KqFill::kSmooth);
      Plane frame(w, h);
      const uint8_t* src = in.img.data;
      uint8_t* dst = frame.img.data;
      const int right = kqLumaNrRightStripStart(w);
      kqLumaNrBorder_c(src, dst, w, h, 0, w, 0, 4);
      kqLumaNrBorder_c(src, dst, w, h, 0, w, h - 4, h);
      kqLumaNrBorder_c(src, dst, w, h, 0, 6, 4, h - 4);
      kqLumaNrBorder_c(src, dst, w, h, right, w, 4, h - 4);
      Plane out = runNr(in, 10, 1, kqLumaDspGet());
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          if (y < 4 || y >= h - 4 || x < 6 || x >= right)
            ASSERT_EQ(out.at(x, y), frame.at(x, y)) << x << "," << y;
    }
}

// On a flat plane every weight is 30: the frame (exact division) keeps the
// value, the interior may lose one grey level to the reciprocal estimate.
// Across a step of 30 or more the weights are 0, so neither side is pulled
// toward the other; a step of 10 is smoothed (the control).
TEST(LumaNr, FlatPlanesStayFlatAndStepsOfThirtyAreNotSmeared) {
  const KQLumaDsp* dsp = kqLumaDspGet();
  for (int v : {0, 1, 77, 254, 255})
    for (int strength : {1, 5, 10}) {
      Plane out = runNr(Plane(70, 16, uint8_t(v)), strength, 1, dsp);
      for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 70; ++x) {
          const bool frame = y < 4 || y >= 12 || x < 6 || x >= kqLumaNrRightStripStart(70);
          ASSERT_LE(out.at(x, y), v) << x << "," << y;
          ASSERT_GE(out.at(x, y) + (frame && strength == 10 ? 0 : 1), v) << x << "," << y;
        }
    }
  for (int step : {30, 31, 120, 10}) {
    Plane in(96, 32);
    for (int y = 0; y < 32; ++y)
      for (int x = 0; x < 96; ++x) in.at(x, y) = uint8_t(100 + ((x >= 40) != (y >= 17) ? step : 0));
    Plane out = runNr(in, 10, 1, dsp);
    int maxPull = 0;
    for (size_t i = 0; i < in.bytes.size(); ++i)
      maxPull = std::max(maxPull, std::abs(out.bytes[i] - in.bytes[i]));
    EXPECT_EQ(maxPull <= 1, step >= 30) << "step " << step << " pull " << maxPull;
  }
}

// Strength 10 is the filtered plane, 0 the input and 5 half of each
// (rounded down), in the first 8 * (width / 8) columns; the tail columns keep
// the filtered value at every strength. Above 10 the mix pushes away from the
// input, and where that goes below black the 16-bit lane wraps: such pixels
// come out white. Weights saturate instead of overflowing.
TEST(LumaNr, BlendWeightsWrapAndTailStaysFiltered) {
  const int w = 61, h = 13;  // 5 tail columns
  Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + 2, KqFill::kUniform);
  EXPECT_EQ(kqLumaBlendWeight(10), 128);
  EXPECT_EQ(kqLumaBlendWeight(5), 64);
  EXPECT_EQ(kqLumaBlendWeight(15), 192);
  EXPECT_EQ(kqLumaBlendWeight(INT32_MAX), INT32_MAX);  // saturates, never undefined
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
  // Strength 15 (weight 192) worked through the scalar blend row (the
  // kernel checks hold the others to it): 1.5 f - 0.5 o, white above 255
  // and, wrapped, below 0.
  const uint8_t f[16] = {100, 200, 250, 10, 90, 0, 255, 60, 100, 100, 100, 100, 1, 2, 3, 4};
  const uint8_t o[16] = {100, 100, 10, 200, 30, 1, 0, 180, 100, 100, 100, 100, 9, 9, 9, 9};
  const uint8_t want[16] = {100, 250, 255, 255, 120, 255, 255, 0,
                            100, 100, 100, 100, 255, 255, 0,   1};
  uint8_t row[16];
  std::memcpy(row, f, sizeof row);
  kqLumaDspFor(0).blendRow(row, o, 16, kqLumaBlendWeight(15));
  EXPECT_EQ(std::vector<uint8_t>(row, row + 16), std::vector<uint8_t>(want, want + 16));
}

// Same bytes for every thread count, with and without a pool, at every ISA
// level, for plane sizes that are not multiples of 8 or 16.
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
}

// Planes below the interior kernel's minimum (32 columns, 9 rows) go through
// the scalar kernel and must stay inside their buffers.
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

// Reference-guided blends: a black reference leaves the plain weight, a
// white one (13 * 255 > 128) gives the filtered value; scales 1, 2 and 4 run
// the vector blends, others the generic one. The reference ends at a
// PROT_NONE page so that any over-read faults.
TEST(LumaNr, ReferenceBlends) {
  const int w = 83, h = 48;
  const Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + 5, KqFill::kUniform);
  const KQLumaDsp c = kqLumaDspFor(0);
  const Plane filtered = runNr(in, 10, 1, &c);
  const Plane plain = runNr(in, 4, 1, &c);
  // k = max(h / rh, w / rw): exactly 1, 2 and 4 for the first three.
  const int refs[][3] = {{83, 48, 1}, {42, 24, 1}, {21, 12, 1}, {30, 17, 0}, {100, 50, 0}};
  for (const auto& rc : refs) {
    SCOPED_TRACE(testing::Message() << "ref " << rc[0] << "x" << rc[1]);
    KqGuardedBuffer buf(size_t(rc[0]) * rc[1]);
    KQImage8 ref{rc[0], rc[1], buf.data()};
    std::memset(buf.data(), 0, buf.size());
    if (rc[2]) ASSERT_EQ(runNr(in, 4, 1, &c, &ref).bytes, plain.bytes);
    std::memset(buf.data(), 255, buf.size());
    ASSERT_EQ(runNr(in, 4, 1, &c, &ref).bytes, filtered.bytes);
    KqRng rng(kqTestSeed() + uint64_t(rc[0]));
    kqFillPlane(buf.data(), rc[0], rc[1], rc[0], KqFill::kZeroOne, rng);
    // The generic blend's base weight (strength + 8) * 25.6 saturates from
    // strength 2 on; a negative strength keeps the reference visible there.
    const int st = rc[2] ? 4 : -6;
    const Plane want = runNr(in, st, 1, &c, &ref);
    EXPECT_NE(want.bytes, runNr(in, st, 1, &c).bytes) << "the reference had no effect";
    EXPECT_NE(want.bytes, filtered.bytes) << "the reference had no effect";
    kqForEachLevelAndThreadCount(kqLumaDspInit, [&](const KQLumaDsp& dsp, int threads) {
      ASSERT_EQ(runNr(in, st, threads, &dsp, &ref).bytes, want.bytes);
    });
  }
}

// Scale 4 takes rows in groups of 4: with one slice over 46 rows the last
// 2 rows are not a whole group and keep the filtered value.
TEST(LumaNr, ReferenceGroupsLeaveTrailingRowsFiltered) {
  const int w = 40, h = 46;
  const Plane in = kqRandomLumaPlane(w, h, kqTestSeed() + 6, KqFill::kUniform);
  const KQLumaDsp c = kqLumaDspFor(0);
  const Plane filtered = runNr(in, 10, 1, &c);
  const Plane ref(10, 12);  // k = max(46 / 12, 40 / 10) = 4
  const Plane out = runNr(in, 3, 1, &c, &ref.img);
  for (int y = 0; y < h; ++y)
    EXPECT_EQ(std::equal(&out.bytes[y * w], &out.bytes[y * w] + w, &filtered.bytes[y * w]), y >= 44)
        << "row " << y;
}

TEST(LumaNr, InvalidPlanesLeaveOutputUntouchedAndTimersRunInPassOrder) {
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

  log.clear();
  kqTimerSetEnabled(true);
  kqLumaNoiseReduction(&in.img, &out.img, nullptr, 5, 1);
  kqTimerSetEnabled(false);
  const auto msgs = log.messages();
  ASSERT_EQ(msgs.size(), 3u);
  const char* names[] = {"paapilu (92)", "pilu reunat c (101)", "pilun painotus (99)"};
  for (int i = 0; i < 3; ++i) EXPECT_NE(msgs[i].find(names[i]), std::string::npos) << msgs[i];
}
