// luma_neon.cpp - NEON kernels of the luma filters (armv7 and aarch64).
#include <arm_neon.h>

#include <cstring>

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

// A tap's 16 bytes, loaded once the taps before it are summed into lo, hi
// and w: clang (32-bit ARM) would otherwise load and weigh every tap of a
// block first and keep them on the stack until the sums (1.6 times the
// instructions); GCC keeps the order by itself.
inline __attribute__((always_inline)) uint8x16_t nrLoad(const uint8_t* p, const uint16x8_t& lo,
                                                        const uint16x8_t& hi, const uint8x16_t& w) {
#if defined(__clang__) && defined(__arm__)
  asm volatile("" : "+r"(p) : "w"(lo), "w"(hi), "w"(w));
#else
  (void)lo, (void)hi, (void)w;
#endif
  return vld1q_u8(p);
}

// trunc(float(n) * vrecpe(float(d))) for 4 lanes, at most 257 (n / d <= 255
// and the estimate at most 2^-8 above 1 / d); the saturating narrow to bytes
// makes it min(255, ..) (aarch64 clamps the float instead: GCC schedules
// that loop better).
inline uint32x4_t nrDivide(uint32x4_t n, uint16x4_t d) {
  const float32x4_t est = vrecpeq_f32(vcvtq_f32_u32(vmovl_u16(d)));
  float32x4_t q = vmulq_f32(vcvtq_f32_u32(n), est);
#if defined(__aarch64__)
  q = vminq_f32(q, vdupq_n_f32(255.0f));
#endif
  return vcvtq_u32_f32(q);
}

// Sixteen quotients (each at most 257) as bytes, saturated at 255.
inline uint8x16_t nrBytes(uint32x4_t q0, uint32x4_t q1, uint32x4_t q2, uint32x4_t q3) {
#if defined(__aarch64__)
  const uint16x8_t lo = vuzp1q_u16(vreinterpretq_u16_u32(q0), vreinterpretq_u16_u32(q1));
  const uint16x8_t hi = vuzp1q_u16(vreinterpretq_u16_u32(q2), vreinterpretq_u16_u32(q3));
  return vuzp1q_u8(vreinterpretq_u8_u16(lo), vreinterpretq_u8_u16(hi));
#else
  return vcombine_u8(vqmovn_u16(vcombine_u16(vmovn_u32(q0), vmovn_u32(q1))),
                     vqmovn_u16(vcombine_u16(vmovn_u32(q2), vmovn_u32(q3))));
#endif
}

// The plain blend with a weight of 0..128 (strengths 0..10): 8-bit factors,
// v <= 128 * 255, so v >> 7 is at most 255.
// The weights are given in all 16 lanes (aarch64's high-half products take
// them so, and the low halves are free).
inline uint8x16_t blendSmall(uint8x16_t f, uint8x16_t o, uint8x16_t w, uint8x16_t iw) {
  uint16x8_t lo = vmull_u8(vget_low_u8(f), vget_low_u8(w));
  lo = vmlal_u8(lo, vget_low_u8(o), vget_low_u8(iw));
#if defined(__aarch64__)
  uint16x8_t hi = vmull_high_u8(f, w);
  hi = vmlal_high_u8(hi, o, iw);
  return vshrn_high_n_u16(vshrn_n_u16(lo, 7), hi, 7);
#else
  uint16x8_t hi = vmull_u8(vget_high_u8(f), vget_low_u8(w));
  hi = vmlal_u8(hi, vget_high_u8(o), vget_low_u8(iw));
  return vcombine_u8(vshrn_n_u16(lo, 7), vshrn_n_u16(hi, 7));
#endif
}

// 16 centres per step. Each tap is an unaligned 16-byte load at its offset;
// all of them lie inside the block's 32-byte window [x - 6, x + 25].
// N is split over two u16 accumulators of 8 taps each (8 * 30 * 255 =
// 61200 fits) and widened to u32 once; D = sum of two u8 weight sums.
// (The blended blocks are the assembly loops below.)
inline void nrRowBlocks(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t blocks) {
  const uint8x16_t k30 = vdupq_n_u8(30);
  const uint8_t* up4 = src - 4 * stride;
  const uint8_t* up1 = src - stride;
  const uint8_t* dn1 = src + stride;
  const uint8_t* dn4 = src + 4 * stride;
#if defined(__aarch64__)
  // Two blocks per iteration: fewer moves between the blocks (armv7, with
  // half the registers, spills then).
#pragma GCC unroll 2
#endif
  for (int32_t j = 0; j < blocks; ++j) {
    const int32_t x = 6 + 16 * j;
    const uint8x16_t c = vld1q_u8(src + x);
    // Group A: centre and the rest of row y, row y - 1 (8 taps).
    uint16x8_t aLo = vmull_u8(vget_low_u8(c), vget_low_u8(k30));
#if defined(__aarch64__)
    uint16x8_t aHi = vmull_high_u8(c, k30);
#else
    uint16x8_t aHi = vmull_u8(vget_high_u8(c), vget_low_u8(k30));
#endif
    uint8x16_t wa = k30;
    nrTap(nrLoad(src + x - 6, aLo, aHi, wa), c, k30, aLo, aHi, wa);
    nrTap(nrLoad(src + x - 1, aLo, aHi, wa), c, k30, aLo, aHi, wa);
    nrTap(nrLoad(src + x + 1, aLo, aHi, wa), c, k30, aLo, aHi, wa);
    nrTap(nrLoad(src + x + 6, aLo, aHi, wa), c, k30, aLo, aHi, wa);
    nrTap(nrLoad(up1 + x - 4, aLo, aHi, wa), c, k30, aLo, aHi, wa);
    nrTap(nrLoad(up1 + x, aLo, aHi, wa), c, k30, aLo, aHi, wa);
    nrTap(nrLoad(up1 + x + 4, aLo, aHi, wa), c, k30, aLo, aHi, wa);
    // Group B: row y + 1, rows y -/+ 4 (8 taps).
    uint16x8_t bLo = vdupq_n_u16(0), bHi = vdupq_n_u16(0);
    uint8x16_t wb = vdupq_n_u8(0);
    nrTap(nrLoad(dn1 + x - 4, bLo, bHi, wb), c, k30, bLo, bHi, wb);
    nrTap(nrLoad(dn1 + x - 2, bLo, bHi, wb), c, k30, bLo, bHi, wb);
    nrTap(nrLoad(dn1 + x, bLo, bHi, wb), c, k30, bLo, bHi, wb);
    nrTap(nrLoad(dn1 + x + 4, bLo, bHi, wb), c, k30, bLo, bHi, wb);
    nrTap(nrLoad(up4 + x - 2, bLo, bHi, wb), c, k30, bLo, bHi, wb);
    nrTap(nrLoad(up4 + x + 2, bLo, bHi, wb), c, k30, bLo, bHi, wb);
    nrTap(nrLoad(dn4 + x - 2, bLo, bHi, wb), c, k30, bLo, bHi, wb);
    nrTap(nrLoad(dn4 + x + 2, bLo, bHi, wb), c, k30, bLo, bHi, wb);
    const uint16x8_t dLo = vaddl_u8(vget_low_u8(wa), vget_low_u8(wb));
    const uint16x8_t dHi = vaddl_u8(vget_high_u8(wa), vget_high_u8(wb));
    const uint8x16_t f =
        nrBytes(nrDivide(vaddl_u16(vget_low_u16(aLo), vget_low_u16(bLo)), vget_low_u16(dLo)),
                nrDivide(vaddl_u16(vget_high_u16(aLo), vget_high_u16(bLo)), vget_high_u16(dLo)),
                nrDivide(vaddl_u16(vget_low_u16(aHi), vget_low_u16(bHi)), vget_low_u16(dHi)),
                nrDivide(vaddl_u16(vget_high_u16(aHi), vget_high_u16(bHi)), vget_high_u16(dHi)));
    vst1q_u8(dst + x, f);
  }
}
#if defined(__aarch64__)
// The blended blocks of KQLumaNrBlendRowFn for aarch64 (blocks >= 1): the
// sums and quotient of nrRowBlocks and the blend, in one loop whose registers never
// move. Compiled, the loop spends 4 moves and a spilled constant per block
// and clamps the quotient in float (4 fmin); here each row has one pointer,
// stepped by the post-indexed load of its tap at column 0 (or an add), the
// taps are loads at constant offsets from it, and the quotients, at most
// 257, saturate in the narrowing to bytes (uqxtn), which is min(255, q) as
// the float clamp was. The order is for in-order cores (llvm-mca's
// Cortex-A55 model: 156 cycles per block against the compiled loop's 158;
// its A57 model, for the big cores: 71 against 81): a block's taps are
// loaded while the block before is divided, and independent sums alternate.
// A block's taps (the same in the loop and in the last block).
#define KQ_NR_A64_TAPS \
  "umull v1.8h, v0.8b, %[k30].8b\n\t" \
  "umull2 v2.8h, v0.16b, %[k30].16b\n\t" \
  "uabd v11.16b, v4.16b, v0.16b\n\t" \
  "uabd v14.16b, v16.16b, v0.16b\n\t" \
  "uqsub v11.16b, %[k30].16b, v11.16b\n\t" \
  "uqsub v14.16b, %[k30].16b, v14.16b\n\t" \
  "uabd v24.16b, v5.16b, v0.16b\n\t" \
  "umlal v1.8h, v11.8b, v4.8b\n\t" \
  "uabd v25.16b, v17.16b, v0.16b\n\t" \
  "umull v12.8h, v14.8b, v16.8b\n\t" \
  "uqsub v24.16b, %[k30].16b, v24.16b\n\t" \
  "umlal2 v2.8h, v11.16b, v4.16b\n\t" \
  "uqsub v25.16b, %[k30].16b, v25.16b\n\t" \
  "umull2 v13.8h, v14.16b, v16.16b\n\t" \
  "add v3.16b, %[k30].16b, v11.16b\n\t" \
  "uabd v11.16b, v6.16b, v0.16b\n\t" \
  "umlal v1.8h, v24.8b, v5.8b\n\t" \
  "uabd v15.16b, v18.16b, v0.16b\n\t" \
  "umlal v12.8h, v25.8b, v17.8b\n\t" \
  "uqsub v11.16b, %[k30].16b, v11.16b\n\t" \
  "umlal2 v2.8h, v24.16b, v5.16b\n\t" \
  "uqsub v15.16b, %[k30].16b, v15.16b\n\t" \
  "umlal2 v13.8h, v25.16b, v17.16b\n\t" \
  "add v3.16b, v3.16b, v24.16b\n\t" \
  "add v14.16b, v14.16b, v25.16b\n\t" \
  "uabd v24.16b, v7.16b, v0.16b\n\t" \
  "umlal v1.8h, v11.8b, v6.8b\n\t" \
  "uabd v25.16b, v19.16b, v0.16b\n\t" \
  "umlal v12.8h, v15.8b, v18.8b\n\t" \
  "uqsub v24.16b, %[k30].16b, v24.16b\n\t" \
  "umlal2 v2.8h, v11.16b, v6.16b\n\t" \
  "uqsub v25.16b, %[k30].16b, v25.16b\n\t" \
  "umlal2 v13.8h, v15.16b, v18.16b\n\t" \
  "add v3.16b, v3.16b, v11.16b\n\t" \
  "add v14.16b, v14.16b, v15.16b\n\t" \
  "uabd v11.16b, v8.16b, v0.16b\n\t" \
  "umlal v1.8h, v24.8b, v7.8b\n\t" \
  "uabd v15.16b, v20.16b, v0.16b\n\t" \
  "umlal v12.8h, v25.8b, v19.8b\n\t" \
  "uqsub v11.16b, %[k30].16b, v11.16b\n\t" \
  "umlal2 v2.8h, v24.16b, v7.16b\n\t" \
  "uqsub v15.16b, %[k30].16b, v15.16b\n\t" \
  "umlal2 v13.8h, v25.16b, v19.16b\n\t" \
  "add v3.16b, v3.16b, v24.16b\n\t" \
  "add v14.16b, v14.16b, v25.16b\n\t" \
  "uabd v24.16b, v9.16b, v0.16b\n\t" \
  "umlal v1.8h, v11.8b, v8.8b\n\t" \
  "uabd v25.16b, v21.16b, v0.16b\n\t" \
  "umlal v12.8h, v15.8b, v20.8b\n\t" \
  "uqsub v24.16b, %[k30].16b, v24.16b\n\t" \
  "umlal2 v2.8h, v11.16b, v8.16b\n\t" \
  "uqsub v25.16b, %[k30].16b, v25.16b\n\t" \
  "umlal2 v13.8h, v15.16b, v20.16b\n\t" \
  "add v3.16b, v3.16b, v11.16b\n\t" \
  "add v14.16b, v14.16b, v15.16b\n\t" \
  "uabd v11.16b, v10.16b, v0.16b\n\t" \
  "umlal v1.8h, v24.8b, v9.8b\n\t" \
  "uabd v15.16b, v22.16b, v0.16b\n\t" \
  "umlal v12.8h, v25.8b, v21.8b\n\t" \
  "uqsub v11.16b, %[k30].16b, v11.16b\n\t" \
  "umlal2 v2.8h, v24.16b, v9.16b\n\t" \
  "uqsub v15.16b, %[k30].16b, v15.16b\n\t" \
  "umlal2 v13.8h, v25.16b, v21.16b\n\t" \
  "add v3.16b, v3.16b, v24.16b\n\t" \
  "add v14.16b, v14.16b, v25.16b\n\t" \
  "uabd v25.16b, v23.16b, v0.16b\n\t" \
  "umlal v1.8h, v11.8b, v10.8b\n\t" \
  "uqsub v25.16b, %[k30].16b, v25.16b\n\t" \
  "umlal v12.8h, v15.8b, v22.8b\n\t" \
  "umlal2 v2.8h, v11.16b, v10.16b\n\t" \
  "umlal2 v13.8h, v15.16b, v22.16b\n\t" \
  "add v3.16b, v3.16b, v11.16b\n\t" \
  "add v14.16b, v14.16b, v15.16b\n\t" \
  "umlal v12.8h, v25.8b, v23.8b\n\t" \
  "umlal2 v13.8h, v25.16b, v23.16b\n\t" \
  "add v14.16b, v14.16b, v25.16b\n\t"
