// warp_driver.cpp - the tiled warp driver: tile rectangles, the tile-range
// split and the per-slice task, spread over the worker pool.
#include "warp/warp_driver.h"

#include <atomic>
#include <cstddef>
#include <vector>

#include "runtime/pool.h"
#include "warp/warp_dispatch.h"

namespace {

std::atomic<int32_t> gLatchedTotal{0};

// The tile total is taken from the first job the split ever sees and kept
// for the life of the process (every warp uses the same 4 x 4 grid).
int32_t latchedTileTotal(const WarpJob* job) {
  static const int32_t total = [job] {
    const int32_t t = job->tileColumns * job->tileRows;
    gLatchedTotal.store(t);
    return t;
  }();
  return total;
}

// float -> int truncating toward zero; NaN gives 0 and the range is held to
// +-2^30 so that "- 1" and comparisons cannot overflow.
int32_t truncToInt(float v) {
  if (!(v == v)) return 0;
  if (v > 1073741824.0f) return 1073741824;
  if (v < -1073741824.0f) return -1073741824;
  return static_cast<int32_t>(v);
}

int32_t imin(int32_t a, int32_t b) { return a < b ? a : b; }
int32_t imax(int32_t a, int32_t b) { return a > b ? a : b; }

// h2 + h0 * v (the product rounded first): a source cut mapped to the
// destination with the grid's scale in both axes.
float mapCut(float h0, float shift, int64_t cut) { return shift + h0 * static_cast<float>(cut); }

struct Cuts {
  int32_t x0, x1;
};

// Column extent of tile column tx, with the last column widened by one pixel
// to the left when its right edge is even (never past column 0).
Cuts columnExtent(const WarpJob* job, const Homography& h, int32_t srcW, int32_t tx) {
  const int64_t cols = job->tileColumns;
  const int64_t a = (int64_t(tx) * srcW) / cols;
  const int64_t c = (srcW + int64_t(tx) * srcW) / cols;
  const float xa = mapCut(h.h[0], h.h[2], a), xc = mapCut(h.h[0], h.h[2], c);
  Cuts e;
  e.x0 = xa > 0.0f ? truncToInt(xa) : 0;
  e.x1 = imin(truncToInt(xc) - 1, job->dstWidth - 1);
  if (tx == job->tileColumns - 1 && (e.x1 & 1) == 0 && e.x0 > 0) e.x0 -= 1;
  return e;
}

// Row extent of tile row ty. The lower cut divides by the column count, not
// the row count; with square grids the two agree.
Cuts rowExtent(const WarpJob* job, const Homography& h, int32_t srcH, int32_t ty) {
  const int64_t b = (int64_t(ty) * srcH) / job->tileRows;
  const int64_t d = (int64_t(ty + 1) * srcH) / job->tileColumns;
  const float yb = mapCut(h.h[0], h.h[5], b), yd = mapCut(h.h[0], h.h[5], d);
  Cuts e;
  e.x0 = yb > 0.0f ? truncToInt(yb) : 0;
  e.x1 = imin(truncToInt(yd) - 1, job->dstHeight - 1);
  return e;
}

void warpRun(const KQWarpDsp* dsp, KQImage8* planes, KQImage8* secondPlanes, void* extra,
             const Homography* forwardGrid, const Homography* inverseGrid, int32_t srcMinX,
             int32_t srcMaxX, int32_t srcMinY, int32_t srcMaxY, int32_t imageCount,
             int32_t planeValueA, int32_t planeValueB, int32_t threadCount, int32_t pixelLayout,
             int32_t lumaFlag, int32_t tileColumns, int32_t tileRows) {
  WarpJob job = {};
  const int64_t tiles = int64_t(tileColumns) * tileRows;
  job.firstTile = 0;
  // The split overwrites this range for every slice; a count of 0 must not
  // divide (x86 traps), so it gets the empty range.
  job.lastTile = threadCount != 0 ? int32_t(tiles / threadCount - 1) : -1;
  job.tileColumns = tileColumns;
  job.tileRows = tileRows;
  const bool validCount = imageCount >= 1 && imageCount <= kKqWarpMaxImages;
  if (planes != nullptr && validCount) {
    job.dstWidth = planes[imageCount].width;
    job.dstHeight = planes[imageCount].height;
  }
  job.forwardGrid = forwardGrid;
  job.inverseGrid = inverseGrid;
  job.imageCount = imageCount;
  job.planeValueA = planeValueA;
  job.planeValueB = planeValueB;
  job.extra = extra;
  job.secondPlanes = secondPlanes;
  job.planes = planes;
  job.srcMinX = srcMinX;
  job.srcMaxX = srcMaxX;
  job.srcMinY = srcMinY;
  job.srcMaxY = srcMaxY;
  job.useHomography = 1;
  job.isLuma = lumaFlag;
  job.planeValueAIsZero = planeValueA == 0 ? 1 : 0;
  job.layoutCode = pixelLayout == 2 ? 2 : pixelLayout == 4 ? 3 : 1;
  job.lumaSelect = lumaFlag == 1 ? 1 : 0;
  job.dsp = dsp;
  job.tileTotal = int32_t(tiles);
  kqParallelRun(kqWarpTileTask, kqWarpTileSplit, &job, sizeof job, threadCount);
}

}  // namespace

