// luma_nr.cpp - driver of the luma noise reduction: slices, border frame,
// blend variants and stage timers.
#include "filters/luma_nr.h"

#include <cstddef>

#include "filters/luma_dsp.h"
#include "runtime/log.h"
#include "runtime/numeric.h"
#include "runtime/pool.h"
#include "runtime/timer.h"

namespace {

uint8_t* rowOf(const KQImage8* p, int32_t y) { return p->data + size_t(y) * size_t(p->width); }

// Pass 1: output rows start + 4 .. end - 4 (end itself is read).
void interiorTask(void* context) {
  const KQLumaNrContext* c = static_cast<const KQLumaNrContext*>(context);
  if (c->end - c->start < 8) return;  // also covers end = -1
  const int32_t width = c->input->width;
  for (int32_t y = c->start + 4; y <= c->end - 4; ++y)
    c->dsp->nrRow(rowOf(c->output, y), rowOf(c->input, y), ptrdiff_t(width), width);
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

// Pass 3: the plain blend, or a reference-guided one.
void blendTask(void* context) {
  const KQLumaNrContext* c = static_cast<const KQLumaNrContext*>(context);
  if (c->end <= c->start) return;  // also covers end = -1
  const int32_t width = c->input->width;
  const int32_t weight = kqLumaBlendWeight(c->strength);
  if (c->reference == nullptr) {
    for (int32_t y = c->start; y < c->end; ++y)
      c->dsp->blendRow(rowOf(c->output, y), rowOf(c->input, y), width, weight);
    return;
  }
  const int32_t k = referenceScale(c->input, c->reference);
  if (k == 0) {
    blendGenericRows(c);
    return;
  }
  // Groups of k rows share one reference row (stride width / k); starts
  // are multiples of 4, so a group never straddles two slices. Rows past
  // the last whole group keep the filtered value.
  const int32_t refStride = width / k;
  const int32_t groups = (c->end - c->start) / k;
  for (int32_t g = 0; g < groups; ++g) {
    const uint8_t* refRow = c->reference->data + size_t(c->start / k + g) * size_t(refStride);
    for (int32_t i = 0; i < k; ++i) {
      const int32_t y = c->start + g * k + i;
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

  KQLumaNrContext ctx = {input, output, reference, height - 1, 0, strength, dsp};
  kqTimerStart(92);
  kqParallelRun(interiorTask, kqLumaNrInteriorSplit, &ctx, sizeof ctx, threads);
  kqTimerStop("paapilu", 92);

  // The frame the interior kernel leaves out, on the calling thread. The
  // right strip may recompute up to 16 interior columns; the scalar result
  // stands.
  kqTimerStart(101);
  const uint8_t* src = input->data;
  uint8_t* dst = output->data;
  kqLumaNrBorder_c(src, dst, width, height, 0, width, 0, 4);
  kqLumaNrBorder_c(src, dst, width, height, 0, width, height - 4, height);
  kqLumaNrBorder_c(src, dst, width, height, 0, 6, 4, height - 4);
  kqLumaNrBorder_c(src, dst, width, height, kqLumaNrRightStripStart(width), width, 4, height - 4);
  kqTimerStop("pilu reunat c", 101);

  kqTimerStart(99);
  ctx.start = 0;
  ctx.end = height;
  kqParallelRun(blendTask, kqLumaNrBlendSplit, &ctx, sizeof ctx, threads);
  kqTimerStop("pilun painotus", 99);
}

void kqLumaNoiseReduction(const KQImage8* input, KQImage8* output, const KQImage8* reference,
                          int32_t strength, int32_t threads) {
  kqLumaNoiseReductionDsp(input, output, reference, strength, threads, kqLumaDspGet());
}
