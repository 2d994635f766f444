// image_io.cpp - PNG (libpng), JPEG (libjpeg-turbo) and raw file handling.
#include "image_io.h"

#include <jpeglib.h>
// jerror.h after jpeglib.h: the JWRN_ codes of the warnings.
#include <jerror.h>
#include <libyuv.h>
#include <png.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>

namespace {

std::string lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::vector<uint8_t> readWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ToolError("cannot read '" + path + "': " + std::strerror(errno));
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
  if (in.bad()) throw ToolError("cannot read '" + path + "'");
  return bytes;
}

// Pixels a compressed file of `bytes` bytes can hold at most: deflate
// expands at most 1032 times and a PNG pixel takes at least one bit (8256
// pixels per byte); a baseline JPEG block takes at least two bits (256
// pixels per byte), and arithmetic coding of a flat picture can do far
// better, so JPEG gets a wide margin.
constexpr uint64_t kPngPixelsPerByte = 8256;
constexpr uint64_t kJpegPixelsPerByte = 65536;

// Refuses an image size that is absurd, or (when pixelsPerByte is not 0)
// more than a compressed file of `bytes` bytes can hold. Checked before the
// pixel buffer is allocated, so that a small file claiming a huge size is
// refused instead of making the reader zero gigabytes.
void checkDecodedSize(const std::string& path, uint64_t width, uint64_t height, size_t bytes = 0,
                      uint64_t pixelsPerByte = 0) {
  if (width == 0 || height == 0 || width > 65535 || height > 65535 || width * height > (1u << 28))
    throw ToolError("'" + path + "' has an unsupported image size " + std::to_string(width) + "x" +
                    std::to_string(height));
  if (pixelsPerByte != 0 && width * height > uint64_t(bytes) * pixelsPerByte + (uint64_t{1} << 16))
    throw ToolError("'" + path + "' claims " + std::to_string(width) + "x" +
                    std::to_string(height) + " pixels, more than its " + std::to_string(bytes) +
                    " bytes can hold (truncated or corrupt)");
}

struct PngReadState {
  const std::vector<uint8_t>* bytes;
  size_t offset;
};

void pngReadFromMemory(png_structp png, png_bytep out, png_size_t n) {
  auto* st = static_cast<PngReadState*>(png_get_io_ptr(png));
  if (st->offset + n > st->bytes->size()) png_error(png, "truncated file");
  std::memcpy(out, st->bytes->data() + st->offset, n);
  st->offset += n;
}

void pngError(png_structp png, png_const_charp message) {
  auto* text = static_cast<std::string*>(png_get_error_ptr(png));
  *text = message;
  png_longjmp(png, 1);
}

void pngWarning(png_structp, png_const_charp) {}

struct JpegError {
  jpeg_error_mgr mgr;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

void jpegErrorExit(j_common_ptr cinfo) {
  auto* err = reinterpret_cast<JpegError*>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, err->message);
  std::longjmp(err->jump, 1);
}

// libjpeg-turbo goes on after damage it can step over (data cut short,
// a bad Huffman code, bytes between markers), filling what is missing with
// grey. Such a file is refused: only the two header remarks that leave the
// pixels alone pass; trace messages (level 0 and up) are ignored.
void jpegStrictWarnings(j_common_ptr cinfo, int level) {
  if (level >= 0) return;
  const int code = cinfo->err->msg_code;
  if (code == JWRN_JFIF_MAJOR || code == JWRN_ADOBE_XFORM) return;
  cinfo->err->error_exit(cinfo);
}

// CMYK samples as libjpeg-turbo delivers them to RGBA, in place, without a
// colour profile. Adobe's CMYK JPEGs (those with its APP14 marker) store
// every ink inverted (255 = no ink); others store ink amounts directly.
void cmykToRgba(std::vector<uint8_t>& pixels, bool inverted) {
  for (size_t i = 0; i + 3 < pixels.size(); i += 4) {
    const int k = inverted ? pixels[i + 3] : 255 - pixels[i + 3];
    for (size_t c = 0; c < 3; ++c) {
      const int ink = inverted ? pixels[i + c] : 255 - pixels[i + c];
      pixels[i + c] = uint8_t((ink * k + 127) / 255);
    }
    pixels[i + 3] = 255;
  }
}

}  // namespace

