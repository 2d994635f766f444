// pipeline_test.cpp - end-to-end behaviour of the exported functions: stage
// routing, format codes, regions, padding and degenerate input (thread
// counts and concurrent callers: stress_test.cpp).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "KQUpScale.h"
#include "runtime/alloc.h"
#include "runtime/pool.h"
#include "runtime/workspace.h"
#include "support/log_capture.h"
#include "support/yuv_image.h"

namespace {

struct Settings {
  int nr;
  int cnr;
  float sharp;
};

std::vector<uint8_t> run(const KqYuv& src, int outW, int outH, Settings s, int threads,
                         int left = -1, int top = -1, int right = -1, int bottom = -1,
                         int inType = 8, int outType = 8, int outStride = 0) {
  KqYuv dst(outW, outH, outStride, 0xC3);
  KQYUVMultiPlaneImage in = src.record(inType);
  KQYUVMultiPlaneImage out = dst.record(outType);
  EXPECT_EQ(KQUpScale_ScaleImageFromROI(&in, &out, left, top, right, bottom, s.nr, s.cnr, s.sharp,
                                        threads, 0),
            0);
  return dst.bytes();
}

class Pipeline : public testing::Test {
 protected:
  KqLogCapture log_;  // keeps the version lines out of the test output
};

TEST_F(Pipeline, FormatNineIsUVAndEveryOtherCodeIsVU) {
  const KqYuv src = KqYuv::camera(40, 32, 5);
  // With the chroma filter (U and V planes in between) and without (pairs
  // from the input's plane straight into the output's).
  for (const Settings s : {Settings{0, 2, 0.0f}, Settings{0, 0, 0.0f}}) {
    SCOPED_TRACE(s.cnr);
    const std::vector<uint8_t> nv21 = run(src, 80, 64, s, 1, -1, -1, -1, -1, 8, 8);
    for (int code : {0, 12, 1000})
      EXPECT_EQ(run(src, 80, 64, s, 1, -1, -1, -1, -1, code, code), nv21);
    // Reading NV12 and writing NV21 exchanges every chroma byte pair.
    const std::vector<uint8_t> same = run(src, 80, 64, s, 1, -1, -1, -1, -1, 9, 9);
    const std::vector<uint8_t> swapped = run(src, 80, 64, s, 1, -1, -1, -1, -1, 9, 8);
    const size_t lumaBytes = 80 * 64;
    EXPECT_TRUE(std::equal(same.begin(), same.begin() + lumaBytes, swapped.begin()));
    size_t mismatches = 0;
    for (size_t i = lumaBytes; i + 1 < same.size(); i += 2)
      mismatches += same[i] != swapped[i + 1] || same[i + 1] != swapped[i];
    EXPECT_EQ(mismatches, 0u);
    EXPECT_NE(same, swapped);
  }
}

// An input that lies inside the output's planes (a caller enlarging in one
// buffer) gives the bytes of the same input held apart: the output is
// written while the warp still reads, so such an input is worked from a
// copy.
TEST_F(Pipeline, InputInsideTheOutputGivesTheBytesOfAnInputApart) {
  const KqYuv src = KqYuv::camera(48, 36, 11);
  for (const Settings s : {Settings{0, 0, 0.0f}, Settings{3, 3, 0.6f}})
    for (bool atEnd : {false, true}) {
      const std::vector<uint8_t> apart = run(src, 120, 90, s, 2);
      KqYuv dst(120, 90, 0, 0xC3);  // as run() makes it
      // The input's luma and chroma rows, packed, at the start or the end of
      // the output's luma plane.
      const size_t inBytes = src.bytes().size();
      uint8_t* at = dst.y() + (atEnd ? size_t(120 * 90) - inBytes : 0);
      std::memcpy(at, src.bytes().data(), inBytes);
      KQYUVMultiPlaneImage in = src.record(8), out = dst.record(8);
      in.yData = at;
      in.chromaData = at + (src.uv() - src.y());
      ASSERT_EQ(KQUpScale_ScaleImage(&in, &out, s.nr, s.cnr, s.sharp, 2, 0), 0);
      EXPECT_EQ(dst.bytes(), apart) << "nr " << s.nr << (atEnd ? ", input at the end" : "");
    }
}

// left = -1 is the whole image whatever the other corners; other negative
// corners clamp to 0, corners past the image to its edge, and the region is
// cut to multiples of 4.
TEST_F(Pipeline, RegionIsClampedAndCutToMultiplesOfFour) {
  const KqYuv src = KqYuv::camera(64, 48, 9);
  const Settings s{3, 3, 1.0f};
  EXPECT_EQ(run(src, 100, 80, s, 2, -1, 5, 1000, -20), run(src, 100, 80, s, 2));
  const std::vector<uint8_t> a = run(src, 100, 80, s, 2, 0, 0, 50, 41);
  EXPECT_EQ(run(src, 100, 80, s, 2, -5, -5, 50, 41), a);
  EXPECT_EQ(run(src, 100, 80, s, 2, 0, 0, 48, 40), a);
  EXPECT_EQ(run(src, 100, 80, s, 2, 16, 8, 5000, 5000), run(src, 100, 80, s, 2, 16, 8, 63, 47));
}

// The header's promises for strengths past their useful range: chroma
// strengths above 10 act as 10; the sharpening gain is trunc(s * 256) modulo
// 2^16 (s and s + 256 agree, 256 sharpens nothing); negative or NaN
// sharpening without noise reduction leaves the luma untouched.
TEST_F(Pipeline, StrengthsPastTheirRangeActAsDocumented) {
  const KqYuv src = KqYuv::camera(40, 32, 12);
  const std::vector<uint8_t> cnr10 = run(src, 80, 64, {0, 10, 0.0f}, 1);
  EXPECT_EQ(run(src, 80, 64, {0, 11, 0.0f}, 1), cnr10);
  EXPECT_EQ(run(src, 80, 64, {0, INT32_MAX, 0.0f}, 1), cnr10);
  const std::vector<uint8_t> one = run(src, 80, 64, {0, 0, 1.0f}, 1);
  const std::vector<uint8_t> none = run(src, 80, 64, {0, 0, 0.0f}, 1);
  EXPECT_NE(one, none);
  EXPECT_EQ(run(src, 80, 64, {0, 0, 257.0f}, 1), one);
  EXPECT_EQ(run(src, 80, 64, {0, 0, 256.0f}, 1), none);
  for (float sharp : {-1.0f, std::nanf("")}) {
    const std::vector<uint8_t> out = run(src, 80, 64, {0, 3, sharp}, 2, -1, -1, -1, -1, 8, 8, 88);
    EXPECT_TRUE(
        std::all_of(out.begin(), out.begin() + 88 * 64, [](uint8_t b) { return b == 0xC3; }));
    EXPECT_FALSE(
        std::all_of(out.begin() + 88 * 64, out.end(), [](uint8_t b) { return b == 0xC3; }));
  }
}

// Calls that cannot be made safely are refused before any byte is read or
// written, with a log line, and return 0: missing records, an empty input
// or an output below 2x2, regions that leave less than 4x4 pixels, and
// records that promise less than the stages touch (fewer scanlines than
// rows, a plane extent beyond 2 GiB). The buffers behind them are large
// enough that a call which went ahead anyway would show up as changed
// bytes, not as a crash.
TEST_F(Pipeline, UnsafeCallsAreRefusedAndWriteNothing) {
  const KqYuv src = KqYuv::camera(125, 430, 4);
  using Rec = KQYUVMultiPlaneImage;
  struct Case {
    const char* what;
    int outW, outH, outStride, left, right;  // region columns 0..23; left -1: whole image
    Settings s;
    int side;             // the record edited: 0 input, 1 output
    int32_t Rec::*field;  // set to value; null: no record at all
    int32_t value;
  };
  const Case cases[] = {
      {"no input", 64, 48, 64, -1, -1, {3, 3, 1.0f}, 0, nullptr, 0},
      {"no output", 64, 48, 64, -1, -1, {3, 3, 1.0f}, 1, nullptr, 0},
      {"output 1 wide", 64, 48, 64, -1, -1, {3, 3, 1.0f}, 1, &Rec::width, 1},
      {"empty input", 64, 48, 64, -1, -1, {3, 3, 1.0f}, 0, &Rec::width, 0},
      {"region 3 wide", 64, 48, 64, 10, 12, {3, 3, 1.0f}, 0, &Rec::width, 125},
      {"region outside", 64, 48, 64, 200, 260, {3, 3, 1.0f}, 0, &Rec::width, 125},
      {"luma row spread", 26, 45, 44, -1, -1, {0, 0, 0.0f}, 1, &Rec::yScanlines, 42},
      {"intake", 64, 48, 64, -1, -1, {0, 0, 0.0f}, 0, &Rec::yScanlines, 429},
      {"noise filter's last row", 120, 90, 120, -1, -1, {3, 4, 0.0f}, 1, &Rec::yScanlines, 89},
      {"sharpening", 198, 110, 198, -1, -1, {0, 0, 1.0f}, 1, &Rec::yScanlines, 107},
      {"input extent", 64, 48, 64, -1, -1, {3, 4, 0.6f}, 0, &Rec::yRowStride, 0x7FFFFFF0},
      {"output extent", 64, 48, 64, -1, -1, {3, 4, 0.6f}, 1, &Rec::yRowStride, 0x20000000},
  };
  for (const Case& c : cases) {
    KqYuv dst(c.outW, c.outH, c.outStride, 0x5A);
    const std::vector<uint8_t> untouched = dst.bytes();
    Rec records[2] = {src.record(8), dst.record(8)};
    if (c.field != nullptr) records[c.side].*c.field = c.value;
    Rec* i = c.side == 0 && c.field == nullptr ? nullptr : &records[0];
    Rec* o = c.side == 1 && c.field == nullptr ? nullptr : &records[1];
    log_.clear();
    EXPECT_EQ(
        KQUpScale_ScaleImageFromROI(i, o, c.left, 0, c.right, 23, c.s.nr, c.s.cnr, c.s.sharp, 2, 0),
        0);
    EXPECT_EQ(dst.bytes(), untouched) << c.what;
    const std::vector<std::string> lines = log_.messages();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& m) {
      return m.find("nothing written") != std::string::npos;
    })) << c.what;
  }
  EXPECT_EQ(kqPoolUserCount(), 0);
}

