// luma_avx2.cpp - AVX2 kernels of the luma filters: the noise-reduction
// interior row and the sharpening row (the blends stay SSE4.1: they are
// bound by memory traffic).
#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "filters/luma_dsp.h"

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

inline __m256i load32(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
inline void store32(uint8_t* p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

// (a * b) >> 8 of signed 16-bit lanes, truncated to 16 bits.
inline __m256i mulShr8(__m256i a, __m256i b) {
  return _mm256_or_si256(_mm256_srli_epi16(_mm256_mullo_epi16(a, b), 8),
                         _mm256_slli_epi16(_mm256_mulhi_epi16(a, b), 8));
}

// The sharpening row in two passes over chunks of columns: the vertical
// blur V of the chunk goes to a line buffer (bytes), then the horizontal
// taps are plain unaligned loads from it. Both passes take 32 columns per
// step through maddubs on interleaved byte pairs; unpacklo/hi work within
// 128-bit halves, so "lo" holds columns 0-7 | 16-23 and "hi" 8-15 | 24-31,
// and packus of (lo, hi) restores the column order.
//
// maddubs takes the weights as signed bytes: they must lie in [0, 127]
// (the driver's kernels use 7/31/52 and 19/19/52; see sharpenWeightsFit).
// With 2 * outer + 2 * inner + centre = 128 every pair sum is then at most
// 2 * 64 * 255 or 127 * 255 + 64, below the 16-bit saturation.
struct SharpenAvx2 {
  static constexpr int32_t kChunk = 2048;
  // Columns of V kept to the left of the chunk (from the previous chunk,
  // or the edge repeats): the last step of a short final chunk starts up
  // to 32 columns before the chunk and reads 2 more.
  static constexpr int32_t kLeft = 64;

  __m256i wOI, wIO, wC64;  // vertical: (r0, r1), (r3, r4), (r2, 1)
  __m256i wOO, wII, wCN;   // horizontal: (V-2, V+2), (V-1, V+1), (V0, o)
  __m256i gainK, gain, t, nt;
  // Row pointers held by value: byte stores through dst may alias the
  // caller's pointer array, which would force a reload per use.
  const uint8_t* rows[5];
  uintptr_t nextRow;  // rows[4] - rows[3], for the prefetch

  explicit SharpenAvx2(const uint8_t* const* r, const KQSharpenParams* p) {
    const int16_t wo = int16_t(p->wOuter), wi = int16_t(p->wInner), wc = int16_t(p->wCentre);
    wOI = _mm256_set1_epi16(int16_t(wo | wi << 8));
    wIO = _mm256_set1_epi16(int16_t(wi | wo << 8));
    wC64 = _mm256_set1_epi16(int16_t(wc | 64 << 8));
    wOO = _mm256_set1_epi16(int16_t(wo | wo << 8));
    wII = _mm256_set1_epi16(int16_t(wi | wi << 8));
    wCN = _mm256_set1_epi16(int16_t(wc | 0x80 << 8));  // (centre, -128)
    const int16_t g = int16_t(uint16_t(p->gain));
    gain = _mm256_set1_epi16(g);
    gainK = _mm256_set1_epi16(int16_t(uint16_t(-4 * g)));  // read only when |g| <= 8191
    t = _mm256_set1_epi16(int16_t(uint16_t(p->threshold)));
    nt = _mm256_sub_epi16(_mm256_setzero_si256(), t);
    for (int k = 0; k < 5; ++k) rows[k] = r[k];
    nextRow = reinterpret_cast<uintptr_t>(r[4]) - reinterpret_cast<uintptr_t>(r[3]);  // wraps
  }

  // V of columns x .. x + 31 into v[0 .. 31] (dst: the output row):
  // (o*(r0+r4) + i*(r1+r3) + c*r2 + 64) >> 7 <= 255.
  void vStep(uint8_t* v, const uint8_t* dst, int32_t x) const {
    const __m256i one = _mm256_set1_epi8(1);
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
    const __m256i r0 = load32(rows[0] + x), r1 = load32(rows[1] + x), r2 = load32(rows[2] + x);
    const __m256i r3 = load32(rows[3] + x), r4 = load32(rows[4] + x);
    __m256i lo = _mm256_maddubs_epi16(_mm256_unpacklo_epi8(r0, r1), wOI);
    __m256i hi = _mm256_maddubs_epi16(_mm256_unpackhi_epi8(r0, r1), wOI);
    lo = _mm256_add_epi16(lo, _mm256_maddubs_epi16(_mm256_unpacklo_epi8(r3, r4), wIO));
    hi = _mm256_add_epi16(hi, _mm256_maddubs_epi16(_mm256_unpackhi_epi8(r3, r4), wIO));
    lo = _mm256_add_epi16(lo, _mm256_maddubs_epi16(_mm256_unpacklo_epi8(r2, one), wC64));
    hi = _mm256_add_epi16(hi, _mm256_maddubs_epi16(_mm256_unpackhi_epi8(r2, one), wC64));
    store32(v, _mm256_packus_epi16(_mm256_srli_epi16(lo, 7), _mm256_srli_epi16(hi, 7)));
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
  __m256i respond(__m256i h, __m256i vo) const {
    const __m256i o = _mm256_srli_epi16(vo, 8);
    __m256i f;
    if (kSmallGain) {
      f = _mm256_mulhi_epi16(_mm256_and_si256(h, _mm256_set1_epi16(-32)), gainK);
    } else {
      const __m256i d = _mm256_sub_epi16(_mm256_setzero_si256(), _mm256_srai_epi16(h, 5));
      f = _mm256_srai_epi16(mulShr8(d, gain), 1);
    }
    const __m256i c =
        _mm256_max_epi16(_mm256_min_epi16(f, _mm256_set1_epi16(60)), _mm256_set1_epi16(-60));
    __m256i x = _mm256_add_epi16(f, c);
    if (kThreshold) {
      const __m256i d = _mm256_sub_epi16(_mm256_setzero_si256(), _mm256_srai_epi16(h, 5));
      const __m256i l = _mm256_min_epi16(t, _mm256_max_epi16(nt, d));
      x = _mm256_sub_epi16(x, _mm256_mulhi_epi16(l, _mm256_set1_epi16(102 * 256)));
    }
    if (kSmallGain) return _mm256_add_epi16(o, _mm256_mulhrs_epi16(x, _mm256_set1_epi16(8192)));
    const __m256i r = _mm256_add_epi16(_mm256_slli_epi16(o, 2), x);
    return _mm256_srai_epi16(_mm256_add_epi16(_mm256_srai_epi16(r, 1), _mm256_set1_epi16(1)), 1);
  }

  // 32 outputs at x; q points at V(x) in the line buffer.
  // h' = o*(V-2 + V+2) + i*(V-1 + V+1) + c*V0 - 128*o.
  template <bool kSmallGain, bool kThreshold>
  void outStep(uint8_t* dst, const uint8_t* q, int32_t x) const {
    const __m256i m2 = load32(q - 2), p2 = load32(q + 2), m1 = load32(q - 1), p1 = load32(q + 1);
    const __m256i v0 = load32(q), o = load32(rows[2] + x);
    const __m256i voLo = _mm256_unpacklo_epi8(v0, o), voHi = _mm256_unpackhi_epi8(v0, o);
    __m256i lo = _mm256_maddubs_epi16(_mm256_unpacklo_epi8(m2, p2), wOO);
    __m256i hi = _mm256_maddubs_epi16(_mm256_unpackhi_epi8(m2, p2), wOO);
    lo = _mm256_add_epi16(lo, _mm256_maddubs_epi16(_mm256_unpacklo_epi8(m1, p1), wII));
    hi = _mm256_add_epi16(hi, _mm256_maddubs_epi16(_mm256_unpackhi_epi8(m1, p1), wII));
    lo = _mm256_add_epi16(lo, _mm256_maddubs_epi16(voLo, wCN));
    hi = _mm256_add_epi16(hi, _mm256_maddubs_epi16(voHi, wCN));
    store32(dst + x, _mm256_packus_epi16(respond<kSmallGain, kThreshold>(lo, voLo),
                                         respond<kSmallGain, kThreshold>(hi, voHi)));
  }

  // Columns [0, nv) with nv >= 8. The rows must be readable for
  // max(nv, 32) columns (the caller pads narrower rows) and dst writable
  // as far. A final partial step of either pass is redone at end - 32,
  // which rewrites equal bytes.
  template <bool kSmallGain, bool kThreshold>
  void row(uint8_t* dst, int32_t nv) const {
    alignas(32) uint8_t buf[kLeft + kChunk + 64];
    uint8_t* const v = buf + kLeft;  // v[i] = V(x0 + i)
    for (int32_t x0 = 0; x0 < nv; x0 += kChunk) {
      const int32_t x1 = x0 + kChunk < nv ? x0 + kChunk : nv;
      // V(x1), V(x1 + 1) belong to the next chunk: one more step of V.
      const int32_t vEnd = x1 + 32 < nv ? x1 + 32 : nv;
      if (x0 > 0) std::memcpy(buf, buf + kChunk, kLeft);  // V(x0 - 64 .. x0 - 1)
      int32_t x = x0;
      for (; x + 32 <= vEnd; x += 32) vStep(v + (x - x0), dst, x);
      if (x < vEnd) {
        x = vEnd >= 32 ? vEnd - 32 : 0;
        vStep(v + (x - x0), dst, x);
      }
      if (x0 == 0) v[-1] = v[-2] = v[0];
      // V(nv), V(nv + 1) repeat V(nv - 1). On padded rows (nv < 32) the
      // repeat runs on to the end of the one step, whose extra outputs are
      // dropped but should not come from unset bytes.
      if (vEnd == nv) {
        const int32_t n = nv - x0, end = nv < 32 ? 34 : n + 2;
        for (int32_t i = n; i < end; ++i) v[i] = v[n - 1];
      }
      for (x = x0; x + 32 <= x1; x += 32) outStep<kSmallGain, kThreshold>(dst, v + (x - x0), x);
      if (x < x1) {
        x = x1 >= 32 ? x1 - 32 : 0;
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

void kqSharpenRow_avx2(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                       const KQSharpenParams* p) {
  if (!sharpenWeightsFit(p)) {
    kqSharpenRow_c(dst, rows, width, p);
    return;
  }
  const int32_t nv = width & ~7;
  if (nv >= 32) {
    SharpenAvx2(rows, p).run(dst, nv, p);
  } else if (nv > 0) {
    // 8, 16 or 24 columns: through zero-padded 32-column copies.
    alignas(32) uint8_t pad[6][32] = {};
    const uint8_t* r[5];
    for (int k = 0; k < 5; ++k) {
      std::memcpy(pad[k], rows[k], size_t(nv));
      r[k] = pad[k];
    }
    SharpenAvx2(r, p).run(pad[5], nv, p);
    std::memcpy(dst, pad[5], size_t(nv));
  }
  for (int32_t x = nv; x < width; ++x) dst[x] = kqSharpenTailPixel(rows[2], x, p);
}