FileKind kindFromExtension(const std::string& path) {
  const size_t dot = path.find_last_of('.');
  const size_t slash = path.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
    return FileKind::kUnknown;
  const std::string ext = lower(path.substr(dot + 1));
  if (ext == "png") return FileKind::kPng;
  if (ext == "jpg" || ext == "jpeg") return FileKind::kJpeg;
  if (ext == "yuv" || ext == "nv12" || ext == "nv21" || ext == "raw") return FileKind::kRaw;
  return FileKind::kUnknown;
}

RgbaImage readPng(const std::string& path) {
  const std::vector<uint8_t> bytes = readWholeFile(path);
  if (bytes.size() < 8 || png_sig_cmp(bytes.data(), 0, 8) != 0)
    throw ToolError("'" + path + "' is not a PNG file");
  std::string error;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &error, pngError, pngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (png == nullptr || info == nullptr) throw ToolError("out of memory reading '" + path + "'");
  RgbaImage image;
  std::vector<png_bytep> rows;
  PngReadState state{&bytes, 0};
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    throw ToolError("'" + path + "' is a corrupt PNG file (" + error + ")");
  }
  png_set_read_fn(png, &state, pngReadFromMemory);
  png_read_info(png, info);
  const png_uint_32 w = png_get_image_width(png, info), h = png_get_image_height(png, info);
  try {
    checkDecodedSize(path, w, h, bytes.size(), kPngPixelsPerByte);
  } catch (...) {
    png_destroy_read_struct(&png, &info, nullptr);
    throw;
  }
  png_set_expand(png);
  png_set_strip_16(png);
  png_set_gray_to_rgb(png);
  png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  image.width = int(w);
  image.height = int(h);
  image.pixels.resize(size_t(w) * h * 4);
  rows.resize(h);
  for (png_uint_32 y = 0; y < h; ++y) rows[y] = image.pixels.data() + size_t(y) * w * 4;
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return image;
}

