// warp_dsp.cpp - builds the warp stage's kernel table for a CPU flag set.
#include "warp/warp_dsp.h"

#include "runtime/cpu.h"

void kqWarpDspInit(KQWarpDsp* dsp, uint32_t cpuFlags) {
  dsp->bilinearRow = kqWarpBilinearRow_c;
  dsp->nearestRow = kqWarpNearestRow_c;
  dsp->nearestPairRow = kqWarpNearestPairRow_c;
  dsp->copyRow = kqWarpCopyRow_c;
#if KQ_HAVE_NEON
  if (cpuFlags & KQ_CPU_NEON) {
    dsp->bilinearRow = kqWarpBilinearRow_neon;
    dsp->nearestRow = kqWarpNearestRow_neon;
    dsp->nearestPairRow = kqWarpNearestPairRow_neon;
    dsp->copyRow = kqWarpCopyRow_neon;
  }
#endif
#if KQ_HAVE_SSE41
  if (cpuFlags & KQ_CPU_SSE41) {
    dsp->bilinearRow = kqWarpBilinearRow_sse41;
    dsp->nearestRow = kqWarpNearestRow_sse41;
    dsp->nearestPairRow = kqWarpNearestPairRow_sse41;
  }
#endif
#if KQ_HAVE_AVX2
  // The 8-bit chroma rows repeat four times out of five in an enlargement
  // and are copied, so they have no 256-bit form; the pairs row writes the
  // caller's plane and takes two blocks per step.
  if (cpuFlags & KQ_CPU_AVX2) {
    dsp->bilinearRow = kqWarpBilinearRow_avx2;
    dsp->nearestPairRow = kqWarpNearestPairRow_avx2;
  }
#endif
#if KQ_HAVE_AVX512
  if (cpuFlags & KQ_CPU_AVX512) {
    dsp->bilinearRow = kqWarpBilinearRow_avx512;
    dsp->nearestRow = kqWarpNearestRow_avx512;
  }
#endif
  (void)cpuFlags;
}

const KQWarpDsp* kqWarpDspGet() {
  static const KQWarpDsp dsp = [] {
    KQWarpDsp t;
    kqWarpDspInit(&t, kqCpuFlags());
    return t;
  }();
  return &dsp;
}
