// luma_dsp.cpp - dispatch table of the luma filter kernels.
#include "filters/luma_dsp.h"

#include "runtime/cpu.h"

void kqLumaDspInit(KQLumaDsp* dsp, uint32_t cpuFlags) {
  dsp->nrRow = kqLumaNrRow_c;
  dsp->nrBlendRow = kqLumaNrBlendRow_c;
  dsp->nrBorderRun = kqLumaNrBorderRun_c;
  dsp->blendRow = kqLumaBlendRow_c;
  dsp->blendRefRow = kqLumaBlendRefRow_c;
  dsp->recipEstimate = kqRecipEstimate_c;
  dsp->sharpenRow = kqSharpenRow_c;
  dsp->sharpenRow7 = kqSharpenRow7_c;  // kind 7 has no vector version
#if KQ_HAVE_NEON
  if (cpuFlags & KQ_CPU_NEON) {
    dsp->nrRow = kqLumaNrRow_neon;
    dsp->nrBlendRow = kqLumaNrBlendRow_neon;
    dsp->nrBorderRun = kqLumaNrBorderRun_neon;
    dsp->blendRow = kqLumaBlendRow_neon;
    dsp->blendRefRow = kqLumaBlendRefRow_neon;
    dsp->recipEstimate = kqRecipEstimate_neon;
    dsp->sharpenRow = kqSharpenRow_neon;
  }
#endif
#if KQ_HAVE_SSE41
  if (cpuFlags & KQ_CPU_SSE41) {
    dsp->nrRow = kqLumaNrRow_sse41;
    dsp->nrBlendRow = nullptr;  // the row and the blend apart
    dsp->nrBorderRun = kqLumaNrBorderRun_sse41;
    dsp->blendRow = kqLumaBlendRow_sse41;
    dsp->blendRefRow = kqLumaBlendRefRow_sse41;
    dsp->recipEstimate = kqRecipEstimate_sse41;
    dsp->sharpenRow = kqSharpenRow_sse41;
  }
#endif
#if KQ_HAVE_AVX2
  if (cpuFlags & KQ_CPU_AVX2) {
    dsp->nrRow = kqLumaNrRow_avx2;
    dsp->nrBorderRun = kqLumaNrBorderRun_avx2;
    dsp->blendRow = kqLumaBlendRow_avx2;  // the reference blends stay SSE4.1
    dsp->sharpenRow = kqSharpenRow_avx2;
  }
#endif
#if KQ_HAVE_AVX512
  if (cpuFlags & KQ_CPU_AVX512) {
    dsp->nrRow = kqLumaNrRow_avx512;
    dsp->nrBorderRun = kqLumaNrBorderRun_avx512;
    dsp->blendRow = kqLumaBlendRow_avx512;
    dsp->sharpenRow = kqSharpenRow_avx512;
  }
#endif
  (void)cpuFlags;
}

const KQLumaDsp* kqLumaDspGet() {
  static const KQLumaDsp dsp = [] {
    KQLumaDsp t;
    kqLumaDspInit(&t, kqCpuFlags());
    return t;
  }();
  return &dsp;
}