// Outputs too small to split into 4 x 4 tiles, and the smallest inputs the
// warp accepts, into padded outputs: the luma padding and the chroma rows
// past height / 2 keep their fill, the chroma padding of a call that was not
// refused (aspect ratios that leave too few source pixels) is 128, and the
// thread count does not matter.
TEST_F(Pipeline, TinyInputsAndOutputsStayInsideTheirPlanes) {
  const int inSizes[][2] = {{4, 4}, {5, 7}, {8, 6}, {16, 12}};
  const int outSizes[][2] = {{2, 2}, {3, 3}, {5, 4}, {7, 9}, {16, 2}, {2, 16}};
  for (const auto& is : inSizes)
    for (const auto& os : outSizes) {
      const KqYuv src = KqYuv::camera(is[0], is[1], 11);
      const int w = os[0], h = os[1], stride = w + 6;
      const size_t lumaBytes = size_t(stride) * h, pitch = size_t(w & ~1) + 6;
      std::vector<uint8_t> first;
      for (int threads : {1, 4, -2}) {
        SCOPED_TRACE(testing::Message()
                     << is[0] << "x" << is[1] << " -> " << w << "x" << h << " threads " << threads);
        KqYuv dst(w, h, stride, 0xE1);
        KQYUVMultiPlaneImage in = src.record(8), out = dst.record(8);
        log_.clear();
        EXPECT_EQ(KQUpScale_ScaleImage(&in, &out, 5, 5, 1.0f, threads, 0), 0);
        const bool refused = log_.lines().size() > 2;  // beyond the two version lines
        const std::vector<uint8_t>& b = dst.bytes();
        for (size_t i = 0; i < b.size(); ++i) {
          const size_t c = i - lumaBytes;  // chroma rows lie back to back at `pitch`
          if (i < lumaBytes ? int(i % stride) >= w : c >= size_t(stride) * (h / 2))
            ASSERT_EQ(b[i], 0xE1) << "byte " << i;
          else if (i >= lumaBytes && !refused && c < pitch * (h / 2) && c % pitch >= size_t(w & ~1))
            ASSERT_EQ(b[i], 128) << "chroma byte " << c;
        }
        if (first.empty()) first = b;
        EXPECT_EQ(b, first);
      }
    }
}

