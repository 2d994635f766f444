// luma_nr_test.cpp - the luma noise-reduction stage: slicing, the border
// frame, the blends, edge cases of small planes, thread and ISA invariance.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "filters/luma_dsp.h"
#include "filters/luma_nr.h"
#include "kernels/check_util.h"
#include "runtime/cpu.h"
#include "runtime/pool.h"
#include "runtime/timer.h"
#include "support/log_capture.h"

namespace {

// A packed plane with its KQImage8 view.
struct Plane {
  std::vector<uint8_t> bytes;
  KQImage8 img;
  Plane(int w, int h, uint8_t fill = 0) : bytes(size_t(w) * h, fill), img{w, h, nullptr} {
    img.data = bytes.data();
  }
  uint8_t& at(int x, int y) { return bytes[size_t(y) * img.width + x]; }
};

Plane randomPlane(int w, int h, uint64_t seed, KqFill fill = KqFill::kSmooth) {
  Plane p(w, h);
  KqRng rng(seed);
  kqFillPlane(p.img.data, w, h, w, fill, rng);
  return p;
}

Plane runNr(const Plane& in, int strength, int threads, const KQLumaDsp* dsp,
            const KQImage8* ref = nullptr, uint8_t prefill = 0) {
  Plane out(in.img.width, in.img.height, prefill);
  kqLumaNoiseReductionDsp(&in.img, &out.img, ref, strength, threads, dsp);
  return out;
}

KQLumaDsp dspFor(uint32_t level) {
  KQLumaDsp d;
  kqLumaDspInit(&d, level);
  return d;
}

// Output rows of pass 1 per slice: start + 4 .. end - 4.
std::vector<std::pair<int, int>> interiorSpans(int height, int slices) {
  std::vector<std::pair<int, int>> spans;
  for (int i = 0; i < slices; ++i) {
    KQLumaNrContext c{};
    c.end = height - 1;
    kqLumaNrInteriorSplit(i, slices, 1, &c);
    spans.push_back({c.start, c.end});
  }
  return spans;
}

}  // namespace

TEST(LumaNrSplit, InteriorSlicesOverlapBySevenRows) {
  const auto spans = interiorSpans(1081, 3);
  ASSERT_EQ(spans.size(), 3u);
  EXPECT_EQ(spans[0], std::make_pair(0, 367));
  EXPECT_EQ(spans[1], std::make_pair(360, 727));
  EXPECT_EQ(spans[2], std::make_pair(720, 1080));
}

TEST(LumaNrSplit, InteriorSlicesProduceEveryRowOnce) {
  for (int height : {1, 2, 8, 9, 10, 17, 64, 101, 1081})
    for (int slices : {1, 2, 3, 4, 7, 12, 32, 200}) {
      std::vector<int> count(size_t(height), 0);
      for (const auto& s : interiorSpans(height, slices)) {
        ASSERT_GE(s.first, 0);
        ASSERT_LE(s.second, height - 1) << "reads below the plane";
        for (int y = s.first + 4; y <= s.second - 4; ++y) ++count[size_t(y)];
      }
      for (int y = 0; y < height; ++y)
        ASSERT_EQ(count[size_t(y)], (y >= 4 && y <= height - 5) ? 1 : 0)
            << "row " << y << " height " << height << " slices " << slices;
    }
}

