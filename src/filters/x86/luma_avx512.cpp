// luma_avx512.cpp - AVX-512 (BW) kernels of the luma filters: the
// noise-reduction interior row, four 16-pixel blocks per step, and the
// sharpening row (the x86 row of sharpen_x86.h over 512-bit registers, 64
// columns per step). Byte and word unpacks, packs and shuffles work within
// 128-bit lanes exactly as their 256-bit forms do, so both follow the AVX2
// kernels lane for lane and give the same bytes.
// GCC 12's unmasked AVX-512 intrinsics pass an undefined vector as their
// merge source and then warn about it.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "filters/luma_dsp.h"
#include "filters/x86/sharpen_x86.h"

namespace {

// One pair of taps interleaved by bytes against the centres interleaved
// the same way: range weights 30 (-) |p - c|, then w1*p1 + w2*p2 <= 15300
// per 16-bit lane; each byte of wsum gathers one weight of every pair.
inline void nrPair(__m512i pp, __m512i cc, __m512i k30, __m512i& acc, __m512i& wsum) {
  const __m512i d = _mm512_or_si512(_mm512_subs_epu8(pp, cc), _mm512_subs_epu8(cc, pp));
  const __m512i w = _mm512_subs_epu8(k30, d);
  acc = _mm512_add_epi16(acc, _mm512_maddubs_epi16(pp, w));
  wsum = _mm512_add_epi8(wsum, w);
}

// The estimate of 1/d for 32-bit lanes d in 30..480 (see luma_avx2.cpp:
// a = 256 + top 8 mantissa bits of float(d), b = floor(2^19 / (2a + 1)) by
// a float division that is exact after truncation, (b + 1) >> 1 as the
// new mantissa).
inline __m512 nrEstimate(__m512i d) {
  const __m512i bits = _mm512_castps_si512(_mm512_cvtepi32_ps(d));
  const __m512i den =
      _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi32(bits, 14), _mm512_set1_epi32(0x1FE)),
                      _mm512_set1_epi32(0x201));
  const __m512i b =
      _mm512_cvttps_epi32(_mm512_div_ps(_mm512_set1_ps(524288.0f), _mm512_cvtepi32_ps(den)));
  const __m512i mant =
      _mm512_and_si512(_mm512_slli_epi32(_mm512_add_epi32(b, _mm512_set1_epi32(1)), 14),
                       _mm512_set1_epi32(0xFF << 15));
  const __m512i expo = _mm512_sub_epi32(_mm512_set1_epi32(253 << 23),
                                        _mm512_and_si512(bits, _mm512_set1_epi32(0x7F800000)));
  return _mm512_castsi512_ps(_mm512_or_si512(expo, mant));
}

// trunc(float(n) * estimate(d)); below 257, saturated by the final packus.
inline __m512i nrDivide(__m512i n, __m512i d) {
  return _mm512_cvttps_epi32(_mm512_mul_ps(_mm512_cvtepi32_ps(n), nrEstimate(d)));
}

// Quotients of one accumulator half from its even and odd 32-bit halves.
inline __m512i nrQuotients(__m512i a, __m512i b, __m512i d) {
  const __m512i lo16 = _mm512_set1_epi32(0xFFFF);
  const __m512i nEven = _mm512_add_epi32(_mm512_and_si512(a, lo16), _mm512_and_si512(b, lo16));
  const __m512i nOdd = _mm512_add_epi32(_mm512_srli_epi32(a, 16), _mm512_srli_epi32(b, 16));
  const __m512i qEven = nrDivide(nEven, _mm512_and_si512(d, lo16));
  const __m512i qOdd = nrDivide(nOdd, _mm512_srli_epi32(d, 16));
  return _mm512_or_si512(qEven, _mm512_slli_epi32(qOdd, 16));
}

