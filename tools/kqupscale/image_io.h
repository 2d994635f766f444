// image_io.h - file formats of the command-line tool: PNG, JPEG and raw
// NV12/NV21 in, the same out, with RGB <-> YUV conversion through libyuv.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// A failure the tool reports as one line and a non-zero exit.
struct ToolError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Packed two-plane 4:2:0 image: luma rows of `stride` bytes, then height / 2
// interleaved chroma rows of `stride` bytes (U,V for NV12, V,U for NV21).
struct Nv21Image {
  int width = 0;
  int height = 0;
  int stride = 0;
  bool nv12 = false;
  std::vector<uint8_t> data;
  uint8_t* y() { return data.data(); }
  uint8_t* uv() { return data.data() + size_t(stride) * height; }
  const uint8_t* y() const { return data.data(); }
  const uint8_t* uv() const { return data.data() + size_t(stride) * height; }
};

// 8-bit RGBA, 4 bytes per pixel, rows packed.
struct RgbaImage {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> pixels;
};

enum class FileKind { kPng, kJpeg, kRaw, kUnknown };

// By extension: .png, .jpg/.jpeg, .yuv/.nv12/.nv21/.raw.
FileKind kindFromExtension(const std::string& path);

// Decoders. A truncated or damaged file is a ToolError, never a partly grey
// picture. JPEG: grey, RGB, YCbCr and CMYK/YCCK (converted to RGB without a
// colour profile; Adobe's inverted CMYK is recognised by its marker).
RgbaImage readPng(const std::string& path);
RgbaImage readJpeg(const std::string& path);
// Raw NV12/NV21 of the given size and row stride; the file length must match.
Nv21Image readRaw(const std::string& path, int width, int height, int stride, bool nv12);

// Bytes of a PNG / JPEG file (for writeFileAtomically).
std::vector<uint8_t> encodePng(const RgbaImage& image);
std::vector<uint8_t> encodeJpeg(const RgbaImage& image, int quality);

// Writes to a temporary name beside `path`, then renames it into place, so
// that a failed write never leaves a partial file behind.
void writeFileAtomically(const std::string& path, const std::vector<uint8_t>& bytes);

// Colour conversion through libyuv: BT.601 matrix, limited range (luma
// 16-235, chroma 16-240), as camera NV21 is. 4:2:0 needs even sizes, so an
// odd-sized picture gets its last column / row repeated (rgbaToNv's result
// is then one pixel wider or taller than `rgba`).
Nv21Image rgbaToNv(const RgbaImage& rgba, bool nv12);
RgbaImage nvToRgba(const Nv21Image& nv);

// Raw bytes of an image as NV12/NV21 with stride = width.
std::vector<uint8_t> packRaw(const Nv21Image& image);
