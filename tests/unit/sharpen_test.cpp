// sharpen_test.cpp - the sharpening stage: row split, thread and ISA
// invariance for every kind with and without a mask, small planes and bad
// input. The row kernels' bytes are the kernel checks' part.
#include "filters/sharpen.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/log_capture.h"
#include "support/luma_stage.h"

namespace {

using Plane = KqLumaPlane;

Plane sharpen(const Plane& in, float strength, int kind, int threads, const KQLumaDsp* dsp,
              const KQImage8* mask = nullptr) {
  Plane out(in.img.width, in.img.height, 0x5A);
  kqImageSharpeningDsp(&in.img, &out.img, mask, strength, 9.0f, kind, threads, dsp);
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
        const Plane want = sharpen(in, 1.3f, kind, 1, &c, m);
        kqForEachLevelAndThreadCount(kqLumaDspInit, [&](const KQLumaDsp& dsp, int threads) {
          const Plane got = sharpen(in, 1.3f, kind, threads, &dsp, m);
          ASSERT_TRUE(kqPlanesEqual(want.img.data, w, got.img.data, w, w, h));
        });
      }
  }
}

// Tiny planes (mirrored row indices clamped, widths below 8 all tail) stay
// inside their buffers and write every byte.
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
// the input (never leaves the output unwritten).
TEST(Sharpen, InvalidInputAndUnknownKind) {
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
}
