// plane_intake_test.cpp - plane intake: row splits, chroma byte orders, region
// offsets, thread-count independence and degenerate inputs.
#include "image/plane_intake.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "runtime/pool.h"

namespace {

constexpr uint8_t kUntouched = 0xA5;

// An input image in caller memory: luma and interleaved chroma with row
// padding, filled with position-dependent bytes.
struct Input {
  std::vector<uint8_t> luma, chroma;
  KQYUVMultiPlaneImage rec{};

  Input(int32_t width, int32_t height, int32_t stride, int32_t code) {
    luma.resize(size_t(stride) * height);
    chroma.resize(size_t(stride) * ((height + 1) / 2));
    for (size_t i = 0; i < luma.size(); ++i) luma[i] = uint8_t(i * 7 + (i / stride) * 13);
    for (size_t i = 0; i < chroma.size(); ++i) chroma[i] = uint8_t(i * 11 + (i / stride) * 5 + 3);
    rec.type = code;
    rec.width = width;
    rec.height = height;
    rec.yPixelStride = 1;
    rec.yRowStride = stride;
    rec.yScanlines = height;
    rec.uPixelStride = rec.vPixelStride = 2;
    rec.uRowStride = rec.vRowStride = stride;
    rec.yData = luma.data();
    rec.chromaData = chroma.data();
    rec.vData = chroma.data() + 1;
  }
  uint8_t y(int x, int r) const { return luma[size_t(r) * rec.yRowStride + x]; }
  uint8_t c(int x, int r) const { return chroma[size_t(r) * rec.yRowStride + x]; }
};

// A destination plane, pre-filled so that unwritten bytes show.
struct Plane {
  std::vector<uint8_t> bytes;
  KQImage8 img;
  Plane(int32_t w, int32_t h) : bytes(size_t(w > 0 ? w : 0) * (h > 0 ? h : 0) + 1, kUntouched) {
    img = KQImage8{w, h, bytes.data()};
  }
  uint8_t at(int x, int r) const { return bytes[size_t(r) * img.width + x]; }
  bool untouched() const {
    for (uint8_t b : bytes)
      if (b != kUntouched) return false;
    return true;
  }
};

struct Range {
  int32_t first, end;
};

std::vector<Range> chromaSlices(int32_t rows, int32_t count) {
  std::vector<Range> out;
  for (int32_t i = 0; i < count; ++i) {
    Range r;
    kqChromaSliceRows(i, count, rows, &r.first, &r.end);
    out.push_back(r);
  }
  return out;
}

TEST(PlaneIntakeSplit, ChromaSlicesOfTheWorkedExamples) {
  auto s = chromaSlices(4, 3);
  EXPECT_EQ(s[0].first, 0);
  EXPECT_EQ(s[0].end, 2);
  EXPECT_EQ(s[1].first, 2);
  EXPECT_EQ(s[1].end, 4);
  EXPECT_EQ(s[2].first, 4);
  EXPECT_EQ(s[2].end, 4);

  s = chromaSlices(5, 2);  // odd length 3 moves slice 1 up by one row
  EXPECT_EQ(s[0].first, 0);
  EXPECT_EQ(s[0].end, 2);
  EXPECT_EQ(s[1].first, 1);
  EXPECT_EQ(s[1].end, 5);

  s = chromaSlices(100, 4);
  const int32_t want[4][2] = {{0, 24}, {24, 48}, {48, 72}, {72, 100}};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(s[i].first, want[i][0]) << "slice " << i;
    EXPECT_EQ(s[i].end, want[i][1]) << "slice " << i;
  }
}

