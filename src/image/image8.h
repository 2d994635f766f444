// image8.h - KQImage8, the packed 8-bit working plane of every stage.
#pragma once

#include <cstdint>

// One tightly packed 8-bit plane: row stride equals width. Also used as a
// borrowed view of a caller plane, which is then never released here.
struct KQImage8 {
  int32_t width;
  int32_t height;
  uint8_t* data;
};

// A new plane of width x height uninitialised bytes (32-bit product), or
// null if the record or the data cannot be allocated (sizes of 0 included).
KQImage8* kqCreateImage8(int32_t width, int32_t height);

// A plane with data and a size of at least 1 x 1.
static inline bool kqImage8Valid(const KQImage8* image) {
  return image != nullptr && image->data != nullptr && image->width > 0 && image->height > 0;
}

// Frees the plane held by *image and nulls *image; null is a no-op.
void kqReleaseImage8(KQImage8** image);
