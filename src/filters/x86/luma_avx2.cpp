// luma_avx2.cpp - AVX2 kernels of the luma filters: the noise-reduction
// interior row and the sharpening row (the blends stay SSE4.1: they are
// bound by memory traffic).
#include <immintrin.h>

#include "filters/luma_dsp.h"
#include "filters/recip_estimate.h"

namespace {

inline __m256i rangeWeight(__m256i p, __m256i c, __m256i k30) {
  const __m256i d = _mm256_or_si256(_mm256_subs_epu8(p, c), _mm256_subs_epu8(c, p));
  return _mm256_subs_epu8(k30, d);
}

// Two taps at once through maddubs on interleaved (p1, p2) x (w1, w2):
// w1*p1 + w2*p2 <= 15300 per 16-bit lane. unpack works within 128-bit
// halves, so Lo holds pixels 0-7 | 16-23 and Hi pixels 8-15 | 24-31.
inline void nrPair(__m256i p1, __m256i w1, __m256i p2, __m256i w2, __m256i& accLo, __m256i& accHi,
                   __m256i& wsum) {
  accLo = _mm256_add_epi16(accLo, _mm256_maddubs_epi16(_mm256_unpacklo_epi8(p1, p2), _mm256_unpacklo_epi8(w1, w2)));
  accHi = _mm256_add_epi16(accHi, _mm256_maddubs_epi16(_mm256_unpackhi_epi8(p1, p2), _mm256_unpackhi_epi8(w1, w2)));
  wsum = _mm256_add_epi8(wsum, _mm256_add_epi8(w1, w2));
}

// trunc(min(255, float(n) * estimate)) for 8 lanes whose weight sums are
// d[0..3] (low half) and d[8..11] (high half), estimates from the table.
inline __m256i nrDivide(__m256i n, const float* table, const uint16_t* d) {
  const __m256 est = _mm256_setr_ps(table[d[0]], table[d[1]], table[d[2]], table[d[3]], table[d[8]],
                                    table[d[9]], table[d[10]], table[d[11]]);
  const __m256 q = _mm256_min_ps(_mm256_mul_ps(_mm256_cvtepi32_ps(n), est), _mm256_set1_ps(255.0f));
  return _mm256_cvttps_epi32(q);
}

// Loads 32 bytes, or 16 zero-extended ones for a single 16-pixel block.
template <bool kWide>
inline __m256i loadTap(const uint8_t* p) {
  if (kWide) return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  return _mm256_zextsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// 32 centres (two interior blocks) or, for the last odd block, 16 of them.
// The taps of a pair of blocks j, j + 1 stay inside [16 j, 16 j + 47], the
// union of the two blocks' 32-byte windows.
template <bool kWide>
inline void nrBlocks(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t x, const float* table) {
  const __m256i k30 = _mm256_set1_epi8(30);
  const __m256i zero = _mm256_setzero_si256();
  const uint8_t* up4 = src - 4 * stride;
  const uint8_t* up1 = src - stride;
  const uint8_t* dn1 = src + stride;
  const uint8_t* dn4 = src + 4 * stride;
  const __m256i c = loadTap<kWide>(src + x);
  __m256i aLo = zero, aHi = zero, wa = zero;
  __m256i bLo = zero, bHi = zero, wb = zero;
  {
    const __m256i p1 = loadTap<kWide>(src + x - 6), p2 = loadTap<kWide>(src + x - 1);
    const __m256i p3 = loadTap<kWide>(src + x + 1), p4 = loadTap<kWide>(src + x + 6);
    nrPair(c, k30, p1, rangeWeight(p1, c, k30), aLo, aHi, wa);
    nrPair(p2, rangeWeight(p2, c, k30), p3, rangeWeight(p3, c, k30), aLo, aHi, wa);
    const __m256i p5 = loadTap<kWide>(up1 + x - 4), p6 = loadTap<kWide>(up1 + x);
    const __m256i p7 = loadTap<kWide>(up1 + x + 4);
    nrPair(p4, rangeWeight(p4, c, k30), p5, rangeWeight(p5, c, k30), aLo, aHi, wa);
    nrPair(p6, rangeWeight(p6, c, k30), p7, rangeWeight(p7, c, k30), aLo, aHi, wa);
  }
  {
    const __m256i p1 = loadTap<kWide>(dn1 + x - 4), p2 = loadTap<kWide>(dn1 + x - 2);
    const __m256i p3 = loadTap<kWide>(dn1 + x), p4 = loadTap<kWide>(dn1 + x + 4);
    nrPair(p1, rangeWeight(p1, c, k30), p2, rangeWeight(p2, c, k30), bLo, bHi, wb);
    nrPair(p3, rangeWeight(p3, c, k30), p4, rangeWeight(p4, c, k30), bLo, bHi, wb);
    const __m256i p5 = loadTap<kWide>(up4 + x - 2), p6 = loadTap<kWide>(up4 + x + 2);
    const __m256i p7 = loadTap<kWide>(dn4 + x - 2), p8 = loadTap<kWide>(dn4 + x + 2);
    nrPair(p5, rangeWeight(p5, c, k30), p6, rangeWeight(p6, c, k30), bLo, bHi, wb);
    nrPair(p7, rangeWeight(p7, c, k30), p8, rangeWeight(p8, c, k30), bLo, bHi, wb);
  }
  // Weight sums as u16 in the same in-half order as the accumulators.
  alignas(32) uint16_t dl[16], dh[16];
  _mm256_store_si256(reinterpret_cast<__m256i*>(dl),
                     _mm256_add_epi16(_mm256_unpacklo_epi8(wa, zero), _mm256_unpacklo_epi8(wb, zero)));
  _mm256_store_si256(reinterpret_cast<__m256i*>(dh),
                     _mm256_add_epi16(_mm256_unpackhi_epi8(wa, zero), _mm256_unpackhi_epi8(wb, zero)));
  const __m256i n0 = _mm256_add_epi32(_mm256_unpacklo_epi16(aLo, zero), _mm256_unpacklo_epi16(bLo, zero));
  const __m256i n1 = _mm256_add_epi32(_mm256_unpackhi_epi16(aLo, zero), _mm256_unpackhi_epi16(bLo, zero));
  const __m256i n2 = _mm256_add_epi32(_mm256_unpacklo_epi16(aHi, zero), _mm256_unpacklo_epi16(bHi, zero));
  const __m256i n3 = _mm256_add_epi32(_mm256_unpackhi_epi16(aHi, zero), _mm256_unpackhi_epi16(bHi, zero));
  // n0: pixels 0-3 | 16-19, n1: 4-7 | 20-23, n2: 8-11 | 24-27, n3: 12-15 | 28-31.
  const __m256i r0 = nrDivide(n0, table, dl), r1 = nrDivide(n1, table, dl + 4);
  const __m256i r2 = nrDivide(n2, table, dh), r3 = nrDivide(n3, table, dh + 4);
  // The in-half packs restore pixel order: 0-15 | 16-31.
  const __m256i out = _mm256_packus_epi16(_mm256_packus_epi32(r0, r1), _mm256_packus_epi32(r2, r3));
  if (kWide)
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + x), out);
  else
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm256_castsi256_si128(out));
}

}  // namespace

