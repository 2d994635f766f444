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

void interleaveChromaRows(void* context) {
  const ChromaMergeRange* range = static_cast<const ChromaMergeRange*>(context);
  const KQYUVMultiPlaneImage* record = range->record;
  const int32_t code = record->type;
  if (code != kCodeVU && code != kCodeUV) return;
  if (range->first > range->last || range->first < 0) return;
  // V,U order puts V on the even bytes, U,V order U.
  const KQImage8* even = code == kCodeVU ? range->outV : range->outU;
  const KQImage8* odd = code == kCodeVU ? range->outU : range->outV;
  const int32_t pairs = record->width / 2;
  const size_t srcStride = size_t(range->outU->width);
  const int32_t padX = range->padX;
  // Rows lie back to back at this pitch from the start of the plane: for an
  // odd width it is one byte less than the luma's row stride, and a slice
  // must find its first row exactly where the serial pass puts it.
  const size_t pitch = size_t(record->width & ~1) + size_t(padX);
  uint8_t* dst = record->chromaData + pitch * size_t(range->first);
  KQMergeUVRowFn* merge = range->dsp->mergeUVRow;
  for (int32_t r = range->first; r <= range->last; ++r, dst += pitch) {
    merge(dst, even->data + size_t(r) * srcStride, odd->data + size_t(r) * srcStride, pairs);
    std::memset(dst + 2 * size_t(pairs), kNeutralChroma, size_t(padX));
  }
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

  ChromaMergeRange context;
  context.record = record;
  context.outU = outU;
  context.outV = outV;
  context.last = int32_t(rows) - 1;
  context.first = 0;
  context.padX = padX;
  context.padY = padY;
  context.dsp = dsp;
  // Every count but those above 1 runs on the calling thread.
  kqParallelRows(0, int32_t(rows), 1, numThreads > 1 ? numThreads : 1,
                 [&context](int32_t first, int32_t end, int32_t) {
                   ChromaMergeRange range = context;
                   range.first = first;
                   range.last = end - 1;
                   interleaveChromaRows(&range);
                 });
}

void kqSetUVData(const KQImage8* outU, const KQImage8* outV, const KQYUVMultiPlaneImage* record,
                 int32_t padY, int32_t padX, int32_t numThreads) {
  kqSetUVDataWithDsp(outU, outV, record, padY, padX, numThreads, kqPlanesDspGet());
}