void nrBlendBlocksA64(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t blocks,
                      int32_t weight) {
  const uint8x16_t k30 = vdupq_n_u8(30);
  const uint8x16_t bw = vdupq_n_u8(uint8_t(weight)), biw = vdupq_n_u8(uint8_t(128 - weight));
  const uint8_t* y0 = src + 6;
  const uint8_t* u1 = y0 - stride;
  const uint8_t* d1 = y0 + stride;
  const uint8_t* u4 = y0 - 4 * stride;
  const uint8_t* d4 = y0 + 4 * stride;
  uint8_t* out = dst + 6;
  int64_t n = blocks;
  asm volatile(
      // Block j: all 16 rows' bytes are in registers before its taps: group
      // A (the centre, weight 30; rows y at -6, -1, +1, +6 and y - 1 at -4,
      // 0, +4) in v0 v4-v10, group B (rows y + 1 at -4, -2, 0, +4, y - 4
      // and y + 4 at -2, +2) in v16-v23, loaded during block j - 1's
      // division (the last block loads nothing ahead: label 2). The taps go
      // two at a time, one of each group, the next pair weighed while this
      // one is summed: six independent sums in turn, so that on in-order
      // cores no instruction waits for the one before it. The centre's share
      // of the blend is taken first (v26 v27), which frees v0 for the next
      // block.
      "ldr q0, [%[y0]], #16\n\t"
      "ldur q4, [%[y0], #-22]\n\t"
      "ldur q5, [%[y0], #-17]\n\t"
      "ldur q6, [%[y0], #-15]\n\t"
      "ldur q7, [%[y0], #-10]\n\t"
      "ldur q16, [%[d1], #-4]\n\t"
      "ldur q17, [%[d1], #-2]\n\t"
      "ldur q8, [%[u1], #-4]\n\t"
      "ldur q9, [%[u1], #4]\n\t"
      "ldr q10, [%[u1]], #16\n\t"
      "ldur q19, [%[d1], #4]\n\t"
      "ldr q18, [%[d1]], #16\n\t"
      "ldur q20, [%[u4], #-2]\n\t"
      "ldur q21, [%[u4], #2]\n\t"
      "ldur q22, [%[d4], #-2]\n\t"
      "ldur q23, [%[d4], #2]\n\t"
      "add %[u4], %[u4], #16\n\t"
      "add %[d4], %[d4], #16\n\t"
      "subs %[n], %[n], #1\n\t"
      "b.eq 2f\n\t"
      "1:\n\t"
      KQ_NR_A64_TAPS
      "umull v26.8h, v0.8b, %[biw].8b\n\t"
      "umull2 v27.8h, v0.16b, %[biw].16b\n\t"
      "uaddl v24.8h, v3.8b, v14.8b\n\t"
      "uaddl2 v25.8h, v3.16b, v14.16b\n\t"
      "ldr q0, [%[y0]], #16\n\t"
      "ldur q4, [%[y0], #-22]\n\t"
      "uaddl v11.4s, v1.4h, v12.4h\n\t"
      "uaddl2 v15.4s, v1.8h, v12.8h\n\t"
      "uaddl v1.4s, v2.4h, v13.4h\n\t"
      "uaddl2 v2.4s, v2.8h, v13.8h\n\t"
      "ldur q5, [%[y0], #-17]\n\t"
      "ldur q6, [%[y0], #-15]\n\t"
      "uxtl v3.4s, v24.4h\n\t"
      "uxtl2 v12.4s, v24.8h\n\t"
      "uxtl v13.4s, v25.4h\n\t"
      "uxtl2 v14.4s, v25.8h\n\t"
      "ldur q7, [%[y0], #-10]\n\t"
      "ldur q16, [%[d1], #-4]\n\t"
      "ucvtf v3.4s, v3.4s\n\t"
      "ucvtf v12.4s, v12.4s\n\t"
      "ucvtf v13.4s, v13.4s\n\t"
      "ucvtf v14.4s, v14.4s\n\t"
      "ldur q17, [%[d1], #-2]\n\t"
      "ldur q8, [%[u1], #-4]\n\t"
      "frecpe v3.4s, v3.4s\n\t"
      "frecpe v12.4s, v12.4s\n\t"
      "frecpe v13.4s, v13.4s\n\t"
      "frecpe v14.4s, v14.4s\n\t"
      "ldur q9, [%[u1], #4]\n\t"
      "ldr q10, [%[u1]], #16\n\t"
      "ucvtf v11.4s, v11.4s\n\t"
      "ucvtf v15.4s, v15.4s\n\t"
      "ucvtf v1.4s, v1.4s\n\t"
      "ucvtf v2.4s, v2.4s\n\t"
      "ldur q19, [%[d1], #4]\n\t"
      "ldr q18, [%[d1]], #16\n\t"
      "fmul v11.4s, v11.4s, v3.4s\n\t"
      "fmul v15.4s, v15.4s, v12.4s\n\t"
      "fmul v1.4s, v1.4s, v13.4s\n\t"
      "fmul v2.4s, v2.4s, v14.4s\n\t"
      "ldur q20, [%[u4], #-2]\n\t"
      "ldur q21, [%[u4], #2]\n\t"
      "fcvtzu v11.4s, v11.4s\n\t"
      "fcvtzu v15.4s, v15.4s\n\t"
      "fcvtzu v1.4s, v1.4s\n\t"
      "fcvtzu v2.4s, v2.4s\n\t"
      "ldur q22, [%[d4], #-2]\n\t"
      "ldur q23, [%[d4], #2]\n\t"
      "uzp1 v11.8h, v11.8h, v15.8h\n\t"
      "uzp1 v1.8h, v1.8h, v2.8h\n\t"
      "add %[u4], %[u4], #16\n\t"
      "add %[d4], %[d4], #16\n\t"
      "uqxtn v24.8b, v11.8h\n\t"
      "uqxtn2 v24.16b, v1.8h\n\t"
      "umlal v26.8h, v24.8b, %[bw].8b\n\t"
      "umlal2 v27.8h, v24.16b, %[bw].16b\n\t"
      "shrn v25.8b, v26.8h, #7\n\t"
      "shrn2 v25.16b, v27.8h, #7\n\t"
      "str q25, [%[out]], #16\n\t"
      "subs %[n], %[n], #1\n\t"
      "b.ne 1b\n\t"
      "2:\n\t"
      KQ_NR_A64_TAPS
      "umull v26.8h, v0.8b, %[biw].8b\n\t"
      "umull2 v27.8h, v0.16b, %[biw].16b\n\t"
      "uaddl v24.8h, v3.8b, v14.8b\n\t"
      "uaddl2 v25.8h, v3.16b, v14.16b\n\t"
      "uaddl v11.4s, v1.4h, v12.4h\n\t"
      "uaddl2 v15.4s, v1.8h, v12.8h\n\t"
      "uaddl v1.4s, v2.4h, v13.4h\n\t"
      "uaddl2 v2.4s, v2.8h, v13.8h\n\t"
      "uxtl v3.4s, v24.4h\n\t"
      "uxtl2 v12.4s, v24.8h\n\t"
      "uxtl v13.4s, v25.4h\n\t"
      "uxtl2 v14.4s, v25.8h\n\t"
      "ucvtf v3.4s, v3.4s\n\t"
      "ucvtf v12.4s, v12.4s\n\t"
      "ucvtf v13.4s, v13.4s\n\t"
      "ucvtf v14.4s, v14.4s\n\t"
      "frecpe v3.4s, v3.4s\n\t"
      "frecpe v12.4s, v12.4s\n\t"
      "frecpe v13.4s, v13.4s\n\t"
      "frecpe v14.4s, v14.4s\n\t"
      "ucvtf v11.4s, v11.4s\n\t"
      "ucvtf v15.4s, v15.4s\n\t"
      "ucvtf v1.4s, v1.4s\n\t"
      "ucvtf v2.4s, v2.4s\n\t"
      "fmul v11.4s, v11.4s, v3.4s\n\t"
      "fmul v15.4s, v15.4s, v12.4s\n\t"
      "fmul v1.4s, v1.4s, v13.4s\n\t"
      "fmul v2.4s, v2.4s, v14.4s\n\t"
      "fcvtzu v11.4s, v11.4s\n\t"
      "fcvtzu v15.4s, v15.4s\n\t"
      "fcvtzu v1.4s, v1.4s\n\t"
      "fcvtzu v2.4s, v2.4s\n\t"
      "uzp1 v11.8h, v11.8h, v15.8h\n\t"
      "uzp1 v1.8h, v1.8h, v2.8h\n\t"
      "uqxtn v24.8b, v11.8h\n\t"
      "uqxtn2 v24.16b, v1.8h\n\t"
      "umlal v26.8h, v24.8b, %[bw].8b\n\t"
      "umlal2 v27.8h, v24.16b, %[bw].16b\n\t"
      "shrn v25.8b, v26.8h, #7\n\t"
      "shrn2 v25.16b, v27.8h, #7\n\t"
      "str q25, [%[out]], #16\n\t"
      : [y0] "+r"(y0), [u1] "+r"(u1), [d1] "+r"(d1), [u4] "+r"(u4), [d4] "+r"(d4),
        [out] "+r"(out), [n] "+r"(n)
      : [k30] "w"(k30), [bw] "w"(bw), [biw] "w"(biw)
      : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9", "v10", "v11", "v12", "v13",
        "v14", "v15", "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23", "v24", "v25", "v26",
        "v27", "cc", "memory");
}
#undef KQ_NR_A64_TAPS
#else
// The same for armv7, whose loads take no offsets: each row's pointer walks
// its taps by post-indexed loads, the steps between them in registers (row
// y: -6, -1, 0, +1, +6, then the next block's -6: 5, 1, 1, 5, 4; row y - 1:
// -4, 0, +4: 4, 4, 8; row y + 1: -4, -2, 0, +4: 2, 2, 4, 8; rows y -/+ 4:
// -2, +2: 4, 12). Compiled, the loop spends an add on every tap's address
// and 8 register moves per block (162 instructions; 136 here). Registers:
// q0 the centres, q1-q3 and q4-q6 the two groups' sums (lo, hi, weights),
// q7-q13 taps and their weights, q14 the blend weights, q15 30. The taps go
// in pairs, one of each group, the next pair's bytes loaded while this one
// is summed. Two blocks per iteration (an odd first one alone).
#define KQ_NR_ARMV7_BLOCK \
  "vld1.8 {d14-d15}, [%[y0]], %[s5]\n\t" \
  "vld1.8 {d16-d17}, [%[d1]], %[s2]\n\t" \
  "vld1.8 {d18-d19}, [%[y0]], %[s1]\n\t" \
  "vld1.8 {d0-d1}, [%[y0]], %[s1]\n\t" \
  "vld1.8 {d20-d21}, [%[d1]], %[s2]\n\t" \
  "vld1.8 {d22-d23}, [%[y0]], %[s5]\n\t" \
  "vld1.8 {d24-d25}, [%[d1]], %[s4]\n\t" \
  "vmull.u8 q1, d0, %e[k30]\n\t" \
  "vmull.u8 q2, d1, %e[k30]\n\t" \
  "vabd.u8 q13, q7, q0\n\t" \
  "vabd.u8 q6, q8, q0\n\t" \
  "vqsub.u8 q13, %q[k30], q13\n\t" \
  "vqsub.u8 q6, %q[k30], q6\n\t" \
  "vmlal.u8 q1, d26, d14\n\t" \
  "vmull.u8 q4, d12, d16\n\t" \
  "vmlal.u8 q2, d27, d15\n\t" \
  "vmull.u8 q5, d13, d17\n\t" \
  "vadd.i8 q3, %q[k30], q13\n\t" \
  "vabd.u8 q7, q9, q0\n\t" \
  "vabd.u8 q8, q10, q0\n\t" \
  "vqsub.u8 q7, %q[k30], q7\n\t" \
  "vqsub.u8 q8, %q[k30], q8\n\t" \
  "vmlal.u8 q1, d14, d18\n\t" \
  "vld1.8 {d26-d27}, [%[y0]], %[s4]\n\t" \
  "vmlal.u8 q4, d16, d20\n\t" \
  "vmlal.u8 q2, d15, d19\n\t" \
  "vmlal.u8 q5, d17, d21\n\t" \
  "vadd.i8 q3, q3, q7\n\t" \
  "vadd.i8 q6, q6, q8\n\t" \
  "vabd.u8 q7, q11, q0\n\t" \
  "vabd.u8 q8, q12, q0\n\t" \
  "vqsub.u8 q7, %q[k30], q7\n\t" \
  "vqsub.u8 q8, %q[k30], q8\n\t" \
  "vmlal.u8 q1, d14, d22\n\t" \
  "vld1.8 {d18-d19}, [%[d1]], %[s8]\n\t" \
  "vmlal.u8 q4, d16, d24\n\t" \
  "vld1.8 {d20-d21}, [%[u1]], %[s4]\n\t" \
  "vmlal.u8 q2, d15, d23\n\t" \
  "vmlal.u8 q5, d17, d25\n\t" \
  "vadd.i8 q3, q3, q7\n\t" \
  "vadd.i8 q6, q6, q8\n\t" \
  "vabd.u8 q7, q13, q0\n\t" \
  "vabd.u8 q8, q9, q0\n\t" \
  "vqsub.u8 q7, %q[k30], q7\n\t" \
  "vqsub.u8 q8, %q[k30], q8\n\t" \
  "vmlal.u8 q1, d14, d26\n\t" \
  "vld1.8 {d22-d23}, [%[u4]], %[s4]\n\t" \
  "vmlal.u8 q4, d16, d18\n\t" \
  "vld1.8 {d24-d25}, [%[u1]], %[s4]\n\t" \
  "vmlal.u8 q2, d15, d27\n\t" \
  "vmlal.u8 q5, d17, d19\n\t" \
  "vadd.i8 q3, q3, q7\n\t" \
  "vadd.i8 q6, q6, q8\n\t" \
  "vabd.u8 q7, q10, q0\n\t" \
  "vabd.u8 q8, q11, q0\n\t" \
  "vqsub.u8 q7, %q[k30], q7\n\t" \
  "vqsub.u8 q8, %q[k30], q8\n\t" \
  "vmlal.u8 q1, d14, d20\n\t" \
  "vld1.8 {d18-d19}, [%[u4]], %[s12]\n\t" \
  "vmlal.u8 q4, d16, d22\n\t" \
  "vld1.8 {d26-d27}, [%[u1]], %[s8]\n\t" \
  "vmlal.u8 q2, d15, d21\n\t" \
  "vmlal.u8 q5, d17, d23\n\t" \
  "vadd.i8 q3, q3, q7\n\t" \
  "vadd.i8 q6, q6, q8\n\t" \
  "vabd.u8 q7, q12, q0\n\t" \
  "vabd.u8 q8, q9, q0\n\t" \
  "vqsub.u8 q7, %q[k30], q7\n\t" \
  "vqsub.u8 q8, %q[k30], q8\n\t" \
  "vmlal.u8 q1, d14, d24\n\t" \
  "vld1.8 {d20-d21}, [%[d4]], %[s4]\n\t" \
  "vmlal.u8 q4, d16, d18\n\t" \
  "vld1.8 {d22-d23}, [%[d4]], %[s12]\n\t" \
  "vmlal.u8 q2, d15, d25\n\t" \
  "vmlal.u8 q5, d17, d19\n\t" \
  "vadd.i8 q3, q3, q7\n\t" \
  "vadd.i8 q6, q6, q8\n\t" \
  "vabd.u8 q7, q13, q0\n\t" \
  "vabd.u8 q8, q10, q0\n\t" \
  "vqsub.u8 q7, %q[k30], q7\n\t" \
  "vqsub.u8 q8, %q[k30], q8\n\t" \
  "vmlal.u8 q1, d14, d26\n\t" \
  "vmlal.u8 q4, d16, d20\n\t" \
  "vmlal.u8 q2, d15, d27\n\t" \
  "vmlal.u8 q5, d17, d21\n\t" \
  "vadd.i8 q3, q3, q7\n\t" \
  "vadd.i8 q6, q6, q8\n\t" \
  "vabd.u8 q7, q11, q0\n\t" \
  "vqsub.u8 q7, %q[k30], q7\n\t" \
  "vmlal.u8 q4, d14, d22\n\t" \
  "vmlal.u8 q5, d15, d23\n\t" \
  "vadd.i8 q6, q6, q7\n\t" \
  "vaddl.u8 q8, d6, d12\n\t" \
  "vaddl.u8 q9, d7, d13\n\t" \
  "vaddl.u16 q10, d2, d8\n\t" \
  "vaddl.u16 q11, d3, d9\n\t" \
  "vaddl.u16 q12, d4, d10\n\t" \
  "vaddl.u16 q13, d5, d11\n\t" \
  "vmovl.u16 q1, d16\n\t" \
  "vmovl.u16 q2, d17\n\t" \
  "vmovl.u16 q3, d18\n\t" \
  "vmovl.u16 q4, d19\n\t" \
  "vcvt.f32.u32 q1, q1\n\t" \
  "vcvt.f32.u32 q2, q2\n\t" \
  "vcvt.f32.u32 q3, q3\n\t" \
  "vcvt.f32.u32 q4, q4\n\t" \
  "vrecpe.f32 q1, q1\n\t" \
  "vrecpe.f32 q2, q2\n\t" \
  "vrecpe.f32 q3, q3\n\t" \
  "vrecpe.f32 q4, q4\n\t" \
  "vcvt.f32.u32 q10, q10\n\t" \
  "vcvt.f32.u32 q11, q11\n\t" \
  "vcvt.f32.u32 q12, q12\n\t" \
  "vcvt.f32.u32 q13, q13\n\t" \
  "vmul.f32 q10, q10, q1\n\t" \
  "vmul.f32 q11, q11, q2\n\t" \
  "vmul.f32 q12, q12, q3\n\t" \
  "vmul.f32 q13, q13, q4\n\t" \
  "vmull.u8 q7, d0, %f[bwi]\n\t" \
  "vmull.u8 q8, d1, %f[bwi]\n\t" \
  "vcvt.u32.f32 q10, q10\n\t" \
  "vcvt.u32.f32 q11, q11\n\t" \
  "vcvt.u32.f32 q12, q12\n\t" \
  "vcvt.u32.f32 q13, q13\n\t" \
  "vuzp.16 q10, q11\n\t" \
  "vuzp.16 q12, q13\n\t" \
  "vqmovn.u16 d26, q10\n\t" \
  "vqmovn.u16 d27, q12\n\t" \
  "vmlal.u8 q7, d26, %e[bwi]\n\t" \
  "vmlal.u8 q8, d27, %e[bwi]\n\t" \
  "vshrn.i16 d26, q7, #7\n\t" \
  "vshrn.i16 d27, q8, #7\n\t" \
  "vst1.8 {d26-d27}, [%[out]]!\n\t"