void kqLumaNrRow_avx2(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t width) {
  const int32_t blocks = (width - 16) / 16;
  const float* table = kqRecipEstimateTable();
  int32_t j = 0;
  for (; j + 2 <= blocks; j += 2) nrBlocks<true>(dst, src, stride, 6 + 16 * j, table);
  if (j < blocks) nrBlocks<false>(dst, src, stride, 6 + 16 * j, table);
}

namespace {

// Vertical 5-tap blur of 16 columns as u16 lanes (in order):
// (o*(r0+r4) + i*(r1+r3) + c*r2 + 64) >> 7 <= 255. For a half chunk only
// 8 bytes per row are loaded (lanes 8..15 are then meaningless).
template <bool kFull>
inline __m256i sharpenV(const uint8_t* const* rows, int32_t x, __m256i wo, __m256i wi, __m256i wc) {
  auto ld = [x](const uint8_t* r) {
    return _mm256_cvtepu8_epi16(kFull ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(r + x))
                                      : _mm_loadl_epi64(reinterpret_cast<const __m128i*>(r + x)));
  };
  __m256i s = _mm256_mullo_epi16(_mm256_add_epi16(ld(rows[0]), ld(rows[4])), wo);
  s = _mm256_add_epi16(s, _mm256_mullo_epi16(_mm256_add_epi16(ld(rows[1]), ld(rows[3])), wi));
  s = _mm256_add_epi16(s, _mm256_mullo_epi16(ld(rows[2]), wc));
  return _mm256_srli_epi16(_mm256_add_epi16(s, _mm256_set1_epi16(64)), 7);
}

// (a * b) >> 8 of signed 16-bit lanes, truncated to 16 bits.
inline __m256i mulShr8(__m256i a, __m256i b) {
  return _mm256_or_si256(_mm256_srli_epi16(_mm256_mullo_epi16(a, b), 8),
                         _mm256_slli_epi16(_mm256_mulhi_epi16(a, b), 8));
}

inline __m256i broadcastLane(__m256i v, int lane) {
  alignas(32) int16_t t[16];
  _mm256_store_si256(reinterpret_cast<__m256i*>(t), v);
  return _mm256_set1_epi16(t[lane]);
}

struct SharpenAvx2 {
  __m256i wo, wi, wc, gain, t, nt;
  // Row pointers held by value: byte stores through dst may alias the
  // caller's pointer array, which would force a reload per use.
  const uint8_t* rows[5];

