// homography.h - the 4 x 4 grids of scaling homographies that drive the warp.
#pragma once

#include <cstdint>

// A 3 x 3 matrix of floats, row-major: (x, y) maps to
// (h0*x + h1*y + h2, h3*x + h4*y + h5). The last row is 0, 0, 1 for every
// matrix built here. 36 bytes, allocated as such.
struct Homography {
  float h[9];
};

// Tiles of one grid, row-major: index = tileRow * 4 + tileColumn.
constexpr int32_t kKqGridTiles = 16;

// Sixteen Homography records back to back (576 bytes). Grids are passed as a
// pointer to their first element.
struct HomographyGrid {
  Homography tile[kKqGridTiles];
};

// The part of a srcWidth x srcHeight region that the grids map: the region
// cut at the bottom or at the right to the output's aspect ratio (the kept
// size rounded down to even).
void kqFitSourceToAspect(int32_t srcWidth, int32_t srcHeight, int32_t dstWidth,
                         int32_t dstHeight, int32_t* fittedWidth, int32_t* fittedHeight);

// The grids of one enlargement: forward (source to output) and inverse
// (output to source), the two scale matrices diag(sx, sy, 1) and
// diag(1/sx, 1/sy, 1), and the source limits (the fitted size less 4).
struct KQScalingGrids {
  Homography forward[kKqGridTiles];
  Homography inverse[kKqGridTiles];
  Homography forwardScale, inverseScale;
  int32_t limitX, limitY;
};

// Builds the grids for enlarging a srcWidth x srcHeight region to
// dstWidth x dstHeight, as kqCreateScalingHomographies describes.
void kqScalingGrids(int32_t srcWidth, int32_t srcHeight, int32_t dstWidth, int32_t dstHeight,
                    KQScalingGrids* out);

// Builds the forward (source to output) and inverse (output to source) grids
// for enlarging a srcWidth x srcHeight region to dstWidth x dstHeight.
// The region is first cropped at its right or bottom edge to the output's
// aspect ratio (kqFitSourceToAspect), and the scale is shrunk slightly so
// that the last output pixel lands 3 pixels inside the source in the tighter
// dimension. Every tile gets the same matrices. forwardScale / inverseScale
// receive diag(sx, sy, 1) and diag(1/sx, 1/sy, 1). *srcLimitX / *srcLimitY
// receive the fitted source width and height less 4. Grids hold
// kKqGridTiles entries each. Sizes below 4 give meaningless (but finite or
// NaN) values and are not checked; callers never pass them.
void kqCreateScalingHomographies(Homography* forwardGrid, Homography* inverseGrid,
                                 Homography* forwardScale, Homography* inverseScale,
                                 int32_t srcWidth, int32_t srcHeight, int32_t dstWidth,
                                 int32_t dstHeight, int32_t* srcLimitX, int32_t* srcLimitY);

// Adapts both grids in place from luma to the half-resolution chroma planes:
// the translation terms h2 and h5 of every tile are halved, the scale is kept
// (source and output both halve).
void kqHalveHomographyTranslations(Homography* forwardGrid, Homography* inverseGrid);
