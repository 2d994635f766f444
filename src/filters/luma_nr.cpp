// luma_nr.cpp - driver of the luma noise reduction: slices, border frame,
// blend variants and stage timers.
#include "filters/luma_nr.h"

#include <cstddef>
#include <initializer_list>

#include "filters/luma_dsp.h"
#include "runtime/log.h"
#include "runtime/numeric.h"
#include "runtime/pool.h"
#include "runtime/timer.h"

namespace {

uint8_t* rowOf(const KQImage8* p, int32_t y) { return p->data + size_t(y) * size_t(p->width); }

// The border kernel over columns [x0, x1) of rows [y0, y1), as
// kqLumaNrBorder_c computes it, cut into runs of one tap shift: the shift
// starts at +6 (x0 < 7) or -6 and drops by 6 where the columns reach 6 and
// width - 6. From a width of 18 on, every tap of the frame's runs lies
// inside its row (the scalar kernel's clamp never acts there), so the runs
// go to the vector kernel; narrower planes, and any range whose runs would
// not stay inside the row, take the scalar kernel.
struct BorderRun {
  int32_t x, end, s;
};

// The runs of columns [x0, x1) (clamped to the plane; at most 3) into runs;
// false where they would not stay inside the row (then the scalar kernel).
bool borderRunsOf(int32_t width, int32_t x0, int32_t x1, BorderRun* runs, int32_t* count) {
  int32_t n = 0;
  int32_t x = x0, s = x0 < 7 ? 6 : -6;
  for (int32_t drop : {6, width - 6}) {
    if (drop < x0) continue;
    if (drop >= x1) break;
    runs[n++] = {x, drop, s};
    x = drop;
    s -= 6;
  }
  runs[n++] = {x, x1, s};
  *count = n;
  if (width < 18) return false;
  for (int32_t i = 0; i < n; ++i)
    if (runs[i].x < runs[i].end &&
        (runs[i].x + runs[i].s - 6 < 0 || runs[i].end - 1 + runs[i].s + 6 > width - 1))
      return false;
  return true;
}

// The kernel's five rows for row y: y, y -/+ 2, y -/+ 4, clamped.
void borderRows(const KQImage8* in, int32_t y, const uint8_t** rows) {
  const int32_t height = in->height;
  auto clampRow = [height](int32_t r) { return r < 0 ? 0 : r > height - 1 ? height - 1 : r; };
  rows[0] = rowOf(in, y);
  rows[1] = rowOf(in, clampRow(y - 2));
  rows[2] = rowOf(in, clampRow(y + 2));
  rows[3] = rowOf(in, clampRow(y - 4));
  rows[4] = rowOf(in, clampRow(y + 4));
}

void borderRuns(const KQImage8* in, KQImage8* out, int32_t x0, int32_t x1, int32_t y0, int32_t y1,
                const KQLumaDsp* dsp) {
  const int32_t width = in->width, height = in->height;
  // The frame's ranges overlap or leave the plane on small planes: clamped
  // as the scalar kernel clamps them.
  if (x0 < 0) x0 = 0;
  if (y0 < 0) y0 = 0;
  if (x1 > width) x1 = width;
  if (y1 > height) y1 = height;
  if (x0 >= x1 || y0 >= y1) return;
  BorderRun runs[3];
  int32_t n;
  if (!borderRunsOf(width, x0, x1, runs, &n)) {
    kqLumaNrBorder_c(in->data, out->data, width, height, x0, x1, y0, y1);
    return;
  }
  for (int32_t y = y0; y < y1; ++y) {
    const uint8_t* rows[5];
    borderRows(in, y, rows);
    for (int32_t i = 0; i < n; ++i)
      if (runs[i].x < runs[i].end)
        dsp->nrBorderRun(rowOf(out, y), rows, runs[i].x, runs[i].end - runs[i].x, runs[i].s);
  }
}

// The plain blend of columns [x0, x1) of one row, x1 <= 8 * (width / 8):
// blendRow's whole groups of 8, then pixel by pixel.
void blendColumns(const KQLumaDsp* dsp, uint8_t* out, const uint8_t* in, int32_t x0, int32_t x1,
                  int32_t weight) {
  if (x1 <= x0) return;
  const int32_t whole = (x1 - x0) & ~7;
  dsp->blendRow(out + x0, in + x0, whole, weight);
  for (int32_t x = x0 + whole; x < x1; ++x)
    out[x] = kqLumaBlendPixel(out[x], in[x], uint32_t(weight));
}

// Pass 1 over output rows [first, end) of the interior (4 .. height - 5):
// each row with the frame's left and right strips of that row right after
// it, while its rows are still in cache (walked down the plane on their own,
// the strips miss the cache on every row). The plain blend (no reference
// plane) only reads the row's own output and input, so it follows at once
// as well. Where the level has a fused row and the weight is 0..128, the
// interior up to the right strip is filtered and blended in one, and only
// the strips are blended after; otherwise the interior row is whole, the
// right strip overwrites the interior columns it recomputes, and the row is
// blended after.
void interiorRows(const KQLumaNrContext* c, int32_t first, int32_t end) {
  const int32_t width = c->input->width;
  const int32_t right = kqLumaNrRightStripStart(width);
  const int32_t weight = kqLumaBlendWeight(c->strength);
  const KQLumaDsp* dsp = c->dsp;
  const bool fused =
      c->reference == nullptr && dsp->nrBlendRow != nullptr && weight >= 0 && weight <= 128;
  const int32_t blended = width & ~7;  // the blend's columns
  // With the fused row on a plane of 64 columns or more, a strip run
  // shorter than 16 columns goes to the kernel as 16 columns ending at the
  // run's end (the left strip's from column 0), and the right strip's first
  // run starts at the latest at its first group of 8 (rightBlend), written before
  // the interior row, which then overwrites the interior columns they reach;
  // the right strip's last run first, so that the run before it overwrites
  // it where they overlap. The short run would otherwise go through padded
  // copies of its rows, for every row; the runs' taps stay inside the row
  // (from column 0 to width - 7).
  BorderRun strips[4];
  int32_t blocks = 0, rightBlend = right & ~7;
  if (fused && width >= 64) {
    BorderRun left[3], rightRuns[3];
    int32_t nl, nr;
    if (borderRunsOf(width, 0, 6, left, &nl) && borderRunsOf(width, right, width, rightRuns, &nr) &&
        nl == 1) {
      strips[blocks++] = {0, 16, left[0].s};
      for (int32_t i = nr - 1; i >= 0; --i) {
        const BorderRun& r = rightRuns[i];
        int32_t x = r.x < r.end - 16 ? r.x : r.end - 16;
        if (i == 0 && x > rightBlend) x = rightBlend;
        if (r.x < r.end) strips[blocks++] = {x, r.end, r.s};
      }
    }
  }
  for (int32_t y = first; y < end; ++y) {
    uint8_t* out = rowOf(c->output, y);
    const uint8_t* in = rowOf(c->input, y);
    if (blocks > 0) {
      // The strips, then their blend in whole groups of 8 (columns 0-15 and
      // from the right strip's first group on), then the interior row, which
      // overwrites the interior columns of both with its blended bytes.
      const uint8_t* rows[5];
      borderRows(c->input, y, rows);
      for (int32_t i = 0; i < blocks; ++i)
        dsp->nrBorderRun(out, rows, strips[i].x, strips[i].end - strips[i].x, strips[i].s);
      dsp->blendRow(out, in, 16, weight);
      dsp->blendRow(out + rightBlend, in + rightBlend, blended - rightBlend, weight);
      dsp->nrBlendRow(out, in, ptrdiff_t(width), (right - 6) / 16, weight);
      continue;
    }
    if (fused)  // right - 6 is a multiple of 16, at most the interior
      dsp->nrBlendRow(out, in, ptrdiff_t(width), (right - 6) / 16, weight);
    else
      dsp->nrRow(out, in, ptrdiff_t(width), width);
    borderRuns(c->input, c->output, 0, 6, y, y + 1, dsp);
    borderRuns(c->input, c->output, right, width, y, y + 1, dsp);
    if (fused) {
      blendColumns(dsp, out, in, 0, 6 < blended ? 6 : blended, weight);
      blendColumns(dsp, out, in, right, blended, weight);
    } else if (c->reference == nullptr) {
      dsp->blendRow(out, in, width, weight);
    }
  }
}

// Generic reference-guided blend for scales other than 1, 2 and 4: the
// reference is sampled through 16.16 steps (refSize - 1) / (size - 1) and
// the weight, in 1/256, starts from (strength + 8) * 256 * 0.1 and rises by
// 26 per reference grey level (the 13 per level of the scaled blends, in
// 1/256), capped at 256: out = ((256 - w) * o + w * f) >> 8. As the other
// blends it leaves the last width % 8 columns unblended.
void blendGenericRows(const KQLumaNrContext* c) {
  const KQImage8* in = c->input;
  const KQImage8* ref = c->reference;
  const int32_t width = in->width, height = in->height;
  const int64_t stepX = width > 1 ? (int64_t(ref->width - 1) << 16) / (width - 1) : 0;
  const int64_t stepY = height > 1 ? (int64_t(ref->height - 1) << 16) / (height - 1) : 0;
  int32_t base = kqSaturateToInt32((float(c->strength) + 8.0f) * 256.0f * 0.1f);
  base = base < 0 ? 0 : base > 256 ? 256 : base;
  const int32_t n = width & ~7;
  for (int32_t y = c->start; y < c->end; ++y) {
    const uint8_t* refRow = rowOf(ref, int32_t((int64_t(y) * stepY) >> 16));
    const uint8_t* o = rowOf(in, y);
    uint8_t* f = rowOf(c->output, y);
    for (int32_t x = 0; x < n; ++x) {
      const int32_t r = refRow[(int64_t(x) * stepX) >> 16];
      const int32_t w = base + 26 * r > 256 ? 256 : base + 26 * r;
      f[x] = uint8_t(((256 - w) * o[x] + w * f[x]) >> 8);
    }
  }
}

// Scale k of the reference-guided blends when it is exactly 1, 2 or 4 and
// every reference byte the grouped rows read lies inside the reference;
// 0 otherwise (generic variant).
int32_t referenceScale(const KQImage8* in, const KQImage8* ref) {
  const float ky = float(in->height) / float(ref->height);
  const float kx = float(in->width) / float(ref->width);
  const float k = ky > kx ? ky : kx;
  const int32_t scale = k == 1.0f ? 1 : k == 2.0f ? 2 : k == 4.0f ? 4 : 0;
  if (scale == 0) return 0;
  const int32_t n = in->width & ~7;
  if (n == 0) return scale;
  const int64_t last = int64_t((in->height - 1) / scale) * (in->width / scale) + (n - 1) / scale;
  return last < int64_t(ref->width) * ref->height ? scale : 0;
}

// Pass 3: a reference-guided blend (the plain one went with pass 1) of rows
// [first, end); first is a multiple of 4.
void blendRows(const KQLumaNrContext* c, int32_t first, int32_t end) {
  if (end <= first) return;
  KQLumaNrContext rows = *c;
  rows.start = first;
  rows.end = end;
  const int32_t width = c->input->width;
  const int32_t weight = kqLumaBlendWeight(c->strength);
  const int32_t k = referenceScale(c->input, c->reference);
  if (k == 0) {
    blendGenericRows(&rows);
    return;
  }
  // Groups of k rows share one reference row (stride width / k); starts
  // are multiples of 4, so a group never straddles two ranges. Rows past
  // the last whole group keep the filtered value.
  const int32_t refStride = width / k;
  const int32_t groups = (end - first) / k;
  for (int32_t g = 0; g < groups; ++g) {
    const uint8_t* refRow = c->reference->data + size_t(first / k + g) * size_t(refStride);
    for (int32_t i = 0; i < k; ++i) {
      const int32_t y = first + g * k + i;
      c->dsp->blendRefRow(rowOf(c->output, y), rowOf(c->input, y), refRow, width, weight, k);
    }
  }
}

}  // namespace

