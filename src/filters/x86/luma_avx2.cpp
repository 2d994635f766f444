// luma_avx2.cpp - AVX2 kernels of the luma filters: the noise-reduction
// interior row and the sharpening row (the blends stay SSE4.1: they are
// bound by memory traffic).
#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "filters/luma_dsp.h"
#include "filters/x86/sharpen_x86.h"

namespace {

// One pair of taps (p1, p2) interleaved by bytes, against the centres
// interleaved the same way (c, c): range weights 30 (-) |p - c| computed
// on the pairs directly, then w1*p1 + w2*p2 <= 15300 per 16-bit lane via
// maddubs. Each byte of wsum gathers one weight of every pair.
inline void nrPair(__m256i pp, __m256i cc, __m256i k30, __m256i& acc, __m256i& wsum) {
  const __m256i d = _mm256_or_si256(_mm256_subs_epu8(pp, cc), _mm256_subs_epu8(cc, pp));
  const __m256i w = _mm256_subs_epu8(k30, d);
  acc = _mm256_add_epi16(acc, _mm256_maddubs_epi16(pp, w));
  wsum = _mm256_add_epi8(wsum, w);
}

// Loads 32 bytes, or 16 zero-extended ones for a single 16-pixel block.
template <bool kWide>
inline __m256i loadTap(const uint8_t* p) {
  if (kWide) return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  return _mm256_zextsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// The estimate of 1/d for 32-bit lanes d in 30..480, computed as the
// emulation does: from the bits of float(d), a = 256 + top 8 mantissa
// bits, b = floor(2^19 / (2a + 1)) and (b + 1) >> 1 as the new mantissa.
// b comes from a float division: 2^19 / (2a + 1) is never an integer and
// lies at least 1/1023 from one, far more than the quotient's rounding
// error, so truncating the rounded quotient is the exact floor.
inline __m256 nrEstimate(__m256i d) {
  const __m256i bits = _mm256_castps_si256(_mm256_cvtepi32_ps(d));
  const __m256i den =
      _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(bits, 14), _mm256_set1_epi32(0x1FE)),
                      _mm256_set1_epi32(0x201));
  const __m256i b =
      _mm256_cvttps_epi32(_mm256_div_ps(_mm256_set1_ps(524288.0f), _mm256_cvtepi32_ps(den)));
  const __m256i mant =
      _mm256_and_si256(_mm256_slli_epi32(_mm256_add_epi32(b, _mm256_set1_epi32(1)), 14),
                       _mm256_set1_epi32(0xFF << 15));
  const __m256i expo = _mm256_sub_epi32(_mm256_set1_epi32(253 << 23),
                                        _mm256_and_si256(bits, _mm256_set1_epi32(0x7F800000)));
  return _mm256_castsi256_ps(_mm256_or_si256(expo, mant));
}

// trunc(float(n) * estimate(d)) for the 32-bit lanes n, d (d in 30..480).
// No clamp here: the quotient stays below 257, and the final packus to
// bytes saturates it to 255 exactly as min(255, ...) would.
inline __m256i nrDivide(__m256i n, __m256i d) {
  return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(n), nrEstimate(d)));
}

// Quotients of one accumulator half: the 16-bit lanes of a (first four
// pairs), b (last four) and the weight sums d, taken as even and odd
// 32-bit halves (masks and shifts, no shuffles), divided, and put back
// into their 16-bit lanes.
inline __m256i nrQuotients(__m256i a, __m256i b, __m256i d) {
  const __m256i lo16 = _mm256_set1_epi32(0xFFFF);
  const __m256i nEven = _mm256_add_epi32(_mm256_and_si256(a, lo16), _mm256_and_si256(b, lo16));
  const __m256i nOdd = _mm256_add_epi32(_mm256_srli_epi32(a, 16), _mm256_srli_epi32(b, 16));
  const __m256i qEven = nrDivide(nEven, _mm256_and_si256(d, lo16));
  const __m256i qOdd = nrDivide(nOdd, _mm256_srli_epi32(d, 16));
  return _mm256_or_si256(qEven, _mm256_slli_epi32(qOdd, 16));
}

