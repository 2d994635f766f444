// upscale_api.cpp - the three exported C functions of libKQUpScale.
#include "KQUpScale.h"
#include "api/pipeline.h"
#include "runtime/version.h"

extern "C" {

KQ_API const char* KQUpScale_GetVersion(void) noexcept { return kqUpScaleVersion(); }

KQ_API int32_t KQUpScale_ScaleImage(const KQYUVMultiPlaneImage* in, const KQYUVMultiPlaneImage* out,
                                    int32_t noiseReduction, int32_t chromaNoiseReduction,
                                    float sharpening, int32_t numThreads,
                                    int32_t affinityMask) noexcept {
  return KQUpScale_ScaleImageFromROI(in, out, -1, -1, -1, -1, noiseReduction, chromaNoiseReduction,
                                     sharpening, numThreads, affinityMask);
}

KQ_API int32_t KQUpScale_ScaleImageFromROI(const KQYUVMultiPlaneImage* in,
                                           const KQYUVMultiPlaneImage* out, int32_t left,
                                           int32_t top, int32_t right, int32_t bottom,
                                           int32_t noiseReduction, int32_t chromaNoiseReduction,
                                           float sharpening, int32_t numThreads,
                                           int32_t affinityMask) noexcept {
  return kqUpScaleRun(KQUpScaleCall{in, out, left, top, right, bottom, noiseReduction,
                                    chromaNoiseReduction, sharpening, numThreads, affinityMask});
}

}  // extern "C"
