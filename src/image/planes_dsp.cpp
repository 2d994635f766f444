// planes_dsp.cpp - dispatch table of the chroma split and merge row kernels.
#include "image/planes_dsp.h"

#include "runtime/cpu.h"

void kqPlanesDspInit(KQPlanesDsp* dsp, uint32_t cpuFlags) {
  dsp->splitUVRow = kqSplitUVRow_c;
  dsp->mergeUVRow = kqMergeUVRow_c;
#if KQ_HAVE_NEON
  if (cpuFlags & KQ_CPU_NEON) {
    dsp->splitUVRow = kqSplitUVRow_neon;
    dsp->mergeUVRow = kqMergeUVRow_neon;
  }
#endif
#if KQ_HAVE_SSE41
  if (cpuFlags & KQ_CPU_SSE41) {
    dsp->splitUVRow = kqSplitUVRow_sse41;
    dsp->mergeUVRow = kqMergeUVRow_sse41;
  }
#endif
#if KQ_HAVE_AVX2
  if (cpuFlags & KQ_CPU_AVX2) {
    dsp->splitUVRow = kqSplitUVRow_avx2;
    dsp->mergeUVRow = kqMergeUVRow_avx2;
  }
#endif
  (void)cpuFlags;
}

const KQPlanesDsp* kqPlanesDspGet() {
  static const KQPlanesDsp dsp = [] {
    KQPlanesDsp table;
    kqPlanesDspInit(&table, kqCpuFlags());
    return table;
  }();
  return &dsp;
}
