// chroma_avx512.cpp - AVX-512 (BW, VL, VBMI) kernels of the chroma noise
// reduction: the runs of chroma_x86.h, 32 outputs per step, the bytes in a
// 256-bit register and the words in a 512-bit one. Instead of the table
// arithmetic, the weight of a difference is one byte permute (vpermt2b) of
// the whole table: the 256 weights kqChromaWeightOf gives for d = 0..255,
// built once per call. The strided loads are byte permutes as well. Runs of
// fewer than 4 blocks take the SSE4.1 steps.
#include <immintrin.h>

#include "filters/x86/chroma_x86.h"
#include "runtime/x86/vec_x86.h"

namespace {

// Index vectors of the byte permutes.
struct Index64 {
  alignas(64) uint8_t v[64];
};
constexpr Index64 makeIndex(int kind) {
  Index64 x{};
  for (int i = 0; i < 64; ++i) {
    const int j = i & 31, upper = i >> 5;
    int k = 0;
    if (kind == 0) k = 2 * j + upper;      // even bytes, then odd bytes
    if (kind == 1) k = 4 * j + 2 * upper;  // bytes 0, 4, .. then 2, 6, .. of two registers
    if (kind == 2) k = j >> 1;             // bytes 0..15, each twice
    if (kind == 3) k = 4 * (j >> 1);       // bytes 0, 4, .. 60, each twice
    if (kind == 4) k = i;                  // 0, 1, 2, ..
    x.v[i] = uint8_t(k);
  }
  return x;
}
constexpr Index64 kEvenOdd = makeIndex(0), kEvery4th = makeIndex(1), kRepeat = makeIndex(2),
                  kLumaRepeat = makeIndex(3), kIota = makeIndex(4);

inline __m512i index(const Index64& x) { return _mm512_load_si512(x.v); }

struct ChromaAvx512 {
  using V = VecAvx512;
  using H = VecAvx2;
  using B = __m256i;
  using W = KqChromaWords<V, 1>;
  static constexpr int kOut = 32;
  static constexpr int kHalves = 1;
  static constexpr bool kByteTable = true;
  using Narrow = KqChromaSse41;

  struct Tables {
    __m512i lut[4];  // weight of d at byte d
    KqChromaSse41::Tables narrow;
  };

  template <int kShift>
  static Tables load(const KQChromaPassContext* c) {
    alignas(64) uint8_t lut[256];
    for (int d = 0; d < 256; ++d)
      lut[d] = uint8_t(kqChromaWeightOf(c->weights, c->slopes, d, kShift));
    Tables t;
    for (int j = 0; j < 4; ++j) t.lut[j] = _mm512_load_si512(lut + 64 * j);
    t.narrow = KqChromaSse41::load<kShift>(c);
    return t;
  }
  static KqChromaSse41::Tables narrowTables(const Tables& t) { return t.narrow; }

  // The weight is 0 from d = 8 << kShift on: up to kShift 4 the first 128
  // entries hold every non-zero one, and d >= 128 is zeroed by the mask.
  // (The upper half of the 512-bit index is undefined; its lanes are dropped.)
  template <int kShift>
  static B weightBytes(B d, const Tables& t) {
    const __m512i i = _mm512_castsi256_si512(d);
    if constexpr (kShift <= 4) {
      const __mmask32 low = _mm256_testn_epi8_mask(d, _mm256_set1_epi8(char(0x80)));
      return _mm512_castsi512_si256(
          _mm512_maskz_permutex2var_epi8(__mmask64(low), t.lut[0], i, t.lut[1]));
    } else {
      const __m256i lo = _mm512_castsi512_si256(_mm512_permutex2var_epi8(t.lut[0], i, t.lut[1]));
      const __m256i hi = _mm512_castsi512_si256(_mm512_permutex2var_epi8(t.lut[2], i, t.lut[3]));
      return _mm256_mask_blend_epi8(_mm256_movepi8_mask(d), lo, hi);
    }
  }

  static B loadOut(const uint8_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  }
  static void storeOut(uint8_t* p, B v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

  static B even(const uint8_t* p) {
    return _mm512_castsi512_si256(_mm512_permutexvar_epi8(index(kEvenOdd), _mm512_loadu_si512(p)));
  }
  static void evenOdd(const uint8_t* p, B* e, B* o) {
    const __m512i x = _mm512_permutexvar_epi8(index(kEvenOdd), _mm512_loadu_si512(p));
    *e = _mm512_castsi512_si256(x);
    *o = _mm512_extracti64x4_epi64(x, 1);
  }
  static B every4th0(const uint8_t* p) {
    return _mm512_castsi512_si256(_mm512_permutex2var_epi8(_mm512_loadu_si512(p), index(kEvery4th),
                                                           _mm512_loadu_si512(p + 64)));
  }
  static void every4th(const uint8_t* p, B* o0, B* o2) {
    const __m512i x = _mm512_permutex2var_epi8(_mm512_loadu_si512(p), index(kEvery4th),
                                               _mm512_loadu_si512(p + 64));
    *o0 = _mm512_castsi512_si256(x);
    *o2 = _mm512_extracti64x4_epi64(x, 1);
  }
  static B repeat(const uint8_t* p) {
    const __m256i x = _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    return _mm256_permutexvar_epi8(_mm512_castsi512_si256(index(kRepeat)), x);
  }
  static B lumaRepeat(const uint8_t* p) {
    return _mm512_castsi512_si256(
        _mm512_permutexvar_epi8(index(kLumaRepeat), _mm512_loadu_si512(p)));
  }

  // Lanes moved by s (0 < s <= 32) with a byte permute; the lanes nothing
  // moves into keep their own value.
  static B shiftUp(B v, int s) {
    const __m256i iota = _mm512_castsi512_si256(index(kIota)), k = _mm256_set1_epi8(char(s));
    const __m256i from = _mm256_mask_sub_epi8(iota, _mm256_cmpge_epu8_mask(iota, k), iota, k);
    return _mm256_permutexvar_epi8(from, v);
  }
  static B shiftDown(B v, int s) {
    const __m256i iota = _mm512_castsi512_si256(index(kIota)), k = _mm256_set1_epi8(char(s));
    const __m256i from = _mm256_mask_add_epi8(
        iota, _mm256_cmplt_epu8_mask(iota, _mm256_set1_epi8(char(32 - s))), iota, k);
    return _mm256_permutexvar_epi8(from, v);
  }

  static W widen(B b) { return W{{_mm512_cvtepu8_epi16(b)}}; }
  static B narrow(const W& m) { return _mm512_cvtepi16_epi8(m.h[0]); }
  static __m512i lo32(__m512i a) { return _mm512_unpacklo_epi16(a, _mm512_setzero_si512()); }
  static __m512i hi32(__m512i a) { return _mm512_unpackhi_epi16(a, _mm512_setzero_si512()); }
  static __m512i join32(__m512i lo, __m512i hi) { return _mm512_packus_epi32(lo, hi); }
};

}  // namespace

void kqChromaDspInit_avx512(KQChromaDsp* dsp) {
  kqChromaFillPassTable<KqChromaX86<ChromaAvx512>>(dsp);
}
