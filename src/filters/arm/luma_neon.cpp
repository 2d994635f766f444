// luma_neon.cpp - NEON kernels of the luma filters (armv7 and aarch64).
#include <arm_neon.h>

#include "filters/luma_dsp.h"

namespace {

// One tap of the range-weighted average for 16 centres:
//   w = 30 (-) |p - c|, acc += w * p (u16, 8 taps at most per accumulator),
//   wsum += w (u8, 8 taps at most: 8 * 30 = 240 fits).
inline void nrTap(uint8x16_t p, uint8x16_t c, uint8x16_t k30, uint16x8_t& accLo, uint16x8_t& accHi,
                  uint8x16_t& wsum) {
  const uint8x16_t w = vqsubq_u8(k30, vabdq_u8(p, c));
  accLo = vmlal_u8(accLo, vget_low_u8(w), vget_low_u8(p));
  accHi = vmlal_u8(accHi, vget_high_u8(w), vget_high_u8(p));
  wsum = vaddq_u8(wsum, w);
}

// trunc(min(255, float(n) * vrecpe(float(d)))) for 4 lanes.
inline uint16x4_t nrDivide(uint32x4_t n, uint16x4_t d) {
  const float32x4_t est = vrecpeq_f32(vcvtq_f32_u32(vmovl_u16(d)));
  const float32x4_t q = vminq_f32(vmulq_f32(vcvtq_f32_u32(n), est), vdupq_n_f32(255.0f));
  return vmovn_u32(vcvtq_u32_f32(q));
}

}  // namespace

// 16 centres per step. Each tap is an unaligned 16-byte load at its offset;
// all of them lie inside the block's 32-byte window [x - 6, x + 25].
// N is split over two u16 accumulators of 8 taps each (8 * 30 * 255 =
// 61200 fits) and widened to u32 once; D = sum of two u8 weight sums.
void kqLumaNrRow_neon(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t width) {
  const int32_t blocks = (width - 16) / 16;
  const uint8x16_t k30 = vdupq_n_u8(30);
  const uint8_t* up4 = src - 4 * stride;
  const uint8_t* up1 = src - stride;
  const uint8_t* dn1 = src + stride;
  const uint8_t* dn4 = src + 4 * stride;
  for (int32_t j = 0; j < blocks; ++j) {
    const int32_t x = 6 + 16 * j;
    const uint8x16_t c = vld1q_u8(src + x);
    // Group A: centre and the rest of row y, row y - 1 (8 taps).
    uint16x8_t aLo = vmull_u8(vget_low_u8(c), vdup_n_u8(30));
    uint16x8_t aHi = vmull_u8(vget_high_u8(c), vdup_n_u8(30));
    uint8x16_t wa = k30;
    nrTap(vld1q_u8(src + x - 6), c, k30, aLo, aHi, wa);
    nrTap(vld1q_u8(src + x - 1), c, k30, aLo, aHi, wa);
    nrTap(vld1q_u8(src + x + 1), c, k30, aLo, aHi, wa);
    nrTap(vld1q_u8(src + x + 6), c, k30, aLo, aHi, wa);
    nrTap(vld1q_u8(up1 + x - 4), c, k30, aLo, aHi, wa);
    nrTap(vld1q_u8(up1 + x), c, k30, aLo, aHi, wa);
    nrTap(vld1q_u8(up1 + x + 4), c, k30, aLo, aHi, wa);
    // Group B: row y + 1, rows y -/+ 4 (8 taps).
    uint16x8_t bLo = vdupq_n_u16(0), bHi = vdupq_n_u16(0);
    uint8x16_t wb = vdupq_n_u8(0);
    nrTap(vld1q_u8(dn1 + x - 4), c, k30, bLo, bHi, wb);
    nrTap(vld1q_u8(dn1 + x - 2), c, k30, bLo, bHi, wb);
    nrTap(vld1q_u8(dn1 + x), c, k30, bLo, bHi, wb);
    nrTap(vld1q_u8(dn1 + x + 4), c, k30, bLo, bHi, wb);
    nrTap(vld1q_u8(up4 + x - 2), c, k30, bLo, bHi, wb);
    nrTap(vld1q_u8(up4 + x + 2), c, k30, bLo, bHi, wb);
    nrTap(vld1q_u8(dn4 + x - 2), c, k30, bLo, bHi, wb);
    nrTap(vld1q_u8(dn4 + x + 2), c, k30, bLo, bHi, wb);
    const uint16x8_t dLo = vaddl_u8(vget_low_u8(wa), vget_low_u8(wb));
    const uint16x8_t dHi = vaddl_u8(vget_high_u8(wa), vget_high_u8(wb));
    const uint16x4_t r0 = nrDivide(vaddl_u16(vget_low_u16(aLo), vget_low_u16(bLo)), vget_low_u16(dLo));
    const uint16x4_t r1 = nrDivide(vaddl_u16(vget_high_u16(aLo), vget_high_u16(bLo)), vget_high_u16(dLo));
    const uint16x4_t r2 = nrDivide(vaddl_u16(vget_low_u16(aHi), vget_low_u16(bHi)), vget_low_u16(dHi));
    const uint16x4_t r3 = nrDivide(vaddl_u16(vget_high_u16(aHi), vget_high_u16(bHi)), vget_high_u16(dHi));
    vst1q_u8(dst + x, vcombine_u8(vmovn_u16(vcombine_u16(r0, r1)), vmovn_u16(vcombine_u16(r2, r3))));
  }
}

