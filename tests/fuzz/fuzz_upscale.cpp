// fuzz_upscale.cpp - libFuzzer target over KQUpScale_ScaleImageFromROI: the
// records, region, strengths, thread count and affinity mask all come from
// the fuzz input; every caller plane sits alone between inaccessible pages,
// and after the call the bytes it must not write are compared.
//
// Input layout (bytes past the end of the input read as 0):
//    0  input format code             1  output format code
//    2  input width                   3  input height
//    4  output width                  5  output height
//    6  input row stride              7  input scanlines
//    8  output row stride             9  output scanlines
//   10  bits 0-3: input luma, input chroma, output luma, output chroma end
//       at their trailing guard page (else they start at the leading one);
//       bits 4-6: null input record, input luma, input chroma pointer
//   11  bits 0-2: null output record, output luma, output chroma pointer;
//       bits 3-4: the output sentinel; bit 7: repeat the call into fresh
//       planes with the thread count of byte 21 and compare every byte
//   12  0: whole image (KQUpScale_ScaleImage); else a region whose
//   13-16 left, top, right and bottom corners follow
//   17  luma noise reduction         18  chroma noise reduction
//   19  sharpening                    20  thread count
//   21  thread count of the repeat    22  affinity mask
//   23- pixel bytes, repeated over the input planes
// Each value byte maps to a small everyday range, its top values to edge
// cases. Calls that would take more than a few milliseconds are skipped.
#include <sched.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>

#include "KQUpScale.h"
#include "runtime/log.h"
#include "support/guarded_buffer.h"
#include "support/log_capture.h"

