// cpu.cpp - run-time detection of NEON / SSE4.1 / AVX2.
#include "runtime/cpu.h"

#include <cstdlib>
#include <initializer_list>

#if defined(__linux__) && (defined(__arm__) || defined(__aarch64__))
#include <sys/auxv.h>
#endif

namespace {

constexpr unsigned long kHwcapNeon = 1ul << 12;  // HWCAP_NEON on 32-bit ARM

uint32_t probe() {
  uint32_t flags = 0;
#if defined(__aarch64__)
  flags = kqCpuFlagsFromHwcap(0, true);
#elif defined(__arm__)
#if defined(__linux__)
  flags = kqCpuFlagsFromHwcap(getauxval(AT_HWCAP), false);
#endif
#elif defined(__x86_64__) || defined(__i386__)
  __builtin_cpu_init();
  if (__builtin_cpu_supports("sse4.1")) flags |= KQ_CPU_SSE41;
  if (__builtin_cpu_supports("avx2")) flags |= KQ_CPU_AVX2;
  // The probe also checks that the OS saves the 512-bit state.
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
      (flags & KQ_CPU_AVX2) != 0)
    flags |= KQ_CPU_AVX512;
#endif
  flags &= kqCpuBuildFlags();
  if (const char* mask = std::getenv("KQ_CPU_MASK")) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(mask, &end, 0);
    if (end != mask) flags &= static_cast<uint32_t>(value);
  }
  return flags;
}

}  // namespace

uint32_t kqCpuBuildFlags() {
  uint32_t flags = 0;
#if KQ_HAVE_NEON
  flags |= KQ_CPU_NEON;
#endif
#if KQ_HAVE_SSE41
  flags |= KQ_CPU_SSE41;
#endif
#if KQ_HAVE_AVX2
  flags |= KQ_CPU_AVX2;
#endif
#if KQ_HAVE_AVX512
  flags |= KQ_CPU_AVX512;
#endif
  return flags;
}

uint32_t kqCpuFlagsFromHwcap(unsigned long hwcap, bool aarch64) {
  if (aarch64) return KQ_CPU_NEON;
  return (hwcap & kHwcapNeon) != 0 ? KQ_CPU_NEON : 0u;
}

uint32_t kqCpuFlags() {
  static const uint32_t flags = probe();
  return flags;
}

const char* kqCpuFlagName(uint32_t flag) {
  switch (flag) {
    case 0:
      return "c";
    case KQ_CPU_NEON:
      return "neon";
    case KQ_CPU_SSE41:
      return "sse41";
    case KQ_CPU_AVX2:
      return "avx2";
    case KQ_CPU_AVX512:
      return "avx512";
    default:
      return "?";
  }
}

KQCpuLevels kqCpuLevels() {
  KQCpuLevels levels{{0u}, 1};
  const uint32_t have = kqCpuFlags();
  uint32_t cumulative = 0;
  for (uint32_t flag : {uint32_t{KQ_CPU_NEON}, uint32_t{KQ_CPU_SSE41}, uint32_t{KQ_CPU_AVX2},
                        uint32_t{KQ_CPU_AVX512}}) {
    if ((have & flag) == 0) continue;
    cumulative |= flag;
    levels.level[levels.count++] = cumulative;
  }
  return levels;
}

const char* kqCpuLevelName(uint32_t level) {
  for (uint32_t flag : {uint32_t{KQ_CPU_AVX512}, uint32_t{KQ_CPU_AVX2}, uint32_t{KQ_CPU_SSE41},
                        uint32_t{KQ_CPU_NEON}})
    if (level & flag) return kqCpuFlagName(flag);
  return kqCpuFlagName(0);
}
