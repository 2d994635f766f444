// chroma_c.cpp - scalar reference of the chroma passes: the shared row
// loops with no vector blocks (the per-pixel arithmetic is in chroma_dsp.h).
#include "filters/chroma_rows.h"

void kqChromaDspInit_c(KQChromaDsp* dsp) { kqChromaFillPassTable<KQChromaNoBlocks>(dsp); }
