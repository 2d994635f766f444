// warp_dsp.h - row kernels of the warp stage (bilinear luma, nearest-sample
// chroma), their dispatch table, and the fixed-point helpers that the scalar
// reference and every vector version share.
//
// One output row of a tile rectangle samples the source along a straight
// line: pixel k of the row sits at source x = x + k * D on a fixed source
// row. The row is cut into blocks of 8 pixels. Block j starts at the float
// position p(j), with p(0) = x and p(j+1) = p(j) + 8*D (float additions in
// that order). Inside a block, positions are fixed point in 1/32 pixel:
//
//   base  = floor(p(j)), f0 = int((p(j) - base) * 32)        0..31
//   q(l)  = f0 + ((l * S) >> 6)      lane l = 0..7, S = int(D * 2048)
//   x(l)  = base + (q(l) >> 5),  frac(l) = q(l) & 31
//
// Sample columns are clamped to the plane: left = clamp(x(l)), right =
// clamp(x(l) + 1). Luma (Q5 horizontal, Q4 vertical weights):
//
//   h(row) = (row[left] * (32 - frac) + row[right] * frac) >> 1   0..4080
//   r      = (hUpper * (16 - w1) + hLower * w1) >> 8              0..255
//
// Chroma takes row[clamp(x(l))]. Both finish with the normalisation
// trunc(float(r * 5) * 0.2f + 0.5f), which gives r back for 0..255; it is
// the one-image form of the weighting used when several images are merged.
// The scalar kernels apply it as written; the vector kernels store r as it
// is, which the kernel checks prove equal for all 256 values.
//
// Fast paths: with 0 <= S <= kKqWarpMaxVectorStep every q(l) is at most 255
// (8-bit lanes, 16-bit products) and x(l) + 1 stays within 8 bytes of base,
// so one 8-byte window (plus the same window one byte on) serves the block:
// the row itself when the window lies inside it, else a copy of the clamped
// columns (blockWindow). Larger or negative steps use the same arithmetic in
// 32-bit integers, so the output never depends on the path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// Output rows of one bilinear call: consecutive output rows that sample the
// same two source rows at the same positions (an enlargement maps several
// output rows to each source row pair) differ only in their vertical weight,
// so their horizontal pass is shared.
constexpr int32_t kKqWarpMaxRows = 8;

// Sampling parameters of one output row (or of `rows` output rows that share
// all but the vertical weight), prepared by the tile code.
struct KQWarpRow {
  const uint8_t* src0;         // upper source row (luma) or the sampled row (chroma)
  const uint8_t* src1;         // lower source row (luma; equals src0 on the last row)
  int32_t srcWidth;            // >= 1; valid columns 0 .. srcWidth - 1
  int32_t count;               // output pixels per row, >= 1
  int32_t rows;                // output rows, 1..kKqWarpMaxRows (bilinear only)
  int32_t w1[kKqWarpMaxRows];  // weight of src1 in 1/16 per output row, 0..15
  int32_t step;                // S: per-pixel step in 1/2048 source pixel, |S| <= 2^24
  float x;                     // p(0): source x of the row's first pixel
  float blockStep;             // 8 * D, added once per block
  // Optional, set by the tile code for rows whose block chain it has already
  // walked: codes[j] = base * 32 + phase of block j (blockOriginFast of
  // p(j)), so a kernel may take the origins from here instead of the float
  // chain. plan (kqWarpPlanBytes(count) bytes) and *planReady (0 until a
  // kernel has filled plan) belong to these codes and to one kernel table:
  // a vector kernel keeps its per-column shuffles and weights there, built on
  // first use and reused by every later row with the same codes. The scalar
  // kernels ignore all three.
  const int32_t* codes = nullptr;
  uint8_t* plan = nullptr;
  int32_t* planReady = nullptr;
};

// Calls f(std::integral_constant<int32_t, R>()) with R = rows for rows
// 1 .. kKqWarpMaxRows (other counts take the maximum), so that a kernel can
// keep one vector per output row in registers.
template <class F>
inline void kqWarpWithRowCount(int32_t rows, F&& f) {
  switch (rows) {
    case 1:
      return f(std::integral_constant<int32_t, 1>());
    case 2:
      return f(std::integral_constant<int32_t, 2>());
    case 3:
      return f(std::integral_constant<int32_t, 3>());
    case 4:
      return f(std::integral_constant<int32_t, 4>());
    case 5:
      return f(std::integral_constant<int32_t, 5>());
    case 6:
      return f(std::integral_constant<int32_t, 6>());
    case 7:
      return f(std::integral_constant<int32_t, 7>());
    default:
      return f(std::integral_constant<int32_t, kKqWarpMaxRows>());
  }
}
static_assert(kKqWarpMaxRows == 8, "kqWarpWithRowCount lists the row counts");

