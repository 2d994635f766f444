// chroma_dsp.cpp - picks the chroma noise reduction kernels for a CPU.
#include "filters/chroma_dsp.h"

#include "runtime/cpu.h"

void kqChromaDspInit(KQChromaDsp* dsp, uint32_t cpuFlags) {
  kqChromaDspInit_c(dsp);
#if KQ_HAVE_NEON
  if (cpuFlags & KQ_CPU_NEON) kqChromaDspInit_neon(dsp);
#endif
#if KQ_HAVE_SSE41
  if (cpuFlags & KQ_CPU_SSE41) kqChromaDspInit_sse41(dsp);
#endif
#if KQ_HAVE_AVX2
  if (cpuFlags & KQ_CPU_AVX2) kqChromaDspInit_avx2(dsp);
#endif
#if KQ_HAVE_AVX512
  if (cpuFlags & KQ_CPU_AVX512) kqChromaDspInit_avx512(dsp);
#endif
  (void)cpuFlags;
}

const KQChromaDsp* kqChromaDspGet() {
  static const KQChromaDsp dsp = [] {
    KQChromaDsp t;
    kqChromaDspInit(&t, kqCpuFlags());
    return t;
  }();
  return &dsp;
}
