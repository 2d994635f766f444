// planes_c.cpp - scalar reference of the chroma split and merge row kernels.
// Pure byte moves: every vector version must give exactly these bytes.
#include "image/planes_dsp.h"

void kqSplitUVRow_c(uint8_t* dstEven, uint8_t* dstOdd, const uint8_t* src, int32_t pairs) {
  kqSplitUVPairs(dstEven, dstOdd, src, 0, pairs);
}

void kqMergeUVRow_c(uint8_t* dst, const uint8_t* srcEven, const uint8_t* srcOdd, int32_t pairs) {
  kqMergeUVPairs(dst, srcEven, srcOdd, 0, pairs);
}
