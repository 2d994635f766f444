// output_assembly.h - last stage of the upscale: spread the packed output
// luma to the caller's row stride and interleave the chroma planes into the
// caller's chroma plane.
#pragma once

#include <cstdint>

#include "KQUpScale.h"
#include "image/image8.h"
#include "image/planes_dsp.h"

// Per-slice context of the chroma interleave: output chroma rows
// [first, last] (inclusive) from rows of outU / outV.
struct ChromaMergeRange {
  const KQYUVMultiPlaneImage* record;
  const KQImage8* outU;
  const KQImage8* outV;
  int32_t last;  // inclusive
  int32_t first;
  int32_t padX;  // bytes of 128 after each row's pairs
  int32_t padY;  // carried, not read
  const KQPlanesDsp* dsp;
};

// Moves the packed rows of `view` ({width, height, data} of the caller's
// luma plane) in place to a row stride of width + padX, bottom row first.
// The padX bytes after each row are not written. Goes through a row buffer
// from kqMalloc; if that fails, "Memory allocation failed:
// kqAddPaddingToYChannel" is logged and the luma stays packed.
// Does nothing for a null view or data, a width or height below 1, or
// padX <= 0 (0 would copy every row onto itself). The plane must hold
// (height - 1) * (width + padX) + width bytes.
void kqAddPaddingToYChannel(KQImage8* view, int32_t padX);

// The same move through a row buffer of at least view->width bytes that the
// caller provides, for callers that obtain all their memory up front.
void kqAddPaddingToYChannelWithBuffer(KQImage8* view, int32_t padX, uint8_t* rowBuffer);

// Interleaves outU / outV into record->chromaData: height / 2 rows, each
// width / 2 pairs (V,U for code 10, U,V for code 11) followed by padX bytes
// of 128; rows follow each other at a pitch of (width & ~1) + padX from the
// start of the plane, whatever the thread count.
//
// Writes nothing when: the code with its low bit cleared is not 10 (other
// layouts are not built); height < 2; a record, plane or data pointer is
// null; outU / outV are not (width / 2) x (height / 2). A negative padX is
// taken as 0. Only rows that fit in the height / 2 rows of yRowStride bytes
// that the record describes are written, so an inconsistent padX cannot
// write past the plane.
//
// Threads: n > 1 spreads the rows over the pool (each row written by one
// slice); every other count, negative ones included, runs on the calling
// thread.
void kqSetUVData(const KQImage8* outU, const KQImage8* outV, const KQYUVMultiPlaneImage* record,
                 int32_t padY, int32_t padX, int32_t numThreads);
void kqSetUVDataWithDsp(const KQImage8* outU, const KQImage8* outV,
                        const KQYUVMultiPlaneImage* record, int32_t padY, int32_t padX,
                        int32_t numThreads, const KQPlanesDsp* dsp);

// Task given to the parallel-for (ChromaMergeRange).
void interleaveChromaRows(void* context);
