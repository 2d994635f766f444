// output_assembly.cpp - output assembly: luma row padding in place and the
// chroma interleave into the caller's plane.
#include "image/output_assembly.h"

#include <cstddef>
#include <cstring>

#include "image/plane_intake.h"
#include "runtime/alloc.h"
#include "runtime/log.h"
#include "runtime/pool.h"

namespace {

constexpr int32_t kCodeVU = 10;
constexpr int32_t kCodeUV = 11;
constexpr uint8_t kNeutralChroma = 128;

bool planeIs(const KQImage8* plane, int32_t width, int32_t height) {
  return plane != nullptr && plane->data != nullptr && plane->width == width &&
         plane->height == height;
}

}  // namespace

void kqAddPaddingToYChannel(KQImage8* view, int32_t padX) {
  if (view == nullptr || view->data == nullptr || view->width < 1 || view->height < 1 ||
      padX <= 0) {
    return;
  }
  uint8_t* row = static_cast<uint8_t*>(kqMalloc(uint32_t(view->width)));
  if (row == nullptr) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "Memory allocation failed: kqAddPaddingToYChannel");
    return;
  }
  kqAddPaddingToYChannelWithBuffer(view, padX, row);
  kqFree(row);
}

void kqAddPaddingToYChannelWithBuffer(KQImage8* view, int32_t padX, uint8_t* row) {
  if (view == nullptr || view->data == nullptr || view->width < 1 || view->height < 1 ||
      padX <= 0 || row == nullptr) {
    return;
  }
  const size_t width = size_t(view->width);
  // Bottom up: row r moves to a higher address than any row above it still
  // waiting, and the buffer covers the overlap of a row with its own
  // destination.
  const size_t stride = width + size_t(padX);
  for (int32_t r = view->height - 1; r >= 0; --r) {
    std::memcpy(row, view->data + size_t(r) * width, width);
    std::memcpy(view->data + size_t(r) * stride, row, width);
  }
}

namespace {

// Output chroma rows [first, end) of `record` from rows of outU / outV: each
// row's pairs in the record's byte order, then padX bytes of 128. Rows lie
// back to back at (width & ~1) + padX bytes from the start of the plane: for
// an odd width one byte less than the row stride, and a range must find its
// first row exactly where a pass over all rows puts it.
void mergeRows(const KQPlanesDsp* dsp, const KQYUVMultiPlaneImage* record, const KQImage8* outU,
               const KQImage8* outV, int32_t padX, int32_t first, int32_t end) {
  const int32_t code = record->type;
  if (code != kCodeVU && code != kCodeUV) return;
  if (first < 0 || end <= first) return;
  // V,U order puts V on the even bytes, U,V order U.
  const KQImage8* even = code == kCodeVU ? outV : outU;
  const KQImage8* odd = code == kCodeVU ? outU : outV;
  const int32_t pairs = record->width / 2;
  const size_t srcStride = size_t(outU->width);
  const size_t pitch = size_t(record->width & ~1) + size_t(padX);
  uint8_t* dst = record->chromaData + pitch * size_t(first);
  for (int32_t r = first; r < end; ++r, dst += pitch) {
    dsp->mergeUVRow(dst, even->data + size_t(r) * srcStride, odd->data + size_t(r) * srcStride,
                    pairs);
    std::memset(dst + 2 * size_t(pairs), kNeutralChroma, size_t(padX));
  }
}

}  // namespace

void interleaveChromaRows(void* context) {
  const ChromaMergeRange* r = static_cast<const ChromaMergeRange*>(context);
  mergeRows(r->dsp, r->record, r->outU, r->outV, r->padX, r->first, r->last + 1);
}

void kqSetUVDataWithDsp(const KQImage8* outU, const KQImage8* outV,
                        const KQYUVMultiPlaneImage* record, int32_t padY, int32_t padX,
                        int32_t numThreads, const KQPlanesDsp* dsp) {
  if (record == nullptr || dsp == nullptr) return;
  // Codes other than 10 and 11 name layouts of other writers, not built here.
  if ((record->type & ~1) != kCodeVU) return;
  if (record->height < 2 || record->width < 0 || record->chromaData == nullptr) return;
  const int32_t halfW = record->width / 2;
  const int32_t halfH = record->height / 2;
  if (!planeIs(outU, halfW, halfH) || !planeIs(outV, halfW, halfH)) return;
  if (padX < 0) padX = 0;

  // The record promises height / 2 rows of yRowStride bytes. With the padX
  // the pipeline computes every row fits; keep to the rows that do.
  const int64_t pitch = int64_t(record->width & ~1) + padX;
  const int64_t planeBytes = int64_t(record->yRowStride < 0 ? 0 : record->yRowStride) * halfH;
  int64_t rows = halfH;
  if (pitch > 0 && pitch * rows > planeBytes) rows = planeBytes / pitch;
  if (rows < 1 || pitch < 1) return;

  // padY is not needed: the rows follow each other whatever the scanlines.
  (void)padY;
  // Every count but those above 1 runs on the calling thread.
  kqParallelRows(0, int32_t(rows), 1, numThreads > 1 ? numThreads : 1,
                 [=](int32_t first, int32_t end, int32_t) {
                   mergeRows(dsp, record, outU, outV, padX, first, end);
                 });
}

void kqSetUVData(const KQImage8* outU, const KQImage8* outV, const KQYUVMultiPlaneImage* record,
                 int32_t padY, int32_t padX, int32_t numThreads) {
  kqSetUVDataWithDsp(outU, outV, record, padY, padX, numThreads, kqPlanesDspGet());
}
