// luma_avx512.cpp - AVX-512 (BW) sharpening row: the x86 row of
// sharpen_x86.h over 512-bit registers, 64 columns per step. Byte and word
// unpacks, packs and shuffles work within 128-bit lanes exactly as their
// 256-bit forms do, so the same template gives the same bytes.
#include <immintrin.h>

#include <cstdint>

#include "filters/luma_dsp.h"
#include "filters/x86/sharpen_x86.h"

namespace {

struct VecAvx512 {
  using R = __m512i;
  static constexpr int32_t kStep = 64;
  static R load(const uint8_t* p) { return _mm512_loadu_si512(p); }
  static void store(uint8_t* p, R v) { _mm512_storeu_si512(p, v); }
  static R set8(int8_t v) { return _mm512_set1_epi8(v); }
  static R set16(int16_t v) { return _mm512_set1_epi16(v); }
  static R zero() { return _mm512_setzero_si512(); }
  static R add16(R a, R b) { return _mm512_add_epi16(a, b); }
  static R sub16(R a, R b) { return _mm512_sub_epi16(a, b); }
  static R min16(R a, R b) { return _mm512_min_epi16(a, b); }
  static R max16(R a, R b) { return _mm512_max_epi16(a, b); }
  static R and_(R a, R b) { return _mm512_and_si512(a, b); }
  static R or_(R a, R b) { return _mm512_or_si512(a, b); }
  static R maddubs(R a, R b) { return _mm512_maddubs_epi16(a, b); }
  static R unlo8(R a, R b) { return _mm512_unpacklo_epi8(a, b); }
  static R unhi8(R a, R b) { return _mm512_unpackhi_epi8(a, b); }
  static R packus16(R a, R b) { return _mm512_packus_epi16(a, b); }
  static R mullo16(R a, R b) { return _mm512_mullo_epi16(a, b); }
  static R mulhi16(R a, R b) { return _mm512_mulhi_epi16(a, b); }
  static R mulhrs16(R a, R b) { return _mm512_mulhrs_epi16(a, b); }
  template <int n>
  static R srli16(R a) {
    return _mm512_srli_epi16(a, n);
  }
  template <int n>
  static R srai16(R a) {
    return _mm512_srai_epi16(a, n);
  }
  template <int n>
  static R slli16(R a) {
    return _mm512_slli_epi16(a, n);
  }
};

}  // namespace

void kqSharpenRow_avx512(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                         const KQSharpenParams* p) {
  kqSharpenRowX86<VecAvx512>(dst, rows, width, p);
}