// Whatever the row and slice counts, slices stay inside [0, rows), cover
// every row, and overlap by at most the one repeated boundary row; a single
// odd-length slice never starts above row 0.
TEST(PlaneIntakeSplit, ChromaSlicesCoverEveryRowAndStayInside) {
  for (int32_t rows = 0; rows <= 41; ++rows) {
    for (int32_t count = 1; count <= 24; ++count) {
      std::vector<int> cover(size_t(rows) + 1, 0);
      for (const Range& r : chromaSlices(rows, count)) {
        if (r.first >= r.end) continue;
        ASSERT_GE(r.first, 0) << rows << " rows, " << count << " slices";
        ASSERT_LE(r.end, rows) << rows << " rows, " << count << " slices";
        for (int32_t y = r.first; y < r.end; ++y) ++cover[y];
      }
      for (int32_t y = 0; y < rows; ++y) {
        ASSERT_GE(cover[y], 1) << "row " << y << " missed: " << rows << " rows, " << count;
        ASSERT_LE(cover[y], 2) << "row " << y << ": " << rows << " rows, " << count;
      }
    }
  }
  Range only;
  kqChromaSliceRows(0, 1, 7, &only.first, &only.end);
  EXPECT_EQ(only.first, 0);
  EXPECT_EQ(only.end, 7);
}

// The form the stages run gives every row to exactly one slice (no two
// threads store the same bytes), inside the slice's documented range, for
// exclusive ends (intake) and inclusive ones (assembly).
TEST(PlaneIntakeSplit, OwnedChromaSlicesGiveEveryRowToOneSlice) {
  for (bool inclusive : {false, true}) {
    for (int32_t end = 0; end <= 41; ++end) {
      const int32_t rows = inclusive ? end + 1 : end;
      for (int32_t count = 1; count <= 24; ++count) {
        std::vector<int> cover(size_t(rows) + 1, 0);
        for (int32_t i = 0; i < count; ++i) {
          Range owned, full;
          kqChromaSliceRowsOwned(i, count, end, inclusive, &owned.first, &owned.end);
          kqChromaSliceRows(i, count, end, &full.first, &full.end);
          const int32_t stop = inclusive ? owned.end + 1 : owned.end;
          if (owned.first >= stop) continue;
          ASSERT_GE(owned.first, full.first);
          ASSERT_EQ(owned.end, full.end);
          ASSERT_GE(owned.first, 0);
          ASSERT_LE(stop, rows);
          for (int32_t y = owned.first; y < stop; ++y) ++cover[y];
        }
        for (int32_t y = 0; y < rows; ++y)
          ASSERT_EQ(cover[y], 1) << "row " << y << ", end " << end << ", " << count
                                 << " slices, inclusive " << inclusive;
      }
    }
  }
  Range only;
  kqChromaSliceRowsOwned(0, 1, 7, false, &only.first, &only.end);
  EXPECT_EQ(only.first, 0);
  EXPECT_EQ(only.end, 7);
}

// splitRowsEvenly must hand out every luma row exactly once, also with more
// slices than rows and with a range that does not start at row 0.
TEST(PlaneIntakeSplit, LumaSlicesPartitionTheRows) {
  for (int32_t first : {0, 3}) {
    for (int32_t rows = 1; rows <= 30; ++rows) {
      for (int32_t count = 1; count <= 40; ++count) {
        std::vector<int> cover(size_t(first + rows), 0);
        for (int32_t i = 0; i < count; ++i) {
          LumaCropRange range{};
          range.first = first;
          range.last = first + rows - 1;
          splitRowsEvenly(i, count, 1, &range);
          for (int32_t y = range.first; y <= range.last; ++y) {
            ASSERT_GE(y, first);
            ASSERT_LT(y, first + rows);
            ++cover[y];
          }
        }
        for (int32_t y = first; y < first + rows; ++y)
          ASSERT_EQ(cover[y], 1) << "row " << y << ", " << rows << " rows, " << count;
      }
    }
  }
}

TEST(PlaneIntake, ChromaByteOrderFollowsTheFormatCode) {
  for (int32_t code : {10, 11}) {
    Input in(4, 2, 4, code);
    const uint8_t row[4] = {0x10 /*V0 or U0*/, 0x20, 0x11, 0x21};
    std::memcpy(in.chroma.data(), row, 4);
    Plane y(4, 2), u(2, 1), v(2, 1);
    kqTakeYUVPlanes(&in.rec, &y.img, &u.img, &v.img, 1);
    const uint8_t* first = code == 10 ? v.bytes.data() : u.bytes.data();
    const uint8_t* second = code == 10 ? u.bytes.data() : v.bytes.data();
    EXPECT_EQ(first[0], 0x10) << "code " << code;
    EXPECT_EQ(first[1], 0x11) << "code " << code;
    EXPECT_EQ(second[0], 0x20) << "code " << code;
    EXPECT_EQ(second[1], 0x21) << "code " << code;
  }
}

