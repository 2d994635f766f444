// chroma_nr.h - luma-guided chroma noise reduction of the output U and V planes.
#pragma once

#include <cstdint>

#include "filters/chroma_dsp.h"
#include "image/image8.h"

// One run of the filter: U and V (srcU/srcV, written to dstU/dstV; the
// same planes for both when it works in place), the luma that guides it,
// four scratch planes half1U, half1V, half2U, half2V, an optional guide
// plane and the mode and strength (see kqChromaNoiseReduction).
struct KQChromaJob {
  const KQImage8* luma;
  const KQImage8* srcU;
  const KQImage8* srcV;
  KQImage8* dstU;
  KQImage8* dstV;
  KQImage8* half[4];
  const KQImage8* guide;
  int32_t mode;
  float strength;
};

// Runs `job` over `threads` (the thread-count rule of kqRunPieces) with the
// kernel table `dsp`.
void kqChromaFilter(const KQChromaJob& job, int32_t threads, const KQChromaDsp* dsp);

// Denoises U and V (srcU/srcV, written to dstU/dstV; the pipeline passes the
// same planes for both) in three passes: full size -> half size, half size ->
// half size, half size -> full size guided by `luma` (the output luma, at
// least lumaRatio times the chroma width and lumaRatio * (h - 1) + 1 rows).
// half1U..half2V are scratch planes of exactly (w / 2) columns and at least
// (h / 2) rows. `guide` is optional (null: none); a guide byte / 4 picks the
// weight row per pixel. `mode` 1 or 3 shortens the margins, 3 also selects
// its own strength tables. `threads` follows the thread-count rule of
// kqParallelRun. Bytes do not depend on the thread count or the CPU.
//
// Planes too small to filter (chroma width or height below 2) are left as
// they are, and so are planes with null or inconsistent records (which is
// logged) and a NaN strength. Odd chroma widths and heights: the filter
// covers the even part; the last row is then a copy of the row above, and
// the last column of each row a copy of its left neighbour.
void kqChromaNoiseReduction(const KQImage8* luma, const KQImage8* srcU, const KQImage8* srcV,
                            KQImage8* dstU, KQImage8* dstV, KQImage8* half1U, KQImage8* half1V,
                            KQImage8* half2U, KQImage8* half2V, const KQImage8* guide,
                            int32_t mode, float strength, int32_t threads);

// The same with an explicit kernel table (tests and benchmarks run every
// instruction-set level through it).
void kqChromaNoiseReductionDsp(const KQImage8* luma, const KQImage8* srcU, const KQImage8* srcV,
                               KQImage8* dstU, KQImage8* dstV, KQImage8* half1U,
                               KQImage8* half1V, KQImage8* half2U, KQImage8* half2V,
                               const KQImage8* guide, int32_t mode, float strength,
                               int32_t threads, const KQChromaDsp* dsp);

// Parameters derived from mode, strength and the luma-to-chroma ratio.
struct KQChromaParams {
  float stepSigma;
  float weightSigma;
  int32_t kind;     // 1..5: table step 2, 4, 8, 16, 32
  int32_t margin1;  // pass 1 margin (26, 14 or 8)
  int32_t margin2;  // pass 2 margin (8, 6 or 4); pass 3 uses 2
  uint8_t weights[3][9];
  uint8_t slopes[3][8];
};

// Fills `params`; false (nothing filled) for a NaN strength.
bool kqChromaSetup(int32_t mode, float strength, int32_t lumaRatio, KQChromaParams* params);

// Columns each pass leaves to the per-pixel code after its vector loop.
int32_t kqChromaTailCount(int32_t pass, int32_t chromaWidth, int32_t margin);

// Split function of all three passes: rewrites firstRow/endRow of the
// KQChromaPassContext for slice `slice` of `sliceCount`. poolFlag 1: shrinking
// chunks (large slices first, for the pool's dynamic hand-out); 0: equal
// shares. Boundaries are even rows.
void kqChromaSplit(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context);