// An allocation system that counts the mappings made and fails the
// allocation (of either kind) at which countdown reaches 0.
struct TestSystem {
  static int countdown, maps;
  static void* heap(size_t n) { return --countdown == 0 ? nullptr : std::malloc(n); }
  static void* map(size_t n) {
    ++maps;
    return --countdown == 0 ? nullptr : std::calloc(1, n);
  }
  static int unmap(void* p, size_t) {
    std::free(p);
    return 0;
  }
};
int TestSystem::countdown = 0, TestSystem::maps = 0;

// Failing the n-th allocation of a call, whichever it is, must leave the
// output as it was and return 0.
TEST_F(Pipeline, AnyFailedAllocationLeavesTheOutputUntouchedOrComplete) {
  const KqYuv src = KqYuv::camera(32, 24, 8);
  KQYUVMultiPlaneImage in = src.record(8);
  KqYuv reference(72, 56, 72, 0x33);
  KQYUVMultiPlaneImage refOut = reference.record(8);
  KQUpScale_ScaleImage(&in, &refOut, 3, 3, 1.0f, 2, 0);
  const std::vector<uint8_t> complete = reference.bytes();
  const KQAllocSystem failing{TestSystem::heap, nullptr, TestSystem::map, TestSystem::unmap,
                              nullptr};
  int untouchedCalls = 0;
  for (int n = 1;; ++n) {
    KqYuv dst(72, 56, 72, 0x33);
    const std::vector<uint8_t> before = dst.bytes();
    KQYUVMultiPlaneImage out = dst.record(8);
    TestSystem::countdown = n;
    // Kept working memory would spare the call its mapping; it goes back
    // to the system it came from before each switch.
    kqWorkspaceTrim();
    kqAllocSetSystem(&failing);
    const int rc = KQUpScale_ScaleImage(&in, &out, 3, 3, 1.0f, 2, 0);
    kqWorkspaceTrim();
    kqAllocSetSystem(nullptr);
    EXPECT_EQ(rc, 0);
    // Either the call gave up before touching the output, or a later step
    // (a slice table, a team) fell back to running on the calling thread.
    const bool untouched = dst.bytes() == before;
    EXPECT_TRUE(untouched || dst.bytes() == complete) << "allocation " << n;
    untouchedCalls += untouched;
    if (TestSystem::countdown > 0) break;  // this call had no allocation left to fail
    ASSERT_LT(n, 500);
  }
  EXPECT_EQ(untouchedCalls, 1);  // the working block: nothing else precedes the first write
  EXPECT_EQ(kqPoolSlotCount(), 0);
}

