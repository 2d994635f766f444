// check_planes.cpp - chroma split / merge row kernels and the intake and
// assembly stages with every distinct implementation, against the scalar
// table: byte-exact, inputs ending at a guard page, outputs inside sentinel
// frames.
#include <vector>

#include "image/output_assembly.h"
#include "image/plane_intake.h"
#include "image/planes_dsp.h"
#include "kernels/check_util.h"
#include "runtime/cpu.h"
#include "runtime/pool.h"

namespace {

// Every pair count up to twice the widest step (32 pairs) plus 3, and a few
// long odd rows.
std::vector<int32_t> pairCounts() {
  std::vector<int32_t> counts;
  for (int32_t n = 0; n <= 2 * 32 + 3; ++n) counts.push_back(n);
  for (int32_t n : {255, 1001, 2049}) counts.push_back(n);
  return counts;
}

uint64_t caseSeed(int32_t a, int32_t b, int32_t c) {
  return kqTestSeed() ^ (uint64_t(a) * 0x9E3779B1u) ^ (uint64_t(b) << 20) ^ (uint64_t(c) << 40);
}

// Split and merge rows of every distinct implementation, at every pair
// count and fill, from misaligned bases (inputs end at a guard page).
TEST(CheckPlanes, SplitAndMergeRowsMatchTheReference) {
  kqForEachImpl(
      kqPlanesDspInit, &KQPlanesDsp::splitUVRow,
      [](const KQPlanesDsp& dsp, const KQPlanesDsp& c, uint32_t) {
        for (int32_t pairs : pairCounts())
          for (int fi = 0; fi < 8; ++fi) {
            const int32_t offset = (pairs * 7 + fi) % 16;
            KqGuardedBuffer input(size_t(2 * pairs + offset));
            uint8_t* src = input.data() + offset;
            KqRng rng(caseSeed(pairs, fi, 1));
            kqFillPlane(src, 2 * pairs, 1, 2 * pairs, kKqAllFills[fi], rng);
            KqFramedPlane want[2] = {{pairs, 1}, {pairs, 1}}, got[2] = {{pairs, 1}, {pairs, 1}};
            c.splitUVRow(want[0].data(), want[1].data(), src, pairs);
            dsp.splitUVRow(got[0].data(), got[1].data(), src, pairs);
            for (int b = 0; b < 2; ++b)
              ASSERT_TRUE(kqFramedEqual(want[b], got[b]))
                  << (b ? "odd" : "even") << " bytes, pairs " << pairs << " fill "
                  << kqFillName(kKqAllFills[fi]) << " offset " << offset;
          }
      });
  kqForEachImpl(kqPlanesDspInit, &KQPlanesDsp::mergeUVRow,
                [](const KQPlanesDsp& dsp, const KQPlanesDsp& c, uint32_t) {
                  for (int32_t pairs : pairCounts())
                    for (int fi = 0; fi < 8; ++fi) {
                      const int32_t offset = (pairs * 5 + fi) % 16;
                      KqGuardedBuffer even{size_t(pairs + offset)}, odd{size_t(pairs)};
                      uint8_t* a = even.data() + offset;
                      KqRng rng(caseSeed(pairs, fi, 2));
                      kqFillPlane(a, pairs, 1, pairs, kKqAllFills[fi], rng);
                      kqFillPlane(odd.data(), pairs, 1, pairs, kKqAllFills[fi], rng);
                      KqFramedPlane want(2 * pairs, 1), got(2 * pairs, 1);
                      c.mergeUVRow(want.data(), a, odd.data(), pairs);
                      dsp.mergeUVRow(got.data(), a, odd.data(), pairs);
                      ASSERT_TRUE(kqFramedEqual(want, got))
                          << "merge, pairs " << pairs << " fill " << kqFillName(kKqAllFills[fi])
                          << " offset " << offset;
                    }
                });
}

// A caller image whose planes end exactly after the last byte that exists:
// the last luma row and the last chroma row hold `width` bytes, so any read
// past them faults.
struct GuardedInput {
  KqGuardedBuffer luma, chroma;
  KQYUVMultiPlaneImage rec{};
  GuardedInput(int32_t w, int32_t h, int32_t stride, int32_t code, KqRng& rng)
      : luma(size_t(stride) * (h - 1) + w), chroma(size_t(stride) * (h / 2 - 1) + w) {
    kqFillPlane(luma.data(), int(luma.size()), 1, int(luma.size()), KqFill::kUniform, rng);
    kqFillPlane(chroma.data(), int(chroma.size()), 1, int(chroma.size()), KqFill::kUniform, rng);
    uint8_t *y = luma.data(), *c = chroma.data();
    rec = {code, w, h, 1, stride, h, 2, stride, 2, stride, y, c, c + 1};
  }
};

// A packed working plane inside a sentinel frame: one framed row holding
// all width * height bytes.
struct FramedImage {
  KqFramedPlane plane;
  KQImage8 img;
  FramedImage(int32_t w, int32_t h) : plane(w * h, 1), img{w, h, plane.data()} {}
};

struct Shape {
  int32_t width, height, stride;
};
constexpr Shape kShapes[] = {{2, 2, 2},    {3, 5, 5},     {17, 9, 17},  {64, 6, 80},
                             {67, 11, 70}, {131, 7, 131}, {97, 13, 128}};

// Calls body(shape, code, threads) for every shape, both byte orders and
// thread counts of every kind: the calling thread (1, 0), more threads than
// rows, ad-hoc teams (negative) and, for 3 and 8, the pool. Odd widths
// matter most: a slice that started its rows at the row stride times its
// first row would leave gaps.
template <typename Body>
void forEachCase(Body body) {
  for (const Shape& s : kShapes)
    for (int32_t code : {10, 11})
      for (int32_t threads : {1, 0, 2, 3, 8, 200, -3}) {
        SCOPED_TRACE(testing::Message() << s.width << "x" << s.height << " stride " << s.stride
                                        << " code " << code << " threads " << threads);
        const bool pooled = threads == 3 || threads == 8;
        if (pooled) kqPoolStart(4, 0, "planes-check");
        body(s, code, threads);
        if (pooled) kqPoolStop();
        if (testing::Test::HasFatalFailure()) return;
      }
}

// Intake (whole image, and regions reaching the last column and row with
// odd and even left and top) with every distinct split row, at several
// thread counts, gives the scalar single-thread bytes and stays inside its
// planes.
TEST(CheckPlanes, IntakeMatchesTheScalarLevel) {
  kqForEachImpl(
      kqPlanesDspInit, &KQPlanesDsp::splitUVRow,
      [](const KQPlanesDsp& dsp, const KQPlanesDsp& c, uint32_t) {
        forEachCase([&](const Shape& s, int32_t code, int32_t threads) {
          const int32_t w = s.width, h = s.height;
          KqRng rng(caseSeed(w, h, code));
          GuardedInput in(w, h, s.stride, code, rng);
          for (int32_t left : {-1, 0, 1})  // -1: the whole image
            for (int32_t top : {0, 1}) {
              if (left < 0 && top > 0) continue;
              const int32_t rw = left < 0 ? w : (w - left) & ~3, rh = left < 0 ? h : (h - top) & ~3;
              if (rw < 4 && left >= 0) continue;
              if (rh < 4 && left >= 0) continue;
              const int32_t l = w - rw, t = h - rh;  // a region ends at the corner
              FramedImage ry(rw, rh), ru(rw / 2, rh / 2), rv(rw / 2, rh / 2);
              FramedImage gy(rw, rh), gu(rw / 2, rh / 2), gv(rw / 2, rh / 2);
              if (left < 0) {
                kqTakeYUVPlanesWithDsp(&in.rec, &ry.img, &ru.img, &rv.img, 1, &c);
                kqTakeYUVPlanesWithDsp(&in.rec, &gy.img, &gu.img, &gv.img, threads, &dsp);
              } else {
                kqTakeYUVPlanesFromROIWithDsp(&in.rec, &ry.img, &ru.img, &rv.img, l, t, w - 1,
                                              h - 1, 1, &c);
                kqTakeYUVPlanesFromROIWithDsp(&in.rec, &gy.img, &gu.img, &gv.img, l, t, w - 1,
                                              h - 1, threads, &dsp);
              }
              ASSERT_TRUE(kqFramedEqual(ry.plane, gy.plane)) << "luma, left " << l << " top " << t;
              ASSERT_TRUE(kqFramedEqual(ru.plane, gu.plane)) << "U, left " << l << " top " << t;
              ASSERT_TRUE(kqFramedEqual(rv.plane, gv.plane)) << "V, left " << l << " top " << t;
            }
        });
      });
}

// Chroma assembly into the caller's interleaved plane with every distinct
// merge row, at several thread counts, gives the scalar single-thread
// bytes, row padding untouched.
TEST(CheckPlanes, AssemblyMatchesTheScalarLevel) {
  kqForEachImpl(kqPlanesDspInit, &KQPlanesDsp::mergeUVRow,
                [](const KQPlanesDsp& dsp, const KQPlanesDsp& c, uint32_t) {
                  forEachCase([&](const Shape& s, int32_t code, int32_t threads) {
                    const int32_t w = s.width, h = s.height;
                    KqRng urng(caseSeed(w, h, code + 100));
                    KqGuardedBuffer u(size_t(w / 2) * (h / 2)), v(size_t(w / 2) * (h / 2));
                    kqFillPlane(u.data(), int(u.size()), 1, int(u.size()), KqFill::kUniform, urng);
                    kqFillPlane(v.data(), int(v.size()), 1, int(v.size()), KqFill::kUniform, urng);
                    const KQImage8 outU{w / 2, h / 2, u.data()}, outV{w / 2, h / 2, v.data()};
                    // The caller's chroma plane: h / 2 rows of stride bytes.
                    KqFramedPlane ref(s.stride * (h / 2), 1), got(s.stride * (h / 2), 1);
                    KQYUVMultiPlaneImage rec{};
                    rec.type = code;
                    rec.width = w;
                    rec.height = h;
                    rec.yRowStride = s.stride;
                    rec.yScanlines = h;
                    rec.chromaData = ref.data();
                    kqSetUVDataWithDsp(&outU, &outV, &rec, 0, s.stride - w, 1, &c);
                    rec.chromaData = got.data();
                    kqSetUVDataWithDsp(&outU, &outV, &rec, 0, s.stride - w, threads, &dsp);
                    ASSERT_TRUE(kqFramedEqual(ref, got));
                  });
                });
}

}  // namespace