int32_t kqLumaBlendWeight(int32_t strength) {
  return kqSaturateToInt32(float(strength) / 10.0f * 128.0f);
}

int32_t kqLumaNrRightStripStart(int32_t width) {
  return width < 46 ? 6 : ((width - 46) & ~15) + 22;
}

void kqLumaNrInteriorSplit(int32_t slice, int32_t sliceCount, int32_t, void* context) {
  KQLumaNrContext* c = static_cast<KQLumaNrContext*>(context);
  const int32_t n = c->end;
  const int32_t q = n / sliceCount;
  int32_t step = q + 7;
  if (step < 1) step = 1;
  const int32_t start = slice * q;
  int32_t end = start + step;
  if (end > n) end = n;
  if (slice == sliceCount - 1) end = n;
  if (start > n) end = -1;
  c->start = start;
  c->end = end;
}

void kqLumaNrBlendSplit(int32_t slice, int32_t sliceCount, int32_t, void* context) {
  KQLumaNrContext* c = static_cast<KQLumaNrContext*>(context);
  const int32_t n = c->end;
  int32_t chunk = (n / sliceCount) / 4 * 4;
  if (chunk < 5) chunk = 4;
  const int32_t start = slice * chunk;
  int32_t end = start + chunk;
  if (end > n) end = n;
  if (slice == sliceCount - 1) end = n;
  if (start > n) end = -1;
  c->start = start;
  c->end = end;
}

