// pipeline.cpp - the upscale pipeline: intake, homographies, luma and chroma
// warp, luma noise reduction, sharpening, chroma noise reduction and the
// final output layout, each stage bracketed by its timer hooks.
#include "api/pipeline.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "filters/chroma_nr.h"
#include "filters/luma_nr.h"
#include "filters/sharpen.h"
#include "image/image8.h"
#include "image/output_assembly.h"
#include "image/plane_intake.h"
#include "runtime/log.h"
#include "runtime/pool.h"
#include "runtime/timer.h"
#include "runtime/version.h"
#include "runtime/workspace.h"
#include "warp/homography.h"
#include "warp/warp_dsp.h"
#include "warp/warp_engine.h"

namespace {

// The smallest work region the warp can map: its source limits (size - 4)
// must not be negative.
constexpr int32_t kMinWorkSize = 4;

// Format codes: the public one for NV12 and the internal layout codes the
// intake and output stages take (11 = U,V order, 10 = V,U).
constexpr int32_t kPublicNv12 = 9;
constexpr int32_t kLayoutUV = 11;
constexpr int32_t kLayoutVU = 10;

// Chroma padding bytes hold this neutral value.
constexpr uint8_t kNeutralChroma = 128;

// Stage ids of the timer hooks (the labels beside them are what the hooks
// report).
enum StageId : int32_t {
  kStageIntake = 0,
  kStageHomographies = 1,
  kStageLumaWarp = 2,
  kStageChromaWarp = 3,
  kStagePostFilter = 4,  // encloses the three filters
  kStageOutput = 5,      // encloses the luma spread and the chroma interleave
  kStageLumaNoise = 12,
  kStageSharpening = 13,
  kStageChromaNoise = 14,
  kStageLumaSpread = 21,
  kStageChromaInterleave = 22,
};

// The warp grid: 4 x 4 tiles, one homography pair each.
constexpr int32_t kGridSide = 4;
constexpr int32_t kGridTiles = kGridSide * kGridSide;

// The working planes a call may need. Which of them it does need, and how
// large, follows from its sizes and strengths (see makePlan).
enum PlaneId : int32_t {
  kCopyY,        // the work region's luma and interleaved chroma rows,
  kCopyUV,       // packed: only for an input that shares memory with the output
  kInU,          // the region's chroma, split and packed, for the chroma filter
  kInV,
  kLumaY,        // the luma between two steps that cannot share a plane
  kOutU,         // warped chroma at output size, for the chroma filter
  kOutV,
  kHalf1U,       // the chroma filter's quarter-size planes
  kHalf1V,
  kHalf2U,
  kHalf2V,
  kPaddingRow,   // row buffer of the in-place luma spread
  kPaddingSaved, // caller's padding bytes under the packed luma
  kWarpScratch,  // the warps' per-worker tile records and block-chain plans
  kPlaneCount
};

// Planes start this many bytes apart within a page from one another, so
// that a stage reading one plane and writing another at the same row
// offsets does not have its loads and stores alias in the low 12 address
// bits (which stalls store forwarding checks on x86 and ARM cores alike).
constexpr size_t kPlaneStagger = 576;
constexpr size_t kPage = 4096;

// What one call needs: every plane's size (0 x 0 when it is not needed) and
// its place in the call's block of working memory.
struct Plan {
  int32_t width[kPlaneCount] = {};
  int32_t height[kPlaneCount] = {};
  size_t offset[kPlaneCount] = {};
  size_t bytes = 0;  // the whole block

  // Stage routing. Each luma step writes either the caller's plane (packed
  // rows, spread to the row stride at the end) or kLumaY; a filter never
  // writes the plane it reads.
  bool lumaWarp = false;     // off when no luma reaches the caller
  bool warpToCaller = false;
  bool denoiseToCaller = false;
  bool denoise = false;
  bool sharpen = false;
  bool chromaFilter = false;
  bool readInPlace = false;  // the warp reads the caller's input planes directly
  bool spread = false;  // luma rows are moved to the caller's row stride at the end
  size_t savedBytes = 0;

