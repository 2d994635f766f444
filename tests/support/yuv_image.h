// yuv_image.h - an NV12/NV21 image owned by a test, with a row stride and a
// recognisable fill for padding, and a camera-like content generator.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "KQUpScale.h"

class KqYuv {
 public:
  // Luma of stride x height bytes followed by chroma of stride x
  // ceil(height / 2) bytes, all set to `fill`. stride 0 means width.
  KqYuv(int width, int height, int stride = 0, uint8_t fill = 0)
      : width_(width),
        height_(height),
        stride_(stride > 0 ? stride : width),
        buf_(size_t(stride_) * (height + (height + 1) / 2) + 1, fill) {}

  // Smooth gradients, edges, fine texture and noise in luma and chroma
  // (deterministic for a seed).
  static KqYuv camera(int width, int height, uint32_t seed) {
    KqYuv img(width, height);
    uint32_t s = seed * 2654435761u + 12345u;
    auto noise = [&s]() {
      s ^= s << 13;
      s ^= s >> 17;
      s ^= s << 5;
      return int(s % 13) - 6;
    };
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        int v = 40 + (x * 150) / (width > 1 ? width : 1) + ((x / 5 + y / 3) % 2) * 30;
        if ((x - width / 2) * (x - width / 2) + (y - height / 2) * (y - height / 2) <
            (height * height) / 9)
          v += 45;
        img.y()[size_t(y) * img.stride_ + x] = uint8_t(clamp(v + noise()));
      }
    for (int y = 0; y < height / 2; ++y)
      for (int x = 0; x + 1 < width; x += 2) {
        const int u = 128 + (x < width / 2 ? -30 : 25) + noise();
        const int v = 128 + (y < height / 4 ? 35 : -20) + noise();
        img.uv()[size_t(y) * img.stride_ + x] = uint8_t(clamp(v));
        img.uv()[size_t(y) * img.stride_ + x + 1] = uint8_t(clamp(u));
      }
    return img;
  }

  KQYUVMultiPlaneImage record(int type) const {
    uint8_t* y = const_cast<uint8_t*>(buf_.data());
    uint8_t* c = y + size_t(stride_) * height_;
    return {type, width_, height_, 1, stride_, height_, 2, stride_, 2, stride_, y, c, c + 1};
  }

  uint8_t* y() { return buf_.data(); }
  uint8_t* uv() { return buf_.data() + size_t(stride_) * height_; }
  const uint8_t* y() const { return buf_.data(); }
  const uint8_t* uv() const { return buf_.data() + size_t(stride_) * height_; }
  const std::vector<uint8_t>& bytes() const { return buf_; }
  int width() const { return width_; }
  int height() const { return height_; }
  int stride() const { return stride_; }

 private:
  static int clamp(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }
  int width_, height_, stride_;
  std::vector<uint8_t> buf_;
};
