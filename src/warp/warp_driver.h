// warp_driver.h - tiled warp of whole planes: cuts the destination into the
// rectangles of a tile grid and spreads the tiles over the worker pool.
#pragma once

#include <cstdint>

#include "image/image8.h"
#include "warp/homography.h"
#include "warp/warp_dsp.h"

// A plane list: KQImage8 records by value, the imageCount sources first and
// the destination after them ({source, destination} for one image).
struct WarpPlaneList {
  KQImage8 source;
  KQImage8 destination;
};

// The parallel-for context of one warp. Each slice works on its own copy, in
// which the split sets firstTile..lastTile.
struct WarpJob {
  int32_t firstTile;
  int32_t lastTile;  // inclusive; lastTile < firstTile is an empty range
  int32_t tileColumns;
  int32_t tileRows;
  int32_t dstWidth;  // of plane-list record imageCount
  int32_t dstHeight;
  const Homography* forwardGrid;
  const Homography* inverseGrid;
  int32_t imageCount;
  int32_t planeValueA;
  int32_t planeValueB;
  void* extra;
  KQImage8* secondPlanes;  // null, or a second plane list warped alike
  KQImage8* planes;
  int32_t srcMinX, srcMaxX, srcMinY, srcMaxY;  // bounds of the identity mapping
  int32_t useHomography;                       // 1: rectangles from the forward grid; < 1: identity
  int32_t isLuma;
  int32_t planeValueAIsZero;
  int32_t layoutCode;
  int32_t lumaSelect;
  const KQWarpDsp* dsp;  // row kernels the tiles run with
  int32_t tileTotal;     // tiles that the split hands out (set by the split)
};

// Warps planes (and secondPlanes, when not null) through the grids, tile by
// tile over a tileColumns x tileRows grid, with the common thread-count rule
// (kqParallelRun). Returns when every tile is done. The output is the same
// bytes for every thread count. The inverse grid holds tileColumns x
// tileRows entries, the forward grid that many per image (the rectangles
// come from tile 0 of the last image's grid). Uses kqWarpDspGet().
void warpAll(KQImage8* planes, KQImage8* secondPlanes, void* extra, const Homography* forwardGrid,
             const Homography* inverseGrid, int32_t srcMinX, int32_t srcMaxX, int32_t srcMinY,
             int32_t srcMaxY, int32_t imageCount, int32_t planeValueA, int32_t planeValueB,
             int32_t threadCount, int32_t pixelLayout, int32_t lumaFlag, int32_t tileColumns,
             int32_t tileRows);

// The same with an explicit kernel table.
void warpAllDsp(const KQWarpDsp* dsp, KQImage8* planes, KQImage8* secondPlanes, void* extra,
                const Homography* forwardGrid, const Homography* inverseGrid, int32_t srcMinX,
                int32_t srcMaxX, int32_t srcMinY, int32_t srcMaxY, int32_t imageCount,
                int32_t planeValueA, int32_t planeValueB, int32_t threadCount, int32_t pixelLayout,
                int32_t lumaFlag, int32_t tileColumns, int32_t tileRows);

// Tile-range split (a KQSplitFn on a WarpJob): slice k of sliceCount gets
// tiles (T * k) / sliceCount .. (T * (k + 1)) / sliceCount - 1, T being the
// tile total latched from the first job this function ever sees.
void kqWarpTileSplit(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context);

// The latched tile total (0 before the first split).
int32_t kqWarpLatchedTileTotal();

// Warp tile task (a KQTaskFn on a WarpJob): dispatches every tile of the
// job's range, row-major.
void kqWarpTileTask(void* context);

// Output rectangle {x0, y0, x1, y1} of tile (tx, ty), from which the tile's
// row geometry is taken, and in last = {column, row} the last column and row
// that the tile writes: short of the rectangle's end where a processed tile
// (index below tileTotal) later writes the same pixels, so that the bytes
// there are those of a run that takes the tiles in order.
void kqWarpTileRect(const WarpJob* job, int32_t tileTotal, int32_t tx, int32_t ty, int32_t rect[4],
                    int32_t last[2]);