// v = w * f + (128 - w) * o in wrapping u16 lanes, min(255, v >> 7).
void kqLumaBlendRow_neon(uint8_t* dst, const uint8_t* orig, int32_t width, int32_t weight) {
  const int32_t n = width & ~7;
  const uint16x8_t w = vdupq_n_u16(uint16_t(weight));
  const uint16x8_t iw = vdupq_n_u16(uint16_t(128u - uint32_t(weight)));
  const uint16x8_t k255 = vdupq_n_u16(255);
  int32_t x = 0;
  for (; x + 16 <= n; x += 16) {
    const uint8x16_t f = vld1q_u8(dst + x), o = vld1q_u8(orig + x);
    uint16x8_t lo = vmlaq_u16(vmulq_u16(vmovl_u8(vget_low_u8(f)), w), vmovl_u8(vget_low_u8(o)), iw);
    uint16x8_t hi = vmlaq_u16(vmulq_u16(vmovl_u8(vget_high_u8(f)), w), vmovl_u8(vget_high_u8(o)), iw);
    lo = vminq_u16(vshrq_n_u16(lo, 7), k255);
    hi = vminq_u16(vshrq_n_u16(hi, 7), k255);
    vst1q_u8(dst + x, vcombine_u8(vmovn_u16(lo), vmovn_u16(hi)));
  }
  for (; x < n; x += 8) {
    uint16x8_t v = vmlaq_u16(vmulq_u16(vmovl_u8(vld1_u8(dst + x)), w), vmovl_u8(vld1_u8(orig + x)), iw);
    vst1_u8(dst + x, vmovn_u16(vminq_u16(vshrq_n_u16(v, 7), k255)));
  }
}

// Per-pixel weight min(128, 13 * r + w) from the reference, r repeated
// `scale` times across x (exactly 8 / scale reference bytes read per step).
void kqLumaBlendRefRow_neon(uint8_t* dst, const uint8_t* orig, const uint8_t* ref, int32_t width,
                            int32_t weight, int32_t scale) {
  const int32_t n = width & ~7;
  const uint16x8_t base = vdupq_n_u16(uint16_t(weight));
  const uint16x8_t k128 = vdupq_n_u16(128);
  const uint16x8_t k255 = vdupq_n_u16(255);
  for (int32_t x = 0; x < n; x += 8) {
    uint8x8_t r;
    if (scale == 4) {
      // r0 r0 r0 r0 r1 r1 r1 r1
      r = vext_u8(vdup_n_u8(ref[x >> 2]), vdup_n_u8(ref[(x >> 2) + 1]), 4);
    } else if (scale == 2) {
      // r0 r0 r1 r1 r2 r2 r3 r3
      uint8x8_t q = vdup_n_u8(0);
      q = vset_lane_u8(ref[(x >> 1) + 0], q, 0);
      q = vset_lane_u8(ref[(x >> 1) + 1], q, 1);
      q = vset_lane_u8(ref[(x >> 1) + 2], q, 2);
      q = vset_lane_u8(ref[(x >> 1) + 3], q, 3);
      r = vzip_u8(q, q).val[0];
    } else {
      r = vld1_u8(ref + x);
    }
    const uint16x8_t w = vminq_u16(vmlal_u8(base, r, vdup_n_u8(13)), k128);
    const uint16x8_t iw = vsubq_u16(k128, w);
    const uint16x8_t v = vmlaq_u16(vmulq_u16(vmovl_u8(vld1_u8(dst + x)), w), vmovl_u8(vld1_u8(orig + x)), iw);
    vst1_u8(dst + x, vmovn_u16(vminq_u16(vshrq_n_u16(v, 7), k255)));
  }
}

// The instruction itself, 4 lanes at a time; the tail goes through a
// zero-padded stack copy so that no lane reads past the caller's array.
void kqRecipEstimate_neon(const float* src, float* dst, int32_t count) {
  int32_t i = 0;
  for (; i + 4 <= count; i += 4) vst1q_f32(dst + i, vrecpeq_f32(vld1q_f32(src + i)));
  if (i < count) {
    float in[4] = {1.0f, 1.0f, 1.0f, 1.0f}, out[4];
    for (int32_t k = 0; i + k < count; ++k) in[k] = src[i + k];
    vst1q_f32(out, vrecpeq_f32(vld1q_f32(in)));
    for (int32_t k = 0; i + k < count; ++k) dst[i + k] = out[k];
  }
}

