// check_warp.cpp - warp kernels at every instruction-set level against the
// scalar reference: rows as the tile code hands them over (with and without
// block codes and a plan) and whole warps; and the shortcuts the fast paths
// rest on (block origins, the normalisation) against their long forms.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

#include "kernels/check_util.h"
#include "runtime/cpu.h"
#include "warp/homography.h"
#include "warp/warp_family.h"
#include "warp/warp_dsp.h"

namespace {

// The row kernels: the chroma planes' nearest sample, the luma's bilinear
// and the nearest sample of interleaved chroma pairs.
enum RowKind : int { kNearest = 0, kBilinear = 1, kPairs = 2 };
const char* const kRowKindName[] = {"nearest", "bilinear", "pairs"};

// The table slot whose implementations a check of that kind compares; the
// whole-warp check takes the rest of the level's table with it.
template <typename Body>
void forEachImpl(int kind, Body body) {
  if (kind == kBilinear)
    kqForEachImpl(kqWarpDspInit, &KQWarpDsp::bilinearRow, body);
  else if (kind == kNearest)
    kqForEachImpl(kqWarpDspInit, &KQWarpDsp::nearestRow, body);
  else
    kqForEachImpl(kqWarpDspInit, &KQWarpDsp::nearestPairRow, body);
}

// Step d (source pixels per output pixel) in the row's two forms.
void setStep(KQWarpRow* row, float d) {
  row->step = int32_t(d * 2048.0f);
  row->blockStep = d * 8.0f;
}

// 1..maxRows output rows, each with a random vertical weight.
void randomRows(KQWarpRow* row, int32_t maxRows, KqRng& rng) {
  row->rows = rng.range(1, maxRows);
  for (int32_t r = 0; r < kKqWarpMaxRows; ++r) row->w1[r] = rng.range(0, 15);
}

// A step for a row: mostly upscales (the vector range), sometimes
// downscales, mirrors or large jumps, which take the one-pixel path.
float randomStep(KqRng& rng) {
  const int k = rng.range(0, 7);
  return k == 0   ? 0.0f
         : k == 1 ? rng.uniform(1.0f, 6.0f)
         : k == 2 ? -rng.uniform(0.0f, 3.0f)
         : k == 3 ? 1.0f
                  : rng.uniform(0.0f, 1.0f);
}

// Source position of a row start: inside, near either edge, or outside.
float randomStart(KqRng& rng, int32_t width) {
  const int k = rng.range(0, 5);
  return k == 0   ? rng.uniform(-20.0f, 0.0f)
         : k == 1 ? float(width) - rng.uniform(0.0f, 12.0f)
         : k == 2 ? float(width) + rng.uniform(0.0f, 30.0f)
                  : rng.uniform(0.0f, float(width));
}

// The pipeline's homographies for one enlargement, and a whole warp of a
// plane with them on one thread.
struct Warp {
  int32_t sw, sh, dw, dh, lx = 0, ly = 0;
  Homography fwd[kKqGridTiles], inv[kKqGridTiles];
  Warp(int32_t srcW, int32_t srcH, int32_t dstW, int32_t dstH)
      : sw(srcW), sh(srcH), dw(dstW), dh(dstH) {
    Homography fs, is;
    kqCreateScalingHomographies(fwd, inv, &fs, &is, sw, sh, dw, dh, &lx, &ly);
  }
  // rows: null for a packed luma source, or its row stride.
  void run(const KQWarpDsp& dsp, bool luma, uint8_t* src, uint8_t* dst,
           KQWarpSourceRows* rows = nullptr) const {
    KQImage8 planes[2] = {{sw, sh, src}, {dw, dh, dst}};
    warpAllDsp(&dsp, planes, nullptr, rows, fwd, inv, 0, lx, 0, ly, 1, 0, 0, 1, luma ? 0 : 1, luma,
               4, 4);
  }
  // The chroma warp of interleaved pairs (srcPitch bytes per source row)
  // into interleaved pairs (pitch bytes per destination row), each pair's
  // bytes exchanged when swap.
  void runPairs(const KQWarpDsp& dsp, uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst,
                ptrdiff_t pitch, bool swap) const {
    KQWarpChromaPairs pairs{src, srcPitch, dst, pitch, swap};
    KQImage8 planes[2] = {{sw, sh, src}, {dw, dh, dst}};
    warpAllDsp(&dsp, planes, nullptr, &pairs, fwd, inv, 0, lx, 0, ly, 1, 0, 0, 1, 1, 0, 4, 4);
  }
};

float floatFromBits(uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

// The one-multiply block origin the vector kernels and the tile code use
// must split every start exactly as the reference does: a sweep over the
// whole non-negative float range (past the 2^24 clamp, up to infinity),
// every start within a few ulps of a 1/32 position (where truncation and
// floor are most easily told apart), negative starts and NaN.
TEST(CheckWarp, FastBlockOriginMatchesTheLongForm) {
  auto same = [](float p) {
    int32_t b0, f0, b1, f1;
    kqwarp::blockOrigin(p, &b0, &f0);
    kqwarp::blockOriginFast(p, &b1, &f1);
    return b0 == b1 && f0 == f1;
  };
  for (uint32_t bits = 0; bits <= 0x7F800000u; bits += 97)
    ASSERT_TRUE(same(floatFromBits(bits))) << "start " << floatFromBits(bits);
  ASSERT_TRUE(same(floatFromBits(0x7F800000u)));
  for (int32_t k = 0; k <= 32 * 2048; ++k) {
    float p = float(k) / 32.0f, q = p;
    for (int i = 0; i < 8; ++i) {
      ASSERT_TRUE(same(p) && same(q)) << "near " << float(k) / 32.0f;
      p = std::nextafter(p, 1e30f);
      q = std::nextafter(q, -1e30f);
    }
  }
  for (float p : {16777215.0f, 16777216.0f, 16777218.0f, 3e9f, -0.0f, -1e-30f, -0.5f, -3.25f,
                  -16777216.0f, -1e20f, std::nanf("")})
    ASSERT_TRUE(same(p)) << "start " << p;
}

// Block origins (floor of 32 times each block's clamped start) of a row.
std::vector<int32_t> blockCodes(const KQWarpRow& row) {
  std::vector<int32_t> codes;
  float p = row.x;
  for (int32_t start = 0; start < row.count; start += 8) {
    int32_t base, phase;
    kqwarp::blockOrigin(p, &base, &phase);
    codes.push_back(base * 32 + phase);
    p = p + row.blockStep;
  }
  return codes;
}

// Whole warps with the pipeline's arguments, every distinct implementation
// against the scalar table; sources end at a guard page, destinations sit
// in sentinel frames. The warp of interleaved chroma pairs must give the
// scalar warps of the two byte planes side by side.
TEST(CheckWarp, WholeWarp) {
  struct Size {
    int32_t sw, sh, dw, dh;
  };
  // Exact 2x and 4x enlargements put every tile's rows on one or two block
  // chains (the planned rows); non-uniform tiles and shears give rows many
  // chains, more than the tile code keeps. Small planes put a few pixels in
  // each tile; reductions take the one-pixel path.
  const Size sizes[] = {{64, 48, 256, 192},   {60, 44, 250, 187},  {33, 20, 200, 121},
                        {8, 8, 24, 24},       {100, 40, 130, 90},  {16, 12, 16, 12},
                        {160, 90, 320, 180},  {130, 74, 260, 148}, {121, 67, 242, 134},
                        {203, 115, 406, 230}, {12, 8, 30, 21},     {6, 4, 2, 2},
                        {120, 90, 50, 37}};
  for (int kind : {kNearest, kBilinear, kPairs})
    forEachImpl(kind, [&](const KQWarpDsp& dsp, const KQWarpDsp& ref, uint32_t level) {
      const bool luma = kind == kBilinear;
      for (const Size& s : sizes)
        for (int nonUniform = 0; nonUniform < 3; ++nonUniform) {
          KqRng rng(kqTestSeed() ^ uint64_t(s.sw * 131 + s.dw) ^ (uint64_t(nonUniform) << 50));
          Warp warp(s.sw, s.sh, s.dw, s.dh);
          if (nonUniform == 1) {
            for (Homography& h : warp.inv) {
              h.h[0] *= rng.uniform(0.9f, 1.1f);
              h.h[2] += rng.uniform(-2.0f, 2.0f);
              h.h[5] += rng.uniform(-2.0f, 2.0f);
            }
          } else if (nonUniform == 2) {
            for (Homography& h : warp.inv) h.h[1] = rng.uniform(-0.05f, 0.05f);
          }
          const char* shape = nonUniform == 1 ? " non-uniform" : nonUniform == 2 ? " sheared" : "";
          const size_t dstBytes = size_t(s.dw) * s.dh;
          if (kind != kPairs) {
            KqGuardedBuffer src(size_t(s.sw) * s.sh);
            kqFillPlane(src.data(), s.sw, s.sh, s.sw, KqFill::kSmooth, rng);
            KqFramedPlane a(int(dstBytes), 1), b(int(dstBytes), 1);
            warp.run(ref, luma, src.data(), a.data());
            warp.run(dsp, luma, src.data(), b.data());
            ASSERT_TRUE(kqFramedEqual(a, b)) << kRowKindName[kind] << " warp " << s.sw << "x"
                                             << s.sh << " -> " << s.dw << "x" << s.dh << shape;
            if (!luma) continue;
            // Luma read where it lies, rows apart by more than the width.
            KQWarpSourceRows rows{s.sw + 5 + nonUniform * 13};
            KqGuardedBuffer wide(size_t(rows.stride) * (s.sh - 1) + size_t(s.sw));
            for (int32_t y = 0; y < s.sh; ++y)
              std::memcpy(wide.data() + y * rows.stride, src.data() + y * s.sw, size_t(s.sw));
            b.fill(0xA5);
            warp.run(dsp, true, wide.data(), b.data(), &rows);
            ASSERT_TRUE(kqFramedEqual(a, b))
                << "luma warp from rows " << rows.stride << " apart, " << s.sw << "x" << s.sh
                << " -> " << s.dw << "x" << s.dh << shape;
            continue;
          }
          // Pairs with row padding on both sides (left alone in the
          // destination), the source's last pair at a guard page.
          const bool swap = nonUniform != 1;
          const ptrdiff_t srcPitch = 2 * s.sw + 3 * nonUniform;
          const ptrdiff_t pitch = 2 * s.dw + 2 * nonUniform;
          KqGuardedBuffer src(size_t(srcPitch) * (s.sh - 1) + 2 * size_t(s.sw));
          kqFillPlane(src.data(), 2 * s.sw, s.sh, int(srcPitch), KqFill::kSmooth, rng);
          std::vector<uint8_t> plane[2], warped[2];
          for (int b = 0; b < 2; ++b) {
            for (int32_t y = 0; y < s.sh; ++y)
              for (int32_t x = 0; x < s.sw; ++x)
                plane[b].push_back(src.data()[y * srcPitch + 2 * x + b]);
            warped[b].assign(dstBytes, 0);
            warp.run(ref, false, plane[b].data(), warped[b].data());
          }
          KqFramedPlane want(int(pitch) * s.dh, 1), got(int(pitch) * s.dh, 1);
          for (int32_t y = 0; y < s.dh; ++y)
            for (int32_t x = 0; x < s.dw; ++x)
              for (int b = 0; b < 2; ++b)
                want.data()[y * pitch + 2 * x + b] = warped[b ^ int(swap)][size_t(y) * s.dw + x];
          warp.runPairs(dsp, src.data(), srcPitch, got.data(), pitch, swap);
          ASSERT_TRUE(kqFramedEqual(want, got))
              << "chroma pairs " << s.sw << "x" << s.sh << " -> " << s.dw << "x" << s.dh << shape
              << (swap ? " swapped" : "") << " pitch " << srcPitch << " -> " << pitch;
        }
    });
}

// The window form (kqwarp::KQWarpPairForm) the planned kernels find for
// pixels k0 .. k0 + 15 of a row.
int32_t pairForm(const std::vector<int32_t>& codes, int32_t step, int32_t k0, int32_t width) {
  int32_t win[2];
  uint8_t sel[2][16], wts[2][16];
  for (int32_t form = kqwarp::kPairsShared; form < kqwarp::kPairsNone; ++form)
    if (kqwarp::pairWindows(codes.data(), step, k0, width, form, win, sel, wts)) return form;
  return kqwarp::kPairsNone;
}

// Counts the window forms of the 16-pixel runs the planned kernels work on:
// from every multiple of 16, and the runs that end at the row's end.
void tallyForms(const std::vector<int32_t>& codes, const KQWarpRow& row, int32_t forms[4]) {
  for (int32_t k0 = 0; k0 + 16 <= row.count; k0 += 16)
    ++forms[pairForm(codes, row.step, k0, row.srcWidth)];
  for (int32_t k0 : {row.count - 16, row.count - 32})
    if (k0 >= 0 && k0 % 16 != 0) ++forms[pairForm(codes, row.step, k0, row.srcWidth)];
}

// Counts the 64-pixel runs of the 512-bit kernel by the windows their pairs
// need: one of 64 bytes, two, or more (which the block chain rules out).
void tallySpans(const std::vector<int32_t>& codes, const KQWarpRow& row, int32_t spans[3]) {
  for (int32_t k0 = 0; k0 + 64 <= row.count; k0 += 64) {
    int32_t lo = row.srcWidth, hi = 0;
    for (int32_t k = k0; k < k0 + 64; ++k) {
      int32_t xi, f;
      kqwarp::pixelPosition(codes.data(), row.step, k, &xi, &f);
      lo = std::min(lo, kqwarp::clampCol(xi, row.srcWidth));
      hi = std::max(hi, kqwarp::clampCol(xi + 1, row.srcWidth));
    }
    ++spans[hi - lo < 64 ? 0 : hi - lo < 128 ? 1 : 2];
  }
}

// The row `a` of a kind through the scalar reference and through `dsp`,
// which gets the row's block codes and the given plan when codes is given,
// as the tile code hands over the rows of one chain. True if the framed
// outputs agree.
bool plannedMatches(const KQWarpDsp& ref, const KQWarpDsp& dsp, const KQWarpRow& a,
                    const std::vector<int32_t>* codes, std::vector<uint8_t>& plan, int32_t* ready,
                    int kind = kBilinear, int32_t swap = 0) {
  KQWarpRow planned = a;
  if (codes != nullptr) {
    planned.codes = codes->data();
    planned.plan = plan.data();
    planned.planReady = ready;
  }
  const int32_t rows = kind == kBilinear ? a.rows : 1;
  const int32_t bytes = kind == kPairs ? 2 * a.count : a.count;
  KqFramedPlane pa(bytes, rows), pb(bytes, rows);
  if (kind == kPairs) {
    ref.nearestPairRow(pa.data(), &a, swap);
    dsp.nearestPairRow(pb.data(), &planned, swap);
  } else if (kind == kNearest) {
    ref.nearestRow(pa.data(), &a);
    dsp.nearestRow(pb.data(), &planned);
  } else {
    ref.bilinearRow(pa.data(), pa.stride(), &a);
    dsp.bilinearRow(pb.data(), pb.stride(), &planned);
  }
  return kqFramedEqual(pa, pb);
}

// Every row kernel as the tile code calls it: runs of calls down a plane
// (rows repeated, skipped, the last paired with itself, the plane ending at
// a guard page) with the row's block codes and one plan, or without codes
// (every width up to 24, then wider; downscales, mirrors, jumps). Each must
// give the scalar bytes of the same rows without codes, and the planned rows
// must reach every window form of the planned groups.
TEST(CheckWarp, RowsMatchTheFloatChainWithAndWithoutAPlan) {
  for (int rowKind : {kNearest, kBilinear, kPairs})
    forEachImpl(rowKind, [&](const KQWarpDsp& dsp, const KQWarpDsp& ref, uint32_t level) {
      KqRng rng(kqTestSeed() ^ 0x9A7 ^ (uint64_t(level) << 36));
      const int32_t bpp = rowKind == kPairs ? 2 : 1;  // bytes per source pixel
      int32_t forms[4] = {}, spans[3] = {};
      for (int iter = 0; iter < 420; ++iter) {
        // Kinds: 0 exact halves and quarters, 1 a little under them (the 2x
        // and 4x grids keep a margin), 2 steps near 1 (a window per parity,
        // or over 16 bytes), 3 any step, 4 rows without codes, 5 other
        // upscales, 6 steps just under 1 on wider rows (a 64-pixel run over
        // two 64-byte windows).
        const int32_t kind = iter % 7;
        const bool withPlan = kind != 4;
        const int32_t w = kind == 6   ? rng.range(60, 400)
                          : kind == 4 ? (iter < 7 * 24 ? 1 + iter / 7 : rng.range(1, 300))
                                      : rng.range(1, 120);
        const int32_t h = rng.range(1, 12);
        KqGuardedBuffer src(size_t(w) * h * bpp);
        kqFillPlane(src.data(), w * bpp, h, w * bpp, kKqAllFills[iter % 8], rng);
        KQWarpRow a;
        a.srcWidth = w;
        a.count = kind == 6   ? rng.range(64, 2 * w)
                  : kind == 4 ? rng.range(1, iter % 2 ? 20 : 700)
                              : rng.range(1, 300);
        const float half = rng.range(0, 1) ? 0.5f : 0.25f;
        const float d = kind == 0                ? half
                        : kind == 1              ? half * (1.0f - 3.0f / float(rng.range(16, 4000)))
                        : kind == 2              ? rng.uniform(0.88f, 1.0f)
                        : kind == 3 || kind == 4 ? randomStep(rng)
                        : kind == 6              ? rng.uniform(0.97f, 1.0f)
                                                 : rng.uniform(0.0f, 1.0f);
        setStep(&a, d);
        a.x = kind == 0   ? float(rng.range(-64, 32 * w + 64)) / 32.0f
              : kind == 2 ? rng.uniform(0.0f, float(w) * 0.25f)
              : kind == 6 ? rng.uniform(-20.0f, float(w) * 0.5f)
                          : randomStart(rng, w);
        std::vector<int32_t> codes = blockCodes(a);
        if (withPlan && kqwarp::vectorStep(a.step)) {
          tallyForms(codes, a, forms);
          tallySpans(codes, a, spans);
        }
        std::vector<uint8_t> plan(kqWarpPlanBytes(a.count), 0xA5);
        int32_t ready = 0;
        int32_t y = rng.range(0, h - 1);
        for (int call = 0; call < 10; ++call) {
          const int32_t move = rng.range(0, 5);  // 0: repeat, 5: skip a row
          y = move == 0 ? y : move == 5 ? y + 2 : y + 1;
          if (y > h - 1) y = rng.range(0, h - 1);
          a.src0 = src.data() + size_t(y) * w * bpp;
          a.src1 = src.data() + size_t(y + 1 < h ? y + 1 : h - 1) * w * bpp;
          randomRows(&a, kKqWarpMaxRows, rng);
          // Pairs rows change their byte order now and then on the same plan.
          const int32_t swap = call / 4 % 2;
          ASSERT_TRUE(
              plannedMatches(ref, dsp, a, withPlan ? &codes : nullptr, plan, &ready, rowKind, swap))
              << kRowKindName[rowKind] << (withPlan ? "" : " without codes") << " width " << w
              << " count " << a.count << " x " << a.x << " step " << d << " call " << call
              << " source row " << y << " swap " << swap;
        }
      }
      // The cases reach every window form of the byte kernels' groups (the
      // pairs kernels read one window per block of 8).
      if (rowKind == kPairs) return;
      for (int32_t form = kqwarp::kPairsShared; form < kqwarp::kPairsNone; ++form)
        EXPECT_GT(forms[form], 20) << "window form " << form;
      EXPECT_GT(spans[0], 20) << "one 64-byte window";
      EXPECT_GT(spans[1], 5) << "two 64-byte windows";
      EXPECT_EQ(spans[2], 0);
    });
}

// Enlargements walk down the plane on one plan, each call's upper source
// row the lower row of the call before, 1 to 4 output rows per call: the
// planned kernels' common case, where every group's bytes fit a 16-byte
// window (armv7 then takes the whole row without per-group tests, and keeps
// the lower row's horizontal results for the next call). The same rows
// started near the right edge, so that the last groups read clamped
// columns, and near the left edge, must take the general path; all give the
// scalar bytes.
TEST(CheckWarp, EnlargedRowsDownOnePlan) {
  const int32_t w = 200, h = 9;
  KqGuardedBuffer src(size_t(w) * h);
  KqRng fillRng(kqTestSeed() ^ 0xE11);
  kqFillPlane(src.data(), w, h, w, KqFill::kUniform, fillRng);
  for (int rowKind : {kNearest, kBilinear})
    forEachImpl(rowKind, [&](const KQWarpDsp& dsp, const KQWarpDsp& ref, uint32_t level) {
      KqRng rng(kqTestSeed() ^ 0xE12 ^ (uint64_t(level) << 36));
      for (float d : {0.5f, 0.25f, 0.3f, 0.9f}) {
        for (int start = 0; start < 3; ++start) {
          KQWarpRow a;
          a.srcWidth = w;
          // Inside: the row's source span ends 20 columns before the edge.
          a.count = rng.range(16, start == 0 ? std::min(300, int(float(w - 30) / d)) : 300);
          setStep(&a, d);
          const float span = float(a.count) * d;
          a.x = start == 0   ? rng.uniform(2.0f, float(w) - span - 20.0f)
                : start == 1 ? float(w) - span * rng.uniform(0.3f, 0.9f)
                             : -rng.uniform(0.0f, 12.0f);
          std::vector<int32_t> codes = blockCodes(a);
          std::vector<uint8_t> plan(kqWarpPlanBytes(a.count), 0xA5);
          int32_t ready = 0;
          for (int32_t y = 0; y + 1 < h; ++y) {
            a.src0 = src.data() + size_t(y) * w;
            a.src1 = src.data() + size_t(y + 1) * w;
            randomRows(&a, kKqWarpMaxRows, rng);
            ASSERT_TRUE(plannedMatches(ref, dsp, a, &codes, plan, &ready, rowKind))
                << kRowKindName[rowKind] << " step " << d << " start " << a.x << " count "
                << a.count << " row " << y << " rows " << a.rows;
          }
        }
      }
    });
}

// Far along a very wide row (columns past 2^23, where one float ulp is a
// whole pixel) a step near 1 moves some blocks by a full 8 pixels, and a
// 16-pixel run that starts inside a block can spread over more than 16
// bytes, so that the planned kernels' last group of a row takes the
// lane-by-lane form. Those rows must still give the scalar bytes.
TEST(CheckWarp, PlannedRowsFarAlongAWideRow) {
  const int32_t w = (1 << 23) + 8192;
  KqGuardedBuffer src(size_t(w) * 2);
  KqRng fillRng(kqTestSeed() ^ 0xFA4);
  kqFillPlane(src.data(), w, 2, w, KqFill::kUniform, fillRng);
  for (int luma = 0; luma < 2; ++luma)
    forEachImpl(luma ? kBilinear : kNearest, [&](const KQWarpDsp& dsp, const KQWarpDsp& ref,
                                                 uint32_t level) {
      KqRng rng(kqTestSeed() ^ 0xFA7 ^ (uint64_t(level) << 36));
      int32_t forms[4] = {}, spans[3] = {};
      for (int iter = 0; iter < 200; ++iter) {
        KQWarpRow a;
        a.src0 = src.data();
        a.src1 = src.data() + w;
        a.srcWidth = w;
        a.count = rng.range(32, 300);
        randomRows(&a, kKqWarpMaxRows, rng);
        const float d = rng.uniform(0.85f, 1.0f);
        setStep(&a, d);
        a.x = float((1 << 23) + rng.range(0, 4096)) + float(rng.range(0, 31)) / 32.0f;
        std::vector<int32_t> codes = blockCodes(a);
        tallyForms(codes, a, forms);
        tallySpans(codes, a, spans);
        std::vector<uint8_t> plan(kqWarpPlanBytes(a.count), 0xA5);
        int32_t ready = 0;
        ASSERT_TRUE(plannedMatches(ref, dsp, a, &codes, plan, &ready, luma ? kBilinear : kNearest))
            << "count " << a.count << " x " << a.x << " step " << d;
      }
      EXPECT_GT(forms[kqwarp::kPairsNone], 5);
      EXPECT_EQ(spans[2], 0);
    });
}

// The repeated-row copy: every length around its steps (16, 64), at every
// alignment of both ends, writes exactly [0, n) with the source's bytes.
TEST(CheckWarp, CopyRowWritesExactlyItsBytes) {
  const int visited = kqForEachImpl(
      kqWarpDspInit, &KQWarpDsp::copyRow, [](const KQWarpDsp& dsp, const KQWarpDsp&, uint32_t) {
        KqRng rng(7);
        std::vector<uint8_t> src(400), dst(432);
        for (auto& b : src) b = uint8_t(rng.range(0, 255));
        for (size_t n = 0; n <= 300; ++n) {
          for (size_t so = 0; so < 4; ++so) {
            for (size_t d0 = 0; d0 < 4; ++d0) {
              std::fill(dst.begin(), dst.end(), uint8_t(0xA5 ^ n));
              dsp.copyRow(dst.data() + 16 + d0, src.data() + so, n);
              for (size_t i = 0; i < dst.size(); ++i) {
                const bool inside = i >= 16 + d0 && i < 16 + d0 + n;
                const uint8_t want = inside ? src[so + i - 16 - d0] : uint8_t(0xA5 ^ n);
                ASSERT_EQ(dst[i], want) << "n " << n << " src +" << so << " dst +" << d0
                                        << " byte " << i;
              }
            }
          }
        }
      });
#if KQ_HAVE_NEON
  EXPECT_EQ(visited, 1);  // the NEON copy
#else
  (void)visited;
#endif
}

// The normalisation is the identity on 0..255 with the fifth the NEON
// estimate-and-refine sequence gives.
TEST(CheckWarp, NormalisationKeepsEveryLevel) {
  for (uint32_t r = 0; r < 256; ++r) ASSERT_EQ(kqwarp::normalise(r), r);
#if defined(__aarch64__)
  // The constant is what the estimate plus two Newton steps gives.
  const float32x4_t five = vdupq_n_f32(5.0f);
  float32x4_t e = vrecpeq_f32(five);
  e = vmulq_f32(e, vrecpsq_f32(five, e));
  e = vmulq_f32(e, vrecpsq_f32(five, e));
  EXPECT_EQ(vgetq_lane_f32(e, 0), kKqWarpFifth);
#endif
}

}  // namespace
