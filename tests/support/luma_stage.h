// luma_stage.h - what the filter stage tests share: the loop over every
// instruction-set level and thread count (all three stages), and for the
// luma noise-reduction and sharpening stages a packed plane record,
// dispatch tables per level, and the check that a stage on tiny planes
// stays inside its buffers.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "filters/luma_dsp.h"
#include "kernels/check_util.h"
#include "runtime/cpu.h"
#include "runtime/pool.h"

// Calls body(dsp, threads) with the dispatch table `init` fills for every
// instruction-set level and every kind of thread count: the calling thread
// (1, 0), slices through the pool (2, 3, 8, with and without a pool
// started) and a team of fresh threads (-3). Failures carry all three.
template <class Table, class Body>
void kqForEachLevelAndThreadCount(void (*init)(Table*, uint32_t), Body body) {
  for (uint32_t level : kqCpuLevels()) {
    Table dsp;
    init(&dsp, level);
    for (bool pool : {false, true}) {
      if (pool) kqPoolStart(4, 0, "stage-test");
      for (int threads : {1, 0, 2, 3, 8, -3}) {
        SCOPED_TRACE(testing::Message()
                     << kqCpuLevelName(level) << " threads " << threads << " pool " << pool);
        body(static_cast<const Table&>(dsp), threads);
        if (testing::Test::HasFatalFailure()) break;
      }
      if (pool) kqPoolStop();
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

// A packed plane with its KQImage8 view.
struct KqLumaPlane {
  std::vector<uint8_t> bytes;
  KQImage8 img;
  KqLumaPlane(int w, int h, uint8_t fill = 0)
      : bytes(size_t(w) * h, fill), img{w, h, bytes.data()} {}
  KqLumaPlane(const KqLumaPlane& o)
      : bytes(o.bytes), img{o.img.width, o.img.height, bytes.data()} {}
  uint8_t& at(int x, int y) { return bytes[size_t(y) * img.width + x]; }
  uint8_t at(int x, int y) const { return bytes[size_t(y) * img.width + x]; }
  std::vector<uint8_t> row(int y) const {
    return {&bytes[size_t(y) * img.width], &bytes[size_t(y + 1) * img.width]};
  }
};

inline KqLumaPlane kqRandomLumaPlane(int w, int h, uint64_t seed, KqFill fill = KqFill::kSmooth) {
  KqLumaPlane p(w, h);
  KqRng rng(seed);
  kqFillPlane(p.img.data, w, h, w, fill, rng);
  return p;
}

inline KQLumaDsp kqLumaDspFor(uint32_t level) {
  KQLumaDsp d;
  kqLumaDspInit(&d, level);
  return d;
}

// Runs `stage(in, out, threads, dsp)` on a w x h plane whose input ends at a
// PROT_NONE page (any over-read faults) into framed outputs: nothing may be
// written outside the output, every output byte must be written (outputs
// prefilled with 0 and 255 agree), and every level must give the scalar bytes.
template <class Stage>
void kqExpectTinyPlaneSafe(int w, int h, KqRng& rng, Stage stage) {
  SCOPED_TRACE(testing::Message() << w << "x" << h);
  const KQLumaDsp c = kqLumaDspFor(0);
  KqGuardedBuffer buf(size_t(w) * h);
  kqFillPlane(buf.data(), w, h, w, KqFill::kUniform, rng);
  const KQImage8 in{w, h, buf.data()};
  KqFramedPlane a(w * h, 1, 0x00), b(w * h, 1, 0xFF), clean(w * h, 1, 0x00);
  KQImage8 outA{w, h, a.data()}, outB{w, h, b.data()};
  stage(&in, &outA, 2, &c);
  stage(&in, &outB, 2, &c);
  std::memcpy(clean.data(), a.data(), size_t(w) * h);
  ASSERT_TRUE(kqFramedEqual(clean, a));
  ASSERT_TRUE(kqPlanesEqual(a.data(), w, b.data(), w, w, h)) << "unwritten output bytes";
  for (uint32_t level : kqCpuLevels()) {
    const KQLumaDsp dsp = kqLumaDspFor(level);
    KqFramedPlane o(w * h, 1, 0x00);
    KQImage8 out{w, h, o.data()};
    stage(&in, &out, 3, &dsp);
    ASSERT_TRUE(kqFramedEqual(a, o)) << kqCpuLevelName(level);
  }
}
