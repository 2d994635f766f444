// pipeline.cpp - the upscale pipeline: intake, warp, filters, output.
#include "api/pipeline.h"

#include <cstdio>

#include "runtime/log.h"
#include "runtime/pool.h"
#include "runtime/version.h"

int32_t kqUpScaleRun(const KQYUVMultiPlaneImage* in, const KQYUVMultiPlaneImage* out,
                     int32_t left, int32_t top, int32_t right, int32_t bottom,
                     int32_t noiseReduction, int32_t chromaNoiseReduction,
                     float sharpening, int32_t numThreads, int32_t affinityMask) {
  kqLog(stdout, KQ_LOG_INFO, KQ_LOG_TAG, "%s", kqUpScaleVersion());
  kqLog(stdout, KQ_LOG_INFO, KQ_LOG_TAG, "%s", kqBaseGetVersion());
  if (affinityMask >= 1) kqSetThreadAffinity(affinityMask);
  kqPoolStart(numThreads, 0, "KQUpScale");
  // TODO(pipeline): issue#6 - intake, warp, filters and output assembly.
  kqPoolStop();
  return 0;
}
