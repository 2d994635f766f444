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

// Rows [first, end) of `width` bytes, rows srcStride apart in the source,
// packed in the destination.
void copyRows(uint8_t* dst, const uint8_t* src, ptrdiff_t srcStride, int32_t width, int32_t first,
              int32_t end) {
  if (first < 0 || end <= first) return;
  const size_t w = size_t(width);
  if (srcStride == ptrdiff_t(width)) {
    // Source rows are packed as well: one block.
    std::memcpy(dst + size_t(first) * w, src + size_t(first) * w, size_t(end - first) * w);
    return;
  }
  for (int32_t r = first; r < end; ++r)
    std::memcpy(dst + size_t(r) * w, src + size_t(r) * size_t(srcStride), w);
}

// Chroma rows [first, end) of interleaved pairs (rows srcStride apart) into
// the packed planes u and v. Internal code 10 (V,U) puts V on the even
// bytes, code 11 (U,V) U.
void splitRows(const KQPlanesDsp* dsp, const uint8_t* src, ptrdiff_t srcStride, int32_t code,
               KQImage8* u, KQImage8* v, int32_t first, int32_t end) {
  if (first < 0 || end <= first) return;
  if (code != kCodeVU && code != kCodeUV) return;  // other layouts are not built
  uint8_t* even = code == kCodeVU ? v->data : u->data;
  uint8_t* odd = code == kCodeVU ? u->data : v->data;
  const int32_t pairs = u->width;
  for (int32_t r = first; r < end; ++r) {
    const size_t d = size_t(r) * size_t(pairs);
    dsp->splitUVRow(even + d, odd + d, src + size_t(r) * size_t(srcStride), pairs);
  }
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
  const LumaCopyRange* r = static_cast<const LumaCopyRange*>(context);
  copyRows(r->dst, r->src, ptrdiff_t(r->width) + r->padding, r->width, r->first, r->last + 1);
}

void cropLumaRows(void* context) {
  const LumaCropRange* r = static_cast<const LumaCropRange*>(context);
  const ptrdiff_t stride = ptrdiff_t(r->width) + r->padding;
  copyRows(r->dst, r->src + r->left + stride * r->top, stride, r->width, r->first, r->last + 1);
}

void deinterleaveChromaRows(void* context) {
  const ChromaSplitRange* r = static_cast<const ChromaSplitRange*>(context);
  splitRows(r->dsp, r->image->chromaData, r->image->yRowStride, r->image->type, r->inU, r->inV,
            r->first, r->end);
}

void kqTakeYUVPlanesWithDsp(const KQYUVMultiPlaneImage* image, KQImage8* inY, KQImage8* inU,
                            KQImage8* inV, int32_t numThreads, const KQPlanesDsp* dsp) {
  if (image == nullptr || dsp == nullptr) return;
  const int32_t w = image->width, h = image->height;
  if (lumaReadable(image) && planeIs(inY, w, h)) {
    kqParallelRows(0, h, 1, numThreads, [image, inY](int32_t first, int32_t end, int32_t) {
      copyRows(inY->data, image->yData, image->yRowStride, image->width, first, end);
    });
  }
  if (chromaReadable(image) && planeIs(inU, w / 2, h / 2) && planeIs(inV, w / 2, h / 2)) {
    kqParallelRows(0, h / 2, 1, numThreads,
                   [image, inU, inV, dsp](int32_t first, int32_t end, int32_t) {
                     splitRows(dsp, image->chromaData, image->yRowStride, image->type, inU, inV,
                               first, end);
                   });
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
  // Work size: the region's width and height rounded down to multiples of 4
  // (64-bit, so that corners far apart cannot wrap).
  const int64_t w64 = (int64_t(right) - left + 1) & ~int64_t(3);
  const int64_t h64 = (int64_t(bottom) - top + 1) & ~int64_t(3);
  if (w64 <= 0 || h64 <= 0 || left < 0 || top < 0) return;
  if (left + w64 > image->width || top + h64 > image->height) return;
  const int32_t w = int32_t(w64);
  const int32_t h = int32_t(h64);

  // The region as a whole image of its own: luma from (left, top), chroma
  // from byte `left` of chroma row top / 2. An odd left lands on the second
  // byte of a pair and so swaps U and V; that is how the stage is defined
  // and callers rely on the exact bytes. The caller's record never changes.
  // Planes the whole image could not be read from are not read here either.
  KQYUVMultiPlaneImage region = *image;
  region.width = w;
  region.height = h;
  region.yScanlines = h;
  if (lumaReadable(image))
    region.yData = image->yData + size_t(top) * size_t(image->yRowStride) + size_t(left);
  else
    inY = nullptr;
  if (chromaReadable(image))
    region.chromaData =
        image->chromaData + size_t(left) + size_t(image->yRowStride) * size_t(top / 2);
  else
    inU = inV = nullptr;
  kqTakeYUVPlanesWithDsp(&region, inY, inU, inV, numThreads, dsp);
}

void kqTakeYUVPlanesFromROI(KQYUVMultiPlaneImage* image, KQImage8* inY, KQImage8* inU,
                            KQImage8* inV, int32_t left, int32_t top, int32_t right, int32_t bottom,
                            int32_t numThreads) {
  kqTakeYUVPlanesFromROIWithDsp(image, inY, inU, inV, left, top, right, bottom, numThreads,
                                kqPlanesDspGet());
}
