// check_luma.cpp - every vector kernel of the luma filters against its
// scalar reference, byte for byte, with guarded inputs and framed outputs;
// and the reciprocal-estimate emulation against the real instruction.
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "filters/luma_dsp.h"
#include "filters/recip_estimate.h"
#include "kernels/check_util.h"
#include "runtime/cpu.h"

namespace {

// Every tail length of 8- and 16-pixel blocks, the interior kernel's
// minimum (32) and its block boundaries, and a few large widths.
std::vector<int> testWidths() {
  std::vector<int> w;
  for (int i = 1; i <= 80; ++i) w.push_back(i);
  for (int i : {95, 96, 97, 127, 255, 257, 1001}) w.push_back(i);
  return w;
}

// Values in a random band of random width around a random level: yields
// range weights spread over 0..30, hence weight sums over all of 30..480.
void fillBand(uint8_t* data, int width, int height, KqRng& rng) {
  const int level = rng.range(0, 255);
  const int band = rng.range(1, 70);
  for (int i = 0; i < width * height; ++i) {
    const int v = level + rng.range(-band, band);
    data[i] = uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
  }
}

// Variants 0..7 are the shared fills, 8 and 9 two random bands.
constexpr int kVariants = 10;
void fillInput(uint8_t* data, int width, int height, int variant, KqRng& rng) {
  if (variant < 8)
    kqFillPlane(data, width, height, width, kKqAllFills[variant], rng);
  else
    fillBand(data, width, height, rng);
}

template <typename Slot, typename Body>
int forEachImpl(Slot KQLumaDsp::*slot, Body body) {
  return kqForEachImpl(kqLumaDspInit, slot, body);
}

template <typename To, typename From>
To bitCast(From v) {
  To out;
  std::memcpy(&out, &v, sizeof out);
  return out;
}
uint32_t bitsOf(float f) { return bitCast<uint32_t>(f); }
float fromBits(uint32_t b) { return bitCast<float>(b); }

}  // namespace

// The estimate depends only on sign, exponent and the top 8 mantissa bits:
// sweep all of them (with three patterns of the low bits) through the table
// slot of every level. On ARM the NEON slot is vrecpeq_f32 itself, so this
// holds the emulation against the instruction; on x86 it holds the vector
// emulation against the scalar one.
TEST(LumaKernels, RecipEstimateMatchesInstructionOverInputSpace) {
  std::vector<float> in;
  KqRng rng(kqTestSeed());
  for (uint32_t sign = 0; sign < 2; ++sign)
    for (uint32_t e = 0; e < 256; ++e) {
#if defined(__aarch64__)
      // FPCR.FZ = 0 on aarch64 Linux: denormal inputs and results and NaN
      // propagation follow other rules than armv7's, which we emulate.
      if (e == 0 || e >= 253) continue;
#endif
      for (uint32_t top = 0; top < 256; ++top) {
        const uint32_t lows[3] = {0u, 0x7FFFu, rng.next() & 0x7FFFu};
        for (uint32_t low : lows) {
          const uint32_t bits = sign << 31 | e << 23 | top << 15 | low;
          if (e == 255 && (top | low) != 0) continue;  // NaN payloads
          in.push_back(fromBits(bits));
        }
      }
    }
  // Every weight sum the noise filter can produce, as the kernel forms it.
  for (int d = 0; d < kKqRecipTableSize; ++d) in.push_back(float(d));
  const int n = int(in.size());
  std::vector<float> want(n);
  kqRecipEstimate_c(in.data(), want.data(), n);
  const int levels =
      forEachImpl(&KQLumaDsp::recipEstimate, [&](const KQLumaDsp& dsp, const KQLumaDsp&, uint32_t) {
        // An odd count exercises the kernels' tail path.
        std::vector<float> got(n + 1, -1.0f);
        dsp.recipEstimate(in.data(), got.data(), n - 1);
        dsp.recipEstimate(in.data() + n - 1, got.data() + n - 1, 1);
        int bad = 0;
        for (int i = 0; i < n && bad < 10; ++i)
          if (bitsOf(want[i]) != bitsOf(got[i])) {
            ++bad;
            ADD_FAILURE() << std::hex << "input 0x" << bitsOf(in[i]) << ": emulation 0x"
                          << bitsOf(want[i]) << ", kernel 0x" << bitsOf(got[i]);
          }
        EXPECT_EQ(got[n], -1.0f) << "wrote past the end";
      });
  // The table the scalar interior kernel reads is the emulation at integer sums.
  const float* table = kqRecipEstimateTable();
  for (int d = 0; d < kKqRecipTableSize; ++d)
    ASSERT_EQ(bitsOf(table[d]), bitsOf(want[n - kKqRecipTableSize + d])) << "sum " << d;
#if defined(__arm__) || defined(__aarch64__)
  EXPECT_GE(levels, 1) << "the NEON estimate was never compared";
#endif
}

