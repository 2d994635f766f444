// luma_nr.h - edge-preserving luma noise reduction: interior pass, border
// pass and blend with the unfiltered plane.
#pragma once

#include <cstdint>

#include "image/image8.h"

struct KQLumaDsp;

// Filters `input` into `output` (distinct planes of the same size) and
// blends the result back with the input according to `strength` (10 keeps
// the filtered plane, 5 mixes half and half; larger values wrap, unguarded).
// `reference` (may be null) switches to the reference-guided blends: scale
// 1, 2 or 4 between the planes uses the vector blends, any other scale a
// generic scalar one. Passes 1 and 3 follow the thread-count rule (n < 0:
// |n| fresh threads, n > 1: the pool, 0 and 1: the calling thread); every
// count gives the same bytes.
//
// Any plane size is accepted: the interior kernel covers columns 6 ..
// 6 + 16 * ((width - 16) / 16) - 1 of rows 4 .. height - 5 (nothing when the
// plane is narrower than 32 or shorter than 9 rows) and the scalar border
// kernel covers everything else, so small planes go entirely through the
// scalar kernel. Null or empty planes, size mismatches and input == output
// are logged and leave the output untouched; a reference without data or
// with an empty size is ignored (plain blend).
void kqLumaNoiseReduction(const KQImage8* input, KQImage8* output, const KQImage8* reference,
                          int32_t strength, int32_t threads);

// The same with an explicit kernel table (tests run every ISA level).
void kqLumaNoiseReductionDsp(const KQImage8* input, KQImage8* output, const KQImage8* reference,
                             int32_t strength, int32_t threads, const KQLumaDsp* dsp);

// Slice context of passes 1 and 3 (copied per slice by the parallel-for).
struct KQLumaNrContext {
  const KQImage8* input;
  KQImage8* output;
  const KQImage8* reference;
  int32_t end;    // exclusive; the split overwrites it (-1: empty slice)
  int32_t start;  // the split overwrites it
  int32_t strength;
  const KQLumaDsp* dsp;
};

// Pass 1 split: N = end, q = N / n, slice i spans [i * q, i * q + q + 7)
// clamped to N (the last slice ends at N), so that neighbouring slices
// overlap by the 7 context rows and every output row is produced once.
void kqLumaNrInteriorSplit(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context);

// Pass 3 split: N = end, c = (N / n) rounded down to a multiple of 4 (4 when
// that is below 5), slice i spans [i * c, (i + 1) * c) clamped to N, the
// last slice ends at N, slices starting beyond N get end = -1.
void kqLumaNrBlendSplit(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context);

// First column of the right border strip: 6 below width 46, else
// ((width - 46) & ~15) + 22 (the end of the interior columns or 16 below).
int32_t kqLumaNrRightStripStart(int32_t width);

// Blend weight (int)(strength / 10 * 128) in single precision; conversions
// out of the int32 range saturate.
int32_t kqLumaBlendWeight(int32_t strength);