TEST(LumaNrSplit, BlendSlicesAreFourRowAlignedAndCoverOnce) {
  KQLumaNrContext c{};
  c.end = 8;
  kqLumaNrBlendSplit(2, 3, 1, &c);
  EXPECT_EQ(c.start, 8);
  EXPECT_EQ(c.end, 8);  // empty last slice, as for height 8 in 3 slices
  for (int height : {1, 3, 8, 9, 21, 64, 1081})
    for (int slices : {1, 2, 3, 5, 12, 32}) {
      std::vector<int> count(size_t(height), 0);
      for (int i = 0; i < slices; ++i) {
        KQLumaNrContext s{};
        s.end = height;
        kqLumaNrBlendSplit(i, slices, 1, &s);
        EXPECT_EQ(s.start % 4, 0);
        if (s.end == -1) {
          EXPECT_GT(s.start, height);
          continue;
        }
        for (int y = s.start; y < s.end; ++y) ++count[size_t(y)];
      }
      for (int y = 0; y < height; ++y)
        ASSERT_EQ(count[size_t(y)], 1) << "row " << y << " height " << height << " slices " << slices;
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
  Plane in = randomPlane(w, h, kqTestSeed() + 1, KqFill::kSmooth);
  const KQLumaDsp c = dspFor(0);
  Plane out = runNr(in, 10, 1, &c);
  Plane border(w, h), interior(w, h);
  kqLumaNrBorder_c(in.img.data, border.img.data, w, h, 22, w, 4, h - 4);
  for (int y = 4; y < h - 4; ++y) kqLumaNrRow_c(interior.img.data + y * w, in.img.data + y * w, w, w);
  int differ = 0;
  for (int y = 4; y < h - 4; ++y) {
    for (int x = 6; x < 22; ++x) ASSERT_EQ(out.at(x, y), interior.at(x, y)) << x << "," << y;
    for (int x = 22; x < w; ++x) ASSERT_EQ(out.at(x, y), border.at(x, y)) << x << "," << y;
    for (int x = 22; x < 38; ++x) differ += border.at(x, y) != interior.at(x, y);
  }
  EXPECT_GT(differ, 0) << "the plane does not tell the two kernels apart";
}

// Every weight is 30 on a flat plane: the frame (exact division) keeps the
// value, the interior may lose one grey level to the reciprocal estimate.
TEST(LumaNr, FlatPlaneStaysFlat) {
  for (uint32_t level : kqCpuLevels()) {
    const KQLumaDsp dsp = dspFor(level);
    for (int v : {0, 1, 77, 254, 255})
      for (int strength : {1, 5, 10}) {
        Plane in(70, 16, uint8_t(v));
        Plane out = runNr(in, strength, 1, &dsp);
        for (int y = 0; y < 16; ++y)
          for (int x = 0; x < 70; ++x) {
            const bool frame = y < 4 || y >= 12 || x < 6 || x >= kqLumaNrRightStripStart(70);
            if (frame && strength == 10) {
              ASSERT_EQ(out.at(x, y), v) << kqLevelName(level) << " " << x << "," << y;
            } else {
              ASSERT_LE(out.at(x, y), v);
              ASSERT_GE(out.at(x, y) + 1, v) << kqLevelName(level) << " " << x << "," << y;
            }
          }
      }
  }
}

// Across a step of 30 or more the weights are 0, so neither side is pulled
// toward the other; a step of 10 is smoothed (the control that shows the
// test can see smearing).
TEST(LumaNr, StepEdgesOfThirtyAreNotSmeared) {
  const int w = 96, h = 32;
  for (uint32_t level : kqCpuLevels()) {
    const KQLumaDsp dsp = dspFor(level);
    for (int step : {30, 31, 120, 10}) {
      Plane in(w, h);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) in.at(x, y) = uint8_t(100 + ((x >= 40) != (y >= 17) ? step : 0));
      Plane out = runNr(in, 10, 1, &dsp);
      int maxPull = 0;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) maxPull = std::max(maxPull, std::abs(out.at(x, y) - in.at(x, y)));
      if (step >= 30)
        EXPECT_LE(maxPull, 1) << kqLevelName(level) << " step " << step;
      else
        EXPECT_GT(maxPull, 1) << kqLevelName(level) << " step " << step;
    }
  }
}

// Strength 10 is the filtered plane. Other strengths mix it with the input
// in wrapping 16-bit lanes in the first 8 * (width / 8) columns; the tail
// columns keep the filtered value at every strength.
TEST(LumaNr, BlendWeightsWrapAndTailStaysFiltered) {
  const int w = 61, h = 13;  // 5 tail columns
  Plane in = randomPlane(w, h, kqTestSeed() + 2, KqFill::kUniform);
  EXPECT_EQ(kqLumaBlendWeight(10), 128);
  EXPECT_EQ(kqLumaBlendWeight(5), 64);
  EXPECT_EQ(kqLumaBlendWeight(15), 192);
  EXPECT_EQ(kqLumaBlendWeight(INT32_MAX), INT32_MAX);  // saturates, never undefined
  EXPECT_EQ(kqLumaBlendWeight(INT32_MIN), INT32_MIN);
  for (uint32_t level : kqCpuLevels()) {
    const KQLumaDsp dsp = dspFor(level);
    const Plane filtered = runNr(in, 10, 1, &dsp);
    for (int strength : {0, 3, 5, 15, 27, INT32_MAX, INT32_MIN}) {
      const Plane out = runNr(in, strength, 3, &dsp);
      const uint16_t wgt = uint16_t(kqLumaBlendWeight(strength));
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const int f = filtered.bytes[size_t(y) * w + x], o = in.bytes[size_t(y) * w + x];
          int want = f;
          if (x < 56) {
            const uint16_t v = uint16_t(wgt * f + uint16_t(128u - wgt) * o);
            want = std::min(255, v >> 7);
          }
          ASSERT_EQ(out.bytes[size_t(y) * w + x], want)
              << kqLevelName(level) << " strength " << strength << " at " << x << "," << y;
        }
    }
  }
}

