// pipeline.h - the upscale pipeline behind the exported functions.
#pragma once

#include <cstdint>

#include "KQUpScale.h"

// The body of KQUpScale_ScaleImageFromROI; always returns 0.
int32_t kqUpScaleRun(const KQYUVMultiPlaneImage* in, const KQYUVMultiPlaneImage* out,
                     int32_t left, int32_t top, int32_t right, int32_t bottom,
                     int32_t noiseReduction, int32_t chromaNoiseReduction,
                     float sharpening, int32_t numThreads, int32_t affinityMask);
