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

namespace {

// Planned bilinear rows (the tile's rows of one chain: block codes and a
// plan, in the vector step range, 16 pixels or more) go by groups of 16
// output pixels, the last group ending at the row's end (it overlaps the one
// before and writes the same bytes there again). Each group's pixels take
// their left and right source bytes out of one 32-byte window with table
// look-ups, so the per-pixel positions are worked out once per chain, into
// the plan:
//
//   L, R  = tbl(window, sel), tbl(window, sel + 1)
//   h     = (L * (32 - f) + R * f) >> 1                  u16, <= 4080
//   out   = (h_up * 16 + (h_lo - h_up) * w1) >> 8         per output row
//
// (the sum hu * (16 - w1) + hl * w1 written so, its true value at most
// 65280, comes out exact from the wrapping 16-bit lanes; its high byte is the
// pixel). The lower source row's h are kept in the plan for the next call,
// which in an enlargement reads that row as its upper row with the same
// chain, so each source row is interpolated once per chain.
constexpr int32_t kGroup = 16;
constexpr int32_t kWindow = 32;

// How a group finds its bytes: a window inside the row (kInside), a copy of
// the clamped columns win .. win + 31 (kCopy: the window leaves the row), or
// pixel by pixel in the 32-bit lane arithmetic (kNone: the pixels spread
// over more than 32 bytes).
enum GroupForm : int32_t { kInside = 0, kCopy = 1, kNone = 2, kInside16 = 3 };

struct alignas(16) Group {
  uint8_t sel[kGroup];   // left byte of each pixel in the window (xi - win)
  uint8_t selR[kGroup];  // right byte, sel + 1
  uint8_t f[kGroup];     // 1/32 phase
  uint8_t nf[kGroup];    // 32 - phase
  int32_t win, form, k0, spare;
};

// The plan from its first 64-byte boundary: 64 header bytes (at 0 the source
// row whose h are kept, at 8 the group count, at 12 the form every group
// has, or -1), the kept h (two vectors per group), then the groups.
struct Plan {
  uint8_t* header;
  uint16_t* kept;
  Group* groups;
  int32_t count;
  int32_t form;  // of every group, or -1
};

constexpr size_t kPlanHeader = 64;

bool takesPlan(const KQWarpRow* row) {
  if (!kqwarp::vectorStep(row->step) || row->codes == nullptr || row->plan == nullptr ||
      row->planReady == nullptr || row->count < kGroup)
    return false;
  const size_t groups = size_t(row->count + kGroup - 1) / kGroup;
  return 63 + kPlanHeader + groups * (sizeof(Group) + kGroup * sizeof(uint16_t)) <=
         kqWarpPlanBytes(row->count);
}

void buildGroup(const KQWarpRow* row, int32_t k0, Group* g) {
  std::memset(g, 0, sizeof *g);
  g->k0 = k0;
  int32_t xi[kGroup], fr[kGroup];
  for (int32_t i = 0; i < kGroup; ++i)
    kqwarp::pixelPosition(row->codes, row->step, k0 + i, &xi[i], &fr[i]);
  int32_t lo = xi[0], hi = xi[0];
  for (int32_t i = 1; i < kGroup; ++i) {
    lo = xi[i] < lo ? xi[i] : lo;
    hi = xi[i] > hi ? xi[i] : hi;
  }
  // A lane reads bytes xi - win and xi - win + 1 (columns within +-2^25).
  if (hi - lo > kWindow - 2) {
    g->form = kNone;
    return;
  }
  const int32_t width = row->srcWidth;
  int32_t win = lo < width - kWindow ? lo : width - kWindow;  // kept inside the row
  g->form = kInside;
  if (win < 0 || win < hi - (kWindow - 2)) {
    win = lo;
    g->form = kCopy;
  }
#if !defined(__aarch64__)
  const int32_t win16 = lo < width - 16 ? lo : width - 16;
  if (g->form == kInside && hi - lo <= 14 && win16 >= 0 && win16 >= hi - 14) {
    win = win16;
    g->form = kInside16;
  }
#endif
  g->win = win;
  for (int32_t i = 0; i < kGroup; ++i) {
    g->sel[i] = uint8_t(xi[i] - win);
    g->selR[i] = uint8_t(xi[i] - win + 1);
    g->f[i] = uint8_t(fr[i]);
    g->nf[i] = uint8_t(32 - fr[i]);
  }
}

// The plan of a row that takes one, built on first use.
Plan planOf(const KQWarpRow* row, void (*build)(const KQWarpRow*, int32_t, Group*)) {
  Plan p;
  p.header = row->plan + ((64 - (reinterpret_cast<uintptr_t>(row->plan) & 63)) & 63);
  if (*row->planReady != 0) {
    std::memcpy(&p.count, p.header + 8, sizeof p.count);
    std::memcpy(&p.form, p.header + 12, sizeof p.form);
  } else {
    p.count = (row->count + kGroup - 1) / kGroup;
    std::memset(p.header, 0, kPlanHeader);  // no source row's h kept yet
    std::memcpy(p.header + 8, &p.count, sizeof p.count);
  }
  p.kept = reinterpret_cast<uint16_t*>(p.header + kPlanHeader);
  p.groups = reinterpret_cast<Group*>(p.header + kPlanHeader +
                                      size_t(p.count) * kGroup * sizeof(uint16_t));
  if (*row->planReady == 0) {
    for (int32_t c = 0; c < p.count; ++c) {
      const int32_t k0 = c * kGroup + kGroup > row->count ? row->count - kGroup : c * kGroup;
      build(row, k0, &p.groups[c]);
    }
#if defined(__aarch64__)
    p.form = -1;  // not used
#else
    p.form = p.groups[0].form;
    for (int32_t c = 1; c < p.count; ++c)
      if (p.groups[c].form != p.form) p.form = -1;
#endif
    std::memcpy(p.header + 12, &p.form, sizeof p.form);
    *row->planReady = 1;
  }
  return p;
}

// The 32-byte window as a table, and 16 look-ups in it.
#if defined(__aarch64__)
using Window = uint8x16x2_t;
inline __attribute__((always_inline)) Window windowAt(const uint8_t* p) { return vld1q_u8_x2(p); }
inline __attribute__((always_inline)) uint8x16_t pick(const Window& w, uint8x16_t idx) {
  return vqtbl2q_u8(w, idx);
}
#else
using Window = uint8x8x4_t;
inline __attribute__((always_inline)) Window windowAt(const uint8_t* p) {
  Window w;
  w.val[0] = vld1_u8(p);
  w.val[1] = vld1_u8(p + 8);
  w.val[2] = vld1_u8(p + 16);
  w.val[3] = vld1_u8(p + 24);
  return w;
}
// armv7 also has groups whose bytes fit 16 (every group of an enlargement by
// 1.1 or more): their window is one q register, the pair of d registers that
// vtbl2 takes as it is (a 32-byte window costs register moves into the four
// consecutive ones vtbl4 takes).
// The look-ups are written out so that the table is the q register the
// window was loaded into and the two results land in the halves of one q
// register: with the intrinsics GCC loads the window as two d registers and
// moves the results into a q register.
struct Window16 {
  uint8x16_t q;
};
inline __attribute__((always_inline)) Window16 window16At(const uint8_t* p) {
  return Window16{vld1q_u8(p)};
}
inline __attribute__((always_inline)) uint8x16_t pick(const Window16& w, uint8x16_t idx) {
  uint8x16_t r;
  asm("vtbl.8 %e[r], {%e[w]-%f[w]}, %e[i]\n\t"
      "vtbl.8 %f[r], {%e[w]-%f[w]}, %f[i]"
      : [r] "=&w"(r)
      : [w] "w"(w.q), [i] "w"(idx));
  return r;
}
inline __attribute__((always_inline)) uint8x16_t pick(const Window& w, uint8x16_t idx) {
  return vcombine_u8(vtbl4_u8(w, vget_low_u8(idx)), vtbl4_u8(w, vget_high_u8(idx)));
}
#endif

struct Halves {
  uint16x8_t lo, hi;  // pixels 0..7 and 8..15 of a group
};

// h of a group's 16 pixels from a window of source row bytes.
template <class W>
inline __attribute__((always_inline)) Halves horizontal(const Group& g, const W& w) {
  const uint8x16_t l = pick(w, vld1q_u8(g.sel)), r = pick(w, vld1q_u8(g.selR));
  const uint8x16_t f = vld1q_u8(g.f), nf = vld1q_u8(g.nf);
  uint16x8_t lo = vmull_u8(vget_low_u8(l), vget_low_u8(nf));
  lo = vmlal_u8(lo, vget_low_u8(r), vget_low_u8(f));
#if defined(__aarch64__)
  uint16x8_t hi = vmull_high_u8(l, nf);
  hi = vmlal_high_u8(hi, r, f);
#else
  uint16x8_t hi = vmull_u8(vget_high_u8(l), vget_high_u8(nf));
  hi = vmlal_u8(hi, vget_high_u8(r), vget_high_u8(f));
#endif
  return Halves{vshrq_n_u16(lo, 1), vshrq_n_u16(hi, 1)};
}

// The same for a group at the plane's edges: from a copy of the clamped
// columns, or pixel by pixel.
__attribute__((noinline)) Halves edgeHorizontal(const Group& g, const KQWarpRow* row,
                                                const uint8_t* s) {
  const int32_t width = row->srcWidth;
  if (g.form == kCopy) {
    uint8_t buf[kWindow];
    for (int32_t i = 0; i < kWindow; ++i) buf[i] = s[kqwarp::clampCol(g.win + i, width)];
    return horizontal(g, windowAt(buf));
  }
  uint16_t h[kGroup];
  for (int32_t i = 0; i < kGroup; ++i)
    h[i] = kqwarp::pixelHorizontal(s, row->codes, row->step, g.k0 + i, width);
  return Halves{vld1q_u16(h), vld1q_u16(h + 8)};
}

// Stores the output pixels of one row, the high bytes of u + d * w1 (16-bit
// lanes): an add that keeps the high halves does the shift and the narrowing.
inline __attribute__((always_inline)) void storeRow(uint8_t* out, uint16x8_t uLo, uint16x8_t uHi,
                                                    uint16x8_t dLo, uint16x8_t dHi, uint16x8_t w1) {
#if defined(__aarch64__)
  const uint8x8_t lo = vaddhn_u16(uLo, vmulq_u16(dLo, w1));
  vst1q_u8(out, vaddhn_high_u16(lo, uHi, vmulq_u16(dHi, w1)));
#else
  // Both narrowed halves straight into one q register (see pick).
  const uint16x8_t pLo = vmulq_u16(dLo, w1), pHi = vmulq_u16(dHi, w1);
  uint8x16_t r;
  asm("vaddhn.i16 %e[r], %q[uLo], %q[pLo]\n\t"
      "vaddhn.i16 %f[r], %q[uHi], %q[pHi]"
      : [r] "=&w"(r)
      : [uLo] "w"(uLo), [pLo] "w"(pLo), [uHi] "w"(uHi), [pHi] "w"(pHi));
  vst1q_u8(out, r);
#endif
}

// kAll16: every group is kInside16 (armv7), no form tests.
template <int32_t kRows, bool kReuse, bool kAll16 = false>
void plannedGroups(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row, const Plan& plan) {
  const uint8_t* s0 = row->src0;
  const uint8_t* s1 = row->src1;
  uint16x8_t w1[kRows];
  for (int32_t r = 0; r < kRows; ++r) w1[r] = vdupq_n_u16(uint16_t(row->w1[r]));
  uint16_t* kept = plan.kept;
  for (int32_t c = 0; c < plan.count; ++c, kept += kGroup) {
    const Group& g = plan.groups[c];
    Halves hu, hl;
#if !defined(__aarch64__)
    if (kAll16) {
      hl = horizontal(g, window16At(s1 + g.win));
      if (!kReuse) hu = horizontal(g, window16At(s0 + g.win));
    } else
#endif
    if (g.form == kInside) {
      hl = horizontal(g, windowAt(s1 + g.win));
      if (!kReuse) hu = horizontal(g, windowAt(s0 + g.win));
#if !defined(__aarch64__)
    } else if (g.form == kInside16) {
      hl = horizontal(g, window16At(s1 + g.win));
      if (!kReuse) hu = horizontal(g, window16At(s0 + g.win));
#endif
    } else {
      hl = edgeHorizontal(g, row, s1);
      if (!kReuse) hu = edgeHorizontal(g, row, s0);
    }
    if (kReuse) hu = Halves{vld1q_u16(kept), vld1q_u16(kept + 8)};
    vst1q_u16(kept, hl.lo);
    vst1q_u16(kept + 8, hl.hi);
    const uint16x8_t dLo = vsubq_u16(hl.lo, hu.lo), dHi = vsubq_u16(hl.hi, hu.hi);
    const uint16x8_t uLo = vshlq_n_u16(hu.lo, 4), uHi = vshlq_n_u16(hu.hi, 4);
    uint8_t* out = dst + g.k0;
    for (int32_t r = 0; r < kRows; ++r, out += dstStride) storeRow(out, uLo, uHi, dLo, dHi, w1[r]);
  }
}

bool plannedRow(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  if (!takesPlan(row)) return false;
  const Plan plan = planOf(row, buildGroup);
  // In an enlargement the next call's upper row is this call's lower row,
  // and the same chain gives it the same h.
  const uint8_t* keptRow;
  std::memcpy(&keptRow, plan.header, sizeof keptRow);
  const bool reuse = keptRow == row->src0;
  kqWarpWithRowCount(row->rows, [&](auto rows) {
    constexpr int32_t n = decltype(rows)::value;
#if !defined(__aarch64__)
    if (plan.form == kInside16) {
      if (reuse)
        plannedGroups<n, true, true>(dst, dstStride, row, plan);
      else
        plannedGroups<n, false, true>(dst, dstStride, row, plan);
      return;
    }
#endif
    if (reuse)
      plannedGroups<n, true>(dst, dstStride, row, plan);
    else
      plannedGroups<n, false>(dst, dstStride, row, plan);
  });
  std::memcpy(plan.header, &row->src1, sizeof row->src1);
  return true;
}

}  // namespace

