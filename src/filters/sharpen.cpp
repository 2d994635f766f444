// sharpen.cpp - driver of the sharpening stage: row slices, edge-row
// mirroring, kernel kinds, optional mask blend and stage timers.
#include "filters/sharpen.h"

#include <cstddef>
#include <cstring>

#include "filters/luma_dsp.h"
#include "runtime/log.h"
#include "runtime/numeric.h"
#include "runtime/pool.h"
#include "runtime/timer.h"

namespace {

int32_t clampRow(int32_t y, int32_t height) { return y < 0 ? 0 : y >= height ? height - 1 : y; }

// Rows [c->start, c->end) of the sharpened plane.
void sharpenRows(const KQSharpenContext* c) {
  if (c->end <= c->start) return;
  const int32_t width = c->input->width, height = c->input->height;
  const size_t stride = size_t(width);
  KQSharpenParams params;
  params.gain = kqSaturateToInt32(double(c->strength) * 256.0);
  params.threshold = kqSaturateToInt32(double(c->detailThreshold) * 1.5);
  if (c->kind == kKqSharpenFlat5Tap) {
    params.wOuter = 19, params.wInner = 19, params.wCentre = 52;
  } else {
    params.wOuter = 7, params.wInner = 31, params.wCentre = 52;
  }
  const uint8_t* src = c->input->data;
  for (int32_t y = c->start; y < c->end; ++y) {
    uint8_t* out = c->output->data + size_t(y) * stride;
    const uint8_t* rows[7];
    if (c->kind == kKqSharpen7Tap) {
      // Near the top the upper rows come from below; from 4 rows before the
      // bottom on, the lower rows come from above.
      int32_t idx[7];
      for (int32_t k = -3; k <= 3; ++k) idx[k + 3] = y + k;
      if (y < 3)
        for (int32_t k = 1; k <= 3; ++k) idx[3 - k] = y + k;
      if (y > height - 5)
        for (int32_t k = 1; k <= 3; ++k) idx[3 + k] = y - k;
      for (int32_t k = 0; k < 7; ++k) rows[k] = src + size_t(clampRow(idx[k], height)) * stride;
      c->dsp->sharpenRow7(out, rows, width, &params);
    } else {
      // Rows 0 and 1 take both upper neighbours from below (y + 1, y + 2),
      // the last two rows both lower neighbours from above. The clamp only
      // acts on planes of fewer than 4 rows.
      int32_t idx[5] = {y - 2, y - 1, y, y + 1, y + 2};
      if (y < 2) idx[1] = y + 1, idx[0] = y + 2;
      if (y > height - 3) idx[3] = y - 1, idx[4] = y - 2;
      for (int32_t k = 0; k < 5; ++k) rows[k] = src + size_t(clampRow(idx[k], height)) * stride;
      c->dsp->sharpenRow(out, rows, width, &params);
    }
    if (c->mask != nullptr) {
      const uint8_t* m = c->mask->data + size_t(y) * stride;
      const uint8_t* o = src + size_t(y) * stride;
      for (int32_t x = 0; x < width; ++x) {
        const int32_t v = (m[x] * out[x] + (16 - m[x]) * o[x] + 8) >> 4;
        out[x] = uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
      }
    }
  }
}

}  // namespace

void kqSharpenSplit(int32_t slice, int32_t sliceCount, int32_t, void* context) {
  KQSharpenContext* c = static_cast<KQSharpenContext*>(context);
  const int32_t n = c->end, start0 = c->start;
  const int32_t chunk = n / sliceCount;
  const int32_t start = start0 + slice * chunk;
  int32_t end = start0 + (slice + 1) * chunk;
  if (end > n) end = n;
  if (slice == sliceCount - 1) end = n;
  if (start > n) end = -1;
  c->start = start;
  c->end = end;
}

void kqImageSharpeningDsp(const KQImage8* input, KQImage8* output, const KQImage8* mask,
                          float strength, float detailThreshold, int32_t kernelKind,
                          int32_t threads, const KQLumaDsp* dsp) {
  if (!kqImage8Valid(input) || !kqImage8Valid(output) || input->width != output->width ||
      input->height != output->height || input->data == output->data || dsp == nullptr) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG,
          "kqImageSharpening: input and output must be distinct planes of one size");
    return;
  }
  if (mask != nullptr &&
      (!kqImage8Valid(mask) || mask->width != input->width || mask->height != input->height))
    mask = nullptr;
  kqStageStart(KQStage::kSharpenOuter);
  kqStageStart(KQStage::kSharpenRows);
  if (kernelKind == kKqSharpen5Tap || kernelKind == kKqSharpenFlat5Tap ||
      kernelKind == kKqSharpen7Tap) {
    const KQSharpenContext ctx = {input,    output,     mask, 0, input->height, strength,
                                  kernelKind, detailThreshold, dsp};
    kqParallelRows(0, input->height, 1, threads, [&ctx](int32_t first, int32_t end, int32_t) {
      KQSharpenContext rows = ctx;
      rows.start = first;
      rows.end = end;
      sharpenRows(&rows);
    });
  } else {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "kqImageSharpening: unknown kernel kind %d, plane copied",
          int(kernelKind));
    std::memcpy(output->data, input->data, size_t(input->width) * size_t(input->height));
  }
  kqStageStop(KQStage::kSharpenRows);
  kqStageStop(KQStage::kSharpenOuter);
}

void kqImageSharpening(const KQImage8* input, KQImage8* output, const KQImage8* mask, float strength,
                       float detailThreshold, int32_t kernelKind, int32_t threads) {
  kqImageSharpeningDsp(input, output, mask, strength, detailThreshold, kernelKind, threads,
                       kqLumaDspGet());
}
