// check_util.h - the checking core every kernel check uses: each distinct
// implementation of a table slot against the scalar one, a portable PRNG,
// fill patterns, guarded inputs (KqGuardedBuffer), sentinel-framed outputs
// and a byte-exact comparison.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "runtime/cpu.h"
#include "support/guarded_buffer.h"

// xorshift64*: the same sequence on every platform and standard library.
class KqRng {
 public:
  explicit KqRng(uint64_t seed) : s_(seed ? seed : 0x9E3779B97F4A7C15ull) {}
  uint32_t next() {
    s_ ^= s_ >> 12;
    s_ ^= s_ << 25;
    s_ ^= s_ >> 27;
    return static_cast<uint32_t>((s_ * 0x2545F4914F6CDD1Dull) >> 32);
  }
  // Uniform integer in [lo, hi].
  int range(int lo, int hi) { return lo + static_cast<int>(next() % uint32_t(hi - lo + 1)); }
  // Uniform float in [lo, hi).
  float uniform(float lo, float hi) {
    return lo + (hi - lo) * float(next() >> 8) * (1.0f / 16777216.0f);
  }

 private:
  uint64_t s_;
};

// The run's seed: KQ_TEST_SEED from the environment, else a fixed value.
// Printed once so that a failure can be reproduced.
uint64_t kqTestSeed();

enum class KqFill { kUniform, kZero, kMax, kAlternate, kZeroOne, kHigh, kRamp, kSmooth };
constexpr KqFill kKqAllFills[] = {KqFill::kUniform,   KqFill::kZero,    KqFill::kMax,
                                  KqFill::kAlternate, KqFill::kZeroOne, KqFill::kHigh,
                                  KqFill::kRamp,      KqFill::kSmooth};
const char* kqFillName(KqFill fill);

// Fills a width x height plane with the given row stride.
void kqFillPlane(uint8_t* data, int width, int height, int stride, KqFill fill, KqRng& rng);

// Overwrites the stack below the caller with `value`. Kernels keep scratch
// lines on the stack, where an earlier call's bytes stay behind; when the
// checks move the rows by a byte from one call to the next, those leftovers
// can be exactly the values a kernel would read too early. Scribbling
// before each call turns such a read into a visible difference.
void kqScribbleStack(uint8_t value);

// An output plane surrounded by a frame of sentinel bytes. Two planes made
// with the same arguments compare equal frame included unless a kernel wrote
// outside its area.
class KqFramedPlane {
 public:
  static constexpr int kFrame = 32;
  KqFramedPlane(int width, int height, uint8_t sentinel = 0xA5);
  uint8_t* data() { return &buf_[size_t(kFrame) * stride_ + kFrame]; }
  const uint8_t* data() const { return &buf_[size_t(kFrame) * stride_ + kFrame]; }
  int width() const { return width_; }
  int height() const { return height_; }
  int stride() const { return stride_; }
  // Fills the interior (not the frame).
  void fill(uint8_t value);
  const std::vector<uint8_t>& raw() const { return buf_; }

 private:
  int width_, height_, stride_;
  std::vector<uint8_t> buf_;
};

// Byte-exact comparison of two planes; a mismatch names the first differing
// pixel.
testing::AssertionResult kqPlanesEqual(const uint8_t* ref, int refStride, const uint8_t* got,
                                       int gotStride, int width, int height);

// Compares two framed planes, interior and frame.
testing::AssertionResult kqFramedEqual(const KqFramedPlane& ref, const KqFramedPlane& got);

// Kernel tables are structs of function pointers that an init function fills
// for a set of CPU feature flags; flags 0 give the scalar reference. This
// calls body(impl, ref, level) once for every distinct implementation of one
// slot: at the lowest level whose pointer differs from the scalar one and
// from every lower level's, with `ref` the scalar table. Failures inside
// carry the level's name. Returns how many implementations were visited.
template <typename Table, typename Slot, typename Body>
int kqForEachImpl(void (*init)(Table*, uint32_t), Slot slot, Body body) {
  auto address = [&](const Table& t) { return reinterpret_cast<const void*>(slot(t)); };
  Table ref;
  init(&ref, 0);
  std::set<const void*> seen{address(ref)};
  int visited = 0;
  for (uint32_t level : kqCpuLevels()) {
    Table impl;
    init(&impl, level);
    if (!seen.insert(address(impl)).second) continue;
    SCOPED_TRACE(std::string("level ") + kqCpuLevelName(level));
    ++visited;
    body(static_cast<const Table&>(impl), static_cast<const Table&>(ref), level);
    if (testing::Test::HasFatalFailure()) break;
  }
  return visited;
}

// The same for a slot named by its member.
template <typename Table, typename Fn, typename Body>
int kqForEachImpl(void (*init)(Table*, uint32_t), Fn Table::*member, Body body) {
  return kqForEachImpl(
      init, [member](const Table& t) { return t.*member; }, body);
}
