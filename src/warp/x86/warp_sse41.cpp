// warp_sse41.cpp - SSE4.1 row kernels of the warp stage: the rows of
// warp_x86.h over 128-bit registers (planned groups of 16 pixels, blocks of
// 8), and the nearest-sample rows without a plan.
#include <smmintrin.h>

#include <cstdint>

#include "runtime/x86/vec_x86.h"
#include "warp/warp_dsp.h"
#include "warp/x86/warp_x86.h"

namespace {

struct WarpSse41 : VecSse41 {
  // Planned groups at plain multiples of 16, no prefetch.
  static constexpr bool kPrefetch = false;
  static constexpr bool kLineGroups = false;
  __attribute__((always_inline)) static R oddBytes(R even, R odd) {
    return _mm_blendv_epi8(even, odd, _mm_set1_epi16(int16_t(0xFF00)));
  }
  template <class F>
  __attribute__((always_inline)) static R fromLanes(F f) {
    return f(0);
  }
  __attribute__((always_inline)) static __m128i narrowWords(R v) { return _mm_packus_epi16(v, v); }
};

using Bilinear = KqWarpBilinearX86<WarpSse41, KqWarpPairGroups<WarpSse41>>;
using Nearest = KqWarpNearestX86<WarpSse41, KqWarpSampleGroups<WarpSse41>>;
using NearestPairs = KqWarpNearestPairsX86<WarpSse41>;

}  // namespace

void kqWarpBilinearRow_sse41(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  if (!Bilinear::planned(dst, dstStride, row)) Bilinear::blocks(dst, dstStride, row);
}

// Planned rows by the groups of warp_x86.h. Other rows per block of 8
// pixels: the columns' offsets ((f0 + off[l]) >> 5) shuffle the block's
// 8-byte window, read from a clamped copy where it leaves the row.
void kqWarpNearestRow_sse41(uint8_t* dst, const KQWarpRow* row) {
  if (Nearest::planned(dst, row)) return;
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpNearestRow_c(dst, row);
    return;
  }
  const int32_t count = row->count, width = row->srcWidth;
  const __m128i off = kqWarpLaneOffsets(row->step);
  uint8_t edge[16] = {};
  float p = row->x;
  for (int32_t start = 0; start < count; start += 8) {
    int32_t base, phase;
    kqwarp::nextOrigin(row, start / 8, &p, &base, &phase);
    const uint8_t* w = kqwarp::blockWindow(row->src0, base, 7, width, edge);
    const __m128i idx = _mm_srli_epi16(_mm_add_epi16(_mm_set1_epi16(int16_t(phase)), off), 5);
    const __m128i v = _mm_shuffle_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(w)),
                                       _mm_packus_epi16(idx, idx));
    kqWarpStoreBytes(dst + start, v, count - start < 8 ? count - start : 8);
  }
}

void kqWarpNearestPairRow_sse41(uint8_t* dst, const KQWarpRow* row, int32_t swap) {
  NearestPairs::row(dst, row, swap);
}
