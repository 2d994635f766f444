// chroma_neon.cpp - NEON kernels of the chroma noise reduction (armv7 and
// aarch64, one source).
//
// The weights are computed in 8-bit lanes. Per tap and lane:
//   d   = |centre - tap|                        (u8, vabd)
//   k   = d >> shift, r = d & (step - 1)
//   wgt = W[k] - ((S[k] * r + step / 2) >> shift)
//                                               (W, S: 16-entry tables, 0 from
//                                                8 on; a look-up past 15 gives 0)
//   h   = ((wV * wU) >> 8) * wY >> 8            (high bytes of u16 products)
//   w   = (h >> 3) + (h >> 4)                   (= (p >> 11) + (p >> 12) of the
//                                                product p, <= 46)
//   sum += w (u8: at most 1 + 5 * 46 = 231), sumU += w * tapU, sumV += w * tapV
//                                               (u16: at most 58905)
// and the means truncate(sum / weight + 0.5) from one reciprocal of each
// weight that U and V share (meanQuad). Pass 1 has 8 taps: its block and far
// taps keep sums of their own (each within the bounds above).
//
// A step makes 16 outputs in q registers (type Q) or 8 in d registers
// (type D). aarch64 takes 16 throughout; armv7, with half the registers,
// takes 8 inside a row and 16 only for a row's first and last steps, whose
// clamped far taps come from moving the centre vectors of their own lanes.
// Where the plane is wide enough (wholeRows) the whole row is vector code;
// otherwise the runs are the blocks of 8 inside the margins (chroma_rows.h)
// and runs shorter than a step take the per-pixel code.
#include <arm_neon.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "filters/chroma_dsp.h"
#include "filters/chroma_rows.h"

namespace {

// Everything below is inlined into the pass steps: the taps pass their
// vectors in registers, not through memory.
#define KQ_INLINE inline __attribute__((always_inline))

// A 16-entry byte table (indices past 15 give 0 in every look-up).
#if defined(__aarch64__)
using Table = uint8x16_t;
KQ_INLINE Table tableOf(const uint8_t* t) { return vld1q_u8(t); }
#else
using Table = uint8x8x2_t;
KQ_INLINE Table tableOf(const uint8_t* t) {
  Table r;
  r.val[0] = vld1_u8(t);
  r.val[1] = vld1_u8(t + 8);
  return r;
}
#endif

// The per-call tables, as bytes (each run loads what its weights need): row
// 0 of the weights and slopes (entries 8..15 zero); the difference from
// which on every weight is at most 8 (reach); the weight of each difference
// below 128 (lut) and of each pass-3 luma difference d below 32, counted
// min(255, 4 d) (lutLuma), which the look-ups use where reach <= 128 (the
// luma weights are then at most 8 from 32 on); the weight of a tap equal to
// the centre (every difference 0).
//
// A weight of at most 8 weighs as 0. A tap weighs w = (h >> 3) + (h >> 4)
// with h = (uv * wY) >> 8 and uv = (wV * wU) >> 8 <= 254: w > 0 needs
// h >= 8, so uv * wY >= 2048, so wY >= 9 (8 * 254 < 2048) and uv >= 9
// (8 * 255 < 2048), so wV * wU >= 2304 and each of wV, wU >= 10. The
// look-ups may therefore give 0 for any weight up to 8, and end where every
// weight left is one of those.
struct Tables {
  uint8_t w[16], s[16];
  uint8_t lut[128];
  uint8_t lutLuma[32];
  int reach;
  uint8_t centreWeight;
};

// The largest weight that weighs as 0 (see Tables).
constexpr int kKqNoWeight = 8;

template <int kShift>
Tables loadTables(const KQChromaPassContext* c) {
  Tables t;
  std::memset(&t, 0, sizeof t);
  for (int k = 0; k < 8; ++k) {
    t.w[k] = c->weights[k];
    t.s[k] = c->slopes[k];
  }
  uint8_t all[256];
  int reach = 0;  // every difference from here on weighs as 0
  for (int d = 0; d < 256; ++d) {
    all[d] = uint8_t(kqChromaWeightOf(c->weights, c->slopes, d, kShift));
    if (all[d] > kKqNoWeight) reach = d + 1;
  }
  // The luma weights weigh as 0 from 32 on exactly when these do from 128 on.
  t.reach = reach;
  std::memcpy(t.lut, all, sizeof t.lut);
  for (int d = 0; d < 32; ++d) {
    const int g = d << kKqChromaPass3LumaGain;
    t.lutLuma[d] = all[g > 255 ? 255 : g];
  }
  const int w0 = c->weights[0];  // the table weight of d = 0
  const int32_t p = ((w0 * w0) >> 8) * w0;
  t.centreWeight = uint8_t((p >> 11) + (p >> 12));
  return t;
}

// Means truncate(sum / weight + 0.5) of 4 lanes from r, the reciprocal of the
// weight, for weight <= 369 and sum <= 255 * weight: the exact quotient
// floor((2 sum + weight) / (2 weight)), which the reference's float mean is
// (see kqChromaMean). The quotient sum / weight lies at least 1 / (2 weight)
// from every half other than its own, so an error smaller than that cannot
// move it across one:
//  - armv7, without a vector division, refines the reciprocal estimate twice
//    (r within a relative 2^-21 of 1 / weight) and truncates
//    sum * r + (0.5 + 2^-11): the product is within 2^-13 of sum / weight, so
//    the bias keeps a whole result above its integer and 2^-11 + 2^-13 stays
//    below 1 / (2 weight);
//  - aarch64 divides once for r = (1 + 2^-19) / weight and rounds the product
//    to the nearest integer: sum * r lies above sum / weight by a relative
//    2^-19 less the rounding errors (2^-23), so a quotient with a half rounds
//    up as the reference's does, and by at most (sum / weight) * 2^-18, which
//    is below 1 / (2 weight) as sum < 2^17.
KQ_INLINE float32x4_t reciprocal(float32x4_t w) {
#if defined(__aarch64__)
  return vdivq_f32(vdupq_n_f32(1.0f + 1.0f / 524288.0f), w);
#else
  float32x4_t r = vrecpeq_f32(w);
  r = vmulq_f32(vrecpsq_f32(w, r), r);
  return vmulq_f32(vrecpsq_f32(w, r), r);
#endif
}

KQ_INLINE uint32x4_t meanQuad(uint32x4_t sum, float32x4_t r) {
#if defined(__aarch64__)
  return vcvtnq_u32_f32(vmulq_f32(vcvtq_f32_u32(sum), r));
#else
  // vmla.f32 rounds the product before the add (it is not fused): the same
  // two roundings as a multiply and an add.
  const float32x4_t bias = vdupq_n_f32(0.5f + 1.0f / 2048.0f);
  return vcvtq_u32_f32(vmlaq_f32(bias, vcvtq_f32_u32(sum), r));
#endif
}

// Reciprocals of 8 weights (u16), lanes 0..3 and 4..7.
struct Recip8 {
  float32x4_t lo, hi;
};
KQ_INLINE Recip8 recip8(uint16x8_t w) {
  return Recip8{reciprocal(vcvtq_f32_u32(vmovl_u16(vget_low_u16(w)))),
                reciprocal(vcvtq_f32_u32(vmovl_u16(vget_high_u16(w))))};
}

// The low halves of 32-bit (16-bit) values that fit them.
KQ_INLINE uint16x8_t narrow32(uint32x4_t lo, uint32x4_t hi) {
#if defined(__aarch64__)
  return vuzp1q_u16(vreinterpretq_u16_u32(lo), vreinterpretq_u16_u32(hi));
#else
  return vcombine_u16(vmovn_u32(lo), vmovn_u32(hi));
#endif
}

// Means of 8 lanes: 32-bit sums, or 16-bit ones.
KQ_INLINE uint16x8_t mean8(uint32x4_t sumLo, uint32x4_t sumHi, const Recip8& r) {
  return narrow32(meanQuad(sumLo, r.lo), meanQuad(sumHi, r.hi));
}
KQ_INLINE uint16x8_t mean8(uint16x8_t sum, const Recip8& r) {
  return mean8(vmovl_u16(vget_low_u16(sum)), vmovl_u16(vget_high_u16(sum)), r);
}
// The same for the sum of two 16-bit sums (pass 1's block and far taps).
KQ_INLINE uint16x8_t mean8(uint16x8_t a, uint16x8_t b, const Recip8& r) {
  return mean8(vaddl_u16(vget_low_u16(a), vget_low_u16(b)),
               vaddl_u16(vget_high_u16(a), vget_high_u16(b)), r);
}

// Sixteen lanes in q registers.
struct Q {
  static constexpr int kOut = 16;
  using B = uint8x16_t;
  struct Words {
    uint16x8_t lo, hi;
  };
  struct Recip {
    Recip8 lo, hi;
  };

  static KQ_INLINE B dup(uint8_t v) { return vdupq_n_u8(v); }
  static KQ_INLINE B abd(B a, B b) { return vabdq_u8(a, b); }
  template <int n>
  static KQ_INLINE B qshl(B a) {
    return vqshlq_n_u8(a, n);
  }
  template <int n>
  static KQ_INLINE B shr(B a) {
    return vshrq_n_u8(a, n);
  }
  template <int n>
  static KQ_INLINE B shl(B a) {
    return vshlq_n_u8(a, n);
  }
  template <int n>
  static KQ_INLINE B sra(B acc, B a) {
    return vsraq_n_u8(acc, a, n);
  }
  static KQ_INLINE B add(B a, B b) { return vaddq_u8(a, b); }
  static KQ_INLINE B sub(B a, B b) { return vsubq_u8(a, b); }
  static KQ_INLINE B lookup(const Table& t, B i) {
#if defined(__aarch64__)
    return vqtbl1q_u8(t, i);
#else
    return vcombine_u8(vtbl2_u8(t, vget_low_u8(i)), vtbl2_u8(t, vget_high_u8(i)));
#endif
  }
#if defined(__aarch64__)
  // Look-ups of the weights of differences below 64 (lo), below 80, 96 or
  // 128 (lo, then hi from 64 on) and below 32 (0 beyond).
  static KQ_INLINE B lookup64(const uint8x16x4_t& lo, B i) { return vqtbl4q_u8(lo, i); }
  static KQ_INLINE B lookup(const uint8x16x4_t& lo, uint8x16_t hi, B i) {
    return vqtbx1q_u8(lookup64(lo, i), hi, vsubq_u8(i, vdupq_n_u8(64)));
  }
  static KQ_INLINE B lookup(const uint8x16x4_t& lo, const uint8x16x2_t& hi, B i) {
    return vqtbx2q_u8(lookup64(lo, i), hi, vsubq_u8(i, vdupq_n_u8(64)));
  }
  static KQ_INLINE B lookup(const uint8x16x4_t& lo, const uint8x16x4_t& hi, B i) {
    return vqtbx4q_u8(lookup64(lo, i), hi, vsubq_u8(i, vdupq_n_u8(64)));
  }
  static KQ_INLINE B lookup32(const uint8x16x2_t& t, B i) { return vqtbl2q_u8(t, i); }
#endif
  static KQ_INLINE Words mull(B a, B b) {
#if defined(__aarch64__)
    return Words{vmull_u8(vget_low_u8(a), vget_low_u8(b)), vmull_high_u8(a, b)};
#else
    return Words{vmull_u8(vget_low_u8(a), vget_low_u8(b)),
                 vmull_u8(vget_high_u8(a), vget_high_u8(b))};
#endif
  }
  static KQ_INLINE void mlal(Words* acc, B a, B b) {
    acc->lo = vmlal_u8(acc->lo, vget_low_u8(a), vget_low_u8(b));
#if defined(__aarch64__)
    acc->hi = vmlal_high_u8(acc->hi, a, b);
#else
    acc->hi = vmlal_u8(acc->hi, vget_high_u8(a), vget_high_u8(b));
#endif
  }
  // (a * b) >> 8, and (a * b + 128) >> 8, as bytes.
  static KQ_INLINE B mulHigh(B a, B b) {
    const Words p = mull(a, b);
#if defined(__aarch64__)
    return vuzp2q_u8(vreinterpretq_u8_u16(p.lo), vreinterpretq_u8_u16(p.hi));
#else
    return vcombine_u8(vshrn_n_u16(p.lo, 8), vshrn_n_u16(p.hi, 8));
#endif
  }
  static KQ_INLINE B mulRound(B a, B b) {
    const Words p = mull(a, b);
#if defined(__aarch64__)
    return vrshrn_high_n_u16(vrshrn_n_u16(p.lo, 8), p.hi, 8);
#else
    return vcombine_u8(vrshrn_n_u16(p.lo, 8), vrshrn_n_u16(p.hi, 8));
#endif
  }
  static KQ_INLINE Words widen(B a) {
    return Words{vmovl_u8(vget_low_u8(a)), vmovl_u8(vget_high_u8(a))};
  }
  static KQ_INLINE Words zeros() { return Words{vdupq_n_u16(0), vdupq_n_u16(0)}; }

  static KQ_INLINE Recip recip(B w) {
    return Recip{recip8(vmovl_u8(vget_low_u8(w))), recip8(vmovl_u8(vget_high_u8(w)))};
  }
  static KQ_INLINE Recip recip(B a, B b) {
    return Recip{recip8(vaddl_u8(vget_low_u8(a), vget_low_u8(b))),
                 recip8(vaddl_u8(vget_high_u8(a), vget_high_u8(b)))};
  }
  static KQ_INLINE B bytes(uint16x8_t lo, uint16x8_t hi) {
#if defined(__aarch64__)
    return vuzp1q_u8(vreinterpretq_u8_u16(lo), vreinterpretq_u8_u16(hi));
#else
    return vcombine_u8(vmovn_u16(lo), vmovn_u16(hi));
#endif
  }
  static KQ_INLINE B mean(const Words& s, const Recip& r) {
    return bytes(mean8(s.lo, r.lo), mean8(s.hi, r.hi));
  }
  static KQ_INLINE B mean(const Words& a, const Words& b, const Recip& r) {
    return bytes(mean8(a.lo, b.lo, r.lo), mean8(a.hi, b.hi, r.hi));
  }