void kqLumaNoiseReductionDsp(const KQImage8* input, KQImage8* output, const KQImage8* reference,
                             int32_t strength, int32_t threads, const KQLumaDsp* dsp) {
  if (!kqImage8Valid(input) || !kqImage8Valid(output) || input->width != output->width ||
      input->height != output->height || input->data == output->data || dsp == nullptr) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG,
          "kqLumaNoiseReduction: input and output must be distinct planes of one size");
    return;
  }
  if (reference != nullptr && !kqImage8Valid(reference)) reference = nullptr;
  const int32_t width = input->width, height = input->height;

  const KQLumaNrContext ctx = {input, output, reference, height - 1, 0, strength, dsp};
  kqStageStart(KQStage::kNoiseInterior);
  // Output rows 4 .. height - 5: their neighbourhoods reach 4 rows up and
  // down (planes of fewer than 9 rows are all frame).
  if (height >= 9)
    kqParallelRows(4, height - 4, 1, threads,
                   [&ctx](int32_t first, int32_t end, int32_t) { interiorRows(&ctx, first, end); });
  kqStageStop(KQStage::kNoiseInterior);

  // The frame's top and bottom four rows, on the calling thread (its left
  // and right strips were done with the interior rows).
  kqStageStart(KQStage::kNoiseBorder);
  borderRuns(input, output, 0, width, 0, 4, dsp);
  borderRuns(input, output, 0, width, height - 4, height, dsp);
  kqStageStop(KQStage::kNoiseBorder);

  kqStageStart(KQStage::kNoiseBlend);
  if (reference == nullptr) {
    // The rows pass 1 did not blend: the top and bottom four (all of them
    // on planes of fewer than 9 rows).
    const int32_t weight = kqLumaBlendWeight(strength);
    for (int32_t y = 0; y < height; ++y)
      if (y < 4 || y > height - 5) dsp->blendRow(rowOf(output, y), rowOf(input, y), width, weight);
  } else {
    // Ranges start at multiples of 4, so the row groups of a scale of 1, 2
    // or 4 stay whole.
    kqParallelRows(0, height, 4, threads,
                   [&ctx](int32_t first, int32_t end, int32_t) { blendRows(&ctx, first, end); });
  }
  kqStageStop(KQStage::kNoiseBlend);
}

void kqLumaNoiseReduction(const KQImage8* input, KQImage8* output, const KQImage8* reference,
                          int32_t strength, int32_t threads) {
  kqLumaNoiseReductionDsp(input, output, reference, strength, threads, kqLumaDspGet());
}
