// luma_sse41.cpp - SSE4.1 kernels of the luma filters. The reciprocal
// estimate is the emulation of VRECPE.F32 (table or vector lanes), never
// rcpps (a different estimate).
#include <smmintrin.h>

#include <cstdint>
#include <cstring>

#include "filters/luma_dsp.h"
#include "filters/recip_estimate.h"
#include "filters/x86/nr_x86.h"
#include "filters/x86/sharpen_x86.h"
#include "runtime/x86/vec_x86.h"

namespace {

// Estimate of 1/x for lanes whose exponent is 1..252 (the normal results):
//   a = 256 + top 8 mantissa bits, b = floor(2^19 / (2a + 1)),
//   r = (b + 1) >> 1, result = (253 - e) << 23 | (r & 0xFF) << 15.
// b comes from a float division: 2^19 / (2a + 1) is never an integer and
// lies at least 1/1023 from one, far more than the quotient's rounding
// error (2^-14), so truncating the rounded quotient gives the exact floor.
inline __m128i recipNormalBits(__m128i bits) {
  const __m128i e = _mm_and_si128(_mm_srli_epi32(bits, 23), _mm_set1_epi32(0xFF));
  const __m128i top = _mm_and_si128(_mm_srli_epi32(bits, 15), _mm_set1_epi32(0xFF));
  const __m128i den = _mm_add_epi32(_mm_set1_epi32(513), _mm_slli_epi32(top, 1));
  const __m128i b = _mm_cvttps_epi32(_mm_div_ps(_mm_set1_ps(524288.0f), _mm_cvtepi32_ps(den)));
  const __m128i r = _mm_srli_epi32(_mm_add_epi32(b, _mm_set1_epi32(1)), 1);
  const __m128i sign = _mm_and_si128(bits, _mm_set1_epi32(int32_t(0x80000000u)));
  return _mm_or_si128(_mm_or_si128(sign, _mm_slli_epi32(_mm_sub_epi32(_mm_set1_epi32(253), e), 23)),
                      _mm_slli_epi32(_mm_and_si128(r, _mm_set1_epi32(0xFF)), 15));
}

// trunc(min(255, float(n) * estimate)) for 4 lanes. The estimates come
// from the table of the 481 possible weight sums (the same emulation as
// recipNormalBits, four scalar loads being cheaper than a division).
inline __m128i nrDivide(__m128i n, const float* table, const uint16_t* d) {
  const __m128 est = _mm_setr_ps(table[d[0]], table[d[1]], table[d[2]], table[d[3]]);
  const __m128 q = _mm_min_ps(_mm_mul_ps(_mm_cvtepi32_ps(n), est), _mm_set1_ps(255.0f));
  return _mm_cvttps_epi32(q);
}

inline __m128i rangeWeight(__m128i p, __m128i c, __m128i k30) {
  const __m128i d = _mm_or_si128(_mm_subs_epu8(p, c), _mm_subs_epu8(c, p));
  return _mm_subs_epu8(k30, d);
}

// Two taps at once: interleaved (p1, p2) bytes times (w1, w2) with maddubs
// give w1*p1 + w2*p2 <= 15300 per 16-bit lane (no saturation possible).
inline void nrPair(__m128i p1, __m128i w1, __m128i p2, __m128i w2, __m128i& accLo, __m128i& accHi,
                   __m128i& wsum) {
  accLo =
      _mm_add_epi16(accLo, _mm_maddubs_epi16(_mm_unpacklo_epi8(p1, p2), _mm_unpacklo_epi8(w1, w2)));
  accHi =
      _mm_add_epi16(accHi, _mm_maddubs_epi16(_mm_unpackhi_epi8(p1, p2), _mm_unpackhi_epi8(w1, w2)));
  wsum = _mm_add_epi8(wsum, _mm_add_epi8(w1, w2));
}

inline __m128i load16(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline __m128i load8(const uint8_t* p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}
inline void store8(uint8_t* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }

}  // namespace

// 16 centres per step, taps as unaligned loads inside the block's 32-byte
// window. Two u16 accumulators of 8 taps each (<= 61200, read as unsigned),
// widened to u32 per 4 lanes; weight sums in u8 (<= 240 each).
void kqLumaNrRow_sse41(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t width) {
  const int32_t blocks = (width - 16) / 16;
  const __m128i k30 = _mm_set1_epi8(30);
  const __m128i zero = _mm_setzero_si128();
  const float* table = kqRecipEstimateTable();
  const uint8_t* up4 = src - 4 * stride;
  const uint8_t* up1 = src - stride;
  const uint8_t* dn1 = src + stride;
  const uint8_t* dn4 = src + 4 * stride;
  for (int32_t j = 0; j < blocks; ++j) {
    const int32_t x = 6 + 16 * j;
    const __m128i c = load16(src + x);
    __m128i aLo = zero, aHi = zero, wa = zero;
    __m128i bLo = zero, bHi = zero, wb = zero;
    {
      const __m128i p1 = load16(src + x - 6), p2 = load16(src + x - 1);
      const __m128i p3 = load16(src + x + 1), p4 = load16(src + x + 6);
      nrPair(c, k30, p1, rangeWeight(p1, c, k30), aLo, aHi, wa);
      nrPair(p2, rangeWeight(p2, c, k30), p3, rangeWeight(p3, c, k30), aLo, aHi, wa);
      const __m128i p5 = load16(up1 + x - 4), p6 = load16(up1 + x), p7 = load16(up1 + x + 4);
      nrPair(p4, rangeWeight(p4, c, k30), p5, rangeWeight(p5, c, k30), aLo, aHi, wa);
      nrPair(p6, rangeWeight(p6, c, k30), p7, rangeWeight(p7, c, k30), aLo, aHi, wa);
    }
    {
      const __m128i p1 = load16(dn1 + x - 4), p2 = load16(dn1 + x - 2);
      const __m128i p3 = load16(dn1 + x), p4 = load16(dn1 + x + 4);
      nrPair(p1, rangeWeight(p1, c, k30), p2, rangeWeight(p2, c, k30), bLo, bHi, wb);
      nrPair(p3, rangeWeight(p3, c, k30), p4, rangeWeight(p4, c, k30), bLo, bHi, wb);
      const __m128i p5 = load16(up4 + x - 2), p6 = load16(up4 + x + 2);
      const __m128i p7 = load16(dn4 + x - 2), p8 = load16(dn4 + x + 2);
      nrPair(p5, rangeWeight(p5, c, k30), p6, rangeWeight(p6, c, k30), bLo, bHi, wb);
      nrPair(p7, rangeWeight(p7, c, k30), p8, rangeWeight(p8, c, k30), bLo, bHi, wb);
    }
    // D = wa + wb in u16, then u32 quarters. Lo/Hi = pixels 0..7 / 8..15.
    const __m128i dLo = _mm_add_epi16(_mm_unpacklo_epi8(wa, zero), _mm_unpacklo_epi8(wb, zero));
    const __m128i dHi = _mm_add_epi16(_mm_unpackhi_epi8(wa, zero), _mm_unpackhi_epi8(wb, zero));
    alignas(16) uint16_t d[16];  // weight sums, 30..480
    _mm_store_si128(reinterpret_cast<__m128i*>(d), dLo);
    _mm_store_si128(reinterpret_cast<__m128i*>(d + 8), dHi);
    auto sumLo = [&](__m128i a, __m128i b) {
      return _mm_add_epi32(_mm_unpacklo_epi16(a, zero), _mm_unpacklo_epi16(b, zero));
    };
    auto sumHi = [&](__m128i a, __m128i b) {
      return _mm_add_epi32(_mm_unpackhi_epi16(a, zero), _mm_unpackhi_epi16(b, zero));
    };
    const __m128i r0 = nrDivide(sumLo(aLo, bLo), table, d);
    const __m128i r1 = nrDivide(sumHi(aLo, bLo), table, d + 4);
    const __m128i r2 = nrDivide(sumLo(aHi, bHi), table, d + 8);
    const __m128i r3 = nrDivide(sumHi(aHi, bHi), table, d + 12);
    const __m128i out = _mm_packus_epi16(_mm_packus_epi32(r0, r1), _mm_packus_epi32(r2, r3));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), out);
  }
}