  bool needs(PlaneId id) const { return width[id] > 0 && height[id] > 0; }
  void set(PlaneId id, int32_t w, int32_t h) {
    width[id] = w;
    height[id] = h;
  }
};

void logInvalid(const char* what) {
  kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "KQUpScale: %s; nothing written", what);
}

// Plane extents are capped at 2 GiB - 1 on every target, so that a record
// means the same on 32-bit ARM (where larger planes cannot exist) as on
// 64-bit machines, and no offset inside a plane overflows.
constexpr int64_t kLargestPlane = 0x7FFFFFFF;

// Why a record cannot be worked with safely, or null when it can. The
// luma plane is yRowStride * yScanlines bytes and the chroma plane
// height / 2 rows of yRowStride bytes; the stages touch `height` rows, so a
// record whose scanlines fall short of its height describes a plane that
// is too small for them.
const char* recordProblem(const KQYUVMultiPlaneImage* image, int32_t minSide) {
  if (image == nullptr || image->yData == nullptr || image->chromaData == nullptr)
    return "is missing a record or a plane";
  if (image->width < minSide || image->height < minSide)
    return minSide > 1 ? "is smaller than 2x2" : "is empty";
  if (image->yRowStride < image->width) return "has a row stride below its width";
  if (image->yScanlines < image->height) return "has fewer scanlines than rows";
  if (int64_t(image->yRowStride) * image->yScanlines > kLargestPlane)
    return "has a luma plane of 2 GiB or more";
  return nullptr;
}

// The address ranges of a record's luma plane and chroma plane.
struct Extent {
  uintptr_t begin, end;
};
void recordExtents(const KQYUVMultiPlaneImage* image, Extent out[2]) {
  const uintptr_t y = reinterpret_cast<uintptr_t>(image->yData);
  const uintptr_t c = reinterpret_cast<uintptr_t>(image->chromaData);
  const size_t stride = size_t(image->yRowStride);
  out[0] = {y, y + stride * size_t(image->yScanlines)};
  out[1] = {c, c + stride * size_t((image->height + 1) / 2)};
}

// True when a plane of one record shares a byte with a plane of the other.
bool recordsMeet(const KQYUVMultiPlaneImage* a, const KQYUVMultiPlaneImage* b) {
  Extent ea[2], eb[2];
  recordExtents(a, ea);
  recordExtents(b, eb);
  for (const Extent& x : ea)
    for (const Extent& y : eb)
      if (x.begin < y.end && y.begin < x.end) return true;
  return false;
}

bool acceptRecord(const KQYUVMultiPlaneImage* image, const char* which, int32_t minSide) {
  const char* problem = recordProblem(image, minSide);
  if (problem == nullptr) return true;
  kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "KQUpScale: %s image %s; nothing written", which,
        problem);
  return false;
}

// The luma stages write packed rows of `width` bytes from the start of the
// caller's plane, and the final spread moves them to the row stride. The
// packed rows cover padding bytes of the upper rows on the way; these
// helpers save those bytes before the first write and put them back after
// the spread, so that the caller's padding stays as it was.
template <typename Fn>
void forEachCoveredPadding(int32_t width, int32_t height, int32_t stride, Fn fn) {
  const size_t packedEnd = size_t(width) * size_t(height);
  for (size_t start = size_t(width); start < packedEnd; start += size_t(stride)) {
    const size_t n = std::min(size_t(stride - width), packedEnd - start);
    fn(start, n);
  }
}

size_t coveredPaddingBytes(int32_t width, int32_t height, int32_t stride) {
  size_t total = 0;
  forEachCoveredPadding(width, height, stride, [&](size_t, size_t n) { total += n; });
  return total;
}

