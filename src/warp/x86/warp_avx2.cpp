// warp_avx2.cpp - AVX2 bilinear row kernel of the warp stage.
//
// Same arithmetic as the SSE4.1 kernel (see warp_dsp.h and warp_sse41.cpp),
// two blocks of 8 pixels per step: block j in the low 128-bit half, block
// j + 1 in the high half, since pshufb and maddubs work within halves.
// Each block keeps its own origin (base, f0), taken from the float position
// chain p(j), p(j + 1) = p(j) + 8*D exactly as the other versions do. A
// block that cannot take the vector path (window outside the row, or a lone
// block before the tail threshold) uses the 8-pixel SSE form or the shared
// 32-bit lane helpers.
#include <immintrin.h>

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

// (s[base + i], s[base + i + 1]) byte pairs for i = 0..7.
inline __m128i pairs(const uint8_t* s) { return _mm_unpacklo_epi8(loadl(s), loadl(s + 1)); }

struct Consts {
  __m256i off, mask31, v32, pairIdx, pairBias, five;
  __m256 fifth, half, top;
  __m256i order;
};

// Horizontal pass of two blocks: halved Q5 interpolations of the upper and
// lower source rows, 16 u16 lanes each (<= 4080).
inline void horizontal16(const Consts& k, const uint8_t* s0, const uint8_t* s1, int32_t b0,
                         int32_t f0, int32_t b1, int32_t f1, __m256i* hu, __m256i* hl) {
  const __m256i phase = _mm256_setr_m128i(_mm_set1_epi16(int16_t(f0)), _mm_set1_epi16(int16_t(f1)));
  const __m256i q = _mm256_add_epi16(phase, k.off);
  const __m256i f = _mm256_and_si256(q, k.mask31);
  const __m256i wts = _mm256_or_si256(_mm256_sub_epi16(k.v32, f), _mm256_slli_epi16(f, 8));
  const __m256i sel =
      _mm256_add_epi16(_mm256_mullo_epi16(_mm256_srli_epi16(q, 5), k.pairIdx), k.pairBias);
  const __m256i pu = _mm256_setr_m128i(pairs(s0 + b0), pairs(s0 + b1));
  const __m256i pl = _mm256_setr_m128i(pairs(s1 + b0), pairs(s1 + b1));
  *hu = _mm256_srli_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(pu, sel), wts), 1);
  *hl = _mm256_srli_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(pl, sel), wts), 1);
}

// Vertical blend, normalisation and a 16-byte store of both blocks.
inline void finish16(const Consts& k, __m256i hu, __m256i hl, __m256i w0, __m256i w1,
                     uint8_t* dst) {
  const __m256i v = _mm256_srli_epi16(
      _mm256_add_epi16(_mm256_mullo_epi16(hu, w0), _mm256_mullo_epi16(hl, w1)), 8);
  const __m256i r5 = _mm256_mullo_epi16(v, k.five);
  __m256 lo = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(r5)));
  __m256 hi = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(r5, 1)));
  // trunc(float(r * 5) * fifth + 0.5); the clamp at 255 never changes a
  // value and keeps cvttps in range.
  lo = _mm256_min_ps(_mm256_add_ps(_mm256_mul_ps(lo, k.fifth), k.half), k.top);
  hi = _mm256_min_ps(_mm256_add_ps(_mm256_mul_ps(hi, k.fifth), k.half), k.top);
  // packs work per half: dwords come out as a0-3 b0-3 | a4-7 b4-7 (a = first
  // block); one permute puts the 16 bytes in order.
  const __m256i n16 = _mm256_packus_epi32(_mm256_cvttps_epi32(lo), _mm256_cvttps_epi32(hi));
  const __m256i n8 = _mm256_packus_epi16(n16, n16);
  const __m256i ordered = _mm256_permutevar8x32_epi32(n8, k.order);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(ordered));
}

