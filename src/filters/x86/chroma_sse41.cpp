// chroma_sse41.cpp - SSE4.1 kernels of the chroma noise reduction.
//
// Eight output pixels per step, the same arithmetic as the NEON kernels:
// differences and table indices in 8-bit lanes (pshufb looks the 16-entry
// weight and slope tables up), weights and sums in 16-bit lanes:
//   wgt = W[k] - ((S[k] * r + step / 2) >> shift),  k = min(d >> shift, 8)
//   w   = ((wV * wU) >> 8) * wY,  w = (w >> 11) + (w >> 12)
// and the mean truncate(sum / weight + 0.5) with divps, exactly as the
// scalar reference computes it. Columns outside the vector range, other
// luma ratios and guided pixels use the per-pixel code.
#include <smmintrin.h>

#include <cstring>

#include "filters/chroma_dsp.h"
#include "filters/chroma_rows.h"

namespace {

struct Tables {
  __m128i w;  // row 0 weights 0..7, then zeros
  __m128i s;  // row 0 slopes 0..7, then zeros
};

Tables loadTables(const KQChromaPassContext* c) {
  alignas(16) uint8_t w[16] = {0}, s[16] = {0};
  for (int k = 0; k < 8; ++k) {
    w[k] = c->weights[k];
    s[k] = c->slopes[k];
  }
  return Tables{_mm_load_si128(reinterpret_cast<const __m128i*>(w)),
                _mm_load_si128(reinterpret_cast<const __m128i*>(s))};
}

inline __m128i load8(const uint8_t* p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

inline __m128i load16(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// Bytes 0, 2, .., 14 (or 1, 3, .., 15) of 16 into the low 8 lanes.
inline __m128i even8(const uint8_t* p) {
  return _mm_shuffle_epi8(load16(p),
                          _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, -1, -1, -1, -1, -1, -1, -1, -1));
}
inline __m128i odd8(const uint8_t* p) {
  return _mm_shuffle_epi8(load16(p),
                          _mm_setr_epi8(1, 3, 5, 7, 9, 11, 13, 15, -1, -1, -1, -1, -1, -1, -1, -1));
}

// Bytes o, o+4, .., o+28 of 32 into the low 8 lanes (o = 0 or 2).
template <int kOffset>
inline __m128i every4th(const uint8_t* p) {
  const __m128i lo =
      _mm_shuffle_epi8(load16(p), _mm_setr_epi8(kOffset, kOffset + 4, kOffset + 8, kOffset + 12, -1,
                                                -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));
  const __m128i hi = _mm_shuffle_epi8(
      load16(p + 16), _mm_setr_epi8(-1, -1, -1, -1, kOffset, kOffset + 4, kOffset + 8, kOffset + 12,
                                    -1, -1, -1, -1, -1, -1, -1, -1));
  return _mm_or_si128(lo, hi);
}

// Four half-size samples, each repeated for the two full-size pixels it holds.
inline __m128i repeat4(const uint8_t* p) {
  int32_t v;
  std::memcpy(&v, p, 4);
  return _mm_shuffle_epi8(_mm_cvtsi32_si128(v),
                          _mm_setr_epi8(0, 0, 1, 1, 2, 2, 3, 3, -1, -1, -1, -1, -1, -1, -1, -1));
}

// Luma at the full-size positions of four half-size samples, repeated twice.
inline __m128i lumaRepeat4(const uint8_t* p) {
  return _mm_shuffle_epi8(load16(p),
                          _mm_setr_epi8(0, 0, 4, 4, 8, 8, 12, 12, -1, -1, -1, -1, -1, -1, -1, -1));
}

inline __m128i absDiff(__m128i a, __m128i b) {
  return _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a));
}