// Four 16-pixel blocks j .. j + 3 at x = 6 + 16 j, or the first 16 * n
// pixels of them (mask: the loaded and stored bytes; a masked load reads
// nothing beyond them). The taps of the blocks stay inside
// [16 j, 16 j + 16 * n + 11], the union of the blocks' own windows.
__attribute__((always_inline)) inline void nrBlocks(uint8_t* dst, const uint8_t* src,
                                                    ptrdiff_t stride, int32_t x, __mmask64 mask) {
  const __m512i k30 = _mm512_set1_epi8(30);
  const __m512i zero = _mm512_setzero_si512();
  auto tap = [mask](const uint8_t* p) { return _mm512_maskz_loadu_epi8(mask, p); };
  const uint8_t* up4 = src - 4 * stride;
  const uint8_t* up1 = src - stride;
  const uint8_t* dn1 = src + stride;
  const uint8_t* dn4 = src + 4 * stride;
  const __m512i c = tap(src + x);
  const __m512i ccLo = _mm512_unpacklo_epi8(c, c), ccHi = _mm512_unpackhi_epi8(c, c);
  __m512i aLo = zero, aHi = zero, bLo = zero, bHi = zero, wLo = zero, wHi = zero;
  auto pair = [&](__m512i p1, __m512i p2, __m512i& accLo, __m512i& accHi) {
    nrPair(_mm512_unpacklo_epi8(p1, p2), ccLo, k30, accLo, wLo);
    nrPair(_mm512_unpackhi_epi8(p1, p2), ccHi, k30, accHi, wHi);
  };
  // Four pairs per accumulator: <= 4 * 15300 = 61200 (unsigned 16 bits).
  pair(c, tap(src + x - 6), aLo, aHi);
  pair(tap(src + x - 1), tap(src + x + 1), aLo, aHi);
  pair(tap(src + x + 6), tap(up1 + x - 4), aLo, aHi);
  pair(tap(up1 + x), tap(up1 + x + 4), aLo, aHi);
  pair(tap(dn1 + x - 4), tap(dn1 + x - 2), bLo, bHi);
  pair(tap(dn1 + x), tap(dn1 + x + 4), bLo, bHi);
  pair(tap(up4 + x - 2), tap(up4 + x + 2), bLo, bHi);
  pair(tap(dn4 + x - 2), tap(dn4 + x + 2), bLo, bHi);
  const __m512i ones = _mm512_set1_epi8(1);
  const __m512i dLo = _mm512_maddubs_epi16(wLo, ones), dHi = _mm512_maddubs_epi16(wHi, ones);
  // The in-lane pack restores pixel order within each 16-pixel block.
  const __m512i out = _mm512_packus_epi16(nrQuotients(aLo, bLo, dLo), nrQuotients(aHi, bHi, dHi));
  _mm512_mask_storeu_epi8(dst + x, mask, out);
}

struct VecAvx512 {
  using R = __m512i;
  static constexpr int32_t kStep = 64;
  static R load(const uint8_t* p) { return _mm512_loadu_si512(p); }
  static void store(uint8_t* p, R v) { _mm512_storeu_si512(p, v); }
  static R set8(int8_t v) { return _mm512_set1_epi8(v); }
  static R set16(int16_t v) { return _mm512_set1_epi16(v); }
  static R zero() { return _mm512_setzero_si512(); }
  static R add16(R a, R b) { return _mm512_add_epi16(a, b); }
  static R sub16(R a, R b) { return _mm512_sub_epi16(a, b); }
  static R min16(R a, R b) { return _mm512_min_epi16(a, b); }
  static R max16(R a, R b) { return _mm512_max_epi16(a, b); }
  static R and_(R a, R b) { return _mm512_and_si512(a, b); }
  static R or_(R a, R b) { return _mm512_or_si512(a, b); }
  static R maddubs(R a, R b) { return _mm512_maddubs_epi16(a, b); }
  static R unlo8(R a, R b) { return _mm512_unpacklo_epi8(a, b); }
  static R unhi8(R a, R b) { return _mm512_unpackhi_epi8(a, b); }
  static R packus16(R a, R b) { return _mm512_packus_epi16(a, b); }
  static R mullo16(R a, R b) { return _mm512_mullo_epi16(a, b); }
  static R mulhi16(R a, R b) { return _mm512_mulhi_epi16(a, b); }
  static R mulhrs16(R a, R b) { return _mm512_mulhrs_epi16(a, b); }
  template <int n>
  static R srli16(R a) {
    return _mm512_srli_epi16(a, n);
  }
  template <int n>
  static R srai16(R a) {
    return _mm512_srai_epi16(a, n);
  }
  template <int n>
  static R slli16(R a) {
    return _mm512_slli_epi16(a, n);
  }
};

}  // namespace

void kqLumaNrRow_avx512(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t width) {
  const int32_t blocks = (width - 16) / 16;
  int32_t j = 0;
  for (; j + 4 <= blocks; j += 4) nrBlocks(dst, src, stride, 6 + 16 * j, ~__mmask64{0});
  // The last one to three blocks: 16 bytes of every tap per block.
  if (j < blocks) nrBlocks(dst, src, stride, 6 + 16 * j, (__mmask64{1} << (16 * (blocks - j))) - 1);
}

void kqSharpenRow_avx512(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                         const KQSharpenParams* p) {
  kqSharpenRowX86<VecAvx512>(dst, rows, width, p);
}