void nrBlendBlocksArmv7(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t blocks,
                        int32_t weight) {
  const uint8x16_t k30 = vdupq_n_u8(30);
  const uint8x16_t bwi = vcombine_u8(vdup_n_u8(uint8_t(weight)), vdup_n_u8(uint8_t(128 - weight)));
  const uint8_t* y0 = src;               // column x - 6 of block 0 (x = 6)
  const uint8_t* u1 = src + 2 - stride;  // x - 4
  const uint8_t* d1 = src + 2 + stride;
  const uint8_t* u4 = src + 4 - 4 * stride;  // x - 2
  const uint8_t* d4 = src + 4 + 4 * stride;
  uint8_t* out = dst + 6;
  int32_t n = blocks;
  const int32_t s1 = 1, s2 = 2, s4 = 4, s5 = 5, s8 = 8, s12 = 12;
  asm volatile(
      "tst %[n], #1\n\t"
      "beq 1f\n\t"
      KQ_NR_ARMV7_BLOCK
      "subs %[n], %[n], #1\n\t"
      "beq 2f\n\t"
      "1:\n\t"
      KQ_NR_ARMV7_BLOCK
      KQ_NR_ARMV7_BLOCK
      "subs %[n], %[n], #2\n\t"
      "bne 1b\n\t"
      "2:\n\t"
      : [y0] "+r"(y0), [u1] "+r"(u1), [d1] "+r"(d1), [u4] "+r"(u4), [d4] "+r"(d4),
        [out] "+r"(out), [n] "+r"(n)
      : [k30] "w"(k30), [bwi] "w"(bwi), [s1] "r"(s1), [s2] "r"(s2), [s4] "r"(s4), [s5] "r"(s5),
        [s8] "r"(s8), [s12] "r"(s12)
      : "d0", "d1", "d2", "d3", "d4", "d5", "d6", "d7", "d8", "d9", "d10", "d11", "d12", "d13",
        "d14", "d15", "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26",
        "d27", "cc", "memory");
}
#undef KQ_NR_ARMV7_BLOCK
#endif

}  // namespace

