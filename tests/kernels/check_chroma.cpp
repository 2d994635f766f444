// check_chroma.cpp - chroma noise reduction kernels of every instruction-set
// level against the scalar reference, byte for byte, outputs framed by
// sentinels and inputs ending at an inaccessible page.
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "filters/chroma_dsp.h"
#include "filters/chroma_nr.h"
#include "filters/recip_estimate.h"
#include "kernels/check_util.h"
#include "runtime/cpu.h"

namespace {

struct Shape {
  int w, h;    // full-size chroma
  int ratio;   // luma per chroma pixel
  int margin;  // pass margin
  int guide;   // 0 none, 1 same size as the chroma, 2 a single pixel
};

// Inputs of one case: guarded planes (the luma as short as the kernels may
// rely on) filled from the case's seed.
struct Inputs {
  int he, wh, hh, lumaW, lumaH;
  std::unique_ptr<KqGuardedBuffer> srcU, srcV, luma, halfU, halfV, guide;
  KQChromaParams params;
  // nearChroma: U and V within 13 levels of each other (122..134), so that
  // every tap keeps a high chroma weight and its luma weight decides;
  // farEvery > 0 then moves about one byte in farEvery of those planes 32 to
  // 90 levels away.
  Inputs(const Shape& s, KqFill kind, float strength, int mode, KqRng& rng, bool nearChroma = false,
         int farEvery = 0)
      : he(s.h & ~1),
        wh(s.w / 2),
        hh(s.h / 2),
        lumaW(s.ratio * s.w + (s.w & 1)),
        lumaH(s.ratio * (he - 1) + 1) {
    auto plane = [&](std::unique_ptr<KqGuardedBuffer>& b, int width, int height) {
      b.reset(new KqGuardedBuffer(size_t(width) * height));
      kqFillPlane(b->data(), width, height, width, kind, rng);
    };
    plane(srcU, s.w, s.h);
    plane(srcV, s.w, s.h);
    plane(luma, lumaW, lumaH);
    plane(halfU, wh, hh);
    plane(halfV, wh, hh);
    if (nearChroma) {
      for (auto* b : {&srcU, &srcV, &halfU, &halfV}) {
        const size_t n = (b == &srcU || b == &srcV) ? size_t(s.w) * s.h : size_t(wh) * hh;
        for (size_t i = 0; i < n; ++i) (*b)->data()[i] = uint8_t(122 + (*b)->data()[i] % 13);
        for (size_t i = 0; farEvery > 0 && i < n; i += size_t(rng.range(1, 2 * farEvery - 1))) {
          const int far = rng.range(32, 90);
          (*b)->data()[i] = uint8_t(rng.range(0, 1) ? 128 + far : 128 - far);
        }
      }
    }
    if (s.guide != 0) {
      const size_t n = s.guide == 1 ? size_t(s.w) * s.h : 1;
      guide.reset(new KqGuardedBuffer(n));
      for (size_t i = 0; i < n; ++i) guide->data()[i] = uint8_t(rng.range(0, 11));
    }
    kqChromaSetup(mode, strength, s.ratio, &params);
  }
};

KQChromaPassContext makeContext(int pass, const Shape& s, Inputs& in, uint8_t* outU,
                                uint8_t* outV) {
  KQChromaPassContext c;
  std::memset(&c, 0, sizeof c);
  static const uint8_t kZero = 0;
  c.margin = s.margin;
  c.lumaWidth = in.lumaW;
  c.chromaWidth = s.w;
  c.evenHeight = in.he;
  c.lumaRatio = s.ratio;
  c.guide = &kZero;
  if (s.guide != 0) {
    c.guideWidth = s.guide == 1 ? s.w : 1;
    c.guideScale = s.guide == 1 ? 65536 : 0;
    c.guide = in.guide->data();
  }
  c.tailCount = kqChromaTailCount(pass, s.w, s.margin);
  c.weights = &in.params.weights[0][0];
  c.slopes = &in.params.slopes[0][0];
  c.srcU = in.srcU->data();
  c.srcV = in.srcV->data();
  c.luma = in.luma->data();
  c.inU = pass == 1 ? in.srcU->data() : in.halfU->data();
  c.inV = pass == 1 ? in.srcV->data() : in.halfV->data();
  c.outU = outU;
  c.outV = outV;
  return c;
}

// One pass and kind on the same inputs through `ref` and `dsp`, each
// writing into its own framed planes, on the slice [first, end); the
// outputs must agree, sentinel frames included. Pass 3 runs in place on a
// copy of the source, as the stage does.
testing::AssertionResult runCase(const KQChromaDsp& ref, const KQChromaDsp& dsp, int pass, int kind,
                                 const Shape& s, KqFill fill, float strength, int mode, int first,
                                 int end, uint64_t seed, bool nearChroma = false,
                                 int farEvery = 0) {
  KqRng rng(seed);
  Inputs in(s, fill, strength, mode, rng, nearChroma, farEvery);
  const int bytes = pass == 3 ? s.w * s.h : in.wh * in.hh;
  KqFramedPlane outs[2][2] = {{{bytes, 1}, {bytes, 1}},
                              {{bytes, 1}, {bytes, 1}}};  // [ref/dsp][U/V]
  for (int k = 0; k < 2; ++k) {
    KQChromaPassContext c = makeContext(pass, s, in, outs[k][0].data(), outs[k][1].data());
    if (pass == 3) {
      std::memcpy(outs[k][0].data(), in.srcU->data(), size_t(bytes));
      std::memcpy(outs[k][1].data(), in.srcV->data(), size_t(bytes));
      c.srcU = outs[k][0].data();
      c.srcV = outs[k][1].data();
    }
    c.firstRow = first;
    c.endRow = end;
    (k == 0 ? ref : dsp).pass[pass - 1][kind - 1](&c);
  }
  testing::AssertionResult r = kqFramedEqual(outs[0][0], outs[1][0]);
  if (r) r = kqFramedEqual(outs[0][1], outs[1][1]);
  if (!r)
    r << "\npass " << pass << " kind " << kind << " w " << s.w << " h " << s.h << " ratio "
      << s.ratio << " margin " << s.margin << " guide " << s.guide << " fill " << kqFillName(fill)
      << " strength " << strength << " mode " << mode << " rows " << first << ".." << end
      << " seed " << seed;
  return r;
}

const int kMargins[3][3] = {{26, 14, 8}, {8, 6, 4}, {2, 2, 2}};

// Calls body(ref, dsp, pass, kind) for every distinct implementation
// of every pass and kind; skips when no level has one.
template <typename Body>
void forEachKernel(Body body) {
  int kernels = 0;
  for (int pass = 1; pass <= 3; ++pass)
    for (int kind = 1; kind <= 5; ++kind) {
      SCOPED_TRACE(testing::Message() << "pass " << pass << " kind " << kind);
      kernels += kqForEachImpl(
          kqChromaDspInit, [=](const KQChromaDsp& d) { return d.pass[pass - 1][kind - 1]; },
          [&](const KQChromaDsp& dsp, const KQChromaDsp& ref, uint32_t) {
            body(ref, dsp, pass, kind);
          });
      if (testing::Test::HasFatalFailure()) return;
    }
  if (kernels == 0) GTEST_SKIP() << "no level has a kernel of its own";
}

// Widest vector step of any level, in outputs (AVX2 and AVX-512: 32).
constexpr int kWidestStep = 32;

// Every width from 2 to 292 (pass 1 at margin 26 needs 2 * 26 + 16 + 16 *
// blocks columns: several of the widest steps plus every remainder of
// blocks of 8, and every offset of the clamped end steps), for each margin,
// kind and a spread of fills and strengths, whole planes and single slices;
// then tall and wide camera-like planes; then luma ratios other than 2 and
// guided tables, which take the per-pixel path in the vector kernels.
TEST(ChromaKernels, MatchReference) {
  const uint64_t seed = kqTestSeed();
  // 4: the pipeline's default, whose tables end (weights of 0 or 1) between
  // the short ones of 1 and 3 and the long ones of 5.5 and 10.
  const float strengths[] = {0.0f, 1.0f, 3.0f, 10.0f, 5.5f, 4.0f};
  const Shape shapes[] = {{97, 21, 4, 8, 0},  {64, 12, 3, 26, 0}, {101, 9, 2, 14, 1},
                          {40, 10, 2, 26, 2}, {7, 5, 4, 8, 1},    {120, 16, 2, 8, 1},
                          {50, 10, 1, 26, 0}};
  KqRng pick(seed ^ 0x55);
  forEachKernel([&](const KQChromaDsp& ref, const KQChromaDsp& dsp, int pass, int kind) {
    for (int mi = 0; mi < (pass == 3 ? 1 : 3); ++mi)
      for (int w = 2; w <= 2 * 26 + 16 + 16 * (3 * kWidestStep / 8 + 2); ++w) {
        const int h = 2 + 2 * ((w + kind) % 3) + (w & 1);  // 2..7 rows, odd ones too
        const int he = h & ~1;
        const int first = w % 4 == 1 && he >= 4 ? 2 : 0, end = w % 4 == 3 && he >= 4 ? 2 : he;
        ASSERT_TRUE(runCase(ref, dsp, pass, kind, Shape{w, h, 2, kMargins[pass - 1][mi], 0},
                            kKqAllFills[(w + kind + pass) % 8], strengths[(w + mi) % 6],
                            w % 7 == 0 ? 3 : 0, first, end,
                            seed + uint64_t(w) * 131 + kind * 7 + pass))
            << "widths";
      }
    for (int i = 0; i < 3; ++i) {
      const int w = pick.range(60, 333), h = pick.range(40, 97);
      const KqFill f = i == 0 ? KqFill::kSmooth : kKqAllFills[pick.range(0, 7)];
      ASSERT_TRUE(runCase(ref, dsp, pass, kind, Shape{w, h, 2, kMargins[pass - 1][i], 0}, f,
                          pick.uniform(0.0f, 11.0f), 0, 0, h & ~1, seed + 977 * uint64_t(i) + kind))
          << "larger planes";
    }
    for (Shape s : shapes) {
      if (pass == 2) s.margin = s.margin == 26 ? 8 : s.margin == 14 ? 6 : 4;
      if (pass == 3) s.margin = 2;
      ASSERT_TRUE(runCase(ref, dsp, pass, kind, s, KqFill::kSmooth, 3.0f, 0, 0, s.h & ~1,
                          seed + uint64_t(s.w) * 3 + kind))
          << "ratios and guides";
    }
  });
}

// Rows long enough that the vector kernels take their inner steps in more
// than one chunk (aarch64's pass 3 keeps 16 steps of 16 half-size columns at
// a time, which also leaves an odd step to the compiled code; armv7's look-up
// drivers of passes 2 and 3 64 steps of 16 and 8, pass 1 16 steps of 8),
// ending at different remainders of a chunk, at strengths of short and
// default tables.
TEST(ChromaKernels, LongRows) {
  const uint64_t seed = kqTestSeed();
  forEachKernel([&](const KQChromaDsp& ref, const KQChromaDsp& dsp, int pass, int kind) {
    for (int w : {2 * (16 * 8 * 2 + 12), 2 * (16 * 8 * 3 + 4) + 1, 2 * (16 * 16 * 2 + 36) + 1,
                  2 * (64 * 8 * 2 + 20), 2 * (64 * 16 + 44) + 1})
      for (float strength : {3.0f, 4.0f}) {
        const KqFill fill = strength == 3.0f ? KqFill::kSmooth : KqFill::kUniform;
        ASSERT_TRUE(runCase(ref, dsp, pass, kind, Shape{w, 4, 2, kMargins[pass - 1][0], 0}, fill,
                            strength, 0, 0, 4, seed + uint64_t(w) * 5 + kind + pass))
            << "long rows";
      }
  });
}

// The assembly steps take rows of at most 2048 half-size columns (they take
// rows out into fixed stack buffers, and pass 3 keeps its clamped taps in
// the bytes after a row) and strengths whose look-ups end at 80 (aarch64) or
// 96 (armv7 pass 3), pass 1 only even margins; rows at and just past that
// width, strengths whose look-ups end on either side of 80 and 96 (with the
// table step of 32 the weights reach 32, 79, 90 and 121) and odd margins
// give the same bytes whichever steps take them.
TEST(ChromaKernels, RowsAtTheAssemblyLimits) {
  const uint64_t seed = kqTestSeed();
  forEachKernel([&](const KQChromaDsp& ref, const KQChromaDsp& dsp, int pass, int kind) {
    for (int w : {2 * 2047, 2 * 2048, 2 * 2048 + 1, 2 * 2049, 2 * 2064})
      for (float strength : {2.0f, 4.0f, 4.5f, 6.0f}) {
        const Shape s{w, 4, 2, kMargins[pass - 1][0], 0};
        ASSERT_TRUE(runCase(ref, dsp, pass, kind, s, KqFill::kSmooth, strength, 0, 0, 4,
                            seed + uint64_t(w) * 7 + uint64_t(strength * 2) + kind + pass))
            << "wide rows";
      }
    if (pass == 1)
      for (int margin : {13, 25}) {
        const Shape s{2 * 300, 6, 2, margin, 0};
        ASSERT_TRUE(runCase(ref, dsp, pass, kind, s, KqFill::kUniform, 4.0f, 0, 0, 6,
                            seed + uint64_t(margin) + kind))
            << "odd margin";
      }
  });
}

// Chroma close to the centre everywhere and luma of every difference: each
// tap's weight then turns on its luma weight, over the whole range of luma
// differences, for every strength whose tables the vector kernels shorten
// (weights of 0 and 1 weigh alike) and the ones around them.
TEST(ChromaKernels, LumaWeightsOverEveryDifference) {
  const uint64_t seed = kqTestSeed();
  forEachKernel([&](const KQChromaDsp& ref, const KQChromaDsp& dsp, int pass, int kind) {
    for (float strength : {2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 8.0f}) {
      const Shape s{164, 12, 2, kMargins[pass - 1][0], 0};
      ASSERT_TRUE(runCase(ref, dsp, pass, kind, s, KqFill::kUniform, strength, 0, 0, 12,
                          seed + uint64_t(strength * 10) + kind, true))
          << "near chroma";
    }
  });
}

// Near chroma with a far value here and there: a vector step whose taps all
// lie within 32 (or 64) levels of their centres and one with a tap beyond,
// side by side in every pattern (armv7's look-up steps take every difference
// as below 32 or 64 first and make the steps that are not again, pass 1's
// with the two steps after, whose left taps take the weights of its right
// ones), over rows of several chunks, at strengths whose tables do and do
// not allow that. With flat luma (and flat chroma of 122 between the far
// values) a far tap still weighs where its difference is 64 to 76 at the
// default strength; with random luma most far taps weigh nothing.
TEST(ChromaKernels, FarTapsAmongNearOnes) {
  const uint64_t seed = kqTestSeed();
  forEachKernel([&](const KQChromaDsp& ref, const KQChromaDsp& dsp, int pass, int kind) {
    for (KqFill fill : {KqFill::kUniform, KqFill::kZero})
      for (int farEvery : {11, 23, 150, 600})
        for (float strength : {3.0f, 4.0f, 5.0f})
          for (uint64_t draw = 0; draw < (fill == KqFill::kZero ? 3u : 1u); ++draw) {
            // armv7's passes 2 and 3: two chunks of 64 steps and a few more
            const Shape s{2 * (64 * 16 + 52) + 1, 12, 2, kMargins[pass - 1][0], 0};
            ASSERT_TRUE(
                runCase(ref, dsp, pass, kind, s, fill, strength, 0, 0, 12,
                        seed + uint64_t(farEvery) * 11 + uint64_t(strength) + kind + draw * 7919,
                        true, farEvery))
                << "far taps every " << farEvery;
          }
  });
}

// Kernels without a vector division (armv7) compute the mean as the exact
// rounded quotient floor((2 sum + weight) / (2 weight)); that is only valid if
// the reference's float expression equals it everywhere the sums can reach
// (sum <= 255 * weight, pass 3's own colour included; weight up to 1 + 8 * 46
// in pass 1).
TEST(ChromaMean, FloatMeanIsTheRoundedQuotientOverTheReachableSums) {
  for (int32_t weight = 1; weight <= 1 + 8 * 46; ++weight)
    for (int32_t sum = 0; sum <= 255 * weight; ++sum) {
      const int32_t exact = (2 * sum + weight) / (2 * weight);
      if (kqChromaMean(sum, weight) != exact)
        FAIL() << "sum " << sum << " weight " << weight << ": float mean "
               << int(kqChromaMean(sum, weight)) << ", quotient " << exact;
    }
}

// The vector means against the reference over every pair the kernels can
// reach: each weight of pass 1's range (pass 2 and 3 stay below it) with
// every sum up to 255 times it (pass 3's own colour reaches the top).
TEST(ChromaMean, VectorMeansMatchOverTheReachablePairs) {
  const int visited = kqForEachImpl(
      kqChromaDspInit, &KQChromaDsp::means,
      [](const KQChromaDsp& dsp, const KQChromaDsp& ref, uint32_t) {
        std::vector<uint32_t> sums, weights;
        std::vector<uint8_t> got, want;
        for (uint32_t weight = 1; weight <= 1 + 8 * 46; ++weight) {
          const uint32_t n = 255 * weight + 1;  // odd counts: partial last groups too
          sums.resize(n);
          weights.assign(n, weight);
          for (uint32_t s = 0; s < n; ++s) sums[s] = s;
          got.assign(n, 0);
          want.assign(n, 1);
          dsp.means(got.data(), sums.data(), weights.data(), int32_t(n));
          ref.means(want.data(), sums.data(), weights.data(), int32_t(n));
          for (uint32_t s = 0; s < n; ++s)
            ASSERT_EQ(int(want[s]), int(got[s])) << "sum " << s << " weight " << weight;
        }
      });
  if (visited == 0) GTEST_SKIP() << "no level has means of its own";
}

// The armv7 means' arithmetic, emulated: the reciprocal estimate refined
// once or twice (the last step's product taking the scale first), converted
// to 1.31 fixed point R (truncated, saturated); the mean is vqrdmulh(sum, R),
// that is floor(sum R / 2^31 + 1 / 2). Two steps cover pass 1's weights, one
// step the weights of passes 2 and 3. The qemu runs hold the NEON code to the
// reference with one form of the refinement step: ARMv7's vrecps rounds the
// product before subtracting it from 2, ARMv8's (the armeabi-v7a code on
// 64-bit cores) fuses the two. Both forms must give the reference's means.
int64_t armv7Reciprocal(uint32_t weight, int steps, bool fused) {
  const float w = float(weight);
  volatile float r = kqRecipEstimate(w);
  float step = 0.0f;
  for (int i = 0; i < steps; ++i) {
    volatile float product = w * r;  // volatile: no contraction into a fused step
    step = fused ? std::fma(-w, float(r), 2.0f) : 2.0f - product;
    if (i + 1 < steps) r = r * step;
  }
  const uint32_t bits = steps == 2 ? kKqChromaMeanScale2Bits : kKqChromaMeanScale1Bits;
  float scale;
  std::memcpy(&scale, &bits, sizeof scale);
  volatile float scaled = r * scale;
  scaled = scaled * step;
  const double fixed = double(scaled) * 2147483648.0;  // exact: a power of 2
  return fixed >= 2147483647.0 ? 2147483647 : int64_t(fixed);
}

// The least sum up to 255 weight whose armv7 mean is not the rounded
// quotient floor((2 sum + weight) / (2 weight)), which the reference's float
// mean is for all of them (see above), or -1. Both rise with the sum, so
// they agree everywhere when they agree at both ends and on both sides of
// every step of the quotient: sums s - 1 and s, s = ceil(weight (2 m - 1) /
// 2) the least sum whose quotient is m.
int64_t firstWrongSum(uint32_t weight, int64_t q31) {
  auto wrong = [&](int64_t sum) {
    const int64_t mean = (2 * sum * q31 + (int64_t(1) << 31)) >> 32;
    return mean != (2 * sum + weight) / (2 * int64_t(weight));
  };
  const int64_t top = 255 * int64_t(weight);
  if (wrong(0)) return 0;
  for (int64_t m = 1; m <= 255; ++m) {
    const int64_t s = (int64_t(weight) * (2 * m - 1) + 1) / 2;
    if (s - 1 <= top && wrong(s - 1)) return s - 1;
    if (s <= top && wrong(s)) return s;
  }
  return wrong(top) ? top : -1;
}

TEST(ChromaMean, Armv7ReciprocalMeansHoldForBothRefinementSteps) {
  for (int steps = 1; steps <= 2; ++steps) {
    const uint32_t most = steps == 2 ? 1 + 8 * 46 : uint32_t(kKqChromaMeanOneStepWeights);
    for (int fused = 0; fused < 2; ++fused)
      for (uint32_t weight = 1; weight <= most; ++weight)
        ASSERT_EQ(firstWrongSum(weight, armv7Reciprocal(weight, steps, fused)), -1)
            << "weight " << weight << ", " << steps << " step(s)"
            << (fused ? " fused" : " separate");
  }
}

// One refinement step is not enough for pass 1's weights: the emulation above
// must be able to fail, and it does there (some weights from 274 on), for
// both forms; and the search for a wrong sum finds what a look at every sum
// finds.
TEST(ChromaMean, Armv7OneStepMeansFailBeyondTheirWeights) {
  for (int fused = 0; fused < 2; ++fused) {
    int wrong = 0;
    for (uint32_t weight = kKqChromaMeanOneStepWeights + 1; weight <= 1 + 8 * 46; ++weight) {
      const int64_t q31 = armv7Reciprocal(weight, 1, fused);
      const int64_t found = firstWrongSum(weight, q31);
      if (fused == 0) {
        int64_t first = -1;
        for (int64_t sum = 0; sum <= 255 * int64_t(weight) && first < 0; ++sum)
          if ((2 * sum * q31 + (int64_t(1) << 31)) >> 32 != (2 * sum + weight) / (2 * weight))
            first = sum;
        ASSERT_EQ(found, first) << "weight " << weight;
      }
      wrong += found >= 0;
    }
    EXPECT_GT(wrong, 0) << (fused ? "fused" : "separate");
  }
}

}  // namespace
