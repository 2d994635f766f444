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
//   out  = r
//
// The normalisation of warp_dsp.h, trunc(float(r * 5) * 0.2f + 0.5f), gives
// every r in 0..255 back (the kernel checks prove it for all 256 values on
// each target), so the vector paths store r directly; only integers pass
// through NEON. Every block of a vector-range step, the row's last partial
// block and windows at the plane edges (read from a clamped copy) included,
// takes this form; other steps go through the scalar kernel.
#include <arm_neon.h>

#include <cstring>

#include "warp/warp_dsp.h"

namespace {

// Lane offsets (l * S) >> 6 for 0 <= S <= 2048: at most 224, so u8.
inline uint8x8_t laneOffsets(int32_t step) {
  uint8_t off[8];
  for (int32_t l = 0; l < 8; ++l) off[l] = static_cast<uint8_t>((l * step) >> 6);
  return vld1_u8(off);
}

// Stores the first `lanes` bytes of v (all 8 when lanes is 8).
inline void storeLanes(uint8_t* dst, uint8x8_t v, int32_t lanes) {
  if (lanes >= 8) {
    vst1_u8(dst, v);
    return;
  }
  uint8_t tmp[8];
  vst1_u8(tmp, v);
  std::memcpy(dst, tmp, size_t(lanes));
}

}  // namespace

void kqWarpBilinearRow_neon(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  // Steps outside the vector range: the 32-bit lane arithmetic throughout.
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpBilinearRow_c(dst, dstStride, row);
    return;
  }
  const int32_t count = row->count, rows = row->rows, width = row->srcWidth;
  const uint8x8_t off = laneOffsets(row->step);
  const uint8x8_t mask31 = vdup_n_u8(31), v32 = vdup_n_u8(32);
  uint8_t edgeU[16] = {}, edgeL[16] = {};
  const uint8_t* s0 = row->src0;
  const uint8_t* s1 = row->src1;
  float p = row->x;
  // Rows of a chain the tile code has walked: origins from its codes, and
  // the lower row's horizontal results of the full 16-pixel groups kept in
  // the plan (after its records) for the next call, whose upper row it
  // usually is; the same codes give that row the same values.
  const bool planned = row->codes != nullptr && row->plan != nullptr && row->planReady != nullptr;
  const int32_t full = planned ? count / 16 * 16 : 0;
  uint8_t* keptTag = planned ? row->plan + size_t(full / 16 + 1) * kKqWarpPlanRecord : nullptr;
  uint16_t* kept = planned ? reinterpret_cast<uint16_t*>(keptTag + 16) : nullptr;
  bool reuse = false;
  if (planned) {
    if (*row->planReady == 0) {
      std::memset(keptTag, 0, 16);
      *row->planReady = 1;
    }
    const uint8_t* keptRow;
    std::memcpy(&keptRow, keptTag, sizeof keptRow);
    reuse = keptRow == s0;
  }
  for (int32_t start = 0; start < count; start += 8) {
    int32_t base, phase;
    kqwarp::nextOrigin(row, start / 8, &p, &base, &phase);  // codes equal the float chain
    const uint8_t* u = kqwarp::blockWindow(s0, base, 8, width, edgeU);
    const uint8_t* l = kqwarp::blockWindow(s1, base, 8, width, edgeL);
    const int32_t lanes = count - start < 8 ? count - start : 8;
    const uint8x8_t q = vadd_u8(vdup_n_u8(static_cast<uint8_t>(phase)), off);
    const uint8x8_t idx = vshr_n_u8(q, 5);
    const uint8x8_t f = vand_u8(q, mask31);
    const uint8x8_t nf = vsub_u8(v32, f);
    // Left and right neighbours of each lane, upper row then lower row.
    uint16x8_t hu;
    if (reuse && start < full) {
      hu = vld1q_u16(kept + start);
    } else {
      const uint8x8_t lu = vtbl1_u8(vld1_u8(u), idx);
      const uint8x8_t ru = vtbl1_u8(vld1_u8(u + 1), idx);
      hu = vshrq_n_u16(vmlal_u8(vmull_u8(lu, nf), ru, f), 1);
    }
    const uint8x8_t ll = vtbl1_u8(vld1_u8(l), idx);
    const uint8x8_t rl = vtbl1_u8(vld1_u8(l + 1), idx);
    const uint16x8_t hl = vshrq_n_u16(vmlal_u8(vmull_u8(ll, nf), rl, f), 1);
    if (start < full) vst1q_u16(kept + start, hl);
    // The horizontal results serve every output row of the group.
    for (int32_t r = 0; r < rows; ++r) {
      const uint16_t w1 = static_cast<uint16_t>(row->w1[r]);
      const uint16x8_t v =
          vshrq_n_u16(vmlaq_n_u16(vmulq_n_u16(hu, static_cast<uint16_t>(16 - w1)), hl, w1), 8);
      storeLanes(dst + r * dstStride + start, vmovn_u16(v), lanes);
    }
  }
  if (planned) std::memcpy(keptTag, &s1, sizeof s1);
}