void kqLumaNrRow_neon(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t width) {
  nrRowBlocks(dst, src, stride, (width - 16) / 16);
}

void kqLumaNrBlendRow_neon(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t blocks,
                           int32_t weight) {
  if (blocks <= 0) return;
#if defined(__aarch64__)
  nrBlendBlocksA64(dst, src, stride, blocks, weight);
#else
  nrBlendBlocksArmv7(dst, src, stride, blocks, weight);
#endif
}

namespace {

// Exact floor(n / d) of 4 lanes, n < 2^17, 30 <= d <= 480: the reference's
// float quotient truncated (a quotient that is not whole lies at least 1 / d
// below the next integer, far more than the rounding of a quotient below
// 256). aarch64 divides; armv7 has no vector division and truncates
// n * r + 2^-11 with r the reciprocal estimate refined twice (relative error
// below 2^-21): the product is then within 2^-13 of n / d, so the bias keeps
// a whole quotient above its integer and stays below the 1 / d margin.
inline uint32x4_t exactQuotient(uint32x4_t n, uint32x4_t d) {
  const float32x4_t fn = vcvtq_f32_u32(n), fd = vcvtq_f32_u32(d);
#if defined(__aarch64__)
  return vcvtq_u32_f32(vdivq_f32(fn, fd));
#else
  float32x4_t r = vrecpeq_f32(fd);
  r = vmulq_f32(vrecpsq_f32(fd, r), r);
  r = vmulq_f32(vrecpsq_f32(fd, r), r);
  return vcvtq_u32_f32(vaddq_f32(vmulq_f32(fn, r), vdupq_n_f32(1.0f / 2048.0f)));
#endif
}

// Sixteen centres of the border kernel: c0 points at the centre row's
// column x, r[k] at the tap rows' column x + s (row 0 the centre row, then
// y - 2, y + 2, y - 4, y + 4). Two groups of seven taps (the first with the
// centre's own weight 30) keep N in u16 and D in u8 lanes.
inline __attribute__((always_inline)) uint8x16_t borderBlock(const uint8_t* c0,
                                                             const uint8_t* const r[5]) {
  const uint8x16_t k30 = vdupq_n_u8(30);
  const uint8x16_t c = vld1q_u8(c0);
  uint16x8_t aLo = vmull_u8(vget_low_u8(c), vdup_n_u8(30));
  uint16x8_t aHi = vmull_u8(vget_high_u8(c), vdup_n_u8(30));
  uint8x16_t wa = k30;
  nrTap(nrLoad(r[0] - 6, aLo, aHi, wa), c, k30, aLo, aHi, wa);
  nrTap(nrLoad(r[0] - 1, aLo, aHi, wa), c, k30, aLo, aHi, wa);
  nrTap(nrLoad(r[0] + 1, aLo, aHi, wa), c, k30, aLo, aHi, wa);
  nrTap(nrLoad(r[0] + 6, aLo, aHi, wa), c, k30, aLo, aHi, wa);
  nrTap(nrLoad(r[1] - 4, aLo, aHi, wa), c, k30, aLo, aHi, wa);
  nrTap(nrLoad(r[1], aLo, aHi, wa), c, k30, aLo, aHi, wa);
  nrTap(nrLoad(r[1] + 4, aLo, aHi, wa), c, k30, aLo, aHi, wa);
  uint16x8_t bLo = vdupq_n_u16(0), bHi = vdupq_n_u16(0);
  uint8x16_t wb = vdupq_n_u8(0);
  nrTap(nrLoad(r[2] - 4, bLo, bHi, wb), c, k30, bLo, bHi, wb);
  nrTap(nrLoad(r[2], bLo, bHi, wb), c, k30, bLo, bHi, wb);
  nrTap(nrLoad(r[2] + 4, bLo, bHi, wb), c, k30, bLo, bHi, wb);
  nrTap(nrLoad(r[3] - 2, bLo, bHi, wb), c, k30, bLo, bHi, wb);
  nrTap(nrLoad(r[3] + 2, bLo, bHi, wb), c, k30, bLo, bHi, wb);
  nrTap(nrLoad(r[4] - 2, bLo, bHi, wb), c, k30, bLo, bHi, wb);
  nrTap(nrLoad(r[4] + 2, bLo, bHi, wb), c, k30, bLo, bHi, wb);
  const uint16x8_t dLo = vaddl_u8(vget_low_u8(wa), vget_low_u8(wb));
  const uint16x8_t dHi = vaddl_u8(vget_high_u8(wa), vget_high_u8(wb));
  const uint32x4_t q0 =
      exactQuotient(vaddl_u16(vget_low_u16(aLo), vget_low_u16(bLo)), vmovl_u16(vget_low_u16(dLo)));
  const uint32x4_t q1 = exactQuotient(vaddl_u16(vget_high_u16(aLo), vget_high_u16(bLo)),
                                      vmovl_u16(vget_high_u16(dLo)));
  const uint32x4_t q2 =
      exactQuotient(vaddl_u16(vget_low_u16(aHi), vget_low_u16(bHi)), vmovl_u16(vget_low_u16(dHi)));
  const uint32x4_t q3 = exactQuotient(vaddl_u16(vget_high_u16(aHi), vget_high_u16(bHi)),
                                      vmovl_u16(vget_high_u16(dHi)));
  return vcombine_u8(vmovn_u16(vcombine_u16(vmovn_u32(q0), vmovn_u32(q1))),
                     vmovn_u16(vcombine_u16(vmovn_u32(q2), vmovn_u32(q3))));
}

}  // namespace

