// plane_intake.h - first stage of the upscale: copy (or crop) the input luma
// into a packed plane and split the interleaved chroma into packed U and V.
#pragma once

#include <cstdint>

#include "KQUpScale.h"
#include "image/image8.h"
#include "image/planes_dsp.h"

// Per-slice context of the whole-image luma copy. Rows [first, last]
// (inclusive) of `width` bytes; source rows are width + padding apart,
// destination rows are packed.
struct LumaCopyRange {
  int32_t first;
  int32_t last;
  uint8_t* dst;
  const uint8_t* src;
  int32_t width;
  int32_t padding;  // source row stride - width
};

// Per-slice context of the region luma copy: destination row r (packed,
// `width` bytes) comes from source row r + top, column left on.
struct LumaCropRange {
  int32_t first;
  int32_t last;
  uint8_t* dst;
  const uint8_t* src;
  int32_t width;    // work width
  int32_t padding;  // source row stride - work width
  int32_t top;
  int32_t left;
};

// Per-slice context of the chroma split: rows [first, end) of the
// interleaved plane image->chromaData (row stride yRowStride) go to rows of
// inU / inV (packed, inU->width samples). The two paddings are carried for
// other layouts and not read here.
struct ChromaSplitRange {
  const KQYUVMultiPlaneImage* image;
  KQImage8* inU;
  KQImage8* inV;
  int32_t end;  // exclusive
  int32_t first;
  int32_t rowPadding;     // yRowStride - width
  int32_t bottomPadding;  // yScanlines - height
  const KQPlanesDsp* dsp;
};

// Whole image. `image` carries the internal format code (10: chroma bytes
// V,U; 11: U,V). inY receives width x height luma, inU / inV
// (width / 2) x (height / 2) chroma.
//
// What is written when the input does not allow the normal case:
//  - a null image, plane record or data pointer, a size below 1, or a
//    yRowStride below the width: the part (luma or chroma) that needs it is
//    left unwritten;
//  - a destination plane whose size is not the one above: that part is left
//    unwritten (the pipeline always creates them at these sizes);
//  - a format code other than 10 and 11: the chroma is left unwritten.
// Rows and columns outside the input are never read.
//
// Threads: the luma follows the common rule (kqParallelRun). The chroma
// runs |n| fresh threads for n < 0, the pool for n > 1 and the calling
// thread for 0 and 1, in which case it is not split at all. The bytes are the
// same for every count.
void kqTakeYUVPlanes(const KQYUVMultiPlaneImage* image, KQImage8* inY, KQImage8* inU, KQImage8* inV,
                     int32_t numThreads);
void kqTakeYUVPlanesWithDsp(const KQYUVMultiPlaneImage* image, KQImage8* inY, KQImage8* inU,
                            KQImage8* inV, int32_t numThreads, const KQPlanesDsp* dsp);

// Region with inclusive corners, already clamped by the caller. The work
// size is (right - left + 1) x (bottom - top + 1), each rounded down to a
// multiple of 4; inY must be that size and inU / inV half of it. The chroma
// starts at chroma row top / 2 and byte `left` of it, so an odd `left`
// exchanges the roles of U and V. `image` is not modified (the chroma offset
// is applied to a private copy).
//
// A work size of 0 or less (a region narrower or shorter than 4 pixels, or
// corners the wrong way round), a corner outside the image, or any of the
// cases listed for kqTakeYUVPlanes leaves the affected planes unwritten.
void kqTakeYUVPlanesFromROI(KQYUVMultiPlaneImage* image, KQImage8* inY, KQImage8* inU,
                            KQImage8* inV, int32_t left, int32_t top, int32_t right, int32_t bottom,
                            int32_t numThreads);
void kqTakeYUVPlanesFromROIWithDsp(KQYUVMultiPlaneImage* image, KQImage8* inY, KQImage8* inU,
                                   KQImage8* inV, int32_t left, int32_t top, int32_t right,
                                   int32_t bottom, int32_t numThreads, const KQPlanesDsp* dsp);

// Tasks and split functions handed to the parallel-for.
void copyLumaRows(void* context);            // LumaCopyRange
void cropLumaRows(void* context);            // LumaCropRange
void deinterleaveChromaRows(void* context);  // ChromaSplitRange
// Luma rows: slice i of n gets chunk = rows / n rows from first + chunk * i,
// the last slice also takes the remainder; slices beyond the rows get an
// empty range. Works on LumaCopyRange and LumaCropRange alike (both start
// with first, last).
void splitRowsEvenly(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context);
// Chroma rows of a ChromaSplitRange, by kqChromaSliceRowsOwned on its end
// row (exclusive).
void splitChromaRows(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context);

// The chroma row split shared by intake and output assembly. With e = end,
// chunk = max(2 * ((e / count) / 2), 2): slice i covers [chunk * i,
// chunk * (i + 1)), its end cut to e for the last slice or where it would
// pass e. A slice of odd length starts one row earlier (repeating its
// neighbour's last row with the same bytes; never above row 0). A slice
// that starts beyond e gets end -1 and does nothing. A negative index starts
// at row 0.
void kqChromaSliceRows(int32_t slice, int32_t count, int32_t end, int32_t* sliceFirst,
                       int32_t* sliceEnd);

// kqChromaSliceRows without the repeated boundary row: a row that slice - 1
// also covers is left to slice - 1, so every row belongs to exactly one
// slice. The bytes of the result are the same either way, but two threads
// storing to the same bytes at once is still a data race. `inclusive` says
// how the task reads the end: the intake takes [first, end), the assembly
// treats the value as the last row and takes [first, end].
void kqChromaSliceRowsOwned(int32_t slice, int32_t count, int32_t end, bool inclusive,
                            int32_t* sliceFirst, int32_t* sliceEnd);
