// chroma_rows.h - the row loops of the three chroma passes, shared by the
// scalar reference and the vector versions.
//
// Each pass walks its slice's rows; a row is scalar pixels up to the left
// margin, whole vector blocks (kqChromaVectorBlocks), then scalar pixels to
// the row end. An instruction set supplies only the blocks, as a type
//   struct Blocks {
//     static constexpr bool kVector = true;
//     using Tables = ...;                             // per-call constants
//     static Tables load(const KQChromaPassContext*);
//     template <int kShift> static void pass1(c, t, x0, y, yUp, yDown);
//     template <int kShift> static void pass2(c, t, x0, y, yUp, yDown);
//     template <int kShift> static void pass3(c, t, hx0, Y, yUp, y, yDown);
//   };
// and kqChromaFillPassTable<Blocks> enters its 15 pass functions. With
// kVector false no block runs and the loops are the scalar reference.
#pragma once

#include "filters/chroma_dsp.h"

// Blocks for the scalar reference: none.
struct KQChromaNoBlocks {
  static constexpr bool kVector = false;
  struct Tables {};
  static Tables load(const KQChromaPassContext*) { return Tables{}; }
  template <int kShift>
  static void pass1(const KQChromaPassContext*, const Tables&, int, int, int, int) {}
  template <int kShift>
  static void pass2(const KQChromaPassContext*, const Tables&, int, int, int, int) {}
  template <int kShift>
  static void pass3(const KQChromaPassContext*, const Tables&, int, int, int, int, int) {}
};

// The vector blocks assume the luma at twice the chroma size and no guide;
// other contexts run scalar throughout.
template <class Blocks>
inline int kqChromaBlocksFor(const KQChromaPassContext* c, int pass) {
  if (!Blocks::kVector || c->lumaRatio != 2 || c->guideWidth != 0) return 0;
  return kqChromaVectorBlocks(c, pass);
}

// Pass 1: half-size rows from the full-size planes; blocks of 8 outputs
// start at the left margin.
template <class Blocks, int kShift>
void kqChromaPass1Rows(void* context) {
  const KQChromaPassContext* c = static_cast<const KQChromaPassContext*>(context);
  int first, end;
  kqChromaSliceRows(c, &first, &end);
  const int wh = c->chromaWidth / 2, he = c->evenHeight, M = c->margin;
  const int blocks = kqChromaBlocksFor<Blocks>(c, 1);
  const int xv0 = blocks > 0 ? M / 2 : 0, xv1 = xv0 + 8 * blocks;
  const typename Blocks::Tables t = Blocks::load(c);
  for (int y = first / 2; y < end / 2; ++y) {
    const int Y = 2 * y;
    const int yUp = Y - M >= 0 ? Y - M : Y, yDown = Y + M < he ? Y + M : Y;
    for (int x = 0; x < xv0; ++x) kqChromaPass1Pixel(c, kShift, x, y);
    for (int x = xv0; x < xv1; x += 8) Blocks::template pass1<kShift>(c, t, x, y, yUp, yDown);
    for (int x = xv1; x < wh; ++x) kqChromaPass1Pixel(c, kShift, x, y);
  }
}

// Pass 2: half size to half size; blocks of 8 outputs.
template <class Blocks, int kShift>
void kqChromaPass2Rows(void* context) {
  const KQChromaPassContext* c = static_cast<const KQChromaPassContext*>(context);
  int first, end;
  kqChromaSliceRows(c, &first, &end);
  const int wh = c->chromaWidth / 2, hh = c->evenHeight / 2, m = c->margin / 2;
  const int blocks = kqChromaBlocksFor<Blocks>(c, 2);
  const int xv0 = blocks > 0 ? m : 0, xv1 = xv0 + 8 * blocks;
  const typename Blocks::Tables t = Blocks::load(c);
  for (int y = first / 2; y < end / 2; ++y) {
    const int yUp = y - m >= 0 ? y - m : y, yDown = y + m < hh ? y + m : y;
    for (int x = 0; x < xv0; ++x) kqChromaPass2Pixel(c, kShift, x, y);
    for (int x = xv0; x < xv1; x += 8) Blocks::template pass2<kShift>(c, t, x, y, yUp, yDown);
    for (int x = xv1; x < wh; ++x) kqChromaPass2Pixel(c, kShift, x, y);
  }
}

// Pass 3: full-size rows from the half-size result; a block is 4 half-size
// columns (8 outputs).
template <class Blocks, int kShift>
void kqChromaPass3Rows(void* context) {
  const KQChromaPassContext* c = static_cast<const KQChromaPassContext*>(context);
  int first, end;
  kqChromaSliceRows(c, &first, &end);
  const int we = (c->chromaWidth / 2) * 2, hh = c->evenHeight / 2;
  const int blocks = kqChromaBlocksFor<Blocks>(c, 3);
  const int hv0 = blocks > 0 ? 1 : 0, hv1 = hv0 + 4 * blocks;
  const typename Blocks::Tables t = Blocks::load(c);
  for (int Y = first; Y < end; ++Y) {
    const int y = Y >> 1;
    const int yUp = y - 1 >= 0 ? y - 1 : y, yDown = y + 1 < hh ? y + 1 : y;
    for (int X = 0; X < 2 * hv0; ++X) kqChromaPass3Pixel(c, kShift, X, Y);
    for (int hx = hv0; hx < hv1; hx += 4)
      Blocks::template pass3<kShift>(c, t, hx, Y, yUp, y, yDown);
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
