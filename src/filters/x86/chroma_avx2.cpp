// chroma_avx2.cpp - AVX2 kernels of the chroma noise reduction: the runs of
// chroma_x86.h, 32 outputs per step and whole rows on planes of 64 half-size
// columns or more. The bytes of a step fill a 256-bit register, its words
// two (even outputs, odd outputs: masks and shifts rather than unpacks);
// the weight and slope lookups are pshufb as at the SSE4.1 level, on tables
// repeated in both lanes. Runs of fewer than 4 blocks take the SSE4.1 steps.
#include <immintrin.h>

#include "filters/x86/chroma_x86.h"
#include "runtime/x86/vec_x86.h"

namespace {

struct ChromaAvx2 {
  using V = VecAvx2;
  using H = VecAvx2;
  using B = __m256i;
  using W = KqChromaWords<V, 2>;
  static constexpr int kOut = 32;
  static constexpr int kHalves = 2;
  static constexpr bool kByteTable = false;
  using Narrow = KqChromaSse41;

  struct Tables {
    __m256i w;  // row 0 weights 0..7, then zeros, in both lanes
    __m256i s;  // row 0 slopes 0..7, then zeros, in both lanes
  };

  template <int kShift>
  static Tables load(const KQChromaPassContext* c) {
    const KqChromaSse41::Tables t = KqChromaSse41::load<kShift>(c);
    return Tables{_mm256_broadcastsi128_si256(t.w), _mm256_broadcastsi128_si256(t.s)};
  }
  static KqChromaSse41::Tables narrowTables(const Tables& t) {
    return KqChromaSse41::Tables{_mm256_castsi256_si128(t.w), _mm256_castsi256_si128(t.s)};
  }

