// chroma_sse41.cpp - SSE4.1 kernels of the chroma noise reduction: the runs
// of chroma_x86.h, eight outputs per step (differences and table indices in
// 8-bit lanes, pshufb looking the weight and slope tables up, weights and
// sums in 16-bit lanes, the means with divps). Columns outside the vector
// range, other luma ratios and guided pixels use the per-pixel code.
#include "filters/x86/chroma_x86.h"

void kqChromaDspInit_sse41(KQChromaDsp* dsp) {
  kqChromaFillPassTable<KqChromaX86<KqChromaSse41>>(dsp);
}