// The plan for one call: which planes its strengths need and where each
// sits in the call's block. Sizes are at most the caller's record sizes
// (each plane below 2 GiB), so the sum fits a size_t on every target.
Plan makePlan(int32_t workWidth, int32_t workHeight, int32_t outWidth, int32_t outHeight,
              int32_t outStride, int32_t noiseReduction, int32_t chromaNoiseReduction,
              float sharpening, bool inputApart, int32_t numThreads) {
  Plan plan;
  plan.readInPlace = inputApart;
  plan.sharpen = sharpening > 0.0f;
  plan.denoise = noiseReduction > 0;
  // Negative or NaN sharpening without noise reduction writes no luma at
  // all, so its warp is not run. Otherwise the last step writes the caller's
  // plane, and so does the warp when it is not the input of that last step:
  // warp -> caller, noise -> kLumaY, sharpening -> caller needs one plane of
  // output size, not two.
  const bool lumaWritten = sharpening == 0.0f || plan.denoise || plan.sharpen;
  plan.lumaWarp = lumaWritten;
  plan.warpToCaller = lumaWritten && plan.denoise == plan.sharpen;
  plan.denoiseToCaller = plan.denoise && !plan.sharpen;
  // The chroma filter works on quarter-size planes; an output whose chroma
  // is below 2x2 has none, and its chroma stays as warped.
  const int32_t halfW = (outWidth / 2) / 2, halfH = (outHeight / 2) / 2;
  plan.chromaFilter = chromaNoiseReduction > 0 && halfW > 0 && halfH > 0;
  plan.spread = outStride > outWidth && lumaWritten;
  plan.savedBytes = plan.spread ? coveredPaddingBytes(outWidth, outHeight, outStride) : 0;

  // The warp reads the region of the caller's luma and interleaved chroma
  // where it lies; the chroma filter needs U and V in planes of their own.
  // An input that shares memory with the output is copied first, as the
  // output is written while the warp still reads.
  if (!plan.readInPlace) {
    plan.set(kCopyY, workWidth, workHeight);
    plan.set(kCopyUV, workWidth, workHeight / 2);
  }
  if (plan.chromaFilter) {
    plan.set(kInU, workWidth / 2, workHeight / 2);
    plan.set(kInV, workWidth / 2, workHeight / 2);
  }
  if (plan.denoise || plan.sharpen) plan.set(kLumaY, outWidth, outHeight);
  if (plan.chromaFilter) {
    plan.set(kOutU, outWidth / 2, outHeight / 2);
    plan.set(kOutV, outWidth / 2, outHeight / 2);
    for (PlaneId id : {kHalf1U, kHalf1V, kHalf2U, kHalf2V}) plan.set(id, halfW, halfH);
  }
  if (plan.spread) {
    plan.set(kPaddingRow, outWidth, 1);
    if (plan.savedBytes > 0) plan.set(kPaddingSaved, int32_t(plan.savedBytes), 1);
  }
  // The two warps run one after the other and share their scratch.
  const int32_t workers = kqStepWorkers(numThreads);
  KQWarpRequest luma = {}, chroma = {};
  luma.kind = KQWarpKind::kLuma;
  luma.target[0].width = outWidth;
  luma.tileColumns = chroma.tileColumns = kGridSide;
  chroma.kind = plan.chromaFilter ? KQWarpKind::kChromaPlanes : KQWarpKind::kChromaPairs;
  chroma.source[0].width = chroma.source[1].width = workWidth / 2;
  chroma.target[0].width = chroma.target[1].width = outWidth / 2;
  const size_t warpBytes = std::max(plan.lumaWarp ? kqWarpScratchBytes(luma, workers) : size_t{0},
                                    kqWarpScratchBytes(chroma, workers));
  if (warpBytes > 0) plan.set(kWarpScratch, int32_t(warpBytes), 1);

  size_t end = 0;
  for (int32_t id = 0, placed = 0; id < kPlaneCount; ++id) {
    if (!plan.needs(PlaneId(id))) continue;
    const size_t pageStart = (end + kPage - 1) / kPage * kPage;
    plan.offset[id] = pageStart + (size_t(placed) * kPlaneStagger) % kPage;
    end = plan.offset[id] + size_t(plan.width[id]) * size_t(plan.height[id]);
    ++placed;
  }
  plan.bytes = end;
  return plan;
}

// The planes of one call, carved from its block.
struct Planes {
  KQImage8 plane[kPlaneCount] = {};
  KQImage8* get(PlaneId id) { return plane[id].data != nullptr ? &plane[id] : nullptr; }
};

