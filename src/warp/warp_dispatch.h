// warp_dispatch.h - the warp kernel family and its dispatcher: one kernel per
// (image count, pixel layout, sampler, planeValueA-is-zero) combination,
// each filling one tile rectangle of the destination.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/image8.h"
#include "warp/homography.h"
#include "warp/warp_dsp.h"

// Image counts 1..50 have a kernel group; other counts do nothing.
constexpr int32_t kKqWarpMaxImages = 50;

// Fills the rectangle rect = {x0, y0, x1, y1} (inclusive, destination pixels)
// of planeList[n], n being the group's image count, from the source(s)
// planeList[0 .. n-1], sampled through the inverse homography of the tile
// (tx, ty) of a cols-wide grid. inverseTile points into that grid: the
// kernel also reads the left neighbour (tx > 0), the tile above (ty > 0) and
// the one above-left, which anchor the left and top edges of the rectangle.
// Planes are packed (row stride = width) unless extra says otherwise
// (below). Every row's geometry (its left and right ends at x0 and x1, its
// step, the vertical blend over y0..y1) comes from the rectangle; writing
// stops at the destination's last column and row
// and, when last is not null, at column last[0] and row last[1], which
// leaves a shared column or row to the tile that owns it without changing a
// byte of the others. A negative x0 or y0 starts at 0. An empty result
// writes nothing; nothing outside it is written and nothing outside the
// source planes is read (sample positions are clamped to the plane). Missing
// planes (null data, sizes below 1) write nothing. forwardTile, rows and
// planeValue are carried for the family's other members and do not affect
// these kernels; extra is null, for the luma kernel a KQWarpSourceRows and
// for the chroma kernel a KQWarpChromaPairs (below).
using KQWarpKernelFn = void(const KQWarpDsp* dsp, KQImage8* planeList, void* extra,
                            const int32_t* rect, const int32_t* last, const Homography* inverseTile,
                            const Homography* forwardTile, int32_t cols, int32_t rows, int32_t tx,
                            int32_t ty, int32_t planeValue);

// A source plane read where it lies: when the luma kernel gets one of these
// as `extra`, the rows of planeList[0] are `stride` bytes apart (at least
// its width) instead of packed, so the warp reads a region of a caller's
// plane without a packed copy of it.
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

// The kernel that (n, layoutCode, lumaSelect, planeValueAIsZero) selects, or
// null where the dispatcher runs nothing (n outside 1..50, flag pairs other
// than (1, 0), (1, 1), (0, 0), (0, 1)). Layout entries exist for layoutCode
// 1, 3, 0 and "any other". Only n = 1, layoutCode 1 with (1, 1) (bilinear
// luma) and (0, 1) (nearest-sample chroma) are real kernels; the pipeline
// never reaches the others, which are kqWarpKernelNoop.
KQWarpKernelFn* kqWarpFamilyKernel(int32_t n, int32_t layoutCode, int32_t lumaSelect,
                                   int32_t planeValueAIsZero);

KQWarpKernelFn kqWarpLumaKernel, kqWarpChromaKernel, kqWarpKernelNoop;

// Runs the selected kernel on `planes` with planeValueA, then, when
// secondPlanes is not null, on it with planeValueB (same rectangle and
// tiles). Writes the whole rectangle. Uses kqWarpDspGet().
void warpDispatch(int32_t n, int32_t lumaSelect, int32_t layoutCode, int32_t planeValueAIsZero,
                  KQImage8* planes, KQImage8* secondPlanes, void* extra, const int32_t* rect,
                  const Homography* inverseTile, const Homography* forwardTile, int32_t cols,
                  int32_t rows, int32_t tx, int32_t ty, int32_t planeValueA, int32_t planeValueB);

// The same with an explicit kernel table (tests run every ISA level) and the
// kernels' write limit (last, may be null).
void warpDispatchDsp(const KQWarpDsp* dsp, int32_t n, int32_t lumaSelect, int32_t layoutCode,
                     int32_t planeValueAIsZero, KQImage8* planes, KQImage8* secondPlanes,
                     void* extra, const int32_t* rect, const int32_t* last,
                     const Homography* inverseTile, const Homography* forwardTile, int32_t cols,
                     int32_t rows, int32_t tx, int32_t ty, int32_t planeValueA,
                     int32_t planeValueB);

// Tiles tx0 .. tx0 + count - 1 of tile row ty (rects and lasts: 4 and 2
// values per tile, inverseTile the grid entry of tile (tx0, ty)) with the
// kernel warpDispatchDsp selects, writing one destination row of every tile
// in turn: the same bytes, in long runs of stores across the tiles instead
// of a tile's short ones. Only band bandFrom .. bandTo of bandOf equal
// parts of the tiles' rows is written (0, 1, 1 for all of them); the bands
// of one bandOf split the rows exactly. False, having done nothing, when
// that kernel is not one of the two real ones, planes is null or the band
// is not one; the caller then runs the tiles one by one.
bool warpDispatchTileRowDsp(const KQWarpDsp* dsp, int32_t n, int32_t lumaSelect, int32_t layoutCode,
                            int32_t planeValueAIsZero, KQImage8* planes, KQImage8* secondPlanes,
                            void* extra, const int32_t* rects, const int32_t* lasts,
                            const Homography* inverseTile, int32_t cols, int32_t tx0, int32_t count,
                            int32_t ty, int32_t bandFrom, int32_t bandTo, int32_t bandOf);