  // Loads of the outputs' bytes: 16 bytes; bytes 0, 2, .. (and 1, 3, ..) of
  // 32; bytes 0, 4, .. (and 2, 6, ..) of 64. Stores of 16 bytes, and of
  // 16 + 16 interleaved (even and odd full-size columns).
  static KQ_INLINE B load(const uint8_t* p) { return vld1q_u8(p); }
  static KQ_INLINE void store(uint8_t* p, B v) { vst1q_u8(p, v); }
  static KQ_INLINE void storeInterleaved(uint8_t* p, B even, B odd) {
    uint8x16x2_t v;
    v.val[0] = even;
    v.val[1] = odd;
    vst2q_u8(p, v);
  }
  static KQ_INLINE B even(const uint8_t* p) { return vld2q_u8(p).val[0]; }
  static KQ_INLINE void evenOdd(const uint8_t* p, B* e, B* o) {
    const uint8x16x2_t v = vld2q_u8(p);
    *e = v.val[0];
    *o = v.val[1];
  }
  static KQ_INLINE B every4th(const uint8_t* p) { return vld4q_u8(p).val[0]; }
  static KQ_INLINE void every4thPair(const uint8_t* p, B* o0, B* o2) {
    const uint8x16x4_t v = vld4q_u8(p);
    *o0 = v.val[0];
    *o2 = v.val[2];
  }

  // Lane i - s (up) or i + s (down) in lane i, lanes that nothing moves into
  // keeping their own (a far tap of a row's first or last step, s < 16).
  static KQ_INLINE B lanes() {
    return vcombine_u8(vcreate_u8(0x0706050403020100ull), vcreate_u8(0x0f0e0d0c0b0a0908ull));
  }
  static KQ_INLINE B moveUp(B v, int s) {
    const B i = lanes(), d = vdupq_n_u8(uint8_t(s));
    return move(v, vbslq_u8(vcgeq_u8(i, d), vsubq_u8(i, d), i));
  }
  static KQ_INLINE B moveDown(B v, int s) {
    const B i = lanes(), d = vaddq_u8(i, vdupq_n_u8(uint8_t(s)));
    return move(v, vbslq_u8(vcltq_u8(d, vdupq_n_u8(16)), d, i));
  }

  // Lane idx[i] of v in lane i (a far tap of a row's first or last step).
  static KQ_INLINE B move(B v, B idx) {
#if defined(__aarch64__)
    return vqtbl1q_u8(v, idx);
#else
    uint8x8x2_t t;
    t.val[0] = vget_low_u8(v);
    t.val[1] = vget_high_u8(v);
    return vcombine_u8(vtbl2_u8(t, vget_low_u8(idx)), vtbl2_u8(t, vget_high_u8(idx)));
#endif
  }
};

// Eight lanes in d registers.
struct D {
  [[maybe_unused]] static constexpr int kOut = 8;  // (no D steps on aarch64)
  using B = uint8x8_t;
  struct Words {
    uint16x8_t all;
  };
  using Recip = Recip8;

  static KQ_INLINE B dup(uint8_t v) { return vdup_n_u8(v); }
  static KQ_INLINE B abd(B a, B b) { return vabd_u8(a, b); }
  template <int n>
  static KQ_INLINE B qshl(B a) {
    return vqshl_n_u8(a, n);
  }
  template <int n>
  static KQ_INLINE B shr(B a) {
    return vshr_n_u8(a, n);
  }
  template <int n>
  static KQ_INLINE B shl(B a) {
    return vshl_n_u8(a, n);
  }
  template <int n>
  static KQ_INLINE B sra(B acc, B a) {
    return vsra_n_u8(acc, a, n);
  }
  static KQ_INLINE B add(B a, B b) { return vadd_u8(a, b); }
  static KQ_INLINE B sub(B a, B b) { return vsub_u8(a, b); }
  static KQ_INLINE B lookup(const Table& t, B i) {
#if defined(__aarch64__)
    return vqtbl1_u8(t, i);
#else
    return vtbl2_u8(t, i);
#endif
  }
#if defined(__aarch64__)
  static KQ_INLINE B lookup64(const uint8x16x4_t& lo, B i) { return vqtbl4_u8(lo, i); }
  static KQ_INLINE B lookup(const uint8x16x4_t& lo, uint8x16_t hi, B i) {
    return vqtbx1_u8(lookup64(lo, i), hi, vsub_u8(i, vdup_n_u8(64)));
  }
  static KQ_INLINE B lookup(const uint8x16x4_t& lo, const uint8x16x2_t& hi, B i) {
    return vqtbx2_u8(lookup64(lo, i), hi, vsub_u8(i, vdup_n_u8(64)));
  }
  static KQ_INLINE B lookup(const uint8x16x4_t& lo, const uint8x16x4_t& hi, B i) {
    return vqtbx4_u8(lookup64(lo, i), hi, vsub_u8(i, vdup_n_u8(64)));
  }
  static KQ_INLINE B lookup32(const uint8x16x2_t& t, B i) { return vqtbl2_u8(t, i); }
#else
  static KQ_INLINE B lookup32(const uint8x8x4_t& t, B i) { return vtbl4_u8(t, i); }
#endif
  static KQ_INLINE Words mull(B a, B b) { return Words{vmull_u8(a, b)}; }
  static KQ_INLINE void mlal(Words* acc, B a, B b) { acc->all = vmlal_u8(acc->all, a, b); }
  static KQ_INLINE B mulHigh(B a, B b) { return vshrn_n_u16(vmull_u8(a, b), 8); }
  static KQ_INLINE B mulRound(B a, B b) { return vrshrn_n_u16(vmull_u8(a, b), 8); }
  static KQ_INLINE Words widen(B a) { return Words{vmovl_u8(a)}; }
  static KQ_INLINE Words zeros() { return Words{vdupq_n_u16(0)}; }

  static KQ_INLINE Recip recip(B w) { return recip8(vmovl_u8(w)); }
  static KQ_INLINE Recip recip(B a, B b) { return recip8(vaddl_u8(a, b)); }
  static KQ_INLINE B mean(const Words& s, const Recip& r) { return vmovn_u16(mean8(s.all, r)); }
  static KQ_INLINE B mean(const Words& a, const Words& b, const Recip& r) {
    return vmovn_u16(mean8(a.all, b.all, r));
  }

  static KQ_INLINE B load(const uint8_t* p) { return vld1_u8(p); }
  static KQ_INLINE void store(uint8_t* p, B v) { vst1_u8(p, v); }
  static KQ_INLINE void storeInterleaved(uint8_t* p, B even, B odd) {
    uint8x8x2_t v;
    v.val[0] = even;
    v.val[1] = odd;
    vst2_u8(p, v);
  }
  static KQ_INLINE B even(const uint8_t* p) { return vld2_u8(p).val[0]; }
  static KQ_INLINE void evenOdd(const uint8_t* p, B* e, B* o) {
    const uint8x8x2_t v = vld2_u8(p);
    *e = v.val[0];
    *o = v.val[1];
  }
  static KQ_INLINE B every4th(const uint8_t* p) { return vld4_u8(p).val[0]; }
  static KQ_INLINE void every4thPair(const uint8_t* p, B* o0, B* o2) {
    const uint8x8x4_t v = vld4_u8(p);
    *o0 = v.val[0];
    *o2 = v.val[2];
  }

