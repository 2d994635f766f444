// runtime_demo.cpp - a first end-to-end call of the library: prints the
// version and runs one small upscale through the exported entry points.
#include <cstdio>
#include <vector>

#include "KQUpScale.h"

int main() {
  const int w = 64, h = 48, ow = 256, oh = 192;
  std::vector<uint8_t> src(w * h * 3 / 2), dst(ow * oh * 3 / 2, 0);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) src[y * w + x] = uint8_t((x * 4 + y * 2) & 255);
  for (size_t i = w * h; i < src.size(); ++i) src[i] = uint8_t(96 + (i & 63));
  KQYUVMultiPlaneImage in{9, w, h, 1, w, h, 2, w, 2, w, src.data(), src.data() + w * h, nullptr};
  KQYUVMultiPlaneImage out{9, ow, oh, 1, ow, oh, 2, ow, 2, ow, dst.data(), dst.data() + ow * oh, nullptr};
  const int rc = KQUpScale_ScaleImage(&in, &out, 3, 3, 1.0f, 2, 0);
  std::printf("%s\nKQUpScale_ScaleImage %dx%d -> %dx%d returned %d\n", KQUpScale_GetVersion(), w,
              h, ow, oh, rc);
  return rc == 0 ? 0 : 1;
}