TEST(LumaKernels, NoiseReductionRow) {
  forEachImpl(&KQLumaDsp::nrRow, [&](const KQLumaDsp& dsp, const KQLumaDsp& ref, uint32_t) {
    for (int width : testWidths())
      for (int variant = 0; variant < kVariants; ++variant) {
        KqRng rng(kqTestSeed() + uint64_t(width) * 131 + variant);
        // Nine rows, the last one ending right before a PROT_NONE page.
        KqGuardedBuffer in(size_t(width) * 9);
        fillInput(in.data(), width, 9, variant, rng);
        KqFramedPlane a(width, 1), b(width, 1);
        const uint8_t* centre = in.data() + 4 * width;
        ref.nrRow(a.data(), centre, width, width);
        dsp.nrRow(b.data(), centre, width, width);
        ASSERT_TRUE(kqFramedEqual(a, b)) << "width " << width << " variant " << variant;
      }
  });
}

// The fused interior row and blend: every block count a width allows (the
// driver stops before the right strip), weights at both ends of 0..128 and
// the driver's (strength 3), framed outputs; levels without a fused row
// (null slot) are left out.
TEST(LumaKernels, NoiseReductionBlendRow) {
  const int32_t weights[] = {0, 1, 38, 64, 127, 128};
  int compared = 0;
  forEachImpl(&KQLumaDsp::nrBlendRow, [&](const KQLumaDsp& dsp, const KQLumaDsp& ref, uint32_t) {
    if (dsp.nrBlendRow == nullptr) return;
    ++compared;
    for (int width : testWidths()) {
      const int most = (width - 16) / 16;
      for (int blocks = most > 2 ? most - 2 : 0; blocks <= most; ++blocks)
        for (int variant = 0; variant < kVariants; ++variant) {
          KqRng rng(kqTestSeed() + uint64_t(width) * 37 + uint64_t(blocks) * 5 + variant);
          KqGuardedBuffer in(size_t(width) * 9);
          fillInput(in.data(), width, 9, variant, rng);
          const int32_t weight = weights[(width + variant) % 6];
          KqFramedPlane a(width, 1), b(width, 1);
          const uint8_t* centre = in.data() + 4 * width;
          ref.nrBlendRow(a.data(), centre, width, blocks, weight);
          dsp.nrBlendRow(b.data(), centre, width, blocks, weight);
          ASSERT_TRUE(kqFramedEqual(a, b)) << "width " << width << " blocks " << blocks
                                           << " weight " << weight << " variant " << variant;
        }
    }
  });
#if defined(__arm__) || defined(__aarch64__)
  EXPECT_GE(compared, 1) << "the NEON fused row was never compared";
#endif
}

