// chroma_c.cpp - scalar reference kernels of the chroma noise reduction.
#include "filters/chroma_dsp.h"

namespace {

template <int kShift>
void pass1(void* context) {
  const KQChromaPassContext* c = static_cast<const KQChromaPassContext*>(context);
  int first, end;
  kqChromaSliceRows(c, &first, &end);
  const int wh = c->chromaWidth / 2;
  for (int y = first / 2; y < end / 2; ++y)
    for (int x = 0; x < wh; ++x) kqChromaPass1Pixel(c, kShift, x, y);
}

template <int kShift>
void pass2(void* context) {
  const KQChromaPassContext* c = static_cast<const KQChromaPassContext*>(context);
  int first, end;
  kqChromaSliceRows(c, &first, &end);
  const int wh = c->chromaWidth / 2;
  for (int y = first / 2; y < end / 2; ++y)
    for (int x = 0; x < wh; ++x) kqChromaPass2Pixel(c, kShift, x, y);
}

template <int kShift>
void pass3(void* context) {
  const KQChromaPassContext* c = static_cast<const KQChromaPassContext*>(context);
  int first, end;
  kqChromaSliceRows(c, &first, &end);
  const int we = (c->chromaWidth / 2) * 2;
  for (int y = first; y < end; ++y)
    for (int x = 0; x < we; ++x) kqChromaPass3Pixel(c, kShift, x, y);
}

}  // namespace

void kqChromaDspInit_c(KQChromaDsp* dsp) {
  KQChromaPassFn* const table[3][5] = {
      {pass1<1>, pass1<2>, pass1<3>, pass1<4>, pass1<5>},
      {pass2<1>, pass2<2>, pass2<3>, pass2<4>, pass2<5>},
      {pass3<1>, pass3<2>, pass3<3>, pass3<4>, pass3<5>},
  };
  for (int p = 0; p < 3; ++p)
    for (int k = 0; k < 5; ++k) dsp->pass[p][k] = table[p][k];
}
