// cpu_test.cpp - CPU feature decoding and the level list used by kernel tests.
#include "runtime/cpu.h"

#include <gtest/gtest.h>

namespace {

TEST(Cpu, HwcapDecodingMatchesRecordedDevices) {
  // Recorded AT_HWCAP of a Cortex-A7 (armeabi-v7a phone) and of an armv7
  // core without NEON (Tegra 2).
  EXPECT_EQ(kqCpuFlagsFromHwcap(0x0007b0d7ul, false), uint32_t{KQ_CPU_NEON});
  EXPECT_EQ(kqCpuFlagsFromHwcap(0x000008d7ul & ~(1ul << 12), false), 0u);
  EXPECT_EQ(kqCpuFlagsFromHwcap(0, true), uint32_t{KQ_CPU_NEON});
}

TEST(Cpu, LevelsRiseFromScalarAndStayWithinTheBuild) {
  const KQCpuLevels l = kqCpuLevels();
  const std::vector<uint32_t> levels(l.begin(), l.end());
  ASSERT_FALSE(levels.empty());
  EXPECT_EQ(levels.front(), 0u);
  for (size_t i = 1; i < levels.size(); ++i) {
    EXPECT_EQ(levels[i] & levels[i - 1], levels[i - 1]) << "levels are cumulative";
    EXPECT_NE(levels[i], levels[i - 1]);
  }
  EXPECT_EQ(levels.back(), kqCpuFlags());
  EXPECT_EQ(kqCpuFlags() & ~kqCpuBuildFlags(), 0u);
#if defined(__aarch64__)
  EXPECT_EQ(kqCpuFlags() & KQ_CPU_NEON, kqCpuBuildFlags() & KQ_CPU_NEON);
#endif
}

TEST(Cpu, LevelsAreNamedByTheirHighestSet) {
  EXPECT_STREQ(kqCpuLevelName(0), "c");
  EXPECT_STREQ(kqCpuLevelName(KQ_CPU_NEON), "neon");
  EXPECT_STREQ(kqCpuLevelName(KQ_CPU_SSE41), "sse41");
  EXPECT_STREQ(kqCpuLevelName(KQ_CPU_SSE41 | KQ_CPU_AVX2), "avx2");
  EXPECT_STREQ(kqCpuLevelName(KQ_CPU_SSE41 | KQ_CPU_AVX2 | KQ_CPU_AVX512), "avx512");
  // Benchmark and test names must not collide.
  const KQCpuLevels l = kqCpuLevels();
  const std::vector<uint32_t> levels(l.begin(), l.end());
  for (size_t i = 1; i < levels.size(); ++i)
    EXPECT_STRNE(kqCpuLevelName(levels[i]), kqCpuLevelName(levels[i - 1]));
}

}  // namespace
