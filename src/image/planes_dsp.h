// planes_dsp.h - row kernels of plane intake and output assembly: splitting
// interleaved chroma into two packed planes and merging them back.
#pragma once

#include <cstdint>

// Splits one row of interleaved chroma: for k in [0, pairs)
//   dstEven[k] = src[2k], dstOdd[k] = src[2k + 1].
// The caller picks the byte order by the choice of the two destinations
// (V,U input: dstEven = V, dstOdd = U). pairs >= 0; pairs == 0 touches
// nothing. Reads exactly 2 * pairs bytes of src and writes exactly `pairs`
// bytes of each destination: no over-read, no over-write, no alignment
// requirement. src must not overlap either destination.
using KQSplitUVRowFn = void(uint8_t* dstEven, uint8_t* dstOdd, const uint8_t* src, int32_t pairs);

// Merges two packed rows into one interleaved row: for k in [0, pairs)
//   dst[2k] = srcEven[k], dst[2k + 1] = srcOdd[k].
// Same limits as the split: exactly 2 * pairs bytes written, `pairs` bytes
// of each source read, no alignment requirement, dst must not overlap the
// sources.
using KQMergeUVRowFn = void(uint8_t* dst, const uint8_t* srcEven, const uint8_t* srcOdd,
                            int32_t pairs);

KQSplitUVRowFn kqSplitUVRow_c, kqSplitUVRow_neon, kqSplitUVRow_sse41, kqSplitUVRow_avx2;
KQMergeUVRowFn kqMergeUVRow_c, kqMergeUVRow_neon, kqMergeUVRow_sse41, kqMergeUVRow_avx2;

struct KQPlanesDsp {
  KQSplitUVRowFn* splitUVRow;
  KQMergeUVRowFn* mergeUVRow;
};

// Fills `dsp` with the best kernels for `cpuFlags` (KQ_CPU_*): scalar first,
// then each instruction set that is both built and in the flags, in rising
// order. Changes no global state, so tests can build one table per level.
void kqPlanesDspInit(KQPlanesDsp* dsp, uint32_t cpuFlags);

// The table for this CPU (kqCpuFlags()), built once on first use.
const KQPlanesDsp* kqPlanesDspGet();

// Per-pair steps shared by every version; the vector kernels finish their
// rows with these, so a tail is computed exactly as the reference does.
static inline void kqSplitUVPairs(uint8_t* dstEven, uint8_t* dstOdd, const uint8_t* src,
                                  int32_t from, int32_t pairs) {
  for (int32_t k = from; k < pairs; ++k) {
    dstEven[k] = src[2 * k];
    dstOdd[k] = src[2 * k + 1];
  }
}

static inline void kqMergeUVPairs(uint8_t* dst, const uint8_t* srcEven, const uint8_t* srcOdd,
                                  int32_t from, int32_t pairs) {
  for (int32_t k = from; k < pairs; ++k) {
    dst[2 * k] = srcEven[k];
    dst[2 * k + 1] = srcOdd[k];
  }
}