// Runs of the border frame: every tap shift the frame uses, runs of every
// length up to 80 and around the 32- and 64-centre steps, on rows just wide
// enough for the run's reads (the five rows end right before a guard page),
// over all fills; rows handed over in a shuffled order.
TEST(LumaKernels, NoiseReductionBorderRun) {
  forEachImpl(&KQLumaDsp::nrBorderRun, [&](const KQLumaDsp& dsp, const KQLumaDsp& ref, uint32_t) {
    std::vector<int> counts;
    for (int n = 1; n <= 80; ++n) counts.push_back(n);
    for (int n : {95, 96, 97, 127, 128, 129, 200, 1001}) counts.push_back(n);
    for (int s : {6, 0, -6, -12})
      for (int count : counts) {
        // The first column the shift allows; the taps (or, for -12, the
        // centres) reach the row's last column.
        const int x = 6 - s;
        const int width = count + (s >= -6 ? 12 : 6 - s);
        KqRng rng(kqTestSeed() + uint64_t(count) * 7 + uint64_t(s + 12));
        KqGuardedBuffer in(size_t(width) * 5);
        fillInput(in.data(), width, 5, count % kVariants, rng);
        const uint8_t* rows[5];
        for (int k = 0; k < 5; ++k) rows[k] = in.data() + size_t(rng.range(0, 4)) * width;
        KqFramedPlane a(width, 1), b(width, 1);
        ref.nrBorderRun(a.data(), rows, x, count, s);
        dsp.nrBorderRun(b.data(), rows, x, count, s);
        ASSERT_TRUE(kqFramedEqual(a, b)) << "shift " << s << " count " << count;
      }
  });
}

// Blend weights include 16-bit wrap-around values and negatives. Scale 0
// is the plain blend; the reference blends (scales 1, 2, 4) get exactly the
// reference bytes the contract allows, then the guard page.
TEST(LumaKernels, BlendRows) {
  const int32_t weights[] = {0,     12, 64,     115,   128,   140,   256,       1280,
                             32767, -1, -32768, 65535, 70000, -3000, INT32_MAX, INT32_MIN};
  auto check = [&](const KQLumaDsp& dsp, const KQLumaDsp& ref, std::vector<int> scales) {
    for (int scale : scales)
      for (int width : testWidths())
        for (int32_t weight : weights) {
          KqRng rng(kqTestSeed() + uint64_t(width) * 11 + uint32_t(weight) + scale);
          const int n = width & ~7;
          const size_t refBytes = n > 0 && scale > 0 ? size_t((n - 1) / scale + 1) : 1;
          KqGuardedBuffer r{refBytes}, orig{size_t(width)};
          KqFramedPlane a(width, 1), b(width, 1);
          kqFillPlane(r.data(), int(refBytes), 1, int(refBytes), KqFill::kUniform, rng);
          kqFillPlane(orig.data(), width, 1, width, KqFill::kUniform, rng);
          kqFillPlane(a.data(), width, 1, width, KqFill::kUniform, rng);
          std::memcpy(b.data(), a.data(), size_t(width));
          if (scale == 0) {
            ref.blendRow(a.data(), orig.data(), width, weight);
            dsp.blendRow(b.data(), orig.data(), width, weight);
          } else {
            ref.blendRefRow(a.data(), orig.data(), r.data(), width, weight, scale);
            dsp.blendRefRow(b.data(), orig.data(), r.data(), width, weight, scale);
          }
          ASSERT_TRUE(kqFramedEqual(a, b))
              << "scale " << scale << " width " << width << " weight " << weight;
        }
  };
  forEachImpl(&KQLumaDsp::blendRow,
              [&](const KQLumaDsp& d, const KQLumaDsp& r, uint32_t) { check(d, r, {0}); });
  forEachImpl(&KQLumaDsp::blendRefRow, [&](const KQLumaDsp& d, const KQLumaDsp& r, uint32_t) {
    check(d, r, {1, 2, 4});
  });
}

