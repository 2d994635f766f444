// chroma_dsp.h - chroma noise reduction: the pass context, the kernel
// contract, the per-pixel helpers every version shares and the dispatch table.
#pragma once

#include <cstddef>
#include <cstdint>

// One range of rows of one pass of the chroma filter (each range of a pass
// gets its own copy with firstRow/endRow set). Rows are counted in
// full-size chroma rows and are even at every range boundary.
struct KQChromaPassContext {
  int32_t margin;       // tap distance in full-size chroma pixels (even)
  int32_t firstRow;     // first chroma row of the slice
  int32_t endRow;       // end row (exclusive) of the slice
  int32_t lumaWidth;    // row stride of the luma plane
  int32_t chromaWidth;  // w: width (and row stride) of the full-size chroma
  int32_t evenHeight;   // chroma height rounded down to even
  int32_t guideWidth;   // 0 without a guide
  int32_t lumaRatio;    // luma pixels per chroma pixel (2 for 4:2:0)
  int32_t guideScale;   // 16.16 chroma-to-guide position scale
  int32_t tailCount;    // columns left to the per-pixel code after the vector loop
  const uint8_t* weights;  // 3 rows x 9 weights
  const uint8_t* slopes;   // 3 rows x 8 slopes
  const uint8_t* srcU;     // chroma as it was before filtering
  const uint8_t* srcV;
  const uint8_t* luma;
  const uint8_t* inU;  // pass input
  const uint8_t* inV;
  uint8_t* outU;  // pass output
  uint8_t* outV;
  const uint8_t* guide;  // a single zero byte without a guide
};

// A pass kernel: filters the rows of one range of a pass, as `context`
// gives them. Kernels exist per pass (1, 2, 3) and per kind (1..5,
// weight table step 2 << (kind - 1)).
//  - w = chromaWidth, he = evenHeight, wh = w / 2, hh = he / 2; the work area
//    is the even part (2 * wh) x he; wh >= 1 and hh >= 1.
//  - pass 1 reads srcU/V (inU/V is the same full-size plane) and writes the
//    wh x hh planes outU/V; pass 2 reads wh x hh planes and writes wh x hh
//    planes; pass 3 reads wh x hh planes and writes the full-size planes,
//    columns 0..2*wh-1 only. Rows written: [firstRow/2, endRow/2) for passes 1
//    and 2, [firstRow, endRow) for pass 3, endRow clamped to he.
//  - pass 3 may run in place (outU == srcU): each output pixel reads its own
//    source pixel and no other source pixel, before it is written.
//  - luma: lumaRatio * he - (lumaRatio - 1) rows at least, lumaWidth >=
//    lumaRatio * w. Guide (guideWidth > 0): every guide position the scale
//    yields for the work area lies inside it.
//  - no byte outside these planes is read or written: vector loops stop
//    early enough and the per-pixel code does the rest (tailCount columns
//    plus the right margin), or, at the levels that take whole rows (AVX2,
//    AVX-512 on wide enough planes; see chroma_rows.h), the vector code
//    does the margins itself without loading outside its rows; margin must
//    be even and at least 2.
using KQChromaPassFn = void(const KQChromaPassContext* context);

// The rounded means of the kernels: out[i] = kqChromaMean(sums[i], weights[i])
// for i < n, where 1 <= weights[i] <= 1 + 8 * 46 (pass 1's largest weight)
// and sums[i] <= 255 * weights[i]. Vector versions compute them as their
// kernels do (the slot exists so that the kernel checks can hold that
// arithmetic against the reference over every reachable pair).
using KQChromaMeansFn = void(uint8_t* out, const uint32_t* sums, const uint32_t* weights,
                             int32_t n);
KQChromaMeansFn kqChromaMeans_c, kqChromaMeans_neon;

// The armv7 means divide by a refined reciprocal estimate, scaled a little
// above 1 / weight and brought to 1.31 fixed point (see chroma_neon.cpp).
// The scales, as float bits: two refinement steps with 1 + 2^-20 for every
// weight up to pass 1's 369; one step with 1 + 31 * 2^-22 for weights up to
// kKqChromaMeanOneStepWeights (passes 2 and 3 reach 1 + 5 * 46 = 231; the
// one-step form holds up to 273). The kernel checks emulate both forms
// over every pair.
constexpr uint32_t kKqChromaMeanScale2Bits = 0x3F800008u;
constexpr uint32_t kKqChromaMeanScale1Bits = 0x3F80003Eu;
constexpr int32_t kKqChromaMeanOneStepWeights = 1 + 5 * 46;

