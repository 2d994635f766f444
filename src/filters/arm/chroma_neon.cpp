// chroma_neon.cpp - NEON kernels of the chroma noise reduction (armv7 and
// aarch64, one source).
//
// Eight output pixels per step. Per tap and lane:
//   d   = |centre - tap|                       (u8, vabd)
//   k   = min(d >> shift, 8), r = d & (step-1)
//   wgt = W[k] - rshrn(S[k] * r, shift)         (W, S: 16-entry tables, 0 from 8 on)
//   w   = ((wV * wU) >> 8) * wY                 (u16, <= 64770)
//   w   = (w >> 11) + (w >> 12)                 (<= 46)
//   sum += w, sumU += w * tapU, sumV += w * tapV (u16; see the pass notes)
// then mean = floor((2 sumU + sum) / (2 sum)) per lane in 32 bits.
// The vector loops cover 4:2:0 luma without a guide; other ratios, guided
// pixels and the columns outside the vector range use the per-pixel code.
#include <arm_neon.h>

#include "filters/chroma_dsp.h"
#include "filters/chroma_rows.h"

namespace {

struct Tables {
  uint8x8x2_t w;  // row 0 weights 0..7, then zeros
  uint8x8x2_t s;  // row 0 slopes 0..7, then zeros
};

Tables loadTables(const KQChromaPassContext* c) {
  uint8_t w[16] = {0}, s[16] = {0};
  for (int k = 0; k < 8; ++k) {
    w[k] = c->weights[k];
    s[k] = c->slopes[k];
  }
  Tables t;
  t.w.val[0] = vld1_u8(w);
  t.w.val[1] = vld1_u8(w + 8);
  t.s.val[0] = vld1_u8(s);
  t.s.val[1] = vld1_u8(s + 8);
  return t;
}

template <int kShift>
inline uint8x8_t weightOf(uint8x8_t d, const Tables& t) {
  const uint8x8_t k = vmin_u8(vshr_n_u8(d, kShift), vdup_n_u8(8));
  const uint8x8_t r = vand_u8(d, vdup_n_u8((1 << kShift) - 1));
  // (S[k] * r + step / 2) >> shift, never above S[k]: fits 8 bits.
  const uint8x8_t corr = vrshrn_n_u16(vmull_u8(vtbl2_u8(t.s, k), r), kShift);
  return vsub_u8(vtbl2_u8(t.w, k), corr);
}

struct Acc {
  uint16x8_t w, u, v;
};

template <int kShift, int kLumaGain = 0>
inline void addTap(Acc* a, const Tables& t, uint8x8_t cY, uint8x8_t cU, uint8x8_t cV, uint8x8_t tY,
                   uint8x8_t tU, uint8x8_t tV) {
  // min(|dY| << gain, 255): a saturating shift.
  const uint8x8_t dY = kLumaGain > 0 ? vqshl_n_u8(vabd_u8(cY, tY), kLumaGain) : vabd_u8(cY, tY);
  const uint8x8_t wY = weightOf<kShift>(dY, t);
  const uint8x8_t wU = weightOf<kShift>(vabd_u8(cU, tU), t);
  const uint8x8_t wV = weightOf<kShift>(vabd_u8(cV, tV), t);
  const uint8x8_t uv = vshrn_n_u16(vmull_u8(wV, wU), 8);  // <= 254
  const uint16x8_t p = vmull_u8(uv, wY);                  // <= 64770
  const uint16x8_t w = vaddq_u16(vshrq_n_u16(p, 11), vshrq_n_u16(p, 12));
  const uint8x8_t w8 = vmovn_u16(w);
  a->w = vaddq_u16(a->w, w);
  a->u = vmlal_u8(a->u, w8, tU);
  a->v = vmlal_u8(a->v, w8, tV);
}

// Rounded mean of 4 lanes (sum <= 255 * (weight - 1), weight < 2^10).
inline uint32x4_t mean4(uint32x4_t sum, uint32x4_t weight) {
#if defined(__aarch64__)
  float32x4_t q = vdivq_f32(vcvtq_f32_u32(sum), vcvtq_f32_u32(weight));
  q = vaddq_f32(q, vdupq_n_f32(0.5f));
  q = vminq_f32(q, vdupq_n_f32(255.0f));
  return vcvtq_u32_f32(q);
#else
  // No vector division on armv7: estimate floor(num / den) with a refined
  // reciprocal (off by at most one) and correct it with exact integer
  // products. This equals the reference's float result (see kqChromaMean).
  const uint32x4_t num = vaddq_u32(vshlq_n_u32(sum, 1), weight);
  const uint32x4_t den = vshlq_n_u32(weight, 1);
  const float32x4_t fden = vcvtq_f32_u32(den);
  float32x4_t r = vrecpeq_f32(fden);
  r = vmulq_f32(vrecpsq_f32(fden, r), r);
  r = vmulq_f32(vrecpsq_f32(fden, r), r);
  float32x4_t q = vmulq_f32(vcvtq_f32_u32(num), r);
  q = vminq_f32(q, vdupq_n_f32(256.0f));
  uint32x4_t qi = vcvtq_u32_f32(q);
  qi = vaddq_u32(qi, vcgtq_u32(vmulq_u32(qi, den), num));                  // -1 where too large
  qi = vsubq_u32(qi, vcleq_u32(vaddq_u32(vmulq_u32(qi, den), den), num));  // +1 where too small
  return qi;
#endif
}

inline uint8x8_t mean8(uint32x4_t sumLo, uint32x4_t sumHi, uint16x8_t weight) {
  const uint32x4_t lo = mean4(sumLo, vmovl_u16(vget_low_u16(weight)));
  const uint32x4_t hi = mean4(sumHi, vmovl_u16(vget_high_u16(weight)));
  return vmovn_u16(vcombine_u16(vmovn_u32(lo), vmovn_u32(hi)));
}

inline uint8x8_t mean8(uint16x8_t sum, uint16x8_t weight) {
  return mean8(vmovl_u16(vget_low_u16(sum)), vmovl_u16(vget_high_u16(sum)), weight);
}

// Pass 1: outputs x0..x0+7 of half-size row y, i.e. full-size columns
// 2*x0..2*x0+15. vld2 splits a source row into even (the block's first
// pixel) and odd columns; vld4 on the luma row gives L(2x) in val[0] and
// L(2x+1) in val[2]. Block and far sums are kept apart (each <= 46920).
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
  const uint8x8x2_t u0 = vld2_u8(c->inU + row), u1 = vld2_u8(c->inU + row + w);
  const uint8x8x2_t v0 = vld2_u8(c->inV + row), v1 = vld2_u8(c->inV + row + w);
  const uint8x8x4_t l0 = vld4_u8(lumaY), l1 = vld4_u8(lumaY1);
  const uint8x8_t cU = vld2_u8(c->srcU + row).val[0];
  const uint8x8_t cV = vld2_u8(c->srcV + row).val[0];
  const uint8x8_t cY = l0.val[0];