  // Lane i - s (up) or i + s (down) in lane i, lanes that nothing moves into
  // keeping their own (a far tap of a row's first or last step, s < 8).
  static KQ_INLINE B moveUp(B v, int s) {
    const uint8x8_t i = vcreate_u8(0x0706050403020100ull), d = vdup_n_u8(uint8_t(s));
    return vtbl1_u8(v, vbsl_u8(vcge_u8(i, d), vsub_u8(i, d), i));
  }
  static KQ_INLINE B moveDown(B v, int s) {
    const uint8x8_t i = vcreate_u8(0x0706050403020100ull), d = vadd_u8(i, vdup_n_u8(uint8_t(s)));
    return vtbl1_u8(v, vbsl_u8(vclt_u8(d, vdup_n_u8(8)), d, i));
  }
};

// How a step weighs its differences d: by the table and its slopes (any
// table; kGain counts a difference min(255, d << kGain), a saturating shift),
// or by look-ups of every difference's weight (tables that are zero from 128
// on: ByLut on aarch64, the pass-3 luma weights ByLutLuma on both). A weigher
// is made once per run, so that its tables stay in registers.
template <int kShift, int kGain = 0>
struct ByFormula {
  Table w, s;
  explicit ByFormula(const Tables& t) : w(tableOf(t.w)), s(tableOf(t.s)) {}
  template <class L>
  KQ_INLINE typename L::B of(typename L::B d) const {
    if (kGain > 0) d = L::template qshl<kGain>(d);
    const typename L::B k = L::template shr<kShift>(d);
    // r << (8 - shift), the bits above r dropped by the 8-bit shift; then
    // (S[k] * r + step / 2) >> shift = (S[k] * (r << (8 - shift)) + 128) >> 8,
    // never above S[k]: 8 bits.
    const typename L::B r8 = L::template shl<8 - kShift>(d);
    return L::sub(L::lookup(w, k), L::mulRound(L::lookup(s, k), r8));
  }
#if !defined(__aarch64__)
  // armv7: the weights of two sets of 8 differences in one q register (low
  // and high half). The element-wise steps run on the q register, the
  // look-ups and products on its halves, which are returned apart: nothing
  // is recombined (a recombination costs register moves).
  KQ_INLINE void of2(uint8x16_t d, uint8x8_t* lo, uint8x8_t* hi) const {
    if (kGain > 0) d = vqshlq_n_u8(d, kGain);
    const uint8x16_t k = vshrq_n_u8(d, kShift), r8 = vshlq_n_u8(d, 8 - kShift);
    *lo = vsub_u8(vtbl2_u8(w, vget_low_u8(k)),
                  vrshrn_n_u16(vmull_u8(vtbl2_u8(s, vget_low_u8(k)), vget_low_u8(r8)), 8));
    *hi = vsub_u8(vtbl2_u8(w, vget_high_u8(k)),
                  vrshrn_n_u16(vmull_u8(vtbl2_u8(s, vget_high_u8(k)), vget_high_u8(r8)), 8));
  }
#endif
};

#if defined(__aarch64__)
// Look-ups of the first kBytes bytes of the weight table (64, 80, 96 or
// 128), where every difference from kBytes on weighs as 0 (reach <=
// kBytes): 4 registers, plus 1, 2 or 4 for the bytes from 64 on. The fewer
// registers the tables hold, the less the steps spill. (Pass 3, with two
// sets of sums, comes out with fewer instructions with 96 bytes than with 80:
// the compiler's register allocation, as measured.)
template <int kBytes>
struct ByLut {
  static_assert(kBytes == 64 || kBytes == 80 || kBytes == 96 || kBytes == 128, "table size");
  using High = std::conditional_t<kBytes == 128, uint8x16x4_t,
                                  std::conditional_t<kBytes == 96, uint8x16x2_t, uint8x16_t>>;
  uint8x16x4_t lo;
  High hi;  // not loaded for 64
  explicit ByLut(const Tables& t) : lo(vld1q_u8_x4(t.lut)), hi{} {
    if constexpr (kBytes == 128)
      hi = vld1q_u8_x4(t.lut + 64);
    else if constexpr (kBytes == 96)
      hi = vld1q_u8_x2(t.lut + 64);
    else if constexpr (kBytes == 80)
      hi = vld1q_u8(t.lut + 64);
  }
  template <class L>
  KQ_INLINE typename L::B of(typename L::B d) const {
    if constexpr (kBytes == 64)
      return L::lookup64(lo, d);
    else
      return L::lookup(lo, hi, d);
  }
};

struct ByLutLuma {
  uint8x16x2_t t;
  explicit ByLutLuma(const Tables& tables) : t(vld1q_u8_x2(tables.lutLuma)) {}
  template <class L>
  KQ_INLINE typename L::B of(typename L::B d) const {
    return L::lookup32(t, d);
  }
};
#else
struct ByLutLuma {
  uint8x8x4_t t;
  explicit ByLutLuma(const Tables& tables) {
    for (int k = 0; k < 4; ++k) t.val[k] = vld1_u8(tables.lutLuma + 8 * k);
  }
  template <class L>
  KQ_INLINE typename L::B of(typename L::B d) const {
    return L::lookup32(t, d);
  }
};

// The same where every difference from 96 on weighs as 0 (reach <= 96):
// luma differences from 24 on (96 counted four times) weigh as 0, so 24
// bytes in 3 d registers do.
struct ByLutLuma24 {
  uint8x8x3_t t;
  explicit ByLutLuma24(const Tables& tables) {
    for (int k = 0; k < 3; ++k) t.val[k] = vld1_u8(tables.lutLuma + 8 * k);
  }
  template <class L>
  KQ_INLINE typename L::B of(typename L::B d) const {
    static_assert(std::is_same_v<L, D>, "armv7's pass 3 weighs 8 lanes");
    return vtbl3_u8(t, d);
  }
};
#endif

// The weigher of a luma difference known to be 0 (a tap at the centre's own
// luma sample): the table's weight of 0, without a look-up.
struct AtZero {
  uint8_t w0;
  template <class L>
  KQ_INLINE typename L::B of(typename L::B) const {
    return L::dup(w0);
  }
};

template <class L>
struct Centre {
  typename L::B y, u, v;
};

template <class L>
struct Acc {
  typename L::B w;
  typename L::Words u, v;
};

template <class L>
KQ_INLINE Acc<L> accStart(uint8_t weight) {
  return Acc<L>{L::dup(weight), L::zeros(), L::zeros()};
}

// One tap: chroma differences weighed by wc, the luma difference by wl.
template <class L, class WC, class WL>
KQ_INLINE void addTap(Acc<L>* a, const WC& wc, const WL& wl, const Centre<L>& c, typename L::B tY,
                      typename L::B tU, typename L::B tV) {
  using B = typename L::B;
  B uv;  // (wV * wU) >> 8, <= 254
#if !defined(__aarch64__)
  if constexpr (std::is_same_v<L, D>) {
    // 8 lanes on armv7: the U and V differences share one q register (U in
    // its low half, V in its high), so that the element-wise steps of the
    // weighing run once for both. The empty asm makes the taps live in that
    // register from their loads on and the products below take its halves;
    // otherwise GCC keeps the loaded halves apart and copies them in.
    uint8x16_t t2 = vcombine_u8(tU, tV);
    asm("" : "+w"(t2));
    uint8x8_t wU, wV;
    wc.of2(vabdq_u8(vcombine_u8(c.u, c.v), t2), &wU, &wV);
    uv = D::mulHigh(wV, wU);
    tU = vget_low_u8(t2);
    tV = vget_high_u8(t2);
  } else
#endif
  {
    uv = L::mulHigh(wc.template of<L>(L::abd(c.v, tV)), wc.template of<L>(L::abd(c.u, tU)));
  }
  const B h = L::mulHigh(uv, wl.template of<L>(L::abd(c.y, tY)));  // the product >> 8, <= 253
  const B w = L::template sra<4>(L::template shr<3>(h), h);        // <= 46
  a->w = L::add(a->w, w);
  L::mlal(&a->u, w, tU);
  L::mlal(&a->v, w, tV);
}

// One step's outputs, computed before either is stored.
template <class L>
struct Out {
  typename L::B u, v;
};

template <class L>
KQ_INLINE Out<L> means(const Acc<L>& a) {
  const typename L::Recip r = L::recip(a.w);
  return Out<L>{L::mean(a.u, r), L::mean(a.v, r)};
}

// The far taps of a row's first and last steps (16 lanes): the look-up bytes
// that move lane i - s to lane i (up) or lane i + s to lane i (down), the
// lanes that nothing moves into keeping their own value, as the reference
// replaces a tap outside the work area by the centre. Made where a first or
// last step needs them, so that nothing of them stays in registers across
// the steps between.
struct Shift {
  int s;
};

KQ_INLINE uint8x16_t shiftUp(const Shift& sh) {
  static const uint8_t kLanes[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  const uint8x16_t i = vld1q_u8(kLanes), s = vdupq_n_u8(uint8_t(sh.s));
  return vbslq_u8(vcgeq_u8(i, s), vsubq_u8(i, s), i);
}

KQ_INLINE uint8x16_t shiftDown(const Shift& sh) {
  static const uint8_t kLanes[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  const uint8x16_t i = vld1q_u8(kLanes), s = vaddq_u8(i, vdupq_n_u8(uint8_t(sh.s)));
  return vbslq_u8(vcltq_u8(s, vdupq_n_u8(16)), s, i);
}

KQ_INLINE Shift shiftOf(int s) { return Shift{s}; }

enum StepKind { kInner, kFirst, kLast };
template <int kKind>
using Kind = std::integral_constant<int, kKind>;

// Pass 1: outputs x0.. of half-size row y (full-size columns 2*x0..).
// kCentre: the block's first tap is the centre itself (the pass reads the
// source planes as its input), so its weight is the table's weight of 0.
template <class L, class W, int kKind, bool kCentre>
KQ_INLINE Out<L> pass1Step(const KQChromaPassContext* c, const Tables& t, const W& wt,
                           const Shift& sh, int x0, int y, int yUp, int yDown) {
  using B = typename L::B;
  const size_t w = size_t(c->chromaWidth), lw = size_t(c->lumaWidth);
  const int M = c->margin;
  const int X0 = 2 * x0, Y = 2 * y;
  const uint8_t* lumaY = c->luma + size_t(2 * Y) * lw + 2 * X0;
  const uint8_t* lumaY1 = lumaY + 2 * lw;
  const uint8_t* lumaUp = c->luma + size_t(2 * yUp) * lw + 2 * X0;
  const uint8_t* lumaDown = c->luma + size_t(2 * yDown) * lw + 2 * X0;
  const size_t row = size_t(Y) * w + X0;
  B u00, u01, v00, v01, l00, l02;
  L::evenOdd(c->inU + row, &u00, &u01);
  L::evenOdd(c->inV + row, &v00, &v01);
  L::every4thPair(lumaY, &l00, &l02);
  Centre<L> ce;
  ce.y = l00;
  ce.u = kCentre ? u00 : L::even(c->srcU + row);
  ce.v = kCentre ? v00 : L::even(c->srcV + row);

  Acc<L> block = accStart<L>(1);
  if (kCentre) {
    const B w0 = L::dup(t.centreWeight);
    block.w = L::add(block.w, w0);
    block.u = L::mull(w0, ce.u);
    block.v = L::mull(w0, ce.v);
  } else {
    addTap<L>(&block, wt, wt, ce, l00, u00, v00);
  }
  addTap<L>(&block, wt, wt, ce, l02, u01, v01);
  {
    B u10, u11, v10, v11, l10, l12;
    L::evenOdd(c->inU + row + w, &u10, &u11);
    L::evenOdd(c->inV + row + w, &v10, &v11);
    L::every4thPair(lumaY1, &l10, &l12);
    addTap<L>(&block, wt, wt, ce, l10, u10, v10);
    addTap<L>(&block, wt, wt, ce, l12, u11, v11);
  }

  Acc<L> far = accStart<L>(0);
  const size_t up = size_t(yUp) * w + X0, down = size_t(yDown) * w + X0;
  addTap<L>(&far, wt, wt, ce, L::every4th(lumaUp), L::even(c->inU + up), L::even(c->inV + up));
  if constexpr (kKind == kFirst) {
    addTap<L>(&far, wt, wt, ce, Q::move(l00, shiftUp(sh)), Q::move(u00, shiftUp(sh)),
              Q::move(v00, shiftUp(sh)));
  } else {
    addTap<L>(&far, wt, wt, ce, L::every4th(lumaY - 2 * M), L::even(c->inU + row - M),
              L::even(c->inV + row - M));
  }
  if constexpr (kKind == kLast) {
    addTap<L>(&far, wt, wt, ce, Q::move(l00, shiftDown(sh)), Q::move(u00, shiftDown(sh)),
              Q::move(v00, shiftDown(sh)));
  } else {
    addTap<L>(&far, wt, wt, ce, L::every4th(lumaY + 2 * M), L::even(c->inU + row + M),
              L::even(c->inV + row + M));
  }
  addTap<L>(&far, wt, wt, ce, L::every4th(lumaDown), L::even(c->inU + down),
            L::even(c->inV + down));

  // Weights up to 369 and sums up to 93840: 16 and 32 bits.
  const typename L::Recip r = L::recip(block.w, far.w);
  return Out<L>{L::mean(block.u, far.u, r), L::mean(block.v, far.v, r)};
}

// Pass 2: outputs x0.. of half-size row y. Source centres are the even
// columns of full-size row 2y; the luma of a half-size position x is L(4x) on
// luma row 4y.
template <class L, class W, int kKind>
KQ_INLINE Out<L> pass2Step(const KQChromaPassContext* c, const W& wt, uint8_t w0, const Shift& sh,
                           int x0, int y, int yUp, int yDown) {
  using B = typename L::B;
  const size_t w = size_t(c->chromaWidth), wh = w / 2, lw = size_t(c->lumaWidth);
  const int m = c->margin / 2;
  const uint8_t* lumaY = c->luma + size_t(4 * y) * lw + 4 * x0;
  const uint8_t* lumaUp = c->luma + size_t(4 * yUp) * lw + 4 * x0;
  const uint8_t* lumaDown = c->luma + size_t(4 * yDown) * lw + 4 * x0;
  const size_t src = size_t(2 * y) * w + 2 * x0;
  Centre<L> ce;
  ce.u = L::even(c->srcU + src);
  ce.v = L::even(c->srcV + src);
  ce.y = L::every4th(lumaY);
  const size_t at = size_t(y) * wh + x0, up = size_t(yUp) * wh + x0, down = size_t(yDown) * wh + x0;
  const B mu = L::load(c->inU + at), mv = L::load(c->inV + at);
  Acc<L> a = accStart<L>(1);
  addTap<L>(&a, wt, wt, ce, L::every4th(lumaUp), L::load(c->inU + up), L::load(c->inV + up));
  if constexpr (kKind == kFirst) {
    addTap<L>(&a, wt, wt, ce, Q::move(ce.y, shiftUp(sh)), Q::move(mu, shiftUp(sh)),
              Q::move(mv, shiftUp(sh)));
  } else {
    addTap<L>(&a, wt, wt, ce, L::every4th(lumaY - 4 * m), L::load(c->inU + at - m),
              L::load(c->inV + at - m));
  }
  addTap<L>(&a, wt, AtZero{w0}, ce, ce.y, mu, mv);  // the same luma sample
  if constexpr (kKind == kLast) {
    addTap<L>(&a, wt, wt, ce, Q::move(ce.y, shiftDown(sh)), Q::move(mu, shiftDown(sh)),
              Q::move(mv, shiftDown(sh)));
  } else {
    addTap<L>(&a, wt, wt, ce, L::every4th(lumaY + 4 * m), L::load(c->inU + at + m),
              L::load(c->inV + at + m));
  }
  addTap<L>(&a, wt, wt, ce, L::every4th(lumaDown), L::load(c->inU + down), L::load(c->inV + down));
  return means(a);
}

// The rows a pass 3 step reads, at their column 0: worked out once per
// output row, so that a step only adds its column.
struct Pass3Rows {
  const uint8_t *srcU, *srcV, *lumaCentre;                 // full-size row Y (luma row 2Y)
  const uint8_t *lumaMid, *lumaUp, *lumaDown;              // luma rows 4y, 4yUp, 4yDown
  const uint8_t *uMid, *uUp, *uDown, *vMid, *vUp, *vDown;  // half-size rows y, yUp, yDown
};

KQ_INLINE Pass3Rows pass3Rows(const KQChromaPassContext* c, int Y, int yUp, int y, int yDown) {
  const size_t w = size_t(c->chromaWidth), wh = w / 2, lw = size_t(c->lumaWidth);
  return Pass3Rows{c->srcU + size_t(Y) * w,        c->srcV + size_t(Y) * w,
                   c->luma + size_t(2 * Y) * lw,   c->luma + size_t(4 * y) * lw,
                   c->luma + size_t(4 * yUp) * lw, c->luma + size_t(4 * yDown) * lw,
                   c->inU + size_t(y) * wh,        c->inU + size_t(yUp) * wh,
                   c->inU + size_t(yDown) * wh,    c->inV + size_t(y) * wh,
                   c->inV + size_t(yUp) * wh,      c->inV + size_t(yDown) * wh};
}

// Both parities' outputs.
template <class L>
struct Out2 {
  Out<L> even, odd;
};

// The five taps of pass 3 for half-size columns hx0.. (one per lane), added
// to the sums a[i] of the kN outputs with centres ce[i].
template <class L, class WC, class WL, int kKind, int kN>
KQ_INLINE void pass3Taps(const Pass3Rows& r, const WC& wc, const WL& wl, int hx0, Acc<L> (&a)[kN],
                         const Centre<L> (&ce)[kN]) {
  using B = typename L::B;
  auto tap = [&](B tY, B tU, B tV) __attribute__((always_inline)) {
    for (int i = 0; i < kN; ++i) addTap<L>(&a[i], wc, wl, ce[i], tY, tU, tV);
  };
  const uint8_t* lumaY = r.lumaMid + 4 * hx0;
  const B my = L::every4th(lumaY), mu = L::load(r.uMid + hx0), mv = L::load(r.vMid + hx0);
  tap(L::every4th(r.lumaUp + 4 * hx0), L::load(r.uUp + hx0), L::load(r.vUp + hx0));
  if constexpr (kKind == kFirst) {
    tap(L::moveUp(my, 1), L::moveUp(mu, 1), L::moveUp(mv, 1));
  } else {
    tap(L::every4th(lumaY - 4), L::load(r.uMid + hx0 - 1), L::load(r.vMid + hx0 - 1));
  }
  tap(my, mu, mv);
  if constexpr (kKind == kLast) {
    tap(L::moveDown(my, 1), L::moveDown(mu, 1), L::moveDown(mv, 1));
  } else {
    tap(L::every4th(lumaY + 4), L::load(r.uMid + hx0 + 1), L::load(r.vMid + hx0 + 1));
  }
  tap(L::every4th(r.lumaDown + 4 * hx0), L::load(r.uDown + hx0), L::load(r.vDown + hx0));
}

// Pass 3: the full-size outputs of parity kParity (X = 2 hx + kParity) of
// half-size columns hx0.. (one per lane) of row Y.
template <class L, class WC, class WL, int kKind, int kParity>
KQ_INLINE Out<L> pass3Parity(const Pass3Rows& r, const WC& wc, const WL& wl, int hx0) {
  Centre<L> ce[2];
  L::evenOdd(r.srcU + 2 * hx0, &ce[0].u, &ce[1].u);
  L::evenOdd(r.srcV + 2 * hx0, &ce[0].v, &ce[1].v);
  L::every4thPair(r.lumaCentre + 4 * hx0, &ce[0].y, &ce[1].y);
  const Centre<L> one[1] = {ce[kParity]};
  // Own colour, weight 1.
  Acc<L> a[1] = {Acc<L>{L::dup(1), L::widen(one[0].u), L::widen(one[0].v)}};
  pass3Taps<L, WC, WL, kKind>(r, wc, wl, hx0, a, one);
  return means(a[0]);
}

// Pass 3: the full-size outputs of half-size columns hx0.. (one per lane) of
// row Y, X = 2 hx (even) and 2 hx + 1 (odd). Both parities of a column have
// the same taps, the half-size samples themselves: aarch64 loads each tap
// once for both; armv7 (half the registers) runs the taps once per parity.
// The source bytes are loaded before any store (in-place use).
template <class L, class WC, class WL, int kKind>
KQ_INLINE Out2<L> pass3Step(const Pass3Rows& r, const WC& wc, const WL& wl, int hx0) {
#if defined(__aarch64__)
  Centre<L> ce[2];
  L::evenOdd(r.srcU + 2 * hx0, &ce[0].u, &ce[1].u);
  L::evenOdd(r.srcV + 2 * hx0, &ce[0].v, &ce[1].v);
  L::every4thPair(r.lumaCentre + 4 * hx0, &ce[0].y, &ce[1].y);
  // Own colour, weight 1.
  auto start = [](const Centre<L>& c) __attribute__((always_inline)) {
    return Acc<L>{L::dup(1), L::widen(c.u), L::widen(c.v)};
  };
  Acc<L> a[2] = {start(ce[0]), start(ce[1])};
  pass3Taps<L, WC, WL, kKind>(r, wc, wl, hx0, a, ce);
  return Out2<L>{means(a[0]), means(a[1])};
#else
  const Out<L> even = pass3Parity<L, WC, WL, kKind, 0>(r, wc, wl, hx0);
  return Out2<L>{even, pass3Parity<L, WC, WL, kKind, 1>(r, wc, wl, hx0)};
#endif
}

// The inner steps' lanes: aarch64 keeps 16 in registers, armv7 8.
#if defined(__aarch64__)
using Inner = Q;
#else
using Inner = D;
#endif

// Steps over [x0, x0 + n): with `first` an Edge step at x0 clamps its left
// far taps, with `last` an Edge step ending at x0 + n its right far taps
// (reach lanes away, at most Edge::kOut; passes 1 and 2 take Q edges, whose
// 16 lanes hold their far taps, pass 3 Inner ones); the steps between are
// Inner steps. Where they do not tile the run, the last Inner step ends where
// the final step starts, overlapping the one before it; the two are computed
// before either is stored, so that every step reads the source bytes of its
// outputs as they were (pass 3 runs in place) and the overlap gets equal
// bytes twice. Before a clamping last step, the Inner step before it starts
// early enough that its right far taps stay inside the row. A run with both
// edges is at least two Edge steps long. compute(x, kind, lanes) makes the
// outputs at x, store(x, out) stores them.
// run(x, count), where given, makes and stores the count Inner steps from x
// itself and returns where they end.
struct NoRun {
  KQ_INLINE int operator()(int x, int) const { return x; }
};

template <class Edge, class Compute, class Store, class Run = NoRun>
KQ_INLINE void steps(int x0, int n, bool first, bool last, int reach, Compute compute,
                     Store store, Run run = Run()) {
  constexpr int k = Inner::kOut, e = Edge::kOut;
  const int end = x0 + n;
  int x = x0;
  if (first) {
    store(x, compute(x, Kind<kFirst>(), Edge()));
    x += e;
  }
  const int lastX = end - (last ? e : k);
  if (x + k <= lastX) x = run(x, (lastX - x) / k);
  for (; x + k <= lastX; x += k) store(x, compute(x, Kind<kInner>(), Inner()));
  // [x, lastX) is shorter than one Inner step.
  int before = x;
  if (last && before > lastX + e - k - reach) before = lastX + e - k - reach;
  if (last) {
    if (x < lastX) {
      const auto a = compute(before, Kind<kInner>(), Inner());
      const auto b = compute(lastX, Kind<kLast>(), Edge());
      store(before, a);
      store(lastX, b);
    } else {
      store(lastX, compute(lastX, Kind<kLast>(), Edge()));
    }
  } else if (x < lastX) {
    const auto a = compute(before, Kind<kInner>(), Inner());
    const auto b = compute(lastX, Kind<kInner>(), Inner());
    store(before, a);
    store(lastX, b);
  } else if (x == lastX) {
    store(lastX, compute(lastX, Kind<kInner>(), Inner()));
  }
}

#if defined(__aarch64__)
// Pass 3's inner steps with the weights looked up in 96 bytes (the default
// strength's table) as one assembly loop: the arithmetic of pass3Step, both
// parities, 16 half-size columns (32 outputs) per step. Compiled, a step
// keeps 25 vectors live across its taps (tables, centres, sums) and spills
// and moves about 100 of its 468 instructions; here every value has a
// register of its own for the whole loop:
//   v0-v5 the 96 table bytes, v6-v7 the 32 luma bytes, v8 64 (the second
//   look-up's index offset), v9-v12 the U and V centres (even, odd), v16
//   and v18 the luma centres (ld4 lanes 0 and 2), v17 and v19 the weight
//   sums, v13-v15, v20 the U sums and v21-v24 the V sums (even lo, hi, odd
//   lo, hi), v25 v29 v30 a tap's luma, U and V, v26-v28 v31 scratch;
//   after the taps v9-v12 take the means (U even, odd, V even, odd) for the
//   interleaving stores, v16 the numerator of the reciprocal.
// The rows' pointers step by post-indexed loads; the luma row of the left,
// centre and right taps steps by 4, 4 and 56 (x15, x16).
struct Pass3Asm {
  const uint8_t *lumaUp, *lumaMid, *lumaDown, *uUp, *uMid, *uDown, *vUp, *vMid, *vDown;
  const uint8_t *srcU, *srcV, *lumaCentre;
  uint8_t *outU, *outV;
  int64_t steps;
  const uint8_t *lut, *lutLuma;
};

// One tap for one parity: centre vectors cY, cU, cV, sums W, U lo/hi, V lo/hi.
#define KQ_P3_PARITY(cY, cU, cV, W, Ulo, Uhi, Vlo, Vhi)        \
  "uabd v26.16b, " cU ".16b, v29.16b\n\t"                      \
  "sub v27.16b, v26.16b, v8.16b\n\t"                           \
  "tbl v26.16b, {v0.16b-v3.16b}, v26.16b\n\t"                  \
  "tbx v26.16b, {v4.16b-v5.16b}, v27.16b\n\t"                  \
  "uabd v27.16b, " cV ".16b, v30.16b\n\t"                      \
  "sub v28.16b, v27.16b, v8.16b\n\t"                           \
  "tbl v27.16b, {v0.16b-v3.16b}, v27.16b\n\t"                  \
  "tbx v27.16b, {v4.16b-v5.16b}, v28.16b\n\t"                  \
  "umull v28.8h, v27.8b, v26.8b\n\t"                           \
  "umull2 v31.8h, v27.16b, v26.16b\n\t"                        \
  "uzp2 v26.16b, v28.16b, v31.16b\n\t"                         \
  "uabd v27.16b, " cY ".16b, v25.16b\n\t"                      \
  "tbl v27.16b, {v6.16b-v7.16b}, v27.16b\n\t"                  \
  "umull v28.8h, v26.8b, v27.8b\n\t"                           \
  "umull2 v31.8h, v26.16b, v27.16b\n\t"                        \
  "uzp2 v26.16b, v28.16b, v31.16b\n\t"                         \
  "ushr v27.16b, v26.16b, #3\n\t"                              \
  "usra v27.16b, v26.16b, #4\n\t"                              \
  "add " W ".16b, " W ".16b, v27.16b\n\t"                       \
  "umlal " Ulo ".8h, v27.8b, v29.8b\n\t"                        \
  "umlal2 " Uhi ".8h, v27.16b, v29.16b\n\t"                     \
  "umlal " Vlo ".8h, v27.8b, v30.8b\n\t"                        \
  "umlal2 " Vhi ".8h, v27.16b, v30.16b\n\t"
// One tap (its loads given) for both parities.
#define KQ_P3_TAP(loads)                                                          \
  loads KQ_P3_PARITY("v16", "v9", "v11", "v17", "v13", "v14", "v21", "v22")     \
      KQ_P3_PARITY("v18", "v10", "v12", "v19", "v15", "v20", "v23", "v24")
// A mean of 16 lanes: uzp1 of the rounded products of the 32-bit sums and
// the reciprocals (v27-v30) into out; U before V per parity.
#define KQ_P3_MEAN(lo, hi, out)                                  \
  "uxtl v25.4s, " lo ".4h\n\t"                                  \
  "uxtl2 v26.4s, " lo ".8h\n\t"                                 \
  "uxtl v31.4s, " hi ".4h\n\t"                                  \
  "uxtl2 v18.4s, " hi ".8h\n\t"                                 \
  "ucvtf v25.4s, v25.4s\n\t"                                    \
  "ucvtf v26.4s, v26.4s\n\t"                                    \
  "ucvtf v31.4s, v31.4s\n\t"                                    \
  "ucvtf v18.4s, v18.4s\n\t"                                    \
  "fmul v25.4s, v25.4s, v27.4s\n\t"                             \
  "fmul v26.4s, v26.4s, v28.4s\n\t"                             \
  "fmul v31.4s, v31.4s, v29.4s\n\t"                             \
  "fmul v18.4s, v18.4s, v30.4s\n\t"                             \
  "fcvtnu v25.4s, v25.4s\n\t"                                   \
  "fcvtnu v26.4s, v26.4s\n\t"                                   \
  "fcvtnu v31.4s, v31.4s\n\t"                                   \
  "fcvtnu v18.4s, v18.4s\n\t"                                   \
  "uzp1 v25.8h, v25.8h, v26.8h\n\t"                             \
  "uzp1 v31.8h, v31.8h, v18.8h\n\t"                             \
  "uzp1 " out ".16b, v25.16b, v31.16b\n\t"
// The reciprocals (1 + 2^-19) / W of one parity's weight sums into v27-v30,
// then its two means.
#define KQ_P3_MEANS(W, Ulo, Uhi, Vlo, Vhi, outU, outV) \
  "uxtl v25.8h, " W ".8b\n\t"                          \
  "uxtl2 v26.8h, " W ".16b\n\t"                        \
  "uxtl v27.4s, v25.4h\n\t"                            \
  "uxtl2 v28.4s, v25.8h\n\t"                           \
  "uxtl v29.4s, v26.4h\n\t"                            \
  "uxtl2 v30.4s, v26.8h\n\t"                           \
  "ucvtf v27.4s, v27.4s\n\t"                           \
  "ucvtf v28.4s, v28.4s\n\t"                           \
  "ucvtf v29.4s, v29.4s\n\t"                           \
  "ucvtf v30.4s, v30.4s\n\t"                           \
  "fdiv v27.4s, v16.4s, v27.4s\n\t"                    \
  "fdiv v28.4s, v16.4s, v28.4s\n\t"                    \
  "fdiv v29.4s, v16.4s, v29.4s\n\t"                    \
  "fdiv v30.4s, v16.4s, v30.4s\n\t"                    \
  KQ_P3_MEAN(Ulo, Uhi, outU) KQ_P3_MEAN(Vlo, Vhi, outV)

void pass3StepsAsm(const Pass3Asm* a) {
  asm volatile(
      "ldp x0, x1, [%[a]]\n\t"
      "ldp x2, x3, [%[a], #16]\n\t"
      "ldp x4, x5, [%[a], #32]\n\t"
      "ldp x6, x7, [%[a], #48]\n\t"
      "ldp x8, x9, [%[a], #64]\n\t"
      "ldp x10, x11, [%[a], #80]\n\t"
      "ldp x12, x13, [%[a], #96]\n\t"
      "ldp x14, x15, [%[a], #112]\n\t"  // steps, lut
      "ldr x16, [%[a], #128]\n\t"       // lutLuma
      "ld1 {v0.16b-v3.16b}, [x15], #64\n\t"
      "ld1 {v4.16b-v5.16b}, [x15]\n\t"
      "ld1 {v6.16b-v7.16b}, [x16]\n\t"
      "movi v8.16b, #64\n\t"
      "mov x15, #4\n\t"
      "mov x16, #56\n\t"
      "mov w17, #0x10\n\t"
      "movk w17, #0x3f80, lsl #16\n\t"  // 1 + 2^-19
      "1:\n\t"
      "ld2 {v9.16b, v10.16b}, [x9], #32\n\t"
      "ld2 {v11.16b, v12.16b}, [x10], #32\n\t"
      "ld4 {v16.16b-v19.16b}, [x11], #64\n\t"
      "movi v17.16b, #1\n\t"
      "movi v19.16b, #1\n\t"
      // Own colour, weight 1.
      "uxtl v13.8h, v9.8b\n\t"
      "uxtl2 v14.8h, v9.16b\n\t"
      "uxtl v15.8h, v10.8b\n\t"
      "uxtl2 v20.8h, v10.16b\n\t"
      "uxtl v21.8h, v11.8b\n\t"
      "uxtl2 v22.8h, v11.16b\n\t"
      "uxtl v23.8h, v12.8b\n\t"
      "uxtl2 v24.8h, v12.16b\n\t"
      // Up, left, centre, right, down (the sums do not depend on the order).
      KQ_P3_TAP("ld4 {v25.16b-v28.16b}, [x0], #64\n\t"
                "ldr q29, [x3], #16\n\t"
                "ldr q30, [x6], #16\n\t")
      KQ_P3_TAP("ld4 {v25.16b-v28.16b}, [x1], x15\n\t"
                "ldur q29, [x4, #-1]\n\t"
                "ldur q30, [x7, #-1]\n\t")
      KQ_P3_TAP("ld4 {v25.16b-v28.16b}, [x1], x15\n\t"
                "ldr q29, [x4], #16\n\t"
                "ldr q30, [x7], #16\n\t")
      KQ_P3_TAP("ld4 {v25.16b-v28.16b}, [x1], x16\n\t"
                "ldur q29, [x4, #-15]\n\t"
                "ldur q30, [x7, #-15]\n\t")
      KQ_P3_TAP("ld4 {v25.16b-v28.16b}, [x2], #64\n\t"
                "ldr q29, [x5], #16\n\t"
                "ldr q30, [x8], #16\n\t")
      "dup v16.4s, w17\n\t"
      KQ_P3_MEANS("v17", "v13", "v14", "v21", "v22", "v9", "v11")
      KQ_P3_MEANS("v19", "v15", "v20", "v23", "v24", "v10", "v12")
      "st2 {v9.16b, v10.16b}, [x12], #32\n\t"
      "st2 {v11.16b, v12.16b}, [x13], #32\n\t"
      "subs x14, x14, #1\n\t"
      "b.ne 1b"
      :
      : [a] "r"(a)
      : "x0", "x1", "x2", "x3", "x4", "x5", "x6", "x7", "x8", "x9", "x10", "x11", "x12", "x13",
        "x14", "x15", "x16", "x17", "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9",
        "v10", "v11", "v12", "v13", "v14", "v15", "v16", "v17", "v18", "v19", "v20", "v21", "v22",
        "v23", "v24", "v25", "v26", "v27", "v28", "v29", "v30", "v31", "cc", "memory");
}

// Pass 2's inner steps with the 80-byte tables (the default strength's) in
// the same way, 16 outputs per step: v0-v4 the table, v5 64, v6 the weight
// of a luma difference 0 (the centre tap's), v9 v11 v16 the U, V and luma
// centres, v17 the weight sum, v13-v14 and v21-v22 the U and V sums, v25
// v29 v30 a tap's luma, U and V, the rest scratch; after the taps v9 and v11
// take the means. The far taps lie m half-size columns (x15 = m, x16 = -m,
// x21 = m - 16 after the centre's post-indexed load) and 4m luma columns to
// the sides (the left tap's luma pointer steps by 8m and 64 - 8m: x19, x20).
struct Pass2Asm {
  const uint8_t *lumaUp, *lumaLeft, *lumaDown, *uUp, *uMid, *uDown, *vUp, *vMid, *vDown;
  const uint8_t *srcU, *srcV, *lumaCentre;
  uint8_t *outU, *outV;
  int64_t steps;
  const uint8_t* lut;
  int64_t m, w0;
};

// One tap: its luma weight in wY (or looked up from v25 when wY is v27), the
// sums started by acc (umull) or added to (umlal).
#define KQ_P2_LOOKUP(d, t)                  \
  "sub " t ".16b, " d ".16b, v5.16b\n\t"     \
  "tbl " d ".16b, {v0.16b-v3.16b}, " d ".16b\n\t" \
  "tbx " d ".16b, {v4.16b}, " t ".16b\n\t"
#define KQ_P2_TAP(lumaWeight, wY, mull, mull2)                  \
  "uabd v26.16b, v9.16b, v29.16b\n\t" KQ_P2_LOOKUP("v26", "v27") \
  "uabd v27.16b, v11.16b, v30.16b\n\t" KQ_P2_LOOKUP("v27", "v28") \
  "umull v28.8h, v27.8b, v26.8b\n\t"                           \
  "umull2 v31.8h, v27.16b, v26.16b\n\t"                        \
  "uzp2 v26.16b, v28.16b, v31.16b\n\t" lumaWeight               \
  "umull v28.8h, v26.8b, " wY ".8b\n\t"                         \
  "umull2 v31.8h, v26.16b, " wY ".16b\n\t"                      \
  "uzp2 v26.16b, v28.16b, v31.16b\n\t"                         \
  "ushr v27.16b, v26.16b, #3\n\t"                              \
  "usra v27.16b, v26.16b, #4\n\t"                              \
  "add v17.16b, v17.16b, v27.16b\n\t"                          \
  mull " v13.8h, v27.8b, v29.8b\n\t"                           \
  mull2 " v14.8h, v27.16b, v29.16b\n\t"                        \
  mull " v21.8h, v27.8b, v30.8b\n\t"                           \
  mull2 " v22.8h, v27.16b, v30.16b\n\t"
#define KQ_P2_LUMA "uabd v27.16b, v16.16b, v25.16b\n\t" KQ_P2_LOOKUP("v27", "v28")

void pass2StepsAsm(const Pass2Asm* a) {
  asm volatile(
      "ldp x0, x1, [%[a]]\n\t"
      "ldp x2, x3, [%[a], #16]\n\t"
      "ldp x4, x5, [%[a], #32]\n\t"
      "ldp x6, x7, [%[a], #48]\n\t"
      "ldp x8, x9, [%[a], #64]\n\t"
      "ldp x10, x11, [%[a], #80]\n\t"
      "ldp x12, x13, [%[a], #96]\n\t"
      "ldp x14, x17, [%[a], #112]\n\t"  // steps, lut
      "ldp x15, x19, [%[a], #128]\n\t"  // m, w0
      "ld1 {v0.16b-v3.16b}, [x17], #64\n\t"
      "ld1 {v4.16b}, [x17]\n\t"
      "movi v5.16b, #64\n\t"
      "dup v6.16b, w19\n\t"
      "neg x16, x15\n\t"
      "sub x21, x15, #16\n\t"
      "lsl x19, x15, #3\n\t"
      "mov x20, #64\n\t"
      "sub x20, x20, x19\n\t"
      "mov w17, #0x10\n\t"
      "movk w17, #0x3f80, lsl #16\n\t"  // 1 + 2^-19
      "1:\n\t"
      "ld2 {v9.16b, v10.16b}, [x9], #32\n\t"
      "ld2 {v11.16b, v12.16b}, [x10], #32\n\t"
      "ld4 {v16.16b-v19.16b}, [x11], #64\n\t"
      "movi v17.16b, #1\n\t"
      // Up, left, centre (its luma sample is the centre's), right, down.
      "ld4 {v25.16b-v28.16b}, [x0], #64\n\t"
      "ldr q29, [x3], #16\n\t"
      "ldr q30, [x6], #16\n\t"
      KQ_P2_TAP(KQ_P2_LUMA, "v27", "umull", "umull2")
      "ld4 {v25.16b-v28.16b}, [x1], x19\n\t"
      "ldr q29, [x4, x16]\n\t"
      "ldr q30, [x7, x16]\n\t"
      KQ_P2_TAP(KQ_P2_LUMA, "v27", "umlal", "umlal2")
      "ldr q29, [x4], #16\n\t"
      "ldr q30, [x7], #16\n\t"
      KQ_P2_TAP("", "v6", "umlal", "umlal2")
      "ld4 {v25.16b-v28.16b}, [x1], x20\n\t"
      "ldr q29, [x4, x21]\n\t"
      "ldr q30, [x7, x21]\n\t"
      KQ_P2_TAP(KQ_P2_LUMA, "v27", "umlal", "umlal2")
      "ld4 {v25.16b-v28.16b}, [x2], #64\n\t"
      "ldr q29, [x5], #16\n\t"
      "ldr q30, [x8], #16\n\t"
      KQ_P2_TAP(KQ_P2_LUMA, "v27", "umlal", "umlal2")
      "dup v16.4s, w17\n\t"
      KQ_P3_MEANS("v17", "v13", "v14", "v21", "v22", "v9", "v11")
      "st1 {v9.16b}, [x12], #16\n\t"
      "st1 {v11.16b}, [x13], #16\n\t"
      "subs x14, x14, #1\n\t"
      "b.ne 1b"
      :
      : [a] "r"(a)
      : "x0", "x1", "x2", "x3", "x4", "x5", "x6", "x7", "x8", "x9", "x10", "x11", "x12", "x13",
        "x14", "x15", "x16", "x17", "x19", "x20", "x21", "v0", "v1", "v2", "v3", "v4", "v5", "v6",
        "v7", "v8", "v9", "v10", "v11", "v12", "v13", "v14", "v15", "v16", "v17", "v18", "v19",
        "v20", "v21", "v22", "v23", "v24", "v25", "v26", "v27", "v28", "v29", "v30", "v31", "cc",
        "memory");
}

// Pass 1's inner steps (the source planes as input, 80-byte tables), 16
// outputs per step, each from the 2 x 2 block at full-size (2x, 2y) (its
// first pixel the centre, weighed by the table's weight of 0 throughout) and
// 4 far taps at the margin, which keep sums of their own. Registers: v0-v4
// the table, v5 64, v6 the centre's weight, v16 v18 v20 the U, V and luma
// centres, v7-v11 the block's weight, U and V sums, v12-v15 v17 the far
// taps' (v12 a block tap's weight before); a tap's bytes and scratch in the
// rest. Every row pointer (20 of
// them, x0-x17, x19-x20) steps by post-indexed loads.
struct Pass1Asm {
  const uint8_t *u0, *v0, *l0;  // rows 2y (chroma) and 4y (luma) at the step
  const uint8_t *u1, *v1, *l1;  // rows 2y + 1 and 4y + 2
  const uint8_t *lUp, *uUp, *vUp, *lLeft, *uLeft, *vLeft;
  const uint8_t *lRight, *uRight, *vRight, *lDown, *uDown, *vDown;
  uint8_t *outU, *outV;
  int64_t steps;
  const uint8_t* lut;
  int64_t w0;
};

// One tap: bytes tY, tU, tV, scratch a-d, its weight into wd, then upd (the
// weight sum's update, or nothing where wd is the sum) and the sums by mull
// (umull to start them, umlal to add).
#define KQ_P1_TAP(tY, tU, tV, a, b, c, d, wd, upd, mull, mull2, Ulo, Uhi, Vlo, Vhi) \
  "uabd " a ".16b, v16.16b, " tU ".16b\n\t" KQ_P2_LOOKUP(a, b)                       \
  "uabd " b ".16b, v18.16b, " tV ".16b\n\t" KQ_P2_LOOKUP(b, c)                       \
  "umull " c ".8h, " b ".8b, " a ".8b\n\t"                                           \
  "umull2 " d ".8h, " b ".16b, " a ".16b\n\t"                                        \
  "uzp2 " a ".16b, " c ".16b, " d ".16b\n\t"                                         \
  "uabd " b ".16b, v20.16b, " tY ".16b\n\t" KQ_P2_LOOKUP(b, c)                       \
  "umull " c ".8h, " a ".8b, " b ".8b\n\t"                                           \
  "umull2 " d ".8h, " a ".16b, " b ".16b\n\t"                                        \
  "uzp2 " a ".16b, " c ".16b, " d ".16b\n\t"                                         \
  "ushr " wd ".16b, " a ".16b, #3\n\t"                                               \
  "usra " wd ".16b, " a ".16b, #4\n\t" upd                                           \
  mull " " Ulo ".8h, " wd ".8b, " tU ".8b\n\t"                                       \
  mull2 " " Uhi ".8h, " wd ".16b, " tU ".16b\n\t"                                    \
  mull " " Vlo ".8h, " wd ".8b, " tV ".8b\n\t"                                       \
  mull2 " " Vhi ".8h, " wd ".16b, " tV ".16b\n\t"
#define KQ_P1_BLOCK(tY, tU, tV, a, b, c, d)                                              \
  KQ_P1_TAP(tY, tU, tV, a, b, c, d, "v12", "add v7.16b, v7.16b, v12.16b\n\t", "umlal", \
            "umlal2", "v8", "v9", "v10", "v11")
#define KQ_P1_FAR_FIRST(loads)                                                          \
  loads KQ_P1_TAP("v24", "v28", "v30", "v25", "v26", "v27", "v29", "v12", "", "umull", \
                  "umull2", "v13", "v14", "v15", "v17")
#define KQ_P1_FAR(loads)                                                                \
  loads KQ_P1_TAP("v24", "v28", "v30", "v25", "v26", "v27", "v29", "v19",               \
                  "add v12.16b, v12.16b, v19.16b\n\t", "umlal", "umlal2", "v13", "v14",  \
                  "v15", "v17")
#define KQ_P1_FARLOADS(l, u, v)                   \
  "ld4 {v24.16b-v27.16b}, [" l "], #64\n\t"      \
  "ld2 {v28.16b, v29.16b}, [" u "], #32\n\t"     \
  "ld2 {v30.16b, v31.16b}, [" v "], #32\n\t"

// A mean of 16 lanes from two u16 sums (block lo, hi; far lo, hi) and the
// reciprocals in v24-v27.
#define KQ_P1_MEAN(alo, ahi, blo, bhi, out)                \
  "uaddl v28.4s, " alo ".4h, " blo ".4h\n\t"               \
  "uaddl2 v29.4s, " alo ".8h, " blo ".8h\n\t"              \
  "uaddl v30.4s, " ahi ".4h, " bhi ".4h\n\t"               \
  "uaddl2 v31.4s, " ahi ".8h, " bhi ".8h\n\t"              \
  "ucvtf v28.4s, v28.4s\n\t"                               \
  "ucvtf v29.4s, v29.4s\n\t"                               \
  "ucvtf v30.4s, v30.4s\n\t"                               \
  "ucvtf v31.4s, v31.4s\n\t"                               \
  "fmul v28.4s, v28.4s, v24.4s\n\t"                        \
  "fmul v29.4s, v29.4s, v25.4s\n\t"                        \
  "fmul v30.4s, v30.4s, v26.4s\n\t"                        \
  "fmul v31.4s, v31.4s, v27.4s\n\t"                        \
  "fcvtnu v28.4s, v28.4s\n\t"                              \
  "fcvtnu v29.4s, v29.4s\n\t"                              \
  "fcvtnu v30.4s, v30.4s\n\t"                              \
  "fcvtnu v31.4s, v31.4s\n\t"                              \
  "uzp1 v28.8h, v28.8h, v29.8h\n\t"                        \
  "uzp1 v30.8h, v30.8h, v31.8h\n\t"                        \
  "uzp1 " out ".16b, v28.16b, v30.16b\n\t"

void pass1StepsAsm(const Pass1Asm* a) {
  asm volatile(
      "ldp x0, x1, [%[a]]\n\t"
      "ldp x2, x3, [%[a], #16]\n\t"
      "ldp x4, x5, [%[a], #32]\n\t"
      "ldp x6, x7, [%[a], #48]\n\t"
      "ldp x8, x9, [%[a], #64]\n\t"
      "ldp x10, x11, [%[a], #80]\n\t"
      "ldp x12, x13, [%[a], #96]\n\t"
      "ldp x14, x15, [%[a], #112]\n\t"
      "ldp x16, x17, [%[a], #128]\n\t"
      "ldp x19, x20, [%[a], #144]\n\t"  // outU, outV
      "ldp x21, x22, [%[a], #160]\n\t"  // steps, lut
      "ld1 {v0.16b-v3.16b}, [x22], #64\n\t"
      "ld1 {v4.16b}, [x22]\n\t"
      "ldr x22, [%[a], #176]\n\t"       // w0
      "movi v5.16b, #64\n\t"
      "dup v6.16b, w22\n\t"
      "mov w22, #0x10\n\t"
      "movk w22, #0x3f80, lsl #16\n\t"  // 1 + 2^-19
      "1:\n\t"
      "ld2 {v16.16b, v17.16b}, [x0], #32\n\t"
      "ld2 {v18.16b, v19.16b}, [x1], #32\n\t"
      "ld4 {v20.16b-v23.16b}, [x2], #64\n\t"
      // The block: the centre itself, then (0, 1), (1, 0), (1, 1).
      "movi v7.16b, #1\n\t"
      "add v7.16b, v7.16b, v6.16b\n\t"
      "umull v8.8h, v6.8b, v16.8b\n\t"
      "umull2 v9.8h, v6.16b, v16.16b\n\t"
      "umull v10.8h, v6.8b, v18.8b\n\t"
      "umull2 v11.8h, v6.16b, v18.16b\n\t"
      KQ_P1_BLOCK("v22", "v17", "v19", "v21", "v23", "v24", "v25")
      "ld2 {v24.16b, v25.16b}, [x3], #32\n\t"
      "ld2 {v26.16b, v27.16b}, [x4], #32\n\t"
      "ld4 {v28.16b-v31.16b}, [x5], #64\n\t"
      KQ_P1_BLOCK("v28", "v24", "v26", "v21", "v23", "v29", "v31")
      KQ_P1_BLOCK("v30", "v25", "v27", "v21", "v23", "v29", "v31")
      // The far taps: up, left, right, down.
      KQ_P1_FAR_FIRST(KQ_P1_FARLOADS("x6", "x7", "x8"))
      KQ_P1_FAR(KQ_P1_FARLOADS("x9", "x10", "x11"))
      KQ_P1_FAR(KQ_P1_FARLOADS("x12", "x13", "x14"))
      KQ_P1_FAR(KQ_P1_FARLOADS("x15", "x16", "x17"))
      // Means of the block's and far sums together (weights to 369: u16).
      "uaddl v21.8h, v7.8b, v12.8b\n\t"
      "uaddl2 v22.8h, v7.16b, v12.16b\n\t"
      "uxtl v24.4s, v21.4h\n\t"
      "uxtl2 v25.4s, v21.8h\n\t"
      "uxtl v26.4s, v22.4h\n\t"
      "uxtl2 v27.4s, v22.8h\n\t"
      "ucvtf v24.4s, v24.4s\n\t"
      "ucvtf v25.4s, v25.4s\n\t"
      "ucvtf v26.4s, v26.4s\n\t"
      "ucvtf v27.4s, v27.4s\n\t"
      "dup v16.4s, w22\n\t"
      "fdiv v24.4s, v16.4s, v24.4s\n\t"
      "fdiv v25.4s, v16.4s, v25.4s\n\t"
      "fdiv v26.4s, v16.4s, v26.4s\n\t"
      "fdiv v27.4s, v16.4s, v27.4s\n\t"
      KQ_P1_MEAN("v8", "v9", "v13", "v14", "v18")
      KQ_P1_MEAN("v10", "v11", "v15", "v17", "v19")
      "st1 {v18.16b}, [x19], #16\n\t"
      "st1 {v19.16b}, [x20], #16\n\t"
      "subs x21, x21, #1\n\t"
      "b.ne 1b"
      :
      : [a] "r"(a)
      : "x0", "x1", "x2", "x3", "x4", "x5", "x6", "x7", "x8", "x9", "x10", "x11", "x12", "x13",
        "x14", "x15", "x16", "x17", "x19", "x20", "x21", "x22", "v0", "v1", "v2", "v3", "v4", "v5",
        "v6", "v7", "v8", "v9", "v10", "v11", "v12", "v13", "v14", "v15", "v16", "v17", "v18",
        "v19", "v20", "v21", "v22", "v23", "v24", "v25", "v26", "v27", "v28", "v29", "v30", "v31",
        "cc", "memory");
}
#undef KQ_P1_TAP
#undef KQ_P1_BLOCK
#undef KQ_P1_FAR
#undef KQ_P1_FAR_FIRST
#undef KQ_P1_FARLOADS
#undef KQ_P1_MEAN
#undef KQ_P2_LOOKUP
#undef KQ_P2_TAP
#undef KQ_P2_LUMA
#undef KQ_P3_PARITY
#undef KQ_P3_TAP
#undef KQ_P3_MEAN
#undef KQ_P3_MEANS
#else
// armv7, pass 3's inner steps where the weights' step is 32 (kind 5, the
// default strength's; a difference's table index d >> 5 is then below 8 and
// each table fits one d register) and the luma weights look up 24 bytes:
// one assembly loop, both parities per tap, 8 half-size columns (16
// outputs) per step. Registers: d0 d1 the weights and slopes, d2-d4 the
// luma weights, q4 q5 the U|V centres (even, odd: U in the low half), d12
// d14 the luma centres, d5 d13 the weight sums, q8-q11 the U and V sums
// (even U, V, odd U, V), q12 a tap's U|V, d26 its luma, d27 q14 q15 q3
// scratch. Compiled, a step keeps about 70 of its 440 instructions for
// stack traffic and moves; the loop below has none, but 32-bit ARM has too
// few general registers for the 20 row pointers: they live in an array
// (Pass3Armv7), each group of them loaded (ldm), stepped by its
// post-indexed loads and stored back (stm) once per step.
struct Pass3Armv7 {
  const uint8_t *srcU, *srcV, *lumaCentre;
  const uint8_t* taps[5][3];  // up, left, centre, right, down: luma, U, V
  uint8_t *outU, *outV;
  const uint8_t *weights, *slopes, *lutLuma;
};
static_assert(offsetof(Pass3Armv7, outU) == 72 && offsetof(Pass3Armv7, weights) == 80,
              "the loop's view of the pointer array");

// One parity of a tap: centres qC (U|V) and dY, sums dW, qU, qV.
#define KQ_A7_PARITY(qC, dY, dW, qU, qV)     \
  "vabd.u8 q15, " qC ", q12\n\t"             \
  "vshr.u8 q3, q15, #5\n\t"                  \
  "vshl.u8 q15, q15, #3\n\t"                 \
  "vtbl.8 d27, {d1}, d6\n\t"                 \
  "vtbl.8 d6, {d0}, d6\n\t"                  \
  "vmull.u8 q14, d27, d30\n\t"               \
  "vrshrn.u16 d27, q14, #8\n\t"              \
  "vsub.i8 d6, d6, d27\n\t"                  \
  "vtbl.8 d27, {d1}, d7\n\t"                 \
  "vtbl.8 d7, {d0}, d7\n\t"                  \
  "vmull.u8 q14, d27, d31\n\t"               \
  "vrshrn.u16 d27, q14, #8\n\t"              \
  "vsub.i8 d7, d7, d27\n\t"                  \
  "vmull.u8 q14, d7, d6\n\t"                 \
  "vshrn.u16 d27, q14, #8\n\t"               \
  "vabd.u8 d6, " dY ", d26\n\t"              \
  "vtbl.8 d6, {d2, d3, d4}, d6\n\t"          \
  "vmull.u8 q14, d27, d6\n\t"                \
  "vshrn.u16 d27, q14, #8\n\t"               \
  "vshr.u8 d6, d27, #3\n\t"                  \
  "vsra.u8 d6, d27, #4\n\t"                  \
  "vadd.i8 " dW ", " dW ", d6\n\t"           \
  "vmlal.u8 " qU ", d6, d24\n\t"             \
  "vmlal.u8 " qV ", d6, d25\n\t"
// One tap: its three pointers from the array (r3), its bytes, the pointers
// back, both parities.
#define KQ_A7_TAP                                            \
  "ldm r3, {r0, r1, r2}\n\t"                                 \
  "vld4.8 {d26-d29}, [r0]!\n\t"                              \
  "vld1.8 {d24}, [r1]!\n\t"                                  \
  "vld1.8 {d25}, [r2]!\n\t"                                  \
  "stm r3!, {r0, r1, r2}\n\t"                                \
  KQ_A7_PARITY("q4", "d12", "d5", "q8", "q9")                  \
  KQ_A7_PARITY("q5", "d14", "d13", "q10", "q11")
// Reciprocals of the 8 weights in dW (vrecpe refined twice) into q15
// (lanes 0-3) and q14 (4-7).
#define KQ_A7_RECIP(dW) "vmovl.u8 q14, " dW "\n\t" KQ_A7_RECIP_U16
// The same from 8 weights in q14 (u16).
#define KQ_A7_RECIP_U16                  \
  "vmovl.u16 q15, d28\n\t"               \
  "vmovl.u16 q14, d29\n\t"               \
  "vcvt.f32.u32 q15, q15\n\t"            \
  "vcvt.f32.u32 q14, q14\n\t"            \
  "vrecpe.f32 q12, q15\n\t"              \
  "vrecps.f32 q13, q15, q12\n\t"         \
  "vmul.f32 q12, q13, q12\n\t"           \
  "vrecps.f32 q13, q15, q12\n\t"         \
  "vmul.f32 q15, q13, q12\n\t"           \
  "vrecpe.f32 q12, q14\n\t"              \
  "vrecps.f32 q13, q14, q12\n\t"         \
  "vmul.f32 q12, q13, q12\n\t"           \
  "vrecps.f32 q13, q14, q12\n\t"         \
  "vmul.f32 q14, q13, q12\n\t"
// The mean of the 8 sums in qS (d halves lo, hi) into dOut: truncate(sum *
// r + (0.5 + 2^-11)), the bias in q3.
#define KQ_A7_MEAN(lo, hi, dOut) \
  "vmovl.u16 q12, " lo "\n\tvmovl.u16 q13, " hi "\n\t" KQ_A7_MEAN_U32(dOut)
// The same from sums already in q12, q13 (u32).
#define KQ_A7_MEAN_U32(dOut)              \
  "vcvt.f32.u32 q12, q12\n\t"             \
  "vcvt.f32.u32 q13, q13\n\t"             \
  "vmul.f32 q12, q12, q15\n\t"            \
  "vmul.f32 q13, q13, q14\n\t"            \
  "vadd.f32 q12, q12, q3\n\t"             \
  "vadd.f32 q13, q13, q3\n\t"             \
  "vcvt.u32.f32 q12, q12\n\t"             \
  "vcvt.u32.f32 q13, q13\n\t"             \
  "vmovn.i32 d24, q12\n\t"                \
  "vmovn.i32 d25, q13\n\t"                \
  "vmovn.i16 " dOut ", q12\n\t"

void pass3StepsArmv7(Pass3Armv7* a, int32_t steps) {
  asm volatile(
      "add r3, %[a], #80\n\t"  // weights, slopes, luma weights
      "ldm r3, {r0, r1, r2}\n\t"
      "vld1.8 {d0}, [r0]\n\t"
      "vld1.8 {d1}, [r1]\n\t"
      "vld1.8 {d2-d4}, [r2]\n\t"
      "1:\n\t"
      "mov r3, %[a]\n\t"
      "ldm r3, {r0, r1, r2}\n\t"
      "vld2.8 {d8, d10}, [r0]!\n\t"
      "vld2.8 {d9, d11}, [r1]!\n\t"
      "vld4.8 {d12-d15}, [r2]!\n\t"
      "stm r3!, {r0, r1, r2}\n\t"
      // Own colour, weight 1.
      "vmov.i8 d5, #1\n\t"
      "vmov.i8 d13, #1\n\t"
      "vmovl.u8 q8, d8\n\t"
      "vmovl.u8 q9, d9\n\t"
      "vmovl.u8 q10, d10\n\t"
      "vmovl.u8 q11, d11\n\t"
      KQ_A7_TAP KQ_A7_TAP KQ_A7_TAP KQ_A7_TAP KQ_A7_TAP
      "vmov.i32 q3, #0x3f000000\n\t"
      "vorr.i32 q3, #0x00002000\n\t"  // 0.5 + 2^-11
      KQ_A7_RECIP("d5")
      KQ_A7_MEAN("d16", "d17", "d8")
      KQ_A7_MEAN("d18", "d19", "d9")
      KQ_A7_RECIP("d13")
      KQ_A7_MEAN("d20", "d21", "d10")
      KQ_A7_MEAN("d22", "d23", "d11")
      "ldm r3, {r0, r1}\n\t"
      "vst2.8 {d8, d10}, [r0]!\n\t"
      "vst2.8 {d9, d11}, [r1]!\n\t"
      "stm r3, {r0, r1}\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b"
      : [n] "+r"(steps)
      : [a] "r"(a)
      : "r0", "r1", "r2", "r3", "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10",
        "d11", "d12", "d13", "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23",
        "d24", "d25", "d26", "d27", "d28", "d29", "d30", "d31", "cc", "memory");
}

// armv7, pass 1's inner steps on the source planes with step-32 tables, 8
// outputs per step, in the same way: d0 d1 the weights and slopes, d4 the
// centre's weight, q4 the U|V centres and d12 the luma centre, d2 q8 q9 the
// block's weight, U and V sums, d3 q10 q11 the far taps'; the row pointers
// in groups of U, V, luma (Pass1Armv7). A tap weighs its luma difference by
// the tables too (pass 1 does not count it four times).
struct Pass1Armv7 {
  const uint8_t* rows[6][3];  // 2y, 2y + 1, up, left, right, down: U, V, luma
  uint8_t *outU, *outV;
  const uint8_t *weights, *slopes, *centreWeight;
};
static_assert(offsetof(Pass1Armv7, outU) == 72 && offsetof(Pass1Armv7, weights) == 80,
              "the loop's view of the pointer array");

// One tap: U|V bytes in qT (dTlo, dThi), luma in dTY; scratch qD, qK, dA,
// qP; its weight into dWd, then upd, then the sums by mull into qU, qV.
#define KQ_A7_P1TAP(qT, dTlo, dThi, dTY, qD, dDlo, dDhi, qK, dKlo, dKhi, dA, qP, dWd, upd, mull, \
                    qU, qV)                                                                     \
  KQ_A7_TAPW(qT, dTlo, dThi, qD, dDlo, dDhi, qK, dKlo, dKhi, dA, qP,                             \
             KQ_A7_LUMAW(dTY, dDlo, dDhi, dKlo, qP), dKlo, dWd, upd, mull, qU, qV)
// A tap's weight by the tables from |d12 - dTY| into dW (scratch dD, dS, qP).
#define KQ_A7_LUMAW(dTY, dD, dS, dW, qP)               \
  "vabd.u8 " dD ", d12, " dTY "\n\t"                   \
  "vshr.u8 " dW ", " dD ", #5\n\t"                     \
  "vshl.u8 " dD ", " dD ", #3\n\t"                     \
  "vtbl.8 " dS ", {d1}, " dW "\n\t"                    \
  "vtbl.8 " dW ", {d0}, " dW "\n\t"                    \
  "vmull.u8 " qP ", " dS ", " dD "\n\t"                \
  "vrshrn.u16 " dS ", " qP ", #8\n\t"                  \
  "vsub.i8 " dW ", " dW ", " dS "\n\t"
// The general tap: luma computes the luma weight into dWY (or is empty
// where dWY holds it already).
#define KQ_A7_TAPW(qT, dTlo, dThi, qD, dDlo, dDhi, qK, dKlo, dKhi, dA, qP, luma, dWY, dWd, upd,  \
                   mull, qU, qV)                                                                \
  "vabd.u8 " qD ", q4, " qT "\n\t"                                                              \
  "vshr.u8 " qK ", " qD ", #5\n\t"                                                              \
  "vshl.u8 " qD ", " qD ", #3\n\t"                                                              \
  "vtbl.8 " dA ", {d1}, " dKlo "\n\t"                                                           \
  "vtbl.8 " dKlo ", {d0}, " dKlo "\n\t"                                                         \
  "vmull.u8 " qP ", " dA ", " dDlo "\n\t"                                                       \
  "vrshrn.u16 " dA ", " qP ", #8\n\t"                                                           \
  "vsub.i8 " dKlo ", " dKlo ", " dA "\n\t"                                                      \
  "vtbl.8 " dA ", {d1}, " dKhi "\n\t"                                                           \
  "vtbl.8 " dKhi ", {d0}, " dKhi "\n\t"                                                         \
  "vmull.u8 " qP ", " dA ", " dDhi "\n\t"                                                       \
  "vrshrn.u16 " dA ", " qP ", #8\n\t"                                                           \
  "vsub.i8 " dKhi ", " dKhi ", " dA "\n\t"                                                      \
  "vmull.u8 " qP ", " dKhi ", " dKlo "\n\t"                                                     \
  "vshrn.u16 " dA ", " qP ", #8\n\t" luma                                                       \
  "vmull.u8 " qP ", " dA ", " dWY "\n\t"                                                        \
  "vshrn.u16 " dA ", " qP ", #8\n\t"                                                            \
  "vshr.u8 " dWd ", " dA ", #3\n\t"                                                             \
  "vsra.u8 " dWd ", " dA ", #4\n\t" upd                                                         \
  mull " " qU ", " dWd ", " dTlo "\n\t"                                                         \
  mull " " qV ", " dWd ", " dThi "\n\t"
// Taps from q12 (U|V) and d28 (luma) with scratch q5 q3 d13 q7.
#define KQ_A7_P1FAR(dWd, upd, mull)                                                         \
  KQ_A7_P1TAP("q12", "d24", "d25", "d28", "q5", "d10", "d11", "q3", "d6", "d7", "d13", "q7", \
              dWd, upd, mull, "q10", "q11")
#define KQ_A7_P1LOADS                   \
  "ldm r3, {r0, r1, r2}\n\t"            \
  "vld2.8 {d24, d26}, [r0]!\n\t"        \
  "vld2.8 {d25, d27}, [r1]!\n\t"        \
  "vld4.8 {d28-d31}, [r2]!\n\t"         \
  "stm r3!, {r0, r1, r2}\n\t"

void pass1StepsArmv7(Pass1Armv7* a, int32_t steps) {
  asm volatile(
      "add r3, %[a], #80\n\t"  // weights, slopes, centre weight
      "ldm r3, {r0, r1, r2}\n\t"
      "vld1.8 {d0}, [r0]\n\t"
      "vld1.8 {d1}, [r1]\n\t"
      "vld1.8 {d4[]}, [r2]\n\t"
      "1:\n\t"
      "mov r3, %[a]\n\t"
      // Row 2y: the centre (q4, d12) and the block's pixel (0, 1) (q5, d14).
      "ldm r3, {r0, r1, r2}\n\t"
      "vld2.8 {d8, d10}, [r0]!\n\t"
      "vld2.8 {d9, d11}, [r1]!\n\t"
      "vld4.8 {d12-d15}, [r2]!\n\t"
      "stm r3!, {r0, r1, r2}\n\t"
      "vmov.i8 d2, #1\n\t"
      "vadd.i8 d2, d2, d4\n\t"
      "vmull.u8 q8, d4, d8\n\t"
      "vmull.u8 q9, d4, d9\n\t"
      KQ_A7_P1TAP("q5", "d10", "d11", "d14", "q15", "d30", "d31", "q3", "d6", "d7", "d27", "q14",
                  "d7", "vadd.i8 d2, d2, d7\n\t", "vmlal.u8", "q8", "q9")
      // Row 2y + 1: (1, 1) then (1, 0).
      "ldm r3, {r0, r1, r2}\n\t"
      "vld2.8 {d24, d26}, [r0]!\n\t"
      "vld2.8 {d25, d27}, [r1]!\n\t"
      "vld4.8 {d28-d31}, [r2]!\n\t"
      "stm r3!, {r0, r1, r2}\n\t"
      KQ_A7_P1TAP("q13", "d26", "d27", "d30", "q5", "d10", "d11", "q3", "d6", "d7", "d13", "q7",
                  "d7", "vadd.i8 d2, d2, d7\n\t", "vmlal.u8", "q8", "q9")
      KQ_A7_P1TAP("q12", "d24", "d25", "d28", "q5", "d10", "d11", "q3", "d6", "d7", "d13", "q7",
                  "d7", "vadd.i8 d2, d2, d7\n\t", "vmlal.u8", "q8", "q9")
      // The far taps: up (its weight and products start the far sums),
      // left, right, down.
      KQ_A7_P1LOADS KQ_A7_P1FAR("d3", "", "vmull.u8")
      KQ_A7_P1LOADS KQ_A7_P1FAR("d7", "vadd.i8 d3, d3, d7\n\t", "vmlal.u8")
      KQ_A7_P1LOADS KQ_A7_P1FAR("d7", "vadd.i8 d3, d3, d7\n\t", "vmlal.u8")
      KQ_A7_P1LOADS KQ_A7_P1FAR("d7", "vadd.i8 d3, d3, d7\n\t", "vmlal.u8")
      // Means of the block's and far sums together.
      "vmov.i32 q3, #0x3f000000\n\t"
      "vorr.i32 q3, #0x00002000\n\t"  // 0.5 + 2^-11
      "vaddl.u8 q14, d2, d3\n\t"
      KQ_A7_RECIP_U16
      "vaddl.u16 q12, d16, d20\n\t"
      "vaddl.u16 q13, d17, d21\n\t"
      KQ_A7_MEAN_U32("d8")
      "vaddl.u16 q12, d18, d22\n\t"
      "vaddl.u16 q13, d19, d23\n\t"
      KQ_A7_MEAN_U32("d9")
      "ldm r3, {r0, r1}\n\t"
      "vst1.8 {d8}, [r0]!\n\t"
      "vst1.8 {d9}, [r1]!\n\t"
      "stm r3, {r0, r1}\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b"
      : [n] "+r"(steps)
      : [a] "r"(a)
      : "r0", "r1", "r2", "r3", "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10",
        "d11", "d12", "d13", "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23",
        "d24", "d25", "d26", "d27", "d28", "d29", "d30", "d31", "cc", "memory");
}

// armv7, pass 2's inner steps with step-32 tables, 8 outputs per step, in
// the same way: d0 d1 the weights and slopes, d4 the weight of a luma
// difference 0 (the centre tap's), q4 the U|V centres, d12 the luma centre,
// d2 q8 q9 the sums; the row pointers in groups of U, V, luma (the centre
// tap's luma pointer is not used: its luma is the centre's).
struct Pass2Armv7 {
  const uint8_t *srcU, *srcV, *lumaCentre;
  const uint8_t* taps[5][3];  // up, left, centre, right, down: U, V, luma
  uint8_t *outU, *outV;
  const uint8_t *weights, *slopes, *w0;
};
static_assert(offsetof(Pass2Armv7, outU) == 72 && offsetof(Pass2Armv7, weights) == 80,
              "the loop's view of the pointer array");

#define KQ_A7_P2TAP(luma, dWY)                                                                   \
  "ldm r3, {r0, r1, r2}\n\t"                                                                      \
  "vld1.8 {d24}, [r0]!\n\t"                                                                       \
  "vld1.8 {d25}, [r1]!\n\t"                                                                       \
  "vld4.8 {d28-d31}, [r2]!\n\t"                                                                   \
  "stm r3!, {r0, r1, r2}\n\t"                                                                     \
  KQ_A7_TAPW("q12", "d24", "d25", "q5", "d10", "d11", "q3", "d6", "d7", "d13", "q7", luma, dWY, \
             "d7", "vadd.i8 d2, d2, d7\n\t", "vmlal.u8", "q8", "q9")

void pass2StepsArmv7(Pass2Armv7* a, int32_t steps) {
  asm volatile(
      "add r3, %[a], #80\n\t"  // weights, slopes, w0
      "ldm r3, {r0, r1, r2}\n\t"
      "vld1.8 {d0}, [r0]\n\t"
      "vld1.8 {d1}, [r1]\n\t"
      "vld1.8 {d4[]}, [r2]\n\t"
      "1:\n\t"
      "mov r3, %[a]\n\t"
      "ldm r3, {r0, r1, r2}\n\t"
      "vld2.8 {d8, d10}, [r0]!\n\t"
      "vld2.8 {d9, d11}, [r1]!\n\t"
      "vld4.8 {d12-d15}, [r2]!\n\t"
      "stm r3!, {r0, r1, r2}\n\t"
      "vmov.i8 d2, #1\n\t"
      "vmov.i16 q8, #0\n\t"
      "vmov.i16 q9, #0\n\t"
      KQ_A7_P2TAP(KQ_A7_LUMAW("d28", "d10", "d11", "d6", "q7"), "d6")
      KQ_A7_P2TAP(KQ_A7_LUMAW("d28", "d10", "d11", "d6", "q7"), "d6")
      KQ_A7_P2TAP("", "d4")
      KQ_A7_P2TAP(KQ_A7_LUMAW("d28", "d10", "d11", "d6", "q7"), "d6")
      KQ_A7_P2TAP(KQ_A7_LUMAW("d28", "d10", "d11", "d6", "q7"), "d6")
      "vmov.i32 q3, #0x3f000000\n\t"
      "vorr.i32 q3, #0x00002000\n\t"  // 0.5 + 2^-11
      KQ_A7_RECIP("d2")
      KQ_A7_MEAN("d16", "d17", "d8")
      KQ_A7_MEAN("d18", "d19", "d9")
      "ldm r3, {r0, r1}\n\t"
      "vst1.8 {d8}, [r0]!\n\t"
      "vst1.8 {d9}, [r1]!\n\t"
      "stm r3, {r0, r1}\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b"
      : [n] "+r"(steps)
      : [a] "r"(a)
      : "r0", "r1", "r2", "r3", "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10",
        "d11", "d12", "d13", "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23",
        "d24", "d25", "d26", "d27", "d28", "d29", "d30", "d31", "cc", "memory");
}
#undef KQ_A7_P2TAP
#undef KQ_A7_LUMAW
#undef KQ_A7_TAPW
#undef KQ_A7_P1TAP
#undef KQ_A7_P1FAR
#undef KQ_A7_P1LOADS
#undef KQ_A7_PARITY
#undef KQ_A7_TAP
#undef KQ_A7_RECIP
#undef KQ_A7_RECIP_U16
#undef KQ_A7_MEAN
#undef KQ_A7_MEAN_U32
#endif

// The Blocks of chroma_rows.h.
struct NeonBlocks {
  static constexpr bool kVector = true;
  using Tables = ::Tables;

