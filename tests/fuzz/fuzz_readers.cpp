// fuzz_readers.cpp - libFuzzer target over the command-line tool's file
// readers (PNG, JPEG, raw NV12/NV21), fed random and mutated files. A
// reader may refuse a file with a ToolError; it must never crash, read out
// of bounds, leak, or hand back an image whose size and bytes disagree.
//
// Input layout: byte 0 picks the reader (low two bits: 0 = PNG with every
// chunk's CRC recomputed after mutation, so that mutated chunk data reaches
// the decoder instead of failing its checksum; 1 = PNG as it is; 2 = JPEG;
// 3 = raw); a raw read takes width, height, stride and format from bytes
// 1-4. The rest is the file.
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kqupscale/image_io.h"

namespace {

#define KQ_FUZZ_CHECK(cond, ...)                          \
  do {                                                    \
    if (!(cond)) {                                        \
      std::fprintf(stderr, "fuzz_readers: " __VA_ARGS__); \
      std::fprintf(stderr, " (%s)\n", #cond);             \
      std::abort();                                       \
    }                                                     \
  } while (0)

// The readers take a path: one in-memory file, rewritten for every input.
int gFile = -1;
std::string gPath;

void writeFile(const uint8_t* data, size_t size) {
  if (ftruncate(gFile, 0) != 0) std::abort();
  size_t done = 0;
  while (done < size) {
    const ssize_t n = pwrite(gFile, data + done, size - done, off_t(done));
    if (n <= 0) std::abort();
    done += size_t(n);
  }
}

uint32_t bigEndian(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// Recomputes the CRC of every whole chunk after the 8-byte signature.
void repairPngCrcs(std::vector<uint8_t>& file) {
  size_t at = 8;
  while (at + 12 <= file.size()) {
    const uint32_t length = bigEndian(&file[at]);
    if (length > file.size() - at - 12) break;
    const uint32_t crc = uint32_t(crc32(0, &file[at + 4], uInt(length + 4)));
    uint8_t* out = &file[at + 8 + length];
    for (int i = 0; i < 4; ++i) out[i] = uint8_t(crc >> (24 - 8 * i));
    at += 12 + size_t(length);
  }
}

// The tool converts what it reads to 4:2:0 and back for output: run both
// conversions on small decoded images too, they see every size a reader
// can return.
void convert(const RgbaImage& image) {
  KQ_FUZZ_CHECK(image.width > 0 && image.height > 0 &&
                    image.pixels.size() == size_t(image.width) * size_t(image.height) * 4,
                "decoded %dx%d with %zu bytes", image.width, image.height, image.pixels.size());
  if (int64_t(image.width) * image.height > 65536) return;
  for (bool nv12 : {false, true}) {
    const Nv21Image nv = rgbaToNv(image, nv12);
    if (nv.width > 0 && nv.height > 0) nvToRgba(nv);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  gFile = memfd_create("kq_fuzz_reader", 0);
  if (gFile < 0) std::abort();
  gPath = "/proc/self/fd/" + std::to_string(gFile);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const int reader = data[0] & 3;
  const size_t skip = reader == 3 ? 5 : 1;
  std::vector<uint8_t> file(data + (size < skip ? size : skip), data + size);
  if (reader == 0) repairPngCrcs(file);
  writeFile(file.data(), file.size());
  try {
    if (reader <= 1) {
      convert(readPng(gPath));
    } else if (reader == 2) {
      convert(readJpeg(gPath));
    } else {
      auto at = [&](size_t i) { return i < size ? int(data[i]) : 0; };
      const int width = at(1) - 8, height = at(2) - 8;
      const int stride = at(3) == 0 ? 0 : width + at(3) - 8;
      const Nv21Image nv = readRaw(gPath, width, height, stride, at(4) & 1);
      const int s = stride == 0 ? width : stride;
      KQ_FUZZ_CHECK(nv.width == width && nv.height == height && nv.stride == s &&
                        nv.data.size() == size_t(s) * size_t(height + height / 2),
                    "raw %dx%d stride %d came back as %dx%d stride %d, %zu bytes", width, height, s,
                    nv.width, nv.height, nv.stride, nv.data.size());
    }
  } catch (const ToolError&) {
    // A refused file: what the tool reports as one error line.
  }
  return 0;
}