  // 16 outputs at x from V(prev) | V(cur) | V(next): the cross-half
  // neighbours come from permute2x128 + alignr (x - 2, x - 1 from
  // [prev.hi, cur.lo], x + 1, x + 2 from [cur.hi, next.lo]). Then the
  // steps of the scalar reference in 16-bit lanes; the rounding shift is
  // ((R >> 1) + 1) >> 1 (no 16-bit wrap), packus saturates.
  template <bool kThreshold, bool kFull>
  void out(uint8_t* dst, int32_t x, __m256i prev, __m256i cur, __m256i next) const {
    const __m256i pc = _mm256_permute2x128_si256(prev, cur, 0x21);
    const __m256i cn = _mm256_permute2x128_si256(cur, next, 0x21);
    const __m256i m2 = _mm256_alignr_epi8(cur, pc, 12), m1 = _mm256_alignr_epi8(cur, pc, 14);
    const __m256i p1 = _mm256_alignr_epi8(cn, cur, 2), p2 = _mm256_alignr_epi8(cn, cur, 4);
    __m256i h = _mm256_mullo_epi16(_mm256_add_epi16(m2, p2), wo);
    h = _mm256_add_epi16(h, _mm256_mullo_epi16(_mm256_add_epi16(m1, p1), wi));
    h = _mm256_add_epi16(h, _mm256_mullo_epi16(cur, wc));
    const __m128i oRaw = kFull ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[2] + x))
                               : _mm_loadl_epi64(reinterpret_cast<const __m128i*>(rows[2] + x));
    const __m256i o4 = _mm256_slli_epi16(_mm256_cvtepu8_epi16(oRaw), 2);
    const __m256i d = _mm256_sub_epi16(o4, _mm256_srli_epi16(h, 5));
    const __m256i e = mulShr8(d, gain);
    const __m256i c = _mm256_max_epi16(_mm256_min_epi16(e, _mm256_set1_epi16(120)), _mm256_set1_epi16(-120));
    __m256i r = _mm256_add_epi16(o4, _mm256_srai_epi16(c, 1));
    if (kThreshold) {
      const __m256i l = _mm256_min_epi16(t, _mm256_max_epi16(nt, d));
      r = _mm256_sub_epi16(r, mulShr8(l, _mm256_set1_epi16(102)));
    }
    r = _mm256_add_epi16(r, _mm256_srai_epi16(e, 1));
    r = _mm256_srai_epi16(_mm256_add_epi16(_mm256_srai_epi16(r, 1), _mm256_set1_epi16(1)), 1);
    // packus within halves: [r0-7, r0-7 | r8-15, r8-15]; qwords 0 and 2.
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(r, r), 0x08);
    if (kFull)
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm256_castsi256_si128(packed));
    else
      _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), _mm256_castsi256_si128(packed));
  }

  // Chunks of 16 over the vector part nv = 8 * (width / 8); when nv % 16
  // is 8 the last chunk is half. The vertical blur of the next chunk is
  // done before the current chunk's output; V(-1), V(-2) are V(0) and the
  // two columns past nv repeat V(nv - 1).
  template <bool kThreshold>
  void row(uint8_t* dst, int32_t nv) const {
    const int32_t full = nv / 16;
    const bool half = (nv & 8) != 0;
    __m256i cur;
    if (full > 0) {
      cur = sharpenV<true>(rows, 0, wo, wi, wc);
    } else {
      cur = sharpenV<false>(rows, 0, wo, wi, wc);
      cur = _mm256_blend_epi32(cur, broadcastLane(cur, 7), 0xF0);
    }
    __m256i prev = broadcastLane(cur, 0);
    for (int32_t k = 0; k < full; ++k) {
      const int32_t x = 16 * k;
      __m256i next;
      if (k + 1 < full) {
        next = sharpenV<true>(rows, x + 16, wo, wi, wc);
      } else if (half) {
        next = sharpenV<false>(rows, x + 16, wo, wi, wc);
        next = _mm256_blend_epi32(next, broadcastLane(next, 7), 0xF0);
      } else {
        next = broadcastLane(cur, 15);
      }
      out<kThreshold, true>(dst, x, prev, cur, next);
      prev = cur;
      cur = next;
    }
    // The half chunk: lanes 8..15 of cur already repeat V(nv - 1).
    if (half) out<kThreshold, false>(dst, 16 * full, prev, cur, cur);
  }
};

}  // namespace

void kqSharpenRow_avx2(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                       const KQSharpenParams* p) {
  const int32_t nv = width & ~7;
  if (nv > 0) {
    SharpenAvx2 s;
    s.wo = _mm256_set1_epi16(int16_t(p->wOuter));
    s.wi = _mm256_set1_epi16(int16_t(p->wInner));
    s.wc = _mm256_set1_epi16(int16_t(p->wCentre));
    s.gain = _mm256_set1_epi16(int16_t(uint16_t(p->gain)));
    s.t = _mm256_set1_epi16(int16_t(uint16_t(p->threshold)));
    s.nt = _mm256_sub_epi16(_mm256_setzero_si256(), s.t);
    for (int k = 0; k < 5; ++k) s.rows[k] = rows[k];
    if (uint16_t(p->threshold) == 0)
      s.row<false>(dst, nv);
    else
      s.row<true>(dst, nv);
  }
  for (int32_t x = nv; x < width; ++x) dst[x] = kqSharpenTailPixel(rows[2], x, p);
}
