// plane_intake.cpp - plane intake: luma copy or crop into a packed plane and
// chroma split into packed U and V planes, spread over the worker pool.
#include "image/plane_intake.h"

#include <cstddef>
#include <cstring>

#include "runtime/pool.h"

namespace {

// Internal format codes: interleaved chroma in V,U and in U,V byte order.
constexpr int32_t kCodeVU = 10;
constexpr int32_t kCodeUV = 11;

bool planeIs(const KQImage8* plane, int32_t width, int32_t height) {
  return plane != nullptr && plane->data != nullptr && plane->width == width &&
         plane->height == height;
}

// Counts far below -32 mean the same as -32 (teams are capped there), and
// INT32_MIN could not be negated.
int32_t boundedThreads(int32_t numThreads) {
  return numThreads < -kKqMaxThreads ? -kKqMaxThreads : numThreads;
}

// Chroma step shared by both variants: the rows of `context` spread by the
// common thread-count rule.
void runChromaSplit(const ChromaSplitRange* context, int32_t numThreads) {
  kqParallelRows(0, context->end, 1, numThreads, [context](int32_t first, int32_t end, int32_t) {
    ChromaSplitRange rows = *context;
    rows.first = first;
    rows.end = end;
    deinterleaveChromaRows(&rows);
  });
}

// Luma rows of a LumaCopyRange or LumaCropRange (rows [0, last]) spread by
// the common thread-count rule.
template <typename Range>
void runLumaRows(const Range& range, void (*task)(void*), int32_t numThreads) {
  kqParallelRows(0, range.last + 1, 1, numThreads, [&range, task](int32_t first, int32_t end, int32_t) {
    Range rows = range;
    rows.first = first;
    rows.last = end - 1;
    task(&rows);
  });
}

// Chroma of `image` (its chromaData already pointing at the first pair to
// take) into inU / inV, rows [0, inU->height). The caller has checked that
// the source holds 2 * inU->width bytes in each of those rows.
void takeChroma(const KQYUVMultiPlaneImage* image, KQImage8* inU, KQImage8* inV, int32_t numThreads,
                const KQPlanesDsp* dsp) {
  if (image->type != kCodeVU && image->type != kCodeUV) return;
  ChromaSplitRange context;
  context.image = image;
  context.inU = inU;
  context.inV = inV;
  context.end = inU->height;
  context.first = 0;
  context.rowPadding = image->yRowStride - image->width;
  context.bottomPadding = image->yScanlines - image->height;
  context.dsp = dsp;
  runChromaSplit(&context, numThreads);
}

// The source record describes a readable image: planes present, sizes of at
// least 1 and rows that do not overlap.
bool lumaReadable(const KQYUVMultiPlaneImage* image) {
  return image->yData != nullptr && image->width >= 1 && image->height >= 1 &&
         image->yRowStride >= image->width;
}

bool chromaReadable(const KQYUVMultiPlaneImage* image) {
  return image->chromaData != nullptr && image->width >= 1 && image->height >= 1 &&
         image->yRowStride >= image->width;
}

}  // namespace

void kqChromaSliceRows(int32_t slice, int32_t count, int32_t end, int32_t* sliceFirst,
                       int32_t* sliceEnd) {
  if (count < 1) count = 1;
  int32_t chunk = 2 * ((end / count) / 2);
  if (chunk < 2) chunk = 2;
  int64_t first = slice < 0 ? 0 : int64_t(chunk) * slice;
  int64_t last = int64_t(chunk) * (int64_t(slice) + 1);
  if (slice == count - 1 || last > end) last = end;
  // An odd row count would leave a chroma row pair split between slices;
  // take the neighbour's last row again instead (identical bytes).
  if (((last - first) & 1) != 0 && first > 0) --first;
  if (first > end) last = -1;
  *sliceFirst = int32_t(first);
  *sliceEnd = int32_t(last);
}

