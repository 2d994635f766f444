// warp_family.h - the warp's original interface: the kernel family chosen
// by image count, pixel layout and sampler, its dispatcher, the tile-range
// split and warpAll over plane lists. Each is a thin adapter onto the warp
// engine (warp_engine.h), which the pipeline uses directly.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/image8.h"
#include "warp/homography.h"
#include "warp/warp_dsp.h"

// Image counts 1..50 have a kernel group; other counts do nothing.
constexpr int32_t kKqWarpMaxImages = 50;

// A source plane read where it lies: when the luma kernel gets one of these
// as `extra`, the rows of planeList[0] are `stride` bytes apart (at least
// its width) instead of packed.
struct KQWarpSourceRows {
  ptrdiff_t stride;
};

// Interleaved chroma in and out. When the chroma kernel gets one of these as
// `extra`, planeList[0] gives the source's size in pairs and planeList[1]
// the destination's: source pixel (x, y) is the two bytes at src + y *
// srcPitch + 2 * x, destination pixel (x, y) the two at dst + y * pitch +
// 2 * x, written in the source's order, or exchanged when swap is set. The
// bytes are those of splitting the source into planes of single bytes,
// warping each plane and merging the rows in the destination's order.
struct KQWarpChromaPairs {
  const uint8_t* src;
  ptrdiff_t srcPitch;
  uint8_t* dst;
  ptrdiff_t pitch;
  bool swap;
};

// A plane list is KQImage8 records by value, the sources first and the
// destination after them ({source, destination} for one image).
//
// A kernel of the family: fills the rectangle rect = {x0, y0, x1, y1}
// (inclusive, destination pixels) of planeList[1] from planeList[0],
// sampled through inverseTile, the entry of tile (tx, ty) of a cols-wide
// grid (the left and upper neighbours anchor the rectangle's left and top
// edges). Planes are packed unless `extra` says otherwise (null; a
// KQWarpSourceRows for the luma kernel, a KQWarpChromaPairs for the chroma
// kernel). Writing stops at the destination's edge and, when last is not
// null, at column last[0] and row last[1]. Nothing outside the rectangle is
// written; missing planes write nothing. forwardTile, rows and planeValue
// are carried for the family's other members and do not affect these
// kernels. Allocates its scratch with kqMalloc (logged and nothing written
// when that fails).
using KQWarpKernelFn = void(const KQWarpDsp* dsp, KQImage8* planeList, void* extra,
                            const int32_t* rect, const int32_t* last, const Homography* inverseTile,
                            const Homography* forwardTile, int32_t cols, int32_t rows, int32_t tx,
                            int32_t ty, int32_t planeValue);

KQWarpKernelFn kqWarpLumaKernel, kqWarpChromaKernel, kqWarpKernelNoop;

// The kernel that (n, layoutCode, lumaSelect, planeValueAIsZero) selects, or
// null where the dispatcher runs nothing (n outside 1..50, flag pairs other
// than (1, 0), (1, 1), (0, 0), (0, 1)). Layout entries exist for layoutCode
// 1, 3, 0 and "any other". Only n = 1, layoutCode 1 with (1, 1) (bilinear
// luma) and (0, 1) (nearest-sample chroma) are real kernels; every other
// member is kqWarpKernelNoop.
KQWarpKernelFn* kqWarpFamilyKernel(int32_t n, int32_t layoutCode, int32_t lumaSelect,
                                   int32_t planeValueAIsZero);

// Runs the selected kernel on `planes` with planeValueA, then, when
// secondPlanes is not null, on it with planeValueB (same rectangle and
// tiles). Writes the whole rectangle. Uses kqWarpDspGet().
void warpDispatch(int32_t n, int32_t lumaSelect, int32_t layoutCode, int32_t planeValueAIsZero,
                  KQImage8* planes, KQImage8* secondPlanes, void* extra, const int32_t* rect,
                  const Homography* inverseTile, const Homography* forwardTile, int32_t cols,
                  int32_t rows, int32_t tx, int32_t ty, int32_t planeValueA, int32_t planeValueB);

// The same with an explicit kernel table and the kernels' write limit
// (last, may be null).
void warpDispatchDsp(const KQWarpDsp* dsp, int32_t n, int32_t lumaSelect, int32_t layoutCode,
                     int32_t planeValueAIsZero, KQImage8* planes, KQImage8* secondPlanes,
                     void* extra, const int32_t* rect, const int32_t* last,
                     const Homography* inverseTile, const Homography* forwardTile, int32_t cols,
                     int32_t rows, int32_t tx, int32_t ty, int32_t planeValueA,
                     int32_t planeValueB);

// Warps planes (and secondPlanes, when not null) through the grids over a
// tileColumns x tileRows grid with the common thread-count rule, and
// returns when every tile is done. The kernel is the family member of
// (imageCount, pixelLayout: 2 -> layout 2, 4 -> 3, else 1, lumaFlag == 1,
// planeValueA == 0); members that do nothing leave the destination as it
// was. Tiles from the latched tile total on (kqWarpTileSplit) are not
// warped. The rectangles come from the forward grid's tile 0 and the source
// plane's size. srcMinX .. srcMaxY bound an identity mapping that is not
// built; they are ignored. Scratch comes from kqMalloc (logged and nothing
// written when that fails). The same bytes for every thread count.
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

// The tile-range split's context: a slice's inclusive tile range.
struct WarpJob {
  int32_t firstTile;
  int32_t lastTile;  // lastTile < firstTile is an empty range
  int32_t tileColumns;
  int32_t tileRows;
  int32_t tileTotal;  // set by the split: the latched total
};

// Tile-range split (a KQSplitFn on a WarpJob): slice k of sliceCount gets
// tiles (T * k) / sliceCount .. (T * (k + 1)) / sliceCount - 1, T being the
// tile total latched from the first job this function (or warpAll) ever
// sees.
void kqWarpTileSplit(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context);

// The latched tile total (0 before the first split).
int32_t kqWarpLatchedTileTotal();