// 16 centres per step; a last partial step is redone ending at the run's
// end (equal bytes), runs shorter than 16 take the scalar kernel.
void kqLumaNrBorderRun_sse41(uint8_t* dst, const uint8_t* const* rows, int32_t x, int32_t count,
                             int32_t s) {
  if (count < 16) {
    kqLumaNrBorderRun_c(dst, rows, x, count, s);
    return;
  }
  auto tap = [](const uint8_t* p) { return VecSse41::load(p); };
  auto step = [&](int32_t at) {
    VecSse41::store(dst + at, KqNrX86<VecSse41>::borderBlocks(rows, at, s, tap));
  };
  int32_t i = 0;
  for (; i + 16 <= count; i += 16) step(x + i);
  if (i < count) step(x + count - 16);
}

// v = w * f + (128 - w) * o in wrapping 16-bit lanes, min_u16(255, v >> 7).
void kqLumaBlendRow_sse41(uint8_t* dst, const uint8_t* orig, int32_t width, int32_t weight) {
  const int32_t n = width & ~7;
  const __m128i w = _mm_set1_epi16(int16_t(uint16_t(weight)));
  const __m128i iw = _mm_set1_epi16(int16_t(uint16_t(128u - uint32_t(weight))));
  const __m128i k255 = _mm_set1_epi16(255);
  for (int32_t x = 0; x < n; x += 8) {
    const __m128i f = _mm_cvtepu8_epi16(load8(dst + x));
    const __m128i o = _mm_cvtepu8_epi16(load8(orig + x));
    __m128i v = _mm_add_epi16(_mm_mullo_epi16(f, w), _mm_mullo_epi16(o, iw));
    v = _mm_min_epu16(_mm_srli_epi16(v, 7), k255);
    store8(dst + x, _mm_packus_epi16(v, v));
  }
}