namespace {

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

// Stops the run with the input that broke a rule (libFuzzer saves it).
#define KQ_FUZZ_CHECK(cond, ...)                          \
  do {                                                    \
    if (!(cond)) {                                        \
      std::fprintf(stderr, "fuzz_upscale: " __VA_ARGS__); \
      std::fprintf(stderr, " (%s)\n", #cond);             \
      std::abort();                                       \
    }                                                     \
  } while (0)

struct Input {
  const uint8_t* data;
  size_t size;
  uint8_t at(size_t i) const { return i < size ? data[i] : 0; }
};

int32_t formatCode(uint8_t b) {
  static const int32_t kCodes[8] = {8, 9, 0, 10, 11, -1, 1000, kMin};
  return kCodes[b % 8];
}

// Sizes 0 .. limit - 1, and the top bytes as edge values.
int32_t side(uint8_t b, int32_t limit) {
  static const int32_t kEdges[8] = {-1, kMin, kMax, 1, 2, 3, 4096, 65536};
  return b >= 0xF8 ? kEdges[b - 0xF8] : b % limit;
}

// Stride or scanlines: the side plus -2 .. 37, or an absolute edge value
// (extents of 2 GiB and more, huge strides over few rows, zero, negative).
int32_t extent(uint8_t b, int32_t sideValue) {
  static const int32_t kEdges[16] = {kMax, 0x40000000, 0x3FFFFFFF, 0x10000, 1 << 20, 0,  kMin, 4096,
                                     63,   64,         65,         4095,    1,       -1, 127,  128};
  if (b >= 0xF0) return kEdges[b - 0xF0];
  return int32_t(uint32_t(int64_t(sideValue) + b % 40 - 2));  // wraps as a caller's int32 would
}

int32_t corner(uint8_t b) {
  static const int32_t kEdges[16] = {-1, kMin, kMax, -2, 0,  1,  2,    3,
                                     4,  5,    7,    8,  -4, -5, 1000, -1000};
  return b >= 0xF0 ? kEdges[b - 0xF0] : int32_t(b) - 8;
}

int32_t strength(uint8_t b) {
  static const int32_t kEdges[16] = {kMin, kMax, -1000, 1000, 255,  256, 65535,   32768,
                                     11,   12,   20,    100,  -100, -11, 1 << 20, -(1 << 20)};
  return b >= 0xF0 ? kEdges[b - 0xF0] : b % 16 - 2;
}

float sharpening(uint8_t b) {
  const float inf = std::numeric_limits<float>::infinity();
  const float kEdges[32] = {
      std::nanf(""), -std::nanf(""), inf,     -inf,   -0.0f,   0.0f,       1e30f, -1e30f,
      3.4e38f,       1e-30f,         -1e-30f, 1e-45f, 4.0f,    8.0f,       16.0f, 31.99f,
      32.0f,         100.0f,         127.99f, 128.0f, 1000.0f, 8388608.0f, -4.0f, -128.0f,
      0.001f,        0.0039f,        0.0040f, 2.0e9f, -2.0e9f, 0.5f,       1.0f,  0.6f};
  return b >= 0xE0 ? kEdges[b - 0xE0] : float(b % 56) / 8.0f - 1.0f;
}

// Mostly a few threads (starting many costs more than a small call); the
// magnitude stops at 40, past the library's cap of 32, so that a regression
// there cannot make one input start thousands.
int32_t threadCount(uint8_t b) {
  static const int32_t kCounts[32] = {0,  1, 2,  3,   4,  -1,  -2, -3,  0,  1,  2,
                                      -1, 1, 2,  0,   1,  5,   8,  -4,  -8, 1,  2,
                                      -2, 3, 16, -16, 32, -32, 33, -33, 40, -40};
  return kCounts[b % 32];
}

int32_t affinity(uint8_t b) {
  static const int32_t kMasks[8] = {0, 0, 1, 2, 3, -1, kMin, kMax};
  return kMasks[b % 8];
}

// The documented refusals of a record's numbers (null records and plane
// pointers are refused too): a side below minSide, a row stride below the
// width, fewer scanlines than rows, a luma plane extent above 2 GiB - 1.
bool recordRefused(const KQYUVMultiPlaneImage& r, int32_t minSide) {
  return r.width < minSide || r.height < minSide || r.yRowStride < r.width ||
         r.yScanlines < r.height || int64_t(r.yRowStride) * r.yScanlines > 0x7FFFFFFF;
}

// A region whose clamped size, cut to multiples of 4, is below 4x4; left
// = -1 is the whole image, which is not cut.
bool regionRefused(const KQYUVMultiPlaneImage& in, int32_t left, int32_t top, int32_t right,
                   int32_t bottom) {
  if (left == -1) return in.width < 4 || in.height < 4;
  const int64_t l = left < 0 ? 0 : left, t = top < 0 ? 0 : top;
  const int64_t r = right >= in.width ? in.width - 1 : right;
  const int64_t b = bottom >= in.height ? in.height - 1 : bottom;
  return (r - l + 1) < 4 || (b - t + 1) < 4;
}

// A record read from the input: format code at byte `type`, width and
// height from `sides` on (below `limit`), row stride and scanlines from
// `extents` on; plane pointers unset.
KQYUVMultiPlaneImage shape(const Input& in, size_t type, size_t sides, size_t extents,
                           int32_t limit) {
  KQYUVMultiPlaneImage r{};
  r.type = formatCode(in.at(type));
  r.width = side(in.at(sides), limit);
  r.height = side(in.at(sides + 1), limit);
  r.yRowStride = r.uRowStride = r.vRowStride = extent(in.at(extents), r.width);
  r.yScanlines = extent(in.at(extents + 1), r.height);
  r.yPixelStride = 1;
  r.uPixelStride = r.vPixelStride = 2;
  return r;
}

// Bytes a record's plane spans as the header states it (0 for a refused
// record with huge or negative numbers: such a call must touch none).
size_t planeBytes(int64_t n, bool refused) {
  return n < 0 || (refused && n > int64_t(KqGuardedBuffer::kFilledLimit)) ? 0 : size_t(n);
}

// A record's two planes, each alone between guard pages, and the record
// pointing at them; a plane pointer the input makes null stays null.
struct Planes {
  KqGuardedBuffer luma, chroma;
  KQYUVMultiPlaneImage record;
  Planes(const KQYUVMultiPlaneImage& r, bool refused, bool lumaAtEnd, bool chromaAtEnd,
         uint8_t sentinel, bool lumaNull, bool chromaNull)
      : luma(planeBytes(int64_t(r.yRowStride) * r.yScanlines, refused), lumaAtEnd, sentinel),
        chroma(planeBytes(int64_t(r.yRowStride) * (r.height / 2), refused), chromaAtEnd, sentinel),
        record(r) {
    record.yData = lumaNull ? nullptr : luma.data();
    record.chromaData = chromaNull ? nullptr : chroma.data();
    record.vData = chromaNull ? nullptr : chroma.data() + 1;
  }
};

// The library's log lines of the current call.
KqLogCapture* gLog = nullptr;
cpu_set_t gAffinity;

// Rows of `width` pixel bytes from the input (from byte `from` on,
// repeated), or a pattern when the input ends before them.
void fillInput(KqGuardedBuffer& plane, int32_t width, int32_t rows, int32_t stride, const Input& in,
               size_t from) {
  if (plane.size() == 0 || width <= 0 || rows <= 0 || stride < width) return;
  const size_t n = in.size > from ? in.size - from : 0;
  size_t k = 0;
  for (int32_t y = 0; y < rows; ++y) {
    uint8_t* row = plane.data() + size_t(y) * size_t(stride);
    for (int32_t x = 0; x < width; ++x, ++k)
      row[x] = n > 0 ? in.data[from + k % n] : uint8_t(x * 7 + y * 13);
  }
}

// The bytes an accepted call must leave or set: luma row padding and bottom
// scanlines untouched (and the whole luma when no luma stage writes it);
// chroma rows of (width & ~1) bytes plus the row padding, filled with 128,
// back to back from the plane's start; nothing after height / 2 of them.
void checkAccepted(const Planes& o, bool lumaWritten) {
  const KQYUVMultiPlaneImage& r = o.record;
  const size_t w = size_t(r.width), stride = size_t(r.yRowStride);
  if (!o.luma.filled()) return;
  for (int32_t y = 0; y < r.yScanlines; ++y) {
    const bool row = y < r.height && lumaWritten;
    KQ_FUZZ_CHECK(o.luma.intact(size_t(y) * stride + (row ? w : 0), row ? stride - w : stride),
                  "luma row %d of %dx%d (stride %zu) was written where it must not be", y, r.width,
                  r.height, stride);
  }
  if (!o.chroma.filled()) return;
  const size_t pad = stride - w, pitch = (w & ~size_t{1}) + pad, rows = size_t(r.height / 2);
  for (size_t y = 0; y < rows; ++y)
    for (size_t x = w & ~size_t{1}; x < pitch; ++x)
      KQ_FUZZ_CHECK(o.chroma.data()[y * pitch + x] == 128,
                    "chroma padding byte %zu of row %zu is not 128", x, y);
  KQ_FUZZ_CHECK(o.chroma.intact(rows * pitch, rows * (stride - pitch)),
                "chroma written past its height / 2 rows at pitch %zu", pitch);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  static KqLogCapture log;
  gLog = &log;
  sched_getaffinity(0, sizeof gAffinity, &gAffinity);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Input in{data, size};
  const uint8_t placement = in.at(10), outFlags = in.at(11);
  const KQYUVMultiPlaneImage src = shape(in, 0, 2, 6, 66), dst = shape(in, 1, 4, 8, 130);
  const bool srcNull = placement & 0x10, dstNull = outFlags & 1;
  const bool srcLumaNull = placement & 0x20, srcChromaNull = placement & 0x40;
  const bool dstLumaNull = outFlags & 2, dstChromaNull = outFlags & 4;

  const bool whole = in.at(12) == 0;
  const int32_t left = whole ? -1 : corner(in.at(13)), top = whole ? -1 : corner(in.at(14));
  const int32_t right = whole ? -1 : corner(in.at(15)), bottom = whole ? -1 : corner(in.at(16));
  const int32_t nr = strength(in.at(17)), cnr = strength(in.at(18));
  const float sharp = sharpening(in.at(19));
  const int32_t threads = threadCount(in.at(20)), threads2 = threadCount(in.at(21));
  const int32_t mask = affinity(in.at(22));

  const bool srcRefused = srcNull || srcLumaNull || srcChromaNull || recordRefused(src, 1);
  const bool dstRefused = dstNull || dstLumaNull || dstChromaNull || recordRefused(dst, 2);
  const bool refused = srcRefused || dstRefused || regionRefused(src, left, top, right, bottom);
  // Keep every accepted call small: a megapixel of input and half a
  // megapixel of output at most.
  if (!srcRefused && int64_t(src.width) * src.height > (1 << 20)) return -1;
  if (!dstRefused &&
      (int64_t(dst.width) * dst.height > (1 << 19) ||
       int64_t(dst.yRowStride) * dst.yScanlines > int64_t(KqGuardedBuffer::kFilledLimit)))
    return -1;

  Planes input(src, srcRefused, placement & 1, placement & 2, 0, srcLumaNull, srcChromaNull);
  if (!srcRefused) {
    fillInput(input.luma, src.width, src.height, src.yRowStride, in, 23);
    fillInput(input.chroma, src.width, src.height / 2, src.yRowStride, in, 23 + 97);
  }
  input.luma.readOnly();
  input.chroma.readOnly();

  static const uint8_t kSentinels[4] = {0xA5, 0x00, 0xFF, 0x80};
  const uint8_t sentinel = kSentinels[(outFlags >> 3) & 3];
  auto output = [&] {
    return Planes(dst, dstRefused, placement & 4, placement & 8, sentinel, dstLumaNull,
                  dstChromaNull);
  };

  struct Result {
    bool refused;
    std::string last;
  };
  auto call = [&](const KQYUVMultiPlaneImage* record, int32_t n) {
    gLog->clear();
    const KQYUVMultiPlaneImage* source = srcNull ? nullptr : &input.record;
    const int32_t rc = whole ? KQUpScale_ScaleImage(source, record, nr, cnr, sharp, n, mask)
                             : KQUpScale_ScaleImageFromROI(source, record, left, top, right, bottom,
                                                           nr, cnr, sharp, n, mask);
    sched_setaffinity(0, sizeof gAffinity, &gAffinity);
    KQ_FUZZ_CHECK(rc == 0, "the call returned %d", int(rc));
    Result r{false, ""};
    for (const KqLogLine& line : gLog->lines())
      if (line.priority == KQ_LOG_ERROR) {
        r.last = line.message;
        r.refused = r.refused || line.message.find("nothing written") != std::string::npos;
      }
    return r;
  };
  const Planes out = output();
  const Result first = call(dstNull ? nullptr : &out.record, threads);

  KQ_FUZZ_CHECK(out.luma.slackIntact() && out.chroma.slackIntact(),
                "bytes beside the output planes were written");
  if (refused) {
    KQ_FUZZ_CHECK(first.refused, "a call the header refuses went ahead (%s)", first.last.c_str());
  } else if (first.refused) {
    // The only refusal that the numbers above do not predict: a region and
    // output whose aspect ratios leave under 4x4 source pixels.
    KQ_FUZZ_CHECK(first.last.find("aspect") != std::string::npos, "unexpected refusal: %s",
                  first.last.c_str());
  }
  if (first.refused) {
    KQ_FUZZ_CHECK(out.luma.intact(0, out.luma.size()) && out.chroma.intact(0, out.chroma.size()),
                  "a refused call wrote into the output (%s)", first.last.c_str());
    return 0;
  }
  // Sharpening below 0 or NaN with the noise filter off: no luma stage runs.
  checkAccepted(out, nr > 0 || sharp >= 0.0f);

  if (outFlags & 0x80) {
    const Planes again = output();
    call(&again.record, threads2);
    KQ_FUZZ_CHECK(std::memcmp(again.luma.data(), out.luma.data(), out.luma.size()) == 0 &&
                      std::memcmp(again.chroma.data(), out.chroma.data(), out.chroma.size()) == 0,
                  "threads %d and %d gave different bytes", int(threads), int(threads2));
  }
  return 0;
}
