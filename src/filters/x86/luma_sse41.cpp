// luma_sse41.cpp - SSE4.1 kernels of the luma filters. The reciprocal
// estimate is the emulation of VRECPE.F32 (table or vector lanes), never
// rcpps (a different estimate).
#include <smmintrin.h>

#include <cstdint>
#include <cstring>

#include "filters/luma_dsp.h"
#include "filters/recip_estimate.h"

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

namespace {

inline void store16(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// (a * b) >> 8 of signed 16-bit lanes from the full 32-bit product,
// narrowed by truncation: bits 8..23 of the product.
inline __m128i mulShr8(__m128i a, __m128i b) {
  return _mm_or_si128(_mm_srli_epi16(_mm_mullo_epi16(a, b), 8),
                      _mm_slli_epi16(_mm_mulhi_epi16(a, b), 8));
}

// The sharpening row in two passes over chunks of columns, 16 columns per
// step: the vertical blur V of the chunk goes to a line buffer (bytes),
// then the horizontal taps are plain unaligned loads from it. Both passes
// use maddubs on interleaved byte pairs (lo = columns 0-7, hi = 8-15).
//
// maddubs takes the weights as signed bytes: they must lie in [0, 127]
// (the driver's kernels use 7/31/52 and 19/19/52; see sharpenWeightsFit).
// With 2 * outer + 2 * inner + centre = 128 every pair sum is then at most
// 2 * 64 * 255 or 127 * 255 + 64, below the 16-bit saturation.
struct SharpenSse41 {
  static constexpr int32_t kChunk = 2048;
  // Columns of V kept to the left of the chunk (from the previous chunk,
  // or the edge repeats): the last step of a short final chunk starts up
  // to 16 columns before the chunk and reads 2 more.
  static constexpr int32_t kLeft = 32;

  __m128i wOI, wIO, wC64;  // vertical: (r0, r1), (r3, r4), (r2, 1)
  __m128i wOO, wII, wCN;   // horizontal: (V-2, V+2), (V-1, V+1), (V0, o)
  __m128i gainK, gain, t, nt;
  // Row pointers held by value: byte stores through dst may alias the
  // caller's pointer array, which would force a reload per use.
  const uint8_t* rows[5];
  uintptr_t nextRow;  // rows[4] - rows[3], for the prefetch

  SharpenSse41(const uint8_t* const* r, const KQSharpenParams* p) {
    const int16_t wo = int16_t(p->wOuter), wi = int16_t(p->wInner), wc = int16_t(p->wCentre);
    wOI = _mm_set1_epi16(int16_t(wo | wi << 8));
    wIO = _mm_set1_epi16(int16_t(wi | wo << 8));
    wC64 = _mm_set1_epi16(int16_t(wc | 64 << 8));
    wOO = _mm_set1_epi16(int16_t(wo | wo << 8));
    wII = _mm_set1_epi16(int16_t(wi | wi << 8));
    wCN = _mm_set1_epi16(int16_t(wc | 0x80 << 8));  // (centre, -128)
    const int16_t g = int16_t(uint16_t(p->gain));
    gain = _mm_set1_epi16(g);
    gainK = _mm_set1_epi16(int16_t(uint16_t(-4 * g)));  // read only when |g| <= 8191
    t = _mm_set1_epi16(int16_t(uint16_t(p->threshold)));
    nt = _mm_sub_epi16(_mm_setzero_si128(), t);
    for (int k = 0; k < 5; ++k) rows[k] = r[k];
    nextRow = reinterpret_cast<uintptr_t>(r[4]) - reinterpret_cast<uintptr_t>(r[3]);  // wraps
  }

  // V of columns x .. x + 15 into v[0 .. 15] (dst: the output row):
  // (o*(r0+r4) + i*(r1+r3) + c*r2 + 64) >> 7 <= 255.
  void vStep(uint8_t* v, const uint8_t* dst, int32_t x) const {
    const __m128i one = _mm_set1_epi8(1);
    // Row y + 2 is the only input row not yet in cache (the others were
    // read for the previous output rows), and the row after it is the one
    // the next call will miss on: fetch that one a whole row ahead, at
    // the distance rows[4] - rows[3] (the plane stride for interior rows;
    // near the edges, where the rows are mirrored, it just points at a row
    // already read). A prefetch never faults, so the address is formed as
    // an integer and may lie outside the plane.
    const uintptr_t ahead = reinterpret_cast<uintptr_t>(rows[4]) + nextRow + uintptr_t(x);
    _mm_prefetch(reinterpret_cast<const char*>(ahead), _MM_HINT_T0);
    // The output pass of the chunk stores to dst[x ..]: fetching those
    // lines now takes their misses off the output pass.
    _mm_prefetch(reinterpret_cast<const char*>(dst + x), _MM_HINT_T0);
    const __m128i r0 = load16(rows[0] + x), r1 = load16(rows[1] + x), r2 = load16(rows[2] + x);
    const __m128i r3 = load16(rows[3] + x), r4 = load16(rows[4] + x);
    __m128i lo = _mm_maddubs_epi16(_mm_unpacklo_epi8(r0, r1), wOI);
    __m128i hi = _mm_maddubs_epi16(_mm_unpackhi_epi8(r0, r1), wOI);
    lo = _mm_add_epi16(lo, _mm_maddubs_epi16(_mm_unpacklo_epi8(r3, r4), wIO));
    hi = _mm_add_epi16(hi, _mm_maddubs_epi16(_mm_unpackhi_epi8(r3, r4), wIO));
    lo = _mm_add_epi16(lo, _mm_maddubs_epi16(_mm_unpacklo_epi8(r2, one), wC64));
    hi = _mm_add_epi16(hi, _mm_maddubs_epi16(_mm_unpackhi_epi8(r2, one), wC64));
    store16(v, _mm_packus_epi16(_mm_srli_epi16(lo, 7), _mm_srli_epi16(hi, 7)));
  }

  // From h' = H - 128 o (16-bit, exact: |h'| <= 32640) and the pair lanes
  // vo = V0 | o << 8, the output before packus. floor(h' / 32) is
  // (H >> 5) - 4o = -D.
  //
  // Small gains (|g| <= 8191): E = (D * g) >> 8 needs no truncation and
  // E >> 1 = floor(D * g / 512) = mulhi(-D * 32, -4g), where -D * 32 is
  // h' with its low 5 bits cleared. C >> 1 = clamp(E >> 1, -60, 60) (the
  // bounds are even), and with x = (C >> 1) + (E >> 1) - M (|x| < 29500,
  // no 16-bit wrap) the output is o + floor((x + 2) / 4) = o +
  // mulhrs(x, 8192).
  // Other gains: E from the full product, R in wrapping 16-bit lanes as in
  // the reference, and (R + 2) >> 2 as ((R >> 1) + 1) >> 1.
  // M = (L * 102) >> 8 = mulhi(L, 102 * 256) (|L| <= 32768).
  template <bool kSmallGain, bool kThreshold>
  __m128i respond(__m128i h, __m128i vo) const {
    const __m128i o = _mm_srli_epi16(vo, 8);
    __m128i f;
    if (kSmallGain) {
      f = _mm_mulhi_epi16(_mm_and_si128(h, _mm_set1_epi16(-32)), gainK);
    } else {
      const __m128i d = _mm_sub_epi16(_mm_setzero_si128(), _mm_srai_epi16(h, 5));
      f = _mm_srai_epi16(mulShr8(d, gain), 1);
    }
    const __m128i c = _mm_max_epi16(_mm_min_epi16(f, _mm_set1_epi16(60)), _mm_set1_epi16(-60));
    __m128i x = _mm_add_epi16(f, c);
    if (kThreshold) {
      const __m128i d = _mm_sub_epi16(_mm_setzero_si128(), _mm_srai_epi16(h, 5));
      const __m128i l = _mm_min_epi16(t, _mm_max_epi16(nt, d));
      x = _mm_sub_epi16(x, _mm_mulhi_epi16(l, _mm_set1_epi16(102 * 256)));
    }
    if (kSmallGain) return _mm_add_epi16(o, _mm_mulhrs_epi16(x, _mm_set1_epi16(8192)));
    const __m128i r = _mm_add_epi16(_mm_slli_epi16(o, 2), x);
    return _mm_srai_epi16(_mm_add_epi16(_mm_srai_epi16(r, 1), _mm_set1_epi16(1)), 1);
  }

  // 16 outputs at x; q points at V(x) in the line buffer.
  // h' = o*(V-2 + V+2) + i*(V-1 + V+1) + c*V0 - 128*o.
  template <bool kSmallGain, bool kThreshold>
  void outStep(uint8_t* dst, const uint8_t* q, int32_t x) const {
    const __m128i m2 = load16(q - 2), p2 = load16(q + 2), m1 = load16(q - 1), p1 = load16(q + 1);
    const __m128i v0 = load16(q), o = load16(rows[2] + x);
    const __m128i voLo = _mm_unpacklo_epi8(v0, o), voHi = _mm_unpackhi_epi8(v0, o);
    __m128i lo = _mm_maddubs_epi16(_mm_unpacklo_epi8(m2, p2), wOO);
    __m128i hi = _mm_maddubs_epi16(_mm_unpackhi_epi8(m2, p2), wOO);
    lo = _mm_add_epi16(lo, _mm_maddubs_epi16(_mm_unpacklo_epi8(m1, p1), wII));
    hi = _mm_add_epi16(hi, _mm_maddubs_epi16(_mm_unpackhi_epi8(m1, p1), wII));
    lo = _mm_add_epi16(lo, _mm_maddubs_epi16(voLo, wCN));
    hi = _mm_add_epi16(hi, _mm_maddubs_epi16(voHi, wCN));
    store16(dst + x, _mm_packus_epi16(respond<kSmallGain, kThreshold>(lo, voLo),
                                      respond<kSmallGain, kThreshold>(hi, voHi)));
  }

  // Columns [0, nv) with nv >= 8. The rows must be readable for
  // max(nv, 16) columns (the caller pads narrower rows) and dst writable
  // as far. A final partial step of either pass is redone at end - 16,
  // which rewrites equal bytes.
  template <bool kSmallGain, bool kThreshold>
  void row(uint8_t* dst, int32_t nv) const {
    alignas(16) uint8_t buf[kLeft + kChunk + 32];
    uint8_t* const v = buf + kLeft;  // v[i] = V(x0 + i)
    for (int32_t x0 = 0; x0 < nv; x0 += kChunk) {
      const int32_t x1 = x0 + kChunk < nv ? x0 + kChunk : nv;
      // V(x1), V(x1 + 1) belong to the next chunk: one more step of V.
      const int32_t vEnd = x1 + 16 < nv ? x1 + 16 : nv;
      if (x0 > 0) std::memcpy(buf, buf + kChunk, kLeft);  // V(x0 - 32 .. x0 - 1)
      int32_t x = x0;
      for (; x + 16 <= vEnd; x += 16) vStep(v + (x - x0), dst, x);
      if (x < vEnd) {
        x = vEnd >= 16 ? vEnd - 16 : 0;
        vStep(v + (x - x0), dst, x);
      }
      if (x0 == 0) v[-1] = v[-2] = v[0];
      // V(nv), V(nv + 1) repeat V(nv - 1). On padded rows (nv < 16) the
      // repeat runs on to the end of the one step, whose extra outputs are
      // dropped but should not come from unset bytes.
      if (vEnd == nv) {
        const int32_t n = nv - x0, end = nv < 16 ? 18 : n + 2;
        for (int32_t i = n; i < end; ++i) v[i] = v[n - 1];
      }
      for (x = x0; x + 16 <= x1; x += 16) outStep<kSmallGain, kThreshold>(dst, v + (x - x0), x);
      if (x < x1) {
        x = x1 >= 16 ? x1 - 16 : 0;
        outStep<kSmallGain, kThreshold>(dst, v + (x - x0), x);
      }
    }
  }

  void run(uint8_t* dst, int32_t nv, const KQSharpenParams* p) const {
    const int16_t g = int16_t(uint16_t(p->gain));
    const bool small = g >= -8191 && g <= 8191;
    if (uint16_t(p->threshold) == 0)
      small ? row<true, false>(dst, nv) : row<false, false>(dst, nv);
    else
      small ? row<true, true>(dst, nv) : row<false, true>(dst, nv);
  }
};

}  // namespace

namespace {

// Weights the maddubs form handles exactly: each in [0, 127] and summing
// to 128 as the contract asks. Anything else (a centre weight of 128)
// takes the scalar reference.
inline bool sharpenWeightsFit(const KQSharpenParams* p) {
  const uint32_t o = uint32_t(p->wOuter), i = uint32_t(p->wInner), c = uint32_t(p->wCentre);
  return o <= 127 && i <= 127 && c <= 127 && 2 * o + 2 * i + c == 128;
}

}  // namespace

void kqSharpenRow_sse41(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                        const KQSharpenParams* p) {
  if (!sharpenWeightsFit(p)) {
    kqSharpenRow_c(dst, rows, width, p);
    return;
  }
  const int32_t nv = width & ~7;
  if (nv >= 16) {
    SharpenSse41(rows, p).run(dst, nv, p);
  } else if (nv > 0) {
    // 8 columns: through zero-padded 16-column copies.
    alignas(16) uint8_t pad[6][16] = {};
    const uint8_t* r[5];
    for (int k = 0; k < 5; ++k) {
      std::memcpy(pad[k], rows[k], size_t(nv));
      r[k] = pad[k];
    }
    SharpenSse41(r, p).run(pad[5], nv, p);
    std::memcpy(dst, pad[5], size_t(nv));
  }
  for (int32_t x = nv; x < width; ++x) dst[x] = kqSharpenTailPixel(rows[2], x, p);
}
