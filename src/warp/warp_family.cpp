// warp_family.cpp - the warp's original interface as adapters onto the warp
// engine: the kernel family table, the dispatcher, warpAll and the
// tile-range split.
#include "warp/warp_family.h"

#include <atomic>

#include "runtime/alloc.h"
#include "runtime/log.h"
#include "runtime/pool.h"
#include "warp/warp_engine.h"

namespace {

// Family layout: entries per group in the order layoutCode 1, 3, 0, other;
// kernels per entry in the order (lumaSelect, planeValueAIsZero) = (1, 0),
// (1, 1), (0, 0), (0, 1).
constexpr int kLayouts = 4;
constexpr int kVariants = 4;

int layoutEntry(int32_t layoutCode) {
  switch (layoutCode) {
    case 1:
      return 0;
    case 3:
      return 1;
    case 0:
      return 2;
    default:
      return 3;
  }
}

int variantIndex(int32_t lumaSelect, int32_t planeValueAIsZero) {
  if (planeValueAIsZero != 0 && planeValueAIsZero != 1) return -1;
  if (lumaSelect == 1) return planeValueAIsZero;
  if (lumaSelect == 0) return 2 + planeValueAIsZero;
  return -1;
}

// The single-image group. Groups 2..50 hold only no-op kernels.
KQWarpKernelFn* const kSingleImageGroup[kLayouts][kVariants] = {
    {kqWarpKernelNoop, kqWarpLumaKernel, kqWarpKernelNoop, kqWarpChromaKernel},
    {kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop},
    {kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop},
    {kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop},
};

std::atomic<int32_t> gLatchedTotal{0};

// The tile total is taken from the first job that ever asks and kept for
// the life of the process (every warp of the pipeline uses the same 4 x 4
// grid).
int32_t latchedTileTotal(int64_t total) {
  static const int32_t latched = [total] {
    const int32_t t = total > INT32_MAX ? INT32_MAX : int32_t(total);
    gLatchedTotal.store(t);
    return t;
  }();
  return latched;
}

// The engine's request for one plane list (and a second one alike): luma
// read at the stride a KQWarpSourceRows gives, chroma as pairs when a
// KQWarpChromaPairs is given, as packed planes otherwise.
KQWarpRequest requestOf(const KQWarpDsp* dsp, bool luma, const KQImage8* planes,
                        const KQImage8* secondPlanes, const void* extra) {
  KQWarpRequest req = {};
  req.dsp = dsp;
  const auto* pairs = luma ? nullptr : static_cast<const KQWarpChromaPairs*>(extra);
  const auto* rows = luma ? static_cast<const KQWarpSourceRows*>(extra) : nullptr;
  if (pairs != nullptr) {
    req.kind = KQWarpKind::kChromaPairs;
    req.source[0] = {pairs->src, planes[0].width, planes[0].height, pairs->srcPitch};
    req.target[0] = {pairs->dst, planes[1].width, planes[1].height, pairs->pitch};
    req.swapPairs = pairs->swap;
    return req;
  }
  req.kind = luma ? KQWarpKind::kLuma : KQWarpKind::kChromaPlanes;
  const KQImage8* lists[2] = {planes, secondPlanes};
  for (int i = 0; i < 2; ++i) {
    const KQImage8* list = lists[i];
    if (list == nullptr) continue;
    const ptrdiff_t width = list[0].width;
    const ptrdiff_t stride = rows != nullptr && rows->stride > width ? rows->stride : width;
    req.source[i] = {list[0].data, list[0].width, list[0].height, stride};
    req.target[i] = {list[1].data, list[1].width, list[1].height, list[1].width};
  }
  return req;
}

void warpOneTile(const KQWarpDsp* dsp, bool luma, KQImage8* planeList, void* extra,
                 const int32_t* rect, const int32_t* last, const Homography* inverseTile,
                 int32_t cols, int32_t tx, int32_t ty) {
  if (planeList == nullptr || rect == nullptr) return;
  KQWarpRequest req = requestOf(dsp, luma, planeList, nullptr, extra);
  req.tileColumns = cols;
  const size_t bytes = kqWarpTileScratchBytes(req);
  if (bytes == 0 || bytes >= 0x7FFFFFFF) return;
  void* scratch = kqMalloc(uint32_t(bytes));
  if (scratch == nullptr) return;
  KQWarpTile tile = {0, {rect[0], rect[1], rect[2], rect[3]}, {INT32_MAX, INT32_MAX},
                         inverseTile, tx, ty};
  if (last != nullptr) {
    tile.last[0] = last[0];
    tile.last[1] = last[1];
  }
  kqWarpTile(req, tile, static_cast<uint8_t*>(scratch), bytes);
  kqFree(scratch);
}

}  // namespace

void kqWarpLumaKernel(const KQWarpDsp* dsp, KQImage8* planeList, void* extra, const int32_t* rect,
                      const int32_t* last, const Homography* inverseTile, const Homography*,
                      int32_t cols, int32_t, int32_t tx, int32_t ty, int32_t) {
  warpOneTile(dsp, true, planeList, extra, rect, last, inverseTile, cols, tx, ty);
}

void kqWarpChromaKernel(const KQWarpDsp* dsp, KQImage8* planeList, void* extra, const int32_t* rect,
                        const int32_t* last, const Homography* inverseTile, const Homography*,
                        int32_t cols, int32_t, int32_t tx, int32_t ty, int32_t) {
  warpOneTile(dsp, false, planeList, extra, rect, last, inverseTile, cols, tx, ty);
}

