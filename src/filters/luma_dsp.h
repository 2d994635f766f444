// luma_dsp.h - kernels of the luma filters (edge-preserving noise reduction,
// its blends, unsharp-mask sharpening) and their per-ISA dispatch table.
#pragma once

#include <cstddef>
#include <cstdint>

// ---------------------------------------------------------------------------
// Noise reduction, interior pass.
//
// One output row of the range-weighted average. `src` points at the centre
// row y of a packed plane with row stride `stride` (= width); rows y - 4 to
// y + 4 must exist. For every centre c at x = 6 ... 6 + 16 * m - 1 with
// m = (width - 16) / 16 (nothing when m < 1) the kernel gathers 16 taps
// (centre included):
//   row y:     dx = -6, -1, 0, +1, +6
//   row y - 1: dx = -4, 0, +4
//   row y + 1: dx = -4, -2, 0, +4        (lopsided on purpose)
//   row y - 4: dx = -2, +2
//   row y + 4: dx = -2, +2
// w = 30 (-) |p - c| (saturating), N = sum w * p, D = sum w (30..480), and
// stores min(255, trunc(float(N) * recipEstimate(D))) where recipEstimate is
// the Arm VRECPE.F32 estimate (8 bits, no refinement step).
// Reads columns [16 * j, 16 * j + 31] of the nine rows for block j, i.e.
// never beyond column 16 * (m + 1) - 1 <= width - 1. Writes only the listed
// columns of `dst` (the output row y). No over-read, no over-write.
using KQLumaNrRowFn = void(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t width);

// The interior row and the plain blend at once: the outputs of
// KQLumaNrRowFn for the first `blocks` blocks only (columns 6 .. 6 + 16 *
// blocks - 1; blocks <= (width - 16) / 16 of the plane's width), each
// blended with the centre row's own byte o as KQLumaBlendRowFn blends it:
//   dst[x] = min(255, (weight * f + (128 - weight) * o) >> 7)
// for a weight of 0..128 (strengths 0..10; the driver sends other weights
// through the row and the blend apart). Reads what KQLumaNrRowFn reads for
// those blocks; writes only their columns.
using KQLumaNrBlendRowFn = void(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t blocks,
                                int32_t weight);

// ---------------------------------------------------------------------------
// Noise reduction, one run of the border frame.
//
// `count` centres at columns x .. x + count - 1 of one row, with every tap
// column displaced by the same shift s (the border kernel's shift over the
// run, see kqLumaNrBorder_c): rows[0] is the centre row, rows[1..4] the
// rows y - 2, y + 2, y - 4, y + 4 after clamping. Taps: centre row at
// b - 6, b - 1, b + 1, b + 6; rows y -/+ 2 at b - 4, b, b + 4; rows y -/+ 4
// at b - 2, b + 2 (b = x + s), and
//   dst[x] = trunc(float(30 c + sum w p) / float(30 + sum w)),  w = 30 (-) |p - c|.
// The caller keeps every tap inside the row: x + s - 6 >= 0 and
// x + count - 1 + s + 6 <= width - 1. Writes dst[x .. x + count - 1] only.
using KQLumaNrBorderRunFn = void(uint8_t* dst, const uint8_t* const* rows, int32_t x, int32_t count,
                                 int32_t s);

// ---------------------------------------------------------------------------
// Noise reduction, blend with the unfiltered plane.
//
// For x in [0, 8 * (width / 8)): with f = dst[x] (filtered) and o = orig[x],
//   v = weight * f + (128 - weight) * o      in 16-bit lanes, wrapping
//   dst[x] = min(255, v >> 7)                (unsigned shift)
// `weight` is taken modulo 2^16 (strengths above 10 wrap; not guarded).
// The last width % 8 columns are not touched: they keep the filtered value.
using KQLumaBlendRowFn = void(uint8_t* dst, const uint8_t* orig, int32_t width, int32_t weight);

// Reference-guided blend, reference scale `scale` = 1, 2 or 4. For x in
// [0, 8 * (width / 8)):
//   w' = min(128, (13 * ref[x / scale] + weight) mod 2^16)   (unsigned)
//   dst[x] = min(255, (w' * f + (128 - w') * o) >> 7)
// Reads ref[0 .. (8 * (width / 8) - 1) / scale] only. Any other scale value
// is treated as 1; the driver sends other ratios to its generic scalar blend.
using KQLumaBlendRefRowFn = void(uint8_t* dst, const uint8_t* orig, const uint8_t* ref,
                                 int32_t width, int32_t weight, int32_t scale);

// ---------------------------------------------------------------------------
// Reciprocal estimate of `count` floats, bit for bit the Arm VRECPE.F32
// result with the armv7 Advanced SIMD rules (flush to zero, default NaN):
// see recip_estimate.h. The NEON version is the instruction itself, which
// is what lets the tests hold the emulation against the hardware.
using KQRecipEstimateFn = void(const float* src, float* dst, int32_t count);