void kqChromaSliceRowsOwned(int32_t slice, int32_t count, int32_t end, bool inclusive,
                            int32_t* sliceFirst, int32_t* sliceEnd) {
  kqChromaSliceRows(slice, count, end, sliceFirst, sliceEnd);
  if (slice < 1) return;
  int32_t prevFirst, prevEnd;
  kqChromaSliceRows(slice - 1, count, end, &prevFirst, &prevEnd);
  // First row past the previous slice; an empty previous slice takes nothing.
  const int32_t next =
      inclusive ? (prevEnd >= prevFirst ? prevEnd + 1 : 0) : (prevEnd > prevFirst ? prevEnd : 0);
  if (*sliceFirst < next) *sliceFirst = next;
}

void splitRowsEvenly(int32_t slice, int32_t sliceCount, int32_t /*poolFlag*/, void* context) {
  // LumaCopyRange and LumaCropRange both start with first, last; read and
  // write those two through memcpy so either record can be passed.
  static_assert(offsetof(LumaCopyRange, last) == sizeof(int32_t) &&
                    offsetof(LumaCropRange, last) == sizeof(int32_t),
                "luma ranges must start with first, last");
  int32_t range[2];
  std::memcpy(range, context, sizeof(range));
  const int32_t first = range[0];
  const int32_t last = range[1];
  const int32_t count = sliceCount < 1 ? 1 : sliceCount;
  const int32_t chunk = (last - first + 1) / count;
  const bool lastSlice = slice == count - 1;
  if (slice < 0) {
    range[0] = 0;
    range[1] = lastSlice ? last : 0;
  } else {
    range[0] = first + chunk * slice;
    range[1] = lastSlice ? last : first + chunk * (slice + 1) - 1;
  }
  std::memcpy(context, range, sizeof(range));
}

void splitChromaRows(int32_t slice, int32_t sliceCount, int32_t /*poolFlag*/, void* context) {
  ChromaSplitRange* range = static_cast<ChromaSplitRange*>(context);
  kqChromaSliceRowsOwned(slice, sliceCount, range->end, false, &range->first, &range->end);
}

void copyLumaRows(void* context) {
  const LumaCopyRange* range = static_cast<const LumaCopyRange*>(context);
  if (range->last < range->first || range->first < 0) return;
  const size_t width = size_t(range->width);
  const size_t rows = size_t(range->last - range->first + 1);
  if (range->padding == 0) {
    // Source rows are packed as well: one block.
    const size_t offset = size_t(range->first) * width;
    std::memcpy(range->dst + offset, range->src + offset, rows * width);
    return;
  }
  const size_t srcStride = width + size_t(range->padding);
  for (int32_t r = range->first; r <= range->last; ++r) {
    std::memcpy(range->dst + size_t(r) * width, range->src + size_t(r) * srcStride, width);
  }
}

void cropLumaRows(void* context) {
  const LumaCropRange* range = static_cast<const LumaCropRange*>(context);
  if (range->last < range->first || range->first < 0) return;
  const size_t width = size_t(range->width);
  const size_t srcStride = width + size_t(range->padding);
  const uint8_t* src = range->src + size_t(range->left);
  for (int32_t r = range->first; r <= range->last; ++r) {
    std::memcpy(range->dst + size_t(r) * width, src + size_t(r + range->top) * srcStride, width);
  }
}

void deinterleaveChromaRows(void* context) {
  const ChromaSplitRange* range = static_cast<const ChromaSplitRange*>(context);
  const int32_t code = range->image->type;
  if (range->first >= range->end || range->first < 0) return;
  if (code != kCodeVU && code != kCodeUV) return;  // other layouts are not built
  // V,U order: even bytes are V. U,V order: even bytes are U.
  uint8_t* even = code == kCodeVU ? range->inV->data : range->inU->data;
  uint8_t* odd = code == kCodeVU ? range->inU->data : range->inV->data;
  const int32_t pairs = range->inU->width;
  const size_t srcStride = size_t(range->image->yRowStride);
  const uint8_t* src = range->image->chromaData;
  KQSplitUVRowFn* split = range->dsp->splitUVRow;
  for (int32_t r = range->first; r < range->end; ++r) {
    const size_t d = size_t(r) * size_t(pairs);
    split(even + d, odd + d, src + size_t(r) * srcStride, pairs);
  }
}