TEST(PlaneIntake, WholeImageCopiesLumaAndChromaWithAndWithoutRowPadding) {
  for (int32_t stride : {13, 13 + 7}) {  // equal to the width: one block copy
    Input in(13, 9, stride, 10);
    Plane y(13, 9), u(6, 4), v(6, 4);
    kqTakeYUVPlanes(&in.rec, &y.img, &u.img, &v.img, 1);
    for (int r = 0; r < 9; ++r)
      for (int x = 0; x < 13; ++x) ASSERT_EQ(y.at(x, r), in.y(x, r)) << x << "," << r;
    for (int r = 0; r < 4; ++r)
      for (int k = 0; k < 6; ++k) {
        ASSERT_EQ(v.at(k, r), in.c(2 * k, r)) << k << "," << r;
        ASSERT_EQ(u.at(k, r), in.c(2 * k + 1, r)) << k << "," << r;
      }
    EXPECT_EQ(y.bytes.back(), kUntouched);
    EXPECT_EQ(u.bytes.back(), kUntouched);
    EXPECT_EQ(v.bytes.back(), kUntouched);
  }
}

TEST(PlaneIntake, RegionCropsLumaAndOffsetsChroma) {
  Input in(40, 30, 48, 10);
  const KQYUVMultiPlaneImage before = in.rec;
  // left 6, top 4, 22 x 19 -> work size 20 x 16.
  Plane y(20, 16), u(10, 8), v(10, 8);
  kqTakeYUVPlanesFromROI(&in.rec, &y.img, &u.img, &v.img, 6, 4, 27, 22, 1);
  for (int r = 0; r < 16; ++r)
    for (int x = 0; x < 20; ++x) ASSERT_EQ(y.at(x, r), in.y(x + 6, r + 4)) << x << "," << r;
  for (int r = 0; r < 8; ++r)
    for (int k = 0; k < 10; ++k) {
      ASSERT_EQ(v.at(k, r), in.c(6 + 2 * k, 2 + r));
      ASSERT_EQ(u.at(k, r), in.c(6 + 2 * k + 1, 2 + r));
    }
  EXPECT_EQ(0, std::memcmp(&before, &in.rec, sizeof before)) << "record changed";
}

TEST(PlaneIntake, OddLeftExchangesChromaAndOddTopStartsAtTheRowAbove) {
  Input in(24, 20, 24, 10);
  Plane y(12, 12), u(6, 6), v(6, 6);
  kqTakeYUVPlanesFromROI(&in.rec, &y.img, &u.img, &v.img, 5, 7, 16, 18, 1);
  // Chroma starts at byte 5 (a U byte of V,U data) of chroma row 3.
  for (int r = 0; r < 6; ++r)
    for (int k = 0; k < 6; ++k) {
      ASSERT_EQ(v.at(k, r), in.c(5 + 2 * k, 3 + r)) << k << "," << r;
      ASSERT_EQ(u.at(k, r), in.c(6 + 2 * k, 3 + r)) << k << "," << r;
    }
  for (int r = 0; r < 12; ++r)
    for (int x = 0; x < 12; ++x) ASSERT_EQ(y.at(x, r), in.y(x + 5, r + 7));
}

