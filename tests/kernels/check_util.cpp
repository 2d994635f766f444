// check_util.cpp - PRNG seed, fills and plane comparison.
#include "kernels/check_util.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

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
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      int v = 0;
      switch (fill) {
        case KqFill::kUniform:
          v = int(rng.next() >> 24);
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
          v = int(rng.next() >> 31);
          break;
        case KqFill::kHigh:
          v = 254 + int(rng.next() >> 31);
          break;
        case KqFill::kRamp:
          v = x + 3 * y + phase;
          break;
        // Gentle gradient plus small noise, with a few steps: close to camera
        // content, where filters take their non-trivial branches.
        case KqFill::kSmooth:
          v = (x * 2 + y + phase) % 200 + ((x / 17 + y / 13) % 2) * 40 + int(rng.next() % 9) + 4;
          break;
      }
      data[size_t(y) * stride + x] = uint8_t(v);
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
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const int r = ref[size_t(y) * refStride + x], g = got[size_t(y) * gotStride + x];
      if (r != g)
        return testing::AssertionFailure()
               << "first difference at (" << x << ", " << y << ") in " << width << "x" << height
               << ": ref " << r << ", got " << g;
    }
  return testing::AssertionSuccess();
}

testing::AssertionResult kqFramedEqual(const KqFramedPlane& ref, const KqFramedPlane& got) {
  testing::AssertionResult inner =
      kqPlanesEqual(ref.data(), ref.stride(), got.data(), got.stride(), ref.width(), ref.height());
  if (!inner) return inner;
  const int f = KqFramedPlane::kFrame, s = ref.stride();
  for (size_t i = 0; i < ref.raw().size(); ++i)
    if (ref.raw()[i] != got.raw()[i])
      return testing::AssertionFailure()
             << "overwrite in the frame at (" << int(i % s) - f << ", " << int(i / s) - f
             << ") of a " << ref.width() << "x" << ref.height() << " plane";
  return testing::AssertionSuccess();
}
