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
// Each value byte maps to a small everyday range, and its top values to
// edge cases (negative, zero, huge, NaN, infinities). Calls whose valid
// records would take more than a few milliseconds are skipped (return -1),
// so that the target keeps running many inputs per second.
#include <sched.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <string>

#include "KQUpScale.h"
#include "fuzz/guarded_plane.h"
#include "runtime/log.h"

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

// Negative counts start |n| fresh threads per parallel step and positive
// ones size the pool; most inputs take a few threads, since starting many
// costs more than the rest of a small call. The library caps both forms at
// 32 threads; the magnitude is capped here too (at 40, past the library's
// cap) so that a regression there cannot make one input start thousands.
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

// The documented refusals of a record: null record or plane pointer, a side
// below minSide, a row stride below the width, fewer scanlines than rows, a
// luma plane extent above 2 GiB - 1.
bool recordRefused(const KQYUVMultiPlaneImage* r, int32_t minSide) {
  return r == nullptr || r->yData == nullptr || r->chromaData == nullptr || r->width < minSide ||
         r->height < minSide || r->yRowStride < r->width || r->yScanlines < r->height ||
         int64_t(r->yRowStride) * r->yScanlines > 0x7FFFFFFF;
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

// Bytes a record's planes span as the header states them: yRowStride *
// yScanlines of luma, height / 2 rows of yRowStride of chroma (0 when the
// record is refused and its numbers mean nothing, or when they are huge:
// a refused call must touch none of its bytes anyway).
struct PlaneSizes {
  size_t luma, chroma;
};
PlaneSizes planeSizes(const KQYUVMultiPlaneImage& r, bool refused) {
  const int64_t luma = int64_t(r.yRowStride) * r.yScanlines;
  const int64_t chroma = int64_t(r.yRowStride) * (r.height / 2);
  auto fit = [refused](int64_t n) {
    if (n < 0 || (refused && n > int64_t(KqGuardedPlane::kFilledLimit))) return size_t{0};
    return size_t(n);
  };
  return {fit(luma), fit(chroma)};
}

// What the library logged during the current call.
struct Log {
  std::mutex mutex;
  bool refused = false;
  std::string last;  // the last error line
  static void sink(void* user, FILE*, int32_t priority, const char*, const char* message) {
    Log* log = static_cast<Log*>(user);
    std::lock_guard<std::mutex> lock(log->mutex);
    if (priority != KQ_LOG_ERROR) return;
    log->last = message;
    if (std::strstr(message, "nothing written") != nullptr) log->refused = true;
  }
};
Log gLog;
cpu_set_t gAffinity;

void fillInput(KqGuardedPlane& plane, int32_t width, int32_t rows, int32_t stride, const Input& in,
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

struct Output {
  std::unique_ptr<KqGuardedPlane> luma, chroma;
  KQYUVMultiPlaneImage record;
};

Output makeOutput(const KQYUVMultiPlaneImage& shape, bool refused, uint8_t placement,
                  uint8_t sentinel) {
  Output o;
  const PlaneSizes s = planeSizes(shape, refused);
  o.luma.reset(new KqGuardedPlane(s.luma, placement & 4, sentinel));
  o.chroma.reset(new KqGuardedPlane(s.chroma, placement & 8, sentinel));
  o.record = shape;
  o.record.yData = shape.yData != nullptr ? o.luma->data() : nullptr;
  o.record.chromaData = shape.chromaData != nullptr ? o.chroma->data() : nullptr;
  o.record.vData = o.record.chromaData != nullptr ? o.record.chromaData + 1 : nullptr;
  return o;
}

// The bytes an accepted call must leave or set: luma row padding and bottom
// scanlines untouched (and the whole luma when no luma stage writes it);
// chroma rows of (width & ~1) bytes plus the row padding, filled with 128,
// back to back from the plane's start; nothing after height / 2 of them.
void checkAccepted(const Output& o, bool lumaWritten) {
  const KQYUVMultiPlaneImage& r = o.record;
  const size_t w = size_t(r.width), stride = size_t(r.yRowStride);
  if (!o.luma->filled()) return;
  for (int32_t y = 0; y < r.yScanlines; ++y) {
    const bool row = y < r.height && lumaWritten;
    KQ_FUZZ_CHECK(o.luma->intact(size_t(y) * stride + (row ? w : 0), row ? stride - w : stride),
                  "luma row %d of %dx%d (stride %zu) was written where it must not be", y, r.width,
                  r.height, stride);
  }
  if (!o.chroma->filled()) return;
  const size_t pad = stride - w, pitch = (w & ~size_t{1}) + pad, rows = size_t(r.height / 2);
  for (size_t y = 0; y < rows; ++y)
    for (size_t x = w & ~size_t{1}; x < pitch; ++x)
      KQ_FUZZ_CHECK(o.chroma->data()[y * pitch + x] == 128,
                    "chroma padding byte %zu of row %zu is not 128", x, y);
  KQ_FUZZ_CHECK(o.chroma->intact(rows * pitch, rows * (stride - pitch)),
                "chroma written past its height / 2 rows at pitch %zu", pitch);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kqLogSetSink(&Log::sink, &gLog);
  sched_getaffinity(0, sizeof gAffinity, &gAffinity);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Input in{data, size};
  const uint8_t placement = in.at(10), outFlags = in.at(11);

  KQYUVMultiPlaneImage src{};
  src.type = formatCode(in.at(0));
  src.width = side(in.at(2), 66);
  src.height = side(in.at(3), 66);
  src.yRowStride = extent(in.at(6), src.width);
  src.yScanlines = extent(in.at(7), src.height);
  src.yPixelStride = 1;
  src.uPixelStride = src.vPixelStride = 2;
  src.uRowStride = src.vRowStride = src.yRowStride;
  KQYUVMultiPlaneImage dst = src;
  dst.type = formatCode(in.at(1));
  dst.width = side(in.at(4), 130);
  dst.height = side(in.at(5), 130);
  dst.yRowStride = extent(in.at(8), dst.width);
  dst.yScanlines = extent(in.at(9), dst.height);
  dst.uRowStride = dst.vRowStride = dst.yRowStride;
  // Non-null markers; the real pointers are set once the planes exist.
  uint8_t marker = 0;
  src.yData = (placement & 0x20) ? nullptr : &marker;
  src.chromaData = (placement & 0x40) ? nullptr : &marker;
  dst.yData = (outFlags & 2) ? nullptr : &marker;
  dst.chromaData = (outFlags & 4) ? nullptr : &marker;
  const bool srcNull = placement & 0x10, dstNull = outFlags & 1;

  const bool whole = in.at(12) == 0;
  const int32_t left = whole ? -1 : corner(in.at(13)), top = whole ? -1 : corner(in.at(14));
  const int32_t right = whole ? -1 : corner(in.at(15)), bottom = whole ? -1 : corner(in.at(16));
  const int32_t nr = strength(in.at(17)), cnr = strength(in.at(18));
  const float sharp = sharpening(in.at(19));
  const int32_t threads = threadCount(in.at(20)), threads2 = threadCount(in.at(21));
  const int32_t mask = affinity(in.at(22));

  const bool srcRefused = srcNull || recordRefused(&src, 1);
  const bool dstRefused = dstNull || recordRefused(&dst, 2);
  const bool refused = srcRefused || dstRefused || regionRefused(src, left, top, right, bottom);
  // Keep every accepted call small: a megapixel of input and half a
  // megapixel of output at most.
  if (!srcRefused && int64_t(src.width) * src.height > (1 << 20)) return -1;
  if (!dstRefused &&
      (int64_t(dst.width) * dst.height > (1 << 19) ||
       int64_t(dst.yRowStride) * dst.yScanlines > int64_t(KqGuardedPlane::kFilledLimit)))
    return -1;

  const PlaneSizes inSizes = planeSizes(src, srcRefused);
  KqGuardedPlane inLuma(inSizes.luma, placement & 1, 0);
  KqGuardedPlane inChroma(inSizes.chroma, placement & 2, 0);
  if (!srcRefused) {
    fillInput(inLuma, src.width, src.height, src.yRowStride, in, 23);
    fillInput(inChroma, src.width, src.height / 2, src.yRowStride, in, 23 + 97);
  }
  inLuma.readOnly();
  inChroma.readOnly();
  if (src.yData != nullptr) src.yData = inLuma.data();
  if (src.chromaData != nullptr) src.chromaData = inChroma.data();
  src.vData = src.chromaData != nullptr ? src.chromaData + 1 : nullptr;

  static const uint8_t kSentinels[4] = {0xA5, 0x00, 0xFF, 0x80};
  const uint8_t sentinel = kSentinels[(outFlags >> 3) & 3];
  Output out = makeOutput(dst, dstRefused, placement, sentinel);

  struct Result {
    bool refused;
    std::string last;
  };
  auto call = [&](const KQYUVMultiPlaneImage* record, int32_t n) {
    {
      std::lock_guard<std::mutex> lock(gLog.mutex);
      gLog.refused = false;
      gLog.last.clear();
    }
    const KQYUVMultiPlaneImage* source = srcNull ? nullptr : &src;
    const int32_t rc = whole ? KQUpScale_ScaleImage(source, record, nr, cnr, sharp, n, mask)
                             : KQUpScale_ScaleImageFromROI(source, record, left, top, right, bottom,
                                                           nr, cnr, sharp, n, mask);
    sched_setaffinity(0, sizeof gAffinity, &gAffinity);
    KQ_FUZZ_CHECK(rc == 0, "the call returned %d", int(rc));
    std::lock_guard<std::mutex> lock(gLog.mutex);
    return Result{gLog.refused, gLog.last};
  };
  const Result first = call(dstNull ? nullptr : &out.record, threads);

  KQ_FUZZ_CHECK(out.luma->slackIntact() && out.chroma->slackIntact(),
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
    KQ_FUZZ_CHECK(
        out.luma->intact(0, out.luma->size()) && out.chroma->intact(0, out.chroma->size()),
        "a refused call wrote into the output (%s)", first.last.c_str());
    return 0;
  }
  // Sharpening below 0 or NaN with the noise filter off: no luma stage runs.
  checkAccepted(out, nr > 0 || sharp >= 0.0f);

  if (outFlags & 0x80) {
    Output again = makeOutput(dst, dstRefused, placement, sentinel);
    call(&again.record, threads2);
    KQ_FUZZ_CHECK(
        std::memcmp(again.luma->data(), out.luma->data(), out.luma->size()) == 0 &&
            std::memcmp(again.chroma->data(), out.chroma->data(), out.chroma->size()) == 0,
        "threads %d and %d gave different bytes", int(threads), int(threads2));
  }
  return 0;
}