// Every arithmetic path of the sharpening kernels: gains up to 192 in
// magnitude (aarch64 adds the response to the bytes with one saturating
// add there), up to 8191 (one multiply per lane) and beyond (the full
// product, gains that wrap in 16 bits), thresholds that wrap to 0 or -32768, several tap
// sets, on widths around the vector steps and column chunks; on every other
// test width, each fill with a random choice of those.
TEST(LumaKernels, SharpenRow) {
  const std::vector<int32_t> gains = {0,     1,      -1,          -77,   153,   192,      -192,
                                      193,   256,    -256,        600,   2047,  2048,     -2048,
                                      4000,  8191,   -8191,       8192,  -8192, 16383,    32767,
                                      32768, -32768, 65536 + 192, 65836, 70000, INT32_MIN};
  const std::vector<int32_t> thresholds = {0, 1, 6, 150, 2000, -9, 32767, 32768, 40000, 65536};
  // The driver's two tap sets, then others the contract allows: a centre
  // weight of 128 (outside the signed-byte range of the x86 kernels'
  // multiplies) and the extremes of the outer and inner weights.
  const int32_t taps[][3] = {{7, 31, 52}, {19, 19, 52}, {0, 0, 128},
                             {64, 0, 0},  {0, 64, 0},   {1, 1, 124}};
  const int kTapSets = int(sizeof taps / sizeof taps[0]);
  const std::set<int> everyPath = {8,    24,   31,   32,   33,   40,   63,   64,   72,   97,
                                   1001, 1024, 1032, 1057, 2048, 2056, 2080, 2088, 3001, 4136};
  std::set<int> widths(everyPath);
  for (int w : testWidths()) widths.insert(w);
  forEachImpl(&KQLumaDsp::sharpenRow, [&](const KQLumaDsp& dsp, const KQLumaDsp& ref, uint32_t) {
    for (int width : widths) {
      KqRng rng(kqTestSeed() + uint64_t(width) * 17);
      KqGuardedBuffer in(size_t(width) * 5);
      const bool all = everyPath.count(width) != 0;
      const int combinations = all ? int(gains.size() * thresholds.size()) : kVariants;
      for (int i = 0; i < combinations; ++i) {
        // The tap sets take turns: each meets every gain and every threshold.
        const int32_t* t = taps[all ? i % kTapSets : rng.range(0, kTapSets - 1)];
        const int variant = all ? rng.range(0, kVariants - 1) : i;
        fillInput(in.data(), width, 5, variant, rng);
        // Rows in a shuffled order, as the edge mirroring hands them over.
        const uint8_t* rows[5];
        for (int k = 0; k < 5; ++k) rows[k] = in.data() + size_t(rng.range(0, 4)) * width;
        const KQSharpenParams p = {
            all ? gains[size_t(i) / thresholds.size()]
                : gains[size_t(rng.range(0, int(gains.size()) - 1))],
            all ? thresholds[size_t(i) % thresholds.size()]
                : thresholds[size_t(rng.range(0, int(thresholds.size()) - 1))],
            t[0], t[1], t[2]};
        KqFramedPlane a(width, 1), b(width, 1);
        ref.sharpenRow(a.data(), rows, width, &p);
        dsp.sharpenRow(b.data(), rows, width, &p);
        ASSERT_TRUE(kqFramedEqual(a, b))
            << "width " << width << " variant " << variant << " gain " << p.gain << " threshold "
            << p.threshold << " taps " << t[0] << "/" << t[1] << "/" << t[2];
      }
    }
  });
}

// The x86 rows shift their step grid to where the centre row is aligned:
// every start offset within 64 bytes, on rows of one, two and three chunks.
// The stack is scribbled on before each call, so that a line-buffer value
// an earlier call left behind cannot pass for one read before it was
// computed.
TEST(LumaKernels, SharpenRowAnyRowAlignment) {
  const int widths[] = {200, 2056, 4136, 8232};
  forEachImpl(&KQLumaDsp::sharpenRow, [&](const KQLumaDsp& dsp, const KQLumaDsp& ref, uint32_t) {
    for (int width : widths) {
      KqRng rng(kqTestSeed() + uint64_t(width) * 29);
      const size_t stride = size_t(width) + 64;
      KqGuardedBuffer in(stride * 5 + 64);
      fillInput(in.data(), int(stride), 5, 0, rng);
      for (int offset = 0; offset < 64; ++offset) {
        const uint8_t* rows[5];
        for (int k = 0; k < 5; ++k) rows[k] = in.data() + offset + size_t(k) * stride;
        const KQSharpenParams p = {256 + offset, offset % 3 == 0 ? 0 : offset, 7, 31, 52};
        KqFramedPlane a(width, 1), b(width, 1);
        ref.sharpenRow(a.data(), rows, width, &p);
        kqScribbleStack(uint8_t(offset * 37 + 11));
        dsp.sharpenRow(b.data(), rows, width, &p);
        ASSERT_TRUE(kqFramedEqual(a, b)) << "width " << width << " offset " << offset;
      }
    }
  });
}
