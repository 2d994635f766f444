// header_main.cpp - links the header checks against libKQUpScale.so and
// verifies what a caller sees: the version strings, and that the header's
// output-size helper gives sizes the call accepts, the same from C and C++.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "KQUpScale.h"

bool kqHeaderCheckSameLayout();
extern "C" int32_t kqHeaderCheckOutputSizeC(int32_t width, int32_t height, double scale,
                                            int32_t* outWidth, int32_t* outHeight);

namespace {

int failures = 0;

void fail(const char* what) {
  std::fprintf(stderr, "FAIL: %s\n", what);
  ++failures;
}

// outWidth 0: the helper must refuse and leave both outputs alone.
struct SizeCase {
  const char* what;
  int32_t width, height;
  double scale;
  int32_t outWidth, outHeight;
};

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

const SizeCase kSizeCases[] = {
    {"4:3 at 2", 640, 480, 2.0, 1280, 960},
    {"portrait: the height leads", 480, 640, 2.0, 960, 1280},
    {"odd source at 3: halves round up", 641, 481, 3.0, 1924, 1444},
    {"odd source at 1.5", 641, 481, 1.5, 962, 722},
    {"1.3 on a region's 1000x748", 1000, 748, 1.3, 1300, 972},
    {"the short side follows the rounded long side, not 748.8", 1000, 748, 1.0011, 1002, 750},
    {"shrunk to the 2x2 minimum", 4, 4, 0.01, 2, 2},
    {"tall source: the width stays at 2", 4, 400, 0.01, 2, 4},
    {"tiny output whose cut keeps 4x4", 8, 4, 0.5, 4, 2},
    {"tiny output whose cut leaves 3x4", 6, 4, 0.5, 0, 0},
    {"source narrower than 4", 3, 100, 2.0, 0, 0},
    {"source lower than 4", 100, 3, 2.0, 0, 0},
    {"scale 0", 64, 48, 0.0, 0, 0},
    {"negative scale", 64, 48, -1.0, 0, 0},
    {"NaN scale", 64, 48, kNaN, 0, 0},
    {"infinite scale", 64, 48, kInf, 0, 0},
    {"huge scale", 64, 48, 1e300, 0, 0},
    {"largest square luma plane below 2 GiB", 46340, 46340, 1.0, 46340, 46340},
    {"square luma plane beyond 2 GiB", 46342, 46342, 1.0, 0, 0},
    {"int32 width", std::numeric_limits<int32_t>::max(), 4, 1.0, 0, 0},
};

void checkSizeCases() {
  for (const SizeCase& c : kSizeCases) {
    for (int lang = 0; lang < 2; ++lang) {
      int32_t w = -7, h = -7;
      const int32_t ok = lang == 0 ? KQUpScale_OutputSize(c.width, c.height, c.scale, &w, &h)
                                   : kqHeaderCheckOutputSizeC(c.width, c.height, c.scale, &w, &h);
      const bool want = c.outWidth != 0;
      if (ok != (want ? 1 : 0) || (want && (w != c.outWidth || h != c.outHeight)) ||
          (!want && (w != -7 || h != -7))) {
        std::fprintf(stderr, "FAIL: output size (%s, %s): %dx%d at %g gave %d, %dx%d\n",
                     lang == 0 ? "C++" : "C", c.what, c.width, c.height, c.scale, ok, w, h);
        ++failures;
      }
    }
  }
}

// Runs a bare warp of a flat width x height NV21 picture to outW x outH;
// true when the call wrote every output byte (a refused call writes none).
bool callWritesOutput(int32_t width, int32_t height, int32_t outW, int32_t outH) {
  std::vector<uint8_t> in(size_t(width) * height + size_t(width) * (height / 2));
  std::memset(in.data(), 100, size_t(width) * height);
  uint8_t* vu = in.data() + size_t(width) * height;
  for (int32_t row = 0; row < height / 2; ++row)
    for (int32_t k = 0; k < width / 2; ++k) {
      vu[size_t(row) * width + 2 * k] = 90;       // V
      vu[size_t(row) * width + 2 * k + 1] = 160;  // U
    }
  const size_t lumaBytes = size_t(outW) * outH;
  std::vector<uint8_t> out(lumaBytes + lumaBytes / 2, 0);
  KQYUVMultiPlaneImage src = {8,     width, height, 1,         width, height, 2,
                              width, 2,     width,  in.data(), vu,    nullptr};
  KQYUVMultiPlaneImage dst = {
      8, outW, outH, 1, outW, outH, 2, outW, 2, outW, out.data(), out.data() + lumaBytes, nullptr};
  KQUpScale_ScaleImage(&src, &dst, 0, 0, 0.0f, 1, 0);
  for (size_t i = 0; i < lumaBytes; ++i)
    if (out[i] != 100) return false;
  for (size_t i = lumaBytes; i + 1 < out.size(); i += 2)
    if (out[i] != 90 || out[i + 1] != 160) return false;
  return true;
}

// Every size the helper gives is one the call enlarges to; the refusal the
// helper predicts for a tiny output is the call's own.
void checkSizesAgainstTheCall() {
  const int32_t sides[] = {4, 5, 6, 7, 8, 12, 17, 30, 64};
  const double scales[] = {0.3, 0.5, 0.77, 1.0, 1.3, 1.5, 2.0, 2.5, 3.7};
  int calls = 0;
  for (int32_t width : sides)
    for (int32_t height : sides)
      for (double scale : scales) {
        int32_t w = 0, h = 0;
        if (!KQUpScale_OutputSize(width, height, scale, &w, &h)) continue;
        ++calls;
        if (w % 2 != 0 || h % 2 != 0 || !callWritesOutput(width, height, w, h)) {
          std::fprintf(stderr, "FAIL: %dx%d at %g: the call refuses the helper's %dx%d\n", width,
                       height, scale, w, h);
          ++failures;
        }
      }
  if (calls < 600) fail("the helper refused sizes the sweep expects it to give");
  if (callWritesOutput(6, 4, 4, 2)) fail("the call enlarged 6x4 to 4x2, which the helper refuses");
}

}  // namespace

int main() {
  // The call refused on purpose below logs a line; keep the test log clean
  // unless KQ_LOG asks otherwise.
  setenv("KQ_LOG", "off", 0);
  if (!kqHeaderCheckSameLayout()) fail("record layout differs between C and C++");
  const char* v = KQUpScale_GetVersion();
  const char* prefix = "KQUpScale v1.3.0 (";
  if (v == nullptr || std::strncmp(v, prefix, std::strlen(prefix)) != 0) {
    std::fprintf(stderr, "unexpected version string: %s\n", v ? v : "(null)");
    ++failures;
  } else if (KQUpScale_GetVersion() != v) {
    fail("version string is not one static string");
  }
  checkSizeCases();
  checkSizesAgainstTheCall();
  std::printf("%s\n%s\n", v ? v : "", failures == 0 ? "passed" : "FAILED");
  return failures == 0 ? 0 : 1;
}
