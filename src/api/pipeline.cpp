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
#include "runtime/alloc.h"
#include "runtime/log.h"
#include "runtime/pool.h"
#include "runtime/timer.h"
#include "runtime/version.h"
#include "warp/homography.h"
#include "warp/warp_driver.h"

namespace {

// The smallest work region the warp can map: its source limits (size - 4)
// must not be negative.
constexpr int32_t kMinWorkSize = 4;

// Everything one call allocates. All of it is obtained before the caller's
// planes are touched, so a failed allocation leaves them as they were.
struct Buffers {
  KQImage8* inY = nullptr;
  KQImage8* outYTmp = nullptr;
  KQImage8* inU = nullptr;
  KQImage8* inV = nullptr;
  KQImage8* outU = nullptr;
  KQImage8* outV = nullptr;
  KQImage8* scratch2 = nullptr;
  KQImage8* chromaScratch[4] = {nullptr, nullptr, nullptr, nullptr};
  KQImage8* lumaList = nullptr;  // {source, destination}
  KQImage8* uList = nullptr;
  KQImage8* vList = nullptr;
  Homography* forwardGrid = nullptr;
  Homography* inverseGrid = nullptr;
  Homography* forwardScale = nullptr;
  Homography* inverseScale = nullptr;
  uint8_t* paddingRow = nullptr;    // row buffer of the in-place luma spread
  uint8_t* paddingSaved = nullptr;  // caller's padding bytes under the packed luma