// Blocks of 16 centres straight from the rows (the caller keeps every tap of
// the run inside them), the last one ending at the run's end; a run shorter
// than a block goes through zero-padded copies of the bytes it reads.
void kqLumaNrBorderRun_neon(uint8_t* dst, const uint8_t* const* rows, int32_t x, int32_t count,
                            int32_t s) {
  if (count <= 0) return;
  if (count >= 16) {
    const int32_t end = x + count;
    for (int32_t i = x;; i += 16) {
      if (i > end - 16) i = end - 16;
      const uint8_t* r[5] = {rows[0] + i + s, rows[1] + i + s, rows[2] + i + s, rows[3] + i + s,
                             rows[4] + i + s};
      vst1q_u8(dst + i, borderBlock(rows[0] + i, r));
      if (i == end - 16) return;
    }
  }
  // Tap bytes from column x + s - 6 to x + count - 1 + s + 6 at buf[k][0..],
  // the centres at centre[0..].
  uint8_t buf[5][48] = {}, centre[16] = {}, out[16];
  const uint8_t* r[5];
  for (int32_t k = 0; k < 5; ++k) {
    std::memcpy(buf[k], rows[k] + x + s - 6, size_t(count + 12));
    r[k] = buf[k] + 6;
  }
  std::memcpy(centre, rows[0] + x, size_t(count));
  vst1q_u8(out, borderBlock(centre, r));
  std::memcpy(dst + x, out, size_t(count));
}

