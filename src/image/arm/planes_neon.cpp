// planes_neon.cpp - NEON chroma split and merge row kernels (armv7 and
// aarch64), used by plane intake and output assembly.
#include <arm_neon.h>

#include "image/planes_dsp.h"

// Split, 16 pairs per step:
//   src    a0 b0 a1 b1 ... a15 b15        (32 bytes)
//   vld2q  val[0] = a0..a15, val[1] = b0..b15   (the load de-interleaves)
// then 8 pairs with the 64-bit form, and the last 0..7 pairs one by one.
void kqSplitUVRow_neon(uint8_t* dstEven, uint8_t* dstOdd, const uint8_t* src, int32_t pairs) {
  int32_t k = 0;
  for (; k + 16 <= pairs; k += 16) {
    const uint8x16x2_t ab = vld2q_u8(src + 2 * k);
    vst1q_u8(dstEven + k, ab.val[0]);
    vst1q_u8(dstOdd + k, ab.val[1]);
  }
  if (k + 8 <= pairs) {
    const uint8x8x2_t ab = vld2_u8(src + 2 * k);
    vst1_u8(dstEven + k, ab.val[0]);
    vst1_u8(dstOdd + k, ab.val[1]);
    k += 8;
  }
  kqSplitUVPairs(dstEven, dstOdd, src, k, pairs);
}

// Merge, the inverse: vst2q stores val[0] and val[1] interleaved, so
//   a0..a15 + b0..b15  ->  a0 b0 a1 b1 ... a15 b15.
void kqMergeUVRow_neon(uint8_t* dst, const uint8_t* srcEven, const uint8_t* srcOdd, int32_t pairs) {
  int32_t k = 0;
  for (; k + 16 <= pairs; k += 16) {
    uint8x16x2_t ab;
    ab.val[0] = vld1q_u8(srcEven + k);
    ab.val[1] = vld1q_u8(srcOdd + k);
    vst2q_u8(dst + 2 * k, ab);
  }
  if (k + 8 <= pairs) {
    uint8x8x2_t ab;
    ab.val[0] = vld1_u8(srcEven + k);
    ab.val[1] = vld1_u8(srcOdd + k);
    vst2_u8(dst + 2 * k, ab);
    k += 8;
  }
  kqMergeUVPairs(dst, srcEven, srcOdd, k, pairs);
}
