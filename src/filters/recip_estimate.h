// recip_estimate.h - bit-exact scalar emulation of the Arm VRECPE.F32
// reciprocal estimate, which the noise filter divides by.
//
// The estimate only looks at the exponent and the top 8 mantissa bits:
//   a = 256 + mantissa[22:15]                (the operand scaled to 0.5..1)
//   r = ((2^19 / (2a + 1)) + 1) / 2          (integer divisions, 256..511)
//   result = sign | (253 - exponent) << 23 | (r & 0xFF) << 15
// Special cases follow the armv7 Advanced SIMD rules (flush-to-zero and
// default NaN always on): zero and denormal inputs give a signed infinity,
// infinities give a signed zero, NaNs the default NaN, and inputs of 2^126
// or more give a signed zero. aarch64 (FPCR.FZ = 0) differs only for those
// huge inputs (it returns denormals) and in NaN propagation; the filters
// only ever take estimates of the integers 30..480.
#pragma once

#include <cstdint>
#include <cstring>

static inline uint32_t kqRecipEstimateBits(uint32_t bits) {
  const uint32_t sign = bits & 0x80000000u;
  const uint32_t exponent = (bits >> 23) & 0xFFu;
  const uint32_t mantissa = bits & 0x7FFFFFu;
  if (exponent == 0) return sign | 0x7F800000u;                   // 0, denormal -> inf
  if (exponent == 255) return mantissa ? 0x7FC00000u : sign;      // NaN, inf -> 0
  if (exponent >= 253) return sign;                               // result would be denormal
  const uint32_t a = 256u | (mantissa >> 15);
  const uint32_t b = (1u << 19) / (2u * a + 1u);
  const uint32_t r = (b + 1u) >> 1;
  return sign | ((253u - exponent) << 23) | ((r & 0xFFu) << 15);
}

static inline float kqRecipEstimate(float x) {
  uint32_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  bits = kqRecipEstimateBits(bits);
  float out;
  std::memcpy(&out, &bits, sizeof out);
  return out;
}

// The estimates of the weight sums the noise filter can produce, indexed by
// the sum (entries 0..29 are never used by the filter but are filled too).
constexpr int32_t kKqRecipTableSize = 481;

struct KQRecipTable {
  float v[kKqRecipTableSize];
};

// Built on first use in each translation unit (thread-safe static).
static inline const float* kqRecipEstimateTable() {
  static const KQRecipTable table = [] {
    KQRecipTable t{};
    for (int32_t d = 0; d < kKqRecipTableSize; ++d) t.v[d] = kqRecipEstimate(float(d));
    return t;
  }();
  return table.v;
}