namespace {

// Vertical 5-tap blur of 8 columns: sat_u8((o*(r0+r4) + i*(r1+r3) + c*r2 + 64) >> 7).
inline uint8x8_t sharpenV(const uint8_t* const* rows, int32_t x, uint16x8_t wo, uint16x8_t wi,
                          uint8x8_t wc) {
  uint16x8_t s = vmulq_u16(vaddl_u8(vld1_u8(rows[0] + x), vld1_u8(rows[4] + x)), wo);
  s = vmlaq_u16(s, vaddl_u8(vld1_u8(rows[1] + x), vld1_u8(rows[3] + x)), wi);
  s = vmlal_u8(s, vld1_u8(rows[2] + x), wc);
  return vqrshrn_n_u16(s, 7);
}

// Steps D .. output for 8 pixels, given the centre bytes and H.
inline uint8x8_t sharpenOut(uint8x8_t o, uint16x8_t h, int16x4_t gain, int16x8_t t, int16x8_t nt) {
  const int16x8_t o4 = vreinterpretq_s16_u16(vshll_n_u8(o, 2));
  const int16x8_t d = vsubq_s16(o4, vreinterpretq_s16_u16(vshrq_n_u16(h, 5)));
  // E = (D * g) >> 8 from 32-bit products, truncating narrow.
  const int16x8_t e = vcombine_s16(vshrn_n_s32(vmull_s16(vget_low_s16(d), gain), 8),
                                   vshrn_n_s32(vmull_s16(vget_high_s16(d), gain), 8));
  const int16x8_t c = vmaxq_s16(vminq_s16(e, vdupq_n_s16(120)), vdupq_n_s16(-120));
  const int16x8_t l = vminq_s16(t, vmaxq_s16(nt, d));
  const int16x8_t m = vcombine_s16(vshrn_n_s32(vmull_n_s16(vget_low_s16(l), 102), 8),
                                   vshrn_n_s32(vmull_n_s16(vget_high_s16(l), 102), 8));
  int16x8_t r = vsubq_s16(o4, m);
  r = vaddq_s16(r, vshrq_n_s16(c, 1));
  r = vaddq_s16(r, vshrq_n_s16(e, 1));
  return vqrshrun_n_s16(r, 2);
}

}  // namespace

// 8 pixels per step, the horizontal pass one block behind the vertical one:
// V(prev) | V(cur) | V(next) give x - 2 .. x + 2 through vext. The first
// block's left neighbours and the last block's right neighbours are the edge
// column repeated. The width % 8 tail uses the shared scalar tail form.
void kqSharpenRow_neon(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                       const KQSharpenParams* p) {
  const int32_t blocks = width / 8;
  if (blocks > 0) {
    const uint16x8_t wo = vdupq_n_u16(uint16_t(p->wOuter));
    const uint16x8_t wi = vdupq_n_u16(uint16_t(p->wInner));
    const uint8x8_t wc = vdup_n_u8(uint8_t(p->wCentre));
    const uint16x8_t wc16 = vdupq_n_u16(uint16_t(p->wCentre));
    const int16x4_t gain = vdup_n_s16(int16_t(uint16_t(p->gain)));
    const int16x8_t t = vdupq_n_s16(int16_t(uint16_t(p->threshold)));
    const int16x8_t nt = vnegq_s16(t);
    // Row pointers copied: byte stores through dst may alias the caller's
    // array, which would force a reload per use.
    const uint8_t* const r[5] = {rows[0], rows[1], rows[2], rows[3], rows[4]};
    uint8x8_t cur = sharpenV(r, 0, wo, wi, wc);
    uint8x8_t prev = vdup_lane_u8(cur, 0);
    for (int32_t j = 0; j < blocks; ++j) {
      const int32_t x = 8 * j;
      const uint8x8_t next = j + 1 < blocks ? sharpenV(r, x + 8, wo, wi, wc) : vdup_lane_u8(cur, 7);
      uint16x8_t h = vmulq_u16(vaddl_u8(vext_u8(prev, cur, 6), vext_u8(cur, next, 2)), wo);
      h = vmlaq_u16(h, vaddl_u8(vext_u8(prev, cur, 7), vext_u8(cur, next, 1)), wi);
      h = vmlaq_u16(h, vmovl_u8(cur), wc16);
      vst1_u8(dst + x, sharpenOut(vld1_u8(r[2] + x), h, gain, t, nt));
      prev = cur;
      cur = next;
    }
  }
  for (int32_t x = blocks * 8; x < width; ++x) dst[x] = kqSharpenTailPixel(rows[2], x, p);
}
