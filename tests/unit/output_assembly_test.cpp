// output_assembly_test.cpp - luma row padding in place and chroma interleave
// into the caller's plane: layouts, byte orders, padding bytes, thread-count
// independence, degenerate inputs and the allocation failure path.
#include "image/output_assembly.h"

#include <gtest/gtest.h>

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
    rec.type = code;
    rec.width = width;
    rec.height = height;
    rec.yPixelStride = 1;
    rec.yRowStride = stride;
    rec.yScanlines = scanlines;
    rec.uPixelStride = rec.vPixelStride = 2;
    rec.uRowStride = rec.vRowStride = stride;
    rec.yData = lumaBuf.data() + kGuard;
    rec.chromaData = chromaBuf.data() + kGuard;
    rec.vData = rec.chromaData + 1;
  }
  size_t chromaBytes() const { return chromaBuf.size() - 2 * kGuard; }
  bool guardsIntact() const {
    for (const std::vector<uint8_t>* b : {&lumaBuf, &chromaBuf})
      for (int i = 0; i < kGuard; ++i)
        if ((*b)[i] != kUntouched || (*b)[b->size() - 1 - i] != kUntouched) return false;
    return true;
  }
  bool chromaUntouched() const {
    for (uint8_t b : chromaBuf)
      if (b != kUntouched) return false;
    return true;
  }
};

// A packed chroma plane with distinct, position-dependent samples.
struct Packed {
  std::vector<uint8_t> bytes;
  KQImage8 img;
  Packed(int32_t w, int32_t h, uint8_t seed) : bytes(size_t(w) * h + 1) {
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(seed + i * 3 + i / 7);
    img = KQImage8{w, h, bytes.data()};
  }
};

TEST(OutputAssembly, PaddedOutputOfTheWorkedExample) {
  // width 8, row stride 12, height 4: luma rows move to 0, 12, 24, 36.
  Output out(8, 4, 12, 4, 10);
  for (int i = 0; i < 32; ++i) out.rec.yData[i] = uint8_t(i + 1);
  KQImage8 view{8, 4, out.rec.yData};
  kqAddPaddingToYChannel(&view, 4);
  for (int r = 0; r < 4; ++r) {
    for (int x = 0; x < 8; ++x) ASSERT_EQ(out.rec.yData[r * 12 + x], r * 8 + x + 1);
    // The 4 bytes after each row keep their old contents: the packed data
    // of later rows for rows 0 and 1, the sentinel beyond the packed area.
    for (int x = 8; x < 12; ++x) {
      const size_t at = size_t(r) * 12 + x;
      const uint8_t before = at < 32 ? uint8_t(at + 1) : kUntouched;
      EXPECT_EQ(out.rec.yData[at], before) << "pad byte " << at;
    }
  }

  Packed u(4, 2, 1), v(4, 2, 101);
  kqSetUVData(&u.img, &v.img, &out.rec, 0, 4, 1);
  for (int r = 0; r < 2; ++r) {
    const uint8_t* row = out.rec.chromaData + r * 12;
    for (int k = 0; k < 4; ++k) {
      EXPECT_EQ(row[2 * k], v.bytes[r * 4 + k]);
      EXPECT_EQ(row[2 * k + 1], u.bytes[r * 4 + k]);
    }
    for (int x = 8; x < 12; ++x) EXPECT_EQ(row[x], 128) << "row " << r << " byte " << x;
  }
  EXPECT_TRUE(out.guardsIntact());
}

TEST(OutputAssembly, ChromaByteOrderFollowsTheFormatCode) {
  const uint8_t uBytes[2] = {1, 2}, vBytes[2] = {5, 6};
  const uint8_t want10[4] = {5, 1, 6, 2}, want11[4] = {1, 5, 2, 6};
  for (int32_t code : {10, 11}) {
    Output out(4, 2, 4, 2, code);
    uint8_t ub[2], vb[2];
    std::memcpy(ub, uBytes, 2);
    std::memcpy(vb, vBytes, 2);
    KQImage8 u{2, 1, ub}, v{2, 1, vb};
    kqSetUVData(&u, &v, &out.rec, 0, 0, 1);
    EXPECT_EQ(0, std::memcmp(out.rec.chromaData, code == 10 ? want10 : want11, 4)) << code;
    EXPECT_TRUE(out.guardsIntact());
  }
}

