// planes_avx2.cpp - AVX2 chroma split and merge row kernels, used by plane
// intake and output assembly.
#include <immintrin.h>

#include "image/planes_dsp.h"

// Split, 32 pairs per step. Per 32-byte load s, the 16-bit words hold
// (a, b) pairs: a = s & 0x00ff, b = s >> 8. packus of two loads s0, s1
// works per 128-bit lane, giving the 64-bit quarters
//   s0.Lo | s1.Lo | s0.Hi | s1.Hi
// and the 0xD8 permute (quarters 0, 2, 1, 3) puts them back in row order.
// 16..31 remaining pairs take one SSE-width step; the last 0..15 go one by
// one.
void kqSplitUVRow_avx2(uint8_t* dstEven, uint8_t* dstOdd, const uint8_t* src, int32_t pairs) {
  const __m256i lowBytes = _mm256_set1_epi16(0x00ff);
  int32_t k = 0;
  for (; k + 32 <= pairs; k += 32) {
    const __m256i s0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * k));
    const __m256i s1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * k + 32));
    const __m256i a =
        _mm256_packus_epi16(_mm256_and_si256(s0, lowBytes), _mm256_and_si256(s1, lowBytes));
    const __m256i b = _mm256_packus_epi16(_mm256_srli_epi16(s0, 8), _mm256_srli_epi16(s1, 8));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dstEven + k), _mm256_permute4x64_epi64(a, 0xD8));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dstOdd + k), _mm256_permute4x64_epi64(b, 0xD8));
  }
  if (k + 16 <= pairs) {
    const __m128i low = _mm_set1_epi16(0x00ff);
    const __m128i s0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * k));
    const __m128i s1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * k + 16));
    const __m128i a = _mm_packus_epi16(_mm_and_si128(s0, low), _mm_and_si128(s1, low));
    const __m128i b = _mm_packus_epi16(_mm_srli_epi16(s0, 8), _mm_srli_epi16(s1, 8));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dstEven + k), a);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dstOdd + k), b);
    k += 16;
  }
  kqSplitUVPairs(dstEven, dstOdd, src, k, pairs);
}

// Merge, 32 pairs per step. The byte unpacks work per 128-bit lane:
//   lo = a0..7 x b0..7   | a16..23 x b16..23
//   hi = a8..15 x b8..15 | a24..31 x b24..31
// and the two lane permutes take (lo.Lo, hi.Lo), then (lo.Hi, hi.Hi).
// 16..31 remaining pairs take one SSE-width step, the rest go one by one.
void kqMergeUVRow_avx2(uint8_t* dst, const uint8_t* srcEven, const uint8_t* srcOdd, int32_t pairs) {
  int32_t k = 0;
  for (; k + 32 <= pairs; k += 32) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(srcEven + k));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(srcOdd + k));
    const __m256i lo = _mm256_unpacklo_epi8(a, b);
    const __m256i hi = _mm256_unpackhi_epi8(a, b);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * k),
                        _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * k + 32),
                        _mm256_permute2x128_si256(lo, hi, 0x31));
  }
  if (k + 16 <= pairs) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(srcEven + k));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(srcOdd + k));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * k), _mm_unpacklo_epi8(a, b));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * k + 16), _mm_unpackhi_epi8(a, b));
    k += 16;
  }
  kqMergeUVPairs(dst, srcEven, srcOdd, k, pairs);
}
