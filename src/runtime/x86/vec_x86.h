// vec_x86.h - x86 vector traits (128, 256 and 512 bits) over which the
// filters' and the warp's x86 rows are written once.
//
// Each kernel file includes this and instantiates its rows over the traits
// of its own level. The traits live in an anonymous namespace, so every
// template instantiated over them stays inside the translation unit built
// with the matching target flags, and a level's type exists only where those
// flags allow its instructions: VecSse41 everywhere (the x86 kernel files
// are built with at least SSE4.1), VecAvx2 with AVX2, VecAvx512 with
// AVX-512 BW.
//
// Every type provides: R (the register type), F (its float form), kStep
// (bytes per register), load/store (unaligned bytes), loadA/storeA (aligned
// to the register size), set8/set16/set32/zero, add8/subsU8, add16/sub16,
// min16/max16, add32/sub32, and_/or_, maddubs, shuffle8 (pshufb: bytes
// within each 128-bit lane), unlo8/unhi8 (byte interleave within 128-bit
// lanes), packus16, mullo16, mulhi16, mulhrs16, srli16<n>/srai16<n>/
// slli16<n>, srli32<n>/slli32<n>, toFloat (int32 -> float), truncToInt
// (float -> int32, toward zero), bitsOf/floatOf (reinterpretation), setF,
// divF and mulF; and for the chroma rows addsU8/minU8 (unsigned bytes),
// unlo16/unhi16 (16-bit interleave within 128-bit lanes), packus32, addF and
// minF.
#pragma once

#if !defined(__SSE4_1__)
#error "vec_x86.h is for the x86 kernel files, built with SSE4.1 or more"
#endif

#include <immintrin.h>

#include <cstdint>

namespace {

struct VecSse41 {
  using R = __m128i;
  using F = __m128;
  static constexpr int32_t kStep = 16;
  static R load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const R*>(p)); }
  static void store(uint8_t* p, R v) { _mm_storeu_si128(reinterpret_cast<R*>(p), v); }
  static R loadA(const void* p) { return _mm_load_si128(static_cast<const R*>(p)); }
  static void storeA(void* p, R v) { _mm_store_si128(static_cast<R*>(p), v); }
  static R set8(int8_t v) { return _mm_set1_epi8(v); }
  static R set16(int16_t v) { return _mm_set1_epi16(v); }
  static R zero() { return _mm_setzero_si128(); }
  static R add16(R a, R b) { return _mm_add_epi16(a, b); }
  static R sub16(R a, R b) { return _mm_sub_epi16(a, b); }
  static R min16(R a, R b) { return _mm_min_epi16(a, b); }
  static R max16(R a, R b) { return _mm_max_epi16(a, b); }
  static R and_(R a, R b) { return _mm_and_si128(a, b); }
  static R or_(R a, R b) { return _mm_or_si128(a, b); }
  static R maddubs(R a, R b) { return _mm_maddubs_epi16(a, b); }
  static R shuffle8(R a, R idx) { return _mm_shuffle_epi8(a, idx); }
  static R unlo8(R a, R b) { return _mm_unpacklo_epi8(a, b); }
  static R unhi8(R a, R b) { return _mm_unpackhi_epi8(a, b); }
  static R packus16(R a, R b) { return _mm_packus_epi16(a, b); }
  static R mullo16(R a, R b) { return _mm_mullo_epi16(a, b); }
  static R mulhi16(R a, R b) { return _mm_mulhi_epi16(a, b); }
  static R mulhrs16(R a, R b) { return _mm_mulhrs_epi16(a, b); }
  template <int n>
  static R srli16(R a) {
    return _mm_srli_epi16(a, n);
  }
  template <int n>
  static R srai16(R a) {
    return _mm_srai_epi16(a, n);
  }
  template <int n>
  static R slli16(R a) {
    return _mm_slli_epi16(a, n);
  }
  static R set32(int32_t v) { return _mm_set1_epi32(v); }
  static R subsU8(R a, R b) { return _mm_subs_epu8(a, b); }
  static R add8(R a, R b) { return _mm_add_epi8(a, b); }
  static R add32(R a, R b) { return _mm_add_epi32(a, b); }
  static R sub32(R a, R b) { return _mm_sub_epi32(a, b); }
  template <int n>
  static R srli32(R a) {
    return _mm_srli_epi32(a, n);
  }
  template <int n>
  static R slli32(R a) {
    return _mm_slli_epi32(a, n);
  }
  static F toFloat(R a) { return _mm_cvtepi32_ps(a); }
  static R truncToInt(F a) { return _mm_cvttps_epi32(a); }
  static R bitsOf(F a) { return _mm_castps_si128(a); }
  static F floatOf(R a) { return _mm_castsi128_ps(a); }
  static F setF(float v) { return _mm_set1_ps(v); }
  static F divF(F a, F b) { return _mm_div_ps(a, b); }
  static F mulF(F a, F b) { return _mm_mul_ps(a, b); }
  static R addsU8(R a, R b) { return _mm_adds_epu8(a, b); }
  static R minU8(R a, R b) { return _mm_min_epu8(a, b); }
  static R unlo16(R a, R b) { return _mm_unpacklo_epi16(a, b); }
  static R unhi16(R a, R b) { return _mm_unpackhi_epi16(a, b); }
  static R packus32(R a, R b) { return _mm_packus_epi32(a, b); }
  static F addF(F a, F b) { return _mm_add_ps(a, b); }
  static F minF(F a, F b) { return _mm_min_ps(a, b); }
};

