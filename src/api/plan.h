// plan.h - what one call will do, decided before it touches anything: the
// checks of its records, its work region, which stages run and where each
// working plane sits in the call's one block of memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "api/pipeline.h"

// The warp grid: 4 x 4 tiles, one homography pair each.
constexpr int32_t kKqGridSide = 4;

// The working planes a call may need. Which of them it does need, and how
// large, follows from its sizes and strengths.
enum KQPlaneId : int32_t {
  kCopyY,         // the work region's luma and interleaved chroma rows,
  kCopyUV,        // packed: only for an input that shares memory with the output
  kInU,           // the region's chroma, split and packed, for the chroma filter
  kInV,
  kLumaY,         // the luma between two steps that cannot share a plane
  kOutU,          // warped chroma at output size, for the chroma filter
  kOutV,
  kHalf1U,        // the chroma filter's quarter-size planes
  kHalf1V,
  kHalf2U,
  kHalf2V,
  kPaddingRow,    // row buffer of the in-place luma spread
  kPaddingSaved,  // caller's padding bytes under the packed luma
  kWarpScratch,   // the warps' per-worker tile records and block-chain plans
  kPlaneCount
};

// Where the luma goes. Each luma step writes either the caller's plane
// (packed rows, spread to the row stride at the end) or kLumaY; a filter
// never writes the plane it reads.
struct KQLumaRoute {
  bool warp = false;             // off when no luma reaches the caller
  bool warpToCaller = false;
  bool denoise = false;
  bool denoiseToCaller = false;
  bool sharpen = false;
  bool spread = false;           // rows moved to the caller's row stride at the end
};

struct KQPlan {
  // The work region: its top-left corner in the input and its size (the
  // whole input, or the clamped region cut to multiples of 4).
  int32_t left = 0, top = 0, width = 0, height = 0;
  KQLumaRoute luma;
  bool chromaFilter = false;
  bool readInPlace = false;  // the warp reads the caller's input planes directly
  size_t savedBytes = 0;     // caller's padding bytes the packed luma covers

  // Every plane's size (0 x 0 when not needed) and offset in the block.
  int32_t planeWidth[kPlaneCount] = {};
  int32_t planeHeight[kPlaneCount] = {};
  size_t offset[kPlaneCount] = {};
  size_t bytes = 0;  // the whole block

  bool needs(KQPlaneId id) const { return planeWidth[id] > 0 && planeHeight[id] > 0; }
};

// Checks the call's records and region and plans it. False, having logged
// the one line that says why ("KQUpScale: ...; nothing written"), for a call
// that is refused.
bool kqPlanCall(const KQUpScaleCall& call, KQPlan* plan);

// The packed luma rows of an output `width` wide cover, from byte `width`
// on, the padding of the rows above (rows `stride` bytes apart); calls
// fn(offset, bytes) for each covered run, top down.
template <typename Fn>
void kqForEachCoveredPadding(int32_t width, int32_t height, int32_t stride, Fn fn) {
  const size_t packedEnd = size_t(width) * size_t(height);
  for (size_t start = size_t(width); start < packedEnd; start += size_t(stride)) {
    const size_t rest = packedEnd - start, pad = size_t(stride - width);
    fn(start, pad < rest ? pad : rest);
  }
}