// v = w * f + (128 - w) * o in wrapping u16 lanes, min(255, v >> 7).
void kqLumaBlendRow_neon(uint8_t* dst, const uint8_t* orig, int32_t width, int32_t weight) {
  const int32_t n = width & ~7;
  if (uint32_t(weight) <= 128) {
    const uint8x16_t w = vdupq_n_u8(uint8_t(weight)), iw = vdupq_n_u8(uint8_t(128 - weight));
    int32_t x = 0;
    for (; x + 16 <= n; x += 16)
      vst1q_u8(dst + x, blendSmall(vld1q_u8(dst + x), vld1q_u8(orig + x), w, iw));
    if (x < n) {  // 8 left
      uint16x8_t v = vmull_u8(vld1_u8(dst + x), vget_low_u8(w));
      v = vmlal_u8(v, vld1_u8(orig + x), vget_low_u8(iw));
      vst1_u8(dst + x, vshrn_n_u16(v, 7));
    }
    return;
  }
  const uint16x8_t w = vdupq_n_u16(uint16_t(weight));
  const uint16x8_t iw = vdupq_n_u16(uint16_t(128u - uint32_t(weight)));
  const uint16x8_t k255 = vdupq_n_u16(255);
  int32_t x = 0;
  for (; x + 16 <= n; x += 16) {
    const uint8x16_t f = vld1q_u8(dst + x), o = vld1q_u8(orig + x);
    uint16x8_t lo = vmlaq_u16(vmulq_u16(vmovl_u8(vget_low_u8(f)), w), vmovl_u8(vget_low_u8(o)), iw);
    uint16x8_t hi =
        vmlaq_u16(vmulq_u16(vmovl_u8(vget_high_u8(f)), w), vmovl_u8(vget_high_u8(o)), iw);
    lo = vminq_u16(vshrq_n_u16(lo, 7), k255);
    hi = vminq_u16(vshrq_n_u16(hi, 7), k255);
    vst1q_u8(dst + x, vcombine_u8(vmovn_u16(lo), vmovn_u16(hi)));
  }
  for (; x < n; x += 8) {
    uint16x8_t v =
        vmlaq_u16(vmulq_u16(vmovl_u8(vld1_u8(dst + x)), w), vmovl_u8(vld1_u8(orig + x)), iw);
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
    const uint16x8_t v =
        vmlaq_u16(vmulq_u16(vmovl_u8(vld1_u8(dst + x)), w), vmovl_u8(vld1_u8(orig + x)), iw);
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

// Steps D .. output for 8 pixels, given the centre bytes and H: the
// general form, with E from 32-bit products (any gain).
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

// The sharpening row in two passes over chunks of columns, 16 per step:
// the vertical blur V of the chunk goes to a line buffer, then the
// horizontal taps are unaligned loads from it (V(-1) = V(-2) = V(0) and
// V(nv) = V(nv + 1) = V(nv - 1) are stored beside the row). A step that
// would run past the end is redone at end - 16, rewriting equal bytes.
struct SharpenNeon {
  static constexpr int32_t kChunk = 2048;
  // V kept left of a chunk (a redone step starts up to 16 before it).
  static constexpr int32_t kLeft = 32;

  uint16x8_t wo, wi;
  uint8x8_t wc, k128;
  int16x4_t gain4;
  int16x8_t gainK, t, nt;
  const uint8_t* rows[5];

  SharpenNeon(const uint8_t* const* r, const KQSharpenParams* p) {
    wo = vdupq_n_u16(uint16_t(p->wOuter));
    wi = vdupq_n_u16(uint16_t(p->wInner));
    wc = vdup_n_u8(uint8_t(p->wCentre));
    k128 = vdup_n_u8(128);
    const int16_t g = int16_t(uint16_t(p->gain));
    gain4 = vdup_n_s16(g);
    gainK = vdupq_n_s16(int16_t(uint16_t(-2 * g)));  // read only when |g| <= 8191
    t = vdupq_n_s16(int16_t(uint16_t(p->threshold)));
    nt = vnegq_s16(t);
    for (int k = 0; k < 5; ++k) rows[k] = r[k];
  }

  // The symmetric 5-tap sum outer*(a + e) + inner*(b + d) + centre*c of 16
  // columns, as two halves of 8 in 16-bit lanes (at most 128 * 255).
  void taps(uint8x16_t a, uint8x16_t b, uint8x16_t c, uint8x16_t d, uint8x16_t e, uint16x8_t& lo,
            uint16x8_t& hi) const {
    lo = vmulq_u16(vaddl_u8(vget_low_u8(a), vget_low_u8(e)), wo);
    hi = vmulq_u16(vaddl_u8(vget_high_u8(a), vget_high_u8(e)), wo);
    lo = vmlaq_u16(lo, vaddl_u8(vget_low_u8(b), vget_low_u8(d)), wi);
    hi = vmlaq_u16(hi, vaddl_u8(vget_high_u8(b), vget_high_u8(d)), wi);
    lo = vmlal_u8(lo, vget_low_u8(c), wc);
#if defined(__aarch64__)
    hi = vmlal_high_u8(hi, c, vcombine_u8(wc, wc));  // umlal2: no move of the high half
#else
    hi = vmlal_u8(hi, vget_high_u8(c), wc);
#endif
  }

  // V of columns x .. x + 15: (o*(r0+r4) + i*(r1+r3) + c*r2 + 64) >> 7,
  // saturated (it never exceeds 255 when the weights sum to 128).
  void vStep(uint8_t* v, int32_t x) const {
    const uint8x16_t r0 = vld1q_u8(rows[0] + x), r1 = vld1q_u8(rows[1] + x);
    const uint8x16_t r2 = vld1q_u8(rows[2] + x), r3 = vld1q_u8(rows[3] + x);
    const uint8x16_t r4 = vld1q_u8(rows[4] + x);
    uint16x8_t lo, hi;
    taps(r0, r1, r2, r3, r4, lo, hi);
    vst1q_u8(v, vcombine_u8(vqrshrn_n_u16(lo, 7), vqrshrn_n_u16(hi, 7)));
  }

  // 8 outputs from H and the original bytes o. Small gains (|g| <= 8191):
  // with h' = H - 128 o (exact in 16 bits), E >> 1 = floor(D * g / 512) =
  // vqdmulh(h' & -32, -2g) (no saturation: h' & -32 > -32768), C >> 1 =
  // clamp(E >> 1, -60, 60), and with x = (C >> 1) + (E >> 1) - M (no 16-bit
  // wrap) the output is o + ((x + 2) >> 2), a rounding shift-accumulate;
  // M = (L * 102) >> 8 = vqdmulh(L, 51 * 256). Other gains take the
  // general form.
  template <bool kSmallGain, bool kThreshold>
  uint8x8_t respond(uint16x8_t h, uint8x8_t o) const {
    if (!kSmallGain) return sharpenOut(o, h, gain4, t, nt);
    const int16x8_t hp = vreinterpretq_s16_u16(vmlsl_u8(h, o, k128));
    const int16x8_t f = vqdmulhq_s16(vandq_s16(hp, vdupq_n_s16(-32)), gainK);
    const int16x8_t c = vmaxq_s16(vminq_s16(f, vdupq_n_s16(60)), vdupq_n_s16(-60));
    int16x8_t x = vaddq_s16(f, c);
    if (kThreshold) {
      const int16x8_t d = vnegq_s16(vshrq_n_s16(hp, 5));
      const int16x8_t l = vminq_s16(t, vmaxq_s16(nt, d));
      x = vsubq_s16(x, vqdmulhq_s16(l, vdupq_n_s16(51 * 256)));
    }
    return vqmovun_s16(vrsraq_n_s16(vreinterpretq_s16_u16(vmovl_u8(o)), x, 2));
  }

#if !defined(__aarch64__)
  // armv7: n steps of vStep from column x (v at V(x)) and
  // n of the small-gain outStep without threshold, each one loop in
  // assembly; they return the column after their last step. Compiled, the
  // steps spend an add on each row's address and a move to join the halves
  // of the result (72 instructions per 16 pixels for both; 55 here): here
  // each row pointer steps by its post-indexed load and the narrowing
  // writes the halves of one q register. Two steps per iteration (an odd
  // first one alone): the loop's count and branch are 2 of a step's 20
  // instructions.
#define KQ_SHARPEN_V_STEP \
  "vld1.8 {d16-d17}, [%[r0]]!\n\t" \
  "vld1.8 {d18-d19}, [%[r1]]!\n\t" \
  "vld1.8 {d20-d21}, [%[r2]]!\n\t" \
  "vld1.8 {d22-d23}, [%[r3]]!\n\t" \
  "vld1.8 {d24-d25}, [%[r4]]!\n\t" \
  "vaddl.u8 q13, d17, d25\n\t" \
  "vaddl.u8 q8, d16, d24\n\t" \
  "vaddl.u8 q12, d19, d23\n\t" \
  "vaddl.u8 q9, d18, d22\n\t" \
  "vmul.i16 q8, q8, %q[wo]\n\t" \
  "vmul.i16 q13, q13, %q[wo]\n\t" \
  "vmla.i16 q8, q9, %q[wi]\n\t" \
  "vmla.i16 q13, q12, %q[wi]\n\t" \
  "vmlal.u8 q8, d20, %P[wc]\n\t" \
  "vmlal.u8 q13, d21, %P[wc]\n\t" \
  "vqrshrn.u16 d18, q8, #7\n\t" \
  "vqrshrn.u16 d19, q13, #7\n\t" \
  "vst1.8 {d18-d19}, [%[out]]!\n\t"
  int32_t vSteps(uint8_t* v, int32_t x, int32_t n) const {
    const uint8_t *r0 = rows[0] + x, *r1 = rows[1] + x, *r2 = rows[2] + x;
    const uint8_t *r3 = rows[3] + x, *r4 = rows[4] + x;
    uint8_t* out = v;
    int32_t left = n;
    asm volatile(
        "tst %[left], #1\n\t"
        "beq 1f\n\t"
        KQ_SHARPEN_V_STEP
        "subs %[left], %[left], #1\n\t"
        "beq 2f\n\t"
        "1:\n\t"
        KQ_SHARPEN_V_STEP
        KQ_SHARPEN_V_STEP
        "subs %[left], %[left], #2\n\t"
        "bne 1b\n\t"
        "2:"
        : [r0] "+r"(r0), [r1] "+r"(r1), [r2] "+r"(r2), [r3] "+r"(r3), [r4] "+r"(r4),
          [out] "+r"(out), [left] "+r"(left)
        : [wo] "w"(wo), [wi] "w"(wi), [wc] "w"(wc)
        : "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26", "d27",
          "cc", "memory");
    return x + 16 * n;
  }

// One step of 16 outputs: H = outer * (m2 + p2) + inner * (m1 + p1) +
// centre * v0, f = vqdmulh((H - 128 o) & -32, -2g), x = f + clamp(f, -60, 60),
// out = sat_u8(o + ((x + 2) >> 2)) (see respond).
#define KQ_SHARPEN_OUT_STEP \
  "vld1.8 {d16-d17}, [%[m2]]!\n\t" \
  "vld1.8 {d18-d19}, [%[m1]]!\n\t" \
  "vld1.8 {d20-d21}, [%[v0]]!\n\t" \
  "vld1.8 {d22-d23}, [%[p1]]!\n\t" \
  "vld1.8 {d24-d25}, [%[p2]]!\n\t" \
  "vld1.8 {d26-d27}, [%[o]]!\n\t" \
  "vaddl.u8 q14, d17, d25\n\t" \
  "vaddl.u8 q8, d16, d24\n\t" \
  "vaddl.u8 q12, d19, d23\n\t" \
  "vaddl.u8 q9, d18, d22\n\t" \
  "vmul.i16 q8, q8, %q[wo]\n\t" \
  "vmul.i16 q14, q14, %q[wo]\n\t" \
  "vmla.i16 q8, q9, %q[wi]\n\t" \
  "vmla.i16 q14, q12, %q[wi]\n\t" \
  "vmlal.u8 q8, d20, %P[wc]\n\t" \
  "vmlal.u8 q14, d21, %P[wc]\n\t" \
  "vmlsl.u8 q8, d26, %P[k128]\n\t" \
  "vmlsl.u8 q14, d27, %P[k128]\n\t" \
  "vbic.i16 q8, #31\n\t" \
  "vbic.i16 q14, #31\n\t" \
  "vqdmulh.s16 q8, q8, %q[gain]\n\t" \
  "vqdmulh.s16 q14, q14, %q[gain]\n\t" \
  "vmin.s16 q9, q8, %q[k60]\n\t" \
  "vmin.s16 q10, q14, %q[k60]\n\t" \
  "vmax.s16 q9, q9, %q[km60]\n\t" \
  "vmax.s16 q10, q10, %q[km60]\n\t" \
  "vadd.i16 q8, q8, q9\n\t" \
  "vadd.i16 q14, q14, q10\n\t" \
  "vmovl.u8 q9, d26\n\t" \
  "vmovl.u8 q10, d27\n\t" \
  "vrsra.s16 q9, q8, #2\n\t" \
  "vrsra.s16 q10, q14, #2\n\t" \
  "vqmovun.s16 d26, q9\n\t" \
  "vqmovun.s16 d27, q10\n\t" \
  "vst1.8 {d26-d27}, [%[out]]!\n\t"
  // q: V(x) in the line buffer.
  int32_t outSteps(uint8_t* dst, const uint8_t* q, int32_t x, int32_t n) const {
    const uint8_t *m2 = q - 2, *m1 = q - 1, *p1 = q + 1, *p2 = q + 2, *o = rows[2] + x;
    uint8_t* out = dst + x;
    int32_t left = n;
    const int16x8_t k60 = vdupq_n_s16(60), km60 = vdupq_n_s16(-60);
    asm volatile(
        "tst %[left], #1\n\t"
        "beq 1f\n\t"
        KQ_SHARPEN_OUT_STEP
        "subs %[left], %[left], #1\n\t"
        "beq 2f\n\t"
        "1:\n\t"
        KQ_SHARPEN_OUT_STEP
        KQ_SHARPEN_OUT_STEP
        "subs %[left], %[left], #2\n\t"
        "bne 1b\n\t"
        "2:"
        : [m2] "+r"(m2), [m1] "+r"(m1), [v0] "+r"(q), [p1] "+r"(p1), [p2] "+r"(p2), [o] "+r"(o),
          [out] "+r"(out), [left] "+r"(left)
        : [wo] "w"(wo), [wi] "w"(wi), [wc] "w"(wc), [k128] "w"(k128), [gain] "w"(gainK),
          [k60] "w"(k60), [km60] "w"(km60)
        : "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "d24", "d25", "d26", "d27",
          "d28", "d29", "cc", "memory");
    return x + 16 * n;
  }
#undef KQ_SHARPEN_V_STEP
#undef KQ_SHARPEN_OUT_STEP
#endif

  // 16 outputs at x; q points at V(x) in the line buffer.
  template <bool kSmallGain, bool kThreshold>
  void outStep(uint8_t* dst, const uint8_t* q, int32_t x) const {
    const uint8x16_t m2 = vld1q_u8(q - 2), m1 = vld1q_u8(q - 1), v0 = vld1q_u8(q);
    const uint8x16_t p1 = vld1q_u8(q + 1), p2 = vld1q_u8(q + 2), o = vld1q_u8(rows[2] + x);
    uint16x8_t lo, hi;
    taps(m2, m1, v0, p1, p2, lo, hi);
    vst1q_u8(dst + x, vcombine_u8(respond<kSmallGain, kThreshold>(lo, vget_low_u8(o)),
                                  respond<kSmallGain, kThreshold>(hi, vget_high_u8(o))));
  }

  // V of the 16 columns from x (the centre row's bytes there in *centre).
  uint8x16_t vBlock(int32_t x, uint8x16_t* centre) const {
    const uint8x16_t r0 = vld1q_u8(rows[0] + x), r1 = vld1q_u8(rows[1] + x);
    const uint8x16_t r2 = vld1q_u8(rows[2] + x), r3 = vld1q_u8(rows[3] + x);
    const uint8x16_t r4 = vld1q_u8(rows[4] + x);
    uint16x8_t lo, hi;
    taps(r0, r1, r2, r3, r4, lo, hi);
    *centre = r2;
    return vcombine_u8(vqrshrn_n_u16(lo, 7), vqrshrn_n_u16(hi, 7));
  }

#if defined(__aarch64__)
  // x = (C >> 1) + (E >> 1) of the small-gain form (no threshold), for
  // |g| <= kTinyGain: then |E >> 1| <= 443 and |x| <= 503, so (x + 2) >> 2
  // lies in -126..126 and the output o + ((x + 2) >> 2), saturated, is one
  // saturating narrow to signed bytes and one unsigned saturating add.
  static constexpr int32_t kTinyGain = 192;
  // kHigh: o's high half (umlsl2, no move of the half).
  template <bool kHigh>
  int16x8_t tinyX(uint16x8_t h, uint8x16_t o) const {
    const int16x8_t hp = vreinterpretq_s16_u16(
        kHigh ? vmlsl_high_u8(h, o, vcombine_u8(k128, k128)) : vmlsl_u8(h, vget_low_u8(o), k128));
    const int16x8_t f = vqdmulhq_s16(vandq_s16(hp, vdupq_n_s16(-32)), gainK);
    const int16x8_t c = vmaxq_s16(vminq_s16(f, vdupq_n_s16(60)), vdupq_n_s16(-60));
    return vaddq_s16(f, c);
  }
#endif

  // 16 outputs from V of the 16 columns before them (prev), at them (cur)
  // and after them (next), and the original bytes o. kTiny (aarch64): the
  // small-gain form for |g| <= kTinyGain, without threshold.
  template <bool kSmallGain, bool kThreshold, bool kTiny = false>
  uint8x16_t outBlock(uint8x16_t prev, uint8x16_t cur, uint8x16_t next, uint8x16_t o) const {
    uint16x8_t lo, hi;
    taps(vextq_u8(prev, cur, 14), vextq_u8(prev, cur, 15), cur, vextq_u8(cur, next, 1),
         vextq_u8(cur, next, 2), lo, hi);
#if defined(__aarch64__)
    if (kTiny) {
      const int8x16_t x =
          vqrshrn_high_n_s16(vqrshrn_n_s16(tinyX<false>(lo, o), 2), tinyX<true>(hi, o), 2);
      return vsqaddq_u8(o, x);
    }
#endif
    return vcombine_u8(respond<kSmallGain, kThreshold>(lo, vget_low_u8(o)),
                       respond<kSmallGain, kThreshold>(hi, vget_high_u8(o)));
  }

#if defined(__aarch64__)
  // The steps of rowInRegisters for the tiny gains, two blocks at a time in
  // assembly: `pairs` pairs of blocks from column 0, given V of the first
  // block (*cur), the block before it (*prev) and its centre bytes (*o);
  // returns the next block's column with *prev, *cur and *o set for it.
  // Compiled, the steps spend 7 register moves per block carrying the blocks
  // in flight over; here the two blocks of a pair use two sets of registers
  // (V, its two left neighbours, the centre bytes: v0..v3 and v4..v7), each
  // block making the other set's, and no value moves inside the loop.
  int32_t tinyPairs(uint8_t* dst, int32_t pairs, uint8x16_t* prev, uint8x16_t* cur,
                    uint8x16_t* o) const {
    const uint8x16_t c0 = *cur, o0 = *o;
    const uint8x16_t a0 = vextq_u8(*prev, c0, 14), b0 = vextq_u8(*prev, c0, 15);
    const uint8x16_t wc16 = vcombine_u8(wc, wc), k128x = vcombine_u8(k128, k128);
    const int16x8_t k60 = vdupq_n_s16(60), km60 = vdupq_n_s16(-60);
    // Both blurs as byte products (the weights are bytes), so that the
    // horizontal taps wo * a + wi * b + wc * c can be summed before the next
    // block's V is there, then wo * e + wi * d.
    const uint8x16_t wo8 = vdupq_n_u8(uint8_t(vgetq_lane_u16(wo, 0)));
    const uint8x16_t wi8 = vdupq_n_u8(uint8_t(vgetq_lane_u16(wi, 0)));
    const uint8_t *r0 = rows[0] + 16, *r1 = rows[1] + 16, *r2 = rows[2] + 16;
    const uint8_t *r3 = rows[3] + 16, *r4 = rows[4] + 16;
    uint8_t* out = dst;
    int64_t n = pairs;
    // One block: V of the next block (its rows' bytes loaded and stepped),
    // the current block's neighbours and the next one's left neighbours by
    // vext, the horizontal taps, then E >> 1 + C >> 1 rounded by 4 and added
    // to the centre bytes (see tinyX).
#define KQ_SHARPEN_BLOCK(C, A, B, O, CN, AN, BN, ON) \
  "ldr q16, [%[r0]], #16\n\t" \
  "ldr q17, [%[r1]], #16\n\t" \
  "ld1 {" ON ".16b}, [%[r2]], #16\n\t" \
  "ldr q18, [%[r3]], #16\n\t" \
  "ldr q19, [%[r4]], #16\n\t" \
  "umull v20.8h, v16.8b, %[wo8].8b\n\t" \
  "umull v26.8h, " A ".8b, %[wo8].8b\n\t" \
  "umull2 v21.8h, v16.16b, %[wo8].16b\n\t" \
  "umull2 v27.8h, " A ".16b, %[wo8].16b\n\t" \
  "umlal v20.8h, v19.8b, %[wo8].8b\n\t" \
  "umlal v26.8h, " B ".8b, %[wi8].8b\n\t" \
  "umlal2 v21.8h, v19.16b, %[wo8].16b\n\t" \
  "umlal2 v27.8h, " B ".16b, %[wi8].16b\n\t" \
  "umlal v20.8h, v17.8b, %[wi8].8b\n\t" \
  "umlal v26.8h, " C ".8b, %[wc].8b\n\t" \
  "umlal2 v21.8h, v17.16b, %[wi8].16b\n\t" \
  "umlal2 v27.8h, " C ".16b, %[wc].16b\n\t" \
  "umlal v20.8h, v18.8b, %[wi8].8b\n\t" \
  "umlal2 v21.8h, v18.16b, %[wi8].16b\n\t" \
  "umlal v20.8h, " ON ".8b, %[wc].8b\n\t" \
  "umlal2 v21.8h, " ON ".16b, %[wc].16b\n\t" \
  "uqrshrn " CN ".8b, v20.8h, #7\n\t" \
  "uqrshrn2 " CN ".16b, v21.8h, #7\n\t" \
  "ext v24.16b, " C ".16b, " CN ".16b, #1\n\t" \
  "ext v25.16b, " C ".16b, " CN ".16b, #2\n\t" \
  "ext " AN ".16b, " C ".16b, " CN ".16b, #14\n\t" \
  "ext " BN ".16b, " C ".16b, " CN ".16b, #15\n\t" \
  "umlal v26.8h, v25.8b, %[wo8].8b\n\t" \
  "umlal2 v27.8h, v25.16b, %[wo8].16b\n\t" \
  "umlal v26.8h, v24.8b, %[wi8].8b\n\t" \
  "umlal2 v27.8h, v24.16b, %[wi8].16b\n\t" \
  "umlsl v26.8h, " O ".8b, %[k128].8b\n\t" \
  "umlsl2 v27.8h, " O ".16b, %[k128].16b\n\t" \
  "bic v26.8h, #0x1f\n\t" \
  "bic v27.8h, #0x1f\n\t" \
  "sqdmulh v26.8h, v26.8h, %[gain].8h\n\t" \
  "sqdmulh v27.8h, v27.8h, %[gain].8h\n\t" \
  "smin v22.8h, v26.8h, %[k60].8h\n\t" \
  "smin v23.8h, v27.8h, %[k60].8h\n\t" \
  "smax v22.8h, v22.8h, %[km60].8h\n\t" \
  "smax v23.8h, v23.8h, %[km60].8h\n\t" \
  "add v26.8h, v26.8h, v22.8h\n\t" \
  "add v27.8h, v27.8h, v23.8h\n\t" \
  "sqrshrn v26.8b, v26.8h, #2\n\t" \
  "sqrshrn2 v26.16b, v27.8h, #2\n\t" \
  "usqadd " O ".16b, v26.16b\n\t" \
  "st1 {" O ".16b}, [%[out]], #16\n\t"
    asm volatile("mov v0.16b, %[c0].16b\n\t"
                 "mov v1.16b, %[a0].16b\n\t"
                 "mov v2.16b, %[b0].16b\n\t"
                 "mov v3.16b, %[o0].16b\n\t"
                 "1:\n\t"
                 KQ_SHARPEN_BLOCK("v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7")
                 KQ_SHARPEN_BLOCK("v4", "v5", "v6", "v7", "v0", "v1", "v2", "v3")
                 "subs %[n], %[n], #1\n\t"
                 "b.ne 1b\n\t"
                 "mov %[pv].16b, v4.16b\n\t"
                 "mov %[cv].16b, v0.16b\n\t"
                 "mov %[ov].16b, v3.16b"
                 : [pv] "=w"(*prev), [cv] "=w"(*cur), [ov] "=w"(*o), [r0] "+r"(r0), [r1] "+r"(r1),
                   [r2] "+r"(r2), [r3] "+r"(r3), [r4] "+r"(r4), [out] "+r"(out), [n] "+r"(n)
                 : [c0] "w"(c0), [a0] "w"(a0), [b0] "w"(b0), [o0] "w"(o0), [wc] "w"(wc16),
                   [wo8] "w"(wo8), [wi8] "w"(wi8),
                   [k128] "w"(k128x), [gain] "w"(gainK), [k60] "w"(k60), [km60] "w"(km60)
                 : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v16", "v17", "v18", "v19",
                   "v20", "v21", "v22", "v23", "v24", "v25", "v26", "v27", "cc", "memory");
#undef KQ_SHARPEN_BLOCK
    return 32 * pairs;
  }
#endif

  // Columns [0, nv), nv >= 32 (aarch64): both passes in registers, V of the next 16
  // columns computed before the outputs of the current 16 (vext takes the
  // neighbours across blocks). V(-1) = V(-2) = V(0) come from a first
  // "previous" block of V(0), V(nv) = V(nv + 1) = V(nv - 1) from a last
  // "next" block of V(nv - 1); where nv is no multiple of 16 the last block
  // ends at nv, overlapping the one before (equal bytes written twice).
  template <bool kSmallGain, bool kThreshold, bool kTiny>
  void rowInRegisters(uint8_t* dst, int32_t nv) const {
    const SharpenNeon k = *this;  // weights in registers, not behind `this`
    uint8x16_t o, oNext;
    uint8x16_t cur = k.vBlock(0, &o);
    uint8x16_t prev = vdupq_lane_u8(vget_low_u8(cur), 0);
    const int32_t last = nv - 16;
    int32_t x = 0;
#if defined(__aarch64__)
    if (kTiny && last > 32) x = k.tinyPairs(dst, (last - 32 + 31) / 32, &prev, &cur, &o);
#endif
    // Two blocks per iteration: the blocks in flight change registers
    // without moves.
#pragma GCC unroll 2
    for (; x + 16 < last; x += 16) {
      const uint8x16_t next = k.vBlock(x + 16, &oNext);
      const uint8x16_t out = k.outBlock<kSmallGain, kThreshold, kTiny>(prev, cur, next, o);
      vst1q_u8(dst + x, out);
      prev = cur;
      cur = next;
      o = oNext;
    }
    // Now x + 16 >= last >= x, and last - x is 0, 8 or 16 (nv is a multiple
    // of 8): the block at x (unless it is the last one), then the one that
    // ends at nv, its V from the blocks in hand where they overlap it.
    uint8x16_t oLast;
    const uint8x16_t vLast = k.vBlock(last, &oLast);
    const uint8x16_t after = vdupq_lane_u8(vget_high_u8(vLast), 7);  // V(nv - 1)
    if (x == last) {
      const uint8x16_t out = k.outBlock<kSmallGain, kThreshold, kTiny>(prev, vLast, after, o);
      vst1q_u8(dst + last, out);
      return;
    }
    const bool aligned = x + 16 == last;
    const uint8x16_t next = aligned ? vLast : vextq_u8(vLast, vLast, 8);  // V(x + 16), ..
    const uint8x16_t before = aligned ? cur : vextq_u8(prev, cur, 8);     // V(last - 16), ..
    // (Each result is named before its store: clang's 32-bit ARM vst1q_u8
    // is a macro, which would split a template argument list.)
    const uint8x16_t outX = k.outBlock<kSmallGain, kThreshold, kTiny>(prev, cur, next, o);
    vst1q_u8(dst + x, outX);
    const uint8x16_t outLast = k.outBlock<kSmallGain, kThreshold, kTiny>(before, vLast, after, oLast);
    vst1q_u8(dst + last, outLast);
  }

  // Columns [0, nv), nv >= 8. The rows must be readable and dst writable
  // for max(nv, 16) columns (the caller pads a row of 8).
  template <bool kSmallGain, bool kThreshold>
  void row(uint8_t* dst, int32_t nv) const {
#if defined(__aarch64__)
    // armv7 keeps the line buffer: with half the registers the blocks in
    // flight cost more moves than the buffer's loads and stores.
    if (nv >= 32) {
      const int16_t g = vget_lane_s16(gain4, 0);
      if (kSmallGain && !kThreshold && g >= -kTinyGain && g <= kTinyGain)
        rowInRegisters<kSmallGain, kThreshold, true>(dst, nv);
      else
        rowInRegisters<kSmallGain, kThreshold, false>(dst, nv);
      return;
    }
#endif
    const SharpenNeon k = *this;  // weights in registers, not behind `this`
    uint8_t buf[kLeft + kChunk + 16 + 2];
    uint8_t* const v = buf + kLeft;  // v[i] = V(x0 + i)
    if (nv < 16) {
      // One step; the repeat of V(nv - 1) runs on to its end, whose extra
      // outputs are dropped but should not come from the padding.
      k.vStep(v, 0);
      v[-1] = v[-2] = v[0];
      for (int32_t i = nv; i < 18; ++i) v[i] = v[nv - 1];
      k.outStep<kSmallGain, kThreshold>(dst, v, 0);
      return;
    }
    for (int32_t x0 = 0; x0 < nv; x0 += kChunk) {
      const int32_t x1 = x0 + kChunk < nv ? x0 + kChunk : nv;
      // V(x1), V(x1 + 1) belong to the next chunk: one more step of V.
      const int32_t vEnd = x1 + 16 < nv ? x1 + 16 : nv;
      if (x0 > 0) std::memcpy(buf, buf + kChunk, kLeft);  // V(x0 - kLeft .. x0 - 1)
      int32_t x = x0;
#if !defined(__aarch64__)
      if (x + 16 <= vEnd) x = k.vSteps(v + (x - x0), x, (vEnd - x) / 16);
#endif
      for (; x + 16 <= vEnd; x += 16) k.vStep(v + (x - x0), x);
      if (x < vEnd) k.vStep(v + (vEnd - 16 - x0), vEnd - 16);
      if (x0 == 0) v[-1] = v[-2] = v[0];
      if (vEnd == nv) v[nv - x0] = v[nv - x0 + 1] = v[nv - x0 - 1];
      x = x0;
#if !defined(__aarch64__)
      if (kSmallGain && !kThreshold && x + 16 <= x1)
        x = k.outSteps(dst, v + (x - x0), x, (x1 - x) / 16);
#endif
      for (; x + 16 <= x1; x += 16) k.outStep<kSmallGain, kThreshold>(dst, v + (x - x0), x);
      if (x < x1) k.outStep<kSmallGain, kThreshold>(dst, v + (x1 - 16 - x0), x1 - 16);
    }
  }
};

}  // namespace

// The vector part (nv = 8 * (width / 8) columns; a row of 8 goes through
// zero-padded 16-byte copies), then the width % 8 tail of the scalar form.
void kqSharpenRow_neon(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                       const KQSharpenParams* p) {
  const int32_t nv = width & ~7;
  if (nv >= 16) {
    kqSharpenRunRow(SharpenNeon(rows, p), dst, nv, p);
  } else if (nv > 0) {
    uint8_t pad[6][16] = {};
    const uint8_t* r[5];
    for (int k = 0; k < 5; ++k) {
      std::memcpy(pad[k], rows[k], size_t(nv));
      r[k] = pad[k];
    }
    kqSharpenRunRow(SharpenNeon(r, p), pad[5], nv, p);
    std::memcpy(dst, pad[5], size_t(nv));
  }
  for (int32_t x = nv; x < width; ++x) dst[x] = kqSharpenTailPixel(rows[2], x, p);
}