// 32 centres (two interior blocks) or, for the last odd block, 16 of them.
// The taps of a pair of blocks j, j + 1 stay inside [16 j, 16 j + 47], the
// union of the two blocks' 32-byte windows. unpack works within 128-bit
// halves, so the "lo" lanes hold pixels 0-7 | 16-23 and "hi" 8-15 | 24-31;
// the centre itself is the first tap of the first pair (its weight comes
// out as 30).
template <bool kWide>
__attribute__((always_inline)) inline void nrBlocks(uint8_t* dst, const uint8_t* src,
                                                    ptrdiff_t stride, int32_t x) {
  const __m256i k30 = _mm256_set1_epi8(30);
  const __m256i zero = _mm256_setzero_si256();
  const uint8_t* up4 = src - 4 * stride;
  const uint8_t* up1 = src - stride;
  const uint8_t* dn1 = src + stride;
  const uint8_t* dn4 = src + 4 * stride;
  const __m256i c = loadTap<kWide>(src + x);
  const __m256i ccLo = _mm256_unpacklo_epi8(c, c), ccHi = _mm256_unpackhi_epi8(c, c);
  __m256i aLo = zero, aHi = zero, bLo = zero, bHi = zero, wLo = zero, wHi = zero;
  auto pair = [&](__m256i p1, __m256i p2, __m256i& accLo, __m256i& accHi) {
    nrPair(_mm256_unpacklo_epi8(p1, p2), ccLo, k30, accLo, wLo);
    nrPair(_mm256_unpackhi_epi8(p1, p2), ccHi, k30, accHi, wHi);
  };
  // Four pairs per accumulator: <= 4 * 15300 = 61200 (unsigned 16 bits).
  pair(c, loadTap<kWide>(src + x - 6), aLo, aHi);
  pair(loadTap<kWide>(src + x - 1), loadTap<kWide>(src + x + 1), aLo, aHi);
  pair(loadTap<kWide>(src + x + 6), loadTap<kWide>(up1 + x - 4), aLo, aHi);
  pair(loadTap<kWide>(up1 + x), loadTap<kWide>(up1 + x + 4), aLo, aHi);
  pair(loadTap<kWide>(dn1 + x - 4), loadTap<kWide>(dn1 + x - 2), bLo, bHi);
  pair(loadTap<kWide>(dn1 + x), loadTap<kWide>(dn1 + x + 4), bLo, bHi);
  pair(loadTap<kWide>(up4 + x - 2), loadTap<kWide>(up4 + x + 2), bLo, bHi);
  pair(loadTap<kWide>(dn4 + x - 2), loadTap<kWide>(dn4 + x + 2), bLo, bHi);
  // Each weight byte holds 8 weights (<= 240); adding its two bytes gives
  // the weight sum of the pixel in the 16-bit lane of the accumulators.
  const __m256i ones = _mm256_set1_epi8(1);
  const __m256i dLo = _mm256_maddubs_epi16(wLo, ones), dHi = _mm256_maddubs_epi16(wHi, ones);
  // The in-half pack restores pixel order: 0-15 | 16-31.
  const __m256i out = _mm256_packus_epi16(nrQuotients(aLo, bLo, dLo), nrQuotients(aHi, bHi, dHi));
  if (kWide)
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + x), out);
  else
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm256_castsi256_si128(out));
}

}  // namespace

void kqLumaNrRow_avx2(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t width) {
  const int32_t blocks = (width - 16) / 16;
  int32_t j = 0;
  for (; j + 2 <= blocks; j += 2) nrBlocks<true>(dst, src, stride, 6 + 16 * j);
  if (j < blocks) nrBlocks<false>(dst, src, stride, 6 + 16 * j);
}

namespace {

// 128/256-bit operations for the shared sharpening row (sharpen_x86.h).
struct VecAvx2 {
  using R = __m256i;
  static constexpr int32_t kStep = 32;
  static R load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const R*>(p)); }
  static void store(uint8_t* p, R v) { _mm256_storeu_si256(reinterpret_cast<R*>(p), v); }
  static R set8(int8_t v) { return _mm256_set1_epi8(v); }
  static R set16(int16_t v) { return _mm256_set1_epi16(v); }
  static R zero() { return _mm256_setzero_si256(); }
  static R add16(R a, R b) { return _mm256_add_epi16(a, b); }
  static R sub16(R a, R b) { return _mm256_sub_epi16(a, b); }
  static R min16(R a, R b) { return _mm256_min_epi16(a, b); }
  static R max16(R a, R b) { return _mm256_max_epi16(a, b); }
  static R and_(R a, R b) { return _mm256_and_si256(a, b); }
  static R or_(R a, R b) { return _mm256_or_si256(a, b); }
  static R maddubs(R a, R b) { return _mm256_maddubs_epi16(a, b); }
  static R unlo8(R a, R b) { return _mm256_unpacklo_epi8(a, b); }
  static R unhi8(R a, R b) { return _mm256_unpackhi_epi8(a, b); }
  static R packus16(R a, R b) { return _mm256_packus_epi16(a, b); }
  static R mullo16(R a, R b) { return _mm256_mullo_epi16(a, b); }
  static R mulhi16(R a, R b) { return _mm256_mulhi_epi16(a, b); }
  static R mulhrs16(R a, R b) { return _mm256_mulhrs_epi16(a, b); }
  template <int n>
  static R srli16(R a) {
    return _mm256_srli_epi16(a, n);
  }
  template <int n>
  static R srai16(R a) {
    return _mm256_srai_epi16(a, n);
  }
  template <int n>
  static R slli16(R a) {
    return _mm256_slli_epi16(a, n);
  }
};

}  // namespace

void kqSharpenRow_avx2(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                       const KQSharpenParams* p) {
  kqSharpenRowX86<VecAvx2>(dst, rows, width, p);
}
