// output_assembly_test.cpp - chroma interleave into the caller's plane
// (layouts, byte orders, padding bytes, rows that fit), degenerate inputs and
// the luma padding's allocation failure path. Vector rows and thread counts
// against the scalar single thread: check_planes.cpp.
#include "image/output_assembly.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "runtime/alloc.h"
#include "runtime/pool.h"
#include "support/log_capture.h"

namespace {

constexpr uint8_t kUntouched = 0xA5;
constexpr int kGuard = 64;  // sentinel bytes before and after each plane

// An output image in caller memory; each plane sits between guard bytes.
struct Output {
  std::vector<uint8_t> lumaBuf, chromaBuf;
  KQYUVMultiPlaneImage rec{};
  Output(int32_t width, int32_t height, int32_t stride, int32_t scanlines, int32_t code)
      : lumaBuf(size_t(stride) * scanlines + 2 * kGuard, kUntouched),
        chromaBuf(size_t(stride) * (height / 2) + 2 * kGuard, kUntouched) {
    uint8_t *y = lumaBuf.data() + kGuard, *c = chromaBuf.data() + kGuard;
    rec = {code, width, height, 1, stride, scanlines, 2, stride, 2, stride, y, c, c + 1};
  }
  bool guardsIntact() const {
    const std::vector<uint8_t> guard(kGuard, kUntouched);
    for (const std::vector<uint8_t>* b : {&lumaBuf, &chromaBuf})
      if (!std::equal(guard.begin(), guard.end(), b->begin()) ||
          !std::equal(guard.begin(), guard.end(), b->end() - kGuard))
        return false;
    return true;
  }
  bool chromaUntouched() const {
    return chromaBuf == std::vector<uint8_t>(chromaBuf.size(), kUntouched);
  }
};

// A packed chroma plane with distinct, position-dependent samples.
struct Packed {
  std::vector<uint8_t> bytes;
  KQImage8 img;
  Packed(int32_t w, int32_t h, uint8_t seed) : bytes(size_t(w) * h + 1), img{w, h, bytes.data()} {
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(seed + i * 3 + i / 7);
  }
};

// Chroma rows: width / 2 pairs (V,U for code 10, U,V for code 11), then padX
// bytes of 128, at a pitch of (width & ~1) + padX from the plane start (an
// odd width: one below the row stride); bytes past the last row are left
// alone. A padX bigger than yRowStride - width writes only the rows that fit
// in height / 2 rows of yRowStride bytes; a negative one is taken as 0.
TEST(OutputAssembly, ChromaLayoutsByteOrdersAndPadding) {
  const int32_t cases[][6] = {// width, height, stride, padY, padX, code
                              {8, 4, 12, 0, 4, 10}, {8, 4, 12, 0, 4, 11},  {4, 2, 4, 0, 0, 10},
                              {4, 2, 4, 0, 0, 11},  {10, 6, 10, 3, 0, 11}, {7, 6, 10, 0, 3, 10},
                              {8, 8, 10, 0, 7, 10}, {8, 8, 10, 0, -3, 11}};
  for (const auto& c : cases)
    for (int32_t n : {1, 4}) {
      const int32_t w = c[0], h = c[1], padX = c[4] > 0 ? c[4] : 0, pitch = (w & ~1) + padX;
      SCOPED_TRACE(testing::Message() << "width " << w << " stride " << c[2] << " padX " << c[4]
                                      << " code " << c[5] << " threads " << n);
      Output out(w, h, c[2], h, c[5]);
      Packed u(w / 2, h / 2, 1), v(w / 2, h / 2, 101);
      kqSetUVData(&u.img, &v.img, &out.rec, c[3], c[4], n);
      const Packed& first = c[5] == 10 ? v : u;
      const Packed& second = c[5] == 10 ? u : v;
      const int32_t rows = std::min(h / 2, (h / 2) * c[2] / pitch);
      for (int r = 0; r < rows; ++r) {
        const uint8_t* row = out.rec.chromaData + r * pitch;
        for (int k = 0; k < w / 2; ++k) {
          ASSERT_EQ(row[2 * k], first.bytes[r * (w / 2) + k]) << "row " << r << " pair " << k;
          ASSERT_EQ(row[2 * k + 1], second.bytes[r * (w / 2) + k]) << "row " << r << " pair " << k;
        }
        for (int x = w & ~1; x < pitch; ++x) ASSERT_EQ(row[x], 128) << "row " << r << " byte " << x;
      }
      for (size_t i = size_t(rows) * pitch; i < out.chromaBuf.size() - 2 * kGuard; ++i)
        ASSERT_EQ(out.rec.chromaData[i], kUntouched) << "byte " << i;
      EXPECT_TRUE(out.guardsIntact());
    }
}

// Height below 2, layouts other than 10 / 11, wrong plane sizes and null
// pointers write no chroma; no padding, a negative one, empty or missing
// planes leave the luma alone.
TEST(OutputAssembly, DegenerateInputsWriteNothing) {
  Packed u(4, 2, 1), v(4, 2, 2), small(3, 2, 1);
  KQImage8 noData{4, 2, nullptr};
  for (int32_t code : {10, 8, 9, 12, 13}) {
    Output out(8, code == 10 ? 1 : 4, 8, 1, code);
    kqSetUVData(&u.img, &v.img, &out.rec, 0, 0, 3);
    EXPECT_TRUE(out.chromaUntouched()) << "code " << code;
  }
  Output out(8, 4, 8, 4, 10);
  kqSetUVData(&small.img, &v.img, &out.rec, 0, 0, 3);
  kqSetUVData(nullptr, &v.img, &out.rec, 0, 0, 3);
  kqSetUVData(&u.img, &v.img, nullptr, 0, 0, 3);
  kqSetUVData(&u.img, &noData, &out.rec, 0, 0, 3);
  KQYUVMultiPlaneImage noPlane = out.rec;
  noPlane.chromaData = nullptr;
  kqSetUVData(&u.img, &v.img, &noPlane, 0, 0, 3);
  EXPECT_TRUE(out.chromaUntouched());

  Output luma(6, 3, 6, 3, 10);
  const std::vector<uint8_t> before = luma.lumaBuf;
  KQImage8 packed{6, 3, luma.rec.yData}, empty{0, 3, luma.rec.yData}, noLuma{6, 3, nullptr};
  kqAddPaddingToYChannel(&packed, 0);
  kqAddPaddingToYChannel(&packed, -2);
  kqAddPaddingToYChannel(&empty, 4);
  kqAddPaddingToYChannel(&noLuma, 4);
  kqAddPaddingToYChannel(nullptr, 4);
  EXPECT_EQ(luma.lumaBuf, before);
}

void* failingHeap(size_t) { return nullptr; }

// Without memory for its row buffer the luma padding is logged and leaves
// the rows packed.
TEST(OutputAssembly, LumaPaddingAllocationFailureLeavesTheRowsPacked) {
  Output out(8, 4, 12, 4, 10);
  for (int i = 0; i < 32; ++i) out.rec.yData[i] = uint8_t(i + 1);
  const std::vector<uint8_t> before = out.lumaBuf;
  KqLogCapture log;
  KQAllocSystem failing{failingHeap, nullptr, nullptr, nullptr};
  kqAllocSetSystem(&failing);
  KQImage8 view{8, 4, out.rec.yData};
  kqAddPaddingToYChannel(&view, 4);
  kqAllocSetSystem(nullptr);
  EXPECT_EQ(out.lumaBuf, before);
  EXPECT_FALSE(log.lines().empty());
}

}  // namespace
