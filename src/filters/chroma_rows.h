// chroma_rows.h - the row loops of the three chroma passes, shared by the
// scalar reference and the vector versions.
//
// Each pass walks its slice's rows; a row is scalar pixels up to the left
// margin, a vector run of whole blocks of 8 outputs (kqChromaVectorBlocks),
// then scalar pixels to the row end. An instruction set supplies only the
// runs, as a type
//   struct Blocks {
//     static constexpr bool kVector = true;
//     using Tables = ...;                              // per-call constants
//     template <int kShift> static Tables load(const KQChromaPassContext*);
//     static bool wholeRows(const KQChromaPassContext*, int pass);
//     template <int kShift> static void pass1(c, t, x0, n, y, yUp, yDown);
//     template <int kShift> static void pass2(c, t, x0, n, y, yUp, yDown);
//     template <int kShift> static void pass3(c, t, X0, n, Y, yUp, y, yDown);
//   };
// where a run is the n outputs from x0 (pass 3: full-size columns from X0),
// in whatever steps the instruction set takes. Where wholeRows() answers
// true for a call's context, every run is a whole row (outputs 0 .. w / 2 - 1,
// or 0 .. we - 1 in pass 3), edge pixels with their clamped taps included;
// otherwise runs are whole blocks of 8 inside the margins.
// kqChromaFillPassTable<Blocks> enters the 15 pass functions. With kVector
// false no run is made and the loops are the scalar reference.
#pragma once

#include "filters/chroma_dsp.h"

// Blocks for the scalar reference: none.
struct KQChromaNoBlocks {
  static constexpr bool kVector = false;
  struct Tables {};
  template <int kShift>
  static Tables load(const KQChromaPassContext*) {
    return Tables{};
  }
  static bool wholeRows(const KQChromaPassContext*, int) { return false; }
  template <int kShift>
  static void pass1(const KQChromaPassContext*, const Tables&, int, int, int, int, int) {}
  template <int kShift>
  static void pass2(const KQChromaPassContext*, const Tables&, int, int, int, int, int) {}
  template <int kShift>
  static void pass3(const KQChromaPassContext*, const Tables&, int, int, int, int, int, int) {}
};

// The vector run of each row of a pass: [*x0, *x1) in outputs for passes 1
// and 2, in half-size columns for pass 3; empty (0, 0) where every pixel is
// scalar. The vector blocks assume the luma at twice the chroma size and no
// guide; other contexts run scalar throughout.
template <class Blocks>
inline void kqChromaVectorRun(const KQChromaPassContext* c, int pass, int* x0, int* x1) {
  *x0 = *x1 = 0;
  if (!Blocks::kVector || c->lumaRatio != 2 || c->guideWidth != 0) return;
  // Pass 1's far taps lie at full-size columns X -/+ margin: with an odd
  // margin they are odd columns, which the whole rows' end steps cannot
  // take by moving lanes of even ones, and the first output whose left tap
  // is inside the row is (margin + 1) / 2.
  const bool evenTaps = pass != 1 || c->margin % 2 == 0;
  if (evenTaps && Blocks::wholeRows(c, pass)) {
    *x1 = c->chromaWidth / 2;
    return;
  }
  const int blocks = kqChromaVectorBlocks(c, pass);
  if (blocks <= 0) return;
  *x0 = pass == 3 ? 1 : pass == 1 ? (c->margin + 1) / 2 : c->margin / 2;
  *x1 = *x0 + (pass == 3 ? 4 : 8) * blocks;
}

