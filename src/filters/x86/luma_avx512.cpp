// luma_avx512.cpp - AVX-512 (BW) kernels of the luma filters: the
// noise-reduction interior row, four 16-pixel blocks per step, and the
// sharpening row (the x86 row of sharpen_x86.h over 512-bit registers, 64
// columns per step). Byte and word unpacks, packs and shuffles work within
// 128-bit lanes exactly as their 256-bit forms do, so both follow the AVX2
// kernels lane for lane and give the same bytes.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "filters/luma_dsp.h"
#include "filters/x86/nr_x86.h"
#include "filters/x86/sharpen_x86.h"
#include "runtime/x86/vec_x86.h"

namespace {

// Four 16-pixel blocks j .. j + 3 at x = 6 + 16 j, or the first 16 * n
// pixels of them (mask: the loaded and stored bytes; a masked load reads
// nothing beyond them). The taps of the blocks stay inside
// [16 j, 16 j + 16 * n + 11], the union of the blocks' own windows.
__attribute__((always_inline)) inline void nrBlocks(uint8_t* dst, const uint8_t* src,
                                                    ptrdiff_t stride, int32_t x, __mmask64 mask) {
  auto tap = [mask](const uint8_t* p) { return _mm512_maskz_loadu_epi8(mask, p); };
  _mm512_mask_storeu_epi8(dst + x, mask, KqNrX86<VecAvx512>::blocks(src, stride, x, tap));
}

}  // namespace

// 64 centres per step; the rest of the run in one step whose loads and
// stores are masked to its bytes (masked-out bytes are neither read nor
// written).
void kqLumaNrBorderRun_avx512(uint8_t* dst, const uint8_t* const* rows, int32_t x, int32_t count,
                              int32_t s) {
  auto step = [&](int32_t at, __mmask64 mask) {
    auto tap = [mask](const uint8_t* p) { return _mm512_maskz_loadu_epi8(mask, p); };
    _mm512_mask_storeu_epi8(dst + at, mask, KqNrX86<VecAvx512>::borderBlocks(rows, at, s, tap));
  };
  int32_t i = 0;
  for (; i + 64 <= count; i += 64) step(x + i, ~__mmask64{0});
  if (i < count) step(x + i, (__mmask64{1} << (count - i)) - 1);
}

// 64 columns per step, as the AVX2 row; the rest through it.
void kqLumaBlendRow_avx512(uint8_t* dst, const uint8_t* orig, int32_t width, int32_t weight) {
  const int32_t n = width & ~7;
  const __m512i w = _mm512_set1_epi16(int16_t(uint16_t(weight)));
  const __m512i iw = _mm512_set1_epi16(int16_t(uint16_t(128u - uint32_t(weight))));
  const __m512i k255 = _mm512_set1_epi16(255);
  const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
  auto blend32 = [&](const uint8_t* f8, const uint8_t* o8) {
    const __m512i f =
        _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(f8)));
    const __m512i o =
        _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(o8)));
    const __m512i v = _mm512_add_epi16(_mm512_mullo_epi16(f, w), _mm512_mullo_epi16(o, iw));
    return _mm512_min_epu16(_mm512_srli_epi16(v, 7), k255);
  };
  int32_t x = 0;
  for (; x + 64 <= n; x += 64) {
    const __m512i lo = blend32(dst + x, orig + x), hi = blend32(dst + x + 32, orig + x + 32);
    _mm512_storeu_si512(dst + x, _mm512_permutexvar_epi64(order, _mm512_packus_epi16(lo, hi)));
  }
  if (x < n) kqLumaBlendRow_avx2(dst + x, orig + x, n - x, weight);
}

void kqLumaNrRow_avx512(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t width) {
  const int32_t blocks = (width - 16) / 16;
  int32_t j = 0;
  for (; j + 4 <= blocks; j += 4) nrBlocks(dst, src, stride, 6 + 16 * j, ~__mmask64{0});
  // The last one to three blocks: 16 bytes of every tap per block.
  if (j < blocks) nrBlocks(dst, src, stride, 6 + 16 * j, (__mmask64{1} << (16 * (blocks - j))) - 1);
}

void kqSharpenRow_avx512(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                         const KQSharpenParams* p) {
  kqSharpenRowX86<VecAvx512>(dst, rows, width, p);
}