// Rows without a plan: block by block.
void kqWarpBilinearRow_neon(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  // Steps outside the vector range: the 32-bit lane arithmetic throughout.
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpBilinearRow_c(dst, dstStride, row);
    return;
  }
  if (plannedRow(dst, dstStride, row)) return;
  const int32_t count = row->count, rows = row->rows, width = row->srcWidth;
  const uint8x8_t off = laneOffsets(row->step);
  const uint8x8_t mask31 = vdup_n_u8(31), v32 = vdup_n_u8(32);
  uint8_t edgeU[16] = {}, edgeL[16] = {};
  const uint8_t* s0 = row->src0;
  const uint8_t* s1 = row->src1;
  float p = row->x;
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
    const uint8x8_t lu = vtbl1_u8(vld1_u8(u), idx);
    const uint8x8_t ru = vtbl1_u8(vld1_u8(u + 1), idx);
    const uint16x8_t hu = vshrq_n_u16(vmlal_u8(vmull_u8(lu, nf), ru, f), 1);
    const uint8x8_t ll = vtbl1_u8(vld1_u8(l), idx);
    const uint8x8_t rl = vtbl1_u8(vld1_u8(l + 1), idx);
    const uint16x8_t hl = vshrq_n_u16(vmlal_u8(vmull_u8(ll, nf), rl, f), 1);
    // The horizontal results serve every output row of the block.
    for (int32_t r = 0; r < rows; ++r) {
      const uint16_t w1 = static_cast<uint16_t>(row->w1[r]);
      const uint16x8_t v =
          vshrq_n_u16(vmlaq_n_u16(vmulq_n_u16(hu, static_cast<uint16_t>(16 - w1)), hl, w1), 8);
      storeLanes(dst + r * dstStride + start, vmovn_u16(v), lanes);
    }
  }
}

