// image8_test.cpp - working plane creation and release.
#include "image/image8.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/log_capture.h"

namespace {

TEST(Image8, CreatesAWritablePackedPlaneAndReleasesThroughTheHolder) {
  KQImage8* image = kqCreateImage8(33, 7);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->width, 33);
  EXPECT_EQ(image->height, 7);
  ASSERT_NE(image->data, nullptr);
  std::memset(image->data, 0x5A, 33 * 7);
  KQImage8* alias = image;
  kqReleaseImage8(&image);
  EXPECT_EQ(image, nullptr);
  kqReleaseImage8(&image);  // second release through the same holder: no-op
  kqReleaseImage8(nullptr);
  (void)alias;
}

TEST(Image8, RefusesEmptyNegativeAndOversizedPlanes) {
  KqLogCapture log;
  EXPECT_EQ(kqCreateImage8(0, 10), nullptr);
  EXPECT_EQ(kqCreateImage8(10, 0), nullptr);
  EXPECT_EQ(kqCreateImage8(-4, -4), nullptr);
  EXPECT_EQ(kqCreateImage8(70000, 70000), nullptr);  // would wrap 32 bits
  const auto msgs = log.messages();
  ASSERT_EQ(msgs.size(), 4u);
  EXPECT_EQ(msgs[0], "malloc(0) called with zero size");
  EXPECT_EQ(msgs[2], "malloc(0) called with zero size");
  EXPECT_EQ(msgs[3], "Memory allocation failed: kqCreateImage8");
}

}  // namespace
