// planes_sse41.cpp - SSE4.1 chroma split and merge row kernels, used by
// plane intake and output assembly.
#include <smmintrin.h>

#include "image/planes_dsp.h"

// Split, 16 pairs per step. One shuffle per 16-byte load gathers the even
// bytes into the low half and the odd bytes into the high half:
//   lo = a0 b0 .. a7 b7    -> a0..a7  | b0..b7
//   hi = a8 b8 .. a15 b15  -> a8..a15 | b8..b15
// then the 64-bit unpacks join the halves: a0..a15 and b0..b15.
// The last 0..15 pairs go one by one.
void kqSplitUVRow_sse41(uint8_t* dstEven, uint8_t* dstOdd, const uint8_t* src, int32_t pairs) {
  const __m128i gather = _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
  int32_t k = 0;
  for (; k + 16 <= pairs; k += 16) {
    const __m128i lo =
        _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * k)), gather);
    const __m128i hi = _mm_shuffle_epi8(
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * k + 16)), gather);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dstEven + k), _mm_unpacklo_epi64(lo, hi));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dstOdd + k), _mm_unpackhi_epi64(lo, hi));
  }
  kqSplitUVPairs(dstEven, dstOdd, src, k, pairs);
}

// Merge, 16 pairs per step: the byte unpacks interleave a and b,
//   unpacklo -> a0 b0 .. a7 b7,  unpackhi -> a8 b8 .. a15 b15.
void kqMergeUVRow_sse41(uint8_t* dst, const uint8_t* srcEven, const uint8_t* srcOdd,
                        int32_t pairs) {
  int32_t k = 0;
  for (; k + 16 <= pairs; k += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(srcEven + k));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(srcOdd + k));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * k), _mm_unpacklo_epi8(a, b));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * k + 16), _mm_unpackhi_epi8(a, b));
  }
  kqMergeUVPairs(dst, srcEven, srcOdd, k, pairs);
}
