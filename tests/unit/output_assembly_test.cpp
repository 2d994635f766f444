// output_assembly_test.cpp - degenerate inputs of the chroma interleave and
// the luma padding, and the padding's allocation failure path. Byte orders
// and pitches: the golden checksums; the padding bytes: the pipeline tests;
// vector rows and thread counts against the scalar single thread:
// check_planes.cpp.
#include "image/output_assembly.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "runtime/alloc.h"
#include "runtime/pool.h"
#include "support/log_capture.h"

namespace {

constexpr uint8_t kUntouched = 0xA5;

// An output image in caller memory, with 64 spare bytes after the chroma.
struct Output {
  std::vector<uint8_t> lumaBuf, chromaBuf;
  KQYUVMultiPlaneImage rec{};
  Output(int32_t width, int32_t height, int32_t stride, int32_t scanlines, int32_t code)
      : lumaBuf(size_t(stride) * scanlines, kUntouched),
        chromaBuf(size_t(stride) * (height / 2) + 64, kUntouched) {
    uint8_t *y = lumaBuf.data(), *c = chromaBuf.data();
    rec = {code, width, height, 1, stride, scanlines, 2, stride, 2, stride, y, c, c + 1};
  }
  bool chromaUntouched() const {
    return chromaBuf == std::vector<uint8_t>(chromaBuf.size(), kUntouched);
  }
};

// A packed chroma plane.
struct Packed {
  std::vector<uint8_t> bytes;
  KQImage8 img;
  Packed(int32_t w, int32_t h, uint8_t fill)
      : bytes(size_t(w) * h + 1, fill), img{w, h, bytes.data()} {}
};

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