int32_t kqWarpLatchedTileTotal() { return gLatchedTotal.load(); }

void kqWarpTileSplit(int32_t slice, int32_t sliceCount, int32_t, void* context) {
  WarpJob* job = static_cast<WarpJob*>(context);
  const int64_t total = latchedTileTotal(job);
  job->tileTotal = int32_t(total);
  if (sliceCount < 1) {
    job->firstTile = 0;
    job->lastTile = -1;
    return;
  }
  job->firstTile = int32_t((total * slice) / sliceCount);
  job->lastTile = int32_t((total * (slice + 1)) / sliceCount - 1);
}

void kqWarpTileRect(const WarpJob* job, int32_t tileTotal, int32_t tx, int32_t ty, int32_t rect[4],
                    int32_t last[2]) {
  const int32_t cols = job->tileColumns, rows = job->tileRows;
  if (job->useHomography < 1) {
    // Identity mapping: rectangles cut straight from the destination and held
    // to the given bounds; they never overlap.
    rect[0] = imax(int32_t(int64_t(tx) * job->dstWidth / cols), job->srcMinX);
    rect[1] = imax(int32_t(int64_t(ty) * job->dstHeight / rows), job->srcMinY);
    rect[2] = imin(int32_t(int64_t(tx + 1) * job->dstWidth / cols - 1), job->srcMaxX);
    rect[3] = imin(int32_t(int64_t(ty + 1) * job->dstHeight / rows - 1), job->srcMaxY);
    last[0] = rect[2];
    last[1] = rect[3];
    return;
  }
  const Homography& h = job->forwardGrid[int64_t(cols) * rows * (job->imageCount - 1)];
  const int32_t srcW = job->planes[0].width, srcH = job->planes[0].height;
  const Cuts xs = columnExtent(job, h, srcW, tx);
  const Cuts ys = rowExtent(job, h, srcH, ty);
  rect[0] = xs.x0;
  rect[1] = ys.x0;
  rect[2] = xs.x1;
  rect[3] = ys.x1;

  // Rectangles of tiles that run must not share written pixels, or the bytes
  // left there would depend on which slice ran last. The result is the one
  // the tiles give when they run in index order:
  //  - the widened last column takes the column it shares with the tile to
  //    its left (their arithmetic can differ there by a grey level), so that
  //    tile stops writing one column short of it;
  //  - a tile row stops writing above the next tile row's first row (this
  //    only bites for non-square grids, whose lower cut uses the column
  //    count).
  // Only the writing stops short: the row geometry (left and right ends,
  // step, vertical blend) still comes from the whole rectangle.
  last[0] = xs.x1;
  last[1] = ys.x1;
  const int32_t rowStart = ty * cols;
  if (tx < cols - 1 && rowStart + cols - 1 < tileTotal) {
    const Cuts lastColumn = columnExtent(job, h, srcW, cols - 1);
    last[0] = imin(last[0], lastColumn.x0 - 1);
  }
  if (ty < rows - 1 && rowStart + cols < tileTotal) {
    const Cuts next = rowExtent(job, h, srcH, ty + 1);
    last[1] = imin(last[1], next.x0 - 1);
  }
}

