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
//   out   = r   (the normalisation is the identity on 0..255)
//
// maddubs cannot saturate: both weights are <= 32 and the sum <= 8160.
// Every block of a vector-range step, the row's last partial block and
// windows at the plane edges (read from a clamped copy) included, takes this
// form; other steps go through the scalar kernel.
#include <smmintrin.h>

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

// The 8 u16 results (0..255) as bytes in the low half. The normalisation
// of warp_dsp.h gives every value in 0..255 back (the kernel checks prove it
// for all 256), so the vector paths leave it out.
inline __m128i packBytes(__m128i r) { return _mm_packus_epi16(r, r); }

// Stores the low `lanes` bytes of n (all 8 when lanes is 8).
inline void storeLanes(uint8_t* dst, __m128i n, int32_t lanes) {
  if (lanes >= 8) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), n);
    return;
  }
  alignas(16) uint8_t tmp[16];
  _mm_store_si128(reinterpret_cast<__m128i*>(tmp), n);
  std::memcpy(dst, tmp, size_t(lanes));
}

}  // namespace

void kqWarpBilinearRow_sse41(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  // Steps outside the vector range: the 32-bit lane arithmetic throughout.
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpBilinearRow_c(dst, dstStride, row);
    return;
  }
  const int32_t count = row->count, rows = row->rows, width = row->srcWidth;
  const __m128i off = laneOffsets(row->step);
  const __m128i mask31 = _mm_set1_epi16(31), v32 = _mm_set1_epi16(32);
  const __m128i pairIdx = _mm_set1_epi16(0x0202), pairBias = _mm_set1_epi16(0x0100);
  uint8_t edgeU[16] = {}, edgeL[16] = {};
  const uint8_t* s0 = row->src0;
  const uint8_t* s1 = row->src1;
  float p = row->x;
  for (int32_t start = 0; start < count; start += 8) {
    int32_t base, phase;
    kqwarp::blockOriginFast(p, &base, &phase);
    p = p + row->blockStep;
    const uint8_t* u = kqwarp::blockWindow(s0, base, 8, width, edgeU);
    const uint8_t* l = kqwarp::blockWindow(s1, base, 8, width, edgeL);
    const int32_t lanes = count - start < 8 ? count - start : 8;
    const __m128i q = _mm_add_epi16(_mm_set1_epi16(int16_t(phase)), off);
    const __m128i f = _mm_and_si128(q, mask31);
    // Byte weights (32 - f, f) per lane, and the byte pair (2i, 2i + 1)
    // that picks (s[base+i], s[base+i+1]) out of the interleaved window.
    const __m128i wts = _mm_or_si128(_mm_sub_epi16(v32, f), _mm_slli_epi16(f, 8));
    const __m128i sel = _mm_add_epi16(_mm_mullo_epi16(_mm_srli_epi16(q, 5), pairIdx), pairBias);
    const __m128i pu = _mm_unpacklo_epi8(loadl(u), loadl(u + 1));
    const __m128i pl = _mm_unpacklo_epi8(loadl(l), loadl(l + 1));
    const __m128i hu = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pu, sel), wts), 1);
    const __m128i hl = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pl, sel), wts), 1);
    // The horizontal results serve every output row of the group.
    for (int32_t r = 0; r < rows; ++r) {
      const __m128i w1 = _mm_set1_epi16(int16_t(row->w1[r]));
      const __m128i w0 = _mm_set1_epi16(int16_t(16 - row->w1[r]));
      const __m128i v =
          _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(hu, w0), _mm_mullo_epi16(hl, w1)), 8);
      storeLanes(dst + r * dstStride + start, packBytes(v), lanes);
    }
  }
}

void kqWarpNearestRow_sse41(uint8_t* dst, const KQWarpRow* row) {
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpNearestRow_c(dst, row);
    return;
  }
  const int32_t count = row->count, width = row->srcWidth;
  const __m128i off = laneOffsets(row->step);
  uint8_t edge[16] = {};
  const uint8_t* s0 = row->src0;
  float p = row->x;
  for (int32_t start = 0; start < count; start += 8) {
    int32_t base, phase;
    kqwarp::blockOriginFast(p, &base, &phase);
    p = p + row->blockStep;
    const uint8_t* w = kqwarp::blockWindow(s0, base, 7, width, edge);
    const __m128i idx = _mm_srli_epi16(_mm_add_epi16(_mm_set1_epi16(int16_t(phase)), off), 5);
    const __m128i v = _mm_shuffle_epi8(loadl(w), _mm_packus_epi16(idx, idx));
    storeLanes(dst + start, v, count - start < 8 ? count - start : 8);
  }
}