  template <int kShift>
  static Tables load(const KQChromaPassContext* c) {
    return loadTables<kShift>(c);
  }

  // Whole rows where the first and last steps and the steps between them fit
  // (see steps): passes 1 and 2 need the far tap distance s = margin / 2
  // within one Q step and 32 + 2 s outputs, pass 3 (steps over half-size
  // columns, s = 1) two Inner steps.
  static bool wholeRows(const KQChromaPassContext* c, int pass) {
    const int wh = c->chromaWidth / 2;
    if (pass == 3) return wh >= 2 * Inner::kOut;
    const int s = c->margin / 2;
    return c->margin >= 2 && s <= 16 && wh >= 32 + 2 * s;
  }

  // The steps of a pass 1 or 2 run, weighed by wt.
  template <int kPass, class W>
  static void halfSizeSteps(const KQChromaPassContext* context, const Tables& t, const W& wt,
                            int x0, int n, int y, int yUp, int yDown) {
    // A local copy: the stores cannot change it, so its fields stay in
    // registers across the steps.
    const KQChromaPassContext local = *context;
    const KQChromaPassContext* c = &local;
    const int wh = c->chromaWidth / 2, s = c->margin / 2;
    const Shift sh = shiftOf(s);
    uint8_t* const outU = c->outU + size_t(y) * size_t(wh);
    uint8_t* const outV = c->outV + size_t(y) * size_t(wh);
    auto store = [&](int x, const auto& o) __attribute__((always_inline)) {
      using L = std::conditional_t<sizeof(o.u) == 16, Q, D>;
      L::store(outU + x, o.u);
      L::store(outV + x, o.v);
    };
    const bool first = x0 == 0, last = x0 + n == wh;
    if (kPass == 1 && c->inU == c->srcU && c->inV == c->srcV) {
      auto compute = [&](int x, auto kind, auto lanes) __attribute__((always_inline)) {
        return pass1Step<decltype(lanes), W, decltype(kind)::value, true>(c, t, wt, sh, x, y, yUp,
                                                                          yDown);
      };
#if !defined(__aarch64__)
      if constexpr (std::is_same_v<W, ByFormula<5>>) {
        const size_t w = size_t(c->chromaWidth), lw = size_t(c->lumaWidth);
        const int M = c->margin;
        steps<Q>(x0, n, first, last, s, compute, store, [&](int x, int count) {
          const int X = 2 * x, Y = 2 * y;
          const size_t row = size_t(Y) * w + X;
          const uint8_t* lumaY = c->luma + size_t(2 * Y) * lw + 2 * X;
          const size_t up = size_t(yUp) * w + X, down = size_t(yDown) * w + X;
          Pass1Armv7 a{{{c->inU + row, c->inV + row, lumaY},
                        {c->inU + row + w, c->inV + row + w, lumaY + 2 * lw},
                        {c->inU + up, c->inV + up, c->luma + size_t(2 * yUp) * lw + 2 * X},
                        {c->inU + row - M, c->inV + row - M, lumaY - 2 * M},
                        {c->inU + row + M, c->inV + row + M, lumaY + 2 * M},
                        {c->inU + down, c->inV + down, c->luma + size_t(2 * yDown) * lw + 2 * X}},
                       outU + x,
                       outV + x,
                       t.w,
                       t.s,
                       &t.centreWeight};
          pass1StepsArmv7(&a, count);
          return x + count * Inner::kOut;
        });
        return;
      }
#endif
#if defined(__aarch64__)
      if constexpr (std::is_same_v<W, ByLut<80>>) {
        const size_t w = size_t(c->chromaWidth), lw = size_t(c->lumaWidth);
        const int M = c->margin;
        steps<Q>(x0, n, first, last, s, compute, store, [&](int x, int count) {
          const int X = 2 * x, Y = 2 * y;
          const size_t row = size_t(Y) * w + X;
          const uint8_t* lumaY = c->luma + size_t(2 * Y) * lw + 2 * X;
          const size_t up = size_t(yUp) * w + X, down = size_t(yDown) * w + X;
          const Pass1Asm a{c->inU + row,
                           c->inV + row,
                           lumaY,
                           c->inU + row + w,
                           c->inV + row + w,
                           lumaY + 2 * lw,
                           c->luma + size_t(2 * yUp) * lw + 2 * X,
                           c->inU + up,
                           c->inV + up,
                           lumaY - 2 * M,
                           c->inU + row - M,
                           c->inV + row - M,
                           lumaY + 2 * M,
                           c->inU + row + M,
                           c->inV + row + M,
                           c->luma + size_t(2 * yDown) * lw + 2 * X,
                           c->inU + down,
                           c->inV + down,
                           outU + x,
                           outV + x,
                           int64_t(count),
                           t.lut,
                           int64_t(t.centreWeight)};
          pass1StepsAsm(&a);
          return x + count * Q::kOut;
        });
        return;
      }
#endif
      steps<Q>(x0, n, first, last, s, compute, store);
    } else if (kPass == 1) {
      steps<Q>(
          x0, n, first, last, s,
          [&](int x, auto kind, auto lanes) __attribute__((always_inline)) {
            return pass1Step<decltype(lanes), W, decltype(kind)::value, false>(c, t, wt, sh, x, y,
                                                                               yUp, yDown);
          },
          store);
    } else {
      auto compute = [&](int x, auto kind, auto lanes) __attribute__((always_inline)) {
        return pass2Step<decltype(lanes), W, decltype(kind)::value>(c, wt, t.w[0], sh, x, y, yUp,
                                                                    yDown);
      };
#if !defined(__aarch64__)
      if constexpr (std::is_same_v<W, ByFormula<5>>) {
        const size_t w = size_t(c->chromaWidth), lw = size_t(c->lumaWidth);
        steps<Q>(x0, n, first, last, s, compute, store, [&](int x, int count) {
          const uint8_t* lumaY = c->luma + size_t(4 * y) * lw + 4 * x;
          const size_t at = size_t(y) * wh + x, up = size_t(yUp) * wh + x,
                       down = size_t(yDown) * wh + x;
          Pass2Armv7 a{c->srcU + size_t(2 * y) * w + 2 * x,
                       c->srcV + size_t(2 * y) * w + 2 * x,
                       lumaY,
                       {{c->inU + up, c->inV + up, c->luma + size_t(4 * yUp) * lw + 4 * x},
                        {c->inU + at - s, c->inV + at - s, lumaY - 4 * s},
                        {c->inU + at, c->inV + at, lumaY},
                        {c->inU + at + s, c->inV + at + s, lumaY + 4 * s},
                        {c->inU + down, c->inV + down, c->luma + size_t(4 * yDown) * lw + 4 * x}},
                       outU + x,
                       outV + x,
                       t.w,
                       t.s,
                       &t.w[0]};
          pass2StepsArmv7(&a, count);
          return x + count * Inner::kOut;
        });
        return;
      }
#endif
#if defined(__aarch64__)
      if constexpr (std::is_same_v<W, ByLut<80>>) {
        const size_t w = size_t(c->chromaWidth), lw = size_t(c->lumaWidth);
        steps<Q>(x0, n, first, last, s, compute, store, [&](int x, int count) {
          const uint8_t* lumaY = c->luma + size_t(4 * y) * lw + 4 * x;
          const size_t at = size_t(y) * wh + x;
          const Pass2Asm a{c->luma + size_t(4 * yUp) * lw + 4 * x,
                           lumaY - 4 * s,
                           c->luma + size_t(4 * yDown) * lw + 4 * x,
                           c->inU + size_t(yUp) * wh + x,
                           c->inU + at,
                           c->inU + size_t(yDown) * wh + x,
                           c->inV + size_t(yUp) * wh + x,
                           c->inV + at,
                           c->inV + size_t(yDown) * wh + x,
                           c->srcU + size_t(2 * y) * w + 2 * x,
                           c->srcV + size_t(2 * y) * w + 2 * x,
                           lumaY,
                           outU + x,
                           outV + x,
                           int64_t(count),
                           t.lut,
                           int64_t(s),
                           int64_t(t.w[0])};
          pass2StepsAsm(&a);
          return x + count * Q::kOut;
        });
        return;
      }
#endif
      steps<Q>(x0, n, first, last, s, compute, store);
    }
  }