  Acc block = {vdupq_n_u16(1), vdupq_n_u16(0), vdupq_n_u16(0)};
  addTap<kShift>(&block, t, cY, cU, cV, l0.val[0], u0.val[0], v0.val[0]);
  addTap<kShift>(&block, t, cY, cU, cV, l0.val[2], u0.val[1], v0.val[1]);
  addTap<kShift>(&block, t, cY, cU, cV, l1.val[0], u1.val[0], v1.val[0]);
  addTap<kShift>(&block, t, cY, cU, cV, l1.val[2], u1.val[1], v1.val[1]);

  Acc far = {vdupq_n_u16(0), vdupq_n_u16(0), vdupq_n_u16(0)};
  const size_t up = size_t(yUp) * w + X0, down = size_t(yDown) * w + X0;
  addTap<kShift>(&far, t, cY, cU, cV, vld4_u8(lumaUp).val[0], vld2_u8(c->inU + up).val[0],
                 vld2_u8(c->inV + up).val[0]);
  addTap<kShift>(&far, t, cY, cU, cV, vld4_u8(lumaY - 2 * M).val[0],
                 vld2_u8(c->inU + row - M).val[0], vld2_u8(c->inV + row - M).val[0]);
  addTap<kShift>(&far, t, cY, cU, cV, vld4_u8(lumaY + 2 * M).val[0],
                 vld2_u8(c->inU + row + M).val[0], vld2_u8(c->inV + row + M).val[0]);
  addTap<kShift>(&far, t, cY, cU, cV, vld4_u8(lumaDown).val[0], vld2_u8(c->inU + down).val[0],
                 vld2_u8(c->inV + down).val[0]);

