// warp_avx2.cpp - AVX2 bilinear row kernel of the warp stage.
//
// Same arithmetic as the SSE4.1 kernel (see warp_dsp.h and warp_sse41.cpp),
// two blocks of 8 pixels per step: block j in the low 128-bit half, block
// j + 1 in the high half, since pshufb and maddubs work within halves.
// Each block keeps its own origin (base, f0), taken from the float position
// chain p(j), p(j + 1) = p(j) + 8*D exactly as the other versions do. A
// window that leaves the row is read from a clamped copy, and a last lone
// block uses the 8-pixel SSE form, so every block of a vector-range step is
// done in vector form.
#include <immintrin.h>

#include <cstring>

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
  __m256i off, mask31, v32, pairIdx, pairBias;
};

// Horizontal pass of two blocks (u = upper-row window, l = lower-row window
// of each block, see kqwarp::blockWindow): halved Q5 interpolations of the upper and
// lower source rows, 16 u16 lanes each (<= 4080).
inline void horizontal16(const Consts& k, const uint8_t* u0, const uint8_t* l0, int32_t f0,
                         const uint8_t* u1, const uint8_t* l1, int32_t f1, __m256i* hu,
                         __m256i* hl) {
  const __m256i phase = _mm256_setr_m128i(_mm_set1_epi16(int16_t(f0)), _mm_set1_epi16(int16_t(f1)));
  const __m256i q = _mm256_add_epi16(phase, k.off);
  const __m256i f = _mm256_and_si256(q, k.mask31);
  const __m256i wts = _mm256_or_si256(_mm256_sub_epi16(k.v32, f), _mm256_slli_epi16(f, 8));
  const __m256i sel =
      _mm256_add_epi16(_mm256_mullo_epi16(_mm256_srli_epi16(q, 5), k.pairIdx), k.pairBias);
  const __m256i pu = _mm256_setr_m128i(pairs(u0), pairs(u1));
  const __m256i pl = _mm256_setr_m128i(pairs(l0), pairs(l1));
  *hu = _mm256_srli_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(pu, sel), wts), 1);
  *hl = _mm256_srli_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(pl, sel), wts), 1);
}

// Vertical blend of both blocks, as 16 bytes. The results are
// 0..255, where the normalisation of warp_dsp.h gives its input back (the
// kernel checks prove this for all 256 values), so they are packed as they
// are.
inline __m128i finish16(__m256i hu, __m256i hl, __m256i w0, __m256i w1) {
  const __m256i v = _mm256_srli_epi16(
      _mm256_add_epi16(_mm256_mullo_epi16(hu, w0), _mm256_mullo_epi16(hl, w1)), 8);
  return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

// One block in 128-bit form (the SSE4.1 arithmetic), `lanes` (1..8) pixels
// of it for all output rows.
inline void block8(const Consts& k, const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride,
                   const uint8_t* u, const uint8_t* l, int32_t phase, int32_t lanes) {
  const __m128i q = _mm_add_epi16(_mm_set1_epi16(int16_t(phase)), _mm256_castsi256_si128(k.off));
  const __m128i f = _mm_and_si128(q, _mm_set1_epi16(31));
  const __m128i wts = _mm_or_si128(_mm_sub_epi16(_mm_set1_epi16(32), f), _mm_slli_epi16(f, 8));
  const __m128i sel = _mm_add_epi16(_mm_mullo_epi16(_mm_srli_epi16(q, 5), _mm_set1_epi16(0x0202)),
                                    _mm_set1_epi16(0x0100));
  const __m128i hu = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pairs(u), sel), wts), 1);
  const __m128i hl = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pairs(l), sel), wts), 1);
  for (int32_t r = 0; r < row->rows; ++r) {
    const __m128i w1 = _mm_set1_epi16(int16_t(row->w1[r]));
    const __m128i w0 = _mm_set1_epi16(int16_t(16 - row->w1[r]));
    const __m128i v =
        _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(hu, w0), _mm_mullo_epi16(hl, w1)), 8);
    const __m128i n = _mm_packus_epi16(v, v);
    uint8_t* out = dst + r * dstStride;
    if (lanes == 8) {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out), n);
    } else {
      alignas(16) uint8_t tmp[16];
      _mm_store_si128(reinterpret_cast<__m128i*>(tmp), n);
      std::memcpy(out, tmp, size_t(lanes));
    }
  }
}

}  // namespace

void kqWarpBilinearRow_avx2(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  // Steps outside the vector range: the 32-bit lane arithmetic throughout.
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpBilinearRow_c(dst, dstStride, row);
    return;
  }
  const int32_t count = row->count, rows = row->rows, width = row->srcWidth;
  Consts k;
  const __m128i off = laneOffsets(row->step);
  k.off = _mm256_setr_m128i(off, off);
  k.mask31 = _mm256_set1_epi16(31);
  k.v32 = _mm256_set1_epi16(32);
  k.pairIdx = _mm256_set1_epi16(0x0202);
  k.pairBias = _mm256_set1_epi16(0x0100);
  __m256i w0[kKqWarpMaxRows], w1[kKqWarpMaxRows];
  for (int32_t r = 0; r < rows; ++r) {
    w1[r] = _mm256_set1_epi16(int16_t(row->w1[r]));
    w0[r] = _mm256_set1_epi16(int16_t(16 - row->w1[r]));
  }
  // Clamped copies for blocks whose window leaves the row (upper and lower
  // row of each of the two blocks).
  uint8_t edge[4][16] = {};
  const uint8_t* s0 = row->src0;
  const uint8_t* s1 = row->src1;
  float p = row->x;
  int32_t start = 0;
  for (; start + 8 < count; start += 16) {
    int32_t b0, f0, b1, f1;
    kqwarp::blockOriginFast(p, &b0, &f0);
    const float pNext = p + row->blockStep;
    kqwarp::blockOriginFast(pNext, &b1, &f1);
    p = pNext + row->blockStep;
    __m256i hu, hl;
    horizontal16(k, kqwarp::blockWindow(s0, b0, 8, width, edge[0]),
                 kqwarp::blockWindow(s1, b0, 8, width, edge[1]), f0,
                 kqwarp::blockWindow(s0, b1, 8, width, edge[2]),
                 kqwarp::blockWindow(s1, b1, 8, width, edge[3]), f1, &hu, &hl);
    if (start + 16 <= count) {
      for (int32_t r = 0; r < rows; ++r)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + r * dstStride + start),
                         finish16(hu, hl, w0[r], w1[r]));
    } else {
      // Last pair of blocks, the second one partial.
      alignas(16) uint8_t tmp[16];
      for (int32_t r = 0; r < rows; ++r) {
        _mm_store_si128(reinterpret_cast<__m128i*>(tmp), finish16(hu, hl, w0[r], w1[r]));
        std::memcpy(dst + r * dstStride + start, tmp, size_t(count - start));
      }
    }
  }
  // A last lone block of 1..8 pixels.
  if (start < count) {
    int32_t b0, f0;
    kqwarp::blockOriginFast(p, &b0, &f0);
    block8(k, row, dst + start, dstStride, kqwarp::blockWindow(s0, b0, 8, width, edge[0]),
           kqwarp::blockWindow(s1, b0, 8, width, edge[1]), f0, count - start);
  }
}