void kqTakeYUVPlanesWithDsp(const KQYUVMultiPlaneImage* image, KQImage8* inY, KQImage8* inU,
                            KQImage8* inV, int32_t numThreads, const KQPlanesDsp* dsp) {
  if (image == nullptr || dsp == nullptr) return;
  numThreads = boundedThreads(numThreads);
  if (lumaReadable(image) && planeIs(inY, image->width, image->height)) {
    LumaCopyRange luma;
    luma.first = 0;
    luma.last = image->height - 1;
    luma.dst = inY->data;
    luma.src = image->yData;
    luma.width = image->width;
    luma.padding = image->yRowStride - image->width;
    runLumaRows(luma, copyLumaRows, numThreads);
  }
  if (chromaReadable(image) && planeIs(inU, image->width / 2, image->height / 2) &&
      planeIs(inV, image->width / 2, image->height / 2)) {
    takeChroma(image, inU, inV, numThreads, dsp);
  }
}

void kqTakeYUVPlanes(const KQYUVMultiPlaneImage* image, KQImage8* inY, KQImage8* inU, KQImage8* inV,
                     int32_t numThreads) {
  kqTakeYUVPlanesWithDsp(image, inY, inU, inV, numThreads, kqPlanesDspGet());
}

void kqTakeYUVPlanesFromROIWithDsp(KQYUVMultiPlaneImage* image, KQImage8* inY, KQImage8* inU,
                                   KQImage8* inV, int32_t left, int32_t top, int32_t right,
                                   int32_t bottom, int32_t numThreads, const KQPlanesDsp* dsp) {
  if (image == nullptr || dsp == nullptr) return;
  numThreads = boundedThreads(numThreads);
  // Work size: the region's width and height rounded down to multiples of 4
  // (64-bit, so that corners far apart cannot wrap).
  const int64_t w64 = (int64_t(right) - left + 1) & ~int64_t(3);
  const int64_t h64 = (int64_t(bottom) - top + 1) & ~int64_t(3);
  if (w64 <= 0 || h64 <= 0 || left < 0 || top < 0) return;
  if (left + w64 > image->width || top + h64 > image->height) return;
  const int32_t w = int32_t(w64);
  const int32_t h = int32_t(h64);

  if (lumaReadable(image) && planeIs(inY, w, h)) {
    LumaCropRange luma;
    luma.first = 0;
    luma.last = h - 1;
    luma.dst = inY->data;
    luma.src = image->yData;
    luma.width = w;
    luma.padding = image->yRowStride - w;
    luma.top = top;
    luma.left = left;
    runLumaRows(luma, cropLumaRows, numThreads);
  }
  // The region's chroma starts at byte `left` of chroma row top / 2. An odd
  // left lands on the second byte of a pair and so swaps U and V; that is
  // how the stage is defined and callers rely on the exact bytes. Work on a
  // copy so the caller's record never changes, even for a moment.
  if (chromaReadable(image) && planeIs(inU, w / 2, h / 2) && planeIs(inV, w / 2, h / 2)) {
    KQYUVMultiPlaneImage shifted = *image;
    shifted.chromaData =
        image->chromaData + size_t(left) + size_t(image->yRowStride) * size_t(top / 2);
    takeChroma(&shifted, inU, inV, numThreads, dsp);
  }
}

void kqTakeYUVPlanesFromROI(KQYUVMultiPlaneImage* image, KQImage8* inY, KQImage8* inU,
                            KQImage8* inV, int32_t left, int32_t top, int32_t right, int32_t bottom,
                            int32_t numThreads) {
  kqTakeYUVPlanesFromROIWithDsp(image, inY, inU, inV, left, top, right, bottom, numThreads,
                                kqPlanesDspGet());
}
