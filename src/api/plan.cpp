// plan.cpp - the checks, the work region and the working-memory plan of one
// call.
#include "api/plan.h"

#include <algorithm>
#include <cstdio>

#include "runtime/log.h"
#include "runtime/pool.h"
#include "warp/homography.h"
#include "warp/warp_engine.h"

namespace {

// The smallest work region the warp can map: its source limits (size - 4)
// must not be negative.
constexpr int32_t kMinWorkSize = 4;

// Plane extents are capped at 2 GiB - 1 on every target, so that a record
// means the same on 32-bit ARM (where larger planes cannot exist) as on
// 64-bit machines, and no offset inside a plane overflows.
constexpr int64_t kLargestPlane = 0x7FFFFFFF;

// Planes start this many bytes apart within a page from one another, so
// that a stage reading one plane and writing another at the same row
// offsets does not have its loads and stores alias in the low 12 address
// bits (which stalls store forwarding checks on x86 and ARM cores alike).
constexpr size_t kPlaneStagger = 576;
constexpr size_t kPage = 4096;

void refuse(const char* what) {
  kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "KQUpScale: %s; nothing written", what);
}

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

bool acceptRecord(const KQYUVMultiPlaneImage* image, const char* which, int32_t minSide) {
  const char* problem = recordProblem(image, minSide);
  if (problem == nullptr) return true;
  kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "KQUpScale: %s image %s; nothing written", which,
        problem);
  return false;
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

// The work region: the whole input as it is, or the region clamped (never
// rejected) and cut to multiples of 4. False when it is below 4x4.
bool workRegion(const KQUpScaleCall& call, KQPlan* plan) {
  const KQYUVMultiPlaneImage* in = call.in;
  if (call.left == -1) {
    plan->width = in->width;
    plan->height = in->height;
  } else {
    const int32_t bottom = call.bottom >= in->height ? in->height - 1 : call.bottom;
    const int32_t top = call.top < 1 ? 0 : call.top;
    const int32_t right = call.right >= in->width ? in->width - 1 : call.right;
    const int32_t left = call.left < 0 ? 0 : call.left;
    const int64_t h = int64_t(bottom) - top + 1;
    const int64_t w = int64_t(right) - left + 1;
    plan->left = left;
    plan->top = top;
    plan->height = h > 0 ? int32_t(h & ~int64_t{3}) : 0;
    plan->width = w > 0 ? int32_t(w & ~int64_t{3}) : 0;
  }
  return plan->width >= kMinWorkSize && plan->height >= kMinWorkSize;
}

// Which luma steps run and where each writes. Negative or NaN sharpening
// without noise reduction writes no luma at all, so its warp is not run.
// Otherwise the last step writes the caller's plane, and so does the warp
// when it is not the input of that last step: warp -> caller, noise ->
// kLumaY, sharpening -> caller needs one plane of output size, not two.
KQLumaRoute lumaRoute(const KQUpScaleCall& call) {
  KQLumaRoute r;
  r.sharpen = call.sharpening > 0.0f;
  r.denoise = call.noiseReduction > 0;
  r.warp = call.sharpening == 0.0f || r.denoise || r.sharpen;
  r.warpToCaller = r.warp && r.denoise == r.sharpen;
  r.denoiseToCaller = r.denoise && !r.sharpen;
  r.spread = call.out->yRowStride > call.out->width && r.warp;
  return r;
}

void setPlane(KQPlan* plan, KQPlaneId id, int64_t width, int32_t height) {
  plan->planeWidth[id] = int32_t(width);
  plan->planeHeight[id] = height;
}

// The warps' scratch: the larger of the two, which run one after the other.
size_t warpScratchBytes(const KQPlan& plan, int32_t outWidth, int32_t threads) {
  const int32_t workers = kqStepWorkers(threads);
  KQWarpRequest luma = {}, chroma = {};
  luma.kind = KQWarpKind::kLuma;
  luma.target[0].width = outWidth;
  luma.tileColumns = chroma.tileColumns = kKqGridSide;
  chroma.kind = plan.chromaFilter ? KQWarpKind::kChromaPlanes : KQWarpKind::kChromaPairs;
  chroma.source[0].width = chroma.source[1].width = plan.width / 2;
  chroma.target[0].width = chroma.target[1].width = outWidth / 2;
  const size_t lumaBytes = plan.luma.warp ? kqWarpScratchBytes(luma, workers) : 0;
  return std::max(lumaBytes, kqWarpScratchBytes(chroma, workers));
}

