// pipeline.h - the upscale pipeline behind the exported functions.
#pragma once

#include <cstdint>

#include "KQUpScale.h"

// One call of KQUpScale_ScaleImageFromROI, as its arguments came.
struct KQUpScaleCall {
  const KQYUVMultiPlaneImage* in;
  const KQYUVMultiPlaneImage* out;
  int32_t left, top, right, bottom;  // inclusive corners; left = -1: the whole image
  int32_t noiseReduction;
  int32_t chromaNoiseReduction;
  float sharpening;
  int32_t threads;
  int32_t affinityMask;
};

// The body of KQUpScale_ScaleImageFromROI; always returns 0.
int32_t kqUpScaleRun(const KQUpScaleCall& call);