// ---------------------------------------------------------------------------
// Sharpening, one output row.
//
// Per-row parameters of the 5-tap kernels (kinds 4 and 6): symmetric blur
// weights outer, inner, centre with 2 * outer + 2 * inner + centre = 128;
// gain and threshold are used as signed 16-bit lanes (they wrap).
struct KQSharpenParams {
  int32_t gain;       // (int)(strength * 256), taken modulo 2^16
  int32_t threshold;  // (int)(detail threshold * 1.5), taken modulo 2^16
  int32_t wOuter, wInner, wCentre;
};

// rows[0..4] are the source rows y - 2 ... y + 2 after the edge mirroring,
// rows[2] the row being sharpened (also the "original" o). With
// nv = 8 * (width / 8):
//  - x < nv: V = sat_u8((outer*(r0+r4) + inner*(r1+r3) + centre*r2 + 64) >> 7),
//    H = outer*(V(x-2)+V(x+2)) + inner*(V(x-1)+V(x+1)) + centre*V(x), with
//    V(-1) = V(-2) = V(0) and V(nv) = V(nv+1) = V(nv-1);
//  - x >= nv (the tail): no vertical blur, right neighbours mirrored to the
//    left on the centre row: H = centre*p(x) + 2*inner*p(x-1) + 2*outer*p(x-2)
//    (columns below 0 read column 0).
// Then D = 4o - (H >> 5), E = (D * gain) >> 8 narrowed to 16 bits,
// C = clamp(E, -120, 120), L = clamp(D, -t, t), M = (L * 102) >> 8,
// R = 4o - M + (C >> 1) + (E >> 1) (16-bit lanes), and the output is
// sat_u8((R + 2) >> 2) in the vector part but clamp(R >> 2, 0, 255) in the
// tail (no rounding there). Reads columns [0, width) of the five rows, writes
// dst[0, width). No over-read, no over-write.
using KQSharpenRowFn = void(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                            const KQSharpenParams* params);

// Kind 7: rows[0..6] are y - 3 ... y + 3 (after mirroring), weights
// 16, 16, 20, 24, 20, 16, 16 in both directions, otherwise as above (the
// vector part repeats V(nv - 1) for the three columns beyond it; the tail
// mirrors x + k to x - k). Only `gain` and `threshold` of params are read.
using KQSharpenRow7Fn = void(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                             const KQSharpenParams* params);

KQLumaNrRowFn kqLumaNrRow_c, kqLumaNrRow_neon, kqLumaNrRow_sse41, kqLumaNrRow_avx2,
    kqLumaNrRow_avx512;
KQLumaNrBlendRowFn kqLumaNrBlendRow_c, kqLumaNrBlendRow_neon;
KQLumaNrBorderRunFn kqLumaNrBorderRun_c, kqLumaNrBorderRun_neon, kqLumaNrBorderRun_sse41,
    kqLumaNrBorderRun_avx2, kqLumaNrBorderRun_avx512;
KQLumaBlendRowFn kqLumaBlendRow_c, kqLumaBlendRow_neon, kqLumaBlendRow_sse41, kqLumaBlendRow_avx2,
    kqLumaBlendRow_avx512;
KQLumaBlendRefRowFn kqLumaBlendRefRow_c, kqLumaBlendRefRow_neon, kqLumaBlendRefRow_sse41;
KQRecipEstimateFn kqRecipEstimate_c, kqRecipEstimate_neon, kqRecipEstimate_sse41;
KQSharpenRowFn kqSharpenRow_c, kqSharpenRow_neon, kqSharpenRow_sse41, kqSharpenRow_avx2,
    kqSharpenRow_avx512;
KQSharpenRow7Fn kqSharpenRow7_c;

// Scalar border kernel of the noise filter, the definition of the frame
// (the stage cuts its rows into runs of one shift for KQLumaNrBorderRunFn
// and keeps this kernel for planes narrower than 18). For y in [y0, y1),
// x in [x0, x1):
//  - neighbour rows y -/+ 2 and y -/+ 4 clamped into the plane;
//  - taps row y: dx = -6, -1, +1, +6; rows y -/+ 2: dx = -4, 0, +4;
//    rows y -/+ 4: dx = -2, +2, every column displaced by the shift s;
//  - s starts each row at +6 when x0 < 7, else at -6, and drops by 6 when
//    the loop reaches x = 6 and again at x = width - 6;
//  - out = trunc(float(30c + sum w p) / float(30 + sum w)), w from the range
//    table max(0, 30 - |p - c|).
// Tap columns are clamped into [0, width - 1]; that never changes a result
// for widths of 18 or more and keeps narrower planes inside their rows.
// x0/x1 and y0/y1 are clamped to the plane; an empty range does nothing.
void kqLumaNrBorder_c(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height,
                      int32_t x0, int32_t x1, int32_t y0, int32_t y1);