// Same bytes for every thread count, with and without a pool, at every ISA
// level, for plane sizes that are not multiples of 8 or 16.
TEST(LumaNr, ThreadCountsAndIsaLevelsGiveSameBytes) {
  const KQLumaDsp c = dspFor(0);
  for (const auto& size : {std::make_pair(203, 77), std::make_pair(64, 9), std::make_pair(33, 41)}) {
    const Plane in = randomPlane(size.first, size.second, kqTestSeed() + 3);
    const Plane want = runNr(in, 7, 1, &c);
    for (uint32_t level : kqCpuLevels()) {
      const KQLumaDsp dsp = dspFor(level);
      for (bool pool : {false, true}) {
        if (pool) kqPoolStart(4, 0, "luma-test");
        for (int threads : {1, 0, 2, 3, 8, -3}) {
          const Plane got = runNr(in, 7, threads, &dsp);
          ASSERT_TRUE(kqPlanesEqual(want.img.data, size.first, got.img.data, size.first, size.first,
                                    size.second))
              << kqLevelName(level) << " threads " << threads << " pool " << pool << " size "
              << size.first << "x" << size.second;
        }
        if (pool) kqPoolStop();
      }
    }
  }
}

// Planes below the interior kernel's minimum (32 columns, 9 rows) go through
// the scalar kernel: no read past the input (it ends at a PROT_NONE page),
// no write outside the output, every byte written, same bytes per level.
TEST(LumaNr, SmallPlanesStayInBoundsAndAreFullyWritten) {
  const KQLumaDsp c = dspFor(0);
  KqRng rng(kqTestSeed() + 4);
  kqPoolStart(3, 0, "luma-test");  // slices through the pool: no thread start per call
  for (int h = 1; h <= 12; ++h)
    for (int w : {1, 2, 3, 5, 6, 7, 8, 11, 12, 13, 16, 17, 18, 19, 25, 31, 32, 33, 40, 45, 46, 47}) {
      KqGuardedBuffer buf(size_t(w) * h);
      kqFillPlane(buf.data(), w, h, w, KqFill::kUniform, rng);
      KQImage8 in{w, h, buf.data()};
      // Outputs with 64 sentinel bytes before and after the plane.
      std::vector<uint8_t> a(size_t(w) * h + 128, 0x00), b(size_t(w) * h + 128, 0xFF);
      KQImage8 outA{w, h, a.data() + 64}, outB{w, h, b.data() + 64};
      kqLumaNoiseReductionDsp(&in, &outA, nullptr, 6, 2, &c);
      kqLumaNoiseReductionDsp(&in, &outB, nullptr, 6, 2, &c);
      for (int i = 0; i < 64; ++i) {
        ASSERT_EQ(a[size_t(i)], 0x00) << "write before the plane at " << w << "x" << h;
        ASSERT_EQ(a[a.size() - 1 - size_t(i)], 0x00) << "write after the plane at " << w << "x" << h;
      }
      ASSERT_TRUE(std::equal(a.begin() + 64, a.end() - 64, b.begin() + 64))
          << "unwritten output bytes at " << w << "x" << h;
      for (uint32_t level : kqCpuLevels()) {
        const KQLumaDsp dsp = dspFor(level);
        Plane o(w, h, 0x5A);
        kqLumaNoiseReductionDsp(&in, &o.img, nullptr, 6, 3, &dsp);
        ASSERT_TRUE(std::equal(o.bytes.begin(), o.bytes.end(), a.begin() + 64))
            << kqLevelName(level) << " " << w << "x" << h;
      }
    }
  kqPoolStop();
}

