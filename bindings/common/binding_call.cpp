// binding_call.cpp - checks and plane hand-over shared by the Python and Java
// bindings; the library is reached only through its exported functions.
#include "binding_call.h"

#include <KQUpScale.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

namespace kqbind {
namespace {

// Format codes of the record: U,V byte order (NV12) and V,U order (NV21).
constexpr int32_t kNv12 = 9;
constexpr int32_t kNv21 = 8;
// The library refuses planes of 2 GiB or more (row stride times rows).
constexpr int64_t kLargestPlane = 0x7FFFFFFF;
// The smallest image or region the library enlarges, and the smallest output.
constexpr int64_t kMinInputSide = 4;
constexpr int64_t kMinOutputSide = 2;

std::string size(int64_t w, int64_t h) { return std::to_string(w) + "x" + std::to_string(h); }

// A plane of one row has no row stride to honour.
int64_t rowStrideOf(const Plane& p, int64_t rows, int64_t rowBytes) {
  return rows > 1 ? p.rowStride : rowBytes;
}

// Bytes from a plane's first sample to one past its last.
int64_t planeSpan(const Plane& p, int64_t w, int64_t h) {
  if (w < 1 || h < 1) return 0;
  return (h - 1) * rowStrideOf(p, h, (w - 1) * p.pixelStride + 1) + (w - 1) * p.pixelStride + 1;
}

std::string checkPlane(const std::string& name, const Plane& p, int64_t w, int64_t h, bool luma) {
  if (w < 1 || h < 1) return {};
  if (p.data == nullptr) return name + " plane is missing";
  if (luma && p.pixelStride != 1)
    return name + " samples must be 1 byte apart, pixel stride is " + std::to_string(p.pixelStride);
  if (p.pixelStride < 1 || p.pixelStride > kLargestPlane)
    return name + " pixel stride is " + std::to_string(p.pixelStride) +
           ", must be at least 1 and below 2 GiB";
  const int64_t rowBytes = (w - 1) * p.pixelStride + 1;
  if (h > 1 && p.rowStride < rowBytes)
    return name + " row stride " + std::to_string(p.rowStride) + " is below the " +
           std::to_string(rowBytes) + " bytes of a row of " + std::to_string(w) + " samples";
  // The largest plane the library takes bounds every product below.
  if (h > 1 && p.rowStride > kLargestPlane)
    return name + " row stride " + std::to_string(p.rowStride) + " is 2 GiB or more";
  const int64_t need = planeSpan(p, w, h);
  if (p.bytes < need)
    return name + " plane holds " + std::to_string(p.bytes) + " bytes, needs " +
           std::to_string(need) + " for " + size(w, h) + " samples at row stride " +
           std::to_string(rowStrideOf(p, h, rowBytes)) + " and pixel stride " +
           std::to_string(p.pixelStride);
  return {};
}

// The luma row stride the record carries for a frame.
int64_t lumaRowStride(const Frame& f) { return rowStrideOf(f.y, f.height, f.width); }

std::string checkFrame(const std::string& which, const Frame& f) {
  std::string problem = checkPlane(which + " luma", f.y, f.width, f.height, true);
  if (problem.empty()) problem = checkPlane(which + " U", f.u, f.width / 2, f.height / 2, false);
  if (problem.empty()) problem = checkPlane(which + " V", f.v, f.width / 2, f.height / 2, false);
  if (!problem.empty()) return problem;
  if (lumaRowStride(f) * f.height > kLargestPlane)
    return which + " luma plane (row stride " + std::to_string(lumaRowStride(f)) + " x " +
           std::to_string(f.height) + " rows) is 2 GiB or more";
  return {};
}

// The earlier of the two chroma planes when U and V are one interleaved
// plane (pixel stride 2, one byte apart, same row stride), else null.
const Plane* interleavedFirst(const Frame& f) {
  const Plane &u = f.u, &v = f.v;
  if (u.pixelStride != 2 || v.pixelStride != 2) return nullptr;
  if (f.height / 2 > 1 && u.rowStride != v.rowStride) return nullptr;
  if (u.data + 1 == v.data) return &u;
  if (v.data + 1 == u.data) return &v;
  return nullptr;
}

// Whether the library can read the chroma where it lies: interleaved at the
// luma row stride, which the record gives both planes.
bool chromaAtLumaStride(const Frame& f) {
  const Plane* first = interleavedFirst(f);
  return first != nullptr && (f.height / 2 <= 1 || first->rowStride == lumaRowStride(f));
}

// Whether the library can write the output's chroma where it lies: as
// above, with an even width (an odd one packs the rows one byte closer) and
// the whole of every row, padding included, in the caller's bytes.
bool outputChromaDirect(const Frame& f) {
  return chromaAtLumaStride(f) && f.width % 2 == 0 &&
         interleavedFirst(f)->bytes >= (f.height / 2) * lumaRowStride(f);
}

// Bytes of the output chroma the library may write, as [begin, end).
void outputChromaRange(const Frame& f, const Plane& p, uintptr_t* begin, uintptr_t* end) {
  const Plane* first = outputChromaDirect(f) ? interleavedFirst(f) : nullptr;
  *begin = reinterpret_cast<uintptr_t>(first ? first->data : p.data);
  *end = *begin + size_t(first ? (f.height / 2) * lumaRowStride(f)
                               : planeSpan(p, f.width / 2, f.height / 2));
}

bool lumaMeetsChroma(const Frame& f) {
  const uintptr_t y = reinterpret_cast<uintptr_t>(f.y.data);
  const uintptr_t yEnd = y + size_t(planeSpan(f.y, f.width, f.height));
  for (const Plane* p : {&f.u, &f.v}) {
    uintptr_t begin, end;
    outputChromaRange(f, *p, &begin, &end);
    if (begin < yEnd && y < end) return true;
  }
  return false;
}

// Float to int truncation that saturates, as the library converts.
int32_t truncToInt(float v) {
  if (!(v == v)) return 0;
  if (v >= 2147483520.0f) return INT32_MAX;
  if (v <= -2147483648.0f) return INT32_MIN;
  return static_cast<int32_t>(v);
}

// The part of a work region the library enlarges: cut at the right or the
// bottom to the output's aspect ratio, the cut side rounded down to even.
// The same single-precision steps as the library, so that the two agree
// on every size.
void fitToAspect(int32_t srcW, int32_t srcH, int32_t dstW, int32_t dstH, int32_t* w, int32_t* h) {
  const float rSrc = float(srcW) / float(srcH);
  const float rDst = float(dstW) / float(dstH);
  if (rSrc < rDst) {
    srcH = truncToInt(float(srcW) / rDst) & ~1;
  } else if (rSrc > rDst) {
    srcW = truncToInt(rDst * float(srcH)) & ~1;
  }
  *w = srcW;
  *h = srcH;
}

KQYUVMultiPlaneImage lumaRecord(const Frame& f) {
  KQYUVMultiPlaneImage r{};
  const int32_t stride = int32_t(lumaRowStride(f));
  r.width = int32_t(f.width);
  r.height = int32_t(f.height);
  r.yPixelStride = 1;
  r.yRowStride = stride;
  r.yScanlines = int32_t(f.height);
  r.uPixelStride = r.vPixelStride = 2;
  r.uRowStride = r.vRowStride = stride;
  r.yData = f.y.data;
  return r;
}

void setChroma(KQYUVMultiPlaneImage* r, uint8_t* first, int32_t type) {
  r->type = type;
  r->chromaData = first;
  r->vData = type == kNv12 ? first + 1 : first;
}

// Copies a frame's chroma into `scratch` as interleaved rows of `stride`
// bytes; returns the byte order it used.
int32_t gatherChroma(const Frame& f, uint8_t* scratch, size_t stride) {
  const int64_t w2 = f.width / 2, h2 = f.height / 2;
  if (const Plane* first = interleavedFirst(f)) {
    for (int64_t r = 0; r < h2; ++r)
      std::memcpy(scratch + size_t(r) * stride, first->data + r * first->rowStride, size_t(2 * w2));
    return first == &f.u ? kNv12 : kNv21;
  }
  for (int64_t r = 0; r < h2; ++r) {
    uint8_t* row = scratch + size_t(r) * stride;
    const uint8_t* u = f.u.data + r * f.u.rowStride;
    const uint8_t* v = f.v.data + r * f.v.rowStride;
    for (int64_t i = 0; i < w2; ++i) {
      row[2 * i] = u[i * f.u.pixelStride];
      row[2 * i + 1] = v[i * f.v.pixelStride];
    }
  }
  return kNv12;
}

// Copies the U,V pairs the library wrote into `scratch` to the frame's
// chroma planes. Rows lie `pitch` bytes apart there: the row stride, or one
// byte less for an odd width (the header's output chroma layout).
void scatterChroma(const Frame& f, const uint8_t* scratch, size_t pitch) {
  const int64_t w2 = f.width / 2, h2 = f.height / 2;
  for (int64_t r = 0; r < h2; ++r) {
    const uint8_t* row = scratch + size_t(r) * pitch;
    uint8_t* u = f.u.data + r * f.u.rowStride;
    uint8_t* v = f.v.data + r * f.v.rowStride;
    for (int64_t i = 0; i < w2; ++i) {
      u[i * f.u.pixelStride] = row[2 * i];
      v[i * f.v.pixelStride] = row[2 * i + 1];
    }
  }
}

}  // namespace

std::string checkOutputSize(int64_t width, int64_t height) {
  if (width < kMinOutputSide || height < kMinOutputSide)
    return "output size " + size(width, height) + " is below 2x2";
  if (width > kLargestPlane || height > kLargestPlane || width * height > kLargestPlane)
    return "output size " + size(width, height) + " makes a luma plane of 2 GiB or more";
  return {};
}

std::string checkCall(const Frame& in, const Frame& out, const Region& region,
                      const Settings& settings) {
  if (in.width < 1 || in.height < 1)
    return "input image is empty (" + size(in.width, in.height) + ")";
  if (in.width > INT32_MAX || in.height > INT32_MAX)
    return "input image " + size(in.width, in.height) + " is too large";
  int64_t workW = in.width, workH = in.height;
  if (!region.whole) {
    if (region.x < 0 || region.y < 0 || region.width < 1 || region.height < 1 ||
        region.width > in.width - region.x || region.height > in.height - region.y)
      return "region (x " + std::to_string(region.x) + ", y " + std::to_string(region.y) + ", " +
             size(region.width, region.height) + ") does not lie inside the " +
             size(in.width, in.height) + " input";
    // The library rounds a region's sides down to multiples of 4.
    workW = region.width & ~int64_t{3};
    workH = region.height & ~int64_t{3};
    if (workW < kMinInputSide || workH < kMinInputSide)
      return "region " + size(region.width, region.height) +
             " is smaller than 4x4 pixels once its sides are rounded down to multiples of 4";
  } else if (workW < kMinInputSide || workH < kMinInputSide) {
    return "input image " + size(in.width, in.height) + " is smaller than 4x4 pixels";
  }
  if (std::string problem = checkOutputSize(out.width, out.height); !problem.empty())
    return problem;

  std::string problem = checkFrame("input", in);
  if (problem.empty()) problem = checkFrame("output", out);
  if (!problem.empty()) return problem;
  if (lumaMeetsChroma(out)) return "output luma and chroma planes share bytes";

  int32_t fitW = 0, fitH = 0;
  fitToAspect(int32_t(workW), int32_t(workH), int32_t(out.width), int32_t(out.height), &fitW,
              &fitH);
  if (fitW < kMinInputSide || fitH < kMinInputSide)
    return (region.whole ? "input " : "region ") + size(workW, workH) +
           " cut to the aspect ratio of the " + size(out.width, out.height) + " output keeps " +
           size(fitW, fitH) + " pixels, less than 4x4";

  if (std::isnan(settings.sharpening) || settings.sharpening < 0.0f)
    return "sharpening must be 0 or more (0 switches it off), got " +
           std::to_string(settings.sharpening);
  return {};
}

void runCall(const Frame& in, const Frame& out, const Region& region, const Settings& settings) {
  KQYUVMultiPlaneImage src = lumaRecord(in);
  KQYUVMultiPlaneImage dst = lumaRecord(out);

  std::vector<uint8_t> inScratch;
  if (chromaAtLumaStride(in)) {
    const Plane* first = interleavedFirst(in);
    setChroma(&src, first->data, first == &in.u ? kNv12 : kNv21);
  } else {
    inScratch.resize(size_t(in.height / 2) * size_t(src.yRowStride));
    const int32_t type = gatherChroma(in, inScratch.data(), size_t(src.yRowStride));
    setChroma(&src, inScratch.data(), type);
  }

  std::vector<uint8_t> outScratch;
  const bool outDirect = outputChromaDirect(out);
  if (outDirect) {
    const Plane* first = interleavedFirst(out);
    setChroma(&dst, first->data, first == &out.u ? kNv12 : kNv21);
  } else {
    outScratch.resize(size_t(out.height / 2) * size_t(dst.yRowStride));
    setChroma(&dst, outScratch.data(), kNv12);
  }

  int32_t left = -1, top = -1, right = -1, bottom = -1;
  if (!region.whole) {
    left = int32_t(region.x);
    top = int32_t(region.y);
    right = int32_t(region.x + region.width - 1);
    bottom = int32_t(region.y + region.height - 1);
    // An odd left edge starts the chroma on the second byte of a pair, which
    // the library reads with U and V exchanged; telling it the other order
    // keeps U as U (each U then comes from the pair left of the V).
    if (left % 2 != 0) src.type = src.type == kNv12 ? kNv21 : kNv12;
  }

  KQUpScale_ScaleImageFromROI(&src, &dst, left, top, right, bottom, settings.noiseReduction,
                              settings.chromaNoiseReduction, settings.sharpening, settings.threads,
                              0);

  if (!outDirect) {
    const size_t stride = size_t(dst.yRowStride);
    const size_t pitch = out.width % 2 == 0 ? stride : stride - 1;
    scatterChroma(out, outScratch.data(), pitch);
  }
}

}  // namespace kqbind
