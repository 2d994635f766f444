// binding_call.h - what the Python and Java bindings share: the checks that
// turn a call the library would refuse (or could not be handed) into a
// reason before anything runs, and the call itself, which hands planes the
// library's record cannot describe over through scratch planes.
#pragma once

#include <cstdint>
#include <string>

namespace kqbind {

// One plane of samples as the caller holds it: `data` points at sample
// (0, 0), samples lie `pixelStride` bytes apart and rows `rowStride` bytes
// apart, and `bytes` bytes from `data` on belong to the caller (NumPy: the
// array's extent; Java: the buffer's remaining bytes).
struct Plane {
  uint8_t* data = nullptr;
  int64_t rowStride = 0;
  int64_t pixelStride = 0;
  int64_t bytes = 0;
};

// A 4:2:0 frame: `width` x `height` luma samples and, in U and V,
// (width / 2) x (height / 2) samples each. Interleaved chroma is two planes
// one byte apart with pixel stride 2; whichever starts first decides the
// byte order (U first: NV12, V first: NV21).
struct Frame {
  int64_t width = 0;
  int64_t height = 0;
  Plane y, u, v;
};

// The part of the input to enlarge: x, y, width, height in luma pixels.
struct Region {
  bool whole = true;
  int64_t x = 0, y = 0, width = 0, height = 0;
};

struct Settings {
  int32_t noiseReduction = 3;
  int32_t chromaNoiseReduction = 4;
  float sharpening = 0.6f;
  int32_t threads = 0;
};

// Why an output of this size cannot be made (below 2x2, or a luma plane
// of 2 GiB or more when rows are packed), or an empty string: for the
// bindings that allocate the output themselves, before they do.
std::string checkOutputSize(int64_t width, int64_t height);

// Why this call cannot run, or an empty string when it can: everything the
// library refuses (it would log a line and write nothing), planes that do
// not hold the samples their strides promise, and what the bindings do not
// pass on (negative or NaN sharpening, which leaves the output's luma as it
// was, and output luma sharing bytes with the output chroma). Reads no
// sample.
std::string checkCall(const Frame& in, const Frame& out, const Region& region,
                      const Settings& settings);

// Runs a call that checkCall accepted. Luma goes to the library where it
// lies. Chroma does too when it is interleaved at the luma's row stride
// and, for the output, has an even width and room for the rows the
// library writes (each row's padding filled with 128); other chroma goes
// through a scratch plane at the luma row stride, copied in before and
// copied out after the call, which writes only the caller's samples. An
// odd region x is passed with the other byte order, so that U stays U.
// Throws std::bad_alloc when a scratch plane cannot be had.
void runCall(const Frame& in, const Frame& out, const Region& region, const Settings& settings);

}  // namespace kqbind
