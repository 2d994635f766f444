// warp_neon.cpp - NEON row kernels of the warp stage (armv7 and aarch64).
//
// Per block of 8 output pixels (see warp_dsp.h for the arithmetic):
//
//   q    = f0 + off[l]           u8, off[l] = (l * S) >> 6 fixed per row
//   idx  = q >> 5, f = q & 31    lane's source offset and phase
//   win  = src[base .. base+7],  win1 = src[base+1 .. base+8]
//   L, R = vtbl(win, idx), vtbl(win1, idx)
//   h    = (L * (32 - f) + R * f) >> 1           u16, <= 4080
//   r    = (hUp * (16 - w1) + hLo * w1) >> 8      u16, <= 65280 before >> 8
//   out  = trunc(float(r * 5) * 0.2f + 0.5f)
//
// Only integers and small normal floats pass through NEON, so armv7's
// flush-to-zero cannot change anything. Blocks outside the vector bounds and
// the row tail go through the shared 32-bit lane helpers.
#include <arm_neon.h>

#include "warp/warp_dsp.h"

namespace {

// Lane offsets (l * S) >> 6 for 0 <= S <= 2048: at most 224, so u8.
inline uint8x8_t laneOffsets(int32_t step) {
  uint8_t off[8];
  for (int32_t l = 0; l < 8; ++l) off[l] = static_cast<uint8_t>((l * step) >> 6);
  return vld1_u8(off);
}

// trunc(float(r * 5) * fifth + 0.5), clamped at 255 before the conversion
// (no effect on the value, keeps the conversion defined).
inline uint8x8_t normalise8(uint16x8_t r, float32x4_t fifth, float32x4_t half, float32x4_t top) {
  const uint16x8_t r5 = vmulq_n_u16(r, 5);
  float32x4_t lo = vcvtq_f32_u32(vmovl_u16(vget_low_u16(r5)));
  float32x4_t hi = vcvtq_f32_u32(vmovl_u16(vget_high_u16(r5)));
  lo = vminq_f32(vaddq_f32(vmulq_f32(lo, fifth), half), top);
  hi = vminq_f32(vaddq_f32(vmulq_f32(hi, fifth), half), top);
  const uint16x8_t n = vcombine_u16(vmovn_u32(vcvtq_u32_f32(lo)), vmovn_u32(vcvtq_u32_f32(hi)));
  return vmovn_u16(n);
}

}  // namespace

void kqWarpBilinearRow_neon(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  const int32_t count = row->count, rows = row->rows;
  float p = row->x;
  int32_t start = 0;
  if (kqwarp::vectorStep(row->step)) {
    const uint8x8_t off = laneOffsets(row->step);
    const uint8x8_t mask31 = vdup_n_u8(31), v32 = vdup_n_u8(32);
    const float32x4_t fifth = vdupq_n_f32(kKqWarpFifth), half = vdupq_n_f32(0.5f),
                      top = vdupq_n_f32(255.0f);
    const uint8_t* s0 = row->src0;
    const uint8_t* s1 = row->src1;
    for (; start <= count - 1 - kKqWarpLumaVectorTail; start += 8) {
      int32_t base, phase;
      kqwarp::blockOrigin(p, &base, &phase);
      if (kqwarp::windowFits(base, 8, row->srcWidth)) {
        const uint8x8_t q = vadd_u8(vdup_n_u8(static_cast<uint8_t>(phase)), off);
        const uint8x8_t idx = vshr_n_u8(q, 5);
        const uint8x8_t f = vand_u8(q, mask31);
        const uint8x8_t nf = vsub_u8(v32, f);
        // Left and right neighbours of each lane, upper row then lower row.
        const uint8x8_t lu = vtbl1_u8(vld1_u8(s0 + base), idx);
        const uint8x8_t ru = vtbl1_u8(vld1_u8(s0 + base + 1), idx);
        const uint8x8_t ll = vtbl1_u8(vld1_u8(s1 + base), idx);
        const uint8x8_t rl = vtbl1_u8(vld1_u8(s1 + base + 1), idx);
        const uint16x8_t hu = vshrq_n_u16(vmlal_u8(vmull_u8(lu, nf), ru, f), 1);
        const uint16x8_t hl = vshrq_n_u16(vmlal_u8(vmull_u8(ll, nf), rl, f), 1);
        // The horizontal results serve every output row of the group.
        for (int32_t r = 0; r < rows; ++r) {
          const uint16_t w1 = static_cast<uint16_t>(row->w1[r]);
          const uint16x8_t v =
              vshrq_n_u16(vmlaq_n_u16(vmulq_n_u16(hu, static_cast<uint16_t>(16 - w1)), hl, w1), 8);
          vst1_u8(dst + r * dstStride + start, normalise8(v, fifth, half, top));
        }
      } else {
        for (int32_t r = 0; r < rows; ++r)
          kqwarp::bilinearLanes(dst + r * dstStride + start, row, r, base, phase, 0, 8);
      }
      p = p + row->blockStep;
    }
  }
  // Tail (and steps outside the vector range): one pixel at a time.
  for (; start < count; start += 8) {
    int32_t base, phase;
    kqwarp::blockOrigin(p, &base, &phase);
    const int32_t lanes = count - start < 8 ? count - start : 8;
    for (int32_t r = 0; r < rows; ++r)
      kqwarp::bilinearLanes(dst + r * dstStride + start, row, r, base, phase, 0, lanes);
    p = p + row->blockStep;
  }
}

void kqWarpNearestRow_neon(uint8_t* dst, const KQWarpRow* row) {
  const int32_t count = row->count;
  float p = row->x;
  int32_t start = 0;
  if (kqwarp::vectorStep(row->step)) {
    const uint8x8_t off = laneOffsets(row->step);
    const float32x4_t fifth = vdupq_n_f32(kKqWarpFifth), half = vdupq_n_f32(0.5f),
                      top = vdupq_n_f32(255.0f);
    const uint8_t* s0 = row->src0;
    for (; start <= count - 1 - kKqWarpChromaVectorTail; start += 8) {
      int32_t base, phase;
      kqwarp::blockOrigin(p, &base, &phase);
      if (kqwarp::windowFits(base, 7, row->srcWidth)) {
        const uint8x8_t idx = vshr_n_u8(vadd_u8(vdup_n_u8(static_cast<uint8_t>(phase)), off), 5);
        const uint8x8_t v = vtbl1_u8(vld1_u8(s0 + base), idx);
        vst1_u8(dst + start, normalise8(vmovl_u8(v), fifth, half, top));
      } else {
        kqwarp::nearestLanes(dst + start, row, base, phase, 0, 8);
      }
      p = p + row->blockStep;
    }
  }
  for (; start < count; start += 8) {
    int32_t base, phase;
    kqwarp::blockOrigin(p, &base, &phase);
    const int32_t lanes = count - start < 8 ? count - start : 8;
    kqwarp::nearestLanes(dst + start, row, base, phase, 0, lanes);
    p = p + row->blockStep;
  }
}
