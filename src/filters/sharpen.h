// sharpen.h - fixed-point unsharp-mask sharpening of the luma plane.
#pragma once

#include <cstdint>

#include "image/image8.h"

struct KQLumaDsp;

// Sharpening kernels by their blur: the 5-tap blur 7, 31, 52, 31, 7 (the
// pipeline's), the flatter 19, 19, 52, 19, 19, and a 7-tap blur.
enum KQSharpenKind : int32_t { kKqSharpen5Tap = 4, kKqSharpenFlat5Tap = 6, kKqSharpen7Tap = 7 };

// Sharpens `input` into `output` (distinct planes of the same size).
// gain = (int)(strength * 256) and threshold = (int)(detailThreshold * 1.5)
// (saturating conversions, NaN gives 0), both used as signed 16-bit values.
// kernelKind 4 (the pipeline's) and 6 use 5-tap blurs, 7 a 7-tap blur; any
// other kind copies the input unchanged (logged). With a `mask` plane of the
// same size each pixel becomes clamp((m * s + (16 - m) * o + 8) >> 4) of the
// sharpened s and the original o; a mask of another size is ignored.
// Rows are sliced over `threads` by the common thread-count rule; every
// count gives the same bytes. Any plane size is accepted (row indices are
// clamped into planes shorter than 4 rows; rows narrower than 8 go through
// the scalar tail form). Null or empty planes, size mismatches and
// input == output are logged and leave the output untouched.
void kqImageSharpening(const KQImage8* input, KQImage8* output, const KQImage8* mask, float strength,
                       float detailThreshold, int32_t kernelKind, int32_t threads);

// The same with an explicit kernel table (tests run every ISA level).
void kqImageSharpeningDsp(const KQImage8* input, KQImage8* output, const KQImage8* mask,
                          float strength, float detailThreshold, int32_t kernelKind,
                          int32_t threads, const KQLumaDsp* dsp);

// Slice context (copied per slice by the parallel-for).
struct KQSharpenContext {
  const KQImage8* input;
  KQImage8* output;
  const KQImage8* mask;
  int32_t start;  // the split overwrites it
  int32_t end;    // exclusive; the split overwrites it (-1: empty slice)
  float strength;
  int32_t kind;
  float detailThreshold;
  const KQLumaDsp* dsp;
};

// Row split: c = N / n; slice i spans [start0 + i * c, start0 + (i + 1) * c)
// clamped to N = end, the last slice ends at N, a slice starting beyond N
// gets end = -1. Slices never overlap.
void kqSharpenSplit(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context);