  const uint16x8_t weight = vaddq_u16(block.w, far.w);
  const size_t o = size_t(y) * (w / 2) + x0;
  vst1_u8(c->outU + o, mean8(vaddl_u16(vget_low_u16(block.u), vget_low_u16(far.u)),
                             vaddl_u16(vget_high_u16(block.u), vget_high_u16(far.u)), weight));
  vst1_u8(c->outV + o, mean8(vaddl_u16(vget_low_u16(block.v), vget_low_u16(far.v)),
                             vaddl_u16(vget_high_u16(block.v), vget_high_u16(far.v)), weight));
}

// Pass 2: outputs x0..x0+7 of half-size row y. Source centres are the even
// columns of full-size row 2y; luma of a half-size position x is L(4x) on
// luma row 4y (vld4 val[0]).
template <int kShift>
inline void pass2Block(const KQChromaPassContext* c, const Tables& t, int x0, int y, int yUp,
                       int yDown) {
  const size_t w = size_t(c->chromaWidth), wh = w / 2, lw = size_t(c->lumaWidth);
  const int m = c->margin / 2;
  const uint8_t* lumaY = c->luma + size_t(4 * y) * lw + 4 * x0;
  const uint8_t* lumaUp = c->luma + size_t(4 * yUp) * lw + 4 * x0;
  const uint8_t* lumaDown = c->luma + size_t(4 * yDown) * lw + 4 * x0;
  const size_t src = size_t(2 * y) * w + 2 * x0;
  const uint8x8_t cU = vld2_u8(c->srcU + src).val[0];
  const uint8x8_t cV = vld2_u8(c->srcV + src).val[0];
  const uint8x8_t cY = vld4_u8(lumaY).val[0];
  const size_t at = size_t(y) * wh + x0, up = size_t(yUp) * wh + x0, down = size_t(yDown) * wh + x0;
  Acc a = {vdupq_n_u16(1), vdupq_n_u16(0), vdupq_n_u16(0)};
  addTap<kShift>(&a, t, cY, cU, cV, vld4_u8(lumaUp).val[0], vld1_u8(c->inU + up),
                 vld1_u8(c->inV + up));
  addTap<kShift>(&a, t, cY, cU, cV, vld4_u8(lumaY - 4 * m).val[0], vld1_u8(c->inU + at - m),
                 vld1_u8(c->inV + at - m));
  addTap<kShift>(&a, t, cY, cU, cV, cY, vld1_u8(c->inU + at), vld1_u8(c->inV + at));
  addTap<kShift>(&a, t, cY, cU, cV, vld4_u8(lumaY + 4 * m).val[0], vld1_u8(c->inU + at + m),
                 vld1_u8(c->inV + at + m));
  addTap<kShift>(&a, t, cY, cU, cV, vld4_u8(lumaDown).val[0], vld1_u8(c->inU + down),
                 vld1_u8(c->inV + down));
  vst1_u8(c->outU + at, mean8(a.u, a.w));
  vst1_u8(c->outV + at, mean8(a.v, a.w));
}