// With yRowStride equal to the width the pipeline passes padX 0: rows are
// packed pairs only, no 128 anywhere.
TEST(OutputAssembly, NoRowPaddingWhenTheStrideEqualsTheWidth) {
  Output out(10, 6, 10, 9, 11);
  Packed u(5, 3, 7), v(5, 3, 77);
  kqSetUVData(&u.img, &v.img, &out.rec, 3, 0, 1);
  for (int r = 0; r < 3; ++r)
    for (int k = 0; k < 5; ++k) {
      ASSERT_EQ(out.rec.chromaData[r * 10 + 2 * k], u.bytes[r * 5 + k]);
      ASSERT_EQ(out.rec.chromaData[r * 10 + 2 * k + 1], v.bytes[r * 5 + k]);
    }
  EXPECT_TRUE(out.guardsIntact());
}

// An odd width writes width - 1 chroma bytes then the padding, rows back to
// back at a pitch one below the row stride; the bytes past the last row are
// left alone.
TEST(OutputAssembly, OddWidthRowsFollowEachOtherAtTheSerialPitch) {
  Output out(7, 6, 10, 6, 10);
  Packed u(3, 3, 9), v(3, 3, 99);
  kqSetUVData(&u.img, &v.img, &out.rec, 0, 3, 1);
  const int pitch = 6 + 3;
  for (int r = 0; r < 3; ++r) {
    const uint8_t* row = out.rec.chromaData + r * pitch;
    for (int k = 0; k < 3; ++k) {
      ASSERT_EQ(row[2 * k], v.bytes[r * 3 + k]);
      ASSERT_EQ(row[2 * k + 1], u.bytes[r * 3 + k]);
    }
    for (int x = 6; x < 9; ++x) ASSERT_EQ(row[x], 128);
  }
  for (size_t i = 3 * pitch; i < out.chromaBytes(); ++i)
    EXPECT_EQ(out.rec.chromaData[i], kUntouched) << "byte " << i;
  EXPECT_TRUE(out.guardsIntact());
}

// Every thread count gives the serial bytes, with and without a pool. Odd
// widths matter most: a slice that started its rows at yRowStride * first
// would leave gaps and stale bytes.
TEST(OutputAssembly, EveryThreadCountGivesTheSerialBytes) {
  for (int32_t width : {66, 67}) {
    const int32_t height = 2 * 37 + 1, stride = 72;
    Packed u(width / 2, height / 2, 5), v(width / 2, height / 2, 55);
    Output ref(width, height, stride, height, 10);
    kqSetUVData(&u.img, &v.img, &ref.rec, 0, stride - width, 1);
    for (bool pool : {false, true}) {
      if (pool) kqPoolStart(4, 0, "assembly-test");
      for (int32_t n : {1, 0, 2, 3, 8, -3, 200}) {
        Output out(width, height, stride, height, 10);
        kqSetUVData(&u.img, &v.img, &out.rec, 0, stride - width, n);
        EXPECT_EQ(out.chromaBuf, ref.chromaBuf)
            << "width " << width << ", threads " << n << ", pool " << pool;
      }
      if (pool) kqPoolStop();
    }
  }
}

