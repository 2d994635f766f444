// camera_frame.h - the workloads and the camera-like NV21 frames that the whole-call benchmarks
// (kq_bench_call on the host, kq_cost under qemu for ARM) share, so that both measure the same
// calls on the same bytes.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "KQUpScale.h"

namespace kqbench {

struct Workload {
  const char* name;
  int32_t inW, inH;         // input frame
  int32_t left, top, w, h;  // region the output is made from (the whole frame: left = -1)
  int32_t outW, outH;       // output frame
};

// The region of the third workload starts on even coordinates, so that the anchors can crop
// the interleaved chroma plane at the same place (the library rounds the region to 1000x748).
constexpr Workload kWorkloads[] = {
    {"1024x768-4096x3072", 1024, 768, -1, -1, 1024, 768, 4096, 3072},
    {"1920x1080-3840x2160", 1920, 1080, -1, -1, 1920, 1080, 3840, 2160},
    {"roi1000x750of4000x3000-4000x3000", 4000, 3000, 1500, 1124, 1000, 750, 4000, 3000},
};
constexpr int kWorkloadCount = int(sizeof kWorkloads / sizeof kWorkloads[0]);

// One NV21 frame in caller-owned memory: rows packed (stride = width), chroma as V,U pairs.
struct Frame {
  int32_t w = 0, h = 0;
  std::unique_ptr<uint8_t[]> y, vu;
  KQYUVMultiPlaneImage image{};

  Frame(int32_t width, int32_t height, uint8_t fill) : w(width), h(height) {
    y.reset(new uint8_t[lumaBytes()]);
    vu.reset(new uint8_t[chromaBytes()]);
    // Written, not just allocated: every page is resident before anything is measured.
    std::memset(y.get(), fill, lumaBytes());
    std::memset(vu.get(), fill, chromaBytes());
    image = {8, w, h, 1, w, h, 2, w, 2, w, y.get(), vu.get(), vu.get() + 1};
  }
  size_t lumaBytes() const { return size_t(w) * h; }
  size_t chromaBytes() const { return size_t(w) * (h / 2); }
  size_t bytes() const { return lumaBytes() + chromaBytes(); }
};

inline uint32_t xorshift(uint32_t* s) {
  *s ^= *s << 13;
  *s ^= *s >> 17;
  *s ^= *s << 5;
  return *s;
}

// Roughly Gaussian noise: the sum of four uniform bytes has a standard deviation of about 148;
// scaled so that the result's is about sigma.
inline int noise(uint32_t* s, int sigma) {
  const uint32_t r = xorshift(s);
  const int sum = int(r & 255) + int((r >> 8) & 255) + int((r >> 16) & 255) + int(r >> 24);
  return (sum - 510) * sigma / 148;
}

inline uint8_t clampByte(int v) { return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v); }

// A camera-like picture: lit surfaces (slow gradients), object outlines (bands and discs),
// fine texture (rings whose frequency rises outwards, up to a period of about 16 pixels),
// colour patches, and sensor noise of about 3 levels in luma and 5 in chroma. The filters'
// cost can depend on the content, so a flat plane would not do.
inline void paintCameraFrame(Frame* f, uint32_t seed) {
  int8_t sine[256];
  const double pi = 3.14159265358979323846;
  for (int i = 0; i < 256; ++i) sine[i] = int8_t(std::lround(127.0 * std::sin(i * pi / 128.0)));
  uint32_t s = seed * 2654435761u + 1;
  for (int32_t y = 0; y < f->h; ++y) {
    uint8_t* row = f->y.get() + size_t(y) * f->w;
    for (int32_t x = 0; x < f->w; ++x) {
      int v = 50 + 130 * x / f->w + 40 * y / f->h;
      if ((x / 180 + y / 130) % 3 == 0) v -= 35;
      const int dx = x % 256 - 128, dy = y % 256 - 128;
      if (dx * dx + dy * dy < 70 * 70) v += 30;
      const int64_t phase = (int64_t(x) * x + int64_t(y) * y) * 8 / f->w;
      v += sine[phase & 255] * 12 / 127;
      row[x] = clampByte(v + noise(&s, 3));
    }
  }
  for (int32_t y = 0; y < f->h / 2; ++y) {
    uint8_t* row = f->vu.get() + size_t(y) * f->w;
    for (int32_t x = 0; x < f->w / 2; ++x) {
      const int patch = ((x / 100) * 7 + (y / 75) * 13) % 9 - 4;
      const int slow = sine[(x * 256 / f->w + y * 128 / f->h) & 255];
      row[2 * x] = clampByte(128 + slow * 25 / 127 + patch * 6 + noise(&s, 5));      // V
      row[2 * x + 1] = clampByte(128 - slow * 20 / 127 - patch * 4 + noise(&s, 5));  // U
    }
  }
}

}  // namespace kqbench