// Four half-size samples, each repeated for the two full-size pixels it holds.
inline uint8x8_t repeat4(const uint8_t* p) {
  const uint8x8_t v = vld1_u8(p);
  return vzip_u8(v, v).val[0];
}

// Luma at the full-size positions of four half-size samples (every 4th luma
// byte of a 16-byte run), each repeated twice.
inline uint8x8_t lumaRepeat4(const uint8_t* p) {
  const uint8x16_t v = vld1q_u8(p);
  uint8x8x2_t pair;
  pair.val[0] = vget_low_u8(v);
  pair.val[1] = vget_high_u8(v);
  static const uint8_t kIndex[8] = {0, 0, 4, 4, 8, 8, 12, 12};
  return vtbl2_u8(pair, vld1_u8(kIndex));
}

// Pass 3: full-size outputs 2*hx0..2*hx0+7 of row Y. The source bytes are
// loaded before the stores to the same addresses (in-place use).
template <int kShift>
inline void pass3Block(const KQChromaPassContext* c, const Tables& t, int hx0, int Y, int yUp,
                       int y, int yDown) {
  const size_t w = size_t(c->chromaWidth), wh = w / 2, lw = size_t(c->lumaWidth);
  const int X0 = 2 * hx0;
  const size_t at = size_t(Y) * w + X0;
  const uint8x8_t cU = vld1_u8(c->srcU + at);
  const uint8x8_t cV = vld1_u8(c->srcV + at);
  const uint8x8_t cY = vld2_u8(c->luma + size_t(2 * Y) * lw + 2 * X0).val[0];
  const uint8_t* lumaY = c->luma + size_t(4 * y) * lw + 4 * hx0;
  const uint8_t* lumaUp = c->luma + size_t(4 * yUp) * lw + 4 * hx0;
  const uint8_t* lumaDown = c->luma + size_t(4 * yDown) * lw + 4 * hx0;
  const size_t mid = size_t(y) * wh + hx0, up = size_t(yUp) * wh + hx0,
               down = size_t(yDown) * wh + hx0;
  Acc a = {vdupq_n_u16(1), vmovl_u8(cU), vmovl_u8(cV)};  // own colour, weight 1
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
  vst1_u8(c->outU + at, mean8(a.u, a.w));
  vst1_u8(c->outV + at, mean8(a.v, a.w));
}

// The runs, one block of 8 outputs per step; never whole rows (the edge
// pixels are the per-pixel code's).
struct NeonBlocks {
  static constexpr bool kVector = true;
  using Tables = ::Tables;
  template <int kShift>
  static Tables load(const KQChromaPassContext* c) {
    return loadTables(c);
  }
  static bool wholeRows(const KQChromaPassContext*, int) { return false; }
  template <int kShift>
  static void pass1(const KQChromaPassContext* c, const Tables& t, int x0, int n, int y, int yUp,
                    int yDown) {
    for (int x = x0; x < x0 + n; x += 8) pass1Block<kShift>(c, t, x, y, yUp, yDown);
  }
  template <int kShift>
  static void pass2(const KQChromaPassContext* c, const Tables& t, int x0, int n, int y, int yUp,
                    int yDown) {
    for (int x = x0; x < x0 + n; x += 8) pass2Block<kShift>(c, t, x, y, yUp, yDown);
  }
  template <int kShift>
  static void pass3(const KQChromaPassContext* c, const Tables& t, int X0, int n, int Y, int yUp,
                    int y, int yDown) {
    for (int X = X0; X < X0 + n; X += 8) pass3Block<kShift>(c, t, X / 2, Y, yUp, y, yDown);
  }
};

}  // namespace

void kqChromaDspInit_neon(KQChromaDsp* dsp) { kqChromaFillPassTable<NeonBlocks>(dsp); }
