// warp_avx2.cpp - AVX2 bilinear and interleaved nearest-sample row kernels
// of the warp stage: the rows of warp_x86.h over 256-bit registers (planned
// groups of 32 pixels, blocks of 8 two at a time). pshufb and maddubs work
// within 128-bit lanes, so each lane holds its own 16 pixels of a group, or
// its own block.
#include <immintrin.h>

#include <cstdint>

#include "runtime/x86/vec_x86.h"
#include "warp/warp_dsp.h"
#include "warp/x86/warp_x86.h"

namespace {

struct WarpAvx2 : VecAvx2 {
  // Planned groups at plain multiples of 32; the next source row is
  // prefetched.
  static constexpr bool kPrefetch = true;
  static constexpr bool kLineGroups = false;
  __attribute__((always_inline)) static R oddBytes(R even, R odd) {
    return _mm256_blendv_epi8(even, odd, _mm256_set1_epi16(int16_t(0xFF00)));
  }
  template <class F>
  __attribute__((always_inline)) static R fromLanes(F f) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(f(0)), f(1), 1);
  }
  __attribute__((always_inline)) static __m128i narrowWords(R v) {
    return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  }
};

using Bilinear = KqWarpBilinearX86<WarpAvx2, KqWarpPairGroups<WarpAvx2>>;
using NearestPairs = KqWarpNearestPairsX86<WarpAvx2>;

}  // namespace

void kqWarpBilinearRow_avx2(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  if (!Bilinear::planned(dst, dstStride, row)) Bilinear::blocks(dst, dstStride, row);
}

void kqWarpNearestPairRow_avx2(uint8_t* dst, const KQWarpRow* row, int32_t swap) {
  NearestPairs::row(dst, row, swap);
}