  static __m256i ld(const uint8_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  }
  static B loadOut(const uint8_t* p) { return ld(p); }
  static void storeOut(uint8_t* p, B v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

  // packus of two 32-byte loads leaves the 8-byte groups in the order
  // 0, 2, 1, 3; permute4x64 0xD8 restores it.
  static B even(const uint8_t* p) {
    const __m256i m = _mm256_set1_epi16(0x00FF);
    const __m256i e =
        _mm256_packus_epi16(_mm256_and_si256(ld(p), m), _mm256_and_si256(ld(p + 32), m));
    return _mm256_permute4x64_epi64(e, 0xD8);
  }
  static void evenOdd(const uint8_t* p, B* e, B* o) {
    const __m256i a = ld(p), b = ld(p + 32);
    const __m256i m = _mm256_set1_epi16(0x00FF);
    *e = _mm256_permute4x64_epi64(
        _mm256_packus_epi16(_mm256_and_si256(a, m), _mm256_and_si256(b, m)), 0xD8);
    *o = _mm256_permute4x64_epi64(
        _mm256_packus_epi16(_mm256_srli_epi16(a, 8), _mm256_srli_epi16(b, 8)), 0xD8);
  }

  // Bytes 0, 4, .. of 128: the four loads' bytes, packed within lanes, come
  // as 4-byte groups 0, 2, 4, 6, 1, 3, 5, 7; permutevar8x32 restores them.
  static B every4th0(const uint8_t* p) {
    const __m256i m = _mm256_set1_epi32(0xFF);
    const __m256i ab =
        _mm256_packus_epi32(_mm256_and_si256(ld(p), m), _mm256_and_si256(ld(p + 32), m));
    const __m256i cd =
        _mm256_packus_epi32(_mm256_and_si256(ld(p + 64), m), _mm256_and_si256(ld(p + 96), m));
    return _mm256_permutevar8x32_epi32(_mm256_packus_epi16(ab, cd),
                                       _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  }
  // Bytes 0, 4, .. and 2, 6, .. of 128: per lane, pshufb gathers each
  // load's two sets into 4-byte groups, which unpack sorts into the two
  // results, in the group order every4th0 has.
  static void every4th(const uint8_t* p, B* o0, B* o2) {
    const __m256i mA = _mm256_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, 2, 6, 10, 14, -1, -1, -1, -1,
                                        0, 4, 8, 12, -1, -1, -1, -1, 2, 6, 10, 14, -1, -1, -1, -1);
    const __m256i mB = _mm256_setr_epi8(-1, -1, -1, -1, 0, 4, 8, 12, -1, -1, -1, -1, 2, 6, 10, 14,
                                        -1, -1, -1, -1, 0, 4, 8, 12, -1, -1, -1, -1, 2, 6, 10, 14);
    const __m256i ab =
        _mm256_or_si256(_mm256_shuffle_epi8(ld(p), mA), _mm256_shuffle_epi8(ld(p + 32), mB));
    const __m256i cd =
        _mm256_or_si256(_mm256_shuffle_epi8(ld(p + 64), mA), _mm256_shuffle_epi8(ld(p + 96), mB));
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    *o0 = _mm256_permutevar8x32_epi32(_mm256_unpacklo_epi64(ab, cd), order);
    *o2 = _mm256_permutevar8x32_epi32(_mm256_unpackhi_epi64(ab, cd), order);
  }

  // 16 half-size samples, each twice: the low 8 in lane 0, the high 8 in lane 1.
  static B repeat(const uint8_t* p) {
    const __m256i x =
        _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    return _mm256_shuffle_epi8(
        x, _mm256_setr_epi8(0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11,
                            11, 12, 12, 13, 13, 14, 14, 15, 15));
  }

  // Bytes 0, 4, .. of 64, each twice: 8-byte groups 0, 2, 1, 3 after pshufb.
  static B lumaRepeat(const uint8_t* p) {
    const __m256i mA = _mm256_setr_epi8(0, 0, 4, 4, 8, 8, 12, 12, -1, -1, -1, -1, -1, -1, -1, -1, 0,
                                        0, 4, 4, 8, 8, 12, 12, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i mB = _mm256_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 4, 4, 8, 8, 12, 12,
                                        -1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 4, 4, 8, 8, 12, 12);
    const __m256i x =
        _mm256_or_si256(_mm256_shuffle_epi8(ld(p), mA), _mm256_shuffle_epi8(ld(p + 32), mB));
    return _mm256_permute4x64_epi64(x, 0xD8);
  }

  // Lanes moved by s (0 < s <= 32) through a copy on the stack; the lanes
  // nothing moves into keep their own value. Once per row end.
  static B shiftUp(B v, int s) {
    alignas(32) uint8_t buf[64];
    _mm256_store_si256(reinterpret_cast<__m256i*>(buf), v);
    _mm256_store_si256(reinterpret_cast<__m256i*>(buf + 32), v);
    const __m256i moved = ld(buf + 32 - s);
    const __m256i keep = _mm256_cmpgt_epi8(_mm256_set1_epi8(char(s)), iota());  // lane < s
    return _mm256_blendv_epi8(moved, v, keep);
  }
  static B shiftDown(B v, int s) {
    alignas(32) uint8_t buf[64];
    _mm256_store_si256(reinterpret_cast<__m256i*>(buf), v);
    _mm256_store_si256(reinterpret_cast<__m256i*>(buf + 32), v);
    const __m256i moved = ld(buf + s);
    const __m256i keep =
        _mm256_cmpgt_epi8(iota(), _mm256_set1_epi8(char(31 - s)));  // lane + s >= 32
    return _mm256_blendv_epi8(moved, v, keep);
  }
  static __m256i iota() {
    return _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19,
                            20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
  }

  // Even and odd outputs in the two word registers, and even and odd words
  // in the two 32-bit ones: masks and shifts, no shuffles.
  static W widen(B b) {
    return W{{_mm256_and_si256(b, _mm256_set1_epi16(0xFF)), _mm256_srli_epi16(b, 8)}};
  }
  static B narrow(const W& m) { return _mm256_or_si256(m.h[0], _mm256_slli_epi16(m.h[1], 8)); }
  static __m256i lo32(__m256i a) { return _mm256_and_si256(a, _mm256_set1_epi32(0xFFFF)); }
  static __m256i hi32(__m256i a) { return _mm256_srli_epi32(a, 16); }
  static __m256i join32(__m256i lo, __m256i hi) {
    return _mm256_or_si256(lo, _mm256_slli_epi32(hi, 16));
  }
};

}  // namespace

void kqChromaDspInit_avx2(KQChromaDsp* dsp) { kqChromaFillPassTable<KqChromaX86<ChromaAvx2>>(dsp); }