// Reference bytes for 8 columns: exactly 8 / scale of them are read.
void kqLumaBlendRefRow_sse41(uint8_t* dst, const uint8_t* orig, const uint8_t* ref, int32_t width,
                             int32_t weight, int32_t scale) {
  const int32_t n = width & ~7;
  const __m128i base = _mm_set1_epi16(int16_t(uint16_t(weight)));
  const __m128i k13 = _mm_set1_epi16(13);
  const __m128i k128 = _mm_set1_epi16(128);
  const __m128i k255 = _mm_set1_epi16(255);
  for (int32_t x = 0; x < n; x += 8) {
    __m128i r;
    if (scale == 4) {
      const int32_t v = ref[x >> 2] | (ref[(x >> 2) + 1] << 8);
      r = _mm_cvtsi32_si128(v);
      r = _mm_unpacklo_epi8(r, r);   // r0 r0 r1 r1
      r = _mm_unpacklo_epi16(r, r);  // r0 x4, r1 x4
    } else if (scale == 2) {
      int32_t v;
      std::memcpy(&v, ref + (x >> 1), 4);
      r = _mm_cvtsi32_si128(v);
      r = _mm_unpacklo_epi8(r, r);  // r0 r0 r1 r1 r2 r2 r3 r3
    } else {
      r = load8(ref + x);
    }
    const __m128i t = _mm_add_epi16(_mm_mullo_epi16(_mm_cvtepu8_epi16(r), k13), base);
    const __m128i w = _mm_min_epu16(t, k128);
    const __m128i iw = _mm_sub_epi16(k128, w);
    const __m128i f = _mm_cvtepu8_epi16(load8(dst + x));
    const __m128i o = _mm_cvtepu8_epi16(load8(orig + x));
    __m128i v = _mm_add_epi16(_mm_mullo_epi16(f, w), _mm_mullo_epi16(o, iw));
    v = _mm_min_epu16(_mm_srli_epi16(v, 7), k255);
    store8(dst + x, _mm_packus_epi16(v, v));
  }
}

namespace {

// Full-domain estimate: the normal path plus the armv7 special cases.
inline __m128i recipBits(__m128i bits) {
  const __m128i e = _mm_and_si128(_mm_srli_epi32(bits, 23), _mm_set1_epi32(0xFF));
  const __m128i mant = _mm_and_si128(bits, _mm_set1_epi32(0x7FFFFF));
  const __m128i sign = _mm_and_si128(bits, _mm_set1_epi32(int32_t(0x80000000u)));
  __m128i res = recipNormalBits(bits);
  res = _mm_blendv_epi8(res, sign, _mm_cmpgt_epi32(e, _mm_set1_epi32(252)));
  const __m128i isNan =
      _mm_xor_si128(_mm_cmpeq_epi32(mant, _mm_setzero_si128()), _mm_set1_epi32(-1));
  const __m128i nanOrZero = _mm_blendv_epi8(sign, _mm_set1_epi32(0x7FC00000), isNan);
  res = _mm_blendv_epi8(res, nanOrZero, _mm_cmpeq_epi32(e, _mm_set1_epi32(255)));
  res = _mm_blendv_epi8(res, _mm_or_si128(sign, _mm_set1_epi32(0x7F800000)),
                        _mm_cmpeq_epi32(e, _mm_setzero_si128()));
  return res;
}

}  // namespace

void kqRecipEstimate_sse41(const float* src, float* dst, int32_t count) {
  int32_t i = 0;
  for (; i + 4 <= count; i += 4) {
    const __m128i bits = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), recipBits(bits));
  }
  if (i < count) {
    float in[4] = {1.0f, 1.0f, 1.0f, 1.0f}, out[4];
    for (int32_t k = 0; i + k < count; ++k) in[k] = src[i + k];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                     recipBits(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in))));
    for (int32_t k = 0; i + k < count; ++k) dst[i + k] = out[k];
  }
}

void kqSharpenRow_sse41(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                        const KQSharpenParams* p) {
  kqSharpenRowX86<VecSse41>(dst, rows, width, p);
}
