// check_util.cpp - PRNG seed, fills and plane comparison.
#include "kernels/check_util.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

uint64_t kqTestSeed() {
  static const uint64_t seed = [] {
    uint64_t s = 0x4B51u;
    if (const char* env = std::getenv("KQ_TEST_SEED")) s = std::strtoull(env, nullptr, 0);
    std::printf("kernel checks: seed %llu (set KQ_TEST_SEED to repeat)\n",
                static_cast<unsigned long long>(s));
    return s;
  }();
  return seed;
}

const char* kqFillName(KqFill fill) {
  static const char* const kNames[] = {"uniform", "zero",    "max",  "0/255",
                                       "0/1",     "254/255", "ramp", "smooth"};
  return kNames[int(fill)];
}

void kqFillPlane(uint8_t* data, int width, int height, int stride, KqFill fill, KqRng& rng) {
  const int phase = rng.range(0, 255);
  for (int y = 0; y < height; ++y) {
    uint8_t* row = data + size_t(y) * stride;
    for (int x = 0; x < width; ++x) {
      uint8_t v = 0;
      switch (fill) {
        case KqFill::kUniform:
          v = uint8_t(rng.next() >> 24);
          break;
        case KqFill::kZero:
          v = 0;
          break;
        case KqFill::kMax:
          v = 255;
          break;
        case KqFill::kAlternate:
          v = (rng.next() & 0x80000000u) ? 255 : 0;
          break;
        case KqFill::kZeroOne:
          v = uint8_t(rng.next() >> 31);
          break;
        case KqFill::kHigh:
          v = uint8_t(254 + (rng.next() >> 31));
          break;
        case KqFill::kRamp:
          v = uint8_t(x + 3 * y + phase);
          break;
        case KqFill::kSmooth: {
          // Gentle gradient plus small noise, with a few steps: close to camera
          // content, where filters take their non-trivial branches.
          const int base = (x * 2 + y + phase) % 200 + ((x / 17 + y / 13) % 2) * 40;
          v = uint8_t(base + int(rng.next() % 9) - 4 + 8);
          break;
        }
      }
      row[x] = v;
    }
  }
}

__attribute__((noinline)) void kqScribbleStack(uint8_t value) {
  uint8_t pad[64 * 1024];
  std::memset(pad, value, sizeof pad);
  // Keeps the stores: the array is otherwise dead.
  asm volatile("" : : "r"(pad) : "memory");
}

KqFramedPlane::KqFramedPlane(int width, int height, uint8_t sentinel)
    : width_(width),
      height_(height),
      stride_(width + 2 * kFrame),
      buf_(size_t(stride_) * (height + 2 * kFrame), sentinel) {}

void KqFramedPlane::fill(uint8_t value) {
  for (int y = 0; y < height_; ++y) std::memset(data() + size_t(y) * stride_, value, width_);
}

testing::AssertionResult kqPlanesEqual(const uint8_t* ref, int refStride, const uint8_t* got,
                                       int gotStride, int width, int height) {
  int fx = -1, fy = -1;
  for (int y = 0; y < height && fy < 0; ++y)
    for (int x = 0; x < width; ++x)
      if (ref[size_t(y) * refStride + x] != got[size_t(y) * gotStride + x]) {
        fx = x;
        fy = y;
        break;
      }
  if (fy < 0) return testing::AssertionSuccess();
  std::ostringstream msg;
  msg << "first difference at (" << fx << ", " << fy << ") in " << width << "x" << height
      << ": ref " << int(ref[size_t(fy) * refStride + fx]) << ", got "
      << int(got[size_t(fy) * gotStride + fx]) << "\n";
  const int x0 = fx >= 8 ? fx - 8 : 0;
  const int x1 = x0 + 16 < width ? x0 + 16 : width;
  char cell[8];
  for (int y = fy; y < height && y < fy + 8; ++y) {
    std::string a, b, c;
    for (int x = x0; x < x1; ++x) {
      const uint8_t r = ref[size_t(y) * refStride + x], g = got[size_t(y) * gotStride + x];
      std::snprintf(cell, sizeof cell, "%02x ", r);
      a += cell;
      std::snprintf(cell, sizeof cell, "%02x ", g);
      b += cell;
      c += r == g ? ".. " : "xx ";
    }
    msg << "y=" << y << " x=" << x0 << ".." << x1 - 1 << "  " << a << "| " << b << "| " << c
        << "\n";
  }
  return testing::AssertionFailure() << msg.str();
}

testing::AssertionResult kqFramedEqual(const KqFramedPlane& ref, const KqFramedPlane& got) {
  testing::AssertionResult inner =
      kqPlanesEqual(ref.data(), ref.stride(), got.data(), got.stride(), ref.width(), ref.height());
  if (!inner) return inner;
  const int f = KqFramedPlane::kFrame, s = ref.stride();
  const int rows = ref.height() + 2 * f;
  for (int y = 0; y < rows; ++y)
    for (int x = 0; x < s; ++x) {
      const size_t i = size_t(y) * s + x;
      if (ref.raw()[i] == got.raw()[i]) continue;
      const char* side = y < f                   ? "above"
                         : y >= f + ref.height() ? "below"
                         : x < f                 ? "left"
                                                 : "right";
      return testing::AssertionFailure() << "overwrite " << side << " the plane at frame position ("
                                         << x - f << ", " << y - f << ")";
    }
  return testing::AssertionSuccess();
}
