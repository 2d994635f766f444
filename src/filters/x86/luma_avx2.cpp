// luma_avx2.cpp - AVX2 kernels of the luma filters: the noise-reduction
// interior row and the sharpening row (the blends stay SSE4.1: they are
// bound by memory traffic).
#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "filters/luma_dsp.h"
#include "filters/x86/nr_x86.h"
#include "filters/x86/sharpen_x86.h"
#include "runtime/x86/vec_x86.h"

namespace {

// Loads 32 bytes, or 16 zero-extended ones for a single 16-pixel block.
template <bool kWide>
inline __m256i loadTap(const uint8_t* p) {
  if (kWide) return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  return _mm256_zextsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// Stores 32 filtered bytes, or the first 16 for a single block.
template <bool kWide>
inline void storeBlocks(uint8_t* p, __m256i v) {
  if (kWide)
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
  else
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(v));
}

// 32 centres (two interior blocks) or, for the last odd block, 16 of them.
// The taps of a pair of blocks j, j + 1 stay inside [16 j, 16 j + 47], the
// union of the two blocks' 32-byte windows.
template <bool kWide>
__attribute__((always_inline)) inline void nrBlocks(uint8_t* dst, const uint8_t* src,
                                                    ptrdiff_t stride, int32_t x) {
  auto tap = [](const uint8_t* p) { return loadTap<kWide>(p); };
  storeBlocks<kWide>(dst + x, KqNrX86<VecAvx2>::blocks(src, stride, x, tap));
}

// The border frame's run kernel for 32 centres at x, or 16 of them.
template <bool kWide>
__attribute__((always_inline)) inline void borderBlocks(uint8_t* dst, const uint8_t* const* rows,
                                                        int32_t x, int32_t s) {
  auto tap = [](const uint8_t* p) { return loadTap<kWide>(p); };
  storeBlocks<kWide>(dst + x, KqNrX86<VecAvx2>::borderBlocks(rows, x, s, tap));
}

}  // namespace

// 32 centres per step; a last partial step is redone ending at the run's
// end (equal bytes), runs of 16 to 31 take two 16-centre steps, shorter
// ones the scalar kernel.
void kqLumaNrBorderRun_avx2(uint8_t* dst, const uint8_t* const* rows, int32_t x, int32_t count,
                            int32_t s) {
  if (count < 16) {
    kqLumaNrBorderRun_c(dst, rows, x, count, s);
    return;
  }
  if (count < 32) {
    borderBlocks<false>(dst, rows, x, s);
    borderBlocks<false>(dst, rows, x + count - 16, s);
    return;
  }
  int32_t i = 0;
  for (; i + 32 <= count; i += 32) borderBlocks<true>(dst, rows, x + i, s);
  if (i < count) borderBlocks<true>(dst, rows, x + count - 32, s);
}

// 32 columns per step: the SSE4.1 arithmetic on 16-bit lanes, packed back
// in column order; the last 8 to 24 columns through the SSE4.1 row.
void kqLumaBlendRow_avx2(uint8_t* dst, const uint8_t* orig, int32_t width, int32_t weight) {
  const int32_t n = width & ~7;
  const __m256i w = _mm256_set1_epi16(int16_t(uint16_t(weight)));
  const __m256i iw = _mm256_set1_epi16(int16_t(uint16_t(128u - uint32_t(weight))));
  const __m256i k255 = _mm256_set1_epi16(255);
  auto blend16 = [&](const uint8_t* f8, const uint8_t* o8) {
    const __m256i f = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(f8)));
    const __m256i o = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(o8)));
    const __m256i v = _mm256_add_epi16(_mm256_mullo_epi16(f, w), _mm256_mullo_epi16(o, iw));
    return _mm256_min_epu16(_mm256_srli_epi16(v, 7), k255);
  };
  int32_t x = 0;
  for (; x + 32 <= n; x += 32) {
    const __m256i lo = blend16(dst + x, orig + x), hi = blend16(dst + x + 16, orig + x + 16);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + x),
                        _mm256_permute4x64_epi64(_mm256_packus_epi16(lo, hi), 0xD8));
  }
  if (x < n) kqLumaBlendRow_sse41(dst + x, orig + x, n - x, weight);
}

void kqLumaNrRow_avx2(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t width) {
  const int32_t blocks = (width - 16) / 16;
  int32_t j = 0;
  for (; j + 2 <= blocks; j += 2) nrBlocks<true>(dst, src, stride, 6 + 16 * j);
  if (j < blocks) nrBlocks<false>(dst, src, stride, 6 + 16 * j);
}

void kqSharpenRow_avx2(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                       const KQSharpenParams* p) {
  kqSharpenRowX86<VecAvx2>(dst, rows, width, p);
}