// The filter's kernels: pass[p][kind - 1], and the means.
struct KQChromaDsp {
  KQChromaPassFn* pass[3][5];
  KQChromaMeansFn* means;
};

// Fills `dsp` with the best kernels that `cpuFlags` allows (scalar first,
// then NEON / SSE4.1 / AVX2 / AVX-512 in rising order).
void kqChromaDspInit(KQChromaDsp* dsp, uint32_t cpuFlags);

// The table for this CPU, built once.
const KQChromaDsp* kqChromaDspGet();

// Per-ISA table fillers, each overwriting the slots it implements.
void kqChromaDspInit_c(KQChromaDsp* dsp);
void kqChromaDspInit_neon(KQChromaDsp* dsp);
void kqChromaDspInit_sse41(KQChromaDsp* dsp);
void kqChromaDspInit_avx2(KQChromaDsp* dsp);
void kqChromaDspInit_avx512(KQChromaDsp* dsp);

// ---------------------------------------------------------------------------
// Per-pixel arithmetic shared by the scalar reference and the edge columns of
// the vector kernels (internal linkage in every including file).

// Weight of an absolute difference d with table step 1 << shift: zero from
// 8 steps on, otherwise the table entry of the step below, lowered by the
// slope in proportion to the remainder, rounded to nearest:
//   w[k] - ((slope[k] * r + step / 2) >> shift),  k = d >> shift, r = d - k * step
// slope[k] * r <= 255 * 31 stays in 16 bits; the result is never below w[k+1].
static inline int kqChromaWeightOf(const uint8_t* weights, const uint8_t* slopes, int d,
                                   int shift) {
  const int step = 1 << shift;
  if (d >= 8 * step) return 0;
  const int k = d >> shift;
  const int r = d & (step - 1);
  return weights[k] - ((slopes[k] * r + (step >> 1)) >> shift);
}

struct KQChromaSums {
  int32_t weight;  // starts at 1, so that the division is always defined
  int32_t u;
  int32_t v;
};

// Pass 3 counts luma differences four times (shift 2, saturated at 255): it
// is the pass that puts colour edges on the full-resolution luma edges, and
// the luma there is clean, so a luma step of a quarter of what the chroma
// tables tolerate already marks an edge. Without it, strong settings let
// ~10 % of the colour leak across an edge of moderate luma contrast.
constexpr int kKqChromaPass3LumaGain = 2;

// Adds one tap; `lumaGain` scales the luma difference by 1 << lumaGain
// (saturated). Each weight is 0..255; the chroma product is brought back to
// 8 bits (>> 8, at most 254), multiplied by the luma weight (at most 64770)
// and scaled by 3/4096 in two truncating shifts: a tap weighs 0..46, so five
// taps' weighted sums fit in 16 bits (5 * 46 * 255 = 58650, plus the unit
// weight of pass 3's own pixel: 58905).
static inline void kqChromaAddTap(KQChromaSums* s, const uint8_t* weights, const uint8_t* slopes,
                                  int shift, int cY, int cU, int cV, int tY, int tU, int tV,
                                  int lumaGain = 0) {
  int dY = cY > tY ? cY - tY : tY - cY;
  dY = (dY << lumaGain) > 255 ? 255 : dY << lumaGain;
  const int dU = cU > tU ? cU - tU : tU - cU;
  const int dV = cV > tV ? cV - tV : tV - cV;
  const int wY = kqChromaWeightOf(weights, slopes, dY, shift);
  const int wU = kqChromaWeightOf(weights, slopes, dU, shift);
  const int wV = kqChromaWeightOf(weights, slopes, dV, shift);
  int32_t w = ((wV * wU) >> 8) * wY;
  w = (w >> 11) + (w >> 12);
  s->weight += w;
  s->u += w * tU;
  s->v += w * tV;
}

// Weighted mean rounded half up: truncate(sum / weight + 0.5) in single
// precision. With sum <= 255 * (weight - 1) and weight below 2^10 the float
// result always equals floor((2 * sum + weight) / (2 * weight)): the quotient
// lies at least 1 / (2 * weight) away from any integer unless it is one,
// while the float error is below 2^-15. Vector code relies on this where it
// has no exact division. The clamp keeps the conversion defined.
static inline uint8_t kqChromaMean(int32_t sum, int32_t weight) {
  float v = float(sum) / float(weight) + 0.5f;
  if (v > 255.0f) v = 255.0f;
  return uint8_t(int32_t(v));
}