void kqWarpNearestRow_neon(uint8_t* dst, const KQWarpRow* row) {
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpNearestRow_c(dst, row);
    return;
  }
  const int32_t count = row->count, width = row->srcWidth;
  const uint8x8_t off = laneOffsets(row->step);
  uint8_t edge[16] = {};
  const uint8_t* s0 = row->src0;
  float p = row->x;
  for (int32_t start = 0; start < count; start += 8) {
    int32_t base, phase;
    kqwarp::nextOrigin(row, start / 8, &p, &base, &phase);
    const uint8_t* w = kqwarp::blockWindow(s0, base, 7, width, edge);
    const uint8x8_t idx = vshr_n_u8(vadd_u8(vdup_n_u8(static_cast<uint8_t>(phase)), off), 5);
    storeLanes(dst + start, vtbl1_u8(vld1_u8(w), idx), count - start < 8 ? count - start : 8);
  }
}

// Interleaved pairs: a block's pixels read pairs base .. base + 7, the 16
// bytes of one window (a clamped copy at the edges), and two table look-ups
// with the block's shuffle bytes (kqwarp::PairBlock) turn it into the
// block's 16 output bytes. Rows of a walked chain take their blocks from
// the plan; others make each block as they reach it.
void kqWarpNearestPairRow_neon(uint8_t* dst, const KQWarpRow* row, int32_t swap) {
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpNearestPairRow_c(dst, row, swap);
    return;
  }
  const int32_t count = row->count, width = row->srcWidth;
  const kqwarp::PairBlock* plan = kqwarp::pairPlan(row, swap);
  kqwarp::PairBlock own;
  uint8_t edge[16] = {};
  float p = row->x;
  for (int32_t start = 0; start < count; start += 8) {
    const kqwarp::PairBlock* b = &own;
    if (plan != nullptr) {
      b = &plan[start / 8];
    } else {
      int32_t base, phase;
      kqwarp::nextOrigin(row, start / 8, &p, &base, &phase);
      kqwarp::pairBlockOf(row, base, phase, swap != 0 ? 1 : 0, &own);
    }
    const uint8_t* w = b->offset >= 0 ? row->src0 + b->offset
                                      : kqwarp::pairWindow(row->src0, b->base, 7, width, edge);
    uint8x8x2_t table, sel;
    table.val[0] = vld1_u8(w);
    table.val[1] = vld1_u8(w + 8);
    sel.val[0] = vld1_u8(b->sel);
    sel.val[1] = vld1_u8(b->sel + 8);
    const uint8x16_t v = vcombine_u8(vtbl2_u8(table, sel.val[0]), vtbl2_u8(table, sel.val[1]));
    const int32_t lanes = count - start < 8 ? count - start : 8;
    if (lanes == 8) {
      vst1q_u8(dst + 2 * start, v);
    } else {
      uint8_t tmp[16];
      vst1q_u8(tmp, v);
      std::memcpy(dst + 2 * start, tmp, size_t(2 * lanes));
    }
  }
}