// Pass 1: half-size rows from the full-size planes.
template <class Blocks, int kShift>
void kqChromaPass1Rows(const KQChromaPassContext* c) {
  int first, end;
  kqChromaSliceRows(c, &first, &end);
  const int wh = c->chromaWidth / 2, he = c->evenHeight, M = c->margin;
  int xv0, xv1;
  kqChromaVectorRun<Blocks>(c, 1, &xv0, &xv1);
  const typename Blocks::Tables t = Blocks::template load<kShift>(c);
  for (int y = first / 2; y < end / 2; ++y) {
    const int Y = 2 * y;
    const int yUp = Y - M >= 0 ? Y - M : Y, yDown = Y + M < he ? Y + M : Y;
    for (int x = 0; x < xv0; ++x) kqChromaPass1Pixel(c, kShift, x, y);
    if (xv1 > xv0) Blocks::template pass1<kShift>(c, t, xv0, xv1 - xv0, y, yUp, yDown);
    for (int x = xv1; x < wh; ++x) kqChromaPass1Pixel(c, kShift, x, y);
  }
}

// Pass 2: half size to half size.
template <class Blocks, int kShift>
void kqChromaPass2Rows(const KQChromaPassContext* c) {
  int first, end;
  kqChromaSliceRows(c, &first, &end);
  const int wh = c->chromaWidth / 2, hh = c->evenHeight / 2, m = c->margin / 2;
  int xv0, xv1;
  kqChromaVectorRun<Blocks>(c, 2, &xv0, &xv1);
  const typename Blocks::Tables t = Blocks::template load<kShift>(c);
  for (int y = first / 2; y < end / 2; ++y) {
    const int yUp = y - m >= 0 ? y - m : y, yDown = y + m < hh ? y + m : y;
    for (int x = 0; x < xv0; ++x) kqChromaPass2Pixel(c, kShift, x, y);
    if (xv1 > xv0) Blocks::template pass2<kShift>(c, t, xv0, xv1 - xv0, y, yUp, yDown);
    for (int x = xv1; x < wh; ++x) kqChromaPass2Pixel(c, kShift, x, y);
  }
}

// Pass 3: full-size rows from the half-size result.
template <class Blocks, int kShift>
void kqChromaPass3Rows(const KQChromaPassContext* c) {
  int first, end;
  kqChromaSliceRows(c, &first, &end);
  const int we = (c->chromaWidth / 2) * 2, hh = c->evenHeight / 2;
  int hv0, hv1;
  kqChromaVectorRun<Blocks>(c, 3, &hv0, &hv1);
  const typename Blocks::Tables t = Blocks::template load<kShift>(c);
  for (int Y = first; Y < end; ++Y) {
    const int y = Y >> 1;
    const int yUp = y - 1 >= 0 ? y - 1 : y, yDown = y + 1 < hh ? y + 1 : y;
    for (int X = 0; X < 2 * hv0; ++X) kqChromaPass3Pixel(c, kShift, X, Y);
    if (hv1 > hv0) Blocks::template pass3<kShift>(c, t, 2 * hv0, 2 * (hv1 - hv0), Y, yUp, y, yDown);
    for (int X = 2 * hv1; X < we; ++X) kqChromaPass3Pixel(c, kShift, X, Y);
  }
}

// Enters the 3 passes x 5 kinds (shift 1..5) built from Blocks.
template <class Blocks>
void kqChromaFillPassTable(KQChromaDsp* dsp) {
  KQChromaPassFn* const table[3][5] = {
      {kqChromaPass1Rows<Blocks, 1>, kqChromaPass1Rows<Blocks, 2>, kqChromaPass1Rows<Blocks, 3>,
       kqChromaPass1Rows<Blocks, 4>, kqChromaPass1Rows<Blocks, 5>},
      {kqChromaPass2Rows<Blocks, 1>, kqChromaPass2Rows<Blocks, 2>, kqChromaPass2Rows<Blocks, 3>,
       kqChromaPass2Rows<Blocks, 4>, kqChromaPass2Rows<Blocks, 5>},
      {kqChromaPass3Rows<Blocks, 1>, kqChromaPass3Rows<Blocks, 2>, kqChromaPass3Rows<Blocks, 3>,
       kqChromaPass3Rows<Blocks, 4>, kqChromaPass3Rows<Blocks, 5>},
  };
  for (int p = 0; p < 3; ++p)
    for (int k = 0; k < 5; ++k) dsp->pass[p][k] = table[p][k];
}
