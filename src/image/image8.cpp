// image8.cpp - creation and release of packed working planes.
#include "image/image8.h"

#include "runtime/alloc.h"
#include "runtime/log.h"

KQImage8* kqCreateImage8(int32_t width, int32_t height) {
  KQImage8* image = static_cast<KQImage8*>(kqMalloc(sizeof(KQImage8)));
  if (image == nullptr) return nullptr;
  image->width = width;
  image->height = height;
  // Negative sizes ask for nothing (refused by the allocator); a product
  // that does not fit 32 bits would wrap to a short block, so it is refused
  // here instead.
  const uint64_t bytes =
      (width > 0 && height > 0) ? static_cast<uint64_t>(width) * static_cast<uint64_t>(height) : 0u;
  if (bytes > UINT32_MAX) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "Memory allocation failed: kqCreateImage8");
    image->data = nullptr;
  } else {
    image->data = static_cast<uint8_t*>(kqMalloc(static_cast<uint32_t>(bytes)));
  }
  if (image->data == nullptr) {
    kqFree(image);
    return nullptr;
  }
  return image;
}

void kqReleaseImage8(KQImage8** image) {
  if (image == nullptr || *image == nullptr) return;
  kqFree((*image)->data);
  kqFree(*image);
  *image = nullptr;
}