// Every thread count gives the serial bytes, with and without a pool, for a
// whole image with odd sizes (an odd chroma row count) and for a region.
TEST(PlaneIntake, EveryThreadCountGivesTheSerialBytes) {
  Input in(75, 47, 80, 11);
  Plane y0(75, 47), u0(37, 23), v0(37, 23);
  Plane ry0(36, 28), ru0(18, 14), rv0(18, 14);
  kqTakeYUVPlanes(&in.rec, &y0.img, &u0.img, &v0.img, 1);
  kqTakeYUVPlanesFromROI(&in.rec, &ry0.img, &ru0.img, &rv0.img, 3, 5, 40, 33, 1);
  for (bool pool : {false, true}) {
    if (pool) kqPoolStart(4, 0, "intake-test");
    for (int32_t n : {1, 0, 2, 3, 8, -3, -1}) {
      Plane y(75, 47), u(37, 23), v(37, 23);
      kqTakeYUVPlanes(&in.rec, &y.img, &u.img, &v.img, n);
      EXPECT_EQ(y.bytes, y0.bytes) << "threads " << n << " pool " << pool;
      EXPECT_EQ(u.bytes, u0.bytes) << "threads " << n << " pool " << pool;
      EXPECT_EQ(v.bytes, v0.bytes) << "threads " << n << " pool " << pool;
      Plane ry(36, 28), ru(18, 14), rv(18, 14);
      kqTakeYUVPlanesFromROI(&in.rec, &ry.img, &ru.img, &rv.img, 3, 5, 40, 33, n);
      EXPECT_EQ(ry.bytes, ry0.bytes) << "region, threads " << n << " pool " << pool;
      EXPECT_EQ(ru.bytes, ru0.bytes) << "region, threads " << n << " pool " << pool;
      EXPECT_EQ(rv.bytes, rv0.bytes) << "region, threads " << n << " pool " << pool;
    }
    if (pool) kqPoolStop();
  }
}

TEST(PlaneIntake, DegenerateInputsWriteNothing) {
  Input in(16, 12, 16, 10);
  Plane y(16, 12), u(8, 6), v(8, 6);
  auto allUntouched = [&] { return y.untouched() && u.untouched() && v.untouched(); };

  kqTakeYUVPlanes(nullptr, &y.img, &u.img, &v.img, 2);
  kqTakeYUVPlanes(&in.rec, nullptr, nullptr, nullptr, 2);
  EXPECT_TRUE(allUntouched());

  KQYUVMultiPlaneImage bad = in.rec;
  bad.yData = nullptr;
  bad.chromaData = nullptr;
  kqTakeYUVPlanes(&bad, &y.img, &u.img, &v.img, 2);
  EXPECT_TRUE(allUntouched()) << "null data";

  bad = in.rec;
  bad.yRowStride = 15;  // rows would overlap
  kqTakeYUVPlanes(&bad, &y.img, &u.img, &v.img, 2);
  EXPECT_TRUE(allUntouched()) << "stride below width";

  Plane small(8, 12);  // not the work size
  kqTakeYUVPlanes(&in.rec, &small.img, nullptr, &v.img, 2);
  EXPECT_TRUE(small.untouched() && v.untouched()) << "mismatched planes";

  // Regions: narrower or shorter than 4 pixels, corners swapped, outside.
  const int32_t regions[][4] = {{2, 0, 4, 11},  {0, 3, 15, 5},  {9, 0, 3, 11},
                                {-2, 0, 9, 11}, {8, 0, 19, 11}, {0, 8, 11, 19}};
  for (const auto& r : regions) {
    Plane ry(12, 12), ru(6, 6), rv(6, 6);
    kqTakeYUVPlanesFromROI(&in.rec, &ry.img, &ru.img, &rv.img, r[0], r[1], r[2], r[3], 3);
    EXPECT_TRUE(ry.untouched() && ru.untouched() && rv.untouched())
        << "region " << r[0] << "," << r[1] << "," << r[2] << "," << r[3];
  }

  // Sizes of 1: the chroma planes would be empty; the luma is still copied.
  Input tiny(1, 1, 1, 10);
  Plane ty(1, 1), tu(0, 0), tv(0, 0);
  kqTakeYUVPlanes(&tiny.rec, &ty.img, &tu.img, &tv.img, 3);
  EXPECT_EQ(ty.at(0, 0), tiny.y(0, 0));
  EXPECT_TRUE(tu.untouched() && tv.untouched());
}

// Codes other than 10 and 11 are layouts this library does not build: the
// luma is copied, the chroma left alone.
TEST(PlaneIntake, OtherLayoutCodesLeaveTheChromaAlone) {
  for (int32_t code : {8, 9, 12, 13}) {
    Input in(8, 4, 8, code);
    Plane y(8, 4), u(4, 2), v(4, 2);
    kqTakeYUVPlanes(&in.rec, &y.img, &u.img, &v.img, 2);
    EXPECT_EQ(y.at(7, 3), in.y(7, 3)) << "code " << code;
    EXPECT_TRUE(u.untouched() && v.untouched()) << "code " << code;
  }
}

}  // namespace
