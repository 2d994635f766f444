// chroma_c.cpp - scalar reference of the chroma passes: the shared row
// loops with no vector blocks (the per-pixel arithmetic is in chroma_dsp.h).
#include "filters/chroma_rows.h"

void kqChromaDspInit_c(KQChromaDsp* dsp) {
  kqChromaFillPassTable<KQChromaNoBlocks>(dsp);
  dsp->means = kqChromaMeans_c;
}

void kqChromaMeans_c(uint8_t* out, const uint32_t* sums, const uint32_t* weights, int32_t n) {
  for (int32_t i = 0; i < n; ++i) out[i] = kqChromaMean(int32_t(sums[i]), int32_t(weights[i]));
}