namespace {

// Planned nearest-sample rows, by groups of 16 pixels as the bilinear ones:
// each pixel's clamped column clampCol(xi) is picked out of a 32-byte window
// inside the row with one table look-up (the clamping in the look-up bytes,
// so the plane's edges need no copy); a group whose columns spread over more
// than 32 bytes goes pixel by pixel. Planes narrower than a window take the
// blocks.
void buildNearestGroup(const KQWarpRow* row, int32_t k0, Group* g) {
  std::memset(g, 0, sizeof *g);
  g->k0 = k0;
  const int32_t width = row->srcWidth;
  int32_t col[kGroup], lo = width, hi = 0;
  for (int32_t i = 0; i < kGroup; ++i) {
    int32_t xi, frac;
    kqwarp::pixelPosition(row->codes, row->step, k0 + i, &xi, &frac);
    col[i] = kqwarp::clampCol(xi, width);
    lo = col[i] < lo ? col[i] : lo;
    hi = col[i] > hi ? col[i] : hi;
  }
  if (hi - lo > kWindow - 1) {
    g->form = kNone;
    return;
  }
  g->form = kInside;
  g->win = lo < width - kWindow ? lo : width - kWindow;
#if !defined(__aarch64__)
  // armv7: columns that fit 16 bytes take the one-register window (vtbl2).
  const int32_t win16 = lo < width - 16 ? lo : width - 16;
  if (hi - win16 <= 15) {
    g->form = kInside16;
    g->win = win16;
  }
#endif
  for (int32_t i = 0; i < kGroup; ++i) g->sel[i] = uint8_t(col[i] - g->win);
}

bool plannedNearest(uint8_t* dst, const KQWarpRow* row) {
  if (!takesPlan(row) || row->srcWidth < kWindow) return false;
  const Plan plan = planOf(row, buildNearestGroup);
  const uint8_t* s = row->src0;
#if !defined(__aarch64__)
  if (plan.form == kInside16) {  // every group of an enlargement: no form tests
#pragma GCC unroll 2
    for (int32_t c = 0; c < plan.count; ++c) {
      const Group& g = plan.groups[c];
      vst1q_u8(dst + g.k0, pick(window16At(s + g.win), vld1q_u8(g.sel)));
    }
    return true;
  }
#endif
  for (int32_t c = 0; c < plan.count; ++c) {
    const Group& g = plan.groups[c];
#if !defined(__aarch64__)
    if (__builtin_expect(g.form == kInside16, 1)) {
      vst1q_u8(dst + g.k0, pick(window16At(s + g.win), vld1q_u8(g.sel)));
      continue;
    }
#endif
    if (g.form == kInside) {
      vst1q_u8(dst + g.k0, pick(windowAt(s + g.win), vld1q_u8(g.sel)));
      continue;
    }

    for (int32_t i = 0; i < kGroup; ++i) {
      int32_t xi, frac;
      kqwarp::pixelPosition(row->codes, row->step, g.k0 + i, &xi, &frac);
      dst[g.k0 + i] = s[kqwarp::clampCol(xi, row->srcWidth)];
    }
  }
  return true;
}

}  // namespace