// A repeated call of the same sizes works in the memory the previous one
// used; a call of another size replaces it, and the same bytes come out
// either way. A bare warp's small block is kept beside a filtered call's
// large one, so a caller alternating the two maps nothing after the first
// of each.
TEST_F(Pipeline, RepeatedCallsReuseTheirWorkingMemory) {
  const KqYuv src = KqYuv::camera(160, 120, 6);
  kqWorkspaceTrim();
  const KQAllocSystem counting{nullptr, nullptr, TestSystem::map, TestSystem::unmap, nullptr};
  TestSystem::countdown = -1;  // fails nothing
  kqAllocSetSystem(&counting);
  const Settings all{3, 4, 0.6f}, bare{0, 0, 0.0f};
  std::vector<int> mapsPerCall;
  std::vector<std::vector<uint8_t>> results;
  for (const auto& call :
       {std::make_pair(all, 1600), std::make_pair(all, 1600), std::make_pair(bare, 1600),
        std::make_pair(all, 1600), std::make_pair(bare, 1600), std::make_pair(all, 800),
        std::make_pair(all, 800)}) {
    TestSystem::maps = 0;
    results.push_back(run(src, call.second, call.second * 3 / 4, call.first, 2));
    mapsPerCall.push_back(TestSystem::maps);
  }
  kqWorkspaceTrim();
  kqAllocSetSystem(nullptr);
  EXPECT_EQ(mapsPerCall, (std::vector<int>{1, 0, 1, 0, 0, 1, 0}));
  EXPECT_EQ(results[1], results[0]);
  EXPECT_EQ(results[3], results[0]);
  EXPECT_EQ(results[4], results[2]);
  EXPECT_EQ(results[6], results[5]);
  EXPECT_EQ(results[0], run(src, 1600, 1200, all, 2));
}

}  // namespace