// Luma at full-size chroma position (x, y).
static inline int kqChromaLuma(const KQChromaPassContext* c, int x, int y) {
  return c->luma[size_t(y) * size_t(c->lumaRatio) * size_t(c->lumaWidth) +
                 size_t(x) * size_t(c->lumaRatio)];
}

// Table row for the output pixel at full-size chroma position (x, y): the
// guide byte / 4 (rows 1 and 2 are the step-sigma rows), row 0 without guide.
static inline int kqChromaRow(const KQChromaPassContext* c, int x, int y) {
  if (c->guideWidth <= 0) return 0;
  int64_t gx = (int64_t(x) * c->guideScale) >> 16;
  const int64_t gy = (int64_t(y) * c->guideScale) >> 16;
  if (gx > c->guideWidth - 1) gx = c->guideWidth - 1;
  const int row = c->guide[size_t(gy) * size_t(c->guideWidth) + size_t(gx)] >> 2;
  return row > 2 ? 2 : row;
}

// Pass 1, half-size output (x, y), centred on full-size (2x, 2y): the 2 x 2
// block it stands for (4 taps) and 4 far taps at the margin, up, left, right
// and down; a far tap outside the work area is replaced by the centre.
// Weighted U sums reach 8 * 46 * 255, so they are kept in 32 bits here and
// as two 16-bit halves (block, far) in vector code.
static inline void kqChromaPass1Pixel(const KQChromaPassContext* c, int shift, int x, int y) {
  const int w = c->chromaWidth, we = (w / 2) * 2, he = c->evenHeight, m = c->margin;
  const int X = 2 * x, Y = 2 * y;
  const int row = kqChromaRow(c, X, Y);
  const uint8_t* tw = c->weights + 9 * row;
  const uint8_t* ts = c->slopes + 8 * row;
  const size_t at = size_t(Y) * w + X;
  const int cU = c->srcU[at], cV = c->srcV[at], cY = kqChromaLuma(c, X, Y);
  KQChromaSums s{1, 0, 0};
  const int tx[8] = {X, X + 1, X, X + 1, X, X - m >= 0 ? X - m : X, X + m < we ? X + m : X, X};
  const int ty[8] = {Y, Y, Y + 1, Y + 1, Y - m >= 0 ? Y - m : Y, Y, Y, Y + m < he ? Y + m : Y};
  for (int t = 0; t < 8; ++t) {
    const size_t p = size_t(ty[t]) * w + tx[t];
    kqChromaAddTap(&s, tw, ts, shift, cY, cU, cV, kqChromaLuma(c, tx[t], ty[t]), c->inU[p],
                   c->inV[p]);
  }
  const size_t o = size_t(y) * (w / 2) + x;
  c->outU[o] = kqChromaMean(s.u, s.weight);
  c->outV[o] = kqChromaMean(s.v, s.weight);
}

// Pass 2, half-size output (x, y): the cross of 5 half-size taps at margin / 2
// (up, left, centre, right, down), luma of each tap at its full-size position,
// compared with the source and luma at full-size (2x, 2y).
static inline void kqChromaPass2Pixel(const KQChromaPassContext* c, int shift, int x, int y) {
  const int w = c->chromaWidth, wh = w / 2, hh = c->evenHeight / 2, m = c->margin / 2;
  const int X = 2 * x, Y = 2 * y;
  const int row = kqChromaRow(c, X, Y);
  const uint8_t* tw = c->weights + 9 * row;
  const uint8_t* ts = c->slopes + 8 * row;
  const size_t at = size_t(Y) * w + X;
  const int cU = c->srcU[at], cV = c->srcV[at], cY = kqChromaLuma(c, X, Y);
  KQChromaSums s{1, 0, 0};
  const int tx[5] = {x, x - m >= 0 ? x - m : x, x, x + m < wh ? x + m : x, x};
  const int ty[5] = {y - m >= 0 ? y - m : y, y, y, y, y + m < hh ? y + m : y};
  for (int t = 0; t < 5; ++t) {
    const size_t p = size_t(ty[t]) * wh + tx[t];
    kqChromaAddTap(&s, tw, ts, shift, cY, cU, cV, kqChromaLuma(c, 2 * tx[t], 2 * ty[t]),
                   c->inU[p], c->inV[p]);
  }
  c->outU[size_t(y) * wh + x] = kqChromaMean(s.u, s.weight);
  c->outV[size_t(y) * wh + x] = kqChromaMean(s.v, s.weight);
}