  template <int kPass, int kShift>
  static void halfSizeRun(const KQChromaPassContext* c, const Tables& t, int x0, int n, int y,
                          int yUp, int yDown) {
    if (n < Inner::kOut) {
      for (int x = x0; x < x0 + n; ++x) {
        if (kPass == 1)
          kqChromaPass1Pixel(c, kShift, x, y);
        else
          kqChromaPass2Pixel(c, kShift, x, y);
      }
      return;
    }
#if defined(__aarch64__)
    if (t.reach <= 64) {
      halfSizeSteps<kPass>(c, t, ByLut<64>(t), x0, n, y, yUp, yDown);
      return;
    }
    if (t.reach <= 80) {
      halfSizeSteps<kPass>(c, t, ByLut<80>(t), x0, n, y, yUp, yDown);
      return;
    }
    if (t.reach <= 128) {
      halfSizeSteps<kPass>(c, t, ByLut<128>(t), x0, n, y, yUp, yDown);
      return;
    }
#endif
    halfSizeSteps<kPass>(c, t, ByFormula<kShift>(t), x0, n, y, yUp, yDown);
  }

  template <int kShift>
  static void pass1(const KQChromaPassContext* c, const Tables& t, int x0, int n, int y, int yUp,
                    int yDown) {
    halfSizeRun<1, kShift>(c, t, x0, n, y, yUp, yDown);
  }

