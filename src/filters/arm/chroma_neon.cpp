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
#include <cstdint>
#include <cstring>
#include <initializer_list>
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
//    (within a relative 2^-21 of 1 / weight) and scales it by 1 + 2^-20 (the
//    second step's product takes the scale first), so that it lies above
//    1 / weight, by less than a relative 2^-19, and converts it to 1.31
//    fixed point, R (saturated: 2^31 - 1 for a weight of 1). The mean
//    is then one vqrdmulh, floor(sum R / 2^31 + 1 / 2), on the sum's integer
//    lanes: sum R / 2^31 lies above sum / weight (truncating R to the fixed
//    point loses far less than the scale adds), so a quotient with a half
//    rounds up as the reference's does, and by at most (sum / weight) * 2^-19,
//    below 1 / (2 weight) as sum < 2^17. For a weight of 1,
//    sum (1 - 2^-31) + 1 / 2 rounds down to the sum. Both forms of vrecps (the
//    separate multiply of ARMv7 and ARMv8's fused one) give the same means for
//    every weight up to 369 and sum up to 255 times it; the kernel checks hold
//    the means to the reference over all of them. The means loops of passes
//    2 and 3 (weights up to 231) refine once: after one step the reciprocal
//    lies within a relative 2^-18 below 1 / weight, and the scale
//    1 + 31 * 2^-22 puts it above, by little enough that no sum up to 255
//    weight crosses a half for any weight up to 273 (found by exhaustive
//    emulation; some weights beyond fail, so pass 1 refines twice); the
//    kernel checks emulate that form over its pairs as well;
//  - aarch64 divides once for r = (1 + 2^-19) / weight and rounds the product
//    to the nearest integer: sum * r lies above sum / weight by a relative
//    2^-19 less the rounding errors (2^-23), so a quotient with a half rounds
//    up as the reference's does, and by at most (sum / weight) * 2^-18, which
//    is below 1 / (2 weight) as sum < 2^17.
#if defined(__aarch64__)
// The dividend of aarch64's reciprocals, 1 + 2^-19 (the assembly loops load
// it from here).
const float kMeanDividend = 1.0f + 1.0f / 524288.0f;

using RecipLanes = float32x4_t;
KQ_INLINE RecipLanes reciprocal(float32x4_t w) {
  return vdivq_f32(vdupq_n_f32(kMeanDividend), w);
}
KQ_INLINE uint32x4_t meanQuad(uint32x4_t sum, RecipLanes r) {
  return vcvtnq_u32_f32(vmulq_f32(vcvtq_f32_u32(sum), r));
}
#else
using RecipLanes = int32x4_t;  // R, 1.31 fixed point
KQ_INLINE RecipLanes reciprocal(float32x4_t w) {
  float32x4_t r = vrecpeq_f32(w);
  r = vmulq_f32(vrecpsq_f32(w, r), r);
  // The second step's product taken by the scale 1 + 2^-20 first, beside the
  // step, as pass 1's means loop does.
  const float32x4_t step = vrecpsq_f32(w, r);
  r = vmulq_f32(r, vreinterpretq_f32_u32(vdupq_n_u32(kKqChromaMeanScale2Bits)));
  return vcvtq_n_s32_f32(vmulq_f32(r, step), 31);
}
KQ_INLINE uint32x4_t meanQuad(uint32x4_t sum, RecipLanes r) {
  return vreinterpretq_u32_s32(vqrdmulhq_s32(vreinterpretq_s32_u32(sum), r));
}
#endif

// Reciprocals of 8 weights (u16), lanes 0..3 and 4..7.
struct Recip8 {
  RecipLanes lo, hi;
};
KQ_INLINE Recip8 recip8(uint16x8_t w) {
  return Recip8{reciprocal(vcvtq_f32_u32(vmovl_u16(vget_low_u16(w)))),
                reciprocal(vcvtq_f32_u32(vmovl_u16(vget_high_u16(w))))};
}

