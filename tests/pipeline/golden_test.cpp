// golden_test.cpp - whole-pipeline checksums of small images. The expected
// values were produced once by the scalar build (KQ_CPU_MASK=0) and must come
// out of every build: scalar and vector, x86, armv7 and aarch64.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <vector>

#include "KQUpScale.h"
#include "support/log_capture.h"
#include "support/yuv_image.h"

namespace {

struct GoldenCase {
  const char* name;
  int inW, inH, inType;
  int outW, outH, outStride, outType;
  int left, top, right, bottom;
  int nr, cnr;
  float sharp;
  int threads;
  uint64_t expected;
};

// FNV-1a over the visible luma and chroma bytes (padding excluded).
uint64_t hashOutput(const KqYuv& img) {
  uint64_t h = 0xcbf29ce484222325ull;
  auto add = [&h](const uint8_t* p, int n) {
    for (int i = 0; i < n; ++i) h = (h ^ p[i]) * 0x100000001b3ull;
  };
  for (int y = 0; y < img.height(); ++y) add(img.y() + size_t(y) * img.stride(), img.width());
  for (int y = 0; y < img.height() / 2; ++y)
    add(img.uv() + size_t(y) * img.stride(), img.width() & ~1);
  return h;
}

const GoldenCase kCases[] = {
    // name, input, output, region, nr, cnr, sharpening, threads, expected
    {"all_filters_nv21", 64, 48, 8, 160, 120, 160, 8, -1, -1, -1, -1, 3, 3, 1.0f, 2,
     0xc6cf8e4bd18b7aaaull},
    {"region_nv12", 72, 56, 9, 100, 76, 100, 9, 13, 7, 58, 45, 5, 10, 0.5f, 3,
     0x32c6ece543ca55abull},
    {"bare_warp_odd_padded", 50, 38, 8, 99, 75, 104, 8, -1, -1, -1, -1, 0, 0, 0.0f, 1,
     0x8bfaf6df570b3b21ull},
    {"denoise_without_sharpening", 64, 48, 8, 128, 96, 128, 9, -1, -1, -1, -1, 7, 2, 0.0f, -2,
     0x656adc02d8c6d594ull},
    {"strong_sharpening_wide", 96, 40, 9, 250, 90, 256, 9, -1, -1, -1, -1, 10, 0, 2.5f, 4,
     0xc31a8deeb56a6c4cull},
};

TEST(Golden, WholePipelineChecksumsMatchTheScalarReference) {
  KqLogCapture quiet;
  for (const GoldenCase& c : kCases) {
    const KqYuv src = KqYuv::camera(c.inW, c.inH, 1234);
    KqYuv dst(c.outW, c.outH, c.outStride, 0);
    KQYUVMultiPlaneImage in = src.record(c.inType), out = dst.record(c.outType);
    KQUpScale_ScaleImageFromROI(&in, &out, c.left, c.top, c.right, c.bottom, c.nr, c.cnr, c.sharp,
                                c.threads, 0);
    const uint64_t got = hashOutput(dst);
    char hex[32];
    std::snprintf(hex, sizeof hex, "0x%016" PRIx64, got);
    EXPECT_EQ(got, c.expected) << c.name << ": got " << hex;
  }
}

}  // namespace