void kqWarpKernelNoop(const KQWarpDsp*, KQImage8*, void*, const int32_t*, const int32_t*,
                      const Homography*, const Homography*, int32_t, int32_t, int32_t, int32_t,
                      int32_t) {}

KQWarpKernelFn* kqWarpFamilyKernel(int32_t n, int32_t layoutCode, int32_t lumaSelect,
                                   int32_t planeValueAIsZero) {
  if (n < 1 || n > kKqWarpMaxImages) return nullptr;
  const int variant = variantIndex(lumaSelect, planeValueAIsZero);
  if (variant < 0) return nullptr;
  if (n != 1) return kqWarpKernelNoop;
  return kSingleImageGroup[layoutEntry(layoutCode)][variant];
}

void warpDispatchDsp(const KQWarpDsp* dsp, int32_t n, int32_t lumaSelect, int32_t layoutCode,
                     int32_t planeValueAIsZero, KQImage8* planes, KQImage8* secondPlanes,
                     void* extra, const int32_t* rect, const int32_t* last,
                     const Homography* inverseTile, const Homography* forwardTile, int32_t cols,
                     int32_t rows, int32_t tx, int32_t ty, int32_t planeValueA,
                     int32_t planeValueB) {
  KQWarpKernelFn* kernel = kqWarpFamilyKernel(n, layoutCode, lumaSelect, planeValueAIsZero);
  if (kernel == nullptr) return;
  kernel(dsp, planes, extra, rect, last, inverseTile, forwardTile, cols, rows, tx, ty, planeValueA);
  if (secondPlanes != nullptr)
    kernel(dsp, secondPlanes, extra, rect, last, inverseTile, forwardTile, cols, rows, tx, ty,
           planeValueB);
}

void warpDispatch(int32_t n, int32_t lumaSelect, int32_t layoutCode, int32_t planeValueAIsZero,
                  KQImage8* planes, KQImage8* secondPlanes, void* extra, const int32_t* rect,
                  const Homography* inverseTile, const Homography* forwardTile, int32_t cols,
                  int32_t rows, int32_t tx, int32_t ty, int32_t planeValueA, int32_t planeValueB) {
  warpDispatchDsp(kqWarpDspGet(), n, lumaSelect, layoutCode, planeValueAIsZero, planes,
                  secondPlanes, extra, rect, nullptr, inverseTile, forwardTile, cols, rows, tx, ty,
                  planeValueA, planeValueB);
}

void warpAllDsp(const KQWarpDsp* dsp, KQImage8* planes, KQImage8* secondPlanes, void* extra,
                const Homography* forwardGrid, const Homography* inverseGrid, int32_t,
                int32_t, int32_t, int32_t, int32_t imageCount, int32_t planeValueA, int32_t,
                int32_t threadCount, int32_t pixelLayout, int32_t lumaFlag, int32_t tileColumns,
                int32_t tileRows) {
  const int32_t limit = latchedTileTotal(int64_t(tileColumns) * tileRows);
  const int32_t layoutCode = pixelLayout == 2 ? 2 : pixelLayout == 4 ? 3 : 1;
  KQWarpKernelFn* kernel =
      kqWarpFamilyKernel(imageCount, layoutCode, lumaFlag == 1 ? 1 : 0, planeValueA == 0 ? 1 : 0);
  if (planes == nullptr || (kernel != kqWarpLumaKernel && kernel != kqWarpChromaKernel)) return;
  KQWarpRequest req = requestOf(dsp, kernel == kqWarpLumaKernel, planes, secondPlanes, extra);
  req.forwardGrid = forwardGrid;
  req.inverseGrid = inverseGrid;
  req.tileColumns = tileColumns;
  req.tileRows = tileRows;
  req.tileLimit = limit;
  const size_t bytes = kqWarpScratchBytes(req, kqStepWorkers(threadCount));
  if (bytes == 0) return;
  void* scratch = bytes < 0x7FFFFFFF ? kqMalloc(uint32_t(bytes)) : nullptr;
  if (scratch == nullptr) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "Memory allocation failed: warpAll");
    return;
  }
  kqWarpRun(req, threadCount, static_cast<uint8_t*>(scratch), bytes);
  kqFree(scratch);
}

void warpAll(KQImage8* planes, KQImage8* secondPlanes, void* extra, const Homography* forwardGrid,
             const Homography* inverseGrid, int32_t srcMinX, int32_t srcMaxX, int32_t srcMinY,
             int32_t srcMaxY, int32_t imageCount, int32_t planeValueA, int32_t planeValueB,
             int32_t threadCount, int32_t pixelLayout, int32_t lumaFlag, int32_t tileColumns,
             int32_t tileRows) {
  warpAllDsp(kqWarpDspGet(), planes, secondPlanes, extra, forwardGrid, inverseGrid, srcMinX,
             srcMaxX, srcMinY, srcMaxY, imageCount, planeValueA, planeValueB, threadCount,
             pixelLayout, lumaFlag, tileColumns, tileRows);
}

int32_t kqWarpLatchedTileTotal() { return gLatchedTotal.load(); }

void kqWarpTileSplit(int32_t slice, int32_t sliceCount, int32_t, void* context) {
  WarpJob* job = static_cast<WarpJob*>(context);
  const int64_t total = latchedTileTotal(int64_t(job->tileColumns) * job->tileRows);
  job->tileTotal = int32_t(total);
  if (sliceCount < 1) {
    job->firstTile = 0;
    job->lastTile = -1;
    return;
  }
  job->firstTile = int32_t((total * slice) / sliceCount);
  job->lastTile = int32_t((total * (slice + 1)) / sliceCount - 1);
}