// Reference-guided blends: a black reference leaves the plain weight, a
// white one (13 * 255 > 128) gives the filtered value; scales 1, 2 and 4 run
// the vector blends, others the generic one. The reference ends at a
// PROT_NONE page so that any over-read faults.
TEST(LumaNr, ReferenceBlends) {
  const int w = 83, h = 48;
  const Plane in = randomPlane(w, h, kqTestSeed() + 5, KqFill::kUniform);
  const KQLumaDsp c = dspFor(0);
  const Plane filtered = runNr(in, 10, 1, &c);
  const Plane plain = runNr(in, 4, 1, &c);
  // k = max(h / rh, w / rw): exactly 1, 2 and 4 for the first three.
  struct Case { int rw, rh; bool scaled; };
  for (const Case& rc : {Case{83, 48, true}, Case{42, 24, true}, Case{21, 12, true},
                         Case{30, 17, false}, Case{100, 50, false}}) {
    KqGuardedBuffer buf(size_t(rc.rw) * rc.rh);
    KQImage8 ref{rc.rw, rc.rh, buf.data()};
    std::memset(buf.data(), 0, buf.size());
    if (rc.scaled) {
      const Plane dark = runNr(in, 4, 1, &c, &ref);
      ASSERT_EQ(dark.bytes, plain.bytes) << "ref " << rc.rw << "x" << rc.rh;
    }
    std::memset(buf.data(), 255, buf.size());
    const Plane bright = runNr(in, 4, 1, &c, &ref);
    ASSERT_EQ(bright.bytes, filtered.bytes) << "ref " << rc.rw << "x" << rc.rh;
    KqRng rng(kqTestSeed() + uint64_t(rc.rw));
    kqFillPlane(buf.data(), rc.rw, rc.rh, rc.rw, KqFill::kZeroOne, rng);
    // The generic blend's base weight (strength + 8) * 25.6 saturates from
    // strength 2 on; a negative strength keeps the reference visible there.
    const int st = rc.scaled ? 4 : -6;
    const Plane want = runNr(in, st, 1, &c, &ref);
    EXPECT_NE(want.bytes, runNr(in, st, 1, &c).bytes) << "the reference had no effect";
    EXPECT_NE(want.bytes, filtered.bytes) << "the reference had no effect";
    for (uint32_t level : kqCpuLevels()) {
      const KQLumaDsp dsp = dspFor(level);
      for (int threads : {0, 2, 3, 8, -3}) {
        const Plane got = runNr(in, st, threads, &dsp, &ref);
        ASSERT_EQ(got.bytes, want.bytes)
            << kqLevelName(level) << " threads " << threads << " ref " << rc.rw << "x" << rc.rh;
      }
    }
  }
}

// Scale 4 takes rows in groups of 4: with one slice over 46 rows the last
// 2 rows are not a whole group and keep the filtered value.
TEST(LumaNr, ReferenceGroupsLeaveTrailingRowsFiltered) {
  const int w = 40, h = 46;
  const Plane in = randomPlane(w, h, kqTestSeed() + 6, KqFill::kUniform);
  const KQLumaDsp c = dspFor(0);
  const Plane filtered = runNr(in, 10, 1, &c);
  std::vector<uint8_t> refBytes(size_t(10) * 12, 0);
  KQImage8 ref{10, 12, refBytes.data()};  // k = max(46 / 12, 40 / 10) = 4
  const Plane out = runNr(in, 3, 1, &c, &ref);
  for (int y = 0; y < h; ++y) {
    const bool same = std::equal(out.bytes.begin() + y * w, out.bytes.begin() + (y + 1) * w,
                                 filtered.bytes.begin() + y * w);
    EXPECT_EQ(same, y >= 44) << "row " << y;
  }
}

TEST(LumaNr, InvalidPlanesLeaveOutputUntouched) {
  KqLogCapture log;
  Plane in = randomPlane(40, 20, 7), out(40, 20, 0x33), small(39, 20, 0x33);
  const KQLumaDsp c = dspFor(0);
  KQImage8 empty{0, 20, in.img.data};
  KQImage8 noData{40, 20, nullptr};
  kqLumaNoiseReductionDsp(nullptr, &out.img, nullptr, 5, 1, &c);
  kqLumaNoiseReductionDsp(&in.img, nullptr, nullptr, 5, 1, &c);
  kqLumaNoiseReductionDsp(&in.img, &small.img, nullptr, 5, 1, &c);
  kqLumaNoiseReductionDsp(&empty, &out.img, nullptr, 5, 1, &c);
  kqLumaNoiseReductionDsp(&noData, &out.img, nullptr, 5, 1, &c);
  kqLumaNoiseReductionDsp(&in.img, &in.img, nullptr, 5, 1, &c);
  for (uint8_t b : out.bytes) ASSERT_EQ(b, 0x33);
  for (uint8_t b : small.bytes) ASSERT_EQ(b, 0x33);
  EXPECT_EQ(log.lines().size(), 6u);
}

TEST(LumaNr, StageTimersInPassOrder) {
  Plane in = randomPlane(40, 20, 8), out(40, 20);
  KqLogCapture log;
  kqTimerSetEnabled(true);
  kqLumaNoiseReduction(&in.img, &out.img, nullptr, 5, 1);
  kqTimerSetEnabled(false);
  const auto msgs = log.messages();
  ASSERT_EQ(msgs.size(), 3u);
  EXPECT_NE(msgs[0].find("paapilu (92)"), std::string::npos) << msgs[0];
  EXPECT_NE(msgs[1].find("pilu reunat c (101)"), std::string::npos) << msgs[1];
  EXPECT_NE(msgs[2].find("pilun painotus (99)"), std::string::npos) << msgs[2];
}
