// warp_sse41.cpp - SSE4.1 row kernels of the warp stage.
//
// Per block of 8 output pixels (see warp_dsp.h for the arithmetic), in
// 16-bit lanes:
//
//   q     = f0 + off[l]                 off[l] = (l * S) >> 6, <= 224
//   pairs = unpacklo(src[base..], src[base+1..])   bytes (s[j], s[j+1])
//   LR    = pshufb(pairs, 2*idx | (2*idx+1) << 8)   idx = q >> 5
//   h     = maddubs(LR, (32 - f) | f << 8) >> 1      f = q & 31, <= 4080
//   r     = (hUp * (16 - w1) + hLo * w1) >> 8         <= 65280 before >> 8
//   out   = trunc(float(r * 5) * 0.2f + 0.5f)
//
// maddubs cannot saturate: both weights are <= 32 and the sum <= 8160.
// Blocks outside the vector bounds and the row tail go through the shared
// 32-bit lane helpers.
#include <smmintrin.h>

#include "warp/warp_dsp.h"

namespace {

inline __m128i laneOffsets(int32_t step) {
  return _mm_setr_epi16(0, int16_t(step >> 6), int16_t((2 * step) >> 6), int16_t((3 * step) >> 6),
                        int16_t((4 * step) >> 6), int16_t((5 * step) >> 6),
                        int16_t((6 * step) >> 6), int16_t((7 * step) >> 6));
}

inline __m128i loadl(const uint8_t* p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

// trunc(float(r * 5) * fifth + 0.5) for 8 u16 lanes, returned in the low
// 8 bytes. The clamp at 255 keeps cvttps away from its out-of-range value
// and never changes a result.
inline __m128i normalise8(__m128i r, __m128 fifth, __m128 half, __m128 top) {
  const __m128i r5 = _mm_mullo_epi16(r, _mm_set1_epi16(5));
  __m128 lo = _mm_cvtepi32_ps(_mm_cvtepu16_epi32(r5));
  __m128 hi = _mm_cvtepi32_ps(_mm_cvtepu16_epi32(_mm_srli_si128(r5, 8)));
  lo = _mm_min_ps(_mm_add_ps(_mm_mul_ps(lo, fifth), half), top);
  hi = _mm_min_ps(_mm_add_ps(_mm_mul_ps(hi, fifth), half), top);
  const __m128i n = _mm_packus_epi32(_mm_cvttps_epi32(lo), _mm_cvttps_epi32(hi));
  return _mm_packus_epi16(n, n);
}

}  // namespace

void kqWarpBilinearRow_sse41(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  const int32_t count = row->count, rows = row->rows;
  float p = row->x;
  int32_t start = 0;
  if (kqwarp::vectorStep(row->step)) {
    const __m128i off = laneOffsets(row->step);
    const __m128i mask31 = _mm_set1_epi16(31), v32 = _mm_set1_epi16(32);
    const __m128i pairIdx = _mm_set1_epi16(0x0202), pairBias = _mm_set1_epi16(0x0100);
    const __m128 fifth = _mm_set1_ps(kKqWarpFifth), half = _mm_set1_ps(0.5f),
                 top = _mm_set1_ps(255.0f);
    const uint8_t* s0 = row->src0;
    const uint8_t* s1 = row->src1;
    for (; start <= count - 1 - kKqWarpLumaVectorTail; start += 8) {
      int32_t base, phase;
      kqwarp::blockOrigin(p, &base, &phase);
      if (kqwarp::windowFits(base, 8, row->srcWidth)) {
        const __m128i q = _mm_add_epi16(_mm_set1_epi16(int16_t(phase)), off);
        const __m128i f = _mm_and_si128(q, mask31);
        // Byte weights (32 - f, f) per lane, and the byte pair (2i, 2i + 1)
        // that picks (s[base+i], s[base+i+1]) out of the interleaved window.
        const __m128i wts = _mm_or_si128(_mm_sub_epi16(v32, f), _mm_slli_epi16(f, 8));
        const __m128i sel = _mm_add_epi16(_mm_mullo_epi16(_mm_srli_epi16(q, 5), pairIdx), pairBias);
        const __m128i pu = _mm_unpacklo_epi8(loadl(s0 + base), loadl(s0 + base + 1));
        const __m128i pl = _mm_unpacklo_epi8(loadl(s1 + base), loadl(s1 + base + 1));
        const __m128i hu = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pu, sel), wts), 1);
        const __m128i hl = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pl, sel), wts), 1);
        // The horizontal results serve every output row of the group.
        for (int32_t r = 0; r < rows; ++r) {
          const __m128i w1 = _mm_set1_epi16(int16_t(row->w1[r]));
          const __m128i w0 = _mm_set1_epi16(int16_t(16 - row->w1[r]));
          const __m128i v =
              _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(hu, w0), _mm_mullo_epi16(hl, w1)), 8);
          _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + r * dstStride + start),
                           normalise8(v, fifth, half, top));
        }
      } else {
        for (int32_t r = 0; r < rows; ++r)
          kqwarp::bilinearLanes(dst + r * dstStride + start, row, r, base, phase, 0, 8);
      }
      p = p + row->blockStep;
    }
  }
  // Tail (and steps outside the vector range): one pixel at a time.
  for (; start < count; start += 8) {
    int32_t base, phase;
    kqwarp::blockOrigin(p, &base, &phase);
    const int32_t lanes = count - start < 8 ? count - start : 8;
    for (int32_t r = 0; r < rows; ++r)
      kqwarp::bilinearLanes(dst + r * dstStride + start, row, r, base, phase, 0, lanes);
    p = p + row->blockStep;
  }
}

void kqWarpNearestRow_sse41(uint8_t* dst, const KQWarpRow* row) {
  const int32_t count = row->count;
  float p = row->x;
  int32_t start = 0;
  if (kqwarp::vectorStep(row->step)) {
    const __m128i off = laneOffsets(row->step);
    const __m128 fifth = _mm_set1_ps(kKqWarpFifth), half = _mm_set1_ps(0.5f),
                 top = _mm_set1_ps(255.0f);
    const uint8_t* s0 = row->src0;
    for (; start <= count - 1 - kKqWarpChromaVectorTail; start += 8) {
      int32_t base, phase;
      kqwarp::blockOrigin(p, &base, &phase);
      if (kqwarp::windowFits(base, 7, row->srcWidth)) {
        const __m128i idx = _mm_srli_epi16(_mm_add_epi16(_mm_set1_epi16(int16_t(phase)), off), 5);
        const __m128i v = _mm_shuffle_epi8(loadl(s0 + base), _mm_packus_epi16(idx, idx));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + start),
                         normalise8(_mm_cvtepu8_epi16(v), fifth, half, top));
      } else {
        kqwarp::nearestLanes(dst + start, row, base, phase, 0, 8);
      }
      p = p + row->blockStep;
    }
  }
  for (; start < count; start += 8) {
    int32_t base, phase;
    kqwarp::blockOrigin(p, &base, &phase);
    const int32_t lanes = count - start < 8 ? count - start : 8;
    kqwarp::nearestLanes(dst + start, row, base, phase, 0, lanes);
    p = p + row->blockStep;
  }
}