// Weights of 8 differences (low 8 bytes of d), as 16-bit lanes.
template <int kShift>
inline __m128i weightOf(__m128i d, const Tables& t) {
  // No 8-bit shift: shift 16-bit lanes and drop the bits from the neighbour.
  __m128i k = _mm_and_si128(_mm_srli_epi16(d, kShift), _mm_set1_epi8(char(0xFF >> kShift)));
  k = _mm_min_epu8(k, _mm_set1_epi8(8));
  const __m128i r = _mm_cvtepu8_epi16(_mm_and_si128(d, _mm_set1_epi8((1 << kShift) - 1)));
  const __m128i wk = _mm_cvtepu8_epi16(_mm_shuffle_epi8(t.w, k));
  const __m128i sk = _mm_cvtepu8_epi16(_mm_shuffle_epi8(t.s, k));
  // S[k] * r + step / 2 <= 255 * 31 + 16: no 16-bit overflow.
  const __m128i corr = _mm_srli_epi16(
      _mm_add_epi16(_mm_mullo_epi16(sk, r), _mm_set1_epi16(1 << (kShift - 1))), kShift);
  return _mm_sub_epi16(wk, corr);
}

struct Acc {
  __m128i w, u, v;
};

inline Acc accStart(int weight) {
  return Acc{_mm_set1_epi16(short(weight)), _mm_setzero_si128(), _mm_setzero_si128()};
}

template <int kShift, int kLumaGain = 0>
inline void addTap(Acc* a, const Tables& t, __m128i cY, __m128i cU, __m128i cV, __m128i tY,
                   __m128i tU, __m128i tV) {
  // min(|dY| << gain, 255) by saturating doublings (no 8-bit shifts).
  __m128i dY = absDiff(cY, tY);
  for (int i = 0; i < kLumaGain; ++i) dY = _mm_adds_epu8(dY, dY);
  const __m128i wY = weightOf<kShift>(dY, t);
  const __m128i wU = weightOf<kShift>(absDiff(cU, tU), t);
  const __m128i wV = weightOf<kShift>(absDiff(cV, tV), t);
  __m128i p = _mm_srli_epi16(_mm_mullo_epi16(wV, wU), 8);  // <= 254
  p = _mm_mullo_epi16(p, wY);                              // <= 64770, unsigned
  const __m128i w = _mm_add_epi16(_mm_srli_epi16(p, 11), _mm_srli_epi16(p, 12));
  a->w = _mm_add_epi16(a->w, w);
  a->u = _mm_add_epi16(a->u, _mm_mullo_epi16(w, _mm_cvtepu8_epi16(tU)));
  a->v = _mm_add_epi16(a->v, _mm_mullo_epi16(w, _mm_cvtepu8_epi16(tV)));
}

inline __m128i mean4(__m128i sum, __m128i weight) {
  __m128 q = _mm_div_ps(_mm_cvtepi32_ps(sum), _mm_cvtepi32_ps(weight));
  q = _mm_add_ps(q, _mm_set1_ps(0.5f));
  q = _mm_min_ps(q, _mm_set1_ps(255.0f));
  return _mm_cvttps_epi32(q);
}

// 8 means from 32-bit sums (lo: lanes 0..3, hi: 4..7) and 16-bit weights.
inline __m128i mean8(__m128i sumLo, __m128i sumHi, __m128i weight) {
  const __m128i lo = mean4(sumLo, _mm_cvtepu16_epi32(weight));
  const __m128i hi = mean4(sumHi, _mm_cvtepu16_epi32(_mm_srli_si128(weight, 8)));
  return _mm_packus_epi16(_mm_packus_epi32(lo, hi), _mm_setzero_si128());
}

inline __m128i mean8(__m128i sum, __m128i weight) {
  return mean8(_mm_cvtepu16_epi32(sum), _mm_cvtepu16_epi32(_mm_srli_si128(sum, 8)), weight);
}

inline __m128i lo32(__m128i a) { return _mm_cvtepu16_epi32(a); }
inline __m128i hi32(__m128i a) { return _mm_cvtepu16_epi32(_mm_srli_si128(a, 8)); }

inline void store8(uint8_t* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }

// Pass 1: outputs x0..x0+7 of half-size row y (full-size columns
// 2*x0..2*x0+15); block and far sums kept apart (each <= 46920).
template <int kShift>
inline void pass1Block(const KQChromaPassContext* c, const Tables& t, int x0, int y, int yUp,
                       int yDown) {
  const size_t w = size_t(c->chromaWidth), lw = size_t(c->lumaWidth);
  const int M = c->margin;
  const int X0 = 2 * x0, Y = 2 * y;
  const uint8_t* lumaY = c->luma + size_t(2 * Y) * lw + 2 * X0;
  const uint8_t* lumaY1 = lumaY + 2 * lw;
  const uint8_t* lumaUp = c->luma + size_t(2 * yUp) * lw + 2 * X0;
  const uint8_t* lumaDown = c->luma + size_t(2 * yDown) * lw + 2 * X0;
  const size_t row = size_t(Y) * w + X0;
  const __m128i cU = even8(c->srcU + row), cV = even8(c->srcV + row);
  const __m128i cY = every4th<0>(lumaY);

  Acc block = accStart(1);
  addTap<kShift>(&block, t, cY, cU, cV, cY, even8(c->inU + row), even8(c->inV + row));
  addTap<kShift>(&block, t, cY, cU, cV, every4th<2>(lumaY), odd8(c->inU + row), odd8(c->inV + row));
  addTap<kShift>(&block, t, cY, cU, cV, every4th<0>(lumaY1), even8(c->inU + row + w),
                 even8(c->inV + row + w));
  addTap<kShift>(&block, t, cY, cU, cV, every4th<2>(lumaY1), odd8(c->inU + row + w),
                 odd8(c->inV + row + w));

  Acc far = accStart(0);
  const size_t up = size_t(yUp) * w + X0, down = size_t(yDown) * w + X0;
  addTap<kShift>(&far, t, cY, cU, cV, every4th<0>(lumaUp), even8(c->inU + up), even8(c->inV + up));
  addTap<kShift>(&far, t, cY, cU, cV, every4th<0>(lumaY - 2 * M), even8(c->inU + row - M),
                 even8(c->inV + row - M));
  addTap<kShift>(&far, t, cY, cU, cV, every4th<0>(lumaY + 2 * M), even8(c->inU + row + M),
                 even8(c->inV + row + M));
  addTap<kShift>(&far, t, cY, cU, cV, every4th<0>(lumaDown), even8(c->inU + down),
                 even8(c->inV + down));

  const __m128i weight = _mm_add_epi16(block.w, far.w);
  const size_t o = size_t(y) * (w / 2) + x0;
  store8(c->outU + o, mean8(_mm_add_epi32(lo32(block.u), lo32(far.u)),
                            _mm_add_epi32(hi32(block.u), hi32(far.u)), weight));
  store8(c->outV + o, mean8(_mm_add_epi32(lo32(block.v), lo32(far.v)),
                            _mm_add_epi32(hi32(block.v), hi32(far.v)), weight));
}

// Pass 2: outputs x0..x0+7 of half-size row y.
template <int kShift>
inline void pass2Block(const KQChromaPassContext* c, const Tables& t, int x0, int y, int yUp,
                       int yDown) {
  const size_t w = size_t(c->chromaWidth), wh = w / 2, lw = size_t(c->lumaWidth);
  const int m = c->margin / 2;
  const uint8_t* lumaY = c->luma + size_t(4 * y) * lw + 4 * x0;
  const uint8_t* lumaUp = c->luma + size_t(4 * yUp) * lw + 4 * x0;
  const uint8_t* lumaDown = c->luma + size_t(4 * yDown) * lw + 4 * x0;
  const size_t src = size_t(2 * y) * w + 2 * x0;
  const __m128i cU = even8(c->srcU + src), cV = even8(c->srcV + src);
  const __m128i cY = every4th<0>(lumaY);
  const size_t at = size_t(y) * wh + x0, up = size_t(yUp) * wh + x0, down = size_t(yDown) * wh + x0;
  Acc a = accStart(1);
  addTap<kShift>(&a, t, cY, cU, cV, every4th<0>(lumaUp), load8(c->inU + up), load8(c->inV + up));
  addTap<kShift>(&a, t, cY, cU, cV, every4th<0>(lumaY - 4 * m), load8(c->inU + at - m),
                 load8(c->inV + at - m));
  addTap<kShift>(&a, t, cY, cU, cV, cY, load8(c->inU + at), load8(c->inV + at));
  addTap<kShift>(&a, t, cY, cU, cV, every4th<0>(lumaY + 4 * m), load8(c->inU + at + m),
                 load8(c->inV + at + m));
  addTap<kShift>(&a, t, cY, cU, cV, every4th<0>(lumaDown), load8(c->inU + down),
                 load8(c->inV + down));
  store8(c->outU + at, mean8(a.u, a.w));
  store8(c->outV + at, mean8(a.v, a.w));
}