Planes carve(const Plan& plan, uint8_t* block) {
  Planes planes;
  for (int32_t id = 0; id < kPlaneCount; ++id) {
    if (!plan.needs(PlaneId(id))) continue;
    planes.plane[id] = {plan.width[id], plan.height[id], block + plan.offset[id]};
  }
  return planes;
}

// Brackets one stage with its timer hooks.
template <typename Fn>
void stage(StageId id, const char* label, Fn run) {
  kqTimerStart(id);
  run();
  kqTimerStop(label, id);
}

}  // namespace

int32_t kqUpScaleRun(const KQYUVMultiPlaneImage* in, const KQYUVMultiPlaneImage* out, int32_t left,
                     int32_t top, int32_t right, int32_t bottom, int32_t noiseReduction,
                     int32_t chromaNoiseReduction, float sharpening, int32_t numThreads,
                     int32_t affinityMask) {
  kqForkSafetyInstall();
  kqLog(stderr, KQ_LOG_INFO, KQ_LOG_TAG, "%s", kqUpScaleVersion());
  kqLog(stderr, KQ_LOG_INFO, KQ_LOG_TAG, "%s", kqBaseGetVersion());

  if (!acceptRecord(in, "input", 1) || !acceptRecord(out, "output", 2)) return 0;

  // Region: clamped (never rejected) and cut to multiples of 4; a whole-image
  // call keeps the input's size as it is.
  const bool whole = left == -1;
  int32_t workWidth = in->width;
  int32_t workHeight = in->height;
  if (!whole) {
    if (bottom >= in->height) bottom = in->height - 1;
    if (top < 1) top = 0;
    if (right >= in->width) right = in->width - 1;
    if (left < 0) left = 0;
    const int64_t h = int64_t(bottom) - top + 1;
    const int64_t w = int64_t(right) - left + 1;
    workHeight = h > 0 ? int32_t(h & ~int64_t{3}) : 0;
    workWidth = w > 0 ? int32_t(w & ~int64_t{3}) : 0;
  }
  if (workWidth < kMinWorkSize || workHeight < kMinWorkSize) {
    logInvalid("region is smaller than 4x4 pixels");
    return 0;
  }

  const int32_t outWidth = out->width;
  const int32_t outHeight = out->height;
  // The warp maps the part of the region that has the output's aspect ratio;
  // a very different ratio can leave too little of it to interpolate in.
  int32_t fittedWidth = 0, fittedHeight = 0;
  kqFitSourceToAspect(workWidth, workHeight, outWidth, outHeight, &fittedWidth, &fittedHeight);
  if (fittedWidth < kMinWorkSize || fittedHeight < kMinWorkSize) {
    logInvalid("region and output aspect ratios leave less than 4x4 source pixels");
    return 0;
  }

  // All working memory is one block, obtained before the caller's planes are
  // touched, so that a failure leaves them as they were; nothing after it
  // allocates (the pool's record is static, and a worker thread that cannot
  // be started leaves its share to the others). A repeated call of the same
  // sizes gets the block the previous one used.
  const Plan plan = makePlan(workWidth, workHeight, outWidth, outHeight, out->yRowStride,
                             noiseReduction, chromaNoiseReduction, sharpening,
                             !recordsMeet(in, out), numThreads);
  KQBlock block{nullptr, 0, -1};
  if (plan.bytes > 0) block = kqWorkspaceAcquire(plan.bytes);
  if (plan.bytes > 0 && block.data == nullptr) {
    logInvalid("working memory could not be allocated");
    return 0;
  }
  Planes p = carve(plan, block.data);
  KQImage8 callerY{outWidth, outHeight, out->yData};
  KQImage8* warpedY = plan.warpToCaller ? &callerY : p.get(kLumaY);
  Homography forwardGrid[kGridTiles], inverseGrid[kGridTiles], forwardScale, inverseScale;

  if (affinityMask >= 1) kqSetThreadAffinity(affinityMask);
  // Counts of 0 and 1 run on the calling thread and negative ones start
  // their own threads per step: only counts above 1 use the pool.
  const bool pooled = numThreads > 1;
  if (pooled) kqPoolStart(numThreads, 0, "KQUpScale");

  if (plan.savedBytes > 0) {
    uint8_t* saved = p.get(kPaddingSaved)->data;
    forEachCoveredPadding(outWidth, outHeight, out->yRowStride, [&](size_t start, size_t n) {
      std::memcpy(saved, out->yData + start, n);
      saved += n;
    });
  }

  // The work region as a whole-image record of its own: its luma from
  // (left, top), its chroma from byte `left` of chroma row top / 2 (an odd
  // left starts on the second byte of a pair, which exchanges U and V), at
  // the caller's row stride.
  if (whole) left = top = 0;
  KQYUVMultiPlaneImage source = *in;
  source.type = in->type == kPublicNv12 ? kLayoutUV : kLayoutVU;
  source.width = workWidth;
  source.height = workHeight;
  source.yScanlines = workHeight;
  source.yData = in->yData + size_t(top) * size_t(in->yRowStride) + size_t(left);
  source.chromaData = in->chromaData + size_t(top / 2) * size_t(in->yRowStride) + size_t(left);

  // The stages, in order.
  stage(kStageIntake, "kqTakeYUVPlanes", [&] {
    if (!plan.readInPlace) {
      // The output shares memory with the input: work from a packed copy.
      // The intake's luma copy packs rows of bytes, so it also packs the
      // interleaved chroma rows, taken as a plane of half the height.
      KQYUVMultiPlaneImage chromaRows = source;
      chromaRows.yData = source.chromaData;
      chromaRows.height = workHeight / 2;
      chromaRows.yScanlines = workHeight / 2;
      kqTakeYUVPlanes(&source, p.get(kCopyY), nullptr, nullptr, numThreads);
      kqTakeYUVPlanes(&chromaRows, p.get(kCopyUV), nullptr, nullptr, numThreads);
      source.yData = p.get(kCopyY)->data;
      source.chromaData = p.get(kCopyUV)->data;
      source.yRowStride = workWidth;
    }
    // The chroma filter works on U and V planes.
    if (plan.chromaFilter) kqTakeYUVPlanes(&source, nullptr, p.get(kInU), p.get(kInV), numThreads);
  });

  int32_t srcLimitX = workWidth - 4;
  int32_t srcLimitY = workHeight - 4;
  stage(kStageHomographies, "kqCreateScalingHomographies", [&] {
    kqCreateScalingHomographies(forwardGrid, inverseGrid, &forwardScale, &inverseScale,
                                workWidth, workHeight, outWidth, outHeight, &srcLimitX,
                                &srcLimitY);
  });

  // Both warps: the 4 x 4 grid, every tile, this CPU's row kernels, and the
  // scratch of the plan.
  KQWarpRequest warp = {};
  warp.forwardGrid = forwardGrid;
  warp.inverseGrid = inverseGrid;
  warp.tileColumns = warp.tileRows = kGridSide;
  warp.tileLimit = kGridTiles;
  warp.dsp = kqWarpDspGet();
  KQImage8* warpScratch = p.get(kWarpScratch);
  auto runWarp = [&](const KQWarpRequest& request) {
    if (warpScratch != nullptr)
      kqWarpRun(request, numThreads, warpScratch->data, size_t(warpScratch->width));
  };
  stage(kStageLumaWarp, "warpAll", [&] {
    if (!plan.lumaWarp) return;
    KQWarpRequest luma = warp;
    luma.kind = KQWarpKind::kLuma;
    luma.source[0] = {source.yData, workWidth, workHeight, source.yRowStride};
    luma.target[0] = {warpedY->data, outWidth, outHeight, outWidth};
    runWarp(luma);
  });

  // Chroma rows lie back to back at this pitch in the caller's plane: one
  // byte less than the row stride for an odd width.
  const int32_t padX = out->yRowStride - out->width;
  const int32_t chromaPadX = out->yRowStride != out->width ? padX : 0;
  const size_t chromaPitch = size_t(outWidth & ~1) + size_t(chromaPadX);
  const bool swapPairs = (in->type == kPublicNv12) != (out->type == kPublicNv12);
  stage(kStageChromaWarp, "warpAll - chroma", [&] {
    kqHalveHomographyTranslations(forwardGrid, inverseGrid);
    KQWarpRequest chroma = warp;
    const int32_t halfW = workWidth / 2, halfH = workHeight / 2;
    if (plan.chromaFilter) {
      chroma.kind = KQWarpKind::kChromaPlanes;
      const PlaneId from[2] = {kInU, kInV}, to[2] = {kOutU, kOutV};
      for (int i = 0; i < 2; ++i) {
        const KQImage8* s = p.get(from[i]);
        const KQImage8* t = p.get(to[i]);
        chroma.source[i] = {s->data, s->width, s->height, s->width};
        chroma.target[i] = {t->data, t->width, t->height, t->width};
      }
    } else {
      // Nothing filters the chroma: the warp takes the pairs from the input
      // and writes them into the caller's plane, in the output's byte order.
      chroma.kind = KQWarpKind::kChromaPairs;
      chroma.source[0] = {source.chromaData, halfW, halfH, source.yRowStride};
      chroma.target[0] = {out->chromaData, outWidth / 2, outHeight / 2, ptrdiff_t(chromaPitch)};
      chroma.swapPairs = swapPairs;
    }
    runWarp(chroma);
  });

  kqTimerStart(kStagePostFilter);
  const KQImage8* lumaSoFar = warpedY;
  stage(kStageLumaNoise, "Noise reduction", [&] {
    if (!plan.denoise) return;
    KQImage8* destination = plan.denoiseToCaller ? &callerY : p.get(kLumaY);
    kqLumaNoiseReduction(lumaSoFar, destination, nullptr, noiseReduction, numThreads);
    lumaSoFar = destination;
  });
  stage(kStageSharpening, "Sharpening", [&] {
    if (plan.sharpen) kqImageSharpening(lumaSoFar, &callerY, nullptr, sharpening, 0.0f, 4, numThreads);
  });
  stage(kStageChromaNoise, "Chroma noise reduction", [&] {
    if (!plan.chromaFilter) return;
    kqChromaNoiseReduction(&callerY, p.get(kOutU), p.get(kOutV), p.get(kOutU), p.get(kOutV),
                           p.get(kHalf1U), p.get(kHalf1V), p.get(kHalf2U), p.get(kHalf2V),
                           nullptr, 0, static_cast<float>(chromaNoiseReduction), numThreads);
  });
  kqTimerStop("kqUpScalePostFilter", kStagePostFilter);

  kqTimerStart(kStageOutput);
  // An output whose row stride equals its width gets neither luma nor
  // chroma padding, whatever its scanline count.
  const int32_t padY = out->yRowStride != out->width ? out->yScanlines - out->height : 0;
  stage(kStageLumaSpread, "kqAddPaddingToYChannel", [&] {
    // Spreading rows that no stage wrote would move the caller's own bytes.
    if (!plan.spread) return;
    kqAddPaddingToYChannelWithBuffer(&callerY, padX, p.get(kPaddingRow)->data);
    if (plan.savedBytes == 0) return;
    const uint8_t* saved = p.get(kPaddingSaved)->data;
    forEachCoveredPadding(outWidth, outHeight, out->yRowStride, [&](size_t start, size_t n) {
      std::memcpy(out->yData + start, saved, n);
      saved += n;
    });
  });
  stage(kStageChromaInterleave, "kqSetUVData", [&] {
    if (!plan.chromaFilter) {
      // The warp wrote the pairs; the padding after them is neutral chroma.
      if (chromaPadX <= 0) return;
      for (int32_t r = 0; r < outHeight / 2; ++r)
        std::memset(out->chromaData + size_t(r) * chromaPitch + 2 * size_t(outWidth / 2),
                    kNeutralChroma, size_t(chromaPadX));
      return;
    }
    KQYUVMultiPlaneImage target = *out;
    target.type = out->type == kPublicNv12 ? kLayoutUV : kLayoutVU;
    kqSetUVData(p.get(kOutU), p.get(kOutV), &target, padY, chromaPadX, numThreads);
  });
  kqTimerStop("kqCreateFinalUpScaleOutput", kStageOutput);

  if (pooled) kqPoolStop();
  kqWorkspaceRelease(&block);
  return 0;
}
