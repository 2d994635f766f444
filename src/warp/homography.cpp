// homography.cpp - scaling homography grids for the warp stage.
//
// Every value here is fixed to the bit: the float / double choices below and
// the order of the additions in the matrix product decide the grids that the
// warp kernels sample through. The build never contracts a*b+c into a fused
// multiply-add (-ffp-contract=off on every target), which the products rely on.
#include "warp/homography.h"

#include <cstdint>

namespace {

// float -> int32 truncating toward zero, defined for every input: NaN gives
// 0 and values beyond the int32 range saturate (a plain conversion is
// undefined there, and x86 and ARM would disagree).
int32_t truncToInt(float v) {
  if (!(v == v)) return 0;
  if (v >= 2147483520.0f) return INT32_MAX;  // largest float below 2^31
  if (v <= -2147483648.0f) return INT32_MIN;
  return static_cast<int32_t>(v);
}

void setDiagonal(Homography* m, float a, float b, float tx, float ty) {
  m->h[0] = a;
  m->h[1] = 0.0f;
  m->h[2] = tx;
  m->h[3] = 0.0f;
  m->h[4] = b;
  m->h[5] = ty;
  m->h[6] = 0.0f;
  m->h[7] = 0.0f;
  m->h[8] = 1.0f;
}

// out = a * b for row-major 3 x 3 matrices. Each entry starts from +0.0 and
// adds the three rounded products in column order; starting from +0.0 turns
// a -0.0 sum into +0.0.
void multiply(Homography* out, const Homography& a, const Homography& b) {
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) {
      float sum = 0.0f;
      sum = sum + a.h[r * 3 + 0] * b.h[0 * 3 + c];
      sum = sum + a.h[r * 3 + 1] * b.h[1 * 3 + c];
      sum = sum + a.h[r * 3 + 2] * b.h[2 * 3 + c];
      out->h[r * 3 + c] = sum;
    }
}

}  // namespace

void kqFitSourceToAspect(int32_t srcWidth, int32_t srcHeight, int32_t dstWidth,
                         int32_t dstHeight, int32_t* fittedWidth, int32_t* fittedHeight) {
  // Cut rows at the bottom or columns at the right; the top-left corner stays
  // where it is. Only one dimension shrinks, and the kept size is made even
  // by rounding down.
  const float rSrc = float(srcWidth) / float(srcHeight);
  const float rDst = float(dstWidth) / float(dstHeight);
  if (rSrc < rDst) {
    srcHeight = truncToInt(float(srcWidth) / rDst) & ~1;
  } else if (rSrc > rDst) {
    srcWidth = truncToInt(rDst * float(srcHeight)) & ~1;
  }
  *fittedWidth = srcWidth;
  *fittedHeight = srcHeight;
}

void kqScalingGrids(int32_t srcWidth, int32_t srcHeight, int32_t dstWidth, int32_t dstHeight,
                    KQScalingGrids* out) {
  kqFitSourceToAspect(srcWidth, srcHeight, dstWidth, dstHeight, &srcWidth, &srcHeight);
  out->limitX = srcWidth - 4;
  out->limitY = srcHeight - 4;

  // Margin: the far output edge lands 3 source pixels inside the region in
  // the tighter dimension. Ratios in double, the smaller one rounded to float.
  const double qy = double(srcHeight - 3) / double(srcHeight);
  const double qx = double(srcWidth - 3) / double(srcWidth);
  const float s = qy < qx ? float(qy) : float(qx);
  const float invS = 1.0f / s;

  // Per-tile local matrices. The forward translation is a zero translation
  // divided by s and negated, i.e. -0.0; the products below turn it into +0.0.
  const float negZeroShift = -(0.0f / s);
  Homography localForward, localInverse;
  setDiagonal(&localForward, invS, invS, negZeroShift, negZeroShift);
  setDiagonal(&localInverse, s, s, 0.0f, 0.0f);

  // Output / source scale with the fitted size; the inverse holds the float
  // reciprocals of sx and sy, not srcWidth / dstWidth.
  const float sx = float(dstWidth) / float(srcWidth);
  const float sy = float(dstHeight) / float(srcHeight);
  setDiagonal(&out->forwardScale, sx, sy, 0.0f, 0.0f);
  setDiagonal(&out->inverseScale, 1.0f / sx, 1.0f / sy, 0.0f, 0.0f);

  for (int32_t i = 0; i < kKqGridTiles; ++i) {
    multiply(&out->forward[i], out->forwardScale, localForward);
    multiply(&out->inverse[i], localInverse, out->inverseScale);
  }
}

void kqCreateScalingHomographies(Homography* forwardGrid, Homography* inverseGrid,
                                 Homography* forwardScale, Homography* inverseScale,
                                 int32_t srcWidth, int32_t srcHeight, int32_t dstWidth,
                                 int32_t dstHeight, int32_t* srcLimitX, int32_t* srcLimitY) {
  KQScalingGrids g;
  kqScalingGrids(srcWidth, srcHeight, dstWidth, dstHeight, &g);
  for (int32_t i = 0; i < kKqGridTiles; ++i) {
    forwardGrid[i] = g.forward[i];
    inverseGrid[i] = g.inverse[i];
  }
  *forwardScale = g.forwardScale;
  *inverseScale = g.inverseScale;
  *srcLimitX = g.limitX;
  *srcLimitY = g.limitY;
}

void kqHalveHomographyTranslations(Homography* forwardGrid, Homography* inverseGrid) {
  for (int32_t i = 0; i < kKqGridTiles; ++i) {
    forwardGrid[i].h[2] *= 0.5f;
    forwardGrid[i].h[5] *= 0.5f;
    inverseGrid[i].h[2] *= 0.5f;
    inverseGrid[i].h[5] *= 0.5f;
  }
}
