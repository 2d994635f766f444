// plane_intake_test.cpp - plane intake: chroma byte orders, region offsets
// and degenerate inputs. Vector rows, row splits and thread counts against
// the scalar single thread: check_planes.cpp.
#include "image/plane_intake.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "runtime/pool.h"
#include "support/yuv_image.h"

namespace {

constexpr uint8_t kUntouched = 0xA5;

// An input image in caller memory: luma and interleaved chroma with row
// padding, filled with position-dependent bytes.
struct Input {
  KqYuv img;
  KQYUVMultiPlaneImage rec;
  Input(int32_t width, int32_t height, int32_t stride, int32_t code)
      : img(width, height, stride), rec(img.record(code)) {
    const size_t lumaBytes = size_t(stride) * height;
    for (size_t i = 0; i < lumaBytes; ++i) img.y()[i] = uint8_t(i * 7 + (i / stride) * 13);
    for (size_t i = 0; i < img.bytes().size() - lumaBytes; ++i)
      img.uv()[i] = uint8_t(i * 11 + (i / stride) * 5 + 3);
  }
  uint8_t y(int x, int r) const { return img.y()[size_t(r) * rec.yRowStride + x]; }
  uint8_t c(int x, int r) const { return img.uv()[size_t(r) * rec.yRowStride + x]; }
};

// A destination plane, pre-filled so that unwritten bytes show.
struct Plane {
  std::vector<uint8_t> bytes;
  KQImage8 img;
  Plane(int32_t w, int32_t h)
      : bytes(size_t(w > 0 ? w : 0) * (h > 0 ? h : 0) + 1, kUntouched), img{w, h, bytes.data()} {}
  uint8_t at(int x, int r) const { return bytes[size_t(r) * img.width + x]; }
  bool untouched() const { return bytes == std::vector<uint8_t>(bytes.size(), kUntouched); }
};

// Whole images (code 10 stores V first, code 11 U first; a stride equal to
// the width is one block copy) and regions, which crop the luma to a
// multiple of 4 and take chroma from byte `left` of chroma row top / 2: an
// odd left exchanges the bytes (it starts on the second byte of a pair), an
// odd top starts at the row above. The record is left as it was.
TEST(PlaneIntake, CopiesWholeImagesAndRegions) {
  const int32_t cases[][10] = {
      // width, height, stride, code, left (-1: whole image), top, right, bottom, work size
      {13, 9, 13, 10, -1, 0, 0, 0, 13, 9},    {13, 9, 20, 10, -1, 0, 0, 0, 13, 9},
      {13, 9, 13, 11, -1, 0, 0, 0, 13, 9},    {13, 9, 20, 11, -1, 0, 0, 0, 13, 9},
      {40, 30, 48, 10, 6, 4, 27, 22, 20, 16}, {40, 30, 48, 10, 5, 7, 16, 18, 12, 12},
      {40, 30, 48, 11, 5, 7, 16, 18, 12, 12}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << "stride " << c[2] << " code " << c[3] << " left " << c[4] << " top " << c[5]);
    Input in(c[0], c[1], c[2], c[3]);
    const KQYUVMultiPlaneImage before = in.rec;
    const int32_t w = c[8], h = c[9], l = c[4] < 0 ? 0 : c[4], t = c[5];
    Plane y(w, h), u(w / 2, h / 2), v(w / 2, h / 2);
    if (c[4] < 0)
      kqTakeYUVPlanes(&in.rec, &y.img, &u.img, &v.img, 1);
    else
      kqTakeYUVPlanesFromROI(&in.rec, &y.img, &u.img, &v.img, c[4], c[5], c[6], c[7], 1);
    for (int r = 0; r < h; ++r)
      for (int x = 0; x < w; ++x) ASSERT_EQ(y.at(x, r), in.y(x + l, r + t)) << x << "," << r;
    const Plane& first = c[3] == 10 ? v : u;
    const Plane& second = c[3] == 10 ? u : v;
    for (int r = 0; r < h / 2; ++r)
      for (int k = 0; k < w / 2; ++k) {
        ASSERT_EQ(first.at(k, r), in.c(l + 2 * k, t / 2 + r)) << k << "," << r;
        ASSERT_EQ(second.at(k, r), in.c(l + 2 * k + 1, t / 2 + r)) << k << "," << r;
      }
    EXPECT_TRUE(y.bytes.back() == kUntouched && u.bytes.back() == kUntouched &&
                v.bytes.back() == kUntouched);
    EXPECT_EQ(0, std::memcmp(&before, &in.rec, sizeof before)) << "record changed";
  }
}

// Missing or inconsistent records and planes, and regions that leave no
// 4 x 4 pixels inside the image, write nothing.
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

  // Sizes of 1 (empty chroma planes) and codes other than 10 and 11 (layouts
  // this library does not build): the luma is copied, the chroma left alone.
  const int32_t others[][3] = {{1, 1, 10}, {8, 4, 8}, {8, 4, 9}, {8, 4, 12}, {8, 4, 13}};
  for (const auto& t : others) {
    Input other(t[0], t[1], t[0], t[2]);
    Plane oy(t[0], t[1]), ou(t[0] / 2, t[1] / 2), ov(t[0] / 2, t[1] / 2);
    kqTakeYUVPlanes(&other.rec, &oy.img, &ou.img, &ov.img, 3);
    EXPECT_EQ(oy.at(t[0] - 1, t[1] - 1), other.y(t[0] - 1, t[1] - 1)) << "code " << t[2];
    EXPECT_TRUE(ou.untouched() && ov.untouched()) << "code " << t[2];
  }
}

}  // namespace