// Sizes of the planes the routing needs. The warp reads the region of the
// caller's luma and interleaved chroma where it lies; the chroma filter
// needs U and V in planes of their own. An input that shares memory with
// the output is copied first, as the output is written while the warp still
// reads.
void sizePlanes(const KQUpScaleCall& call, KQPlan* plan) {
  const int32_t w = plan->width, h = plan->height;
  const int32_t outW = call.out->width, outH = call.out->height;
  if (!plan->readInPlace) {
    setPlane(plan, kCopyY, w, h);
    setPlane(plan, kCopyUV, w, h / 2);
  }
  if (plan->chromaFilter) {
    setPlane(plan, kInU, w / 2, h / 2);
    setPlane(plan, kInV, w / 2, h / 2);
    setPlane(plan, kOutU, outW / 2, outH / 2);
    setPlane(plan, kOutV, outW / 2, outH / 2);
    for (KQPlaneId id : {kHalf1U, kHalf1V, kHalf2U, kHalf2V})
      setPlane(plan, id, (outW / 2) / 2, (outH / 2) / 2);
  }
  if (plan->luma.denoise || plan->luma.sharpen) setPlane(plan, kLumaY, outW, outH);
  if (plan->luma.spread) {
    setPlane(plan, kPaddingRow, outW, 1);
    if (plan->savedBytes > 0) setPlane(plan, kPaddingSaved, int64_t(plan->savedBytes), 1);
  }
  const size_t warpBytes = warpScratchBytes(*plan, outW, call.threads);
  if (warpBytes > 0) setPlane(plan, kWarpScratch, int64_t(warpBytes), 1);
}

// Places the needed planes in one block: each on a fresh page, staggered.
// Sizes are at most the caller's record sizes (each plane below 2 GiB), so
// the sum fits a size_t on every target.
void layOut(KQPlan* plan) {
  size_t end = 0;
  for (int32_t id = 0, placed = 0; id < kPlaneCount; ++id) {
    if (!plan->needs(KQPlaneId(id))) continue;
    const size_t pageStart = (end + kPage - 1) / kPage * kPage;
    plan->offset[id] = pageStart + (size_t(placed) * kPlaneStagger) % kPage;
    end = plan->offset[id] + size_t(plan->planeWidth[id]) * size_t(plan->planeHeight[id]);
    ++placed;
  }
  plan->bytes = end;
}

}  // namespace

bool kqPlanCall(const KQUpScaleCall& call, KQPlan* plan) {
  if (!acceptRecord(call.in, "input", 1) || !acceptRecord(call.out, "output", 2)) return false;
  *plan = KQPlan();
  if (!workRegion(call, plan)) {
    refuse("region is smaller than 4x4 pixels");
    return false;
  }
  // The warp maps the part of the region that has the output's aspect
  // ratio; a very different ratio can leave too little of it to interpolate
  // in.
  int32_t fittedW = 0, fittedH = 0;
  kqFitSourceToAspect(plan->width, plan->height, call.out->width, call.out->height, &fittedW,
                      &fittedH);
  if (fittedW < kMinWorkSize || fittedH < kMinWorkSize) {
    refuse("region and output aspect ratios leave less than 4x4 source pixels");
    return false;
  }
  const KQYUVMultiPlaneImage* out = call.out;
  plan->luma = lumaRoute(call);
  plan->readInPlace = !recordsMeet(call.in, out);
  // The chroma filter works on quarter-size planes; an output whose chroma
  // is below 2x2 has none, and its chroma stays as warped.
  plan->chromaFilter = call.chromaNoiseReduction > 0 && out->width / 4 > 0 && out->height / 4 > 0;
  if (plan->luma.spread)
    kqForEachCoveredPadding(out->width, out->height, out->yRowStride,
                            [plan](size_t, size_t n) { plan->savedBytes += n; });
  sizePlanes(call, plan);
  layOut(plan);
  return true;
}