  template <int kShift>
  static void pass2(const KQChromaPassContext* c, const Tables& t, int x0, int n, int y, int yUp,
                    int yDown) {
    halfSizeRun<2, kShift>(c, t, x0, n, y, yUp, yDown);
  }

  // The steps of a pass 3 run over half-size columns [hx0, hx0 + hn) of full-size
  // row Y, chroma weighed by wc, luma by wl.
  template <class WC, class WL>
  static void pass3Steps(const KQChromaPassContext* context, const WC& wc, const WL& wl, int hx0,
                         int hn, int Y, int yUp, int y, int yDown,
                         [[maybe_unused]] const Tables* tables = nullptr) {
    const KQChromaPassContext local = *context;
    const KQChromaPassContext* c = &local;
    uint8_t* const outU = c->outU + size_t(Y) * size_t(c->chromaWidth);
    uint8_t* const outV = c->outV + size_t(Y) * size_t(c->chromaWidth);
    const Pass3Rows rows = pass3Rows(c, Y, yUp, y, yDown);
    const bool first = hx0 == 0, last = hx0 + hn == c->chromaWidth / 2;
    auto compute = [&](int hx, auto kind, auto lanes) __attribute__((always_inline)) {
      return pass3Step<decltype(lanes), WC, WL, decltype(kind)::value>(rows, wc, wl, hx);
    };
    auto store = [&](int hx, const Out2<Inner>& o) __attribute__((always_inline)) {
      Inner::storeInterleaved(outU + 2 * hx, o.even.u, o.odd.u);
      Inner::storeInterleaved(outV + 2 * hx, o.even.v, o.odd.v);
    };
#if defined(__aarch64__)
    if constexpr (std::is_same_v<WC, ByLut<96>>) {
      const Tables* t = tables;
      steps<Inner>(hx0, hn, first, last, 1, compute, store, [&](int hx, int n) {
        const Pass3Asm a{rows.lumaUp + 4 * hx,     rows.lumaMid + 4 * hx - 4,
                         rows.lumaDown + 4 * hx,   rows.uUp + hx,
                         rows.uMid + hx,           rows.uDown + hx,
                         rows.vUp + hx,            rows.vMid + hx,
                         rows.vDown + hx,          rows.srcU + 2 * hx,
                         rows.srcV + 2 * hx,       rows.lumaCentre + 4 * hx,
                         outU + 2 * hx,            outV + 2 * hx,
                         int64_t(n),               t->lut,
                         t->lutLuma};
        pass3StepsAsm(&a);
        return hx + n * Inner::kOut;
      });
      return;
    }
#else
    if constexpr (std::is_same_v<WC, ByFormula<5>> && std::is_same_v<WL, ByLutLuma24>) {
      const Tables* t = tables;
      steps<Inner>(hx0, hn, first, last, 1, compute, store, [&](int hx, int n) {
        Pass3Armv7 a{rows.srcU + 2 * hx,
                     rows.srcV + 2 * hx,
                     rows.lumaCentre + 4 * hx,
                     {{rows.lumaUp + 4 * hx, rows.uUp + hx, rows.vUp + hx},
                      {rows.lumaMid + 4 * hx - 4, rows.uMid + hx - 1, rows.vMid + hx - 1},
                      {rows.lumaMid + 4 * hx, rows.uMid + hx, rows.vMid + hx},
                      {rows.lumaMid + 4 * hx + 4, rows.uMid + hx + 1, rows.vMid + hx + 1},
                      {rows.lumaDown + 4 * hx, rows.uDown + hx, rows.vDown + hx}},
                     outU + 2 * hx,
                     outV + 2 * hx,
                     t->w,
                     t->s,
                     t->lutLuma};
        pass3StepsArmv7(&a, n);
        return hx + n * Inner::kOut;
      });
      return;
    }
#endif
    steps<Inner>(hx0, hn, first, last, 1, compute, store);
  }