  ~Buffers() {
    kqFree(paddingRow);
    kqFree(paddingSaved);
    kqFree(forwardGrid);
    kqFree(inverseGrid);
    kqFree(forwardScale);
    kqFree(inverseScale);
    kqReleaseImage8(&inY);
    kqReleaseImage8(&outYTmp);
    kqReleaseImage8(&inU);
    kqReleaseImage8(&inV);
    kqReleaseImage8(&outU);
    kqReleaseImage8(&outV);
    kqReleaseImage8(&scratch2);
    for (KQImage8*& plane : chromaScratch) kqReleaseImage8(&plane);
    kqFree(lumaList);
    kqFree(uList);
    kqFree(vList);
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

bool acceptRecord(const KQYUVMultiPlaneImage* image, const char* which, int32_t minSide) {
  const char* problem = recordProblem(image, minSide);
  if (problem == nullptr) return true;
  kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "KQUpScale: %s image %s; nothing written", which,
        problem);
  return false;
}

KQImage8* planeList(KQImage8* source, KQImage8* destination) {
  KQImage8* list = static_cast<KQImage8*>(kqMalloc(2 * sizeof(KQImage8)));
  if (list != nullptr) {
    list[0] = *source;
    list[1] = *destination;
  }
  return list;
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

}  // namespace

int32_t kqUpScaleRun(const KQYUVMultiPlaneImage* in, const KQYUVMultiPlaneImage* out, int32_t left,
                     int32_t top, int32_t right, int32_t bottom, int32_t noiseReduction,
                     int32_t chromaNoiseReduction, float sharpening, int32_t numThreads,
                     int32_t affinityMask) {
  kqLog(stdout, KQ_LOG_INFO, KQ_LOG_TAG, "%s", kqUpScaleVersion());
  kqLog(stdout, KQ_LOG_INFO, KQ_LOG_TAG, "%s", kqBaseGetVersion());

  if (!acceptRecord(in, "input", 1) || !acceptRecord(out, "output", 2)) return 0;

  // Private copy with the internal format code: 11 = U,V order, 10 = V,U.
  KQYUVMultiPlaneImage source = *in;
  source.type = in->type == 9 ? 11 : 10;

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
  KQImage8 outYView{outWidth, outHeight, out->yData};

  // Where the luma goes. The warp writes the caller's plane directly only when
  // no luma filter follows; noise reduction always reads the warp from a plane
  // of its own, so that its output never overwrites pixels it still reads.
  const bool sharpen = sharpening > 0.0f;
  const bool denoise = noiseReduction > 0;
  const bool warpIntoCaller = sharpening == 0.0f && !denoise;
  const bool lumaWritten = warpIntoCaller || denoise || sharpen;

  Buffers b;
  b.inY = kqCreateImage8(workWidth, workHeight);
  if (!warpIntoCaller) b.outYTmp = kqCreateImage8(outWidth, outHeight);
  b.inU = kqCreateImage8(workWidth / 2, workHeight / 2);
  b.inV = kqCreateImage8(workWidth / 2, workHeight / 2);
  b.outU = kqCreateImage8(outWidth / 2, outHeight / 2);
  b.outV = kqCreateImage8(outWidth / 2, outHeight / 2);
  if (denoise && sharpen) b.scratch2 = kqCreateImage8(outWidth, outHeight);
  // The chroma filter works on quarter-size scratch planes; an output whose
  // chroma is below 2x2 has none, and its chroma stays as warped.
  const int32_t halfChromaW = (outWidth / 2) / 2;
  const int32_t halfChromaH = (outHeight / 2) / 2;
  const bool chromaFilter = chromaNoiseReduction > 0 && halfChromaW > 0 && halfChromaH > 0;
  if (chromaFilter) {
    for (KQImage8*& plane : b.chromaScratch) plane = kqCreateImage8(halfChromaW, halfChromaH);
  }
  // Output luma rows are spread to the row stride at the end (in place).
  const int32_t padX = out->yRowStride - out->width;
  const bool spread = padX > 0 && lumaWritten;
  const size_t savedBytes = spread ? coveredPaddingBytes(outWidth, outHeight, out->yRowStride) : 0;
  if (spread) {
    b.paddingRow = static_cast<uint8_t*>(kqMalloc(uint32_t(outWidth)));
    if (savedBytes > 0) b.paddingSaved = static_cast<uint8_t*>(kqMalloc(uint32_t(savedBytes)));
  }
  bool complete = (!spread || (b.paddingRow && (savedBytes == 0 || b.paddingSaved))) && b.inY &&
                  (warpIntoCaller || b.outYTmp) && b.inU && b.inV && b.outU && b.outV &&
                  (!(denoise && sharpen) || b.scratch2);
  for (KQImage8* plane : b.chromaScratch) complete = complete && (!chromaFilter || plane);
  if (complete) {
    KQImage8* lumaTarget = warpIntoCaller ? &outYView : b.outYTmp;
    b.lumaList = planeList(b.inY, lumaTarget);
    b.uList = planeList(b.inU, b.outU);
    b.vList = planeList(b.inV, b.outV);
    b.forwardGrid = static_cast<Homography*>(kqMalloc(16 * sizeof(Homography)));
    b.inverseGrid = static_cast<Homography*>(kqMalloc(16 * sizeof(Homography)));
    b.forwardScale = static_cast<Homography*>(kqMalloc(sizeof(Homography)));
    b.inverseScale = static_cast<Homography*>(kqMalloc(sizeof(Homography)));
    complete = b.lumaList && b.uList && b.vList && b.forwardGrid && b.inverseGrid &&
               b.forwardScale && b.inverseScale;
  }
  if (!complete) {
    logInvalid("working memory could not be allocated");
    return 0;
  }

  if (affinityMask >= 1) kqSetThreadAffinity(affinityMask);
  kqPoolStart(numThreads, 0, "KQUpScale");

  if (b.paddingSaved != nullptr) {
    uint8_t* saved = b.paddingSaved;
    forEachCoveredPadding(outWidth, outHeight, out->yRowStride, [&](size_t start, size_t n) {
      std::memcpy(saved, out->yData + start, n);
      saved += n;
    });
  }

  kqTimerStart(0);
  if (whole) {
    kqTakeYUVPlanes(&source, b.inY, b.inU, b.inV, numThreads);
  } else {
    kqTakeYUVPlanesFromROI(&source, b.inY, b.inU, b.inV, left, top, right, bottom, numThreads);
  }
  kqTimerStop("kqTakeYUVPlanes", 0);

  kqTimerStart(1);
  int32_t srcLimitX = workWidth - 4;
  int32_t srcLimitY = workHeight - 4;
  kqCreateScalingHomographies(b.forwardGrid, b.inverseGrid, b.forwardScale, b.inverseScale,
                              workWidth, workHeight, outWidth, outHeight, &srcLimitX, &srcLimitY);
  kqTimerStop("kqCreateScalingHomographies", 1);

  kqTimerStart(2);
  warpAll(b.lumaList, nullptr, nullptr, b.forwardGrid, b.inverseGrid, 0, srcLimitX, 0, srcLimitY, 1,
          0, 0, numThreads, 0, 1, 4, 4);
  kqTimerStop("warpAll", 2);

  kqTimerStart(3);
  kqHalveHomographyTranslations(b.forwardGrid, b.inverseGrid);
  warpAll(b.uList, b.vList, nullptr, b.forwardGrid, b.inverseGrid, 0, srcLimitX / 2, 0,
          srcLimitY / 2, 1, 0, 0, numThreads, 1, 0, 4, 4);
  kqTimerStop("warpAll - chroma", 3);

  kqTimerStart(4);
  const KQImage8* current = &b.lumaList[1];
  kqTimerStart(12);
  if (denoise) {
    KQImage8* destination = sharpen ? b.scratch2 : &outYView;
    kqLumaNoiseReduction(current, destination, nullptr, noiseReduction, numThreads);
    current = destination;
  }
  kqTimerStop("Noise reduction", 12);

  kqTimerStart(13);
  if (sharpen) {
    kqImageSharpening(current, &outYView, nullptr, sharpening, 0.0f, 4, numThreads);
  }
  kqTimerStop("Sharpening", 13);

  kqTimerStart(14);
  if (chromaFilter) {
    kqChromaNoiseReduction(&outYView, b.outU, b.outV, b.outU, b.outV, b.chromaScratch[0],
                           b.chromaScratch[1], b.chromaScratch[2], b.chromaScratch[3], nullptr, 0,
                           static_cast<float>(chromaNoiseReduction), numThreads);
  }
  kqTimerStop("Chroma noise reduction", 14);
  kqTimerStop("kqUpScalePostFilter", 4);

  kqTimerStart(5);
  kqTimerStart(21);
  // An output whose row stride equals its width gets neither luma nor
  // chroma padding, whatever its scanline count.
  const int32_t chromaPadX = out->yRowStride != out->width ? padX : 0;
  const int32_t padY = out->yRowStride != out->width ? out->yScanlines - out->height : 0;
  // Spreading rows that no stage wrote would move the caller's own bytes.
  if (spread) {
    kqAddPaddingToYChannelWithBuffer(&outYView, padX, b.paddingRow);
    const uint8_t* saved = b.paddingSaved;
    forEachCoveredPadding(outWidth, outHeight, out->yRowStride, [&](size_t start, size_t n) {
      std::memcpy(out->yData + start, saved, n);
      saved += n;
    });
  }
  kqTimerStop("kqAddPaddingToYChannel", 21);

  kqTimerStart(22);
  KQYUVMultiPlaneImage target = *out;
  target.type = out->type == 9 ? 11 : 10;
  kqSetUVData(b.outU, b.outV, &target, padY, chromaPadX, numThreads);
  kqTimerStop("kqSetUVData", 22);
  kqTimerStop("kqCreateFinalUpScaleOutput", 5);

  kqPoolStop();
  return 0;
}