struct KQLumaDsp {
  KQLumaNrRowFn* nrRow;
  // Null at the levels without a fused row (x86): the driver then runs
  // nrRow and blendRow apart.
  KQLumaNrBlendRowFn* nrBlendRow;
  KQLumaNrBorderRunFn* nrBorderRun;
  KQLumaBlendRowFn* blendRow;
  KQLumaBlendRefRowFn* blendRefRow;
  KQRecipEstimateFn* recipEstimate;
  KQSharpenRowFn* sharpenRow;
  KQSharpenRow7Fn* sharpenRow7;
};

// Fills `dsp` for the instruction sets in `cpuFlags` (C first, then the
// vector versions in rising order). No global state: tests call it per level.
void kqLumaDspInit(KQLumaDsp* dsp, uint32_t cpuFlags);

// The table for kqCpuFlags(), built once (thread-safe).
const KQLumaDsp* kqLumaDspGet();

// ---------------------------------------------------------------------------
// Per-pixel helpers shared by the scalar reference and the vector tails.
// They are static inline so that each ISA object library gets its own copy,
// compiled with that library's flags: a shared out-of-line copy could be
// built with AVX-512 instructions and then run on a CPU without them.

// Steps D -> output of the sharpening, in the 16-bit lane arithmetic of the
// vector kernels. `h` is the horizontal blur (0..32640), `o` the original.
// Returns R (before the final shift).
static inline int32_t kqSharpenResponse(int32_t o, int32_t h, int32_t gain, int32_t threshold) {
  const int16_t g = int16_t(uint16_t(gain));
  const int16_t t = int16_t(uint16_t(threshold));
  const int16_t nt = int16_t(uint16_t(-int32_t(t)));  // wraps for -32768 as vneg does
  const int16_t d = int16_t(4 * o - (h >> 5));
  const int16_t e = int16_t(uint16_t(uint32_t((int32_t(d) * g) >> 8)));  // truncating narrow
  const int16_t c = e < -120 ? int16_t(-120) : e > 120 ? int16_t(120) : e;
  int16_t l = d < nt ? nt : d;
  l = l > t ? t : l;
  const int16_t m = int16_t(uint16_t(uint32_t((int32_t(l) * 102) >> 8)));
  return int16_t(uint16_t(4 * o - m + (c >> 1) + (e >> 1)));
}

// The tail form of the 5-tap kernels: centre row only, right neighbours
// mirrored to the left, no rounding in the final shift.
static inline uint8_t kqSharpenTailPixel(const uint8_t* row, int32_t x, const KQSharpenParams* p) {
  const int32_t x1 = x >= 1 ? x - 1 : 0;
  const int32_t x2 = x >= 2 ? x - 2 : 0;
  const int32_t h = p->wCentre * row[x] + 2 * p->wInner * row[x1] + 2 * p->wOuter * row[x2];
  const int32_t r = kqSharpenResponse(row[x], h, p->gain, p->threshold) >> 2;
  return uint8_t(r < 0 ? 0 : r > 255 ? 255 : r);
}

// Runs the vector sharpening row k.row<kSmallGain, kThreshold>(dst, nv)
// chosen by the parameters: gains up to 8191 in magnitude need no 32-bit
// products, a zero threshold no clamp-and-subtract step.
template <class K>
inline void kqSharpenRunRow(const K& k, uint8_t* dst, int32_t nv, const KQSharpenParams* p) {
  const int16_t g = int16_t(uint16_t(p->gain));
  const bool small = g >= -8191 && g <= 8191;
  if (uint16_t(p->threshold) == 0)
    small ? k.template row<true, false>(dst, nv) : k.template row<false, false>(dst, nv);
  else
    small ? k.template row<true, true>(dst, nv) : k.template row<false, true>(dst, nv);
}

// Rounding shift by 2 with unsigned saturation (vqrshrun #2), vector part.
static inline uint8_t kqSharpenRound(int32_t r) {
  const int32_t v = (r + 2) >> 2;
  return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
}

// One blend pixel of the plain and the reference-guided blends (16-bit lanes).
static inline uint8_t kqLumaBlendPixel(uint8_t f, uint8_t o, uint32_t weight) {
  const uint16_t w = uint16_t(weight);
  const uint16_t v = uint16_t(uint32_t(w) * f + uint32_t(uint16_t(128u - w)) * o);
  const uint16_t s = uint16_t(v >> 7);
  return uint8_t(s > 255 ? 255 : s);
}