// Means of 8 lanes: 32-bit sums, or 16-bit ones.
KQ_INLINE uint16x8_t mean8(uint32x4_t sumLo, uint32x4_t sumHi, const Recip8& r) {
#if defined(__aarch64__)
  return vuzp1q_u16(vreinterpretq_u16_u32(meanQuad(sumLo, r.lo)),
                    vreinterpretq_u16_u32(meanQuad(sumHi, r.hi)));
#else
  return vcombine_u16(vmovn_u32(meanQuad(sumLo, r.lo)), vmovn_u32(meanQuad(sumHi, r.hi)));
#endif
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
  static constexpr int kShiftOf = kShift;
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

// The luma of half-size column hx.. (one per lane) of a luma row: every
// fourth byte of the plane's row, or with kQuarter a row of those bytes
// taken out beforehand (one per half-size column).
template <class L, bool kQuarter>
KQ_INLINE typename L::B quarterLuma(const uint8_t* row, int hx) {
  if constexpr (kQuarter)
    return L::load(row + hx);
  else
    return L::every4th(row + 4 * hx);
}

// The five taps of pass 3 for half-size columns hx0.. (one per lane), added
// to the sums a[i] of the kN outputs with centres ce[i].
template <class L, class WC, class WL, int kKind, int kN, bool kQuarter = false>
KQ_INLINE void pass3Taps(const Pass3Rows& r, const WC& wc, const WL& wl, int hx0, Acc<L> (&a)[kN],
                         const Centre<L> (&ce)[kN]) {
  using B = typename L::B;
  auto tap = [&](B tY, B tU, B tV) __attribute__((always_inline)) {
    for (int i = 0; i < kN; ++i) addTap<L>(&a[i], wc, wl, ce[i], tY, tU, tV);
  };
  auto luma = [&](const uint8_t* row, int hx) __attribute__((always_inline)) {
    return quarterLuma<L, kQuarter>(row, hx);
  };
  const B my = luma(r.lumaMid, hx0), mu = L::load(r.uMid + hx0), mv = L::load(r.vMid + hx0);
  tap(luma(r.lumaUp, hx0), L::load(r.uUp + hx0), L::load(r.vUp + hx0));
  if constexpr (kKind == kFirst) {
    tap(L::moveUp(my, 1), L::moveUp(mu, 1), L::moveUp(mv, 1));
  } else {
    tap(luma(r.lumaMid, hx0 - 1), L::load(r.uMid + hx0 - 1), L::load(r.vMid + hx0 - 1));
  }
  tap(my, mu, mv);
  if constexpr (kKind == kLast) {
    tap(L::moveDown(my, 1), L::moveDown(mu, 1), L::moveDown(mv, 1));
  } else {
    tap(luma(r.lumaMid, hx0 + 1), L::load(r.uMid + hx0 + 1), L::load(r.vMid + hx0 + 1));
  }
  tap(luma(r.lumaDown, hx0), L::load(r.uDown + hx0), L::load(r.vDown + hx0));
}

#if defined(__aarch64__)
// Rows taken out for aarch64's pass 3 (see pass3Steps): at most kQuarterMax
// half-size columns, rows kQuarterRow bytes apart (a multiple of 16, which
// the assembly steps' load offsets need).
constexpr int kQuarterMax = 2048;
constexpr int kQuarterRow = kQuarterMax + 16;
#endif

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
template <class L, class WC, class WL, int kKind, bool kQuarter = false>
KQ_INLINE Out2<L> pass3Step(const Pass3Rows& r, const WC& wc, const WL& wl, int hx0) {
#if defined(__aarch64__)
  Centre<L> ce[2];
  L::evenOdd(r.srcU + 2 * hx0, &ce[0].u, &ce[1].u);
  L::evenOdd(r.srcV + 2 * hx0, &ce[0].v, &ce[1].v);
  if constexpr (kQuarter) {
    // The luma centres' rows taken out: even columns' row at lumaCentre,
    // odd columns' one wh bytes on (see pass3Steps).
    ce[0].y = L::load(r.lumaCentre + hx0);
    ce[1].y = L::load(r.lumaCentre + kQuarterRow + hx0);
  } else {
    L::every4thPair(r.lumaCentre + 4 * hx0, &ce[0].y, &ce[1].y);
  }
  // Own colour, weight 1.
  auto start = [](const Centre<L>& c) __attribute__((always_inline)) {
    return Acc<L>{L::dup(1), L::widen(c.u), L::widen(c.v)};
  };
  Acc<L> a[2] = {start(ce[0]), start(ce[1])};
  pass3Taps<L, WC, WL, kKind, 2, kQuarter>(r, wc, wl, hx0, a, ce);
  return Out2<L>{means(a[0]), means(a[1])};
#else
  const Out<L> even = pass3Parity<L, WC, WL, kKind, 0>(r, wc, wl, hx0);
  return Out2<L>{even, pass3Parity<L, WC, WL, kKind, 1>(r, wc, wl, hx0)};
#endif
}

#if !defined(__aarch64__)
// The post-increments with which one pointer of an armv7 assembly loop walks
// the rows a step loads from, in the order it loads them (its generator's
// chain): word i takes the pointer from rows[i] to rows[i + 1], the last
// word from the last row to the first row `advance` bytes on, where the next
// step starts. One register and a load of its word per row, where a row's
// base and column would take a load and an add (armv7 has too few registers
// to keep a pointer per row); modulo 2^32, so the rows may lie in different
// planes. Returns the word after the walk's.
inline uint32_t* walkWords(uint32_t* word, std::initializer_list<const uint8_t*> rows,
                           uint32_t advance) {
  const uint8_t* const* r = rows.begin();
  const size_t n = rows.size();
  for (size_t i = 0; i + 1 < n; ++i) *word++ = uint32_t(uintptr_t(r[i + 1]) - uintptr_t(r[i]));
  *word++ = uint32_t(uintptr_t(r[0]) + advance - uintptr_t(r[n - 1]));
  return word;
}

// Pass 3's inner steps on armv7, in assembly: GCC spills and moves registers
// in the compiled steps (about 70 of their 440 instructions per 16 outputs).
// A step takes 8 half-size columns and both parities in one q register
// (even outputs in the low half, odd ones in the high), so that each tap is
// loaded once and the element-wise steps run on 16 lanes. Registers: d16-d19
// the weight and slope tables, d20-d22 the luma look-up (every difference
// from 96 on weighs as 0), q7 the weights, q12-q15 the sums (U even, U odd,
// V even, V odd), q0-q6 the taps and their weights. The centres are kept in
// a 16-byte aligned buffer and loaded again by each tap, which leaves the
// registers a tap needs. Three pointers walk the rows a step loads from
// (walkWords), and the steps are ordered for an in-order core (a list
// schedule over Cortex-A57 latencies; the text is
// scripts/asmgen/chroma_pass3_armv7.py's).
struct Pass3Armv7Rows {
  const uint8_t* src[2];      // U, V centres: full-size row Y           (+ 2 hx)
  const uint8_t* lumaCentre;  // luma row 2Y                              (+ 4 hx)
  const uint8_t* u[5];        // taps: up, left, centre, right, down      (+ hx)
  const uint8_t* v[5];
  const uint8_t* luma[5];     // luma rows 4 yUp, 4 y (x - 4, x, x + 4), 4 yDown (+ 4 hx)
  uint8_t* out[2];            // U, V outputs: full-size row Y            (+ 2 hx)
};

// The record of pass 3's assembly loops: the walks of the taps' U and V
// (words 0-9), the centres' U and V (10, 11) and the luma (12-17), in the
// generator's chains, then the weight table (18) and the luma look-up (19).
inline void pass3Words(const Pass3Armv7Rows& r, const uint8_t* table, const uint8_t* lumaTable,
                       uint32_t words[20]) {
  uint32_t* w = walkWords(words, {r.u[0], r.v[0], r.u[1], r.v[1], r.u[2], r.v[2], r.u[3], r.v[3],
                                  r.u[4], r.v[4]}, 8);
  w = walkWords(w, {r.src[0], r.src[1]}, 16);
  w = walkWords(w, {r.lumaCentre, r.luma[0], r.luma[1], r.luma[2], r.luma[3], r.luma[4]}, 32);
  w[0] = uint32_t(uintptr_t(table));
  w[1] = uint32_t(uintptr_t(lumaTable));
}

// The means loop of pass 3's steps on armv7 (after either sums loop): n
// steps' sums and weights from `sums`, 16 outputs each into *o0 (U) and *o1
// (V), which it moves on. Its weights stay within
// kKqChromaMeanOneStepWeights, where one refinement of the reciprocal
// estimate gives the exact means (see the comment above reciprocal()).
inline void pass3MeansArmv7(const uint8_t* sums, int32_t n, uint8_t** o0, uint8_t** o1) {
  uint8_t *u = *o0, *v = *o1;
  const uint8_t* sp = sums;
  int32_t k = n;
  asm volatile(
      "vdup.32 q8, %[scale]\n\t"
      "1:\n\t"
      "vld1.64 {d14, d15}, [%[S]:128]!\n\t"
      "vmovl.u8 q0, d14\n\t"
      "vmovl.u8 q1, d15\n\t"
      "vld1.64 {d24, d25, d26, d27}, [%[S]:128]!\n\t"
      "vmovl.u16 q2, d0\n\t"
      "vmovl.u16 q3, d1\n\t"
      "vmovl.u16 q4, d2\n\t"
      "vcvt.f32.u32 q2, q2\n\t"
      "vcvt.f32.u32 q3, q3\n\t"
      "vmovl.u16 q5, d3\n\t"
      "vcvt.f32.u32 q4, q4\n\t"
      "vld1.64 {d28, d29, d30, d31}, [%[S]:128]!\n\t"
      "vrecpe.f32 q0, q2\n\t"
      "vrecpe.f32 q6, q3\n\t"
      "vcvt.f32.u32 q5, q5\n\t"
      "vmovl.u16 q9, d28\n\t"
      "vrecps.f32 q1, q2, q0\n\t"
      "vmul.f32 q0, q0, q8\n\t"
      "vrecps.f32 q7, q3, q6\n\t"
      "vmul.f32 q6, q6, q8\n\t"
      "vmovl.u16 q10, d29\n\t"
      "vmovl.u16 q11, d30\n\t"
      "vmul.f32 q2, q0, q1\n\t"
      "vrecpe.f32 q0, q4\n\t"
      "vmul.f32 q3, q6, q7\n\t"
      "vrecpe.f32 q6, q5\n\t"
      "vcvt.s32.f32 q2, q2, #31\n\t"
      "vrecps.f32 q1, q4, q0\n\t"
      "vmul.f32 q0, q0, q8\n\t"
      "vrecps.f32 q7, q5, q6\n\t"
      "vmul.f32 q6, q6, q8\n\t"
      "vcvt.s32.f32 q3, q3, #31\n\t"
      "vqrdmulh.s32 q9, q9, q2\n\t"
      "vmul.f32 q4, q0, q1\n\t"
      "vmovl.u16 q0, d26\n\t"
      "vmul.f32 q5, q6, q7\n\t"
      "vmovl.u16 q6, d24\n\t"
      "vmovl.u16 q7, d25\n\t"
      "vcvt.s32.f32 q4, q4, #31\n\t"
      "vmovl.u16 q1, d27\n\t"
      "vcvt.s32.f32 q5, q5, #31\n\t"
      "vmovl.u16 q12, d31\n\t"
      "vqrdmulh.s32 q6, q6, q2\n\t"
      "vqrdmulh.s32 q7, q7, q3\n\t"
      "vqrdmulh.s32 q0, q0, q4\n\t"
      "vqrdmulh.s32 q1, q1, q5\n\t"
      "vqrdmulh.s32 q10, q10, q3\n\t"
      "vqrdmulh.s32 q11, q11, q4\n\t"
      "vqrdmulh.s32 q12, q12, q5\n\t"
      "vuzp.16 q6, q7\n\t"
      "vuzp.16 q0, q1\n\t"
      "vuzp.16 q9, q10\n\t"
      "vuzp.16 q11, q12\n\t"
      "vuzp.8 q6, q0\n\t"
      "vuzp.8 q9, q11\n\t"
      "vst2.8 {d12, d13}, [%[o0]]!\n\t"
      "vst2.8 {d18, d19}, [%[o1]]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [o0] "+r"(u), [o1] "+r"(v), [n] "+r"(k), [S] "+r"(sp)
      : [scale] "r"(kKqChromaMeanScale1Bits)
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "d28", "d29", "d30", "d31", "cc", "memory");
  *o0 = u;
  *o1 = v;
}

template <int kShift>
void pass3InnerArmv7(const Pass3Armv7Rows* rows, const Tables& t, int32_t hx, int32_t count) {
  // The steps go in chunks of up to kChunk through two loops: the first
  // makes each step's weights and sums and keeps them in `sums` (80 bytes a
  // step), the second turns them into means and stores them. Apart, each
  // loop's steps overlap better on an in-order core than one long step, and
  // the means' long dependency chain no longer holds the next step's taps.
  constexpr int32_t kChunk = 16;
  alignas(16) uint8_t centres[48];
  alignas(16) uint8_t sums[kChunk * 80];
  uint8_t* const b = centres;
  const Pass3Armv7Rows& r = *rows;
  uint32_t words[20];
  pass3Words(r, t.w, t.lutLuma, words);
  const uint8_t *p0 = r.u[0] + hx, *p1 = r.src[0] + 2 * hx, *p2 = r.lumaCentre + 4 * hx;
  uint8_t *o0 = r.out[0] + 2 * hx, *o1 = r.out[1] + 2 * hx;
  while (count > 0) {
    const int32_t n = count < kChunk ? count : kChunk;
    int32_t k = n;
    uint8_t* sp = sums;
    uint32_t sa, sb, sc;
    asm volatile(
        "ldr %[a], [%[R], #72]\n\t"
        "vld1.8 {d16-d19}, [%[a]]\n\t"
        "ldr %[a], [%[R], #76]\n\t"
        "vld1.8 {d20-d22}, [%[a]]\n\t"
        "1:\n\t"
        "vmov.i8 q7, #1\n\t"
        "ldr %[c], [%[R], #48]\n\t"
        "ldr %[a], [%[R], #40]\n\t"
        "ldr %[b], [%[R], #44]\n\t"
        "vld4.8 {d6, d7, d8, d9}, [%[p2]], %[c]\n\t"
        "ldr %[c], [%[R], #52]\n\t"
        "vld2.8 {d2, d3}, [%[p1]], %[a]\n\t"
        "ldr %[a], [%[R], #0]\n\t"
        "vld2.8 {d4, d5}, [%[p1]], %[b]\n\t"
        "ldr %[b], [%[R], #4]\n\t"
        "vld1.8 {d12}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #8]\n\t"
        "vmovl.u8 q12, d2\n\t"
        "vst1.64 {d2, d3, d4, d5}, [%[B]:128]\n\t"
        "vmovl.u8 q13, d3\n\t"
        "vorr d7, d8, d8\n\t"
        "vld4.8 {d0, d1, d2, d3}, [%[p2]], %[c]\n\t"
        "ldr %[c], [%[R], #56]\n\t"
        "vmovl.u8 q14, d4\n\t"
        "vst1.64 {d6, d7}, [%[B32]:128]\n\t"
        "vld1.64 {d2, d3}, [%[B]:128]\n\t"
        "vld1.64 {d6, d7}, [%[B32]:128]\n\t"
        "vmovl.u8 q15, d5\n\t"
        "vld1.8 {d13}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #12]\n\t"
        "vabd.u8 d2, d2, d12\n\t"
        "vabd.u8 d3, d3, d12\n\t"
        "vabd.u8 d6, d6, d0\n\t"
        "vabd.u8 d7, d7, d0\n\t"
        "vshr.u8 q4, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d6, {d20, d21, d22}, d6\n\t"
        "vtbl.8 d1, {d18, d19}, d9\n\t"
        "vtbl.8 d0, {d18, d19}, d8\n\t"
        "vtbl.8 d8, {d16, d17}, d8\n\t"
        "vmull.u8 q2, d1, d3\n\t"
        "vmull.u8 q5, d0, d2\n\t"
        "vtbl.8 d9, {d16, d17}, d9\n\t"
        "vtbl.8 d7, {d20, d21, d22}, d7\n\t"
        "vrshrn.i16 d1, q2, #8\n\t"
        "vld1.64 {d4, d5}, [%[B16]:128]\n\t"
        "vrshrn.i16 d0, q5, #8\n\t"
        "vabd.u8 d4, d4, d13\n\t"
        "vabd.u8 d5, d5, d13\n\t"
        "vsub.i8 q4, q4, q0\n\t"
        "vshr.u8 q5, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d0, {d18, d19}, d10\n\t"
        "vtbl.8 d1, {d18, d19}, d11\n\t"
        "vtbl.8 d10, {d16, d17}, d10\n\t"
        "vmull.u8 q1, d0, d4\n\t"
        "vtbl.8 d11, {d16, d17}, d11\n\t"
        "vrshrn.i16 d0, q1, #8\n\t"
        "vmull.u8 q1, d1, d5\n\t"
        "vrshrn.i16 d1, q1, #8\n\t"
        "vsub.i8 q5, q5, q0\n\t"
        "vmull.u8 q0, d10, d8\n\t"
        "vmull.u8 q1, d11, d9\n\t"
        "vshrn.i16 d4, q0, #8\n\t"
        "vshrn.i16 d5, q1, #8\n\t"
        "vmull.u8 q0, d4, d6\n\t"
        "vmull.u8 q1, d5, d7\n\t"
        "vld1.64 {d6, d7}, [%[B32]:128]\n\t"
        "vshrn.i16 d4, q0, #8\n\t"
        "vshrn.i16 d5, q1, #8\n\t"
        "vshr.u8 q0, q2, #3\n\t"
        "vsra.u8 q0, q2, #4\n\t"
        "vadd.i8 q7, q7, q0\n\t"
        "vmlal.u8 q12, d0, d12\n\t"
        "vmlal.u8 q13, d1, d12\n\t"
        "vmlal.u8 q14, d0, d13\n\t"
        "vmlal.u8 q15, d1, d13\n\t"
        "vld4.8 {d0, d1, d2, d3}, [%[p2]], %[c]\n\t"
        "ldr %[c], [%[R], #60]\n\t"
        "vld1.8 {d12}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #16]\n\t"
        "vld1.64 {d2, d3}, [%[B]:128]\n\t"
        "vld1.8 {d13}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #20]\n\t"
        "vabd.u8 d2, d2, d12\n\t"
        "vabd.u8 d3, d3, d12\n\t"
        "vabd.u8 d6, d6, d0\n\t"
        "vabd.u8 d7, d7, d0\n\t"
        "vshr.u8 q4, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d6, {d20, d21, d22}, d6\n\t"
        "vtbl.8 d1, {d18, d19}, d9\n\t"
        "vtbl.8 d0, {d18, d19}, d8\n\t"
        "vtbl.8 d8, {d16, d17}, d8\n\t"
        "vmull.u8 q2, d1, d3\n\t"
        "vmull.u8 q5, d0, d2\n\t"
        "vtbl.8 d9, {d16, d17}, d9\n\t"
        "vtbl.8 d7, {d20, d21, d22}, d7\n\t"
        "vrshrn.i16 d1, q2, #8\n\t"
        "vld1.64 {d4, d5}, [%[B16]:128]\n\t"
        "vrshrn.i16 d0, q5, #8\n\t"
        "vabd.u8 d4, d4, d13\n\t"
        "vabd.u8 d5, d5, d13\n\t"
        "vsub.i8 q4, q4, q0\n\t"
        "vshr.u8 q5, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d0, {d18, d19}, d10\n\t"
        "vtbl.8 d1, {d18, d19}, d11\n\t"
        "vtbl.8 d10, {d16, d17}, d10\n\t"
        "vmull.u8 q1, d0, d4\n\t"
        "vtbl.8 d11, {d16, d17}, d11\n\t"
        "vrshrn.i16 d0, q1, #8\n\t"
        "vmull.u8 q1, d1, d5\n\t"
        "vrshrn.i16 d1, q1, #8\n\t"
        "vsub.i8 q5, q5, q0\n\t"
        "vmull.u8 q0, d10, d8\n\t"
        "vmull.u8 q1, d11, d9\n\t"
        "vshrn.i16 d4, q0, #8\n\t"
        "vshrn.i16 d5, q1, #8\n\t"
        "vmull.u8 q0, d4, d6\n\t"
        "vmull.u8 q1, d5, d7\n\t"
        "vld1.64 {d6, d7}, [%[B32]:128]\n\t"
        "vshrn.i16 d4, q0, #8\n\t"
        "vshrn.i16 d5, q1, #8\n\t"
        "vshr.u8 q0, q2, #3\n\t"
        "vsra.u8 q0, q2, #4\n\t"
        "vadd.i8 q7, q7, q0\n\t"
        "vmlal.u8 q12, d0, d12\n\t"
        "vmlal.u8 q13, d1, d12\n\t"
        "vmlal.u8 q14, d0, d13\n\t"
        "vmlal.u8 q15, d1, d13\n\t"
        "vld4.8 {d0, d1, d2, d3}, [%[p2]], %[c]\n\t"
        "ldr %[c], [%[R], #64]\n\t"
        "vld1.8 {d12}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #24]\n\t"
        "vld1.64 {d2, d3}, [%[B]:128]\n\t"
        "vld1.8 {d13}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #28]\n\t"
        "vabd.u8 d2, d2, d12\n\t"
        "vabd.u8 d3, d3, d12\n\t"
        "vabd.u8 d6, d6, d0\n\t"
        "vabd.u8 d7, d7, d0\n\t"
        "vshr.u8 q4, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d6, {d20, d21, d22}, d6\n\t"
        "vtbl.8 d1, {d18, d19}, d9\n\t"
        "vtbl.8 d0, {d18, d19}, d8\n\t"
        "vtbl.8 d8, {d16, d17}, d8\n\t"
        "vmull.u8 q2, d1, d3\n\t"
        "vmull.u8 q5, d0, d2\n\t"
        "vtbl.8 d9, {d16, d17}, d9\n\t"
        "vtbl.8 d7, {d20, d21, d22}, d7\n\t"
        "vrshrn.i16 d1, q2, #8\n\t"
        "vld1.64 {d4, d5}, [%[B16]:128]\n\t"
        "vrshrn.i16 d0, q5, #8\n\t"
        "vabd.u8 d4, d4, d13\n\t"
        "vabd.u8 d5, d5, d13\n\t"
        "vsub.i8 q4, q4, q0\n\t"
        "vshr.u8 q5, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d0, {d18, d19}, d10\n\t"
        "vtbl.8 d1, {d18, d19}, d11\n\t"
        "vtbl.8 d10, {d16, d17}, d10\n\t"
        "vmull.u8 q1, d0, d4\n\t"
        "vtbl.8 d11, {d16, d17}, d11\n\t"
        "vrshrn.i16 d0, q1, #8\n\t"
        "vmull.u8 q1, d1, d5\n\t"
        "vrshrn.i16 d1, q1, #8\n\t"
        "vsub.i8 q5, q5, q0\n\t"
        "vmull.u8 q0, d10, d8\n\t"
        "vmull.u8 q1, d11, d9\n\t"
        "vshrn.i16 d4, q0, #8\n\t"
        "vshrn.i16 d5, q1, #8\n\t"
        "vmull.u8 q0, d4, d6\n\t"
        "vmull.u8 q1, d5, d7\n\t"
        "vld1.64 {d6, d7}, [%[B32]:128]\n\t"
        "vshrn.i16 d4, q0, #8\n\t"
        "vshrn.i16 d5, q1, #8\n\t"
        "vshr.u8 q0, q2, #3\n\t"
        "vsra.u8 q0, q2, #4\n\t"
        "vadd.i8 q7, q7, q0\n\t"
        "vmlal.u8 q12, d0, d12\n\t"
        "vmlal.u8 q13, d1, d12\n\t"
        "vmlal.u8 q14, d0, d13\n\t"
        "vmlal.u8 q15, d1, d13\n\t"
        "vld4.8 {d0, d1, d2, d3}, [%[p2]], %[c]\n\t"
        "ldr %[c], [%[R], #68]\n\t"
        "vld1.8 {d12}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #32]\n\t"
        "vld1.64 {d2, d3}, [%[B]:128]\n\t"
        "vld1.8 {d13}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #36]\n\t"
        "vabd.u8 d2, d2, d12\n\t"
        "vabd.u8 d3, d3, d12\n\t"
        "vabd.u8 d6, d6, d0\n\t"
        "vabd.u8 d7, d7, d0\n\t"
        "vshr.u8 q4, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d6, {d20, d21, d22}, d6\n\t"
        "vtbl.8 d1, {d18, d19}, d9\n\t"
        "vtbl.8 d0, {d18, d19}, d8\n\t"
        "vtbl.8 d8, {d16, d17}, d8\n\t"
        "vmull.u8 q2, d1, d3\n\t"
        "vmull.u8 q5, d0, d2\n\t"
        "vtbl.8 d9, {d16, d17}, d9\n\t"
        "vtbl.8 d7, {d20, d21, d22}, d7\n\t"
        "vrshrn.i16 d1, q2, #8\n\t"
        "vld1.64 {d4, d5}, [%[B16]:128]\n\t"
        "vrshrn.i16 d0, q5, #8\n\t"
        "vabd.u8 d4, d4, d13\n\t"
        "vabd.u8 d5, d5, d13\n\t"
        "vsub.i8 q4, q4, q0\n\t"
        "vshr.u8 q5, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d0, {d18, d19}, d10\n\t"
        "vtbl.8 d1, {d18, d19}, d11\n\t"
        "vtbl.8 d10, {d16, d17}, d10\n\t"
        "vmull.u8 q1, d0, d4\n\t"
        "vtbl.8 d11, {d16, d17}, d11\n\t"
        "vrshrn.i16 d0, q1, #8\n\t"
        "vmull.u8 q1, d1, d5\n\t"
        "vrshrn.i16 d1, q1, #8\n\t"
        "vsub.i8 q5, q5, q0\n\t"
        "vmull.u8 q0, d10, d8\n\t"
        "vmull.u8 q1, d11, d9\n\t"
        "vshrn.i16 d4, q0, #8\n\t"
        "vshrn.i16 d5, q1, #8\n\t"
        "vmull.u8 q0, d4, d6\n\t"
        "vmull.u8 q1, d5, d7\n\t"
        "vld1.64 {d6, d7}, [%[B32]:128]\n\t"
        "vshrn.i16 d4, q0, #8\n\t"
        "vshrn.i16 d5, q1, #8\n\t"
        "vshr.u8 q0, q2, #3\n\t"
        "vsra.u8 q0, q2, #4\n\t"
        "vadd.i8 q7, q7, q0\n\t"
        "vmlal.u8 q12, d0, d12\n\t"
        "vmlal.u8 q13, d1, d12\n\t"
        "vmlal.u8 q14, d0, d13\n\t"
        "vmlal.u8 q15, d1, d13\n\t"
        "vld4.8 {d0, d1, d2, d3}, [%[p2]], %[c]\n\t"
        "vld1.8 {d12}, [%[p0]], %[a]\n\t"
        "vld1.64 {d2, d3}, [%[B]:128]\n\t"
        "vld1.8 {d13}, [%[p0]], %[b]\n\t"
        "vabd.u8 d2, d2, d12\n\t"
        "vabd.u8 d3, d3, d12\n\t"
        "vabd.u8 d6, d6, d0\n\t"
        "vabd.u8 d7, d7, d0\n\t"
        "vshr.u8 q4, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d6, {d20, d21, d22}, d6\n\t"
        "vtbl.8 d1, {d18, d19}, d9\n\t"
        "vtbl.8 d0, {d18, d19}, d8\n\t"
        "vtbl.8 d8, {d16, d17}, d8\n\t"
        "vmull.u8 q2, d1, d3\n\t"
        "vmull.u8 q5, d0, d2\n\t"
        "vtbl.8 d9, {d16, d17}, d9\n\t"
        "vtbl.8 d7, {d20, d21, d22}, d7\n\t"
        "vrshrn.i16 d1, q2, #8\n\t"
        "vld1.64 {d4, d5}, [%[B16]:128]\n\t"
        "vrshrn.i16 d0, q5, #8\n\t"
        "vabd.u8 d4, d4, d13\n\t"
        "vabd.u8 d5, d5, d13\n\t"
        "vsub.i8 q4, q4, q0\n\t"
        "vshr.u8 q5, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d0, {d18, d19}, d10\n\t"
        "vtbl.8 d1, {d18, d19}, d11\n\t"
        "vtbl.8 d10, {d16, d17}, d10\n\t"
        "vmull.u8 q1, d0, d4\n\t"
        "vtbl.8 d11, {d16, d17}, d11\n\t"
        "vrshrn.i16 d0, q1, #8\n\t"
        "vmull.u8 q1, d1, d5\n\t"
        "vrshrn.i16 d1, q1, #8\n\t"
        "vsub.i8 q5, q5, q0\n\t"
        "vmull.u8 q0, d10, d8\n\t"
        "vmull.u8 q1, d11, d9\n\t"
        "vshrn.i16 d4, q0, #8\n\t"
        "vshrn.i16 d5, q1, #8\n\t"
        "vmull.u8 q0, d4, d6\n\t"
        "vmull.u8 q1, d5, d7\n\t"
        "vshrn.i16 d4, q0, #8\n\t"
        "vshrn.i16 d5, q1, #8\n\t"
        "vshr.u8 q0, q2, #3\n\t"
        "vsra.u8 q0, q2, #4\n\t"
        "vmlal.u8 q12, d0, d12\n\t"
        "vmlal.u8 q13, d1, d12\n\t"
        "vadd.i8 q7, q7, q0\n\t"
        "vmlal.u8 q14, d0, d13\n\t"
        "vmlal.u8 q15, d1, d13\n\t"
        "vst1.64 {d14, d15}, [%[S]:128]!\n\t"
        "vst1.64 {d24, d25, d26, d27}, [%[S]:128]!\n\t"
        "vst1.64 {d28, d29, d30, d31}, [%[S]:128]!\n\t"
        "subs %[n], %[n], #1\n\t"
        "bne 1b\n\t"
        : [p0] "+r"(p0), [p1] "+r"(p1), [p2] "+r"(p2), [n] "+r"(k), [S] "+r"(sp),
          [a] "=&r"(sa), [b] "=&r"(sb), [c] "=&r"(sc)
        : [R] "r"(words), [B] "r"(b), [B16] "r"(b + 16), [B32] "r"(b + 32), [s] "i"(kShift),
          [r8] "i"(8 - kShift)
        : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12",
          "d13", "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24",
          "d25", "d26", "d27", "d28", "d29", "d30", "d31", "cc", "memory");
    pass3MeansArmv7(sums, n, &o0, &o1);
    count -= n;
  }
}

// Pass 3's sums loop with the whole weight table's look-ups: n steps from
// the walks at *p0 (taps) and *p1 (centres), the luma weights at *y, the
// sums into *S; moves the four on. b: a 32-byte aligned buffer for the
// centres.
inline void pass3SumsArmv7Lut(const uint32_t* words, uint8_t* b, const uint8_t** p0,
                              const uint8_t** p1, uint8_t** y, uint8_t** S, int32_t n) {
  const uint8_t *q0 = *p0, *q1 = *p1;
  uint8_t *yy = *y, *sp = *S;
  int32_t k = n;
  uint32_t sa, sb, sc;
  asm volatile(
      "ldr %[a], [%[R], #72]\n\t"
      "vld1.8 {d16-d19}, [%[a]]!\n\t"
      "vld1.8 {d20-d23}, [%[a]]!\n\t"
      "vld1.8 {d8-d9}, [%[a]]\n\t"
      "vmov.i8 q7, #32\n\t"
      "1:\n\t"
      "vld1.8 {d12}, [%[p0]], %[h0]\n\t"
      "ldr %[a], [%[R], #40]\n\t"
      "vmov.i8 q5, #1\n\t"
      "ldr %[b], [%[R], #44]\n\t"
      "ldr %[c], [%[R], #4]\n\t"
      "vld2.8 {d2, d3}, [%[p1]], %[a]\n\t"
      "ldr %[a], [%[R], #12]\n\t"
      "vld2.8 {d4, d5}, [%[p1]], %[b]\n\t"
      "ldr %[b], [%[R], #20]\n\t"
      "vld1.8 {d13}, [%[p0]], %[c]\n\t"
      "ldr %[c], [%[R], #28]\n\t"
      "vmovl.u8 q12, d2\n\t"
      "vst1.64 {d2, d3, d4, d5}, [%[B]:128]\n\t"
      "vmovl.u8 q13, d3\n\t"
      "vld1.64 {d2, d3}, [%[B]:128]\n\t"
      "vmovl.u8 q14, d4\n\t"
      "vmovl.u8 q15, d5\n\t"
      "vabd.u8 d2, d2, d12\n\t"
      "vabd.u8 d3, d3, d12\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d8, d9}, d2\n\t"
      "vtbx.8 d5, {d8, d9}, d3\n\t"
      "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
      "vabd.u8 d2, d2, d13\n\t"
      "vabd.u8 d3, d3, d13\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d6, {d8, d9}, d2\n\t"
      "vtbx.8 d7, {d8, d9}, d3\n\t"
      "vmull.u8 q0, d4, d6\n\t"
      "vmull.u8 q2, d5, d7\n\t"
      "vshrn.i16 d2, q0, #8\n\t"
      "vshrn.i16 d3, q2, #8\n\t"
      "vld1.64 {d4, d5}, [%[y]:128]!\n\t"
      "vmull.u8 q0, d2, d4\n\t"
      "vmull.u8 q3, d3, d5\n\t"
      "vld1.64 {d2, d3}, [%[B]:128]\n\t"
      "vshrn.i16 d4, q0, #8\n\t"
      "vshrn.i16 d5, q3, #8\n\t"
      "vshr.u8 q0, q2, #3\n\t"
      "vsra.u8 q0, q2, #4\n\t"
      "vmlal.u8 q12, d0, d12\n\t"
      "vmlal.u8 q13, d1, d12\n\t"
      "vld1.8 {d12}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q14, d0, d13\n\t"
      "vmlal.u8 q15, d1, d13\n\t"
      "vld1.8 {d13}, [%[p0]], %[a]\n\t"
      "ldr %[a], [%[R], #36]\n\t"
      "vadd.i8 q5, q5, q0\n\t"
      "vabd.u8 d2, d2, d12\n\t"
      "vabd.u8 d3, d3, d12\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d8, d9}, d2\n\t"
      "vtbx.8 d5, {d8, d9}, d3\n\t"
      "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
      "vabd.u8 d2, d2, d13\n\t"
      "vabd.u8 d3, d3, d13\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d6, {d8, d9}, d2\n\t"
      "vtbx.8 d7, {d8, d9}, d3\n\t"
      "vmull.u8 q0, d4, d6\n\t"
      "vmull.u8 q2, d5, d7\n\t"
      "vshrn.i16 d2, q0, #8\n\t"
      "vshrn.i16 d3, q2, #8\n\t"
      "vld1.64 {d4, d5}, [%[y]:128]!\n\t"
      "vmull.u8 q0, d2, d4\n\t"
      "vmull.u8 q3, d3, d5\n\t"
      "vld1.64 {d2, d3}, [%[B]:128]\n\t"
      "vshrn.i16 d4, q0, #8\n\t"
      "vshrn.i16 d5, q3, #8\n\t"
      "vshr.u8 q0, q2, #3\n\t"
      "vsra.u8 q0, q2, #4\n\t"
      "vmlal.u8 q12, d0, d12\n\t"
      "vmlal.u8 q13, d1, d12\n\t"
      "vld1.8 {d12}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q14, d0, d13\n\t"
      "vmlal.u8 q15, d1, d13\n\t"
      "vld1.8 {d13}, [%[p0]], %[b]\n\t"
      "vadd.i8 q5, q5, q0\n\t"
      "vabd.u8 d2, d2, d12\n\t"
      "vabd.u8 d3, d3, d12\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d8, d9}, d2\n\t"
      "vtbx.8 d5, {d8, d9}, d3\n\t"
      "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
      "vabd.u8 d2, d2, d13\n\t"
      "vabd.u8 d3, d3, d13\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d6, {d8, d9}, d2\n\t"
      "vtbx.8 d7, {d8, d9}, d3\n\t"
      "vmull.u8 q0, d4, d6\n\t"
      "vmull.u8 q2, d5, d7\n\t"
      "vshrn.i16 d2, q0, #8\n\t"
      "vshrn.i16 d3, q2, #8\n\t"
      "vld1.64 {d4, d5}, [%[y]:128]!\n\t"
      "vmull.u8 q0, d2, d4\n\t"
      "vmull.u8 q3, d3, d5\n\t"
      "vld1.64 {d2, d3}, [%[B]:128]\n\t"
      "vshrn.i16 d4, q0, #8\n\t"
      "vshrn.i16 d5, q3, #8\n\t"
      "vshr.u8 q0, q2, #3\n\t"
      "vsra.u8 q0, q2, #4\n\t"
      "vmlal.u8 q12, d0, d12\n\t"
      "vmlal.u8 q13, d1, d12\n\t"
      "vld1.8 {d12}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q14, d0, d13\n\t"
      "vmlal.u8 q15, d1, d13\n\t"
      "vld1.8 {d13}, [%[p0]], %[c]\n\t"
      "vadd.i8 q5, q5, q0\n\t"
      "vabd.u8 d2, d2, d12\n\t"
      "vabd.u8 d3, d3, d12\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d8, d9}, d2\n\t"
      "vtbx.8 d5, {d8, d9}, d3\n\t"
      "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
      "vabd.u8 d2, d2, d13\n\t"
      "vabd.u8 d3, d3, d13\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d6, {d8, d9}, d2\n\t"
      "vtbx.8 d7, {d8, d9}, d3\n\t"
      "vmull.u8 q0, d4, d6\n\t"
      "vmull.u8 q2, d5, d7\n\t"
      "vshrn.i16 d2, q0, #8\n\t"
      "vshrn.i16 d3, q2, #8\n\t"
      "vld1.64 {d4, d5}, [%[y]:128]!\n\t"
      "vmull.u8 q0, d2, d4\n\t"
      "vmull.u8 q3, d3, d5\n\t"
      "vld1.64 {d2, d3}, [%[B]:128]\n\t"
      "vshrn.i16 d4, q0, #8\n\t"
      "vshrn.i16 d5, q3, #8\n\t"
      "vshr.u8 q0, q2, #3\n\t"
      "vsra.u8 q0, q2, #4\n\t"
      "vmlal.u8 q12, d0, d12\n\t"
      "vmlal.u8 q13, d1, d12\n\t"
      "vld1.8 {d12}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q14, d0, d13\n\t"
      "vmlal.u8 q15, d1, d13\n\t"
      "vld1.8 {d13}, [%[p0]], %[a]\n\t"
      "vadd.i8 q5, q5, q0\n\t"
      "vabd.u8 d2, d2, d12\n\t"
      "vabd.u8 d3, d3, d12\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d8, d9}, d2\n\t"
      "vtbx.8 d5, {d8, d9}, d3\n\t"
      "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
      "vabd.u8 d2, d2, d13\n\t"
      "vabd.u8 d3, d3, d13\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d6, {d8, d9}, d2\n\t"
      "vtbx.8 d7, {d8, d9}, d3\n\t"
      "vmull.u8 q0, d4, d6\n\t"
      "vmull.u8 q2, d5, d7\n\t"
      "vshrn.i16 d2, q0, #8\n\t"
      "vshrn.i16 d3, q2, #8\n\t"
      "vld1.64 {d4, d5}, [%[y]:128]!\n\t"
      "vmull.u8 q0, d2, d4\n\t"
      "vmull.u8 q3, d3, d5\n\t"
      "vshrn.i16 d4, q0, #8\n\t"
      "vshrn.i16 d5, q3, #8\n\t"
      "vshr.u8 q0, q2, #3\n\t"
      "vsra.u8 q0, q2, #4\n\t"
      "vmlal.u8 q12, d0, d12\n\t"
      "vmlal.u8 q13, d1, d12\n\t"
      "vadd.i8 q5, q5, q0\n\t"
      "vmlal.u8 q14, d0, d13\n\t"
      "vmlal.u8 q15, d1, d13\n\t"
      "vst1.64 {d10, d11}, [%[S]:128]!\n\t"
      "vst1.64 {d24, d25, d26, d27}, [%[S]:128]!\n\t"
      "vst1.64 {d28, d29, d30, d31}, [%[S]:128]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [p0] "+r"(q0), [p1] "+r"(q1), [y] "+r"(yy), [n] "+r"(k), [S] "+r"(sp), [a] "=&r"(sa),
        [b] "=&r"(sb), [c] "=&r"(sc)
      : [R] "r"(words), [B] "r"(b), [B16] "r"(b + 16), [h0] "r"(words[0])
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "d28", "d29", "d30", "d31", "cc", "memory");
  *p0 = q0;
  *p1 = q1;
  *y = yy;
  *S = sp;
}

// The same where every difference of a step is below 32 (the table's first
// 32 entries, one look-up per 16 differences), for tables whose entry 31 is
// at least 16: a step with a difference of 32 or more gets a 0 among the 4
// bytes it writes to *F (the least product of its taps' U and V weights),
// and its sums are then to be made again by pass3SumsArmv7Lut.
inline void pass3SumsArmv7Lut32(const uint32_t* words, const uint8_t** p0, const uint8_t** p1,
                                uint8_t** y, uint8_t** S, uint32_t* F, int32_t n) {
  const uint8_t *q0 = *p0, *q1 = *p1;
  uint8_t *yy = *y, *sp = *S;
  int32_t k = n;
  uint32_t sa, sb, sc;
  asm volatile(
      "ldr %[a], [%[R], #72]\n\t"
      "vld1.8 {d16-d19}, [%[a]]\n\t"
      "1:\n\t"
      "vld1.8 {d12}, [%[p0]], %[h0]\n\t"
      "ldr %[a], [%[R], #40]\n\t"
      "vmov.i8 q5, #1\n\t"
      "ldr %[b], [%[R], #44]\n\t"
      "ldr %[c], [%[R], #4]\n\t"
      "vld2.8 {d20, d21}, [%[p1]], %[a]\n\t"
      "ldr %[a], [%[R], #12]\n\t"
      "vld2.8 {d22, d23}, [%[p1]], %[b]\n\t"
      "ldr %[b], [%[R], #20]\n\t"
      "vld1.8 {d13}, [%[p0]], %[c]\n\t"
      "ldr %[c], [%[R], #28]\n\t"
      "vld1.8 {d14}, [%[p0]], %[h0]\n\t"
      "vld1.8 {d15}, [%[p0]], %[a]\n\t"
      "ldr %[a], [%[R], #36]\n\t"
      "vabd.u8 d2, d20, d12\n\t"
      "vabd.u8 d3, d21, d12\n\t"
      "vmovl.u8 q12, d20\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 d2, d22, d13\n\t"
      "vabd.u8 d3, d23, d13\n\t"
      "vmovl.u8 q13, d21\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 d2, d20, d14\n\t"
      "vabd.u8 d3, d21, d14\n\t"
      "vmovl.u8 q14, d22\n\t"
      "vmovl.u8 q15, d23\n\t"
      "vmull.u8 q0, d4, d6\n\t"
      "vmull.u8 q2, d5, d7\n\t"
      "vshrn.i16 d8, q0, #8\n\t"
      "vshrn.i16 d9, q2, #8\n\t"
      "vld1.64 {d4, d5}, [%[y]:128]!\n\t"
      "vmull.u8 q0, d8, d4\n\t"
      "vmull.u8 q3, d9, d5\n\t"
      "vshrn.i16 d4, q0, #8\n\t"
      "vshrn.i16 d5, q3, #8\n\t"
      "vshr.u8 q0, q2, #3\n\t"
      "vsra.u8 q0, q2, #4\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 d2, d22, d15\n\t"
      "vabd.u8 d3, d23, d15\n\t"
      "vadd.i8 q5, q5, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d3\n\t"
      "vmlal.u8 q12, d0, d12\n\t"
      "vmlal.u8 q13, d1, d12\n\t"
      "vmlal.u8 q14, d0, d13\n\t"
      "vmlal.u8 q15, d1, d13\n\t"
      "vmull.u8 q0, d4, d6\n\t"
      "vmull.u8 q2, d5, d7\n\t"
      "vld1.8 {d12}, [%[p0]], %[h0]\n\t"
      "vld1.8 {d13}, [%[p0]], %[b]\n\t"
      "vshrn.i16 d2, q0, #8\n\t"
      "vshrn.i16 d3, q2, #8\n\t"
      "vld1.64 {d4, d5}, [%[y]:128]!\n\t"
      "vmin.u8 q4, q4, q1\n\t"
      "vmull.u8 q0, d2, d4\n\t"
      "vmull.u8 q3, d3, d5\n\t"
      "vabd.u8 d2, d20, d12\n\t"
      "vabd.u8 d3, d21, d12\n\t"
      "vshrn.i16 d4, q0, #8\n\t"
      "vshrn.i16 d5, q3, #8\n\t"
      "vshr.u8 q0, q2, #3\n\t"
      "vsra.u8 q0, q2, #4\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 d2, d22, d13\n\t"
      "vabd.u8 d3, d23, d13\n\t"
      "vadd.i8 q5, q5, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d3\n\t"
      "vmlal.u8 q12, d0, d14\n\t"
      "vmlal.u8 q13, d1, d14\n\t"
      "vmlal.u8 q14, d0, d15\n\t"
      "vmlal.u8 q15, d1, d15\n\t"
      "vmull.u8 q0, d4, d6\n\t"
      "vmull.u8 q2, d5, d7\n\t"
      "vld1.8 {d14}, [%[p0]], %[h0]\n\t"
      "vld1.8 {d15}, [%[p0]], %[c]\n\t"
      "vshrn.i16 d2, q0, #8\n\t"
      "vshrn.i16 d3, q2, #8\n\t"
      "vld1.64 {d4, d5}, [%[y]:128]!\n\t"
      "vmin.u8 q4, q4, q1\n\t"
      "vmull.u8 q0, d2, d4\n\t"
      "vmull.u8 q3, d3, d5\n\t"
      "vabd.u8 d2, d20, d14\n\t"
      "vabd.u8 d3, d21, d14\n\t"
      "vshrn.i16 d4, q0, #8\n\t"
      "vshrn.i16 d5, q3, #8\n\t"
      "vshr.u8 q0, q2, #3\n\t"
      "vsra.u8 q0, q2, #4\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 d2, d22, d15\n\t"
      "vabd.u8 d3, d23, d15\n\t"
      "vadd.i8 q5, q5, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d3\n\t"
      "vmlal.u8 q12, d0, d12\n\t"
      "vmlal.u8 q13, d1, d12\n\t"
      "vmlal.u8 q14, d0, d13\n\t"
      "vmlal.u8 q15, d1, d13\n\t"
      "vmull.u8 q0, d4, d6\n\t"
      "vmull.u8 q2, d5, d7\n\t"
      "vld1.8 {d12}, [%[p0]], %[h0]\n\t"
      "vld1.8 {d13}, [%[p0]], %[a]\n\t"
      "vshrn.i16 d2, q0, #8\n\t"
      "vshrn.i16 d3, q2, #8\n\t"
      "vld1.64 {d4, d5}, [%[y]:128]!\n\t"
      "vmin.u8 q4, q4, q1\n\t"
      "vmull.u8 q0, d2, d4\n\t"
      "vmull.u8 q3, d3, d5\n\t"
      "vabd.u8 d2, d20, d12\n\t"
      "vabd.u8 d3, d21, d12\n\t"
      "vshrn.i16 d4, q0, #8\n\t"
      "vshrn.i16 d5, q3, #8\n\t"
      "vshr.u8 q0, q2, #3\n\t"
      "vsra.u8 q0, q2, #4\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 d2, d22, d13\n\t"
      "vabd.u8 d3, d23, d13\n\t"
      "vadd.i8 q5, q5, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d3\n\t"
      "vmlal.u8 q12, d0, d14\n\t"
      "vmlal.u8 q13, d1, d14\n\t"
      "vmlal.u8 q14, d0, d15\n\t"
      "vmlal.u8 q15, d1, d15\n\t"
      "vmull.u8 q0, d4, d6\n\t"
      "vmull.u8 q2, d5, d7\n\t"
      "vshrn.i16 d2, q0, #8\n\t"
      "vshrn.i16 d3, q2, #8\n\t"
      "vld1.64 {d4, d5}, [%[y]:128]!\n\t"
      "vmin.u8 q4, q4, q1\n\t"
      "vmull.u8 q0, d2, d4\n\t"
      "vmull.u8 q3, d3, d5\n\t"
      "vshrn.i16 d4, q0, #8\n\t"
      "vshrn.i16 d5, q3, #8\n\t"
      "vshr.u8 q0, q2, #3\n\t"
      "vsra.u8 q0, q2, #4\n\t"
      "vadd.i8 q5, q5, q0\n\t"
      "vmlal.u8 q12, d0, d12\n\t"
      "vmlal.u8 q13, d1, d12\n\t"
      "vmlal.u8 q14, d0, d13\n\t"
      "vpmin.u8 d0, d8, d9\n\t"
      "vmlal.u8 q15, d1, d13\n\t"
      "vst1.64 {d10, d11}, [%[S]:128]!\n\t"
      "vpmin.u8 d0, d0, d0\n\t"
      "vst1.64 {d24, d25, d26, d27}, [%[S]:128]!\n\t"
      "vst1.64 {d28, d29, d30, d31}, [%[S]:128]!\n\t"
      "vst1.32 {d0[0]}, [%[F]]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [p0] "+r"(q0), [p1] "+r"(q1), [y] "+r"(yy), [n] "+r"(k), [S] "+r"(sp), [F] "+r"(F),
        [a] "=&r"(sa), [b] "=&r"(sb), [c] "=&r"(sc)
      : [R] "r"(words), [h0] "r"(words[0])
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "d28", "d29", "d30", "d31", "cc", "memory");
  *p0 = q0;
  *p1 = q1;
  *y = yy;
  *S = sp;
}

// Whether any of the 4 bytes of a pass3SumsArmv7Lut32 flag word is 0.
KQ_INLINE bool anyZeroByte(uint32_t v) { return ((v - 0x01010101u) & ~v & 0x80808080u) != 0; }

// The steps the look-up drivers of passes 2 and 3 take through their loops at
// a time (their stack buffers hold that many steps' luma weights and sums):
// each chunk costs a hundred or so instructions of set-up and its first step
// alone, 64 steps make that about 2 a step. Pass 1 keeps 16: its luma loop
// makes a whole chunk again for a luma difference of 64 or more (3 steps in
// 1000 on a camera frame), and in chunks of 64 that costs what they save.
constexpr int32_t kLutChunk = 64;

// Bit i set where flag word i of the 16 from f has a 0 byte. The words'
// least byte first (a dozen instructions): most groups have no 0, and only
// the others take the 20 more that find the words.
KQ_INLINE uint32_t flaggedWords16(const uint32_t* f) {
  const uint8_t* b = reinterpret_cast<const uint8_t*>(f);
  const uint8x16_t q[4] = {vld1q_u8(b), vld1q_u8(b + 16), vld1q_u8(b + 32), vld1q_u8(b + 48)};
  const uint8x16_t least = vminq_u8(vminq_u8(q[0], q[1]), vminq_u8(q[2], q[3]));
  uint8x8_t d = vmin_u8(vget_low_u8(least), vget_high_u8(least));
  d = vpmin_u8(d, d);
  d = vpmin_u8(d, d);
  d = vpmin_u8(d, d);
  if (vget_lane_u8(d, 0) != 0) return 0;
  uint16x4_t w[4];
  for (int k = 0; k < 4; ++k) {
    const uint32x4_t z = vreinterpretq_u32_u8(vceqq_u8(q[k], vdupq_n_u8(0)));
    w[k] = vmovn_u32(vtstq_u32(z, z));
  }
  static const uint8_t kBits[16] = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
  const uint8x16_t any = vcombine_u8(vmovn_u16(vcombine_u16(w[0], w[1])),
                                     vmovn_u16(vcombine_u16(w[2], w[3])));
  const uint8x16_t bits = vandq_u8(any, vld1q_u8(kBits));
  d = vpadd_u8(vget_low_u8(bits), vget_high_u8(bits));
  d = vpadd_u8(d, d);
  d = vpadd_u8(d, d);
  return vget_lane_u16(vreinterpret_u16_u8(d), 0);
}

// The sums of a chunk's steps [j0, n) (n <= kN) by the short look-ups
// first and the whole table where they fall short: first(j, count, flags)
// makes steps [j, j + count) and writes each one's flag word, whole(j,
// count) makes them by the whole table. The step j0 goes alone
// first: where it is flagged, the rest most likely is too (noisy chroma),
// and the whole table takes them all at once instead of every step twice.
// Otherwise every flagged step is made again, with the `after` steps that
// follow it (whose sums took something of it).
template <int32_t kN, class First, class Whole>
KQ_INLINE void sumsFirstThenWhole(int32_t j0, int32_t n, int32_t after, uint32_t (&flags)[kN],
                                  First first, Whole whole) {
  static_assert(kN % 16 == 0, "flag words go in groups of 16");
  if (j0 >= n) return;
  first(j0, 1, flags + j0);
  if (anyZeroByte(flags[j0])) {
    whole(j0, n - j0);
    return;
  }
  if (j0 + 1 == n) return;
  first(j0 + 1, n - j0 - 1, flags + j0 + 1);
  // Only the words of steps (j0, n) count: the others are stale.
  const int32_t j1 = j0 + 1;
  int32_t done = j1;  // the steps before it are made
  for (int32_t g = j1 & ~15; g < n; g += 16) {
    uint32_t m = flaggedWords16(flags + g);
    if (g + 16 > n) m &= (1u << (n - g)) - 1;
    if (g < j1) m &= ~((1u << (j1 - g)) - 1);
    while (m != 0) {
      const int32_t j = g + __builtin_ctz(m);
      m &= m - 1;
      const int32_t from = j > done ? j : done;
      const int32_t to = j + 1 + after < n ? j + 1 + after : n;
      if (from < to) whole(from, to - from);
      if (to > done) done = to;
    }
  }
}

// pass3InnerArmv7 where every difference from 80 on weighs as 0 (reach <=
// 80, the default strength's table): the weights of U and V are look-ups of
// the table's first 80 bytes (vtbl of 32, then vtbx of 32 and of 16 at
// indices stepped down by 32), 10 instructions per 16 in place of the
// slopes' 13. The 10 d registers of the table and a register of 32s leave no
// room for the luma look-up and the luma centres in the sums loop, so a
// first loop makes each step's luma weights (16 bytes per tap) into `lumaW`,
// which the sums loop loads (scripts/asmgen/chroma_pass3_armv7.py, PART=L
// and AL). Where the table's entry 31 is at least 16, the sums loop first
// takes every difference as below 32 (PART=AF: 2 instructions per 16
// differences instead of 8), and the steps it flags, those with a
// difference of 32 or more (about 2 in 100 on a camera frame: the taps lie
// one half-size pixel from the centre), are made again with the whole
// table.
void pass3InnerArmv7Lut(const Pass3Armv7Rows* rows, const Tables& t, int32_t hx,
                        int32_t count) {
  constexpr int32_t kChunk = kLutChunk;
  alignas(16) uint8_t centres[32];
  alignas(16) uint8_t lumaW[kChunk * 80];
  alignas(16) uint8_t sums[kChunk * 80];
  uint32_t flags[kChunk];
  std::memset(flags, 0xff, sizeof flags);
  uint8_t* const b = centres;
  const bool fast = t.lut[31] >= 16;  // else most steps would be made twice
  // The loops' record (pass3Words). The luma weights loop holds its walk's
  // steps (words 12-17) in registers, the sums loop the step from each tap's
  // U to its V (word 0), which is the same for every tap: the taps' U and V
  // rows lie at the same offsets from the planes (pass3StepsArmv7).
  const Pass3Armv7Rows& r = *rows;
  uint32_t words[20];
  pass3Words(r, t.lut, t.lutLuma, words);
  // In an even row the centre tap's luma sample is the even outputs' own
  // (rows 4 y and 2 Y are one row): the luma loop of those rows (PART=LE)
  // walks the other five rows and weighs the even outputs' centre taps by
  // the table's weight of 0.
  const bool evenRow = r.luma[2] == r.lumaCentre;
  uint32_t even[5];
  if (evenRow) walkWords(even, {r.lumaCentre, r.luma[0], r.luma[1], r.luma[3], r.luma[4]}, 32);
  const uint8_t *p0 = r.u[0] + hx, *p1 = r.src[0] + 2 * hx, *p2 = r.lumaCentre + 4 * hx;
  uint8_t *o0 = r.out[0] + 2 * hx, *o1 = r.out[1] + 2 * hx;
  while (count > 0) {
    const int32_t n = count < kChunk ? count : kChunk;
    int32_t k = n;
    uint8_t* y = lumaW;
    uint32_t sa;
    if (evenRow) {
      asm volatile(
          "ldr %[a], [%[R], #76]\n\t"
          "vld1.8 {d20-d22}, [%[a]]\n\t"
          "vdup.8 d24, d20[0]\n\t"
          "1:\n\t"
          "vld4.8 {d0, d1, d2, d3}, [%[p2]], %[h0]\n\t"
          "vld4.8 {d8, d9, d10, d11}, [%[p2]], %[h1]\n\t"
          "vld4.8 {d12, d13, d14, d15}, [%[p2]], %[h2]\n\t"
          "vabd.u8 d25, d0, d2\n\t"
          "vabd.u8 d26, d0, d8\n\t"
          "vabd.u8 d27, d2, d8\n\t"
          "vld4.8 {d8, d9, d10, d11}, [%[p2]], %[h3]\n\t"
          "vabd.u8 d28, d0, d12\n\t"
          "vabd.u8 d29, d2, d12\n\t"
          "vld4.8 {d12, d13, d14, d15}, [%[p2]], %[h4]\n\t"
          "vtbl.8 d26, {d20, d21, d22}, d26\n\t"
          "vtbl.8 d27, {d20, d21, d22}, d27\n\t"
          "vtbl.8 d28, {d20, d21, d22}, d28\n\t"
          "vtbl.8 d29, {d20, d21, d22}, d29\n\t"
          "vtbl.8 d25, {d20, d21, d22}, d25\n\t"
          "vst1.64 {d26, d27}, [%[y]:128]!\n\t"
          "vabd.u8 d26, d0, d8\n\t"
          "vabd.u8 d27, d2, d8\n\t"
          "vst1.64 {d28, d29}, [%[y]:128]!\n\t"
          "vabd.u8 d28, d0, d12\n\t"
          "vabd.u8 d29, d2, d12\n\t"
          "vtbl.8 d26, {d20, d21, d22}, d26\n\t"
          "vtbl.8 d27, {d20, d21, d22}, d27\n\t"
          "vtbl.8 d28, {d20, d21, d22}, d28\n\t"
          "vtbl.8 d29, {d20, d21, d22}, d29\n\t"
          "vst1.64 {d24, d25}, [%[y]:128]!\n\t"
          "vst1.64 {d26, d27}, [%[y]:128]!\n\t"
          "vst1.64 {d28, d29}, [%[y]:128]!\n\t"
          "subs %[n], %[n], #1\n\t"
          "bne 1b\n\t"
          : [p2] "+r"(p2), [y] "+r"(y), [n] "+r"(k), [a] "=&r"(sa)
          : [R] "r"(words), [h0] "r"(even[0]), [h1] "r"(even[1]), [h2] "r"(even[2]),
            [h3] "r"(even[3]), [h4] "r"(even[4])
          : "d0", "d1", "d2", "d3", "d8", "d9", "d10", "d11", "d12", "d13", "d14", "d15", "d20",
            "d21", "d22", "d24", "d25", "d26", "d27", "d28", "d29", "cc", "memory");
    } else {
      asm volatile(
          "ldr %[a], [%[R], #76]\n\t"
          "vld1.8 {d20-d22}, [%[a]]\n\t"
          "1:\n\t"
          "vld4.8 {d0, d1, d2, d3}, [%[p2]], %[h0]\n\t"
          "vld4.8 {d8, d9, d10, d11}, [%[p2]], %[h1]\n\t"
          "vld4.8 {d12, d13, d14, d15}, [%[p2]], %[h2]\n\t"
          "vld4.8 {d16, d17, d18, d19}, [%[p2]], %[h3]\n\t"
          "vabd.u8 d26, d0, d8\n\t"
          "vabd.u8 d27, d2, d8\n\t"
          "vld4.8 {d8, d9, d10, d11}, [%[p2]], %[h4]\n\t"
          "vabd.u8 d28, d0, d12\n\t"
          "vabd.u8 d29, d2, d12\n\t"
          "vld4.8 {d12, d13, d14, d15}, [%[p2]], %[h5]\n\t"
          "vtbl.8 d26, {d20, d21, d22}, d26\n\t"
          "vtbl.8 d27, {d20, d21, d22}, d27\n\t"
          "vtbl.8 d28, {d20, d21, d22}, d28\n\t"
          "vtbl.8 d29, {d20, d21, d22}, d29\n\t"
          "vabd.u8 d30, d0, d16\n\t"
          "vabd.u8 d31, d2, d16\n\t"
          "vst1.64 {d26, d27}, [%[y]:128]!\n\t"
          "vabd.u8 d26, d0, d8\n\t"
          "vabd.u8 d27, d2, d8\n\t"
          "vst1.64 {d28, d29}, [%[y]:128]!\n\t"
          "vabd.u8 d28, d0, d12\n\t"
          "vabd.u8 d29, d2, d12\n\t"
          "vtbl.8 d30, {d20, d21, d22}, d30\n\t"
          "vtbl.8 d31, {d20, d21, d22}, d31\n\t"
          "vtbl.8 d26, {d20, d21, d22}, d26\n\t"
          "vtbl.8 d27, {d20, d21, d22}, d27\n\t"
          "vtbl.8 d28, {d20, d21, d22}, d28\n\t"
          "vtbl.8 d29, {d20, d21, d22}, d29\n\t"
          "vst1.64 {d30, d31}, [%[y]:128]!\n\t"
          "vst1.64 {d26, d27}, [%[y]:128]!\n\t"
          "vst1.64 {d28, d29}, [%[y]:128]!\n\t"
          "subs %[n], %[n], #1\n\t"
          "bne 1b\n\t"
          : [p2] "+r"(p2), [y] "+r"(y), [n] "+r"(k), [a] "=&r"(sa)
          : [R] "r"(words), [h0] "r"(words[12]), [h1] "r"(words[13]), [h2] "r"(words[14]),
            [h3] "r"(words[15]), [h4] "r"(words[16]), [h5] "r"(words[17])
          : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
            "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d26", "d27", "d28", "d29",
            "d30", "d31", "cc", "memory");
    }
    k = n;
    y = lumaW;
    uint8_t* sp = sums;
    if (fast) {
      const uint8_t *f0 = p0, *f1 = p1;
      sumsFirstThenWhole(
          0, n, 0, flags,
          [&](int32_t j, int32_t m, uint32_t* f) {
            const uint8_t *r0 = f0 + 8 * j, *r1 = f1 + 16 * j;
            uint8_t *ry = lumaW + 80 * j, *rs = sums + 80 * j;
            pass3SumsArmv7Lut32(words, &r0, &r1, &ry, &rs, f, m);
          },
          [&](int32_t j, int32_t m) {
            const uint8_t *r0 = f0 + 8 * j, *r1 = f1 + 16 * j;
            uint8_t *ry = lumaW + 80 * j, *rs = sums + 80 * j;
            pass3SumsArmv7Lut(words, b, &r0, &r1, &ry, &rs, m);
          });
      p0 = f0 + 8 * n;
      p1 = f1 + 16 * n;
    } else {
      pass3SumsArmv7Lut(words, b, &p0, &p1, &y, &sp, n);
    }
    pass3MeansArmv7(sums, n, &o0, &o1);
    count -= n;
  }
}
#endif

// Every fourth byte of three rows (dst[k][i] = srcK[4 i] for i in [lo, hi)),
// the loads stepping each row's pointer in one loop; each src holds at least
// 4 hi bytes.
template <int kRow>
void takeQuarters(uint8_t (*dst)[kRow], const uint8_t* src0, const uint8_t* src1,
                  const uint8_t* src2, int lo, int hi) {
  const int n = hi > lo ? (hi - lo) / 16 : 0;
  const uint8_t *a = src0 + 4 * lo, *b = src1 + 4 * lo, *c = src2 + 4 * lo;
#if defined(__aarch64__)
  uint8_t* d = dst[0] + lo;
  for (int k = 0; k < n; ++k, d += 16, a += 64, b += 64, c += 64) {
    vst1q_u8(d, vld4q_u8(a).val[0]);
    vst1q_u8(d + kRow, vld4q_u8(b).val[0]);
    vst1q_u8(d + 2 * kRow, vld4q_u8(c).val[0]);
  }
#else
  // armv7: GCC gives each vld4q_u8 a copy of its row's pointer and steps
  // the rows and stores by adds, 20 instructions per 16 columns; here 14.
  // Each row's second load goes without write-back and an add steps the
  // pointer instead: a load that writes its address back takes 4 more
  // micro-ops on the Cortex-A57 (llvm-mca: 26.1 cycles per 16 columns, as
  // the compiled loop, against 28.1 with every load writing back; the
  // Cortex-A9 model 7.0 against the compiled loop's 10.0).
  if (n > 0) {
    uint8_t *d0 = dst[0] + lo, *d1 = dst[1] + lo, *d2 = dst[2] + lo;
    int k = n;
    asm volatile(
        "1:\n\t"
        "vld4.8 {d16, d18, d20, d22}, [%[a]]!\n\t"
        "vld4.8 {d24, d26, d28, d30}, [%[b]]!\n\t"
        "vld4.8 {d0, d2, d4, d6}, [%[c]]!\n\t"
        "vld4.8 {d17, d19, d21, d23}, [%[a]]\n\t"
        "vld4.8 {d25, d27, d29, d31}, [%[b]]\n\t"
        "vld4.8 {d1, d3, d5, d7}, [%[c]]\n\t"
        "adds %[a], %[a], #32\n\t"
        "adds %[b], %[b], #32\n\t"
        "adds %[c], %[c], #32\n\t"
        "vst1.8 {d16, d17}, [%[d0]]!\n\t"
        "vst1.8 {d24, d25}, [%[d1]]!\n\t"
        "vst1.8 {d0, d1}, [%[d2]]!\n\t"
        "subs %[k], %[k], #1\n\t"
        "bne 1b\n\t"
        : [a] "+r"(a), [b] "+r"(b), [c] "+r"(c), [d0] "+r"(d0), [d1] "+r"(d1), [d2] "+r"(d2),
          [k] "+r"(k)
        :
        : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d16", "d17", "d18", "d19", "d20",
          "d21", "d22", "d23", "d24", "d25", "d26", "d27", "d28", "d29", "d30", "d31", "cc",
          "memory");
  }
#endif
  for (int i = lo + 16 * n; i < hi; ++i) {
    dst[0][i] = src0[4 * i];
    dst[1][i] = src1[4 * i];
    dst[2][i] = src2[4 * i];
  }
}

#if defined(__aarch64__)
// The rows of pass3Steps' buffer q (kQuarterRow bytes apart) for half-size
// columns [lo, hi): 0, 1 the luma centres of even and odd columns (bytes 0
// and 2 of every 4 of luma row 2Y), 2-4 the taps' luma (byte 0 of every 4
// of luma rows 4 yUp, 4 y, 4 yDown), and with `centres` 5-8 the U and V
// centres of even and odd columns (bytes 0 and 1 of every 2 of row Y).
void takeRows(uint8_t* q, const Pass3Rows& r, int lo, int hi, bool centres) {
  constexpr int R = kQuarterRow;
  // Every row in a local pointer that the loads step (stores into q could
  // otherwise change r's pointers, which the loop would then load again).
  const uint8_t *lc = r.lumaCentre + 4 * lo, *lu = r.lumaUp + 4 * lo, *lm = r.lumaMid + 4 * lo;
  const uint8_t *ld = r.lumaDown + 4 * lo, *su = r.srcU + 2 * lo, *sv = r.srcV + 2 * lo;
  uint8_t* d = q + lo;
  const int n = hi > lo ? (hi - lo) / 16 : 0;
  auto luma = [&] {
    const uint8x16x4_t c = vld4q_u8(lc);
    vst1q_u8(d, c.val[0]);
    vst1q_u8(d + R, c.val[2]);
    vst1q_u8(d + 2 * R, vld4q_u8(lu).val[0]);
    vst1q_u8(d + 3 * R, vld4q_u8(lm).val[0]);
    vst1q_u8(d + 4 * R, vld4q_u8(ld).val[0]);
    lc += 64, lu += 64, lm += 64, ld += 64;
  };
  if (centres) {
    for (int k = 0; k < n; ++k, d += 16) {
      luma();
      const uint8x16x2_t u = vld2q_u8(su), v = vld2q_u8(sv);
      vst1q_u8(d + 5 * R, u.val[0]);
      vst1q_u8(d + 6 * R, u.val[1]);
      vst1q_u8(d + 7 * R, v.val[0]);
      vst1q_u8(d + 8 * R, v.val[1]);
      su += 32, sv += 32;
    }
  } else {
    for (int k = 0; k < n; ++k, d += 16) luma();
  }
  for (int i = lo + 16 * n; i < hi; ++i) {
    q[i] = r.lumaCentre[4 * i];
    q[R + i] = r.lumaCentre[4 * i + 2];
    q[2 * R + i] = r.lumaUp[4 * i];
    q[3 * R + i] = r.lumaMid[4 * i];
    q[4 * R + i] = r.lumaDown[4 * i];
    if (centres) {
      q[5 * R + i] = r.srcU[2 * i];
      q[6 * R + i] = r.srcU[2 * i + 1];
      q[7 * R + i] = r.srcV[2 * i];
      q[8 * R + i] = r.srcV[2 * i + 1];
    }
  }
}
#endif

#if defined(__aarch64__)
// Pass 3's inner steps on aarch64 in assembly, where every difference from
// 80 on weighs as 0 (look-ups of 64 + 16 bytes). The compiled steps spill
// about 50 registers per step: both parities' sums and centres, the tables
// and a tap's values leave no register free. Here the centres are loaded
// again by each tap from the rows pass3Steps took out (luma centres, taps'
// luma and the U and V centres of either parity, kQuarterRow bytes apart,
// all at offsets from one pointer), which leaves two sets of registers, one
// per parity, so that a tap's two parities overlap. The steps go in chunks
// through two loops: the first keeps each step's weights and sums in
// `sums` (160 bytes a step), the second makes the means, two steps per
// iteration, dividing for the next step while the means of this one are
// made (the divisions hold an in-order core's divider for 10 cycles each).
// Both loops are ordered by a list schedule over Cortex-A55 latencies
// (scripts/asmgen/chroma_pass3_aarch64.py).
// Makes count & ~1 steps from hx on and returns how many.
int pass3InnerA64(const uint8_t* q, const Pass3Rows& r, uint8_t* outU, uint8_t* outV,
                  const Tables& t, int hx, int count) {
  constexpr int kChunk = 16;
  alignas(16) uint8_t sums[(kChunk + 1) * 160];
  const int total = count & ~1;
  for (int done = 0; done < total;) {
    const int n = total - done < kChunk ? total - done : kChunk;
    // The second loop's last division reads the slot after the chunk.
    std::memset(sums + n * 160, 1, 32);
    const int x = hx + 16 * done;
    const uint8_t* P = q + x;
    const uint8_t* Pm = q + 3 * kQuarterRow + x;
    const uint8_t* uMid = r.uMid + x;
    const uint8_t* vMid = r.vMid + x;
    uint8_t* S = sums;
    int64_t X = x;
    int64_t k = n;
    asm volatile(
        "ld1 {v16.16b, v17.16b, v18.16b, v19.16b}, [%[lut]]\n\t"
        "ldr q20, [%[lut], #64]\n\t"
        "ld1 {v21.16b, v22.16b}, [%[lutLuma]]\n\t"
        "movi v23.16b, #64\n\t"
        "1:\n\t"
        "ldr q8, [%[P], #10320]\n\t"
        "movi v14.16b, #1\n\t"
        "ldr q9, [%[P], #12384]\n\t"
        "movi v15.16b, #1\n\t"
        "ldr q6, [%[uUp], %[X]]\n\t"
        "uxtl v24.8h, v8.8b\n\t"
        "ldr q7, [%[vUp], %[X]]\n\t"
        "uxtl2 v25.8h, v8.16b\n\t"
        "ldr q1, [%[P], #10320]\n\t"
        "uxtl v26.8h, v9.8b\n\t"
        "ldr q2, [%[P], #14448]\n\t"
        "uxtl2 v27.8h, v9.16b\n\t"
        "ldr q8, [%[P], #12384]\n\t"
        "ldr q9, [%[P], #16512]\n\t"
        "uabd v1.16b, v1.16b, v6.16b\n\t"
        "uabd v2.16b, v2.16b, v7.16b\n\t"
        "ldr q11, [%[P], #16512]\n\t"
        "uabd v8.16b, v8.16b, v6.16b\n\t"
        "ldr q10, [%[P], #14448]\n\t"
        "uabd v9.16b, v9.16b, v7.16b\n\t"
        "ldr q0, [%[P], #4128]\n\t"
        "uxtl v30.8h, v11.8b\n\t"
        "ldr q3, [%[P], #0]\n\t"
        "uxtl2 v31.8h, v11.16b\n\t"
        "tbl v4.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v1.16b\n\t"
        "sub v1.16b, v1.16b, v23.16b\n\t"
        "tbl v5.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v2.16b\n\t"
        "sub v2.16b, v2.16b, v23.16b\n\t"
        "tbl v11.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v8.16b\n\t"
        "sub v8.16b, v8.16b, v23.16b\n\t"
        "tbl v12.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v9.16b\n\t"
        "sub v9.16b, v9.16b, v23.16b\n\t"
        "tbx v4.16b, {v20.16b}, v1.16b\n\t"
        "tbx v5.16b, {v20.16b}, v2.16b\n\t"
        "tbx v11.16b, {v20.16b}, v8.16b\n\t"
        "tbx v12.16b, {v20.16b}, v9.16b\n\t"
        "uxtl v28.8h, v10.8b\n\t"
        "uxtl2 v29.8h, v10.16b\n\t"
        "ldr q10, [%[P], #2064]\n\t"
        "uabd v3.16b, v3.16b, v0.16b\n\t"
        "umull v1.8h, v4.8b, v5.8b\n\t"
        "umull2 v2.8h, v4.16b, v5.16b\n\t"
        "uabd v10.16b, v10.16b, v0.16b\n\t"
        "umull v8.8h, v11.8b, v12.8b\n\t"
        "ldur q0, [%[Pm], #-1]\n\t"
        "umull2 v9.8h, v11.16b, v12.16b\n\t"
        "tbl v3.16b, {v21.16b, v22.16b}, v3.16b\n\t"
        "uzp2 v1.16b, v1.16b, v2.16b\n\t"
        "tbl v10.16b, {v21.16b, v22.16b}, v10.16b\n\t"
        "uzp2 v8.16b, v8.16b, v9.16b\n\t"
        "umull v2.8h, v1.8b, v3.8b\n\t"
        "umull2 v4.8h, v1.16b, v3.16b\n\t"
        "umull v9.8h, v8.8b, v10.8b\n\t"
        "ldr q3, [%[P], #0]\n\t"
        "umull2 v11.8h, v8.16b, v10.16b\n\t"
        "ldr q10, [%[P], #2064]\n\t"
        "uzp2 v2.16b, v2.16b, v4.16b\n\t"
        "uabd v3.16b, v3.16b, v0.16b\n\t"
        "uzp2 v9.16b, v9.16b, v11.16b\n\t"
        "uabd v10.16b, v10.16b, v0.16b\n\t"
        "ushr v1.16b, v2.16b, #3\n\t"
        "ldr q0, [%[Pm]]\n\t"
        "tbl v3.16b, {v21.16b, v22.16b}, v3.16b\n\t"
        "ushr v8.16b, v9.16b, #3\n\t"
        "tbl v10.16b, {v21.16b, v22.16b}, v10.16b\n\t"
        "usra v1.16b, v2.16b, #4\n\t"
        "ldr q2, [%[P], #14448]\n\t"
        "usra v8.16b, v9.16b, #4\n\t"
        "ldr q9, [%[P], #16512]\n\t"
        "add v14.16b, v14.16b, v1.16b\n\t"
        "umlal v24.8h, v1.8b, v6.8b\n\t"
        "umlal2 v25.8h, v1.16b, v6.16b\n\t"
        "umlal v28.8h, v1.8b, v7.8b\n\t"
        "umlal2 v29.8h, v1.16b, v7.16b\n\t"
        "add v15.16b, v15.16b, v8.16b\n\t"
        "ldr q1, [%[P], #10320]\n\t"
        "umlal v26.8h, v8.8b, v6.8b\n\t"
        "umlal2 v27.8h, v8.16b, v6.16b\n\t"
        "umlal v30.8h, v8.8b, v7.8b\n\t"
        "ldur q6, [%[uMid], #-1]\n\t"
        "umlal2 v31.8h, v8.16b, v7.16b\n\t"
        "ldur q7, [%[vMid], #-1]\n\t"
        "ldr q8, [%[P], #12384]\n\t"
        "uabd v1.16b, v1.16b, v6.16b\n\t"
        "uabd v2.16b, v2.16b, v7.16b\n\t"
        "uabd v8.16b, v8.16b, v6.16b\n\t"
        "uabd v9.16b, v9.16b, v7.16b\n\t"
        "tbl v4.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v1.16b\n\t"
        "sub v1.16b, v1.16b, v23.16b\n\t"
        "tbl v5.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v2.16b\n\t"
        "sub v2.16b, v2.16b, v23.16b\n\t"
        "tbl v11.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v8.16b\n\t"
        "sub v8.16b, v8.16b, v23.16b\n\t"
        "tbl v12.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v9.16b\n\t"
        "sub v9.16b, v9.16b, v23.16b\n\t"
        "tbx v4.16b, {v20.16b}, v1.16b\n\t"
        "tbx v5.16b, {v20.16b}, v2.16b\n\t"
        "tbx v11.16b, {v20.16b}, v8.16b\n\t"
        "tbx v12.16b, {v20.16b}, v9.16b\n\t"
        "umull v1.8h, v4.8b, v5.8b\n\t"
        "umull2 v2.8h, v4.16b, v5.16b\n\t"
        "umull v8.8h, v11.8b, v12.8b\n\t"
        "umull2 v9.8h, v11.16b, v12.16b\n\t"
        "uzp2 v1.16b, v1.16b, v2.16b\n\t"
        "uzp2 v8.16b, v8.16b, v9.16b\n\t"
        "umull v2.8h, v1.8b, v3.8b\n\t"
        "umull2 v4.8h, v1.16b, v3.16b\n\t"
        "umull v9.8h, v8.8b, v10.8b\n\t"
        "ldr q3, [%[P], #0]\n\t"
        "umull2 v11.8h, v8.16b, v10.16b\n\t"
        "ldr q10, [%[P], #2064]\n\t"
        "uzp2 v2.16b, v2.16b, v4.16b\n\t"
        "uabd v3.16b, v3.16b, v0.16b\n\t"
        "uzp2 v9.16b, v9.16b, v11.16b\n\t"
        "uabd v10.16b, v10.16b, v0.16b\n\t"
        "ushr v1.16b, v2.16b, #3\n\t"
        "ldur q0, [%[Pm], #1]\n\t"
        "tbl v3.16b, {v21.16b, v22.16b}, v3.16b\n\t"
        "add %[Pm], %[Pm], #16\n\t"
        "ushr v8.16b, v9.16b, #3\n\t"
        "tbl v10.16b, {v21.16b, v22.16b}, v10.16b\n\t"
        "usra v1.16b, v2.16b, #4\n\t"
        "ldr q2, [%[P], #14448]\n\t"
        "usra v8.16b, v9.16b, #4\n\t"
        "ldr q9, [%[P], #16512]\n\t"
        "add v14.16b, v14.16b, v1.16b\n\t"
        "umlal v24.8h, v1.8b, v6.8b\n\t"
        "umlal2 v25.8h, v1.16b, v6.16b\n\t"
        "umlal v28.8h, v1.8b, v7.8b\n\t"
        "umlal2 v29.8h, v1.16b, v7.16b\n\t"
        "add v15.16b, v15.16b, v8.16b\n\t"
        "ldr q1, [%[P], #10320]\n\t"
        "umlal v26.8h, v8.8b, v6.8b\n\t"
        "umlal2 v27.8h, v8.16b, v6.16b\n\t"
        "umlal v30.8h, v8.8b, v7.8b\n\t"
        "ldr q6, [%[uMid]]\n\t"
        "umlal2 v31.8h, v8.16b, v7.16b\n\t"
        "ldr q7, [%[vMid]]\n\t"
        "ldr q8, [%[P], #12384]\n\t"
        "uabd v1.16b, v1.16b, v6.16b\n\t"
        "uabd v2.16b, v2.16b, v7.16b\n\t"
        "uabd v8.16b, v8.16b, v6.16b\n\t"
        "uabd v9.16b, v9.16b, v7.16b\n\t"
        "tbl v4.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v1.16b\n\t"
        "sub v1.16b, v1.16b, v23.16b\n\t"
        "tbl v5.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v2.16b\n\t"
        "sub v2.16b, v2.16b, v23.16b\n\t"
        "tbl v11.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v8.16b\n\t"
        "sub v8.16b, v8.16b, v23.16b\n\t"
        "tbl v12.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v9.16b\n\t"
        "sub v9.16b, v9.16b, v23.16b\n\t"
        "tbx v4.16b, {v20.16b}, v1.16b\n\t"
        "tbx v5.16b, {v20.16b}, v2.16b\n\t"
        "tbx v11.16b, {v20.16b}, v8.16b\n\t"
        "tbx v12.16b, {v20.16b}, v9.16b\n\t"
        "umull v1.8h, v4.8b, v5.8b\n\t"
        "umull2 v2.8h, v4.16b, v5.16b\n\t"
        "umull v8.8h, v11.8b, v12.8b\n\t"
        "umull2 v9.8h, v11.16b, v12.16b\n\t"
        "uzp2 v1.16b, v1.16b, v2.16b\n\t"
        "uzp2 v8.16b, v8.16b, v9.16b\n\t"
        "umull v2.8h, v1.8b, v3.8b\n\t"
        "umull2 v4.8h, v1.16b, v3.16b\n\t"
        "umull v9.8h, v8.8b, v10.8b\n\t"
        "ldr q3, [%[P], #0]\n\t"
        "umull2 v11.8h, v8.16b, v10.16b\n\t"
        "ldr q10, [%[P], #2064]\n\t"
        "uzp2 v2.16b, v2.16b, v4.16b\n\t"
        "uabd v3.16b, v3.16b, v0.16b\n\t"
        "uzp2 v9.16b, v9.16b, v11.16b\n\t"
        "uabd v10.16b, v10.16b, v0.16b\n\t"
        "ushr v1.16b, v2.16b, #3\n\t"
        "ldr q0, [%[P], #8256]\n\t"
        "tbl v3.16b, {v21.16b, v22.16b}, v3.16b\n\t"
        "ushr v8.16b, v9.16b, #3\n\t"
        "tbl v10.16b, {v21.16b, v22.16b}, v10.16b\n\t"
        "usra v1.16b, v2.16b, #4\n\t"
        "ldr q2, [%[P], #14448]\n\t"
        "usra v8.16b, v9.16b, #4\n\t"
        "ldr q9, [%[P], #16512]\n\t"
        "add v14.16b, v14.16b, v1.16b\n\t"
        "umlal v24.8h, v1.8b, v6.8b\n\t"
        "umlal2 v25.8h, v1.16b, v6.16b\n\t"
        "umlal v28.8h, v1.8b, v7.8b\n\t"
        "umlal2 v29.8h, v1.16b, v7.16b\n\t"
        "add v15.16b, v15.16b, v8.16b\n\t"
        "ldr q1, [%[P], #10320]\n\t"
        "umlal v26.8h, v8.8b, v6.8b\n\t"
        "umlal2 v27.8h, v8.16b, v6.16b\n\t"
        "umlal v30.8h, v8.8b, v7.8b\n\t"
        "ldur q6, [%[uMid], #1]\n\t"
        "umlal2 v31.8h, v8.16b, v7.16b\n\t"
        "add %[uMid], %[uMid], #16\n\t"
        "ldur q7, [%[vMid], #1]\n\t"
        "ldr q8, [%[P], #12384]\n\t"
        "uabd v1.16b, v1.16b, v6.16b\n\t"
        "add %[vMid], %[vMid], #16\n\t"
        "uabd v2.16b, v2.16b, v7.16b\n\t"
        "uabd v8.16b, v8.16b, v6.16b\n\t"
        "uabd v9.16b, v9.16b, v7.16b\n\t"
        "tbl v4.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v1.16b\n\t"
        "sub v1.16b, v1.16b, v23.16b\n\t"
        "tbl v5.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v2.16b\n\t"
        "sub v2.16b, v2.16b, v23.16b\n\t"
        "tbl v11.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v8.16b\n\t"
        "sub v8.16b, v8.16b, v23.16b\n\t"
        "tbl v12.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v9.16b\n\t"
        "sub v9.16b, v9.16b, v23.16b\n\t"
        "tbx v4.16b, {v20.16b}, v1.16b\n\t"
        "tbx v5.16b, {v20.16b}, v2.16b\n\t"
        "tbx v11.16b, {v20.16b}, v8.16b\n\t"
        "tbx v12.16b, {v20.16b}, v9.16b\n\t"
        "umull v1.8h, v4.8b, v5.8b\n\t"
        "umull2 v2.8h, v4.16b, v5.16b\n\t"
        "umull v8.8h, v11.8b, v12.8b\n\t"
        "umull2 v9.8h, v11.16b, v12.16b\n\t"
        "uzp2 v1.16b, v1.16b, v2.16b\n\t"
        "uzp2 v8.16b, v8.16b, v9.16b\n\t"
        "umull v2.8h, v1.8b, v3.8b\n\t"
        "umull2 v4.8h, v1.16b, v3.16b\n\t"
        "umull v9.8h, v8.8b, v10.8b\n\t"
        "ldr q3, [%[P], #0]\n\t"
        "umull2 v11.8h, v8.16b, v10.16b\n\t"
        "ldr q10, [%[P], #2064]\n\t"
        "uzp2 v2.16b, v2.16b, v4.16b\n\t"
        "uabd v3.16b, v3.16b, v0.16b\n\t"
        "uzp2 v9.16b, v9.16b, v11.16b\n\t"
        "uabd v10.16b, v10.16b, v0.16b\n\t"
        "ushr v1.16b, v2.16b, #3\n\t"
        "tbl v3.16b, {v21.16b, v22.16b}, v3.16b\n\t"
        "ushr v8.16b, v9.16b, #3\n\t"
        "tbl v10.16b, {v21.16b, v22.16b}, v10.16b\n\t"
        "usra v1.16b, v2.16b, #4\n\t"
        "ldr q2, [%[P], #14448]\n\t"
        "usra v8.16b, v9.16b, #4\n\t"
        "ldr q9, [%[P], #16512]\n\t"
        "add v14.16b, v14.16b, v1.16b\n\t"
        "umlal v24.8h, v1.8b, v6.8b\n\t"
        "umlal2 v25.8h, v1.16b, v6.16b\n\t"
        "umlal v28.8h, v1.8b, v7.8b\n\t"
        "umlal2 v29.8h, v1.16b, v7.16b\n\t"
        "add v15.16b, v15.16b, v8.16b\n\t"
        "ldr q1, [%[P], #10320]\n\t"
        "umlal v26.8h, v8.8b, v6.8b\n\t"
        "umlal2 v27.8h, v8.16b, v6.16b\n\t"
        "umlal v30.8h, v8.8b, v7.8b\n\t"
        "ldr q6, [%[uDown], %[X]]\n\t"
        "umlal2 v31.8h, v8.16b, v7.16b\n\t"
        "ldr q7, [%[vDown], %[X]]\n\t"
        "ldr q8, [%[P], #12384]\n\t"
        "uabd v1.16b, v1.16b, v6.16b\n\t"
        "add %[P], %[P], #16\n\t"
        "uabd v2.16b, v2.16b, v7.16b\n\t"
        "add %[X], %[X], #16\n\t"
        "uabd v8.16b, v8.16b, v6.16b\n\t"
        "uabd v9.16b, v9.16b, v7.16b\n\t"
        "tbl v4.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v1.16b\n\t"
        "sub v1.16b, v1.16b, v23.16b\n\t"
        "tbl v5.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v2.16b\n\t"
        "sub v2.16b, v2.16b, v23.16b\n\t"
        "tbl v11.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v8.16b\n\t"
        "sub v8.16b, v8.16b, v23.16b\n\t"
        "tbl v12.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v9.16b\n\t"
        "sub v9.16b, v9.16b, v23.16b\n\t"
        "tbx v4.16b, {v20.16b}, v1.16b\n\t"
        "tbx v5.16b, {v20.16b}, v2.16b\n\t"
        "tbx v11.16b, {v20.16b}, v8.16b\n\t"
        "tbx v12.16b, {v20.16b}, v9.16b\n\t"
        "umull v1.8h, v4.8b, v5.8b\n\t"
        "umull2 v2.8h, v4.16b, v5.16b\n\t"
        "umull v8.8h, v11.8b, v12.8b\n\t"
        "umull2 v9.8h, v11.16b, v12.16b\n\t"
        "uzp2 v1.16b, v1.16b, v2.16b\n\t"
        "uzp2 v8.16b, v8.16b, v9.16b\n\t"
        "umull v2.8h, v1.8b, v3.8b\n\t"
        "umull2 v4.8h, v1.16b, v3.16b\n\t"
        "umull v9.8h, v8.8b, v10.8b\n\t"
        "umull2 v11.8h, v8.16b, v10.16b\n\t"
        "uzp2 v2.16b, v2.16b, v4.16b\n\t"
        "uzp2 v9.16b, v9.16b, v11.16b\n\t"
        "ushr v1.16b, v2.16b, #3\n\t"
        "ushr v8.16b, v9.16b, #3\n\t"
        "usra v1.16b, v2.16b, #4\n\t"
        "usra v8.16b, v9.16b, #4\n\t"
        "umlal v24.8h, v1.8b, v6.8b\n\t"
        "umlal2 v25.8h, v1.16b, v6.16b\n\t"
        "umlal v26.8h, v8.8b, v6.8b\n\t"
        "umlal2 v27.8h, v8.16b, v6.16b\n\t"
        "umlal v28.8h, v1.8b, v7.8b\n\t"
        "umlal2 v29.8h, v1.16b, v7.16b\n\t"
        "umlal v30.8h, v8.8b, v7.8b\n\t"
        "umlal2 v31.8h, v8.16b, v7.16b\n\t"
        "add v14.16b, v14.16b, v1.16b\n\t"
        "add v15.16b, v15.16b, v8.16b\n\t"
        "st1 {v14.16b, v15.16b}, [%[S]], #32\n\t"
        "st1 {v24.8h, v25.8h, v26.8h, v27.8h}, [%[S]], #64\n\t"
        "st1 {v28.8h, v29.8h, v30.8h, v31.8h}, [%[S]], #64\n\t"
        "subs %[k], %[k], #1\n\t"
        "b.ne 1b\n\t"
        : [P] "+r"(P), [Pm] "+r"(Pm), [uMid] "+r"(uMid), [vMid] "+r"(vMid), [S] "+r"(S),
          [X] "+r"(X), [k] "+r"(k)
        : [uUp] "r"(r.uUp), [vUp] "r"(r.vUp), [uDown] "r"(r.uDown), [vDown] "r"(r.vDown),
          [lut] "r"(t.lut), [lutLuma] "r"(t.lutLuma)
        : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9", "v10", "v11", "v12", "v13",
          "v14", "v15", "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23", "v24", "v25",
          "v26", "v27", "v28", "v29", "v30", "v31", "cc", "memory");
    uint8_t* oU = outU + 2 * x;
    uint8_t* oV = outV + 2 * x;
    S = sums;
    k = n / 2;
    asm volatile(
        "ld1r {v15.4s}, [%[num]]\n\t"
        "ld1 {v12.16b, v13.16b}, [%[S]]\n\t"
        "uxtl v0.8h, v12.8b\n\t"
        "uxtl2 v2.8h, v12.16b\n\t"
        "uxtl v4.8h, v13.8b\n\t"
        "uxtl2 v6.8h, v13.16b\n\t"
        "uxtl2 v1.4s, v0.8h\n\t"
        "uxtl v0.4s, v0.4h\n\t"
        "uxtl2 v3.4s, v2.8h\n\t"
        "uxtl v2.4s, v2.4h\n\t"
        "uxtl2 v5.4s, v4.8h\n\t"
        "uxtl v4.4s, v4.4h\n\t"
        "uxtl2 v7.4s, v6.8h\n\t"
        "uxtl v6.4s, v6.4h\n\t"
        "ucvtf v0.4s, v0.4s\n\t"
        "ucvtf v1.4s, v1.4s\n\t"
        "ucvtf v2.4s, v2.4s\n\t"
        "ucvtf v3.4s, v3.4s\n\t"
        "ucvtf v4.4s, v4.4s\n\t"
        "ucvtf v5.4s, v5.4s\n\t"
        "ucvtf v6.4s, v6.4s\n\t"
        "ucvtf v7.4s, v7.4s\n\t"
        "fdiv v0.4s, v15.4s, v0.4s\n\t"
        "fdiv v1.4s, v15.4s, v1.4s\n\t"
        "fdiv v2.4s, v15.4s, v2.4s\n\t"
        "fdiv v3.4s, v15.4s, v3.4s\n\t"
        "fdiv v4.4s, v15.4s, v4.4s\n\t"
        "fdiv v5.4s, v15.4s, v5.4s\n\t"
        "fdiv v6.4s, v15.4s, v6.4s\n\t"
        "fdiv v7.4s, v15.4s, v7.4s\n\t"
        "1:\n\t"
        "add %[S], %[S], #32\n\t"
        "ld1 {v24.8h, v25.8h, v26.8h, v27.8h}, [%[S]], #64\n\t"
        "uxtl v8.4s, v24.4h\n\t"
        "ld1 {v28.8h, v29.8h, v30.8h, v31.8h}, [%[S]], #64\n\t"
        "uxtl2 v9.4s, v24.8h\n\t"
        "uxtl v10.4s, v25.4h\n\t"
        "uxtl2 v11.4s, v25.8h\n\t"
        "ld1 {v12.16b, v13.16b}, [%[S]]\n\t"
        "ucvtf v8.4s, v8.4s\n\t"
        "add %[S], %[S], #32\n\t"
        "ucvtf v9.4s, v9.4s\n\t"
        "ucvtf v10.4s, v10.4s\n\t"
        "ucvtf v11.4s, v11.4s\n\t"
        "fmul v8.4s, v8.4s, v0.4s\n\t"
        "fmul v9.4s, v9.4s, v1.4s\n\t"
        "fmul v10.4s, v10.4s, v2.4s\n\t"
        "fmul v11.4s, v11.4s, v3.4s\n\t"
        "fcvtnu v8.4s, v8.4s\n\t"
        "fcvtnu v9.4s, v9.4s\n\t"
        "fcvtnu v10.4s, v10.4s\n\t"
        "fcvtnu v11.4s, v11.4s\n\t"
        "uxtl v16.8h, v12.8b\n\t"
        "uzp1 v24.8h, v8.8h, v9.8h\n\t"
        "uxtl v8.4s, v26.4h\n\t"
        "uzp1 v25.8h, v10.8h, v11.8h\n\t"
        "uxtl2 v9.4s, v26.8h\n\t"
        "uxtl v10.4s, v27.4h\n\t"
        "uxtl2 v11.4s, v27.8h\n\t"
        "ucvtf v8.4s, v8.4s\n\t"
        "ucvtf v9.4s, v9.4s\n\t"
        "ucvtf v10.4s, v10.4s\n\t"
        "ucvtf v11.4s, v11.4s\n\t"
        "fmul v8.4s, v8.4s, v4.4s\n\t"
        "fmul v9.4s, v9.4s, v5.4s\n\t"
        "fmul v10.4s, v10.4s, v6.4s\n\t"
        "fmul v11.4s, v11.4s, v7.4s\n\t"
        "fcvtnu v8.4s, v8.4s\n\t"
        "fcvtnu v9.4s, v9.4s\n\t"
        "fcvtnu v10.4s, v10.4s\n\t"
        "fcvtnu v11.4s, v11.4s\n\t"
        "uxtl2 v18.8h, v12.16b\n\t"
        "uzp1 v26.8h, v8.8h, v9.8h\n\t"
        "uxtl v8.4s, v28.4h\n\t"
        "uzp1 v27.8h, v10.8h, v11.8h\n\t"
        "uxtl2 v9.4s, v28.8h\n\t"
        "uxtl v10.4s, v29.4h\n\t"
        "uxtl2 v11.4s, v29.8h\n\t"
        "ucvtf v8.4s, v8.4s\n\t"
        "ucvtf v9.4s, v9.4s\n\t"
        "ucvtf v10.4s, v10.4s\n\t"
        "ucvtf v11.4s, v11.4s\n\t"
        "fmul v8.4s, v8.4s, v0.4s\n\t"
        "fmul v9.4s, v9.4s, v1.4s\n\t"
        "fmul v10.4s, v10.4s, v2.4s\n\t"
        "fmul v11.4s, v11.4s, v3.4s\n\t"
        "fcvtnu v8.4s, v8.4s\n\t"
        "fcvtnu v9.4s, v9.4s\n\t"
        "fcvtnu v10.4s, v10.4s\n\t"
        "fcvtnu v11.4s, v11.4s\n\t"
        "uxtl2 v17.4s, v16.8h\n\t"
        "uzp1 v28.8h, v8.8h, v9.8h\n\t"
        "uxtl v8.4s, v30.4h\n\t"
        "uzp1 v29.8h, v10.8h, v11.8h\n\t"
        "uxtl2 v9.4s, v30.8h\n\t"
        "uxtl v10.4s, v31.4h\n\t"
        "uxtl2 v11.4s, v31.8h\n\t"
        "ucvtf v8.4s, v8.4s\n\t"
        "ucvtf v9.4s, v9.4s\n\t"
        "ucvtf v10.4s, v10.4s\n\t"
        "ucvtf v11.4s, v11.4s\n\t"
        "fmul v8.4s, v8.4s, v4.4s\n\t"
        "fmul v9.4s, v9.4s, v5.4s\n\t"
        "fmul v10.4s, v10.4s, v6.4s\n\t"
        "fmul v11.4s, v11.4s, v7.4s\n\t"
        "uxtl v16.4s, v16.4h\n\t"
        "uxtl2 v19.4s, v18.8h\n\t"
        "uxtl v18.4s, v18.4h\n\t"
        "fcvtnu v8.4s, v8.4s\n\t"
        "fcvtnu v9.4s, v9.4s\n\t"
        "fcvtnu v10.4s, v10.4s\n\t"
        "fcvtnu v11.4s, v11.4s\n\t"
        "ucvtf v16.4s, v16.4s\n\t"
        "ucvtf v17.4s, v17.4s\n\t"
        "ucvtf v18.4s, v18.4s\n\t"
        "ucvtf v19.4s, v19.4s\n\t"
        "uzp1 v30.8h, v8.8h, v9.8h\n\t"
        "uzp1 v31.8h, v10.8h, v11.8h\n\t"
        "fdiv v16.4s, v15.4s, v16.4s\n\t"
        "uzp1 v8.16b, v24.16b, v25.16b\n\t"
        "uzp1 v9.16b, v26.16b, v27.16b\n\t"
        "uzp1 v10.16b, v28.16b, v29.16b\n\t"
        "ld1 {v24.8h, v25.8h, v26.8h, v27.8h}, [%[S]], #64\n\t"
        "uzp1 v11.16b, v30.16b, v31.16b\n\t"
        "uxtl v20.8h, v13.8b\n\t"
        "uxtl2 v22.8h, v13.16b\n\t"
        "st2 {v8.16b, v9.16b}, [%[outU]], #32\n\t"
        "uxtl v8.4s, v24.4h\n\t"
        "ld1 {v28.8h, v29.8h, v30.8h, v31.8h}, [%[S]], #64\n\t"
        "st2 {v10.16b, v11.16b}, [%[outV]], #32\n\t"
        "uxtl2 v9.4s, v24.8h\n\t"
        "uxtl v10.4s, v25.4h\n\t"
        "fdiv v17.4s, v15.4s, v17.4s\n\t"
        "ld1 {v12.16b, v13.16b}, [%[S]]\n\t"
        "uxtl2 v11.4s, v25.8h\n\t"
        "uxtl2 v21.4s, v20.8h\n\t"
        "uxtl v20.4s, v20.4h\n\t"
        "uxtl2 v23.4s, v22.8h\n\t"
        "uxtl v22.4s, v22.4h\n\t"
        "ucvtf v8.4s, v8.4s\n\t"
        "ucvtf v9.4s, v9.4s\n\t"
        "ucvtf v10.4s, v10.4s\n\t"
        "ucvtf v11.4s, v11.4s\n\t"
        "fdiv v18.4s, v15.4s, v18.4s\n\t"
        "ucvtf v20.4s, v20.4s\n\t"
        "ucvtf v21.4s, v21.4s\n\t"
        "ucvtf v22.4s, v22.4s\n\t"
        "ucvtf v23.4s, v23.4s\n\t"
        "fmul v8.4s, v8.4s, v16.4s\n\t"
        "fmul v9.4s, v9.4s, v17.4s\n\t"
        "uxtl v0.8h, v12.8b\n\t"
        "uxtl2 v2.8h, v12.16b\n\t"
        "fcvtnu v8.4s, v8.4s\n\t"
        "fdiv v19.4s, v15.4s, v19.4s\n\t"
        "fcvtnu v9.4s, v9.4s\n\t"
        "uxtl v4.8h, v13.8b\n\t"
        "fmul v10.4s, v10.4s, v18.4s\n\t"
        "uxtl2 v6.8h, v13.16b\n\t"
        "uzp1 v24.8h, v8.8h, v9.8h\n\t"
        "uxtl v8.4s, v26.4h\n\t"
        "fcvtnu v10.4s, v10.4s\n\t"
        "uxtl2 v9.4s, v26.8h\n\t"
        "uxtl2 v1.4s, v0.8h\n\t"
        "fdiv v20.4s, v15.4s, v20.4s\n\t"
        "ucvtf v8.4s, v8.4s\n\t"
        "ucvtf v9.4s, v9.4s\n\t"
        "fmul v11.4s, v11.4s, v19.4s\n\t"
        "uxtl v0.4s, v0.4h\n\t"
        "uxtl2 v3.4s, v2.8h\n\t"
        "uxtl v2.4s, v2.4h\n\t"
        "fcvtnu v11.4s, v11.4s\n\t"
        "uxtl2 v5.4s, v4.8h\n\t"
        "uxtl v4.4s, v4.4h\n\t"
        "fdiv v21.4s, v15.4s, v21.4s\n\t"
        "uzp1 v25.8h, v10.8h, v11.8h\n\t"
        "uxtl v10.4s, v27.4h\n\t"
        "uxtl2 v11.4s, v27.8h\n\t"
        "fmul v8.4s, v8.4s, v20.4s\n\t"
        "uxtl2 v7.4s, v6.8h\n\t"
        "ucvtf v10.4s, v10.4s\n\t"
        "ucvtf v11.4s, v11.4s\n\t"
        "fcvtnu v8.4s, v8.4s\n\t"
        "uxtl v6.4s, v6.4h\n\t"
        "fdiv v22.4s, v15.4s, v22.4s\n\t"
        "ucvtf v0.4s, v0.4s\n\t"
        "ucvtf v1.4s, v1.4s\n\t"
        "fmul v9.4s, v9.4s, v21.4s\n\t"
        "ucvtf v2.4s, v2.4s\n\t"
        "ucvtf v3.4s, v3.4s\n\t"
        "ucvtf v4.4s, v4.4s\n\t"
        "fcvtnu v9.4s, v9.4s\n\t"
        "ucvtf v5.4s, v5.4s\n\t"
        "ucvtf v6.4s, v6.4s\n\t"
        "fdiv v23.4s, v15.4s, v23.4s\n\t"
        "uzp1 v26.8h, v8.8h, v9.8h\n\t"
        "uxtl v8.4s, v28.4h\n\t"
        "fmul v10.4s, v10.4s, v22.4s\n\t"
        "uxtl2 v9.4s, v28.8h\n\t"
        "ucvtf v7.4s, v7.4s\n\t"
        "ucvtf v8.4s, v8.4s\n\t"
        "fcvtnu v10.4s, v10.4s\n\t"
        "ucvtf v9.4s, v9.4s\n\t"
        "fmul v8.4s, v8.4s, v16.4s\n\t"
        "fdiv v0.4s, v15.4s, v0.4s\n\t"
        "fmul v9.4s, v9.4s, v17.4s\n\t"
        "fmul v11.4s, v11.4s, v23.4s\n\t"
        "fcvtnu v8.4s, v8.4s\n\t"
        "fcvtnu v9.4s, v9.4s\n\t"
        "fcvtnu v11.4s, v11.4s\n\t"
        "uzp1 v28.8h, v8.8h, v9.8h\n\t"
        "uzp1 v27.8h, v10.8h, v11.8h\n\t"
        "uxtl v10.4s, v29.4h\n\t"
        "uxtl2 v11.4s, v29.8h\n\t"
        "uxtl v8.4s, v30.4h\n\t"
        "uxtl2 v9.4s, v30.8h\n\t"
        "ucvtf v10.4s, v10.4s\n\t"
        "ucvtf v11.4s, v11.4s\n\t"
        "ucvtf v8.4s, v8.4s\n\t"
        "ucvtf v9.4s, v9.4s\n\t"
        "fmul v10.4s, v10.4s, v18.4s\n\t"
        "fmul v11.4s, v11.4s, v19.4s\n\t"
        "fmul v8.4s, v8.4s, v20.4s\n\t"
        "fmul v9.4s, v9.4s, v21.4s\n\t"
        "fcvtnu v10.4s, v10.4s\n\t"
        "fcvtnu v11.4s, v11.4s\n\t"
        "fdiv v1.4s, v15.4s, v1.4s\n\t"
        "fcvtnu v8.4s, v8.4s\n\t"
        "fcvtnu v9.4s, v9.4s\n\t"
        "uzp1 v29.8h, v10.8h, v11.8h\n\t"
        "uxtl v10.4s, v31.4h\n\t"
        "uxtl2 v11.4s, v31.8h\n\t"
        "uzp1 v30.8h, v8.8h, v9.8h\n\t"
        "uzp1 v8.16b, v24.16b, v25.16b\n\t"
        "ucvtf v10.4s, v10.4s\n\t"
        "ucvtf v11.4s, v11.4s\n\t"
        "fdiv v2.4s, v15.4s, v2.4s\n\t"
        "uzp1 v9.16b, v26.16b, v27.16b\n\t"
        "fmul v10.4s, v10.4s, v22.4s\n\t"
        "fmul v11.4s, v11.4s, v23.4s\n\t"
        "st2 {v8.16b, v9.16b}, [%[outU]], #32\n\t"
        "fcvtnu v10.4s, v10.4s\n\t"
        "fcvtnu v11.4s, v11.4s\n\t"
        "fdiv v3.4s, v15.4s, v3.4s\n\t"
        "uzp1 v31.8h, v10.8h, v11.8h\n\t"
        "uzp1 v10.16b, v28.16b, v29.16b\n\t"
        "uzp1 v11.16b, v30.16b, v31.16b\n\t"
        "st2 {v10.16b, v11.16b}, [%[outV]], #32\n\t"
        "fdiv v4.4s, v15.4s, v4.4s\n\t"
        "fdiv v5.4s, v15.4s, v5.4s\n\t"
        "fdiv v6.4s, v15.4s, v6.4s\n\t"
        "fdiv v7.4s, v15.4s, v7.4s\n\t"
        "subs %[k], %[k], #1\n\t"
        "b.ne 1b\n\t"
        : [S] "+r"(S), [outU] "+r"(oU), [outV] "+r"(oV), [k] "+r"(k)
        : [num] "r"(&kMeanDividend)
        : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9", "v10", "v11", "v12", "v13",
          "v14", "v15", "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23", "v24", "v25",
          "v26", "v27", "v28", "v29", "v30", "v31", "cc", "memory");
    done += n;
  }
  return total;
}
#endif

#if !defined(__aarch64__)
// Pass 2's inner steps on armv7 in assembly, 16 outputs a step (the compiled
// steps move and spill registers: about 100 of their 519 instructions per
// 16 outputs). The taps' luma comes from rows taken out beforehand (every
// fourth byte of luma rows 4 yUp, 4 y, 4 yDown; pass2Rows), loaded as
// bytes. Registers: d16-d19 the weight and slope tables, q7 the weights,
// q12-q15 the sums (U lanes 0-7, 8-15, V), q0-q6 and q10, q11 a tap's bytes
// and steps; the centres are loaded again by each tap from a 16-byte
// aligned buffer. Two pointers walk the rows a step loads from (walkWords).
// Two loops per chunk of 16 steps, sums then means, as in pass 3, each
// ordered by a list schedule (scripts/asmgen/chroma_pass2_armv7.py); where
// every difference from 80 on weighs as 0, the look-up form
// (pass2InnerArmv7Lut) instead, with a luma weights loop first.
struct Pass2Armv7Rows {
  const uint8_t* src[2];   // U, V centres: full-size row 2y                (+ 2 x)
  const uint8_t* luma[5];  // taken-out luma: up, left, centre, right, down (+ x)
  const uint8_t* u[5];     // half-size taps: up, left, centre, right, down (+ x)
  const uint8_t* v[5];
  uint8_t* out[2];         // U, V outputs: half-size row y                 (+ x)
};

// The means loop of pass 2's steps on armv7 (after either sums loop): n
// steps' sums and weights from `sums`, 16 outputs each into *o0 (U) and *o1
// (V), which it moves on; one refinement step, as pass 3's means loop.
inline void pass2MeansArmv7(const uint8_t* sums, int32_t n, uint8_t** o0, uint8_t** o1) {
  uint8_t *u = *o0, *v = *o1;
  const uint8_t* sp = sums;
  int32_t k = n;
  asm volatile(
      "vdup.32 q8, %[scale]\n\t"
      "1:\n\t"
      "vld1.64 {d14, d15}, [%[S]:128]!\n\t"
      "vmovl.u8 q0, d14\n\t"
      "vmovl.u8 q1, d15\n\t"
      "vld1.64 {d24, d25, d26, d27}, [%[S]:128]!\n\t"
      "vmovl.u16 q2, d0\n\t"
      "vmovl.u16 q3, d1\n\t"
      "vmovl.u16 q4, d2\n\t"
      "vcvt.f32.u32 q2, q2\n\t"
      "vcvt.f32.u32 q3, q3\n\t"
      "vmovl.u16 q5, d3\n\t"
      "vcvt.f32.u32 q4, q4\n\t"
      "vld1.64 {d28, d29, d30, d31}, [%[S]:128]!\n\t"
      "vrecpe.f32 q0, q2\n\t"
      "vrecpe.f32 q6, q3\n\t"
      "vcvt.f32.u32 q5, q5\n\t"
      "vmovl.u16 q9, d28\n\t"
      "vrecps.f32 q1, q2, q0\n\t"
      "vmul.f32 q0, q0, q8\n\t"
      "vrecps.f32 q7, q3, q6\n\t"
      "vmul.f32 q6, q6, q8\n\t"
      "vmovl.u16 q10, d29\n\t"
      "vmovl.u16 q11, d30\n\t"
      "vmul.f32 q2, q0, q1\n\t"
      "vrecpe.f32 q0, q4\n\t"
      "vmul.f32 q3, q6, q7\n\t"
      "vrecpe.f32 q6, q5\n\t"
      "vcvt.s32.f32 q2, q2, #31\n\t"
      "vrecps.f32 q1, q4, q0\n\t"
      "vmul.f32 q0, q0, q8\n\t"
      "vrecps.f32 q7, q5, q6\n\t"
      "vmul.f32 q6, q6, q8\n\t"
      "vcvt.s32.f32 q3, q3, #31\n\t"
      "vqrdmulh.s32 q9, q9, q2\n\t"
      "vmul.f32 q4, q0, q1\n\t"
      "vmovl.u16 q0, d26\n\t"
      "vmul.f32 q5, q6, q7\n\t"
      "vmovl.u16 q6, d24\n\t"
      "vmovl.u16 q7, d25\n\t"
      "vcvt.s32.f32 q4, q4, #31\n\t"
      "vmovl.u16 q1, d27\n\t"
      "vcvt.s32.f32 q5, q5, #31\n\t"
      "vmovl.u16 q12, d31\n\t"
      "vqrdmulh.s32 q6, q6, q2\n\t"
      "vqrdmulh.s32 q7, q7, q3\n\t"
      "vqrdmulh.s32 q0, q0, q4\n\t"
      "vqrdmulh.s32 q1, q1, q5\n\t"
      "vqrdmulh.s32 q10, q10, q3\n\t"
      "vqrdmulh.s32 q11, q11, q4\n\t"
      "vqrdmulh.s32 q12, q12, q5\n\t"
      "vuzp.16 q6, q7\n\t"
      "vuzp.16 q0, q1\n\t"
      "vuzp.16 q9, q10\n\t"
      "vuzp.16 q11, q12\n\t"
      "vuzp.8 q6, q0\n\t"
      "vuzp.8 q9, q11\n\t"
      "vst1.8 {d12, d13}, [%[o0]]!\n\t"
      "vst1.8 {d18, d19}, [%[o1]]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [o0] "+r"(u), [o1] "+r"(v), [n] "+r"(k), [S] "+r"(sp)
      : [scale] "r"(kKqChromaMeanScale1Bits)
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "d28", "d29", "d30", "d31", "cc", "memory");
  *o0 = u;
  *o1 = v;
}

template <int kShift>
void pass2InnerArmv7(const Pass2Armv7Rows* rows, const Tables& t, int32_t x0, int32_t count) {
  constexpr int32_t kChunk = 16;
  alignas(16) uint8_t centres[48];
  alignas(16) uint8_t sums[kChunk * 80];
  uint8_t* const b = centres;
  // The sums loop's record: the weight of a difference 0 (word 0's low
  // byte, which the centre tap's luma weight is), the walks of the luma and
  // the U and V taps and of the centres' U and V (the generator's chains),
  // then the table.
  const Pass2Armv7Rows& r = *rows;
  uint32_t words[19];
  words[0] = t.w[0];
  uint32_t* w = walkWords(words + 1, {r.luma[2], r.u[0], r.v[0], r.luma[0], r.u[1], r.v[1],
                                      r.luma[1], r.u[2], r.v[2], r.u[3], r.v[3], r.luma[3], r.u[4],
                                      r.v[4], r.luma[4]}, 16);
  w = walkWords(w, {r.src[0], r.src[1]}, 32);
  w[0] = uint32_t(uintptr_t(t.w));
  const uint8_t *p0 = r.luma[2] + x0, *p1 = r.src[0] + 2 * x0;
  uint8_t *o0 = r.out[0] + x0, *o1 = r.out[1] + x0;
  while (count > 0) {
    const int32_t n = count < kChunk ? count : kChunk;
    int32_t k = n;
    uint8_t* sp = sums;
    uint32_t sa, sb, sc, sd;
    asm volatile(
        "ldr %[a], [%[R], #72]\n\t"
        "vld1.8 {d16-d19}, [%[a]]\n\t"
        "1:\n\t"
        "vmov.i8 q7, #1\n\t"
        "ldr %[a], [%[R], #64]\n\t"
        "ldr %[b], [%[R], #68]\n\t"
        "ldr %[c], [%[R], #4]\n\t"
        "ldr %[d], [%[R], #8]\n\t"
        "vld2.8 {d0, d1, d2, d3}, [%[p1]], %[a]\n\t"
        "ldr %[a], [%[R], #12]\n\t"
        "vld2.8 {d4, d5, d6, d7}, [%[p1]], %[b]\n\t"
        "ldr %[b], [%[R], #16]\n\t"
        "vld1.8 {d8, d9}, [%[p0]], %[c]\n\t"
        "ldr %[c], [%[R], #20]\n\t"
        "vld1.8 {d20, d21}, [%[p0]], %[d]\n\t"
        "ldr %[d], [%[R], #24]\n\t"
        "vld1.8 {d22, d23}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #28]\n\t"
        "vst1.64 {d0, d1}, [%[B]:128]\n\t"
        "vst1.64 {d4, d5}, [%[B16]:128]\n\t"
        "vst1.64 {d8, d9}, [%[B32]:128]\n\t"
        "vld1.8 {d0, d1}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #32]\n\t"
        "vld1.64 {d2, d3}, [%[B32]:128]\n\t"
        "vabd.u8 q1, q1, q0\n\t"
        "vshr.u8 q2, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d6, {d18, d19}, d4\n\t"
        "vtbl.8 d7, {d18, d19}, d5\n\t"
        "vtbl.8 d4, {d16, d17}, d4\n\t"
        "vmull.u8 q4, d6, d2\n\t"
        "vmull.u8 q5, d7, d3\n\t"
        "vld1.64 {d2, d3}, [%[B]:128]\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vrshrn.i16 d6, q4, #8\n\t"
        "vrshrn.i16 d7, q5, #8\n\t"
        "vabd.u8 q1, q1, q10\n\t"
        "vsub.i8 q2, q2, q3\n\t"
        "vshr.u8 q3, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d2\n\t"
        "vmull.u8 q6, d9, d3\n\t"
        "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vabd.u8 q1, q1, q11\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vshr.u8 q4, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d10, {d18, d19}, d8\n\t"
        "vtbl.8 d11, {d18, d19}, d9\n\t"
        "vtbl.8 d8, {d16, d17}, d8\n\t"
        "vmull.u8 q6, d10, d2\n\t"
        "vmull.u8 q0, d11, d3\n\t"
        "vtbl.8 d9, {d16, d17}, d9\n\t"
        "vrshrn.i16 d10, q6, #8\n\t"
        "vrshrn.i16 d11, q0, #8\n\t"
        "vsub.i8 q4, q4, q5\n\t"
        "vmull.u8 q5, d8, d6\n\t"
        "vmull.u8 q6, d9, d7\n\t"
        "vshrn.i16 d2, q5, #8\n\t"
        "vshrn.i16 d3, q6, #8\n\t"
        "vmull.u8 q5, d2, d4\n\t"
        "vmull.u8 q6, d3, d5\n\t"
        "vshrn.i16 d2, q5, #8\n\t"
        "vshrn.i16 d3, q6, #8\n\t"
        "vshr.u8 q0, q1, #3\n\t"
        "vsra.u8 q0, q1, #4\n\t"
        "vld1.64 {d2, d3}, [%[B32]:128]\n\t"
        "vmull.u8 q12, d0, d20\n\t"
        "vmull.u8 q13, d1, d21\n\t"
        "vld1.8 {d20, d21}, [%[p0]], %[c]\n\t"
        "ldr %[c], [%[R], #36]\n\t"
        "vmull.u8 q14, d0, d22\n\t"
        "vmull.u8 q15, d1, d23\n\t"
        "vld1.8 {d22, d23}, [%[p0]], %[d]\n\t"
        "ldr %[d], [%[R], #40]\n\t"
        "vadd.i8 q7, q7, q0\n\t"
        "vld1.8 {d0, d1}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #44]\n\t"
        "vabd.u8 q1, q1, q0\n\t"
        "vshr.u8 q2, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d6, {d18, d19}, d4\n\t"
        "vtbl.8 d7, {d18, d19}, d5\n\t"
        "vtbl.8 d4, {d16, d17}, d4\n\t"
        "vmull.u8 q4, d6, d2\n\t"
        "vmull.u8 q5, d7, d3\n\t"
        "vld1.64 {d2, d3}, [%[B]:128]\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vrshrn.i16 d6, q4, #8\n\t"
        "vrshrn.i16 d7, q5, #8\n\t"
        "vabd.u8 q1, q1, q10\n\t"
        "vsub.i8 q2, q2, q3\n\t"
        "vshr.u8 q3, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d2\n\t"
        "vmull.u8 q6, d9, d3\n\t"
        "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vabd.u8 q1, q1, q11\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vshr.u8 q4, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d10, {d18, d19}, d8\n\t"
        "vtbl.8 d11, {d18, d19}, d9\n\t"
        "vtbl.8 d8, {d16, d17}, d8\n\t"
        "vmull.u8 q6, d10, d2\n\t"
        "vmull.u8 q0, d11, d3\n\t"
        "vtbl.8 d9, {d16, d17}, d9\n\t"
        "vrshrn.i16 d10, q6, #8\n\t"
        "vrshrn.i16 d11, q0, #8\n\t"
        "vsub.i8 q4, q4, q5\n\t"
        "vmull.u8 q5, d8, d6\n\t"
        "vmull.u8 q6, d9, d7\n\t"
        "vshrn.i16 d2, q5, #8\n\t"
        "vshrn.i16 d3, q6, #8\n\t"
        "vmull.u8 q5, d2, d4\n\t"
        "vmull.u8 q6, d3, d5\n\t"
        "vld1.8 {d4[], d5[]}, [%[R]]\n\t"
        "vshrn.i16 d2, q5, #8\n\t"
        "vshrn.i16 d3, q6, #8\n\t"
        "vshr.u8 q0, q1, #3\n\t"
        "vsra.u8 q0, q1, #4\n\t"
        "vld1.64 {d2, d3}, [%[B]:128]\n\t"
        "vmlal.u8 q12, d0, d20\n\t"
        "vmlal.u8 q13, d1, d21\n\t"
        "vld1.8 {d20, d21}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #48]\n\t"
        "vmlal.u8 q14, d0, d22\n\t"
        "vmlal.u8 q15, d1, d23\n\t"
        "vld1.8 {d22, d23}, [%[p0]], %[c]\n\t"
        "ldr %[c], [%[R], #52]\n\t"
        "vadd.i8 q7, q7, q0\n\t"
        "vabd.u8 q1, q1, q10\n\t"
        "vshr.u8 q3, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d2\n\t"
        "vmull.u8 q6, d9, d3\n\t"
        "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vabd.u8 q1, q1, q11\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vshr.u8 q4, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d10, {d18, d19}, d8\n\t"
        "vtbl.8 d11, {d18, d19}, d9\n\t"
        "vtbl.8 d8, {d16, d17}, d8\n\t"
        "vmull.u8 q6, d10, d2\n\t"
        "vmull.u8 q0, d11, d3\n\t"
        "vtbl.8 d9, {d16, d17}, d9\n\t"
        "vrshrn.i16 d10, q6, #8\n\t"
        "vrshrn.i16 d11, q0, #8\n\t"
        "vsub.i8 q4, q4, q5\n\t"
        "vmull.u8 q5, d8, d6\n\t"
        "vmull.u8 q6, d9, d7\n\t"
        "vshrn.i16 d2, q5, #8\n\t"
        "vshrn.i16 d3, q6, #8\n\t"
        "vmull.u8 q5, d2, d4\n\t"
        "vmull.u8 q6, d3, d5\n\t"
        "vshrn.i16 d2, q5, #8\n\t"
        "vshrn.i16 d3, q6, #8\n\t"
        "vshr.u8 q0, q1, #3\n\t"
        "vsra.u8 q0, q1, #4\n\t"
        "vld1.64 {d2, d3}, [%[B32]:128]\n\t"
        "vmlal.u8 q12, d0, d20\n\t"
        "vmlal.u8 q13, d1, d21\n\t"
        "vld1.8 {d20, d21}, [%[p0]], %[d]\n\t"
        "ldr %[d], [%[R], #56]\n\t"
        "vmlal.u8 q14, d0, d22\n\t"
        "vmlal.u8 q15, d1, d23\n\t"
        "vld1.8 {d22, d23}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #60]\n\t"
        "vadd.i8 q7, q7, q0\n\t"
        "vld1.8 {d0, d1}, [%[p0]], %[b]\n\t"
        "vabd.u8 q1, q1, q0\n\t"
        "vshr.u8 q2, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d6, {d18, d19}, d4\n\t"
        "vtbl.8 d7, {d18, d19}, d5\n\t"
        "vtbl.8 d4, {d16, d17}, d4\n\t"
        "vmull.u8 q4, d6, d2\n\t"
        "vmull.u8 q5, d7, d3\n\t"
        "vld1.64 {d2, d3}, [%[B]:128]\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vrshrn.i16 d6, q4, #8\n\t"
        "vrshrn.i16 d7, q5, #8\n\t"
        "vabd.u8 q1, q1, q10\n\t"
        "vsub.i8 q2, q2, q3\n\t"
        "vshr.u8 q3, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d2\n\t"
        "vmull.u8 q6, d9, d3\n\t"
        "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vabd.u8 q1, q1, q11\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vshr.u8 q4, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d10, {d18, d19}, d8\n\t"
        "vtbl.8 d11, {d18, d19}, d9\n\t"
        "vtbl.8 d8, {d16, d17}, d8\n\t"
        "vmull.u8 q6, d10, d2\n\t"
        "vmull.u8 q0, d11, d3\n\t"
        "vtbl.8 d9, {d16, d17}, d9\n\t"
        "vrshrn.i16 d10, q6, #8\n\t"
        "vrshrn.i16 d11, q0, #8\n\t"
        "vsub.i8 q4, q4, q5\n\t"
        "vmull.u8 q5, d8, d6\n\t"
        "vmull.u8 q6, d9, d7\n\t"
        "vshrn.i16 d2, q5, #8\n\t"
        "vshrn.i16 d3, q6, #8\n\t"
        "vmull.u8 q5, d2, d4\n\t"
        "vmull.u8 q6, d3, d5\n\t"
        "vshrn.i16 d2, q5, #8\n\t"
        "vshrn.i16 d3, q6, #8\n\t"
        "vshr.u8 q0, q1, #3\n\t"
        "vsra.u8 q0, q1, #4\n\t"
        "vld1.64 {d2, d3}, [%[B32]:128]\n\t"
        "vmlal.u8 q12, d0, d20\n\t"
        "vmlal.u8 q13, d1, d21\n\t"
        "vld1.8 {d20, d21}, [%[p0]], %[c]\n\t"
        "vmlal.u8 q14, d0, d22\n\t"
        "vmlal.u8 q15, d1, d23\n\t"
        "vld1.8 {d22, d23}, [%[p0]], %[d]\n\t"
        "vadd.i8 q7, q7, q0\n\t"
        "vld1.8 {d0, d1}, [%[p0]], %[a]\n\t"
        "vabd.u8 q1, q1, q0\n\t"
        "vshr.u8 q2, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d6, {d18, d19}, d4\n\t"
        "vtbl.8 d7, {d18, d19}, d5\n\t"
        "vtbl.8 d4, {d16, d17}, d4\n\t"
        "vmull.u8 q4, d6, d2\n\t"
        "vmull.u8 q5, d7, d3\n\t"
        "vld1.64 {d2, d3}, [%[B]:128]\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vrshrn.i16 d6, q4, #8\n\t"
        "vrshrn.i16 d7, q5, #8\n\t"
        "vabd.u8 q1, q1, q10\n\t"
        "vsub.i8 q2, q2, q3\n\t"
        "vshr.u8 q3, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d2\n\t"
        "vmull.u8 q6, d9, d3\n\t"
        "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vabd.u8 q1, q1, q11\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vshr.u8 q4, q1, #%c[s]\n\t"
        "vshl.i8 q1, q1, #%c[r8]\n\t"
        "vtbl.8 d10, {d18, d19}, d8\n\t"
        "vtbl.8 d11, {d18, d19}, d9\n\t"
        "vtbl.8 d8, {d16, d17}, d8\n\t"
        "vmull.u8 q6, d10, d2\n\t"
        "vmull.u8 q0, d11, d3\n\t"
        "vtbl.8 d9, {d16, d17}, d9\n\t"
        "vrshrn.i16 d10, q6, #8\n\t"
        "vrshrn.i16 d11, q0, #8\n\t"
        "vsub.i8 q4, q4, q5\n\t"
        "vmull.u8 q5, d8, d6\n\t"
        "vmull.u8 q6, d9, d7\n\t"
        "vshrn.i16 d2, q5, #8\n\t"
        "vshrn.i16 d3, q6, #8\n\t"
        "vmull.u8 q5, d2, d4\n\t"
        "vmull.u8 q6, d3, d5\n\t"
        "vshrn.i16 d2, q5, #8\n\t"
        "vshrn.i16 d3, q6, #8\n\t"
        "vshr.u8 q0, q1, #3\n\t"
        "vsra.u8 q0, q1, #4\n\t"
        "vmlal.u8 q12, d0, d20\n\t"
        "vmlal.u8 q13, d1, d21\n\t"
        "vadd.i8 q7, q7, q0\n\t"
        "vmlal.u8 q14, d0, d22\n\t"
        "vmlal.u8 q15, d1, d23\n\t"
        "vst1.64 {d14, d15}, [%[S]:128]!\n\t"
        "vst1.64 {d24, d25, d26, d27}, [%[S]:128]!\n\t"
        "vst1.64 {d28, d29, d30, d31}, [%[S]:128]!\n\t"
        "subs %[n], %[n], #1\n\t"
        "bne 1b\n\t"
        : [p0] "+r"(p0), [p1] "+r"(p1), [n] "+r"(k), [S] "+r"(sp), [a] "=&r"(sa), [b] "=&r"(sb),
          [c] "=&r"(sc), [d] "=&r"(sd)
        : [R] "r"(words), [B] "r"(b), [B16] "r"(b + 16), [B32] "r"(b + 32), [s] "i"(kShift),
          [r8] "i"(8 - kShift)
        : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12",
          "d13", "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24",
          "d25", "d26", "d27", "d28", "d29", "d30", "d31", "cc", "memory");
    pass2MeansArmv7(sums, n, &o0, &o1);
    count -= n;
  }
}

// Pass 2's sums loop with the whole weight table's look-ups: n steps from
// the walks at *p0 (taps) and *p1 (centres), the luma weights at *y, the
// sums into *S; moves the four on. b: a 32-byte aligned buffer for the
// centres.
inline void pass2SumsArmv7Lut(const uint32_t* words, uint8_t* b, const uint8_t** p0,
                              const uint8_t** p1, uint8_t** y, uint8_t** S, int32_t n) {
  const uint8_t *q0 = *p0, *q1 = *p1;
  uint8_t *yy = *y, *sp = *S;
  int32_t k = n;
  uint32_t sa, sb, sc;
  asm volatile(
      "ldr %[a], [%[R], #72]\n\t"
      "vld1.8 {d16-d19}, [%[a]]!\n\t"
      "vld1.8 {d20-d23}, [%[a]]!\n\t"
      "vld1.8 {d8-d9}, [%[a]]\n\t"
      "vmov.i8 q7, #32\n\t"
      "1:\n\t"
      "vld1.8 {d12, d13}, [%[p0]], %[h0]\n\t"
      "ldr %[a], [%[R], #44]\n\t"
      "vmov.i8 q5, #1\n\t"
      "ldr %[b], [%[R], #48]\n\t"
      "ldr %[c], [%[R], #8]\n\t"
      "vld2.8 {d0, d1, d2, d3}, [%[p1]], %[a]\n\t"
      "ldr %[a], [%[R], #16]\n\t"
      "vld2.8 {d2, d3, d4, d5}, [%[p1]], %[b]\n\t"
      "ldr %[b], [%[R], #24]\n\t"
      "vld1.8 {d6, d7}, [%[p0]], %[c]\n\t"
      "ldr %[c], [%[R], #32]\n\t"
      "vst1.64 {d0, d1, d2, d3}, [%[B]:128]\n\t"
      "vld1.64 {d2, d3}, [%[B]:128]\n\t"
      "vabd.u8 q1, q1, q6\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d8, d9}, d2\n\t"
      "vtbx.8 d5, {d8, d9}, d3\n\t"
      "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
      "vabd.u8 q1, q1, q3\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d0, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d1, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d0, {d8, d9}, d2\n\t"
      "vtbx.8 d1, {d8, d9}, d3\n\t"
      "vmull.u8 q1, d4, d0\n\t"
      "vmull.u8 q2, d5, d1\n\t"
      "vshrn.i16 d0, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[y]:128]!\n\t"
      "vshrn.i16 d1, q2, #8\n\t"
      "vmull.u8 q2, d0, d2\n\t"
      "vmull.u8 q1, d1, d3\n\t"
      "vshrn.i16 d0, q2, #8\n\t"
      "vshrn.i16 d1, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[B]:128]\n\t"
      "vshr.u8 q2, q0, #3\n\t"
      "vsra.u8 q2, q0, #4\n\t"
      "vmull.u8 q12, d4, d12\n\t"
      "vmull.u8 q13, d5, d13\n\t"
      "vld1.8 {d12, d13}, [%[p0]], %[h0]\n\t"
      "vadd.i8 q5, q5, q2\n\t"
      "vmull.u8 q14, d4, d6\n\t"
      "vmull.u8 q15, d5, d7\n\t"
      "vld1.8 {d6, d7}, [%[p0]], %[a]\n\t"
      "ldr %[a], [%[R], #40]\n\t"
      "vabd.u8 q1, q1, q6\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d8, d9}, d2\n\t"
      "vtbx.8 d5, {d8, d9}, d3\n\t"
      "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
      "vabd.u8 q1, q1, q3\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d0, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d1, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d0, {d8, d9}, d2\n\t"
      "vtbx.8 d1, {d8, d9}, d3\n\t"
      "vmull.u8 q1, d4, d0\n\t"
      "vmull.u8 q2, d5, d1\n\t"
      "vshrn.i16 d0, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[y]:128]!\n\t"
      "vshrn.i16 d1, q2, #8\n\t"
      "vmull.u8 q2, d0, d2\n\t"
      "vmull.u8 q1, d1, d3\n\t"
      "vshrn.i16 d0, q2, #8\n\t"
      "vshrn.i16 d1, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[B]:128]\n\t"
      "vshr.u8 q2, q0, #3\n\t"
      "vsra.u8 q2, q0, #4\n\t"
      "vmlal.u8 q12, d4, d12\n\t"
      "vmlal.u8 q13, d5, d13\n\t"
      "vld1.8 {d12, d13}, [%[p0]], %[h0]\n\t"
      "vadd.i8 q5, q5, q2\n\t"
      "vmlal.u8 q14, d4, d6\n\t"
      "vmlal.u8 q15, d5, d7\n\t"
      "vld1.8 {d6, d7}, [%[p0]], %[b]\n\t"
      "vabd.u8 q1, q1, q6\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d8, d9}, d2\n\t"
      "vtbx.8 d5, {d8, d9}, d3\n\t"
      "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
      "vabd.u8 q1, q1, q3\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d0, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d1, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d0, {d8, d9}, d2\n\t"
      "vtbx.8 d1, {d8, d9}, d3\n\t"
      "vmull.u8 q1, d4, d0\n\t"
      "vmull.u8 q2, d5, d1\n\t"
      "vshrn.i16 d0, q1, #8\n\t"
      "vld1.8 {d2[], d3[]}, [%[R]]\n\t"
      "vshrn.i16 d1, q2, #8\n\t"
      "vmull.u8 q2, d0, d2\n\t"
      "vmull.u8 q1, d1, d3\n\t"
      "vshrn.i16 d0, q2, #8\n\t"
      "vshrn.i16 d1, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[B]:128]\n\t"
      "vshr.u8 q2, q0, #3\n\t"
      "vsra.u8 q2, q0, #4\n\t"
      "vmlal.u8 q12, d4, d12\n\t"
      "vmlal.u8 q13, d5, d13\n\t"
      "vld1.8 {d12, d13}, [%[p0]], %[h0]\n\t"
      "vadd.i8 q5, q5, q2\n\t"
      "vmlal.u8 q14, d4, d6\n\t"
      "vmlal.u8 q15, d5, d7\n\t"
      "vld1.8 {d6, d7}, [%[p0]], %[c]\n\t"
      "vabd.u8 q1, q1, q6\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d8, d9}, d2\n\t"
      "vtbx.8 d5, {d8, d9}, d3\n\t"
      "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
      "vabd.u8 q1, q1, q3\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d0, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d1, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d0, {d8, d9}, d2\n\t"
      "vtbx.8 d1, {d8, d9}, d3\n\t"
      "vmull.u8 q1, d4, d0\n\t"
      "vmull.u8 q2, d5, d1\n\t"
      "vshrn.i16 d0, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[y]:128]!\n\t"
      "vshrn.i16 d1, q2, #8\n\t"
      "vmull.u8 q2, d0, d2\n\t"
      "vmull.u8 q1, d1, d3\n\t"
      "vshrn.i16 d0, q2, #8\n\t"
      "vshrn.i16 d1, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[B]:128]\n\t"
      "vshr.u8 q2, q0, #3\n\t"
      "vsra.u8 q2, q0, #4\n\t"
      "vmlal.u8 q12, d4, d12\n\t"
      "vmlal.u8 q13, d5, d13\n\t"
      "vld1.8 {d12, d13}, [%[p0]], %[h0]\n\t"
      "vadd.i8 q5, q5, q2\n\t"
      "vmlal.u8 q14, d4, d6\n\t"
      "vmlal.u8 q15, d5, d7\n\t"
      "vld1.8 {d6, d7}, [%[p0]], %[a]\n\t"
      "vabd.u8 q1, q1, q6\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d4, {d8, d9}, d2\n\t"
      "vtbx.8 d5, {d8, d9}, d3\n\t"
      "vld1.64 {d2, d3}, [%[B16]:128]\n\t"
      "vabd.u8 q1, q1, q3\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d0, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d1, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d0, {d8, d9}, d2\n\t"
      "vtbx.8 d1, {d8, d9}, d3\n\t"
      "vmull.u8 q1, d4, d0\n\t"
      "vmull.u8 q2, d5, d1\n\t"
      "vshrn.i16 d0, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[y]:128]!\n\t"
      "vshrn.i16 d1, q2, #8\n\t"
      "vmull.u8 q2, d0, d2\n\t"
      "vmull.u8 q1, d1, d3\n\t"
      "vshrn.i16 d0, q2, #8\n\t"
      "vshrn.i16 d1, q1, #8\n\t"
      "vshr.u8 q2, q0, #3\n\t"
      "vsra.u8 q2, q0, #4\n\t"
      "vmlal.u8 q12, d4, d12\n\t"
      "vmlal.u8 q13, d5, d13\n\t"
      "vadd.i8 q5, q5, q2\n\t"
      "vmlal.u8 q14, d4, d6\n\t"
      "vmlal.u8 q15, d5, d7\n\t"
      "vst1.64 {d10, d11}, [%[S]:128]!\n\t"
      "vst1.64 {d24, d25, d26, d27}, [%[S]:128]!\n\t"
      "vst1.64 {d28, d29, d30, d31}, [%[S]:128]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [p0] "+r"(q0), [p1] "+r"(q1), [y] "+r"(yy), [n] "+r"(k), [S] "+r"(sp), [a] "=&r"(sa),
        [b] "=&r"(sb), [c] "=&r"(sc)
      : [R] "r"(words), [B] "r"(b), [B16] "r"(b + 16), [h0] "r"(words[1])
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "d28", "d29", "d30", "d31", "cc", "memory");
  *p0 = q0;
  *p1 = q1;
  *y = yy;
  *S = sp;
}

// The same where every difference of a step is below 32, as
// pass3SumsArmv7Lut32: a step with a difference of 32 or more gets a 0 among
// the 4 bytes it writes to *F, and its sums are then to be made again by
// pass2SumsArmv7Lut.
inline void pass2SumsArmv7Lut32(const uint32_t* words, const uint8_t** p0, const uint8_t** p1,
                                uint8_t** y, uint8_t** S, uint32_t* F, int32_t n) {
  const uint8_t *q0 = *p0, *q1 = *p1;
  uint8_t *yy = *y, *sp = *S;
  int32_t k = n;
  uint32_t sa, sb, sc;
  asm volatile(
      "ldr %[a], [%[R], #72]\n\t"
      "vld1.8 {d16-d19}, [%[a]]\n\t"
      "1:\n\t"
      "vld1.8 {d12, d13}, [%[p0]], %[h0]\n\t"
      "ldr %[a], [%[R], #44]\n\t"
      "vmov.i8 q5, #1\n\t"
      "ldr %[b], [%[R], #48]\n\t"
      "ldr %[c], [%[R], #8]\n\t"
      "vld2.8 {d20, d21, d22, d23}, [%[p1]], %[a]\n\t"
      "ldr %[a], [%[R], #16]\n\t"
      "vld2.8 {d22, d23, d24, d25}, [%[p1]], %[b]\n\t"
      "ldr %[b], [%[R], #24]\n\t"
      "vld1.8 {d6, d7}, [%[p0]], %[c]\n\t"
      "ldr %[c], [%[R], #32]\n\t"
      "vld1.8 {d14, d15}, [%[p0]], %[h0]\n\t"
      "vabd.u8 q1, q10, q6\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 q1, q11, q3\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d3\n\t"
      "vmull.u8 q1, d4, d0\n\t"
      "vmull.u8 q2, d5, d1\n\t"
      "vshrn.i16 d8, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[y]:128]!\n\t"
      "vshrn.i16 d9, q2, #8\n\t"
      "vmull.u8 q2, d8, d2\n\t"
      "vmull.u8 q1, d9, d3\n\t"
      "vshrn.i16 d0, q2, #8\n\t"
      "vshrn.i16 d1, q1, #8\n\t"
      "vabd.u8 q1, q10, q7\n\t"
      "vshr.u8 q2, q0, #3\n\t"
      "vsra.u8 q2, q0, #4\n\t"
      "vmull.u8 q14, d4, d6\n\t"
      "vmull.u8 q15, d5, d7\n\t"
      "vld1.8 {d6, d7}, [%[p0]], %[a]\n\t"
      "ldr %[a], [%[R], #40]\n\t"
      "vadd.i8 q5, q5, q2\n\t"
      "vmull.u8 q12, d4, d12\n\t"
      "vmull.u8 q13, d5, d13\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 q1, q11, q3\n\t"
      "vld1.8 {d12, d13}, [%[p0]], %[h0]\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d3\n\t"
      "vmull.u8 q1, d4, d0\n\t"
      "vmull.u8 q2, d5, d1\n\t"
      "vshrn.i16 d0, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[y]:128]!\n\t"
      "vshrn.i16 d1, q2, #8\n\t"
      "vmin.u8 q4, q4, q0\n\t"
      "vmull.u8 q2, d0, d2\n\t"
      "vmull.u8 q1, d1, d3\n\t"
      "vshrn.i16 d0, q2, #8\n\t"
      "vshrn.i16 d1, q1, #8\n\t"
      "vabd.u8 q1, q10, q6\n\t"
      "vshr.u8 q2, q0, #3\n\t"
      "vsra.u8 q2, q0, #4\n\t"
      "vmlal.u8 q14, d4, d6\n\t"
      "vmlal.u8 q15, d5, d7\n\t"
      "vld1.8 {d6, d7}, [%[p0]], %[b]\n\t"
      "vadd.i8 q5, q5, q2\n\t"
      "vmlal.u8 q12, d4, d14\n\t"
      "vmlal.u8 q13, d5, d15\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 q1, q11, q3\n\t"
      "vld1.8 {d14, d15}, [%[p0]], %[h0]\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d3\n\t"
      "vmull.u8 q1, d4, d0\n\t"
      "vmull.u8 q2, d5, d1\n\t"
      "vshrn.i16 d0, q1, #8\n\t"
      "vld1.8 {d2[], d3[]}, [%[R]]\n\t"
      "vshrn.i16 d1, q2, #8\n\t"
      "vmin.u8 q4, q4, q0\n\t"
      "vmull.u8 q2, d0, d2\n\t"
      "vmull.u8 q1, d1, d3\n\t"
      "vshrn.i16 d0, q2, #8\n\t"
      "vshrn.i16 d1, q1, #8\n\t"
      "vabd.u8 q1, q10, q7\n\t"
      "vshr.u8 q2, q0, #3\n\t"
      "vsra.u8 q2, q0, #4\n\t"
      "vmlal.u8 q14, d4, d6\n\t"
      "vmlal.u8 q15, d5, d7\n\t"
      "vld1.8 {d6, d7}, [%[p0]], %[c]\n\t"
      "vadd.i8 q5, q5, q2\n\t"
      "vmlal.u8 q12, d4, d12\n\t"
      "vmlal.u8 q13, d5, d13\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 q1, q11, q3\n\t"
      "vld1.8 {d12, d13}, [%[p0]], %[h0]\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d3\n\t"
      "vmull.u8 q1, d4, d0\n\t"
      "vmull.u8 q2, d5, d1\n\t"
      "vshrn.i16 d0, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[y]:128]!\n\t"
      "vshrn.i16 d1, q2, #8\n\t"
      "vmin.u8 q4, q4, q0\n\t"
      "vmull.u8 q2, d0, d2\n\t"
      "vmull.u8 q1, d1, d3\n\t"
      "vshrn.i16 d0, q2, #8\n\t"
      "vshrn.i16 d1, q1, #8\n\t"
      "vabd.u8 q1, q10, q6\n\t"
      "vshr.u8 q2, q0, #3\n\t"
      "vsra.u8 q2, q0, #4\n\t"
      "vmlal.u8 q14, d4, d6\n\t"
      "vmlal.u8 q15, d5, d7\n\t"
      "vld1.8 {d6, d7}, [%[p0]], %[a]\n\t"
      "vadd.i8 q5, q5, q2\n\t"
      "vmlal.u8 q12, d4, d14\n\t"
      "vmlal.u8 q13, d5, d15\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d3\n\t"
      "vabd.u8 q1, q11, q3\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d3\n\t"
      "vmull.u8 q1, d4, d0\n\t"
      "vmull.u8 q2, d5, d1\n\t"
      "vshrn.i16 d0, q1, #8\n\t"
      "vld1.64 {d2, d3}, [%[y]:128]!\n\t"
      "vshrn.i16 d1, q2, #8\n\t"
      "vmin.u8 q4, q4, q0\n\t"
      "vmull.u8 q2, d0, d2\n\t"
      "vmull.u8 q1, d1, d3\n\t"
      "vshrn.i16 d0, q2, #8\n\t"
      "vshrn.i16 d1, q1, #8\n\t"
      "vshr.u8 q2, q0, #3\n\t"
      "vsra.u8 q2, q0, #4\n\t"
      "vpmin.u8 d0, d8, d9\n\t"
      "vmlal.u8 q12, d4, d12\n\t"
      "vmlal.u8 q13, d5, d13\n\t"
      "vadd.i8 q5, q5, q2\n\t"
      "vmlal.u8 q14, d4, d6\n\t"
      "vmlal.u8 q15, d5, d7\n\t"
      "vpmin.u8 d0, d0, d0\n\t"
      "vst1.64 {d10, d11}, [%[S]:128]!\n\t"
      "vst1.64 {d24, d25, d26, d27}, [%[S]:128]!\n\t"
      "vst1.32 {d0[0]}, [%[F]]!\n\t"
      "vst1.64 {d28, d29, d30, d31}, [%[S]:128]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [p0] "+r"(q0), [p1] "+r"(q1), [y] "+r"(yy), [n] "+r"(k), [S] "+r"(sp), [F] "+r"(F),
        [a] "=&r"(sa), [b] "=&r"(sb), [c] "=&r"(sc)
      : [R] "r"(words), [h0] "r"(words[1])
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "d28", "d29", "d30", "d31", "cc", "memory");
  *p0 = q0;
  *p1 = q1;
  *y = yy;
  *S = sp;
}

// Pass 2's luma weights loop (the whole table): n steps from the walk at
// *p into the buffer at *y; moves both on.
inline void pass2LumaArmv7(const uint32_t* words, const uint8_t** p, uint8_t** y, int32_t n) {
  const uint8_t* q = *p;
  uint8_t* yy = *y;
  int32_t k = n;
  uint32_t sa;
  asm volatile(
      "ldr %[a], [%[R], #72]\n\t"
      "vld1.8 {d16-d19}, [%[a]]!\n\t"
      "vld1.8 {d20-d23}, [%[a]]!\n\t"
      "vld1.8 {d8-d9}, [%[a]]\n\t"
      "vmov.i8 q7, #32\n\t"
      "1:\n\t"
      "vld1.8 {d0, d1}, [%[p2]], %[h0]\n\t"
      "vld1.8 {d2, d3}, [%[p2]], %[h1]\n\t"
      "vld1.8 {d4, d5}, [%[p2]], %[h2]\n\t"
      "vld1.8 {d6, d7}, [%[p2]], %[h3]\n\t"
      "vabd.u8 q1, q1, q0\n\t"
      "vabd.u8 q2, q2, q0\n\t"
      "vabd.u8 q3, q3, q0\n\t"
      "vtbl.8 d24, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d25, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbl.8 d26, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d27, {d16, d17, d18, d19}, d5\n\t"
      "vtbl.8 d28, {d16, d17, d18, d19}, d6\n\t"
      "vtbx.8 d24, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d25, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbl.8 d29, {d16, d17, d18, d19}, d7\n\t"
      "vsub.i8 q2, q2, q7\n\t"
      "vsub.i8 q3, q3, q7\n\t"
      "vtbx.8 d24, {d8, d9}, d2\n\t"
      "vtbx.8 d25, {d8, d9}, d3\n\t"
      "vld1.8 {d2, d3}, [%[p2]], %[h4]\n\t"
      "vtbx.8 d26, {d20, d21, d22, d23}, d4\n\t"
      "vst1.64 {d24, d25}, [%[y]:128]!\n\t"
      "vtbx.8 d27, {d20, d21, d22, d23}, d5\n\t"
      "vtbx.8 d28, {d20, d21, d22, d23}, d6\n\t"
      "vabd.u8 q1, q1, q0\n\t"
      "vtbx.8 d29, {d20, d21, d22, d23}, d7\n\t"
      "vsub.i8 q2, q2, q7\n\t"
      "vtbl.8 d24, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d25, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vsub.i8 q3, q3, q7\n\t"
      "vtbx.8 d26, {d8, d9}, d4\n\t"
      "vtbx.8 d27, {d8, d9}, d5\n\t"
      "vtbx.8 d24, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d25, {d20, d21, d22, d23}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbx.8 d28, {d8, d9}, d6\n\t"
      "vtbx.8 d29, {d8, d9}, d7\n\t"
      "vst1.64 {d26, d27}, [%[y]:128]!\n\t"
      "vtbx.8 d24, {d8, d9}, d2\n\t"
      "vtbx.8 d25, {d8, d9}, d3\n\t"
      "vst1.64 {d28, d29}, [%[y]:128]!\n\t"
      "vst1.64 {d24, d25}, [%[y]:128]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [p2] "+r"(q), [y] "+r"(yy), [n] "+r"(k), [a] "=&r"(sa)
      : [R] "r"(words), [h0] "r"(words[13]), [h1] "r"(words[14]), [h2] "r"(words[15]),
        [h3] "r"(words[16]), [h4] "r"(words[17])
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d14", "d15", "d16", "d17",
        "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26", "d27", "d28", "d29",
        "cc", "memory");
  *p = q;
  *y = yy;
}

// The same where every luma difference is below 64 (the table's first 64
// entries: a look-up and a step fewer per 8 or 16 weights), for tables whose
// entry 63 is not 0: returns 4 bytes of the least weight it made, which has
// a 0 where a difference of 64 or more looked up 0, and the steps are then
// to be made again by pass2LumaArmv7.
inline uint32_t pass2LumaArmv7Fast(const uint32_t* words, const uint8_t** p, uint8_t** y,
                                   int32_t n) {
  const uint8_t* q = *p;
  uint8_t* yy = *y;
  int32_t k = n;
  uint32_t sa, least;
  asm volatile(
      "ldr %[a], [%[R], #72]\n\t"
      "vld1.8 {d16-d19}, [%[a]]!\n\t"
      "vld1.8 {d20-d23}, [%[a]]\n\t"
      "vmov.i8 q7, #32\n\t"
      "vmov.i8 q15, #255\n\t"
      "1:\n\t"
      "vld1.8 {d0, d1}, [%[p2]], %[h0]\n\t"
      "vld1.8 {d2, d3}, [%[p2]], %[h1]\n\t"
      "vld1.8 {d4, d5}, [%[p2]], %[h2]\n\t"
      "vld1.8 {d6, d7}, [%[p2]], %[h3]\n\t"
      "vabd.u8 q1, q1, q0\n\t"
      "vabd.u8 q2, q2, q0\n\t"
      "vabd.u8 q3, q3, q0\n\t"
      "vtbl.8 d24, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d25, {d16, d17, d18, d19}, d3\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vtbl.8 d26, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d27, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q7\n\t"
      "vtbx.8 d24, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d25, {d20, d21, d22, d23}, d3\n\t"
      "vld1.8 {d2, d3}, [%[p2]], %[h4]\n\t"
      "vtbl.8 d28, {d16, d17, d18, d19}, d6\n\t"
      "vtbl.8 d29, {d16, d17, d18, d19}, d7\n\t"
      "vtbx.8 d26, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d27, {d20, d21, d22, d23}, d5\n\t"
      "vabd.u8 q1, q1, q0\n\t"
      "vmin.u8 q15, q15, q12\n\t"
      "vst1.64 {d24, d25}, [%[y]:128]!\n\t"
      "vsub.i8 q3, q3, q7\n\t"
      "vtbl.8 d24, {d16, d17, d18, d19}, d2\n\t"
      "vtbl.8 d25, {d16, d17, d18, d19}, d3\n\t"
      "vtbx.8 d28, {d20, d21, d22, d23}, d6\n\t"
      "vtbx.8 d29, {d20, d21, d22, d23}, d7\n\t"
      "vsub.i8 q1, q1, q7\n\t"
      "vmin.u8 q15, q15, q13\n\t"
      "vst1.64 {d26, d27}, [%[y]:128]!\n\t"
      "vtbx.8 d24, {d20, d21, d22, d23}, d2\n\t"
      "vtbx.8 d25, {d20, d21, d22, d23}, d3\n\t"
      "vmin.u8 q15, q15, q14\n\t"
      "vst1.64 {d28, d29}, [%[y]:128]!\n\t"
      "vmin.u8 q15, q15, q12\n\t"
      "vst1.64 {d24, d25}, [%[y]:128]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      "vpmin.u8 d30, d30, d31\n\t"
      "vpmin.u8 d30, d30, d30\n\t"
      "vmov.32 %[m], d30[0]\n\t"
      : [p2] "+r"(q), [y] "+r"(yy), [n] "+r"(k), [a] "=&r"(sa), [m] "=&r"(least)
      : [R] "r"(words), [h0] "r"(words[13]), [h1] "r"(words[14]), [h2] "r"(words[15]),
        [h3] "r"(words[16]), [h4] "r"(words[17])
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d14", "d15", "d16", "d17",
        "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26", "d27", "d28", "d29",
        "d30", "d31", "cc", "memory");
  *p = q;
  *y = yy;
  return least;
}

// pass2InnerArmv7 where every difference from 80 on weighs as 0 (reach <=
// 80, the default strength), by look-ups of the whole weight table, as pass
// 3's look-up form does: a first loop makes each step's luma weights of the
// four outer taps (16 bytes each) into a stack buffer; the sums loop looks
// up the U and V weights and loads those, first as if every difference were
// below 32 and then, for the steps that it flags, again with the whole table
// (about 6 in 100 on a camera frame); the means loop is pass2InnerArmv7's.
void pass2InnerArmv7Lut(const Pass2Armv7Rows* rows, const Tables& t, int32_t x0,
                        int32_t count) {
  constexpr int32_t kChunk = kLutChunk;
  alignas(16) uint8_t centres[32];
  alignas(16) uint8_t lumaW[kChunk * 64];
  alignas(16) uint8_t sums[kChunk * 80];
  uint32_t flags[kChunk];
  std::memset(flags, 0xff, sizeof flags);
  uint8_t* const b = centres;
  const bool fast = t.lut[31] >= 16;  // else most steps would be made twice
  // The loops' record: the weight of a difference 0 (word 0's low byte), the
  // walks of the taps' U and V (words 1-10), the centres (11, 12) and the
  // luma (13-17), in the generator's chains, then the table (18). The luma
  // weights loop holds its walk's steps in registers, the sums loop the step
  // from each tap's U to its V (word 1), the same for every tap: the taps'
  // U and V rows lie at the same offsets from their planes.
  const Pass2Armv7Rows& r = *rows;
  uint32_t words[19];
  words[0] = t.w[0];
  uint32_t* w = walkWords(words + 1, {r.u[0], r.v[0], r.u[1], r.v[1], r.u[2], r.v[2], r.u[3],
                                      r.v[3], r.u[4], r.v[4]}, 16);
  w = walkWords(w, {r.src[0], r.src[1]}, 32);
  w = walkWords(w, {r.luma[2], r.luma[0], r.luma[1], r.luma[3], r.luma[4]}, 16);
  w[0] = uint32_t(uintptr_t(t.lut));
  const uint8_t *p0 = r.u[0] + x0, *p1 = r.src[0] + 2 * x0, *p2 = r.luma[2] + x0;
  uint8_t *o0 = r.out[0] + x0, *o1 = r.out[1] + x0;
  const bool fastLuma = t.lut[63] >= 16;  // every weight below 64 is then above 0
  while (count > 0) {
    const int32_t n = count < kChunk ? count : kChunk;
    uint8_t* y = lumaW;
    if (fastLuma) {
      const uint8_t* from = p2;
      if (anyZeroByte(pass2LumaArmv7Fast(words, &p2, &y, n))) {
        p2 = from;
        y = lumaW;
        pass2LumaArmv7(words, &p2, &y, n);
      }
    } else {
      pass2LumaArmv7(words, &p2, &y, n);
    }
    y = lumaW;
    uint8_t* sp = sums;
    if (fast) {
      const uint8_t *f0 = p0, *f1 = p1;
      sumsFirstThenWhole(
          0, n, 0, flags,
          [&](int32_t j, int32_t m, uint32_t* f) {
            const uint8_t *r0 = f0 + 16 * j, *r1 = f1 + 32 * j;
            uint8_t *ry = lumaW + 64 * j, *rs = sums + 80 * j;
            pass2SumsArmv7Lut32(words, &r0, &r1, &ry, &rs, f, m);
          },
          [&](int32_t j, int32_t m) {
            const uint8_t *r0 = f0 + 16 * j, *r1 = f1 + 32 * j;
            uint8_t *ry = lumaW + 64 * j, *rs = sums + 80 * j;
            pass2SumsArmv7Lut(words, b, &r0, &r1, &ry, &rs, m);
          });
      p0 = f0 + 16 * n;
      p1 = f1 + 32 * n;
    } else {
      pass2SumsArmv7Lut(words, b, &p0, &p1, &y, &sp, n);
    }
    pass2MeansArmv7(sums, n, &o0, &o1);
    count -= n;
  }
}
#endif

#if !defined(__aarch64__)
// Pass 1's inner steps on armv7 in assembly, where the pass reads the source
// planes (the block's first tap is the centre), 8 outputs a step: U and V
// in the halves of one q register, as the compiled steps weigh them, but
// without their register moves and spills (about 100 of 394 instructions).
// Registers: d16-d19 the weight and slope tables, d20 and d21 the block's
// and far taps' weights, q11 and q12 the block's U and V sums, q13 and q14
// the far taps', q15 the centres' U and V, d15 their luma, q0-q6 and d14 a
// tap's bytes and steps; two pointers walk the rows a step loads from
// (walkWords). Two loops per chunk of 16 steps, sums then means
// (scripts/asmgen/chroma_pass1_armv7.py); where every difference from 80 on
// weighs as 0, the look-up form (pass1InnerArmv7Lut) instead, with a luma
// weights loop first.
struct Pass1Armv7Rows {
  const uint8_t* block[6];  // U, V rows Y and Y + 1 (+ 2 x), luma rows 2Y, 2Y + 2 (+ 4 x)
  const uint8_t* far[12];   // up, left, right, down: U, V (+ 2 x) and luma (+ 4 x) each
  uint8_t* out[2];          // U, V outputs: half-size row y (+ x)
};

// The means loop of pass 1's steps on armv7 (after either sums loop): n
// steps' sums and weights from `sums`, 8 outputs each into *o0 (U) and *o1
// (V), which it moves on.
inline void pass1MeansArmv7(const uint8_t* sums, int32_t n, uint8_t** o0, uint8_t** o1) {
  uint8_t *u = *o0, *v = *o1;
  const uint8_t* sp = sums;
  int32_t k = n;
  asm volatile(
      "vdup.32 q15, %[scale]\n\t"
      "1:\n\t"
      "vld1.64 {d20, d21}, [%[S]:128]!\n\t"
      "vaddl.u8 q0, d20, d21\n\t"
      "vld1.64 {d22, d23, d24, d25}, [%[S]:128]!\n\t"
      "vmovl.u16 q1, d0\n\t"
      "vmovl.u16 q2, d1\n\t"
      "vcvt.f32.u32 q1, q1\n\t"
      "vcvt.f32.u32 q2, q2\n\t"
      "vld1.64 {d26, d27, d28, d29}, [%[S]:128]!\n\t"
      "vrecpe.f32 q3, q1\n\t"
      "vrecpe.f32 q5, q2\n\t"
      "vrecps.f32 q4, q1, q3\n\t"
      "vrecps.f32 q6, q2, q5\n\t"
      "vmul.f32 q3, q3, q4\n\t"
      "vmul.f32 q5, q5, q6\n\t"
      "vrecps.f32 q4, q1, q3\n\t"
      "vmul.f32 q3, q3, q15\n\t"
      "vrecps.f32 q6, q2, q5\n\t"
      "vmul.f32 q5, q5, q15\n\t"
      "vmul.f32 q1, q3, q4\n\t"
      "vaddl.u16 q3, d22, d26\n\t"
      "vmul.f32 q2, q5, q6\n\t"
      "vaddl.u16 q4, d23, d27\n\t"
      "vaddl.u16 q5, d24, d28\n\t"
      "vcvt.s32.f32 q1, q1, #31\n\t"
      "vaddl.u16 q6, d25, d29\n\t"
      "vcvt.s32.f32 q2, q2, #31\n\t"
      "vqrdmulh.s32 q3, q3, q1\n\t"
      "vqrdmulh.s32 q5, q5, q1\n\t"
      "vqrdmulh.s32 q4, q4, q2\n\t"
      "vqrdmulh.s32 q6, q6, q2\n\t"
      "vuzp.16 q3, q4\n\t"
      "vuzp.16 q5, q6\n\t"
      "vuzp.8 q3, q5\n\t"
      "vst1.8 {d6}, [%[o0]]!\n\t"
      "vst1.8 {d7}, [%[o1]]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [o0] "+r"(u), [o1] "+r"(v), [n] "+r"(k), [S] "+r"(sp)
      : [scale] "r"(kKqChromaMeanScale2Bits)
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26", "d27", "d28",
        "d29", "d30", "d31", "cc", "memory");
  *o0 = u;
  *o1 = v;
}

template <int kShift>
void pass1InnerArmv7(const Pass1Armv7Rows* rows, const Tables& t, int32_t x0, int32_t count) {
  constexpr int32_t kChunk = 16;
  alignas(16) uint8_t sums[kChunk * 80];
  const uint32_t cw = t.centreWeight, cw1 = 1u + t.centreWeight;
  // The sums loop's record: the walks of the U and V rows and of the luma
  // rows (the generator's chains).
  const Pass1Armv7Rows& r = *rows;
  const uint8_t* const* f = r.far;
  uint32_t words[18];
  walkWords(walkWords(words, {r.block[0], r.block[1], r.block[2], r.block[3], f[0], f[1], f[3],
                              f[4], f[6], f[7], f[9], f[10]}, 16),
            {r.block[4], r.block[5], f[2], f[5], f[8], f[11]}, 32);
  const uint8_t *p0 = r.block[0] + 2 * x0, *p1 = r.block[4] + 4 * x0;
  uint8_t *o0 = r.out[0] + x0, *o1 = r.out[1] + x0;
  while (count > 0) {
    const int32_t n = count < kChunk ? count : kChunk;
    int32_t k = n;
    uint8_t* sp = sums;
    uint32_t sa, sb, sc;
    asm volatile(
        "vld1.8 {d16-d19}, [%[t]]\n\t"
        "1:\n\t"
        "vdup.8 d12, %[cw]\n\t"
        "ldr %[a], [%[R], #0]\n\t"
        "vdup.8 d20, %[cw1]\n\t"
        "ldr %[b], [%[R], #4]\n\t"
        "vmov.i8 d21, #0\n\t"
        "ldr %[c], [%[R], #48]\n\t"
        "vld2.8 {d0, d2}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #8]\n\t"
        "vld2.8 {d1, d3}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #12]\n\t"
        "vld4.8 {d8, d9, d10, d11}, [%[p1]], %[c]\n\t"
        "ldr %[c], [%[R], #52]\n\t"
        "vorr q15, q0, q0\n\t"
        "vabd.u8 q2, q15, q1\n\t"
        "vmull.u8 q11, d30, d12\n\t"
        "vorr d15, d8, d8\n\t"
        "vshr.u8 q3, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vorr d14, d10, d10\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vmull.u8 q12, d31, d12\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vmull.u8 q6, d9, d5\n\t"
        "vabd.u8 d4, d15, d14\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vshr.u8 d5, d4, #%c[s]\n\t"
        "vshl.i8 d4, d4, #%c[r8]\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vtbl.8 d8, {d18, d19}, d5\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vmull.u8 q6, d7, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vshrn.i16 d4, q6, #8\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vsub.i8 d5, d5, d8\n\t"
        "vmull.u8 q5, d4, d5\n\t"
        "vshrn.i16 d8, q5, #8\n\t"
        "vshr.u8 d4, d8, #3\n\t"
        "vsra.u8 d4, d8, #4\n\t"
        "vld4.8 {d8, d9, d10, d11}, [%[p1]], %[c]\n\t"
        "ldr %[c], [%[R], #56]\n\t"
        "vmlal.u8 q11, d4, d2\n\t"
        "vld2.8 {d0, d2}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #16]\n\t"
        "vmlal.u8 q12, d4, d3\n\t"
        "vld2.8 {d1, d3}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #20]\n\t"
        "vadd.i8 d20, d20, d4\n\t"
        "vorr d13, d8, d8\n\t"
        "vorr d14, d10, d10\n\t"
        "vabd.u8 q2, q15, q0\n\t"
        "vshr.u8 q3, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vabd.u8 d4, d15, d13\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vmull.u8 q5, d9, d5\n\t"
        "vshr.u8 d5, d4, #%c[s]\n\t"
        "vshl.i8 d4, d4, #%c[r8]\n\t"
        "vrshrn.i16 d9, q5, #8\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vtbl.8 d8, {d18, d19}, d5\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vmull.u8 q5, d7, d6\n\t"
        "vsub.i8 d5, d5, d8\n\t"
        "vshrn.i16 d4, q5, #8\n\t"
        "vmull.u8 q5, d4, d5\n\t"
        "vshrn.i16 d8, q5, #8\n\t"
        "vshr.u8 d4, d8, #3\n\t"
        "vsra.u8 d4, d8, #4\n\t"
        "vadd.i8 d20, d20, d4\n\t"
        "vmlal.u8 q11, d4, d0\n\t"
        "vmlal.u8 q12, d4, d1\n\t"
        "vabd.u8 q2, q15, q1\n\t"
        "vshr.u8 q3, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vmull.u8 q6, d9, d5\n\t"
        "vabd.u8 d4, d15, d14\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vshr.u8 d5, d4, #%c[s]\n\t"
        "vshl.i8 d4, d4, #%c[r8]\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vtbl.8 d8, {d18, d19}, d5\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vmull.u8 q6, d7, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vshrn.i16 d4, q6, #8\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vsub.i8 d5, d5, d8\n\t"
        "vmull.u8 q5, d4, d5\n\t"
        "vshrn.i16 d8, q5, #8\n\t"
        "vshr.u8 d4, d8, #3\n\t"
        "vsra.u8 d4, d8, #4\n\t"
        "vld4.8 {d8, d9, d10, d11}, [%[p1]], %[c]\n\t"
        "ldr %[c], [%[R], #60]\n\t"
        "vmlal.u8 q11, d4, d2\n\t"
        "vld2.8 {d0, d2}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #24]\n\t"
        "vmlal.u8 q12, d4, d3\n\t"
        "vld2.8 {d1, d3}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #28]\n\t"
        "vadd.i8 d20, d20, d4\n\t"
        "vorr d14, d8, d8\n\t"
        "vabd.u8 q2, q15, q0\n\t"
        "vshr.u8 q3, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vmull.u8 q6, d9, d5\n\t"
        "vabd.u8 d4, d15, d14\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vshr.u8 d5, d4, #%c[s]\n\t"
        "vshl.i8 d4, d4, #%c[r8]\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vtbl.8 d8, {d18, d19}, d5\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vmull.u8 q6, d7, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vshrn.i16 d4, q6, #8\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vsub.i8 d5, d5, d8\n\t"
        "vmull.u8 q5, d4, d5\n\t"
        "vshrn.i16 d8, q5, #8\n\t"
        "vshr.u8 d4, d8, #3\n\t"
        "vsra.u8 d4, d8, #4\n\t"
        "vld4.8 {d8, d9, d10, d11}, [%[p1]], %[c]\n\t"
        "ldr %[c], [%[R], #64]\n\t"
        "vmull.u8 q13, d4, d0\n\t"
        "vld2.8 {d0, d2}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #32]\n\t"
        "vmull.u8 q14, d4, d1\n\t"
        "vld2.8 {d1, d3}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #36]\n\t"
        "vadd.i8 d21, d21, d4\n\t"
        "vorr d14, d8, d8\n\t"
        "vabd.u8 q2, q15, q0\n\t"
        "vshr.u8 q3, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vmull.u8 q6, d9, d5\n\t"
        "vabd.u8 d4, d15, d14\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vshr.u8 d5, d4, #%c[s]\n\t"
        "vshl.i8 d4, d4, #%c[r8]\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vtbl.8 d8, {d18, d19}, d5\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vmull.u8 q6, d7, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vshrn.i16 d4, q6, #8\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vsub.i8 d5, d5, d8\n\t"
        "vmull.u8 q5, d4, d5\n\t"
        "vshrn.i16 d8, q5, #8\n\t"
        "vshr.u8 d4, d8, #3\n\t"
        "vsra.u8 d4, d8, #4\n\t"
        "vld4.8 {d8, d9, d10, d11}, [%[p1]], %[c]\n\t"
        "ldr %[c], [%[R], #68]\n\t"
        "vmlal.u8 q13, d4, d0\n\t"
        "vld2.8 {d0, d2}, [%[p0]], %[a]\n\t"
        "ldr %[a], [%[R], #40]\n\t"
        "vmlal.u8 q14, d4, d1\n\t"
        "vld2.8 {d1, d3}, [%[p0]], %[b]\n\t"
        "ldr %[b], [%[R], #44]\n\t"
        "vadd.i8 d21, d21, d4\n\t"
        "vorr d14, d8, d8\n\t"
        "vabd.u8 q2, q15, q0\n\t"
        "vshr.u8 q3, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vmull.u8 q6, d9, d5\n\t"
        "vabd.u8 d4, d15, d14\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vshr.u8 d5, d4, #%c[s]\n\t"
        "vshl.i8 d4, d4, #%c[r8]\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vtbl.8 d8, {d18, d19}, d5\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vmull.u8 q6, d7, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vshrn.i16 d4, q6, #8\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vsub.i8 d5, d5, d8\n\t"
        "vmull.u8 q5, d4, d5\n\t"
        "vshrn.i16 d8, q5, #8\n\t"
        "vshr.u8 d4, d8, #3\n\t"
        "vsra.u8 d4, d8, #4\n\t"
        "vld4.8 {d8, d9, d10, d11}, [%[p1]], %[c]\n\t"
        "vmlal.u8 q13, d4, d0\n\t"
        "vld2.8 {d0, d2}, [%[p0]], %[a]\n\t"
        "vmlal.u8 q14, d4, d1\n\t"
        "vld2.8 {d1, d3}, [%[p0]], %[b]\n\t"
        "vadd.i8 d21, d21, d4\n\t"
        "vorr d14, d8, d8\n\t"
        "vabd.u8 q2, q15, q0\n\t"
        "vshr.u8 q3, q2, #%c[s]\n\t"
        "vshl.i8 q2, q2, #%c[r8]\n\t"
        "vtbl.8 d8, {d18, d19}, d6\n\t"
        "vtbl.8 d9, {d18, d19}, d7\n\t"
        "vtbl.8 d6, {d16, d17}, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vmull.u8 q6, d9, d5\n\t"
        "vabd.u8 d4, d15, d14\n\t"
        "vtbl.8 d7, {d16, d17}, d7\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vrshrn.i16 d9, q6, #8\n\t"
        "vshr.u8 d5, d4, #%c[s]\n\t"
        "vshl.i8 d4, d4, #%c[r8]\n\t"
        "vsub.i8 q3, q3, q4\n\t"
        "vtbl.8 d8, {d18, d19}, d5\n\t"
        "vtbl.8 d5, {d16, d17}, d5\n\t"
        "vmull.u8 q6, d7, d6\n\t"
        "vmull.u8 q5, d8, d4\n\t"
        "vshrn.i16 d4, q6, #8\n\t"
        "vrshrn.i16 d8, q5, #8\n\t"
        "vsub.i8 d5, d5, d8\n\t"
        "vmull.u8 q5, d4, d5\n\t"
        "vshrn.i16 d8, q5, #8\n\t"
        "vshr.u8 d4, d8, #3\n\t"
        "vsra.u8 d4, d8, #4\n\t"
        "vadd.i8 d21, d21, d4\n\t"
        "vmlal.u8 q13, d4, d0\n\t"
        "vmlal.u8 q14, d4, d1\n\t"
        "vst1.64 {d20, d21}, [%[S]:128]!\n\t"
        "vst1.64 {d22, d23, d24, d25}, [%[S]:128]!\n\t"
        "vst1.64 {d26, d27, d28, d29}, [%[S]:128]!\n\t"
        "subs %[n], %[n], #1\n\t"
        "bne 1b\n\t"
        : [p0] "+r"(p0), [p1] "+r"(p1), [n] "+r"(k), [S] "+r"(sp), [a] "=&r"(sa), [b] "=&r"(sb),
          [c] "=&r"(sc)
        : [R] "r"(words), [t] "r"(t.w), [cw] "r"(cw), [cw1] "r"(cw1), [s] "i"(kShift),
          [r8] "i"(8 - kShift)
        : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12",
          "d13", "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24",
          "d25", "d26", "d27", "d28", "d29", "d30", "d31", "cc", "memory");
    pass1MeansArmv7(sums, n, &o0, &o1);
    count -= n;
  }
}

// Pass 1's sums loop with the whole weight table's look-ups: n steps from
// the walk at *p0 (the U and V rows), the luma weights at *y, the sums into
// *S, each step's far right taps' weights (8 bytes) into *wr; moves the four
// on. cw, cw1: the centre's weight and 1 more.
inline void pass1SumsArmv7Lut(const uint32_t* words, uint32_t cw, uint32_t cw1, const uint8_t** p0,
                              uint8_t** y, uint8_t** S, uint8_t** wr, int32_t n) {
  const uint8_t* q0 = *p0;
  uint8_t *yy = *y, *sp = *S, *w = *wr;
  int32_t k = n;
  uint32_t sa, sb, sc;
  asm volatile(
      "ldr %[a], [%[R], #72]\n\t"
      "vld1.8 {d16-d19}, [%[a]]!\n\t"
      "vld1.8 {d20-d23}, [%[a]]!\n\t"
      "vld1.8 {d24-d25}, [%[a]]\n\t"
      "vmov.i8 q13, #32\n\t"
      "1:\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "ldr %[a], [%[R], #4]\n\t"
      "vdup.8 d4, %[cw]\n\t"
      "ldr %[b], [%[R], #12]\n\t"
      "vdup.8 d28, %[cw1]\n\t"
      "ldr %[c], [%[R], #20]\n\t"
      "vmov.i8 d29, #0\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[a]\n\t"
      "ldr %[a], [%[R], #28]\n\t"
      "vorr q15, q0, q0\n\t"
      "vmull.u8 q4, d30, d4\n\t"
      "vmull.u8 q5, d31, d4\n\t"
      "vabd.u8 q2, q15, q1\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d24, d25}, d4\n\t"
      "vtbx.8 d7, {d24, d25}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vmlal.u8 q4, d7, d2\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q5, d7, d3\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[b]\n\t"
      "ldr %[b], [%[R], #36]\n\t"
      "vadd.i8 d28, d28, d7\n\t"
      "vabd.u8 q2, q15, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d24, d25}, d4\n\t"
      "vtbx.8 d7, {d24, d25}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vabd.u8 q2, q15, q1\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vadd.i8 d28, d28, d7\n\t"
      "vmlal.u8 q4, d7, d0\n\t"
      "vmlal.u8 q5, d7, d1\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d24, d25}, d4\n\t"
      "vtbx.8 d7, {d24, d25}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vmlal.u8 q4, d7, d2\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q5, d7, d3\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[c]\n\t"
      "ldr %[c], [%[R], #44]\n\t"
      "vadd.i8 d28, d28, d7\n\t"
      "vabd.u8 q2, q15, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d24, d25}, d4\n\t"
      "vtbx.8 d7, {d24, d25}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vmull.u8 q6, d7, d0\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "vmull.u8 q7, d7, d1\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[a]\n\t"
      "vadd.i8 d29, d29, d7\n\t"
      "vabd.u8 q2, q15, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d24, d25}, d4\n\t"
      "vtbx.8 d7, {d24, d25}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vmlal.u8 q6, d7, d0\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q7, d7, d1\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[b]\n\t"
      "vadd.i8 d29, d29, d7\n\t"
      "vabd.u8 q2, q15, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d24, d25}, d4\n\t"
      "vtbx.8 d7, {d24, d25}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vmlal.u8 q6, d7, d0\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q7, d7, d1\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[c]\n\t"
      "vadd.i8 d29, d29, d7\n\t"
      "vst1.8 {d7}, [%[wr]]!\n\t"
      "vabd.u8 q2, q15, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d24, d25}, d4\n\t"
      "vtbx.8 d7, {d24, d25}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vadd.i8 d29, d29, d7\n\t"
      "vmlal.u8 q6, d7, d0\n\t"
      "vmlal.u8 q7, d7, d1\n\t"
      "vst1.64 {d28, d29}, [%[S]:128]!\n\t"
      "vst1.64 {d8, d9, d10, d11}, [%[S]:128]!\n\t"
      "vst1.64 {d12, d13, d14, d15}, [%[S]:128]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [p0] "+r"(q0), [y] "+r"(yy), [n] "+r"(k), [S] "+r"(sp), [wr] "+r"(w), [a] "=&r"(sa),
        [b] "=&r"(sb), [c] "=&r"(sc)
      : [R] "r"(words), [h0] "r"(words[0]), [cw] "r"(cw), [cw1] "r"(cw1)
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "d28", "d29", "d30", "d31", "cc", "memory");
  *p0 = q0;
  *y = yy;
  *S = sp;
  *wr = w;
}

// The same where every difference of a step is below 64 (the table's first
// 64 entries, two look-ups per 16 differences instead of three), for tables
// whose entry 63 is at least 16, and with each step's far left taps weighed
// as the far right taps 13 outputs to their left were: their weights come
// from *wl, 13 bytes behind *wr. A step with a difference of 64 or more gets
// a 0 among the 4 bytes it writes to *F; its sums, and those of the two
// steps after it (whose left taps took its right taps' weights), are then to
// be made again by pass1SumsArmv7Lut. The record's word 19 holds cw1.
inline void pass1SumsArmv7Shared(const uint32_t* words, const uint8_t** p0, uint8_t** y,
                                 uint8_t** S, uint32_t* F, const uint8_t** wl, uint8_t** wr,
                                 int32_t n) {
  const uint8_t* q0 = *p0;
  const uint8_t* l = *wl;
  uint8_t *yy = *y, *sp = *S, *w = *wr;
  int32_t k = n;
  uint32_t sa, sb, sc;
  asm volatile(
      "ldr %[a], [%[R], #76]\n\t"
      "vdup.8 d25, %[a]\n\t"
      "ldr %[a], [%[R], #72]\n\t"
      "vld1.8 {d16-d19}, [%[a]]!\n\t"
      "vld1.8 {d20-d23}, [%[a]]\n\t"
      "vmov.i8 q13, #32\n\t"
      "1:\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "ldr %[a], [%[R], #4]\n\t"
      "ldr %[b], [%[R], #12]\n\t"
      "ldr %[c], [%[R], #20]\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[a]\n\t"
      "ldr %[a], [%[R], #28]\n\t"
      "vorr q15, q0, q0\n\t"
      "vabd.u8 q2, q15, q1\n\t"
      "vmull.u8 q4, d30, d25\n\t"
      "vmull.u8 q5, d31, d25\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vsubw.u8 q4, q4, d30\n\t"
      "vsubw.u8 q5, q5, d31\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d24, q2, #8\n\t"
      "vmull.u8 q2, d24, d7\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vmlal.u8 q4, d7, d2\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q5, d7, d3\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[b]\n\t"
      "ldr %[b], [%[R], #36]\n\t"
      "vadd.i8 d28, d25, d7\n\t"
      "vabd.u8 q2, q15, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vmin.u8 d24, d24, d6\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vabd.u8 q2, q15, q1\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vadd.i8 d28, d28, d7\n\t"
      "vmlal.u8 q4, d7, d0\n\t"
      "vmlal.u8 q5, d7, d1\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vmin.u8 d24, d24, d6\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vmlal.u8 q4, d7, d2\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q5, d7, d3\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[c]\n\t"
      "ldr %[c], [%[R], #44]\n\t"
      "vadd.i8 d28, d28, d7\n\t"
      "vabd.u8 q2, q15, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "add %[y], %[y], #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vmin.u8 d24, d24, d6\n\t"
      "vld1.8 {d7}, [%[wl]]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d29, d6, #3\n\t"
      "vsra.u8 d29, d6, #4\n\t"
      "vmull.u8 q6, d29, d0\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "vmull.u8 q7, d29, d1\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[a]\n\t"
      "vadd.i8 d29, d29, d7\n\t"
      "vmlal.u8 q6, d7, d0\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q7, d7, d1\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[b]\n\t"
      "vabd.u8 q2, q15, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vmin.u8 d24, d24, d6\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vmlal.u8 q6, d7, d0\n\t"
      "vld2.8 {d0, d2}, [%[p0]], %[h0]\n\t"
      "vmlal.u8 q7, d7, d1\n\t"
      "vld2.8 {d1, d3}, [%[p0]], %[c]\n\t"
      "vadd.i8 d29, d29, d7\n\t"
      "vst1.8 {d7}, [%[wr]]!\n\t"
      "vabd.u8 q2, q15, q0\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d4\n\t"
      "vtbl.8 d7, {d16, d17, d18, d19}, d5\n\t"
      "vsub.i8 q2, q2, q13\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d4\n\t"
      "vtbx.8 d7, {d20, d21, d22, d23}, d5\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vld1.64 {d7}, [%[y]:64]!\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vmull.u8 q2, d6, d7\n\t"
      "vmin.u8 d24, d24, d6\n\t"
      "vshrn.i16 d6, q2, #8\n\t"
      "vshr.u8 d7, d6, #3\n\t"
      "vsra.u8 d7, d6, #4\n\t"
      "vadd.i8 d29, d29, d7\n\t"
      "vmlal.u8 q6, d7, d0\n\t"
      "vmlal.u8 q7, d7, d1\n\t"
      "vpmin.u8 d0, d24, d24\n\t"
      "vst1.64 {d28, d29}, [%[S]:128]!\n\t"
      "vst1.64 {d8, d9, d10, d11}, [%[S]:128]!\n\t"
      "vst1.32 {d0[0]}, [%[F]]!\n\t"
      "vst1.64 {d12, d13, d14, d15}, [%[S]:128]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [p0] "+r"(q0), [y] "+r"(yy), [n] "+r"(k), [S] "+r"(sp), [F] "+r"(F), [wl] "+r"(l),
        [wr] "+r"(w), [a] "=&r"(sa), [b] "=&r"(sb), [c] "=&r"(sc)
      : [R] "r"(words), [h0] "r"(words[0])
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "d28", "d29", "d30", "d31", "cc", "memory");
  *p0 = q0;
  *y = yy;
  *S = sp;
  *wl = l;
  *wr = w;
}

// Pass 1's luma weights loop (the whole table): n steps from the walk at
// *p into the buffer at *y; moves both on.
inline void pass1LumaArmv7(const uint32_t* words, const uint8_t** p, uint8_t** y, int32_t n) {
  const uint8_t* q = *p;
  uint8_t* yy = *y;
  int32_t k = n;
  uint32_t sa;
  asm volatile(
      "ldr %[a], [%[R], #72]\n\t"
      "vld1.8 {d16-d19}, [%[a]]!\n\t"
      "vld1.8 {d20-d23}, [%[a]]!\n\t"
      "vld1.8 {d24-d25}, [%[a]]\n\t"
      "vmov.i8 d26, #32\n\t"
      "1:\n\t"
      "vld4.8 {d8, d9, d10, d11}, [%[p1]], %[h0]\n\t"
      "vld4.8 {d12, d13, d14, d15}, [%[p1]], %[h1]\n\t"
      "vld4.8 {d28, d29, d30, d31}, [%[p1]], %[h2]\n\t"
      "vabd.u8 d7, d8, d10\n\t"
      "vabd.u8 d9, d8, d12\n\t"
      "vabd.u8 d11, d8, d14\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d7\n\t"
      "vsub.i8 d7, d7, d26\n\t"
      "vld4.8 {d12, d13, d14, d15}, [%[p1]], %[h3]\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d9\n\t"
      "vtbl.8 d2, {d16, d17, d18, d19}, d11\n\t"
      "vabd.u8 d27, d8, d28\n\t"
      "vtbx.8 d0, {d20, d21, d22, d23}, d7\n\t"
      "vsub.i8 d7, d7, d26\n\t"
      "vld4.8 {d28, d29, d30, d31}, [%[p1]], %[h4]\n\t"
      "vsub.i8 d9, d9, d26\n\t"
      "vsub.i8 d11, d11, d26\n\t"
      "vtbl.8 d3, {d16, d17, d18, d19}, d27\n\t"
      "vtbx.8 d0, {d24, d25}, d7\n\t"
      "vabd.u8 d7, d8, d12\n\t"
      "vld4.8 {d12, d13, d14, d15}, [%[p1]], %[h5]\n\t"
      "vtbx.8 d1, {d20, d21, d22, d23}, d9\n\t"
      "vtbx.8 d2, {d20, d21, d22, d23}, d11\n\t"
      "vsub.i8 d9, d9, d26\n\t"
      "vsub.i8 d11, d11, d26\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d7\n\t"
      "vsub.i8 d27, d27, d26\n\t"
      "vtbx.8 d1, {d24, d25}, d9\n\t"
      "vtbx.8 d2, {d24, d25}, d11\n\t"
      "vabd.u8 d9, d8, d28\n\t"
      "vabd.u8 d11, d8, d12\n\t"
      "vsub.i8 d7, d7, d26\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d9\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d11\n\t"
      "vsub.i8 d9, d9, d26\n\t"
      "vsub.i8 d11, d11, d26\n\t"
      "vtbx.8 d3, {d20, d21, d22, d23}, d27\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d7\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d9\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d11\n\t"
      "vsub.i8 d27, d27, d26\n\t"
      "vsub.i8 d7, d7, d26\n\t"
      "vsub.i8 d9, d9, d26\n\t"
      "vsub.i8 d11, d11, d26\n\t"
      "vtbx.8 d3, {d24, d25}, d27\n\t"
      "vtbx.8 d4, {d24, d25}, d7\n\t"
      "vtbx.8 d5, {d24, d25}, d9\n\t"
      "vtbx.8 d6, {d24, d25}, d11\n\t"
      "vst1.64 {d0, d1, d2, d3}, [%[y]:64]!\n\t"
      "vst1.64 {d4, d5, d6}, [%[y]:64]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      : [p1] "+r"(q), [y] "+r"(yy), [n] "+r"(k), [a] "=&r"(sa)
      : [R] "r"(words), [h0] "r"(words[12]), [h1] "r"(words[13]), [h2] "r"(words[14]),
        [h3] "r"(words[15]), [h4] "r"(words[16]), [h5] "r"(words[17])
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "d28", "d29", "d30", "d31", "cc", "memory");
  *p = q;
  *y = yy;
}

// The same where every luma difference is below 64 (the table's first 64
// entries: a look-up and a step fewer per 8 or 16 weights), for tables whose
// entry 63 is not 0: returns 4 bytes of the least weight it made, which has
// a 0 where a difference of 64 or more looked up 0, and the steps are then
// to be made again by pass1LumaArmv7.
inline uint32_t pass1LumaArmv7Fast(const uint32_t* words, const uint8_t** p, uint8_t** y,
                                   int32_t n) {
  const uint8_t* q = *p;
  uint8_t* yy = *y;
  int32_t k = n;
  uint32_t sa, least;
  asm volatile(
      "ldr %[a], [%[R], #72]\n\t"
      "vld1.8 {d16-d19}, [%[a]]!\n\t"
      "vld1.8 {d20-d23}, [%[a]]\n\t"
      "vmov.i8 d26, #32\n\t"
      "vmov.i8 d24, #255\n\t"
      "1:\n\t"
      "vld4.8 {d8, d9, d10, d11}, [%[p1]], %[h0]\n\t"
      "vld4.8 {d12, d13, d14, d15}, [%[p1]], %[h1]\n\t"
      "vld4.8 {d28, d29, d30, d31}, [%[p1]], %[h2]\n\t"
      "vabd.u8 d7, d8, d10\n\t"
      "vabd.u8 d9, d8, d12\n\t"
      "vabd.u8 d11, d8, d14\n\t"
      "vld4.8 {d12, d13, d14, d15}, [%[p1]], %[h3]\n\t"
      "vtbl.8 d0, {d16, d17, d18, d19}, d7\n\t"
      "vsub.i8 d7, d7, d26\n\t"
      "vtbl.8 d1, {d16, d17, d18, d19}, d9\n\t"
      "vabd.u8 d27, d8, d28\n\t"
      "vld4.8 {d28, d29, d30, d31}, [%[p1]], %[h4]\n\t"
      "vsub.i8 d9, d9, d26\n\t"
      "vtbx.8 d0, {d20, d21, d22, d23}, d7\n\t"
      "vtbl.8 d2, {d16, d17, d18, d19}, d11\n\t"
      "vabd.u8 d7, d8, d12\n\t"
      "vld4.8 {d12, d13, d14, d15}, [%[p1]], %[h5]\n\t"
      "vtbx.8 d1, {d20, d21, d22, d23}, d9\n\t"
      "vsub.i8 d11, d11, d26\n\t"
      "vtbl.8 d3, {d16, d17, d18, d19}, d27\n\t"
      "vmin.u8 d24, d24, d0\n\t"
      "vtbx.8 d2, {d20, d21, d22, d23}, d11\n\t"
      "vsub.i8 d27, d27, d26\n\t"
      "vtbl.8 d4, {d16, d17, d18, d19}, d7\n\t"
      "vabd.u8 d9, d8, d28\n\t"
      "vmin.u8 d24, d24, d1\n\t"
      "vtbx.8 d3, {d20, d21, d22, d23}, d27\n\t"
      "vsub.i8 d7, d7, d26\n\t"
      "vtbl.8 d5, {d16, d17, d18, d19}, d9\n\t"
      "vabd.u8 d11, d8, d12\n\t"
      "vmin.u8 d24, d24, d2\n\t"
      "vtbx.8 d4, {d20, d21, d22, d23}, d7\n\t"
      "vsub.i8 d9, d9, d26\n\t"
      "vtbl.8 d6, {d16, d17, d18, d19}, d11\n\t"
      "vmin.u8 d24, d24, d3\n\t"
      "vtbx.8 d5, {d20, d21, d22, d23}, d9\n\t"
      "vsub.i8 d11, d11, d26\n\t"
      "vmin.u8 d24, d24, d4\n\t"
      "vst1.64 {d0, d1, d2, d3}, [%[y]:64]!\n\t"
      "vtbx.8 d6, {d20, d21, d22, d23}, d11\n\t"
      "vmin.u8 d24, d24, d5\n\t"
      "vmin.u8 d24, d24, d6\n\t"
      "vst1.64 {d4, d5, d6}, [%[y]:64]!\n\t"
      "subs %[n], %[n], #1\n\t"
      "bne 1b\n\t"
      "vpmin.u8 d24, d24, d24\n\t"
      "vmov.32 %[m], d24[0]\n\t"
      : [p1] "+r"(q), [y] "+r"(yy), [n] "+r"(k), [a] "=&r"(sa), [m] "=&r"(least)
      : [R] "r"(words), [h0] "r"(words[12]), [h1] "r"(words[13]), [h2] "r"(words[14]),
        [h3] "r"(words[15]), [h4] "r"(words[16]), [h5] "r"(words[17])
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "d28", "d29", "d30", "d31", "cc", "memory");
  *p = q;
  *y = yy;
  return least;
}

// pass1InnerArmv7 where every difference from 80 on weighs as 0 (reach <=
// 80, the default strength), by look-ups of the whole weight table, as pass
// 3's look-up form does: a first loop makes each step's luma weights of the
// seven taps after the centre (8 bytes each) into a stack buffer; the sums
// loop looks up the U and V weights (both halves of one q register) and
// loads those, first as if every difference were below 64 and then, for the
// steps that it flags (about 1 in 10,000 on a camera frame; 15 in 100 have
// one of 32 or more, too many for pass 3's first 32 entries), again with the
// whole table; the means loop is pass1InnerArmv7's. The far left tap of an
// output and the far right tap of the output 13 to its left weigh the same
// two pixels (pass 1 reads the planes it compares with, and the margin is
// 26 columns): each step keeps its right taps' weights in a row buffer, and
// from the third step of a row on the left taps take theirs from it.
void pass1InnerArmv7Lut(const Pass1Armv7Rows* rows, const Tables& t, int32_t x0,
                        int32_t count) {
  constexpr int32_t kChunk = 16;
  alignas(16) uint8_t lumaW[kChunk * 56];
  alignas(16) uint8_t sums[kChunk * 80];
  uint32_t flags[kChunk];
  std::memset(flags, 0xff, sizeof flags);
  // The far right taps' weights of the chunk's steps from byte 16 on, the
  // chunk before's last 16 before them (its last two steps').
  alignas(16) uint8_t right[16 + kChunk * 8];
  const uint32_t cw = t.centreWeight, cw1 = 1u + t.centreWeight;
  // The loops' record: the walks of the U and V rows (words 0-11) and of the
  // luma rows (12-17), in the generator's chains, then the table (18) and
  // cw1 (19). The luma weights loop holds its walk's steps in registers, the
  // sums loop the step from each row's U to its V (word 0), the same for
  // every row: the rows' U and V lie at the same offsets from their planes.
  const Pass1Armv7Rows& r = *rows;
  const uint8_t* const* f = r.far;
  uint32_t words[20];
  walkWords(walkWords(words, {r.block[0], r.block[1], r.block[2], r.block[3], f[0], f[1], f[3],
                              f[4], f[6], f[7], f[9], f[10]}, 16),
            {r.block[4], r.block[5], f[2], f[5], f[8], f[11]}, 32);
  words[18] = uint32_t(uintptr_t(t.lut));
  words[19] = cw1;
  // The first 64 entries' steps where most differences stay below 64 (else
  // most steps would be made twice), with the left taps 13 outputs from the
  // right ones (a margin of 26, the default mode's; 14 and 8 put them in the
  // same step or the one before).
  const bool fast = t.lut[63] >= 16 && r.block[0] - f[3] == 26;
  bool first = true;
  const uint8_t *p0 = r.block[0] + 2 * x0, *p1 = r.block[4] + 4 * x0;
  uint8_t *o0 = r.out[0] + x0, *o1 = r.out[1] + x0;
  const bool fastLuma = t.lut[63] >= 16;  // every weight below 64 is then above 0
  while (count > 0) {
    const int32_t n = count < kChunk ? count : kChunk;
    uint8_t* y = lumaW;
    if (fastLuma) {
      const uint8_t* from = p1;
      if (anyZeroByte(pass1LumaArmv7Fast(words, &p1, &y, n))) {
        p1 = from;
        y = lumaW;
        pass1LumaArmv7(words, &p1, &y, n);
      }
    } else {
      pass1LumaArmv7(words, &p1, &y, n);
    }
    y = lumaW;
    uint8_t* sp = sums;
    if (fast) {
      const uint8_t* f0 = p0;
      // Steps [j, j + m) by the whole table.
      auto whole = [&](int32_t j, int32_t m) {
        const uint8_t* q = f0 + 16 * j;
        uint8_t *wy = lumaW + 56 * j, *ws = sums + 80 * j, *w = right + 16 + 8 * j;
        pass1SumsArmv7Lut(words, cw, cw1, &q, &wy, &ws, &w, m);
      };
      // The row's first two steps have no right taps 13 outputs back.
      const int32_t j0 = first ? (n < 2 ? n : 2) : 0;
      first = false;
      if (j0 > 0) whole(0, j0);
      // A flagged step's right taps' weights went to the left taps of the
      // two steps after it: those are made again with it.
      sumsFirstThenWhole(
          j0, n, 2, flags,
          [&](int32_t j, int32_t m, uint32_t* f) {
            const uint8_t* q = f0 + 16 * j;
            const uint8_t* wl = right + 3 + 8 * j;  // 13 outputs behind wr
            uint8_t *wy = lumaW + 56 * j, *ws = sums + 80 * j, *wr = right + 16 + 8 * j;
            pass1SumsArmv7Shared(words, &q, &wy, &ws, f, &wl, &wr, m);
          },
          whole);
      vst1q_u8(right, vld1q_u8(right + 8 * n));  // the last two steps' to the front
      p0 = f0 + 16 * n;
    } else {
      uint8_t* w = right + 16;
      pass1SumsArmv7Lut(words, cw, cw1, &p0, &y, &sp, &w, n);
    }
    pass1MeansArmv7(sums, n, &o0, &o1);
    count -= n;
  }
}
#endif

#if defined(__aarch64__)
// Pass 2's inner steps on aarch64 in assembly, where every difference from
// 80 on weighs as 0, 16 outputs a step. The taps' luma comes from rows
// taken out beforehand (every fourth byte of luma rows 4 yUp, 4 y,
// 4 yDown), so that every tap is a load at the step's column from its row's
// base; two sets of registers take alternate taps, so that a tap's weighing
// overlaps the one before on an in-order core (a list schedule over
// Cortex-A55 latencies orders the step; scripts/asmgen/chroma_pass2_aarch64.py).
struct Pass2A64Rows {
  const uint8_t *uUp, *uL, *uMid, *uR, *uDown;  // half-size taps (+ x)
  const uint8_t *vUp, *vL, *vMid, *vR, *vDown;
  const uint8_t *lUp, *lL, *lMid, *lR, *lDown;  // taken-out luma (+ x)
  uint8_t *outU, *outV;                          // half-size row y (+ x)
};

void pass2InnerA64(const Pass2A64Rows& r, const uint8_t* srcU, const uint8_t* srcV,
                   const Tables& t, int64_t x, int64_t count) {
  const uint32_t w0 = t.w[0];
  asm volatile(
      "ld1 {v16.16b, v17.16b, v18.16b, v19.16b}, [%[lut]]\n\t"
      "ldr q20, [%[lut], #64]\n\t"
      "movi v23.16b, #64\n\t"
      "dup v21.16b, %w[w0]\n\t"
      "ld1r {v8.4s}, [%[num]]\n\t"
      "1:\n\t"
      "ld2 {v9.16b, v10.16b}, [%[srcU]], #32\n\t"
      "movi v24.16b, #1\n\t"
      "ld2 {v10.16b, v11.16b}, [%[srcV]], #32\n\t"
      "ldr q6, [%[uUp], %[X]]\n\t"
      "ldr q7, [%[vUp], %[X]]\n\t"
      "ldr q12, [%[lMid], %[X]]\n\t"
      "uabd v0.16b, v9.16b, v6.16b\n\t"
      "ldr q2, [%[lUp], %[X]]\n\t"
      "uabd v1.16b, v10.16b, v7.16b\n\t"
      "ldr q11, [%[uL], %[X]]\n\t"
      "ldr q22, [%[vL], %[X]]\n\t"
      "uabd v2.16b, v12.16b, v2.16b\n\t"
      "ldr q15, [%[lL], %[X]]\n\t"
      "tbl v3.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v0.16b\n\t"
      "sub v0.16b, v0.16b, v23.16b\n\t"
      "tbl v4.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v1.16b\n\t"
      "sub v1.16b, v1.16b, v23.16b\n\t"
      "tbl v5.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v2.16b\n\t"
      "tbx v3.16b, {v20.16b}, v0.16b\n\t"
      "sub v2.16b, v2.16b, v23.16b\n\t"
      "tbx v4.16b, {v20.16b}, v1.16b\n\t"
      "uabd v13.16b, v9.16b, v11.16b\n\t"
      "uabd v14.16b, v10.16b, v22.16b\n\t"
      "tbx v5.16b, {v20.16b}, v2.16b\n\t"
      "umull v0.8h, v4.8b, v3.8b\n\t"
      "ldr q2, [%[lDown], %[X]]\n\t"
      "umull2 v1.8h, v4.16b, v3.16b\n\t"
      "tbl v29.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v13.16b\n\t"
      "sub v13.16b, v13.16b, v23.16b\n\t"
      "tbl v30.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v14.16b\n\t"
      "uzp2 v0.16b, v0.16b, v1.16b\n\t"
      "sub v14.16b, v14.16b, v23.16b\n\t"
      "uabd v15.16b, v12.16b, v15.16b\n\t"
      "tbx v29.16b, {v20.16b}, v13.16b\n\t"
      "umull v1.8h, v0.8b, v5.8b\n\t"
      "umull2 v3.8h, v0.16b, v5.16b\n\t"
      "tbx v30.16b, {v20.16b}, v14.16b\n\t"
      "tbl v31.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v15.16b\n\t"
      "sub v15.16b, v15.16b, v23.16b\n\t"
      "uzp2 v1.16b, v1.16b, v3.16b\n\t"
      "umull v13.8h, v30.8b, v29.8b\n\t"
      "umull2 v14.8h, v30.16b, v29.16b\n\t"
      "tbx v31.16b, {v20.16b}, v15.16b\n\t"
      "ushr v0.16b, v1.16b, #3\n\t"
      "ldr q15, [%[lR], %[X]]\n\t"
      "uabd v2.16b, v12.16b, v2.16b\n\t"
      "uzp2 v13.16b, v13.16b, v14.16b\n\t"
      "uabd v15.16b, v12.16b, v15.16b\n\t"
      "usra v0.16b, v1.16b, #4\n\t"
      "tbl v5.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v2.16b\n\t"
      "umull v14.8h, v13.8b, v31.8b\n\t"
      "umull2 v29.8h, v13.16b, v31.16b\n\t"
      "umull v25.8h, v0.8b, v6.8b\n\t"
      "umull2 v26.8h, v0.16b, v6.16b\n\t"
      "umull v27.8h, v0.8b, v7.8b\n\t"
      "ldr q6, [%[uMid], %[X]]\n\t"
      "umull2 v28.8h, v0.16b, v7.16b\n\t"
      "ldr q7, [%[vMid], %[X]]\n\t"
      "add v24.16b, v24.16b, v0.16b\n\t"
      "uabd v0.16b, v9.16b, v6.16b\n\t"
      "uzp2 v14.16b, v14.16b, v29.16b\n\t"
      "uabd v1.16b, v10.16b, v7.16b\n\t"
      "tbl v31.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v15.16b\n\t"
      "tbl v3.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v0.16b\n\t"
      "sub v0.16b, v0.16b, v23.16b\n\t"
      "tbl v4.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v1.16b\n\t"
      "sub v1.16b, v1.16b, v23.16b\n\t"
      "ushr v13.16b, v14.16b, #3\n\t"
      "tbx v3.16b, {v20.16b}, v0.16b\n\t"
      "sub v15.16b, v15.16b, v23.16b\n\t"
      "tbx v4.16b, {v20.16b}, v1.16b\n\t"
      "usra v13.16b, v14.16b, #4\n\t"
      "sub v2.16b, v2.16b, v23.16b\n\t"
      "tbx v31.16b, {v20.16b}, v15.16b\n\t"
      "umull v0.8h, v4.8b, v3.8b\n\t"
      "umull2 v1.8h, v4.16b, v3.16b\n\t"
      "umlal v25.8h, v13.8b, v11.8b\n\t"
      "umlal2 v26.8h, v13.16b, v11.16b\n\t"
      "umlal v27.8h, v13.8b, v22.8b\n\t"
      "ldr q11, [%[uR], %[X]]\n\t"
      "uzp2 v0.16b, v0.16b, v1.16b\n\t"
      "umlal2 v28.8h, v13.16b, v22.16b\n\t"
      "ldr q22, [%[vR], %[X]]\n\t"
      "add v24.16b, v24.16b, v13.16b\n\t"
      "uabd v13.16b, v9.16b, v11.16b\n\t"
      "umull v1.8h, v0.8b, v21.8b\n\t"
      "umull2 v3.8h, v0.16b, v21.16b\n\t"
      "uabd v14.16b, v10.16b, v22.16b\n\t"
      "tbl v29.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v13.16b\n\t"
      "sub v13.16b, v13.16b, v23.16b\n\t"
      "uzp2 v1.16b, v1.16b, v3.16b\n\t"
      "tbl v30.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v14.16b\n\t"
      "sub v14.16b, v14.16b, v23.16b\n\t"
      "tbx v29.16b, {v20.16b}, v13.16b\n\t"
      "ushr v0.16b, v1.16b, #3\n\t"
      "tbx v5.16b, {v20.16b}, v2.16b\n\t"
      "tbx v30.16b, {v20.16b}, v14.16b\n\t"
      "usra v0.16b, v1.16b, #4\n\t"
      "umull v13.8h, v30.8b, v29.8b\n\t"
      "umull2 v14.8h, v30.16b, v29.16b\n\t"
      "umlal v25.8h, v0.8b, v6.8b\n\t"
      "umlal2 v26.8h, v0.16b, v6.16b\n\t"
      "umlal v27.8h, v0.8b, v7.8b\n\t"
      "ldr q6, [%[uDown], %[X]]\n\t"
      "umlal2 v28.8h, v0.16b, v7.16b\n\t"
      "ldr q7, [%[vDown], %[X]]\n\t"
      "add v24.16b, v24.16b, v0.16b\n\t"
      "uabd v0.16b, v9.16b, v6.16b\n\t"
      "uzp2 v13.16b, v13.16b, v14.16b\n\t"
      "uabd v1.16b, v10.16b, v7.16b\n\t"
      "tbl v3.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v0.16b\n\t"
      "sub v0.16b, v0.16b, v23.16b\n\t"
      "tbl v4.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v1.16b\n\t"
      "sub v1.16b, v1.16b, v23.16b\n\t"
      "umull v14.8h, v13.8b, v31.8b\n\t"
      "tbx v3.16b, {v20.16b}, v0.16b\n\t"
      "umull2 v29.8h, v13.16b, v31.16b\n\t"
      "tbx v4.16b, {v20.16b}, v1.16b\n\t"
      "uzp2 v14.16b, v14.16b, v29.16b\n\t"
      "umull v0.8h, v4.8b, v3.8b\n\t"
      "umull2 v1.8h, v4.16b, v3.16b\n\t"
      "ushr v13.16b, v14.16b, #3\n\t"
      "uzp2 v0.16b, v0.16b, v1.16b\n\t"
      "usra v13.16b, v14.16b, #4\n\t"
      "umull v1.8h, v0.8b, v5.8b\n\t"
      "umull2 v3.8h, v0.16b, v5.16b\n\t"
      "add v24.16b, v24.16b, v13.16b\n\t"
      "umlal v25.8h, v13.8b, v11.8b\n\t"
      "umlal2 v26.8h, v13.16b, v11.16b\n\t"
      "uzp2 v1.16b, v1.16b, v3.16b\n\t"
      "umlal v27.8h, v13.8b, v22.8b\n\t"
      "umlal2 v28.8h, v13.16b, v22.16b\n\t"
      "ushr v0.16b, v1.16b, #3\n\t"
      "usra v0.16b, v1.16b, #4\n\t"
      "add v24.16b, v24.16b, v0.16b\n\t"
      "uxtl v4.8h, v24.8b\n\t"
      "uxtl2 v5.8h, v24.16b\n\t"
      "umlal v25.8h, v0.8b, v6.8b\n\t"
      "umlal2 v26.8h, v0.16b, v6.16b\n\t"
      "umlal v27.8h, v0.8b, v7.8b\n\t"
      "umlal2 v28.8h, v0.16b, v7.16b\n\t"
      "uxtl v0.4s, v4.4h\n\t"
      "uxtl2 v1.4s, v4.8h\n\t"
      "uxtl v2.4s, v5.4h\n\t"
      "uxtl2 v3.4s, v5.8h\n\t"
      "ucvtf v0.4s, v0.4s\n\t"
      "ucvtf v1.4s, v1.4s\n\t"
      "ucvtf v2.4s, v2.4s\n\t"
      "ucvtf v3.4s, v3.4s\n\t"
      "fdiv v0.4s, v8.4s, v0.4s\n\t"
      "uxtl v4.4s, v25.4h\n\t"
      "uxtl2 v5.4s, v25.8h\n\t"
      "uxtl v6.4s, v26.4h\n\t"
      "uxtl2 v7.4s, v26.8h\n\t"
      "uxtl v29.4s, v27.4h\n\t"
      "uxtl2 v30.4s, v27.8h\n\t"
      "uxtl v31.4s, v28.4h\n\t"
      "uxtl2 v15.4s, v28.8h\n\t"
      "ucvtf v4.4s, v4.4s\n\t"
      "fdiv v1.4s, v8.4s, v1.4s\n\t"
      "ucvtf v5.4s, v5.4s\n\t"
      "ucvtf v6.4s, v6.4s\n\t"
      "ucvtf v7.4s, v7.4s\n\t"
      "ucvtf v29.4s, v29.4s\n\t"
      "ucvtf v30.4s, v30.4s\n\t"
      "ucvtf v31.4s, v31.4s\n\t"
      "ucvtf v15.4s, v15.4s\n\t"
      "fmul v4.4s, v4.4s, v0.4s\n\t"
      "fmul v29.4s, v29.4s, v0.4s\n\t"
      "fdiv v2.4s, v8.4s, v2.4s\n\t"
      "fcvtnu v4.4s, v4.4s\n\t"
      "fmul v5.4s, v5.4s, v1.4s\n\t"
      "fmul v30.4s, v30.4s, v1.4s\n\t"
      "fcvtnu v29.4s, v29.4s\n\t"
      "fcvtnu v5.4s, v5.4s\n\t"
      "fcvtnu v30.4s, v30.4s\n\t"
      "fdiv v3.4s, v8.4s, v3.4s\n\t"
      "uzp1 v4.8h, v4.8h, v5.8h\n\t"
      "uzp1 v29.8h, v29.8h, v30.8h\n\t"
      "fmul v6.4s, v6.4s, v2.4s\n\t"
      "fmul v31.4s, v31.4s, v2.4s\n\t"
      "fcvtnu v6.4s, v6.4s\n\t"
      "fcvtnu v31.4s, v31.4s\n\t"
      "fmul v7.4s, v7.4s, v3.4s\n\t"
      "fmul v15.4s, v15.4s, v3.4s\n\t"
      "fcvtnu v7.4s, v7.4s\n\t"
      "fcvtnu v15.4s, v15.4s\n\t"
      "uzp1 v6.8h, v6.8h, v7.8h\n\t"
      "uzp1 v31.8h, v31.8h, v15.8h\n\t"
      "uzp1 v13.16b, v4.16b, v6.16b\n\t"
      "uzp1 v14.16b, v29.16b, v31.16b\n\t"
      "str q13, [%[outU], %[X]]\n\t"
      "str q14, [%[outV], %[X]]\n\t"
      "add %[X], %[X], #16\n\t"
      "subs %[k], %[k], #1\n\t"
      "b.ne 1b\n\t"
      : [X] "+r"(x), [k] "+r"(count), [srcU] "+r"(srcU), [srcV] "+r"(srcV)
      : [uUp] "r"(r.uUp), [uL] "r"(r.uL), [uMid] "r"(r.uMid), [uR] "r"(r.uR),
        [uDown] "r"(r.uDown), [vUp] "r"(r.vUp), [vL] "r"(r.vL), [vMid] "r"(r.vMid),
        [vR] "r"(r.vR), [vDown] "r"(r.vDown), [lUp] "r"(r.lUp), [lL] "r"(r.lL),
        [lMid] "r"(r.lMid), [lR] "r"(r.lR), [lDown] "r"(r.lDown), [outU] "r"(r.outU),
        [outV] "r"(r.outV), [lut] "r"(t.lut), [num] "r"(&kMeanDividend), [w0] "r"(w0)
      : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9", "v10", "v11", "v12", "v13",
        "v14", "v15", "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23", "v24", "v25",
        "v26", "v27", "v28", "v29", "v30", "v31", "cc", "memory");
}
#endif

#if defined(__aarch64__)
// Pass 1's inner steps on aarch64 in assembly where the pass reads the
// source planes and every difference from 80 on weighs as 0, 16 outputs a
// step. The compiled steps hold the centres, the tables and both sets of
// sums (block and far taps) and spill a tap's values. Here each tap loads
// the centres again from rows taken out of row Y beforehand (U and V even
// and odd columns, luma bytes 0 and 2 of every 4 of row 2Y: kQuarterRow
// bytes apart, one pointer), which leaves two sets of registers for
// alternate taps, so that a tap's weighing overlaps the one before on an
// in-order core. The same rows give the block tap (X + 1, Y) and the left
// and right far taps (even columns: the margin is even); the
// block taps of row Y + 1 and the far taps up and down are loaded by
// ld2/ld4 from their rows, a register set's first registers taking the
// even columns and set 1's later ones the odd. The step is ordered by a
// list schedule over Cortex-A55 latencies
// (scripts/asmgen/chroma_pass1_aarch64.py).
struct Pass1A64Rows {
  const uint8_t* taken;                 // the taken-out rows (+ x)
  const uint8_t *left, *right;          // the same at the far taps' columns (+ x)
  const uint8_t *uY1, *vY1, *lY1;       // U, V row Y + 1 (+ 2x), luma row 2Y + 2 (+ 4x)
  const uint8_t *uUp, *vUp, *lUp;       // rows yUp (+ 2x), 2 yUp (+ 4x)
  const uint8_t *uDown, *vDown, *lDown;  // rows yDown, 2 yDown
  uint8_t *outU, *outV;                  // half-size row y (+ x)
};
static_assert(offsetof(Pass1A64Rows, lDown) - offsetof(Pass1A64Rows, uY1) == 64,
              "offsets the assembly step uses");

void pass1InnerA64(const Pass1A64Rows& r, const Tables& t, int64_t count) {
  const uint8_t w[2] = {t.centreWeight, uint8_t(t.centreWeight + 1)};
  const uint8_t *P = r.taken, *PL = r.left, *PR = r.right;
  uint8_t *oU = r.outU, *oV = r.outV;
  asm volatile(
      "ld1 {v16.16b, v17.16b, v18.16b, v19.16b}, [%[lut]]\n\t"
      "ldr q20, [%[lut], #64]\n\t"
      "movi v21.16b, #64\n\t"
      // The rows that ld2/ld4 step, uY1 .. lDown, in x9 .. x17.
      "ldp x9, x10, [%[R]]\n\t"
      "ldp x11, x12, [%[R], #16]\n\t"
      "ldp x13, x14, [%[R], #32]\n\t"
      "ldp x15, x16, [%[R], #48]\n\t"
      "ldr x17, [%[R], #64]\n\t"
      "1:\n\t"
      "ld2 {v0.16b, v1.16b}, [x9]\n\t"
      "ld2 {v1.16b, v2.16b}, [x10]\n\t"
      "ld4 {v2.16b, v3.16b, v4.16b, v5.16b}, [x11]\n\t"
      "ldr q3, [%[P]]\n\t"
      "ldr q4, [%[P], #4128]\n\t"
      "ldr q5, [%[P], #8256]\n\t"
      "uabd v3.16b, v3.16b, v0.16b\n\t"
      "ld1r {v8.16b}, [%[w0]]\n\t"
      "uabd v4.16b, v4.16b, v1.16b\n\t"
      "ldr q12, [%[P]]\n\t"
      "uabd v5.16b, v5.16b, v2.16b\n\t"
      "ldr q13, [%[P], #4128]\n\t"
      "ld1r {v22.16b}, [%[w1]]\n\t"
      "tbl v6.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v3.16b\n\t"
      "sub v3.16b, v3.16b, v21.16b\n\t"
      "tbl v7.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v4.16b\n\t"
      "sub v4.16b, v4.16b, v21.16b\n\t"
      "umull v24.8h, v8.8b, v12.8b\n\t"
      "tbx v6.16b, {v20.16b}, v3.16b\n\t"
      "umull2 v25.8h, v8.16b, v12.16b\n\t"
      "tbx v7.16b, {v20.16b}, v4.16b\n\t"
      "ld4 {v9.16b, v10.16b, v11.16b, v12.16b}, [x11], #64\n\t"
      "umull v26.8h, v8.8b, v13.8b\n\t"
      "umull2 v27.8h, v8.16b, v13.16b\n\t"
      "umull v3.8h, v6.8b, v7.8b\n\t"
      "umull2 v4.8h, v6.16b, v7.16b\n\t"
      "tbl v6.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v5.16b\n\t"
      "sub v5.16b, v5.16b, v21.16b\n\t"
      "ld2 {v9.16b, v10.16b}, [x10], #32\n\t"
      "uzp2 v3.16b, v3.16b, v4.16b\n\t"
      "tbx v6.16b, {v20.16b}, v5.16b\n\t"
      "ld2 {v8.16b, v9.16b}, [x9], #32\n\t"
      "umull v4.8h, v3.8b, v6.8b\n\t"
      "umull2 v5.8h, v3.16b, v6.16b\n\t"
      "ldr q8, [%[P]]\n\t"
      "ldr q12, [%[P], #4128]\n\t"
      "ldr q13, [%[P], #8256]\n\t"
      "uabd v8.16b, v8.16b, v9.16b\n\t"
      "uzp2 v4.16b, v4.16b, v5.16b\n\t"
      "uabd v12.16b, v12.16b, v10.16b\n\t"
      "uabd v13.16b, v13.16b, v11.16b\n\t"
      "tbl v14.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v8.16b\n\t"
      "ldr q11, [%[P], #10320]\n\t"
      "ushr v3.16b, v4.16b, #3\n\t"
      "sub v8.16b, v8.16b, v21.16b\n\t"
      "tbl v15.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v12.16b\n\t"
      "sub v12.16b, v12.16b, v21.16b\n\t"
      "usra v3.16b, v4.16b, #4\n\t"
      "tbx v14.16b, {v20.16b}, v8.16b\n\t"
      "tbx v15.16b, {v20.16b}, v12.16b\n\t"
      "umlal v24.8h, v3.8b, v0.8b\n\t"
      "umlal2 v25.8h, v3.16b, v0.16b\n\t"
      "umlal v26.8h, v3.8b, v1.8b\n\t"
      "umlal2 v27.8h, v3.16b, v1.16b\n\t"
      "ld2 {v0.16b, v1.16b}, [x12], #32\n\t"
      "add v22.16b, v22.16b, v3.16b\n\t"
      "umull v8.8h, v14.8b, v15.8b\n\t"
      "umull2 v12.8h, v14.16b, v15.16b\n\t"
      "tbl v14.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v13.16b\n\t"
      "ld2 {v1.16b, v2.16b}, [x13], #32\n\t"
      "sub v13.16b, v13.16b, v21.16b\n\t"
      "uzp2 v8.16b, v8.16b, v12.16b\n\t"
      "ld4 {v2.16b, v3.16b, v4.16b, v5.16b}, [x14], #64\n\t"
      "tbx v14.16b, {v20.16b}, v13.16b\n\t"
      "umull v12.8h, v8.8b, v14.8b\n\t"
      "umull2 v13.8h, v8.16b, v14.16b\n\t"
      "ldr q3, [%[P]]\n\t"
      "ldr q4, [%[P], #4128]\n\t"
      "uzp2 v12.16b, v12.16b, v13.16b\n\t"
      "ldr q5, [%[P], #8256]\n\t"
      "uabd v3.16b, v3.16b, v0.16b\n\t"
      "ldr q13, [%[P], #8256]\n\t"
      "uabd v4.16b, v4.16b, v1.16b\n\t"
      "uabd v5.16b, v5.16b, v2.16b\n\t"
      "ushr v8.16b, v12.16b, #3\n\t"
      "tbl v6.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v3.16b\n\t"
      "sub v3.16b, v3.16b, v21.16b\n\t"
      "tbl v7.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v4.16b\n\t"
      "sub v4.16b, v4.16b, v21.16b\n\t"
      "usra v8.16b, v12.16b, #4\n\t"
      "tbx v6.16b, {v20.16b}, v3.16b\n\t"
      "ldr q12, [%[P], #4128]\n\t"
      "uabd v13.16b, v13.16b, v11.16b\n\t"
      "tbx v7.16b, {v20.16b}, v4.16b\n\t"
      "ldr q11, [%[PL], #8256]\n\t"
      "add v22.16b, v22.16b, v8.16b\n\t"
      "umlal v24.8h, v8.8b, v9.8b\n\t"
      "umlal2 v25.8h, v8.16b, v9.16b\n\t"
      "umull v3.8h, v6.8b, v7.8b\n\t"
      "ldr q9, [%[P], #2064]\n\t"
      "umull2 v4.8h, v6.16b, v7.16b\n\t"
      "tbl v6.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v5.16b\n\t"
      "sub v5.16b, v5.16b, v21.16b\n\t"
      "umlal v26.8h, v8.8b, v10.8b\n\t"
      "uzp2 v3.16b, v3.16b, v4.16b\n\t"
      "umlal2 v27.8h, v8.16b, v10.16b\n\t"
      "tbx v6.16b, {v20.16b}, v5.16b\n\t"
      "ldr q10, [%[P], #6192]\n\t"
      "ldr q8, [%[P]]\n\t"
      "uabd v12.16b, v12.16b, v10.16b\n\t"
      "umull v4.8h, v3.8b, v6.8b\n\t"
      "umull2 v5.8h, v3.16b, v6.16b\n\t"
      "uabd v8.16b, v8.16b, v9.16b\n\t"
      "tbl v15.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v12.16b\n\t"
      "sub v12.16b, v12.16b, v21.16b\n\t"
      "uzp2 v4.16b, v4.16b, v5.16b\n\t"
      "tbl v14.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v8.16b\n\t"
      "sub v8.16b, v8.16b, v21.16b\n\t"
      "tbx v15.16b, {v20.16b}, v12.16b\n\t"
      "ushr v23.16b, v4.16b, #3\n\t"
      "tbx v14.16b, {v20.16b}, v8.16b\n\t"
      "usra v23.16b, v4.16b, #4\n\t"
      "umull v8.8h, v14.8b, v15.8b\n\t"
      "umull2 v12.8h, v14.16b, v15.16b\n\t"
      "umull v28.8h, v23.8b, v0.8b\n\t"
      "umull2 v29.8h, v23.16b, v0.16b\n\t"
      "umull v30.8h, v23.8b, v1.8b\n\t"
      "umull2 v31.8h, v23.16b, v1.16b\n\t"
      "ld2 {v0.16b, v1.16b}, [x15], #32\n\t"
      "tbl v14.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v13.16b\n\t"
      "sub v13.16b, v13.16b, v21.16b\n\t"
      "uzp2 v8.16b, v8.16b, v12.16b\n\t"
      "ld2 {v1.16b, v2.16b}, [x16], #32\n\t"
      "tbx v14.16b, {v20.16b}, v13.16b\n\t"
      "ld4 {v2.16b, v3.16b, v4.16b, v5.16b}, [x17], #64\n\t"
      "umull v12.8h, v8.8b, v14.8b\n\t"
      "umull2 v13.8h, v8.16b, v14.16b\n\t"
      "uzp2 v12.16b, v12.16b, v13.16b\n\t"
      "ldr q3, [%[P]]\n\t"
      "ldr q4, [%[P], #4128]\n\t"
      "ldr q5, [%[P], #8256]\n\t"
      "ushr v8.16b, v12.16b, #3\n\t"
      "uabd v3.16b, v3.16b, v0.16b\n\t"
      "ldr q13, [%[P], #8256]\n\t"
      "uabd v4.16b, v4.16b, v1.16b\n\t"
      "uabd v5.16b, v5.16b, v2.16b\n\t"
      "usra v8.16b, v12.16b, #4\n\t"
      "ldr q2, [%[PR], #8256]\n\t"
      "tbl v6.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v3.16b\n\t"
      "ldr q12, [%[P], #4128]\n\t"
      "sub v3.16b, v3.16b, v21.16b\n\t"
      "tbl v7.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v4.16b\n\t"
      "sub v4.16b, v4.16b, v21.16b\n\t"
      "add v22.16b, v22.16b, v8.16b\n\t"
      "tbx v6.16b, {v20.16b}, v3.16b\n\t"
      "umlal v24.8h, v8.8b, v9.8b\n\t"
      "tbx v7.16b, {v20.16b}, v4.16b\n\t"
      "umlal2 v25.8h, v8.16b, v9.16b\n\t"
      "umlal v26.8h, v8.8b, v10.8b\n\t"
      "ldr q9, [%[PL]]\n\t"
      "umlal2 v27.8h, v8.16b, v10.16b\n\t"
      "umull v3.8h, v6.8b, v7.8b\n\t"
      "ldr q10, [%[PL], #4128]\n\t"
      "umull2 v4.8h, v6.16b, v7.16b\n\t"
      "ldr q8, [%[P]]\n\t"
      "tbl v6.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v5.16b\n\t"
      "add %[PL], %[PL], #16\n\t"
      "sub v5.16b, v5.16b, v21.16b\n\t"
      "uabd v8.16b, v8.16b, v9.16b\n\t"
      "uzp2 v3.16b, v3.16b, v4.16b\n\t"
      "uabd v12.16b, v12.16b, v10.16b\n\t"
      "tbx v6.16b, {v20.16b}, v5.16b\n\t"
      "tbl v14.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v8.16b\n\t"
      "sub v8.16b, v8.16b, v21.16b\n\t"
      "tbl v15.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v12.16b\n\t"
      "umull v4.8h, v3.8b, v6.8b\n\t"
      "umull2 v5.8h, v3.16b, v6.16b\n\t"
      "sub v12.16b, v12.16b, v21.16b\n\t"
      "uabd v13.16b, v13.16b, v11.16b\n\t"
      "tbx v14.16b, {v20.16b}, v8.16b\n\t"
      "uzp2 v4.16b, v4.16b, v5.16b\n\t"
      "tbx v15.16b, {v20.16b}, v12.16b\n\t"
      "ldr q5, [%[P], #8256]\n\t"
      "ushr v3.16b, v4.16b, #3\n\t"
      "uabd v5.16b, v5.16b, v2.16b\n\t"
      "umull v8.8h, v14.8b, v15.8b\n\t"
      "umull2 v12.8h, v14.16b, v15.16b\n\t"
      "usra v3.16b, v4.16b, #4\n\t"
      "ldr q4, [%[P], #4128]\n\t"
      "tbl v14.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v13.16b\n\t"
      "sub v13.16b, v13.16b, v21.16b\n\t"
      "uzp2 v8.16b, v8.16b, v12.16b\n\t"
      "add v23.16b, v23.16b, v3.16b\n\t"
      "umlal v28.8h, v3.8b, v0.8b\n\t"
      "umlal2 v29.8h, v3.16b, v0.16b\n\t"
      "umlal v30.8h, v3.8b, v1.8b\n\t"
      "ldr q0, [%[PR]]\n\t"
      "umlal2 v31.8h, v3.16b, v1.16b\n\t"
      "ldr q1, [%[PR], #4128]\n\t"
      "tbx v14.16b, {v20.16b}, v13.16b\n\t"
      "ldr q3, [%[P]]\n\t"
      "add %[PR], %[PR], #16\n\t"
      "add %[P], %[P], #16\n\t"
      "uabd v4.16b, v4.16b, v1.16b\n\t"
      "uabd v3.16b, v3.16b, v0.16b\n\t"
      "umull v12.8h, v8.8b, v14.8b\n\t"
      "umull2 v13.8h, v8.16b, v14.16b\n\t"
      "tbl v7.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v4.16b\n\t"
      "tbl v6.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v3.16b\n\t"
      "sub v3.16b, v3.16b, v21.16b\n\t"
      "sub v4.16b, v4.16b, v21.16b\n\t"
      "uzp2 v12.16b, v12.16b, v13.16b\n\t"
      "tbx v6.16b, {v20.16b}, v3.16b\n\t"
      "tbx v7.16b, {v20.16b}, v4.16b\n\t"
      "ushr v8.16b, v12.16b, #3\n\t"
      "umull v3.8h, v6.8b, v7.8b\n\t"
      "umull2 v4.8h, v6.16b, v7.16b\n\t"
      "tbl v6.16b, {v16.16b, v17.16b, v18.16b, v19.16b}, v5.16b\n\t"
      "sub v5.16b, v5.16b, v21.16b\n\t"
      "usra v8.16b, v12.16b, #4\n\t"
      "uzp2 v3.16b, v3.16b, v4.16b\n\t"
      "tbx v6.16b, {v20.16b}, v5.16b\n\t"
      "umlal v28.8h, v8.8b, v9.8b\n\t"
      "umlal2 v29.8h, v8.16b, v9.16b\n\t"
      "umlal v30.8h, v8.8b, v10.8b\n\t"
      "umull v4.8h, v3.8b, v6.8b\n\t"
      "umull2 v5.8h, v3.16b, v6.16b\n\t"
      "umlal2 v31.8h, v8.16b, v10.16b\n\t"
      "ld1r {v6.4s}, [%[num]]\n\t"
      "add v23.16b, v23.16b, v8.16b\n\t"
      "uzp2 v4.16b, v4.16b, v5.16b\n\t"
      "ushr v3.16b, v4.16b, #3\n\t"
      "usra v3.16b, v4.16b, #4\n\t"
      "add v23.16b, v23.16b, v3.16b\n\t"
      "umlal v28.8h, v3.8b, v0.8b\n\t"
      "umlal2 v29.8h, v3.16b, v0.16b\n\t"
      "umlal v30.8h, v3.8b, v1.8b\n\t"
      "umlal2 v31.8h, v3.16b, v1.16b\n\t"
      "uaddl v0.8h, v22.8b, v23.8b\n\t"
      "uaddl2 v1.8h, v22.16b, v23.16b\n\t"
      "uaddl v7.4s, v24.4h, v28.4h\n\t"
      "uaddl2 v8.4s, v24.8h, v28.8h\n\t"
      "uxtl v2.4s, v0.4h\n\t"
      "uxtl2 v3.4s, v0.8h\n\t"
      "uxtl v4.4s, v1.4h\n\t"
      "uxtl2 v5.4s, v1.8h\n\t"
      "ucvtf v2.4s, v2.4s\n\t"
      "ucvtf v3.4s, v3.4s\n\t"
      "ucvtf v4.4s, v4.4s\n\t"
      "ucvtf v5.4s, v5.4s\n\t"
      "fdiv v2.4s, v6.4s, v2.4s\n\t"
      "uaddl v9.4s, v25.4h, v29.4h\n\t"
      "uaddl2 v10.4s, v25.8h, v29.8h\n\t"
      "uaddl v11.4s, v26.4h, v30.4h\n\t"
      "uaddl2 v12.4s, v26.8h, v30.8h\n\t"
      "uaddl v13.4s, v27.4h, v31.4h\n\t"
      "uaddl2 v14.4s, v27.8h, v31.8h\n\t"
      "ucvtf v7.4s, v7.4s\n\t"
      "ucvtf v8.4s, v8.4s\n\t"
      "ucvtf v9.4s, v9.4s\n\t"
      "fdiv v3.4s, v6.4s, v3.4s\n\t"
      "ucvtf v10.4s, v10.4s\n\t"
      "ucvtf v11.4s, v11.4s\n\t"
      "ucvtf v12.4s, v12.4s\n\t"
      "ucvtf v13.4s, v13.4s\n\t"
      "ucvtf v14.4s, v14.4s\n\t"
      "fmul v7.4s, v7.4s, v2.4s\n\t"
      "fmul v11.4s, v11.4s, v2.4s\n\t"
      "fdiv v4.4s, v6.4s, v4.4s\n\t"
      "fcvtnu v7.4s, v7.4s\n\t"
      "fcvtnu v11.4s, v11.4s\n\t"
      "fmul v8.4s, v8.4s, v3.4s\n\t"
      "fmul v12.4s, v12.4s, v3.4s\n\t"
      "fcvtnu v8.4s, v8.4s\n\t"
      "fcvtnu v12.4s, v12.4s\n\t"
      "fdiv v5.4s, v6.4s, v5.4s\n\t"
      "uzp1 v7.8h, v7.8h, v8.8h\n\t"
      "uzp1 v11.8h, v11.8h, v12.8h\n\t"
      "fmul v9.4s, v9.4s, v4.4s\n\t"
      "fmul v13.4s, v13.4s, v4.4s\n\t"
      "fcvtnu v9.4s, v9.4s\n\t"
      "fcvtnu v13.4s, v13.4s\n\t"
      "fmul v10.4s, v10.4s, v5.4s\n\t"
      "fmul v14.4s, v14.4s, v5.4s\n\t"
      "fcvtnu v10.4s, v10.4s\n\t"
      "fcvtnu v14.4s, v14.4s\n\t"
      "uzp1 v9.8h, v9.8h, v10.8h\n\t"
      "uzp1 v13.8h, v13.8h, v14.8h\n\t"
      "uzp1 v7.16b, v7.16b, v9.16b\n\t"
      "uzp1 v11.16b, v11.16b, v13.16b\n\t"
      "str q7, [%[outU]], #16\n\t"
      "str q11, [%[outV]], #16\n\t"
      "subs %[k], %[k], #1\n\t"
      "b.ne 1b\n\t"
      : [P] "+r"(P), [PL] "+r"(PL), [PR] "+r"(PR), [outU] "+r"(oU), [outV] "+r"(oV),
        [k] "+r"(count)
      : [R] "r"(&r.uY1), [lut] "r"(t.lut), [num] "r"(&kMeanDividend), [w0] "r"(&w[0]),
        [w1] "r"(&w[1])
      : "x9", "x10", "x11", "x12", "x13", "x14", "x15", "x16", "x17", "v0", "v1", "v2", "v3",
        "v4", "v5", "v6", "v7", "v8", "v9", "v10", "v11", "v12", "v13", "v14", "v15", "v16", "v17",
        "v18", "v19", "v20", "v21", "v22", "v23", "v24", "v25", "v26", "v27", "v28", "v29", "v30",
        "v31", "cc", "memory");
}

// The rows of Pass1A64Rows::taken for outputs [lo, hi) of half-size row y
// (full-size row Y = 2y), kQuarterRow bytes apart: U even and odd columns,
// V even and odd, luma bytes 0 and 2 of every 4 of row 2Y.
void takePass1Rows(uint8_t* q, const uint8_t* u, const uint8_t* v, const uint8_t* luma, int lo,
                   int hi) {
  constexpr int R = kQuarterRow;
  int i = lo;
  for (; i + 16 <= hi; i += 16) {
    const uint8x16x2_t a = vld2q_u8(u + 2 * i), b = vld2q_u8(v + 2 * i);
    const uint8x16x4_t l = vld4q_u8(luma + 4 * i);
    vst1q_u8(q + i, a.val[0]);
    vst1q_u8(q + R + i, a.val[1]);
    vst1q_u8(q + 2 * R + i, b.val[0]);
    vst1q_u8(q + 3 * R + i, b.val[1]);
    vst1q_u8(q + 4 * R + i, l.val[0]);
    vst1q_u8(q + 5 * R + i, l.val[2]);
  }
  for (; i < hi; ++i) {
    q[i] = u[2 * i];
    q[R + i] = u[2 * i + 1];
    q[2 * R + i] = v[2 * i];
    q[3 * R + i] = v[2 * i + 1];
    q[4 * R + i] = luma[4 * i];
    q[5 * R + i] = luma[4 * i + 2];
  }
}
#endif

// The inner steps' lanes: aarch64 keeps 16 in registers, armv7 8, except
// in pass 2, whose five taps leave armv7 room for 16 (fewer instructions and
// fewer cycles on the Cortex-A9 and A57 models than 8; pass 1's eight taps
// and pass 3's two parities do not).
#if defined(__aarch64__)
using Inner = Q;
#else
using Inner = D;
#endif
template <int kPass>
using PassInner = std::conditional_t<kPass == 2, Q, Inner>;

// Steps over [x0, x0 + n): with `first` an Edge step at x0 clamps its left
// far taps, with `last` an Edge step ending at x0 + n its right far taps
// (reach lanes away, at most Edge::kOut; passes 1 and 2 take Q edges, whose
// 16 lanes hold their far taps, pass 3 Inner ones); the steps between are
// Inner steps (the template argument: ::Inner, or PassInner of the pass).
// Where they do not tile the run, the last Inner step ends where the final
// step starts, overlapping the one before it; the two are computed before
// either is stored, so that every step reads the source bytes of its
// outputs as they were (pass 3 runs in place) and the overlap gets equal
// bytes twice. Before a clamping last step, the Inner step before it starts
// early enough that its right far taps stay inside the row. A run with both
// edges is at least two Edge steps long. compute(x, kind, lanes) makes the
// outputs at x, store(x, out) stores them; run(x, count), where given, makes
// and stores count whole inner steps from x itself and returns the x after
// them.
struct NoRun {
  KQ_INLINE int operator()(int x, int) const { return x; }
};

template <class Edge, class Inner = ::Inner, class Compute, class Store, class Run = NoRun>
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
  if (lastX - x >= k) x = run(x, (lastX - x) / k);
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
      // The assembly inner steps.
      const size_t w = size_t(c->chromaWidth), lw = size_t(c->lumaWidth);
      const int M = c->margin, Y = 2 * y;
      const uint8_t* const uY = c->inU + size_t(Y) * w;
      const uint8_t* const vY = c->inV + size_t(Y) * w;
      const uint8_t* const lY = c->luma + size_t(2 * Y) * lw;
      const Pass1Armv7Rows rows{
          {uY, vY, uY + w, vY + w, lY, lY + 2 * lw},
          {c->inU + size_t(yUp) * w, c->inV + size_t(yUp) * w, c->luma + size_t(2 * yUp) * lw,
           uY - M, vY - M, lY - 2 * M, uY + M, vY + M, lY + 2 * M, c->inU + size_t(yDown) * w,
           c->inV + size_t(yDown) * w, c->luma + size_t(2 * yDown) * lw},
          {outU, outV}};
      steps<Q>(x0, n, first, last, s, compute, store, [&](int x, int count) {
        if (t.reach <= 80)
          pass1InnerArmv7Lut(&rows, t, x, count);
        else
          pass1InnerArmv7<W::kShiftOf>(&rows, t, x, count);
        return x + count * Inner::kOut;
      });
#else
      if (wh <= kQuarterMax && t.reach <= 80 && c->margin % 2 == 0) {
        // The assembly inner steps, with row Y's centres and taps taken out
        // for the columns they reach (the far taps at the even columns
        // x -/+ M / 2: the pass's margins are even).
        alignas(16) uint8_t q[6 * kQuarterRow];
        const size_t w = size_t(c->chromaWidth), lw = size_t(c->lumaWidth);
        const int Y = 2 * y;
        const uint8_t* const lY = c->luma + size_t(2 * Y) * lw;
        const uint8_t* const lUp = c->luma + size_t(2 * yUp) * lw;
        const uint8_t* const lDown = c->luma + size_t(2 * yDown) * lw;
        steps<Q>(x0, n, first, last, s, compute, store, [&](int x, int count) {
          const int end = x + 16 * count;
          takePass1Rows(q, c->inU + size_t(Y) * w, c->inV + size_t(Y) * w, lY,
                        x - s > 0 ? x - s : 0, end + s < wh ? end + s : wh);
          const size_t x2 = size_t(2 * x), x4 = size_t(4 * x);
          const Pass1A64Rows rows{q + x,
                                  q + x - s,
                                  q + x + s,
                                  c->inU + size_t(Y + 1) * w + x2,
                                  c->inV + size_t(Y + 1) * w + x2,
                                  lY + 2 * lw + x4,
                                  c->inU + size_t(yUp) * w + x2,
                                  c->inV + size_t(yUp) * w + x2,
                                  lUp + x4,
                                  c->inU + size_t(yDown) * w + x2,
                                  c->inV + size_t(yDown) * w + x2,
                                  lDown + x4,
                                  outU + x,
                                  outV + x};
          pass1InnerA64(rows, t, count);
          return end;
        });
      } else {
        steps<Q>(x0, n, first, last, s, compute, store);
      }
#endif
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
#if defined(__aarch64__)
      if (wh <= kQuarterMax && t.reach <= 80) {
        // The assembly inner steps, with the taps' luma taken out of rows
        // 4 yUp, 4 y, 4 yDown for the columns they reach.
        alignas(16) uint8_t q[3][kQuarterMax];
        const size_t lw = size_t(c->lumaWidth), w = size_t(c->chromaWidth);
        const int lo = x0 - s > 0 ? x0 - s : 0, hi = x0 + n + s < wh ? x0 + n + s : wh;
        takeQuarters(q, c->luma + size_t(4 * yUp) * lw, c->luma + size_t(4 * y) * lw,
                     c->luma + size_t(4 * yDown) * lw, lo, hi);
        const uint8_t* uMid = c->inU + size_t(y) * size_t(wh);
        const uint8_t* vMid = c->inV + size_t(y) * size_t(wh);
        const Pass2A64Rows rows{c->inU + size_t(yUp) * size_t(wh),
                                uMid - s,
                                uMid,
                                uMid + s,
                                c->inU + size_t(yDown) * size_t(wh),
                                c->inV + size_t(yUp) * size_t(wh),
                                vMid - s,
                                vMid,
                                vMid + s,
                                c->inV + size_t(yDown) * size_t(wh),
                                q[0],
                                q[1] - s,
                                q[1],
                                q[1] + s,
                                q[2],
                                outU,
                                outV};
        steps<Q, PassInner<2>>(x0, n, first, last, s, compute, store, [&](int x, int count) {
          pass2InnerA64(rows, c->srcU + size_t(2 * y) * w + 2 * x,
                        c->srcV + size_t(2 * y) * w + 2 * x, t, x, count);
          return x + count * PassInner<2>::kOut;
        });
        return;
      }
#else
      constexpr int kMaxRow = 2048;
      if (wh <= kMaxRow) {
        // The assembly inner steps, with the taps' luma taken out of rows
        // 4 yUp, 4 y, 4 yDown for the columns they reach.
        alignas(16) uint8_t q[3][kMaxRow];
        const size_t lw = size_t(c->lumaWidth), w = size_t(c->chromaWidth);
        const int lo = x0 - s > 0 ? x0 - s : 0, hi = x0 + n + s < wh ? x0 + n + s : wh;
        takeQuarters(q, c->luma + size_t(4 * yUp) * lw, c->luma + size_t(4 * y) * lw,
                     c->luma + size_t(4 * yDown) * lw, lo, hi);
        const uint8_t* uMid = c->inU + size_t(y) * size_t(wh);
        const uint8_t* vMid = c->inV + size_t(y) * size_t(wh);
        const Pass2Armv7Rows rows{
            {c->srcU + size_t(2 * y) * w, c->srcV + size_t(2 * y) * w},
            {q[0], q[1] - s, q[1], q[1] + s, q[2]},
            {c->inU + size_t(yUp) * size_t(wh), uMid - s, uMid, uMid + s,
             c->inU + size_t(yDown) * size_t(wh)},
            {c->inV + size_t(yUp) * size_t(wh), vMid - s, vMid, vMid + s,
             c->inV + size_t(yDown) * size_t(wh)},
            {outU, outV}};
        steps<Q, PassInner<2>>(x0, n, first, last, s, compute, store, [&](int x, int count) {
          if (t.reach <= 80)
            pass2InnerArmv7Lut(&rows, t, x, count);
          else
            pass2InnerArmv7<W::kShiftOf>(&rows, t, x, count);
          return x + count * PassInner<2>::kOut;
        });
        return;
      }
#endif
      steps<Q, PassInner<2>>(x0, n, first, last, s, compute, store);
    }
  }

  template <int kPass, int kShift>
  static void halfSizeRun(const KQChromaPassContext* c, const Tables& t, int x0, int n, int y,
                          int yUp, int yDown) {
    if (n < PassInner<kPass>::kOut) {
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
  // The steps of a pass 3 run over half-size columns [hx0, hx0 + hn) of full-size
  // row Y, chroma weighed by wc, luma by wl; run makes whole inner steps
  // where given (see steps).
  template <class WC, class WL, class Run = NoRun>
  static void pass3Steps(const KQChromaPassContext* context, const WC& wc, const WL& wl, int hx0,
                         int hn, int Y, int yUp, int y, int yDown, Run run = Run(),
                         const Tables* asmTables = nullptr) {
    const KQChromaPassContext local = *context;
    const KQChromaPassContext* c = &local;
    uint8_t* const outU = c->outU + size_t(Y) * size_t(c->chromaWidth);
    uint8_t* const outV = c->outV + size_t(Y) * size_t(c->chromaWidth);
    const Pass3Rows rows = pass3Rows(c, Y, yUp, y, yDown);
    const bool first = hx0 == 0, last = hx0 + hn == c->chromaWidth / 2;
#if defined(__aarch64__)
    const int wh = c->chromaWidth / 2;
    if (wh <= kQuarterMax) {
      // The luma the steps take is every fourth byte of its rows (ld4, which
      // holds an in-order core's load pipe for 8 cycles and needs an add per
      // address): taken out once per row here, the steps load it by ldr
      // with offsets.
      alignas(16) uint8_t q[9 * kQuarterRow];
      const int lo = hx0 > 0 ? hx0 - 1 : 0, hi = hx0 + hn < wh ? hx0 + hn + 1 : wh;
      // The assembly steps load the U and V centres of either parity from
      // rows too (5, 6: U even and odd columns; 7, 8: V).
      takeRows(q, rows, lo, hi, asmTables != nullptr);
      Pass3Rows taken = rows;
      taken.lumaCentre = q;
      taken.lumaUp = q + 2 * kQuarterRow;
      taken.lumaMid = q + 3 * kQuarterRow;
      taken.lumaDown = q + 4 * kQuarterRow;
      steps<Inner>(
          hx0, hn, first, last, 1,
          [&](int hx, auto kind, auto lanes) __attribute__((always_inline)) {
            return pass3Step<decltype(lanes), WC, WL, decltype(kind)::value, true>(taken, wc, wl,
                                                                                  hx);
          },
          [&](int hx, const Out2<Inner>& o) __attribute__((always_inline)) {
            Inner::storeInterleaved(outU + 2 * hx, o.even.u, o.odd.u);
            Inner::storeInterleaved(outV + 2 * hx, o.even.v, o.odd.v);
          },
          [&](int hx, int count) {
            if (asmTables == nullptr) return hx;
            return hx + Inner::kOut * pass3InnerA64(q, rows, outU, outV, *asmTables, hx, count);
          });
      return;
    }
#endif
    steps<Inner>(
        hx0, hn, first, last, 1,
        [&](int hx, auto kind, auto lanes) __attribute__((always_inline)) {
          return pass3Step<decltype(lanes), WC, WL, decltype(kind)::value>(rows, wc, wl, hx);
        },
        [&](int hx, const Out2<Inner>& o) __attribute__((always_inline)) {
          Inner::storeInterleaved(outU + 2 * hx, o.even.u, o.odd.u);
          Inner::storeInterleaved(outV + 2 * hx, o.even.v, o.odd.v);
        },
        run);
  }

#if !defined(__aarch64__)
  // armv7 where every difference from 96 on weighs as 0: the inner steps in
  // assembly (pass3InnerArmv7, or pass3InnerArmv7Lut where every difference
  // from 80 on weighs as 0), the edge and tail steps as above.
  template <int kShift>
  static void pass3StepsArmv7(const KQChromaPassContext* c, const Tables& t, int hx0, int hn,
                              int Y, int yUp, int y, int yDown) {
    const Pass3Rows r = pass3Rows(c, Y, yUp, y, yDown);
    const size_t w = size_t(c->chromaWidth);
    const Pass3Armv7Rows a{{r.srcU, r.srcV},
                           r.lumaCentre,
                           {r.uUp, r.uMid - 1, r.uMid, r.uMid + 1, r.uDown},
                           {r.vUp, r.vMid - 1, r.vMid, r.vMid + 1, r.vDown},
                           {r.lumaUp, r.lumaMid - 4, r.lumaMid, r.lumaMid + 4, r.lumaDown},
                           {c->outU + size_t(Y) * w, c->outV + size_t(Y) * w}};
    pass3Steps(c, ByFormula<kShift>(t), ByLutLuma24(t), hx0, hn, Y, yUp, y, yDown,
               [&](int hx, int count) {
                 if (t.reach <= 80)
                   pass3InnerArmv7Lut(&a, t, hx, count);
                 else
                   pass3InnerArmv7<kShift>(&a, t, hx, count);
                 return hx + count * Inner::kOut;
               });
  }
#endif

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
      if (t.reach <= 80)
        pass3Steps(c, ByLut<80>(t), ByLutLuma(t), X0 / 2, n / 2, Y, yUp, y, yDown, NoRun(), &t);
      else if (t.reach <= 96)
        pass3Steps(c, ByLut<96>(t), ByLutLuma(t), X0 / 2, n / 2, Y, yUp, y, yDown);
      else
        pass3Steps(c, ByLut<128>(t), ByLutLuma(t), X0 / 2, n / 2, Y, yUp, y, yDown);
#else
      if (t.reach <= 96)
        pass3StepsArmv7<kShift>(c, t, X0 / 2, n / 2, Y, yUp, y, yDown);
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