RgbaImage readJpeg(const std::string& path) {
  const std::vector<uint8_t> bytes = readWholeFile(path);
  if (bytes.size() < 3 || bytes[0] != 0xFF || bytes[1] != 0xD8 || bytes[2] != 0xFF)
    throw ToolError("'" + path + "' is not a JPEG file");
  jpeg_decompress_struct cinfo;
  JpegError err;
  cinfo.err = jpeg_std_error(&err.mgr);
  err.mgr.error_exit = jpegErrorExit;
  err.mgr.emit_message = jpegStrictWarnings;
  RgbaImage image;
  if (setjmp(err.jump)) {
    const bool cut = err.mgr.msg_code == JWRN_JPEG_EOF;
    jpeg_destroy_decompress(&cinfo);
    if (cut) throw ToolError("'" + path + "' is a truncated JPEG file (its data ends early)");
    throw ToolError("'" + path + "' is a corrupt JPEG file (" + err.message + ")");
  }
  jpeg_create_decompress(&cinfo);
  jpeg_mem_src(&cinfo, bytes.data(), static_cast<unsigned long>(bytes.size()));
  jpeg_read_header(&cinfo, TRUE);
  const bool cmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
  if (!cmyk && cinfo.jpeg_color_space != JCS_GRAYSCALE && cinfo.jpeg_color_space != JCS_YCbCr &&
      cinfo.jpeg_color_space != JCS_RGB) {
    jpeg_destroy_decompress(&cinfo);
    throw ToolError("'" + path + "' uses a colour model other than grey, RGB, YCbCr or CMYK (" +
                    std::to_string(cinfo.num_components) + " components)");
  }
  // Four samples per pixel either way; CMYK becomes RGBA after the decode.
  cinfo.out_color_space = cmyk ? JCS_CMYK : JCS_EXT_RGBA;
  try {
    checkDecodedSize(path, cinfo.image_width, cinfo.image_height, bytes.size(), kJpegPixelsPerByte);
  } catch (...) {
    jpeg_destroy_decompress(&cinfo);
    throw;
  }
  jpeg_start_decompress(&cinfo);
  image.width = int(cinfo.output_width);
  image.height = int(cinfo.output_height);
  image.pixels.resize(size_t(image.width) * image.height * 4);
  while (cinfo.output_scanline < cinfo.output_height) {
    JSAMPROW row = image.pixels.data() + size_t(cinfo.output_scanline) * image.width * 4;
    jpeg_read_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_decompress(&cinfo);
  const bool inverted = cinfo.saw_Adobe_marker != 0;
  jpeg_destroy_decompress(&cinfo);
  if (cmyk) cmykToRgba(image.pixels, inverted);
  return image;
}

Nv21Image readRaw(const std::string& path, int width, int height, int stride, bool nv12) {
  if (width <= 0 || height <= 0) throw ToolError("raw input needs --size WxH");
  if (width % 2 != 0 || height % 2 != 0)
    throw ToolError("raw 4:2:0 input needs an even width and height, got " + std::to_string(width) +
                    "x" + std::to_string(height));
  if (stride == 0) stride = width;
  if (stride < width) throw ToolError("--stride " + std::to_string(stride) + " is below the width");
  checkDecodedSize(path, uint64_t(stride), uint64_t(height));
  std::vector<uint8_t> bytes = readWholeFile(path);
  const uint64_t expected = uint64_t(stride) * (height + height / 2);
  if (bytes.size() != expected)
    throw ToolError("raw file '" + path + "' is " + std::to_string(bytes.size()) +
                    " bytes, expected " + std::to_string(expected) + " for " +
                    std::to_string(width) + "x" + std::to_string(height) +
                    (nv12 ? " NV12" : " NV21") + " with row stride " + std::to_string(stride));
  Nv21Image image;
  image.width = width;
  image.height = height;
  image.stride = stride;
  image.nv12 = nv12;
  image.data = std::move(bytes);
  return image;
}

std::vector<uint8_t> encodePng(const RgbaImage& image) {
  std::vector<uint8_t> out;
  std::string error;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, pngError, pngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (png == nullptr || info == nullptr) throw ToolError("out of memory encoding PNG");
  std::vector<png_bytep> rows(image.height);
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    throw ToolError("PNG encoding failed: " + error);
  }
  png_set_write_fn(
      png, &out,
      [](png_structp p, png_bytep data, png_size_t n) {
        auto* v = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(p));
        v->insert(v->end(), data, data + n);
      },
      nullptr);
  png_set_IHDR(png, info, png_uint_32(image.width), png_uint_32(image.height), 8,
               PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(png, 3);
  png_write_info(png, info);
  png_set_filler(png, 0, PNG_FILLER_AFTER);  // drop the alpha byte
  for (int y = 0; y < image.height; ++y)
    rows[y] = const_cast<png_bytep>(image.pixels.data() + size_t(y) * image.width * 4);
  png_write_image(png, rows.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return out;
}

std::vector<uint8_t> encodeJpeg(const RgbaImage& image, int quality) {
  jpeg_compress_struct cinfo;
  JpegError err;
  cinfo.err = jpeg_std_error(&err.mgr);
  err.mgr.error_exit = jpegErrorExit;
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  if (setjmp(err.jump)) {
    jpeg_destroy_compress(&cinfo);
    std::free(buffer);
    throw ToolError(std::string("JPEG encoding failed: ") + err.message);
  }
  jpeg_create_compress(&cinfo);
  jpeg_mem_dest(&cinfo, &buffer, &size);
  cinfo.image_width = JDIMENSION(image.width);
  cinfo.image_height = JDIMENSION(image.height);
  cinfo.input_components = 4;
  cinfo.in_color_space = JCS_EXT_RGBA;
  jpeg_set_defaults(&cinfo);
  jpeg_set_quality(&cinfo, quality, TRUE);
  jpeg_start_compress(&cinfo, TRUE);
  while (cinfo.next_scanline < cinfo.image_height) {
    JSAMPROW row =
        const_cast<JSAMPROW>(image.pixels.data() + size_t(cinfo.next_scanline) * image.width * 4);
    jpeg_write_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_compress(&cinfo);
  std::vector<uint8_t> out(buffer, buffer + size);
  jpeg_destroy_compress(&cinfo);
  std::free(buffer);
  return out;
}

void writeFileAtomically(const std::string& path, const std::vector<uint8_t>& bytes) {
  const std::string temp = path + ".tmp-" + std::to_string(::getpid());
  std::FILE* f = std::fopen(temp.c_str(), "wb");
  if (f == nullptr) throw ToolError("cannot write '" + path + "': " + std::strerror(errno));
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  const bool closed = std::fclose(f) == 0;
  if (!ok || !closed) {
    const int e = errno;
    std::remove(temp.c_str());
    throw ToolError("cannot write '" + path + "': " + std::strerror(e));
  }
  if (std::rename(temp.c_str(), path.c_str()) != 0) {
    const int e = errno;
    std::remove(temp.c_str());
    throw ToolError("cannot write '" + path + "': " + std::strerror(e));
  }
}

Nv21Image rgbaToNv(const RgbaImage& rgba, bool nv12) {
  if (rgba.width < 2 || rgba.height < 2)
    throw ToolError("image is too small for 4:2:0 (below 2x2)");
  Nv21Image nv;
  nv.width = (rgba.width + 1) & ~1;
  nv.height = (rgba.height + 1) & ~1;
  nv.stride = nv.width;
  nv.nv12 = nv12;
  nv.data.resize(size_t(nv.width) * (nv.height + nv.height / 2));
  // 4:2:0 needs even sizes: an odd last column or row is repeated, so that
  // every chroma sample stands for pixels of the picture.
  const RgbaImage* source = &rgba;
  RgbaImage padded;
  if (nv.width != rgba.width || nv.height != rgba.height) {
    padded.width = nv.width;
    padded.height = nv.height;
    padded.pixels.resize(size_t(nv.width) * nv.height * 4);
    const size_t inRow = size_t(rgba.width) * 4, outRow = size_t(nv.width) * 4;
    for (int y = 0; y < nv.height; ++y) {
      const uint8_t* from = rgba.pixels.data() + std::min(y, rgba.height - 1) * inRow;
      uint8_t* to = padded.pixels.data() + y * outRow;
      std::memcpy(to, from, inRow);
      if (outRow != inRow) std::memcpy(to + inRow, to + inRow - 4, 4);
    }
    source = &padded;
  }
  // RGBA bytes in memory are what libyuv calls ABGR.
  auto convert = nv12 ? libyuv::ABGRToNV12 : libyuv::ABGRToNV21;
  convert(source->pixels.data(), source->width * 4, nv.y(), nv.stride, nv.uv(), nv.stride, nv.width,
          nv.height);
  return nv;
}

RgbaImage nvToRgba(const Nv21Image& nv) {
  RgbaImage rgba;
  rgba.width = nv.width;
  rgba.height = nv.height;
  rgba.pixels.resize(size_t(nv.width) * nv.height * 4);
  auto convert = nv.nv12 ? libyuv::NV12ToABGR : libyuv::NV21ToABGR;
  convert(nv.y(), nv.stride, nv.uv(), nv.stride, rgba.pixels.data(), nv.width * 4, nv.width,
          nv.height);
  return rgba;
}

std::vector<uint8_t> packRaw(const Nv21Image& image) {
  std::vector<uint8_t> out(size_t(image.width) * (image.height + image.height / 2));
  for (int y = 0; y < image.height; ++y)
    std::memcpy(&out[size_t(y) * image.width], image.y() + size_t(y) * image.stride, image.width);
  uint8_t* uv = out.data() + size_t(image.width) * image.height;
  for (int y = 0; y < image.height / 2; ++y)
    std::memcpy(uv + size_t(y) * image.width, image.uv() + size_t(y) * image.stride, image.width);
  return out;
}