void kqWarpTileTask(void* context) {
  const WarpJob* job = static_cast<const WarpJob*>(context);
  const int32_t cols = job->tileColumns, rows = job->tileRows;
  if (rows < 1 || cols < 1) return;
  // Outside 1..50 images the dispatcher does nothing; stop before the grid
  // and plane-list offsets that depend on the count are formed.
  if (job->imageCount < 1 || job->imageCount > kKqWarpMaxImages) return;
  if (job->planes == nullptr || job->forwardGrid == nullptr || job->inverseGrid == nullptr) return;
  const KQWarpDsp* dsp = job->dsp != nullptr ? job->dsp : kqWarpDspGet();
  // The tiles of a tile row are warped together, a destination row of each
  // in turn (whole rows of stores, not a tile's short runs). A slice that
  // holds only some of a tile row's tiles, say the 2nd of 4, writes the same
  // share of the row's destination rows (the 2nd quarter) across all of its
  // tiles instead: the slices of a tile row still split its pixels exactly,
  // and every slice writes rows of the whole width. That needs every tile of
  // the row to be one that runs (below the tile total).
  std::vector<int32_t> rects(size_t(cols) * 4), lasts(size_t(cols) * 2);
  for (int32_t ty = 0; ty < rows; ++ty) {
    const int64_t rowFirst = int64_t(ty) * cols;
    const int64_t from = job->firstTile > rowFirst ? job->firstTile : rowFirst;
    const int64_t to = job->lastTile < rowFirst + cols - 1 ? job->lastTile : rowFirst + cols - 1;
    if (from > to) continue;
    const int32_t tx0 = int32_t(from - rowFirst), count = int32_t(to - from + 1);
    for (int32_t tx = 0; tx < cols; ++tx)
      kqWarpTileRect(job, job->tileTotal, tx, ty, &rects[size_t(tx) * 4], &lasts[size_t(tx) * 2]);
    // A tile row that lies partly past the tile total runs the slice's own
    // tiles, all of their rows.
    const bool wholeRowRuns = rowFirst + cols <= job->tileTotal;
    const int32_t first = wholeRowRuns ? 0 : tx0, tiles = wholeRowRuns ? cols : count;
    const bool done = warpDispatchTileRowDsp(
        dsp, job->imageCount, job->lumaSelect, job->layoutCode, job->planeValueAIsZero,
        job->planes, job->secondPlanes, job->extra, &rects[size_t(first) * 4],
        &lasts[size_t(first) * 2], &job->inverseGrid[rowFirst + first], cols, first, tiles, ty,
        wholeRowRuns ? tx0 : 0, wholeRowRuns ? tx0 + count : 1, wholeRowRuns ? cols : 1);
    if (done) continue;
    for (int32_t tx = tx0; tx < tx0 + count; ++tx)
      warpDispatchDsp(dsp, job->imageCount, job->lumaSelect, job->layoutCode,
                      job->planeValueAIsZero, job->planes, job->secondPlanes, job->extra,
                      &rects[size_t(tx) * 4], &lasts[size_t(tx) * 2],
                      &job->inverseGrid[rowFirst + tx], &job->forwardGrid[rowFirst + tx], cols,
                      rows, tx, ty, job->planeValueA, job->planeValueB);
  }
}

void warpAllDsp(const KQWarpDsp* dsp, KQImage8* planes, KQImage8* secondPlanes, void* extra,
                const Homography* forwardGrid, const Homography* inverseGrid, int32_t srcMinX,
                int32_t srcMaxX, int32_t srcMinY, int32_t srcMaxY, int32_t imageCount,
                int32_t planeValueA, int32_t planeValueB, int32_t threadCount, int32_t pixelLayout,
                int32_t lumaFlag, int32_t tileColumns, int32_t tileRows) {
  warpRun(dsp, planes, secondPlanes, extra, forwardGrid, inverseGrid, srcMinX, srcMaxX, srcMinY,
          srcMaxY, imageCount, planeValueA, planeValueB, threadCount, pixelLayout, lumaFlag,
          tileColumns, tileRows);
}

void warpAll(KQImage8* planes, KQImage8* secondPlanes, void* extra, const Homography* forwardGrid,
             const Homography* inverseGrid, int32_t srcMinX, int32_t srcMaxX, int32_t srcMinY,
             int32_t srcMaxY, int32_t imageCount, int32_t planeValueA, int32_t planeValueB,
             int32_t threadCount, int32_t pixelLayout, int32_t lumaFlag, int32_t tileColumns,
             int32_t tileRows) {
  warpRun(kqWarpDspGet(), planes, secondPlanes, extra, forwardGrid, inverseGrid, srcMinX, srcMaxX,
          srcMinY, srcMaxY, imageCount, planeValueA, planeValueB, threadCount, pixelLayout,
          lumaFlag, tileColumns, tileRows);
}