#if defined(__AVX2__)
struct VecAvx2 {
  using R = __m256i;
  using F = __m256;
  static constexpr int32_t kStep = 32;
  static R load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const R*>(p)); }
  static void store(uint8_t* p, R v) { _mm256_storeu_si256(reinterpret_cast<R*>(p), v); }
  static R loadA(const void* p) { return _mm256_load_si256(static_cast<const R*>(p)); }
  static void storeA(void* p, R v) { _mm256_store_si256(static_cast<R*>(p), v); }
  static R set8(int8_t v) { return _mm256_set1_epi8(v); }
  static R set16(int16_t v) { return _mm256_set1_epi16(v); }
  static R zero() { return _mm256_setzero_si256(); }
  static R add16(R a, R b) { return _mm256_add_epi16(a, b); }
  static R sub16(R a, R b) { return _mm256_sub_epi16(a, b); }
  static R min16(R a, R b) { return _mm256_min_epi16(a, b); }
  static R max16(R a, R b) { return _mm256_max_epi16(a, b); }
  static R and_(R a, R b) { return _mm256_and_si256(a, b); }
  static R or_(R a, R b) { return _mm256_or_si256(a, b); }
  static R maddubs(R a, R b) { return _mm256_maddubs_epi16(a, b); }
  static R shuffle8(R a, R idx) { return _mm256_shuffle_epi8(a, idx); }
  static R unlo8(R a, R b) { return _mm256_unpacklo_epi8(a, b); }
  static R unhi8(R a, R b) { return _mm256_unpackhi_epi8(a, b); }
  static R packus16(R a, R b) { return _mm256_packus_epi16(a, b); }
  static R mullo16(R a, R b) { return _mm256_mullo_epi16(a, b); }
  static R mulhi16(R a, R b) { return _mm256_mulhi_epi16(a, b); }
  static R mulhrs16(R a, R b) { return _mm256_mulhrs_epi16(a, b); }
  template <int n>
  static R srli16(R a) {
    return _mm256_srli_epi16(a, n);
  }
  template <int n>
  static R srai16(R a) {
    return _mm256_srai_epi16(a, n);
  }
  template <int n>
  static R slli16(R a) {
    return _mm256_slli_epi16(a, n);
  }
  static R set32(int32_t v) { return _mm256_set1_epi32(v); }
  static R subsU8(R a, R b) { return _mm256_subs_epu8(a, b); }
  static R add8(R a, R b) { return _mm256_add_epi8(a, b); }
  static R add32(R a, R b) { return _mm256_add_epi32(a, b); }
  static R sub32(R a, R b) { return _mm256_sub_epi32(a, b); }
  template <int n>
  static R srli32(R a) {
    return _mm256_srli_epi32(a, n);
  }
  template <int n>
  static R slli32(R a) {
    return _mm256_slli_epi32(a, n);
  }
  static F toFloat(R a) { return _mm256_cvtepi32_ps(a); }
  static R truncToInt(F a) { return _mm256_cvttps_epi32(a); }
  static R bitsOf(F a) { return _mm256_castps_si256(a); }
  static F floatOf(R a) { return _mm256_castsi256_ps(a); }
  static F setF(float v) { return _mm256_set1_ps(v); }
  static F divF(F a, F b) { return _mm256_div_ps(a, b); }
  static F mulF(F a, F b) { return _mm256_mul_ps(a, b); }
  static R addsU8(R a, R b) { return _mm256_adds_epu8(a, b); }
  static R minU8(R a, R b) { return _mm256_min_epu8(a, b); }
  static R unlo16(R a, R b) { return _mm256_unpacklo_epi16(a, b); }
  static R unhi16(R a, R b) { return _mm256_unpackhi_epi16(a, b); }
  static R packus32(R a, R b) { return _mm256_packus_epi32(a, b); }
  static F addF(F a, F b) { return _mm256_add_ps(a, b); }
  static F minF(F a, F b) { return _mm256_min_ps(a, b); }
};
#endif  // __AVX2__