  // Outputs are full-size columns X = 2 * hx; X0 and n are even.
  template <int kShift>
  static void pass3(const KQChromaPassContext* c, const Tables& t, int X0, int n, int Y, int yUp,
                    int y, int yDown) {
    if (n < 2 * Inner::kOut) {
      for (int X = X0; X < X0 + n; ++X) kqChromaPass3Pixel(c, kShift, X, Y);
      return;
    }
    if (t.reach <= 128) {
#if defined(__aarch64__)
      if (t.reach <= 64)
        pass3Steps(c, ByLut<64>(t), ByLutLuma(t), X0 / 2, n / 2, Y, yUp, y, yDown);
      else if (t.reach <= 96)
        pass3Steps(c, ByLut<96>(t), ByLutLuma(t), X0 / 2, n / 2, Y, yUp, y, yDown, &t);
      else
        pass3Steps(c, ByLut<128>(t), ByLutLuma(t), X0 / 2, n / 2, Y, yUp, y, yDown);
#else
      if (t.reach <= 96)
        pass3Steps(c, ByFormula<kShift>(t), ByLutLuma24(t), X0 / 2, n / 2, Y, yUp, y, yDown, &t);
      else
        pass3Steps(c, ByFormula<kShift>(t), ByLutLuma(t), X0 / 2, n / 2, Y, yUp, y, yDown);
#endif
      return;
    }
    pass3Steps(c, ByFormula<kShift>(t), ByFormula<kShift, kKqChromaPass3LumaGain>(t), X0 / 2, n / 2,
               Y, yUp, y, yDown);
  }
};

}  // namespace

void kqChromaDspInit_neon(KQChromaDsp* dsp) {
  kqChromaFillPassTable<NeonBlocks>(dsp);
  dsp->means = kqChromaMeans_neon;
}

// The kernels' means, 4 at a time (a partial last group through a padded
// copy).
void kqChromaMeans_neon(uint8_t* out, const uint32_t* sums, const uint32_t* weights, int32_t n) {
  for (int32_t i = 0; i < n; i += 4) {
    uint32_t s[4] = {0, 0, 0, 0}, w[4] = {1, 1, 1, 1};
    const int32_t m = n - i < 4 ? n - i : 4;
    std::memcpy(s, sums + i, size_t(m) * 4);
    std::memcpy(w, weights + i, size_t(m) * 4);
    const uint32x4_t q = meanQuad(vld1q_u32(s), reciprocal(vcvtq_f32_u32(vld1q_u32(w))));
    uint32_t r[4];
    vst1q_u32(r, q);
    for (int32_t k = 0; k < m; ++k) out[i + k] = uint8_t(r[k]);
  }
}