// One block in 128-bit form (the SSE4.1 arithmetic), for all output rows.
inline void block8(const Consts& k, const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride,
                   int32_t base, int32_t phase) {
  const __m128i q = _mm_add_epi16(_mm_set1_epi16(int16_t(phase)), _mm256_castsi256_si128(k.off));
  const __m128i f = _mm_and_si128(q, _mm_set1_epi16(31));
  const __m128i wts = _mm_or_si128(_mm_sub_epi16(_mm_set1_epi16(32), f), _mm_slli_epi16(f, 8));
  const __m128i sel = _mm_add_epi16(_mm_mullo_epi16(_mm_srli_epi16(q, 5), _mm_set1_epi16(0x0202)),
                                    _mm_set1_epi16(0x0100));
  const __m128i hu =
      _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pairs(row->src0 + base), sel), wts), 1);
  const __m128i hl =
      _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pairs(row->src1 + base), sel), wts), 1);
  for (int32_t r = 0; r < row->rows; ++r) {
    const __m128i w1 = _mm_set1_epi16(int16_t(row->w1[r]));
    const __m128i w0 = _mm_set1_epi16(int16_t(16 - row->w1[r]));
    const __m128i v =
        _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(hu, w0), _mm_mullo_epi16(hl, w1)), 8);
    const __m128i r5 = _mm_mullo_epi16(v, _mm_set1_epi16(5));
    const __m256 x = _mm256_min_ps(
        _mm256_add_ps(_mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(r5)), k.fifth),
                      k.half),
        k.top);
    const __m256i n = _mm256_cvttps_epi32(x);
    const __m128i n16 = _mm_packus_epi32(_mm256_castsi256_si128(n), _mm256_extracti128_si256(n, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + r * dstStride), _mm_packus_epi16(n16, n16));
  }
}

}  // namespace

void kqWarpBilinearRow_avx2(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  const int32_t count = row->count, rows = row->rows;
  const int32_t lastVectorStart = count - 1 - kKqWarpLumaVectorTail;
  float p = row->x;
  int32_t start = 0;
  if (kqwarp::vectorStep(row->step)) {
    Consts k;
    const __m128i off = laneOffsets(row->step);
    k.off = _mm256_setr_m128i(off, off);
    k.mask31 = _mm256_set1_epi16(31);
    k.v32 = _mm256_set1_epi16(32);
    k.pairIdx = _mm256_set1_epi16(0x0202);
    k.pairBias = _mm256_set1_epi16(0x0100);
    k.five = _mm256_set1_epi16(5);
    k.fifth = _mm256_set1_ps(kKqWarpFifth);
    k.half = _mm256_set1_ps(0.5f);
    k.top = _mm256_set1_ps(255.0f);
    k.order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    __m256i w0[kKqWarpMaxRows], w1[kKqWarpMaxRows];
    for (int32_t r = 0; r < rows; ++r) {
      w1[r] = _mm256_set1_epi16(int16_t(row->w1[r]));
      w0[r] = _mm256_set1_epi16(int16_t(16 - row->w1[r]));
    }
    const int32_t width = row->srcWidth;
    while (start <= lastVectorStart) {
      int32_t b0, f0;
      kqwarp::blockOrigin(p, &b0, &f0);
      const float pNext = p + row->blockStep;
      const bool fit0 = kqwarp::windowFits(b0, 8, width);
      if (start + 8 <= lastVectorStart && fit0) {
        int32_t b1, f1;
        kqwarp::blockOrigin(pNext, &b1, &f1);
        if (kqwarp::windowFits(b1, 8, width)) {
          __m256i hu, hl;
          horizontal16(k, row->src0, row->src1, b0, f0, b1, f1, &hu, &hl);
          for (int32_t r = 0; r < rows; ++r)
            finish16(k, hu, hl, w0[r], w1[r], dst + r * dstStride + start);
          p = pNext + row->blockStep;
          start += 16;
          continue;
        }
      }
      // A single block: vector form when its window fits, else lane by lane.
      if (fit0) {
        block8(k, row, dst + start, dstStride, b0, f0);
      } else {
        for (int32_t r = 0; r < rows; ++r)
          kqwarp::bilinearLanes(dst + r * dstStride + start, row, r, b0, f0, 0, 8);
      }
      p = pNext;
      start += 8;
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