#if defined(__AVX512BW__)
struct VecAvx512 {
  using R = __m512i;
  using F = __m512;
  static constexpr int32_t kStep = 64;
  static R load(const uint8_t* p) { return _mm512_loadu_si512(p); }
  static void store(uint8_t* p, R v) { _mm512_storeu_si512(p, v); }
  static R loadA(const void* p) { return _mm512_load_si512(p); }
  static void storeA(void* p, R v) { _mm512_store_si512(p, v); }
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
  static R shuffle8(R a, R idx) { return _mm512_shuffle_epi8(a, idx); }
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
  static R set32(int32_t v) { return _mm512_set1_epi32(v); }
  static R subsU8(R a, R b) { return _mm512_subs_epu8(a, b); }
  static R add8(R a, R b) { return _mm512_add_epi8(a, b); }
  static R add32(R a, R b) { return _mm512_add_epi32(a, b); }
  static R sub32(R a, R b) { return _mm512_sub_epi32(a, b); }
  template <int n>
  static R srli32(R a) {
    return _mm512_srli_epi32(a, n);
  }
  template <int n>
  static R slli32(R a) {
    return _mm512_slli_epi32(a, n);
  }
  static F toFloat(R a) { return _mm512_cvtepi32_ps(a); }
  static R truncToInt(F a) { return _mm512_cvttps_epi32(a); }
  static R bitsOf(F a) { return _mm512_castps_si512(a); }
  static F floatOf(R a) { return _mm512_castsi512_ps(a); }
  static F setF(float v) { return _mm512_set1_ps(v); }
  static F divF(F a, F b) { return _mm512_div_ps(a, b); }
  static F mulF(F a, F b) { return _mm512_mul_ps(a, b); }
  static R addsU8(R a, R b) { return _mm512_adds_epu8(a, b); }
  static R minU8(R a, R b) { return _mm512_min_epu8(a, b); }
  static R unlo16(R a, R b) { return _mm512_unpacklo_epi16(a, b); }
  static R unhi16(R a, R b) { return _mm512_unpackhi_epi16(a, b); }
  static R packus32(R a, R b) { return _mm512_packus_epi32(a, b); }
  static F addF(F a, F b) { return _mm512_add_ps(a, b); }
  static F minF(F a, F b) { return _mm512_min_ps(a, b); }
};
#endif  // __AVX512BW__

}  // namespace