void kqWarpNearestRow_neon(uint8_t* dst, const KQWarpRow* row) {
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpNearestRow_c(dst, row);
    return;
  }
  if (plannedNearest(dst, row)) return;
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

// 64 bytes per step (one loop of four instructions), then 16, then the last
// 16 again (overlapping, the same bytes), or a short row by memcpy. Copying
// one short chroma row so takes about half the instructions of the C
// library's memcpy, with its size dispatch.
void kqWarpCopyRow_neon(uint8_t* dst, const uint8_t* src, size_t n) {
  if (n < 16) {
    std::memcpy(dst, src, n);
    return;
  }
  const size_t whole = n & ~size_t(63);
  if (whole > 0) {
    const uint8_t* s = src;
    uint8_t* d = dst;
    size_t left = whole;
#if defined(__aarch64__)
    asm volatile(
        "1:\n\t"
        "ld1 {v16.16b-v19.16b}, [%[s]], #64\n\t"
        "subs %[left], %[left], #64\n\t"
        "st1 {v16.16b-v19.16b}, [%[d]], #64\n\t"
        "b.ne 1b"
        : [s] "+r"(s), [d] "+r"(d), [left] "+r"(left)
        :
        : "v16", "v17", "v18", "v19", "cc", "memory");
#else
    asm volatile(
        "1:\n\t"
        "vld1.8 {d16-d19}, [%[s]]!\n\t"
        "vld1.8 {d20-d23}, [%[s]]!\n\t"
        "subs %[left], %[left], #64\n\t"
        "vst1.8 {d16-d19}, [%[d]]!\n\t"
        "vst1.8 {d20-d23}, [%[d]]!\n\t"
        "bne 1b"
        : [s] "+r"(s), [d] "+r"(d), [left] "+r"(left)
        :
        : "d16", "d17", "d18", "d19", "d20", "d21", "d22", "d23", "cc", "memory");
#endif
  }
  size_t i = whole;
  for (; i + 16 <= n; i += 16) vst1q_u8(dst + i, vld1q_u8(src + i));
  if (i < n) vst1q_u8(dst + n - 16, vld1q_u8(src + n - 16));
}
