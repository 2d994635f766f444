// cpu.h - which vector instruction sets this CPU offers to the kernels.
#pragma once

#include <cstddef>
#include <cstdint>

enum : uint32_t {
  KQ_CPU_NEON = 1u << 0,
  KQ_CPU_SSE41 = 1u << 1,
  KQ_CPU_AVX2 = 1u << 2,
  // AVX-512 with byte/word lanes and byte permutes: F, BW, VL and VBMI
  // together (Ice Lake, Zen 4 and later).
  KQ_CPU_AVX512 = 1u << 3,
};

// Probed once: the instruction sets this CPU and this build both support,
// ANDed with the mask in the environment variable KQ_CPU_MASK (a number,
// e.g. 0 for scalar only, 2 for SSE4.1 only), which can only remove sets.
uint32_t kqCpuFlags();

// Instruction sets compiled into this build (KQ_HAVE_*), before probing.
uint32_t kqCpuBuildFlags();

// Pure decoding of the Linux auxiliary vector for ARM (tests feed it
// recorded values). On aarch64 NEON is architectural.
uint32_t kqCpuFlagsFromHwcap(unsigned long hwcap, bool aarch64);

// Name of one flag ("c" for 0, "neon", "sse41", "avx2", "avx512").
const char* kqCpuFlagName(uint32_t flag);

// Name of a cumulative level: that of its highest flag.
const char* kqCpuLevelName(uint32_t level);

// Cumulative flag sets from scalar up to everything kqCpuFlags() offers, in
// rising order: {0, NEON} on ARM, {0, SSE41, SSE41|AVX2} on a modern x86
// (and SSE41|AVX2|AVX512 where AVX-512 is there).
// Kernel tests and benchmarks run each level in turn (a range of at most
// five levels; no allocation).
struct KQCpuLevels {
  uint32_t level[5];
  int32_t count;
  const uint32_t* begin() const { return level; }
  const uint32_t* end() const { return level + count; }
  uint32_t back() const { return level[count - 1]; }
  size_t size() const { return size_t(count); }
};
KQCpuLevels kqCpuLevels();