// Pass 3, full-size output (X, Y): the half-size sample holding it and its 4
// neighbours (one half-size pixel = the margin of 2), each weighed by the luma
// at the full-size position the sample was taken from against the luma at
// (X, Y) (the difference counted four times, see kKqChromaPass3LumaGain), and
// by its chroma against the source at (X, Y). A sample across a
// luma edge thus loses its weight even when it is the nearest one, which
// puts colour edges back on the full-resolution luma edges. The source pixel
// is read before the output pixel (possibly the same byte) is written.
static inline void kqChromaPass3Pixel(const KQChromaPassContext* c, int shift, int X, int Y) {
  const int w = c->chromaWidth, wh = w / 2, hh = c->evenHeight / 2;
  const int x = X >> 1, y = Y >> 1;
  const int row = kqChromaRow(c, X, Y);
  const uint8_t* tw = c->weights + 9 * row;
  const uint8_t* ts = c->slopes + 8 * row;
  const size_t at = size_t(Y) * w + X;
  const int cU = c->srcU[at], cV = c->srcV[at], cY = kqChromaLuma(c, X, Y);
  // The pixel's own colour enters with weight 1 (the sums' starting weight):
  // where every sample lies across a luma edge from it (a thin line, the far
  // pixel of a half-size sample on an edge) the pixel keeps its colour
  // instead of falling to 0. Elsewhere the taps outweigh it up to 230:1.
  KQChromaSums s{1, cU, cV};
  const int tx[5] = {x, x - 1 >= 0 ? x - 1 : x, x, x + 1 < wh ? x + 1 : x, x};
  const int ty[5] = {y - 1 >= 0 ? y - 1 : y, y, y, y, y + 1 < hh ? y + 1 : y};
  for (int t = 0; t < 5; ++t) {
    const size_t p = size_t(ty[t]) * wh + tx[t];
    kqChromaAddTap(&s, tw, ts, shift, cY, cU, cV, kqChromaLuma(c, 2 * tx[t], 2 * ty[t]),
                   c->inU[p], c->inV[p], kKqChromaPass3LumaGain);
  }
  c->outU[at] = kqChromaMean(s.u, s.weight);
  c->outV[at] = kqChromaMean(s.v, s.weight);
}

// Half-size rows [y0, y1) or full-size rows of a slice, clamped to the work area.
static inline void kqChromaSliceRows(const KQChromaPassContext* c, int* first, int* end) {
  int a = c->firstRow < 0 ? 0 : c->firstRow;
  int b = c->endRow > c->evenHeight ? c->evenHeight : c->endRow;
  if (b < a) b = a;
  *first = a;
  *end = b;
}

// Vector column ranges. Each pass's vector loop starts at the left margin
// (margin / 2 half-size columns, rounded up in pass 1) and covers whole blocks of the interior
// minus tailCount columns; the clamps keep every vector load of the last
// block inside its row even if the context were inconsistent.
//  pass 1: blocks of 8 outputs (16 full-size columns), interior w - 2 * margin
//  pass 2: blocks of 8 outputs, interior wh - margin
//  pass 3: blocks of 4 half-size columns (8 outputs), interior wh - 2
static inline int kqChromaVectorBlocks(const KQChromaPassContext* c, int pass) {
  const int w = c->chromaWidth, wh = w / 2, m = c->margin / 2;
  int blocks = 0, limit = 0;
  if (pass == 1) {
    const int n = w - 2 * c->margin - c->tailCount;
    const int m1 = (c->margin + 1) / 2;  // the first output (see kqChromaVectorRun)
    blocks = n > 0 ? n / 16 : 0;
    limit = (wh - 2 * m1) / 8;  // last lane + m1 <= wh - 1
  } else if (pass == 2) {
    const int n = wh - c->margin - c->tailCount;
    blocks = n > 0 ? n / 8 : 0;
    limit = (wh - 2 * m) / 8;
  } else {
    const int n = wh - 2 - c->tailCount;
    blocks = n > 0 ? n / 4 : 0;
    limit = (wh - 6) / 4;  // 8-byte tap loads from x + 1 stay below wh
  }
  if (limit < 0) limit = 0;
  return blocks < limit ? blocks : limit;
}