// Scratch bytes a kernel may use as the plan of a count-pixel row: per 16
// pixels (counted in pairs, rounded up) one 80-byte record (shuffle and
// weight bytes, window columns, a form) and 32 bytes for a source row's
// horizontal results, two spare sets of both, and 64 bytes for alignment and
// the tag that names that source row.
constexpr size_t kKqWarpPlanRecord = 80;
inline size_t kqWarpPlanBytes(int32_t count) {
  const size_t groups = (size_t(count > 0 ? count : 0) + 31) / 32 * 2;
  return (groups + 2) * (kKqWarpPlanRecord + 32) + 64;
}

// Bilinear: writes row->count bytes to each of row->rows rows starting at
// dst, dstStride apart (no more). Nearest: writes row->count bytes at dst
// (rows and w1 unused). Both read only src0 / src1 at columns
// 0 .. srcWidth - 1. dst must not overlap the source rows; no alignment
// needs. Every version gives the same bytes as the _c one.
using KQWarpBilinearRowFn = void(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row);
using KQWarpNearestRowFn = void(uint8_t* dst, const KQWarpRow* row);

// Nearest sample of interleaved chroma: src0 is a row of two-byte pairs
// (srcWidth pairs, pair i at bytes 2i and 2i + 1) and pixel k of the row
// takes the whole pair of column clamp(x(l)), writing it at dst + 2k, its
// two bytes exchanged when swap is 1 (2 * count bytes, no more). The bytes
// are those of the nearest-sample row run on each byte of the pairs alone.
using KQWarpNearestPairRowFn = void(uint8_t* dst, const KQWarpRow* row, int32_t swap);

// Copies n bytes from src to dst (a nearest-sample row that repeats the row
// above it); the two do not overlap.
using KQWarpCopyRowFn = void(uint8_t* dst, const uint8_t* src, size_t n);

KQWarpBilinearRowFn kqWarpBilinearRow_c, kqWarpBilinearRow_neon, kqWarpBilinearRow_sse41,
    kqWarpBilinearRow_avx2, kqWarpBilinearRow_avx512;
KQWarpNearestRowFn kqWarpNearestRow_c, kqWarpNearestRow_neon, kqWarpNearestRow_sse41,
    kqWarpNearestRow_avx512;
KQWarpNearestPairRowFn kqWarpNearestPairRow_c, kqWarpNearestPairRow_neon,
    kqWarpNearestPairRow_sse41, kqWarpNearestPairRow_avx2;
KQWarpCopyRowFn kqWarpCopyRow_c, kqWarpCopyRow_neon;

struct KQWarpDsp {
  KQWarpBilinearRowFn* bilinearRow;
  KQWarpNearestRowFn* nearestRow;
  KQWarpNearestPairRowFn* nearestPairRow;
  KQWarpCopyRowFn* copyRow;
};

// Fills `dsp` for the instruction sets in cpuFlags (C first, then rising).
void kqWarpDspInit(KQWarpDsp* dsp, uint32_t cpuFlags);

// The table for this CPU, built once.
const KQWarpDsp* kqWarpDspGet();

// Largest S the vector paths take: lane 7 then reaches at most
// 31 + (7 * 2048 >> 6) = 255 in 1/32 pixel, i.e. source offset 7, whose
// right-hand neighbour is byte 8 of the window.
constexpr int32_t kKqWarpMaxVectorStep = 2048;

// Block positions are clamped to +-2^24 before they are converted, and S to
// +-2^24, so that all fixed-point arithmetic fits in int32.
constexpr float kKqWarpPosLimit = 16777216.0f;

// Reciprocal of 5.0 as the NEON estimate plus two Newton steps gives it on
// armv7 and aarch64 (the nearest float to 0.2, 0x3E4CCCCD).
constexpr float kKqWarpFifth = 0.2f;

