// warp_c.cpp - scalar reference row kernels of the warp stage.
#include "warp/warp_dsp.h"

#include <cstring>

void kqWarpCopyRow_c(uint8_t* dst, const uint8_t* src, size_t n) { std::memcpy(dst, src, n); }

void kqWarpBilinearRow_c(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  for (int32_t r = 0; r < row->rows; ++r) {
    float p = row->x;
    for (int32_t start = 0; start < row->count; start += 8) {
      int32_t base, phase;
      kqwarp::blockOrigin(p, &base, &phase);
      const int32_t lanes = row->count - start < 8 ? row->count - start : 8;
      kqwarp::bilinearLanes(dst + r * dstStride + start, row, r, base, phase, 0, lanes);
      p = p + row->blockStep;
    }
  }
}

void kqWarpNearestRow_c(uint8_t* dst, const KQWarpRow* row) {
  float p = row->x;
  for (int32_t start = 0; start < row->count; start += 8) {
    int32_t base, phase;
    kqwarp::blockOrigin(p, &base, &phase);
    const int32_t lanes = row->count - start < 8 ? row->count - start : 8;
    kqwarp::nearestLanes(dst + start, row, base, phase, 0, lanes);
    p = p + row->blockStep;
  }
}

void kqWarpNearestPairRow_c(uint8_t* dst, const KQWarpRow* row, int32_t swap) {
  float p = row->x;
  for (int32_t start = 0; start < row->count; start += 8) {
    int32_t base, phase;
    kqwarp::blockOrigin(p, &base, &phase);
    const int32_t lanes = row->count - start < 8 ? row->count - start : 8;
    kqwarp::nearestPairLanes(dst + 2 * start, row, base, phase, 0, lanes, swap);
    p = p + row->blockStep;
  }
}