TEST(OutputAssembly, DegenerateChromaInputsWriteNothing) {
  Packed u(4, 2, 1), v(4, 2, 2);
  {
    Output out(8, 1, 8, 1, 10);  // height below 2
    out.rec.height = 1;
    kqSetUVData(&u.img, &v.img, &out.rec, 0, 0, 3);
    EXPECT_TRUE(out.chromaUntouched());
  }
  for (int32_t code : {8, 9, 12, 13}) {  // other layouts are not built
    Output out(8, 4, 8, 4, code);
    kqSetUVData(&u.img, &v.img, &out.rec, 0, 0, 3);
    EXPECT_TRUE(out.chromaUntouched()) << "code " << code;
  }
  Output out(8, 4, 8, 4, 10);
  Packed small(3, 2, 1);
  kqSetUVData(&small.img, &v.img, &out.rec, 0, 0, 3);  // wrong plane size
  kqSetUVData(nullptr, &v.img, &out.rec, 0, 0, 3);
  kqSetUVData(&u.img, &v.img, nullptr, 0, 0, 3);
  KQImage8 noData{4, 2, nullptr};
  kqSetUVData(&u.img, &noData, &out.rec, 0, 0, 3);
  KQYUVMultiPlaneImage noPlane = out.rec;
  noPlane.chromaData = nullptr;
  kqSetUVData(&u.img, &v.img, &noPlane, 0, 0, 3);
  EXPECT_TRUE(out.chromaUntouched());
}

// A padX that does not match the record (bigger than yRowStride - width)
// must not write past the height / 2 rows of yRowStride bytes; a negative
// one is taken as 0.
TEST(OutputAssembly, InconsistentPaddingStaysInsideThePlane) {
  for (int32_t n : {1, 4}) {
    Output out(8, 8, 10, 8, 10);
    Packed u(4, 4, 1), v(4, 4, 2);
    kqSetUVData(&u.img, &v.img, &out.rec, 0, 7, n);  // pitch 15 > 10
    EXPECT_TRUE(out.guardsIntact()) << "threads " << n;
    // 40 bytes hold two rows of 15: the first two rows are written.
    EXPECT_EQ(out.rec.chromaData[15], v.bytes[4]);
    EXPECT_EQ(out.rec.chromaData[29], 128);
    EXPECT_EQ(out.rec.chromaData[30], kUntouched);

    Output neg(8, 8, 10, 8, 11);
    kqSetUVData(&u.img, &v.img, &neg.rec, 0, -3, n);
    EXPECT_EQ(neg.rec.chromaData[8], u.bytes[4]) << "rows packed at pitch 8";
    EXPECT_EQ(neg.rec.chromaData[31], v.bytes[15]);
    for (int i = 32; i < 40; ++i) EXPECT_EQ(neg.rec.chromaData[i], kUntouched);
    EXPECT_TRUE(neg.guardsIntact());
  }
}

TEST(OutputAssembly, LumaPaddingEdgeCases) {
  // One row: copied onto itself, nothing after it written.
  Output one(5, 1, 9, 1, 10);
  for (int i = 0; i < 5; ++i) one.rec.yData[i] = uint8_t(40 + i);
  KQImage8 view{5, 1, one.rec.yData};
  kqAddPaddingToYChannel(&view, 4);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(one.rec.yData[i], 40 + i);
  for (int i = 5; i < 9; ++i) EXPECT_EQ(one.rec.yData[i], kUntouched);
  EXPECT_TRUE(one.guardsIntact());

  // Nothing to do: no padding, a negative one, empty or missing planes.
  Output out(6, 3, 6, 3, 10);
  const std::vector<uint8_t> before = out.lumaBuf;
  KQImage8 packed{6, 3, out.rec.yData};
  kqAddPaddingToYChannel(&packed, 0);
  kqAddPaddingToYChannel(&packed, -2);
  KQImage8 empty{0, 3, out.rec.yData}, noData{6, 3, nullptr};
  kqAddPaddingToYChannel(&empty, 4);
  kqAddPaddingToYChannel(&noData, 4);
  kqAddPaddingToYChannel(nullptr, 4);
  EXPECT_EQ(out.lumaBuf, before);
}

void* failingHeap(size_t) { return nullptr; }

TEST(OutputAssembly, LumaPaddingAllocationFailureIsLoggedAndLeavesTheRowsPacked) {
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
  bool found = false;
  for (const KqLogLine& line : log.lines()) {
    if (line.message == "Memory allocation failed: kqAddPaddingToYChannel") {
      found = true;
      EXPECT_EQ(line.priority, 6);
      EXPECT_EQ(line.tag, "Orvane");
      EXPECT_EQ(line.stream, stderr);
    }
  }
  EXPECT_TRUE(found);
}

}  // namespace