namespace kqwarp {

// Arithmetic shift right, defined for negative values (floor division).
static inline int32_t asr(int32_t v, int k) { return v >= 0 ? v >> k : ~(~v >> k); }

static inline int32_t clampCol(int32_t x, int32_t width) {
  return x < 0 ? 0 : x >= width ? width - 1 : x;
}

// Splits a block's float start into its integer base column and 1/32 phase.
// NaN gives 0; positions beyond +-2^24 are clamped first.
static inline void blockOrigin(float p, int32_t* base, int32_t* phase) {
  float c = p;
  if (!(c == c)) c = 0.0f;
  if (c < -kKqWarpPosLimit) c = -kKqWarpPosLimit;
  if (c > kKqWarpPosLimit) c = kKqWarpPosLimit;
  int32_t i = static_cast<int32_t>(c);  // |c| <= 2^24: in range
  if (static_cast<float>(i) > c) --i;   // floor for negative positions
  *base = i;
  *phase = static_cast<int32_t>((c - static_cast<float>(i)) * 32.0f);  // exact, 0..31
}

// blockOrigin in one multiply: for 0 <= c <= 2^24, c * 32 is exact and its
// truncation is floor(32 c) = 32 * floor(c) + floor(32 * (c - floor(c))),
// so base and phase are its high bits and its low 5 bits. Other starts
// (negative, NaN) take blockOrigin itself.
static inline void blockOriginFast(float p, int32_t* base, int32_t* phase) {
  if (p >= 0.0f) {
    const float c = p < kKqWarpPosLimit ? p : kKqWarpPosLimit;
    const int32_t code = static_cast<int32_t>(c * 32.0f);
    *base = code >> 5;
    *phase = code & 31;
    return;
  }
  blockOrigin(p, base, phase);
}

// Origin of block j of a row, blocks taken in order: from the row's
// planned codes when it has them, else from the float position *p, which
// then advances by one block step.
static inline void nextOrigin(const KQWarpRow* row, int32_t j, float* p, int32_t* base,
                              int32_t* phase) {
  if (row->codes != nullptr) {
    *base = asr(row->codes[j], 5);
    *phase = row->codes[j] & 31;
  } else {
    blockOriginFast(*p, base, phase);
    *p = *p + row->blockStep;
  }
}

// r in 0..255 -> the normalised byte: (r * 5) in 16 bits, times the float
// fifth, plus 0.5, truncated. The clamp keeps the conversion defined; it
// never changes a result (the sum stays below 256).
static inline uint8_t normalise(uint32_t r) {
  const uint16_t r5 = static_cast<uint16_t>(r * 5u);
  float v = static_cast<float>(r5) * kKqWarpFifth;
  v = v + 0.5f;
  if (v > 255.0f) v = 255.0f;
  return static_cast<uint8_t>(static_cast<uint32_t>(v));
}

// Lanes [from, to) of one block for output row rowIndex, in 32-bit
// arithmetic: the reference, and the path every version takes outside its
// vector bounds.
static inline void bilinearLanes(uint8_t* dst, const KQWarpRow* row, int32_t rowIndex, int32_t base,
                                 int32_t phase, int32_t from, int32_t to) {
  const int32_t w = row->srcWidth;
  const uint32_t w1 = static_cast<uint32_t>(row->w1[rowIndex]), w0 = 16u - w1;
  for (int32_t l = from; l < to; ++l) {
    const int32_t q = phase + asr(l * row->step, 6);
    const int32_t xi = base + asr(q, 5);
    const uint32_t f = static_cast<uint32_t>(q & 31);
    const int32_t xa = clampCol(xi, w), xb = clampCol(xi + 1, w);
    // Q5 weights, halved: 0..4080.
    const uint32_t hu = (row->src0[xa] * (32u - f) + row->src0[xb] * f) >> 1;
    const uint32_t hl = (row->src1[xa] * (32u - f) + row->src1[xb] * f) >> 1;
    // Q4 vertical weights; the sum (at most 65280) fits 16-bit lanes.
    dst[l] = normalise((hu * w0 + hl * w1) >> 8);
  }
}

static inline void nearestLanes(uint8_t* dst, const KQWarpRow* row, int32_t base, int32_t phase,
                                int32_t from, int32_t to) {
  for (int32_t l = from; l < to; ++l) {
    const int32_t q = phase + asr(l * row->step, 6);
    dst[l] = normalise(row->src0[clampCol(base + asr(q, 5), row->srcWidth)]);
  }
}

// Lanes [from, to) of one block of interleaved pairs: pair lane l takes
// bytes (2c + a, 2c + 1 - a) of column c = clamp(x(l)), a being swap.
static inline void nearestPairLanes(uint8_t* dst, const KQWarpRow* row, int32_t base, int32_t phase,
                                    int32_t from, int32_t to, int32_t swap) {
  const int32_t a = swap != 0 ? 1 : 0;
  for (int32_t l = from; l < to; ++l) {
    const int32_t q = phase + asr(l * row->step, 6);
    const uint8_t* pair = row->src0 + 2 * clampCol(base + asr(q, 5), row->srcWidth);
    dst[2 * l] = normalise(pair[a]);
    dst[2 * l + 1] = normalise(pair[1 - a]);
  }
}

// Pairs base .. base + span of a vector block: the row itself (bytes from
// 2 * base) when they lie inside it, else a copy in buf (at least
// 2 * (span + 1) bytes) in which pair i is pair clampCol(base + i).
static inline const uint8_t* pairWindow(const uint8_t* src, int32_t base, int32_t span,
                                        int32_t width, uint8_t* buf) {
  if (base >= 0 && base + span <= width - 1) return src + 2 * ptrdiff_t(base);
  for (int32_t i = 0; i <= span; ++i) {
    const int32_t c = clampCol(base + i, width);
    buf[2 * i] = src[2 * c];
    buf[2 * i + 1] = src[2 * c + 1];
  }
  return buf;
}

// A planned pairs row's blocks of 8 pixels (see pairPlan): the byte offset
// of the block's 16-byte window in the source row (pairs base .. base + 7),
// or -1 where that window leaves the row (the block then reads a clamped
// copy), and the shuffle bytes that pick each pixel's two bytes out of the
// window, exchanged when the plan was built for swap.
struct alignas(16) PairBlock {
  uint8_t sel[16];
  int32_t offset;
  int32_t base;
  int32_t spare[2];
};

// The block of a pairs row whose origin is (base, phase); a is swap.
static inline void pairBlockOf(const KQWarpRow* row, int32_t base, int32_t phase, int32_t a,
                               PairBlock* b) {
  b->base = base;
  b->offset = base >= 0 && base + 7 <= row->srcWidth - 1 ? 2 * base : -1;
  for (int32_t l = 0; l < 8; ++l) {
    const int32_t idx = (phase + ((l * row->step) >> 6)) >> 5;
    b->sel[2 * l] = static_cast<uint8_t>(2 * idx + a);
    b->sel[2 * l + 1] = static_cast<uint8_t>(2 * idx + 1 - a);
  }
  b->spare[0] = b->spare[1] = 0;
}

// The blocks of a row that has codes and a plan, built into the plan on
// first use and rebuilt when swap changes (planReady holds
// kPairPlanReady + swap), or null for a row without them or outside the
// vector step range. The blocks take 32 bytes per 8 pixels of the plan
// (after aligning its start to 32), which kqWarpPlanBytes leaves room for.
constexpr int32_t kPairPlanReady = 0x5041;
static inline const PairBlock* pairPlan(const KQWarpRow* row, int32_t swap) {
  if (row->codes == nullptr || row->plan == nullptr || row->planReady == nullptr) return nullptr;
  if (!(row->step >= 0 && row->step <= kKqWarpMaxVectorStep)) return nullptr;
  const uintptr_t at = (reinterpret_cast<uintptr_t>(row->plan) + 31) & ~uintptr_t{31};
  PairBlock* blocks = reinterpret_cast<PairBlock*>(at);
  const int32_t a = swap != 0 ? 1 : 0;
  if (*row->planReady == kPairPlanReady + a) return blocks;
  const int32_t n = (row->count + 7) / 8;
  for (int32_t j = 0; j < n; ++j)
    pairBlockOf(row, asr(row->codes[j], 5), row->codes[j] & 31, a, &blocks[j]);
  *row->planReady = kPairPlanReady + a;
  return blocks;
}

// True when a block can use the 8-byte windows: the step is in the vector
// range and bytes base .. base + span lie inside the row.
static inline bool windowFits(int32_t base, int32_t span, int32_t width) {
  return base >= 0 && base + span <= width - 1;
}

static inline bool vectorStep(int32_t step) { return step >= 0 && step <= kKqWarpMaxVectorStep; }

// Source bytes base .. base + span of a vector block: the row itself when
// they lie inside it, else a copy in buf (at least span + 1 bytes) in which
// byte i is src[clampCol(base + i)]. A lane reads window bytes idx and
// idx + 1 for the columns base + idx and base + idx + 1, so the copy holds
// exactly the clamped columns the 32-bit lane arithmetic reads, and every
// block of a vector-range step can take the vector form.
static inline const uint8_t* blockWindow(const uint8_t* src, int32_t base, int32_t span,
                                         int32_t width, uint8_t* buf) {
  if (windowFits(base, span, width)) return src + base;
  for (int32_t i = 0; i <= span; ++i) buf[i] = src[clampCol(base + i, width)];
  return buf;
}

// Source column xi and 1/32 phase of pixel k of a row whose block origins
// are codes[] (base * 32 + phase, as the tile code packs them): the lane
// arithmetic of bilinearLanes for lane k % 8 of block k / 8.
static inline void pixelPosition(const int32_t* codes, int32_t step, int32_t k, int32_t* xi,
                                 int32_t* frac) {
  const int32_t code = codes[k >> 3];
  const int32_t q = (code & 31) + asr((k & 7) * step, 6);
  *xi = asr(code, 5) + asr(q, 5);
  *frac = q & 31;
}

// Planned kernels split a run of 16 pixels k0 .. k0 + 15 into its even and
// its odd pixels, 8 lanes each, and pick every lane's pair (s[xi],
// s[xi + 1]) out of a 16-byte window with a byte shuffle. How the windows
// are found:
//   kPairsShared: one window inside the row holds the pairs of all 16 pixels;
//   kPairsSplit:  one window inside the row for the even, one for the odd;
//   kPairsCopy:   as split, but a window leaves the row, so the kernel reads
//                 a copy of the clamped columns (byte i = s[clampCol(w + i)]);
//   kPairsNone:   the pixels spread over more than 16 bytes.
enum KQWarpPairForm : int32_t { kPairsShared = 0, kPairsSplit = 1, kPairsCopy = 2, kPairsNone = 3 };

// Windows of pixels k0 .. k0 + 15 in the given form (shared, split or
// copy): win[0] / win[1] are the window starts of the even / odd lanes (the
// same for shared), sel[p] the shuffle bytes (xi - w, xi - w + 1) and wts[p]
// the weight bytes (32 - frac, frac) of lane i of parity p at bytes 2i and
// 2i + 1. False when the form does not fit. A window inside the row is
// moved left when it would end past the row, so long as it still holds its
// lanes' pairs.
static inline bool pairWindows(const int32_t* codes, int32_t step, int32_t k0, int32_t width,
                               int32_t form, int32_t win[2], uint8_t sel[2][16],
                               uint8_t wts[2][16]) {
  int32_t xi[16], fr[16];
  for (int32_t i = 0; i < 16; ++i) pixelPosition(codes, step, k0 + i, &xi[i], &fr[i]);
  for (int32_t p = 0; p < 2; ++p) {
    const int32_t first = form == kPairsShared ? 0 : p, stride = form == kPairsShared ? 1 : 2;
    int32_t lo = xi[first], hi = xi[first];
    for (int32_t i = first; i < 16; i += stride) {
      lo = xi[i] < lo ? xi[i] : lo;
      hi = xi[i] > hi ? xi[i] : hi;
    }
    // Lanes read bytes xi - w and xi - w + 1, so hi + 1 - lo must stay
    // below 16 (the difference of two columns within +-2^25).
    if (hi - lo > 14) return false;
    int32_t w = lo;
    if (form != kPairsCopy) {
      w = lo < width - 16 ? lo : width - 16;
      if (w < 0 || w < hi - 14) return false;
    }
    win[p] = w;
    for (int32_t i = 0; i < 8; ++i) {
      const int32_t k = 2 * i + p;
      sel[p][2 * i] = static_cast<uint8_t>(xi[k] - w);
      sel[p][2 * i + 1] = static_cast<uint8_t>(xi[k] - w + 1);
      wts[p][2 * i] = static_cast<uint8_t>(32 - fr[k]);
      wts[p][2 * i + 1] = static_cast<uint8_t>(fr[k]);
    }
  }
  return true;
}

// The halved horizontal interpolation of pixel k (0..4080), in the 32-bit
// lane arithmetic, for planned groups whose pixels fit no window.
static inline uint16_t pixelHorizontal(const uint8_t* src, const int32_t* codes, int32_t step,
                                       int32_t k, int32_t width) {
  int32_t xi, f;
  pixelPosition(codes, step, k, &xi, &f);
  const uint32_t a = src[clampCol(xi, width)], b = src[clampCol(xi + 1, width)];
  return static_cast<uint16_t>((a * (32u - uint32_t(f)) + b * uint32_t(f)) >> 1);
}

}  // namespace kqwarp