// Pass 3: full-size outputs 2*hx0..2*hx0+7 of row Y; the source bytes are
// loaded before the stores to the same addresses (in-place use).
template <int kShift>
inline void pass3Block(const KQChromaPassContext* c, const Tables& t, int hx0, int Y, int yUp,
                       int y, int yDown) {
  const size_t w = size_t(c->chromaWidth), wh = w / 2, lw = size_t(c->lumaWidth);
  const int X0 = 2 * hx0;
  const size_t at = size_t(Y) * w + X0;
  const __m128i cU = load8(c->srcU + at), cV = load8(c->srcV + at);
  const __m128i cY = even8(c->luma + size_t(2 * Y) * lw + 2 * X0);
  const uint8_t* lumaY = c->luma + size_t(4 * y) * lw + 4 * hx0;
  const uint8_t* lumaUp = c->luma + size_t(4 * yUp) * lw + 4 * hx0;
  const uint8_t* lumaDown = c->luma + size_t(4 * yDown) * lw + 4 * hx0;
  const size_t mid = size_t(y) * wh + hx0, up = size_t(yUp) * wh + hx0,
               down = size_t(yDown) * wh + hx0;
  Acc a{_mm_set1_epi16(1), _mm_cvtepu8_epi16(cU), _mm_cvtepu8_epi16(cV)};  // own colour, weight 1
  addTap<kShift, kKqChromaPass3LumaGain>(&a, t, cY, cU, cV, lumaRepeat4(lumaUp),
                                         repeat4(c->inU + up), repeat4(c->inV + up));
  addTap<kShift, kKqChromaPass3LumaGain>(&a, t, cY, cU, cV, lumaRepeat4(lumaY - 4),
                                         repeat4(c->inU + mid - 1), repeat4(c->inV + mid - 1));
  addTap<kShift, kKqChromaPass3LumaGain>(&a, t, cY, cU, cV, lumaRepeat4(lumaY),
                                         repeat4(c->inU + mid), repeat4(c->inV + mid));
  addTap<kShift, kKqChromaPass3LumaGain>(&a, t, cY, cU, cV, lumaRepeat4(lumaY + 4),
                                         repeat4(c->inU + mid + 1), repeat4(c->inV + mid + 1));
  addTap<kShift, kKqChromaPass3LumaGain>(&a, t, cY, cU, cV, lumaRepeat4(lumaDown),
                                         repeat4(c->inU + down), repeat4(c->inV + down));
  store8(c->outU + at, mean8(a.u, a.w));
  store8(c->outV + at, mean8(a.v, a.w));
}

struct Sse41Blocks {
  static constexpr bool kVector = true;
  using Tables = ::Tables;
  static Tables load(const KQChromaPassContext* c) { return loadTables(c); }
  template <int kShift>
  static void pass1(const KQChromaPassContext* c, const Tables& t, int x0, int y, int yUp,
                    int yDown) {
    pass1Block<kShift>(c, t, x0, y, yUp, yDown);
  }
  template <int kShift>
  static void pass2(const KQChromaPassContext* c, const Tables& t, int x0, int y, int yUp,
                    int yDown) {
    pass2Block<kShift>(c, t, x0, y, yUp, yDown);
  }
  template <int kShift>
  static void pass3(const KQChromaPassContext* c, const Tables& t, int hx0, int Y, int yUp, int y,
                    int yDown) {
    pass3Block<kShift>(c, t, hx0, Y, yUp, y, yDown);
  }
};

}  // namespace

void kqChromaDspInit_sse41(KQChromaDsp* dsp) { kqChromaFillPassTable<Sse41Blocks>(dsp); }
