// warp_engine.h - the warp of whole planes: the destination cut into the
// rectangles of a tile grid, each tile's rows sampled through its inverse
// homography by the row kernels of warp_dsp.h, the tile rows spread over
// the workers of a parallel step.
#pragma once

#include <cstddef>
#include <cstdint>

#include "warp/homography.h"
#include "warp/warp_dsp.h"

// What a warp samples.
enum class KQWarpKind {
  kLuma,          // one plane, bilinear
  kChromaPairs,   // interleaved chroma, nearest sample, pairs kept together
  kChromaPlanes,  // U and V planes, nearest sample, the same way
};

// A source plane: `width` x `height` samples (pairs for kChromaPairs), rows
// `stride` bytes apart.
struct KQWarpSource {
  const uint8_t* data;
  int32_t width, height;
  ptrdiff_t stride;
};

// A destination plane, likewise.
struct KQWarpTarget {
  uint8_t* data;
  int32_t width, height;
  ptrdiff_t stride;
};

// One warp. Plane 0 is warped, and plane 1 alike when it is given (U and V
// for kChromaPlanes; never for kChromaPairs). The tile grid is tileColumns x tileRows;
// both grids hold one homography per tile, row-major. The rectangles come
// from the forward grid's first tile (its scale h0 and shifts h2, h5); the
// rows of tile t sample through inverse tile t and its left and upper
// neighbours (see kqWarpTileRect).
struct KQWarpRequest {
  KQWarpKind kind;
  KQWarpSource source[2];
  KQWarpTarget target[2];
  bool swapPairs;  // kChromaPairs: each pair's two bytes exchanged on the way
  const Homography* forwardGrid;
  const Homography* inverseGrid;
  int32_t tileColumns, tileRows;
  // Tiles from this index on are not warped (the whole grid when it is at
  // least tileColumns * tileRows).
  int32_t tileLimit;
  const KQWarpDsp* dsp;
};

// Scratch bytes a warp needs when it runs on `workers` workers: the tile
// records and the block-chain plans of each worker's current tile row.
// Depends only on the kind, the planes' widths, the tile columns and the
// workers (no pointer is read), so it can be asked before the planes exist.
size_t kqWarpScratchBytes(const KQWarpRequest& request, int32_t workers);

// Warps `request` over the workers of a parallel step with `threads`
// (kqRunPieces) and returns when it is done. `scratch` holds at least
// kqWarpScratchBytes(request, kqStepWorkers(threads)) bytes; nothing else is
// allocated. Writes only the targets' rectangles, reads only the sources'
// samples (positions are clamped to the planes). The bytes are the same for
// every thread count and every kernel table. A request with missing planes,
// sizes below 1, a grid below 1 x 1 or too little scratch writes nothing.
void kqWarpRun(const KQWarpRequest& request, int32_t threads, uint8_t* scratch,
               size_t scratchBytes);

// The rectangle {x0, y0, x1, y1} (inclusive, destination pixels) of tile
// (tx, ty), from which its row geometry is taken, and in last = {column,
// row} the last column and row it writes: short of the rectangle's end
// where a warped tile (index below tileLimit) later writes the same pixels,
// so that the bytes there are those of a run that takes the tiles in order.
// The rectangles are cut from source plane 0 and clamped to target plane 0.
void kqWarpTileRect(const KQWarpRequest& request, int32_t tx, int32_t ty, int32_t rect[4],
                    int32_t last[2]);

// One tile of a warp: tile (tx, ty) of plane `plane`, its rows laid out over
// `rect` and written up to column last[0] and row last[1] (as
// kqWarpTileRect gives them; INT32_MAX for the whole rectangle), sampled
// through inverseTile, the tile's entry of a tileColumns-wide inverse grid
// (the left and upper neighbours are read for tx > 0 and ty > 0).
struct KQWarpTile {
  int32_t plane;
  int32_t rect[4];
  int32_t last[2];
  const Homography* inverseTile;
  int32_t tx, ty;
};

// Warps one tile: the bytes kqWarpRun gives it. `scratch` holds at least
// kqWarpTileScratchBytes(request) bytes.
size_t kqWarpTileScratchBytes(const KQWarpRequest& request);
void kqWarpTile(const KQWarpRequest& request, const KQWarpTile& tile, uint8_t* scratch,
                size_t scratchBytes);
