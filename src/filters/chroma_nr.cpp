// chroma_nr.cpp - chroma noise reduction stage: parameters, weight tables,
// the three passes, their row split and the odd-size border fix-up.
//
// Design. Colour noise in camera chroma is low-frequency and large, while
// colour edges almost always sit on luma edges, so the filter averages chroma
// over long distances and lets the (already clean, full-resolution) luma and
// the chroma difference decide what may be averaged. Every tap is weighed by
// three table weights, of |luma centre - luma tap|, |U source - U tap| and
// |V source - V tap|, multiplied (see kqChromaAddTap): a tap across a luma
// edge or of another colour counts for little, so edges are kept while flat
// areas are averaged.
//  - Pass 1 (full -> half size, margin 26 / 14 / 8): each half-size sample
//    (x, y) stands for the full-size 2 x 2 block at (2x, 2y). It averages the
//    four block pixels, each weighed against the block's first pixel with its
//    own luma, so the block is box-filtered in flat areas but an edge inside
//    the block is not smeared into the sample; and four far taps at the
//    margin (up, left, right, down) add long-range averaging. Sample (x, y)
//    therefore keeps the colour of full-size pixel (2x, 2y)'s side of any edge.
//  - Pass 2 (half -> half, margin 8 / 6 / 4): the five-tap cross at
//    margin / 2 half-size pixels, compared with the noisy source and the luma
//    at the full-size position.
//  - Pass 3 (half -> full, margin 2): each full-size pixel takes the
//    half-size sample holding it and that sample's four neighbours, with the
//    luma weight computed at the full-size position each sample came from,
//    and the luma difference counted four times (the luma is clean and at
//    full resolution, so it is the better judge of where an edge lies).
//    Near an edge only samples from the pixel's own side of the luma edge
//    keep their weight, so the colour edge lands on the full-resolution luma
//    edge instead of on the half-size grid, also when it runs between the
//    two pixels of one half-size sample. The pixel's own colour joins with
//    weight 1, so a pixel that no sample matches (a one-pixel line) keeps
//    its colour.
// The noise in flat areas falls by the averaging of three passes; an edge
// with both a luma and a chroma step loses almost nothing across it.
//
// Work area and borders: the passes cover the even part of the planes (w & ~1
// columns, h & ~1 rows); taps beyond it are replaced by the centre. An odd
// last row and column are filled by the fix-up from their neighbours.
#include "filters/chroma_nr.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "runtime/log.h"
#include "runtime/pool.h"
#include "runtime/timer.h"

// Ten 32-bit fields and ten pointers: 80 bytes on 32-bit targets.
static_assert(sizeof(KQChromaPassContext) == 10 * sizeof(int32_t) + 10 * sizeof(void*),
              "pass context layout");

namespace {

// Strength tables, index 0..10: step sigma and weight sigma, default modes
// and mode 3.
constexpr int32_t kStepSigma[11] = {4, 10, 12, 14, 16, 20, 23, 26, 29, 32, 35};
constexpr int32_t kWeightSigma[11] = {1, 2, 4, 7, 11, 15, 18, 21, 24, 27, 30};
constexpr int32_t kStepSigmaMode3[11] = {6, 7, 10, 12, 13, 14, 15, 17, 21, 27, 35};
constexpr int32_t kWeightSigmaMode3[11] = {1, 2, 3, 5, 7, 8, 9, 10, 15, 20, 30};

// One row of 9 weights for a sigma: entry k weighs a difference of k steps
// (squared spacing `spacing2` = step^2). A narrow and a 4x wider Gaussian are
// averaged, so the weight falls quickly but keeps a long tail. Double
// precision throughout; exp(-0) is taken as 1 even for a zero sigma.
void buildWeightRow(uint8_t* row, double sigma, double spacing2) {
  const double s2 = sigma * sigma;
  for (int k = 0; k < 9; ++k) {
    const double d = spacing2 * k * k;
    const double narrow = d == 0.0 ? 1.0 : std::exp(-d / s2);
    const double wide = d == 0.0 ? 1.0 : std::exp(-d / (16.0 * s2));
    const double n = std::trunc(255.0 * narrow);
    const double w = std::trunc(255.0 * wide);
    row[k] = static_cast<uint8_t>(0.5 * w + 0.5 * n);
  }
}

bool validPlane(const KQImage8* p) { return p != nullptr && p->data != nullptr; }

struct Geometry {
  int32_t w, h, he, ratio;
};

// Checks every record the passes touch; false leaves the planes unchanged.
bool checkPlanes(const KQImage8* luma, const KQImage8* srcU, const KQImage8* srcV,
                 const KQImage8* dstU, const KQImage8* dstV, KQImage8* const half[4],
                 Geometry* g) {
  if (!validPlane(srcU) || !validPlane(srcV) || !validPlane(dstU) || !validPlane(dstV))
    return false;
  const int32_t w = srcU->width, h = srcU->height;
  if (w < 2 || h < 2) return false;  // nothing to filter: no half-size sample
  const char* problem = nullptr;
  if (srcV->width != w || srcV->height != h || dstU->width != w || dstU->height != h ||
      dstV->width != w || dstV->height != h) {
    problem = "chroma planes differ in size";
  } else if (!validPlane(luma) || luma->width < w) {
    problem = "luma plane missing or narrower than the chroma";
  } else {
    for (int i = 0; i < 4; ++i)
      if (!validPlane(half[i]) || half[i]->width != w / 2 || half[i]->height < h / 2)
        problem = "scratch planes missing or not half the chroma size";
  }
  int32_t ratio = 0;
  if (problem == nullptr) {
    ratio = static_cast<int32_t>(static_cast<float>(luma->width) / static_cast<float>(w));
    if (ratio < 1 || int64_t(ratio) * w > luma->width ||
        int64_t(ratio) * ((h & ~1) - 1) >= luma->height)
      problem = "luma plane too small for the chroma";
  }
  if (problem != nullptr) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "kqChromaNoiseReduction: %s", problem);
    return false;
  }
  *g = Geometry{w, h, h & ~1, ratio};
  return true;
}

// Border fix-up for odd sizes: the last row first, then the last column of
// the even rows, so the last row's last pixel keeps the value its upper
// neighbour had before that row's own fix-up.
void fixUpBorders(uint8_t* plane, int32_t w, int32_t h) {
  const int32_t he = h & ~1;
  if (h & 1) std::memcpy(plane + size_t(h - 1) * w, plane + size_t(he - 1) * w, size_t(w));
  if (w & 1)
    for (int32_t y = 0; y < he; ++y) plane[size_t(y) * w + w - 1] = plane[size_t(y) * w + w - 2];
}

const uint8_t kNoGuide = 0;

}  // namespace

bool kqChromaSetup(int32_t mode, float strength, int32_t lumaRatio, KQChromaParams* params) {
  if (std::isnan(strength)) return false;
  const int32_t* stepTable = mode == 3 ? kStepSigmaMode3 : kStepSigma;
  const int32_t* weightTable = mode == 3 ? kWeightSigmaMode3 : kWeightSigma;
  // Truncation toward zero without leaving the int range.
  const float whole = std::trunc(strength);
  int32_t i = 0;
  if (strength >= 10.0f) {
    i = 10;
  } else if (strength > 0.0f) {
    i = static_cast<int32_t>(whole);
  }
  const float f = std::isinf(strength) ? 0.0f : strength - whole;
  const int32_t next = i + 1 > 10 ? 10 : i + 1;  // no entry 11: clamp
  params->stepSigma = f * float(stepTable[next]) + (1.0f - f) * float(stepTable[i]);
  params->weightSigma = f * float(weightTable[next]) + (1.0f - f) * float(weightTable[i]);

  const float s = params->stepSigma;
  params->kind = s <= 4.0f ? 1 : s < 7.0f ? 2 : s < 9.0f ? 3 : s < 12.0f ? 4 : 5;

  params->margin1 = 26;
  params->margin2 = 8;
  if (mode == 1 || mode == 3) {
    params->margin1 = 14;
    params->margin2 = 6;
  }
  if (lumaRatio == 4) {
    params->margin1 = 8;
    params->margin2 = 4;
  }

  const double step = double(1 << params->kind);
  buildWeightRow(params->weights[0], params->weightSigma, step * step);
  buildWeightRow(params->weights[1], params->stepSigma, step * step);
  std::memcpy(params->weights[2], params->weights[1], 9);
  for (int r = 0; r < 3; ++r)
    for (int k = 0; k < 8; ++k)
      params->slopes[r][k] = uint8_t(params->weights[r][k] - params->weights[r][k + 1]);
  return true;
}

int32_t kqChromaTailCount(int32_t pass, int32_t chromaWidth, int32_t margin) {
  // % keeps the sign of the dividend, as intended for narrow planes.
  if (pass == 1) return (chromaWidth - 2 * margin) % 16 + 16;
  if (pass == 2) return (chromaWidth / 2 - margin) % 8 + 8;
  return (chromaWidth / 2 - 2) % 4 + 4;
}

// The passes always split [0, even height), so the odd-end rule of the equal
// form (the last slice starting one row early, repeating a row) never fires
// for them; pass 3 runs in place and must never compute a row twice.
void kqChromaSplit(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context) {
  KQChromaPassContext* c = static_cast<KQChromaPassContext*>(context);
  const int32_t y0 = c->firstRow, y1 = c->endRow;
  const int32_t n = sliceCount < 1 ? 1 : sliceCount;
  const int32_t span = y1 - y0;
  int32_t start, end;
  if (poolFlag == 1) {
    // Chunks shrink by 2.4, 0.96, 0.384 and the rest over the four quarters
    // of the slice indices, so the big ones are taken first.
    const int32_t q = n / 4, half = n / 2, threeQ = (3 * n) / 4;
    const float c1 = float(span) * 2.4f / float(n);
    const float c2 = float(span) * 0.96000004f / float(n);
    const float c3 = float(span) * 0.38400003f / float(n);
    const int32_t b1 = int32_t(float(y0) + c1 * float(q));
    const int32_t b2 = int32_t(float(b1) + c2 * float(q));
    const int32_t b3 = int32_t(float(b2) + c3 * float(q));
    const float c4 = float(y1 - b3) * 4.0f / float(n);
    auto boundary = [&](int32_t j) -> int32_t {
      float b;
      if (j < q) {
        b = float(y0) + c1 * float(j);
      } else if (j < half) {
        b = float(b1) + c2 * float(j - q);
      } else if (j < threeQ) {
        b = float(b2) + c3 * float(j - half);
      } else {
        b = float(b3) + c4 * float(j - threeQ);
      }
      return int32_t(b) & ~1;
    };
    start = boundary(slice);
    end = slice == n - 1 ? y1 - (y1 & 1) : boundary(slice + 1);
  } else {
    const float share = float(span) / float(n);
    const int32_t rawStart = int32_t(float(y0) + share * float(slice));
    start = rawStart & ~1;
    end = int32_t(float(y0) + share * float(slice + 1)) & ~1;
    if (slice == n - 1) {
      end = y1;
      if (y1 & 1) {
        end = y1 - 1;
        if (rawStart > 1) start -= 1;
      }
    }
  }
  // Never outside the caller's range, never reversed.
  if (start < y0) start = y0;
  if (end > y1) end = y1;
  if (end < start) end = start;
  c->firstRow = start;
  c->endRow = end;
}

namespace {

// The pass context shared by the three passes: geometry, tables, the
// source and luma planes and the guide (a single zero byte without one).
KQChromaPassContext passContext(const KQChromaJob& job, const Geometry& g,
                                const KQChromaParams& params) {
  KQChromaPassContext ctx;
  std::memset(&ctx, 0, sizeof ctx);
  ctx.lumaWidth = job.luma->width;
  ctx.chromaWidth = g.w;
  ctx.evenHeight = g.he;
  ctx.lumaRatio = g.ratio;
  ctx.guide = &kNoGuide;
  const KQImage8* guide = job.guide;
  if (validPlane(guide) && guide->width >= 1 && guide->height >= 1) {
    // 16.16 scale from chroma to guide positions; the smaller axis ratio
    // keeps every position of the work area inside the guide.
    const float sx = float(guide->width - 1) / float(g.w - 1);
    const float sy = float(guide->height - 1) / float(g.h - 1);
    float scale = (sx < sy ? sx : sy) * 65536.0f;
    if (scale > 2147483520.0f) scale = 2147483520.0f;
    const int32_t fixedScale = int32_t(scale);
    if ((int64_t(g.he - 1) * fixedScale >> 16) < guide->height) {
      ctx.guideWidth = guide->width;
      ctx.guideScale = fixedScale;
      ctx.guide = guide->data;
    }
  }
  ctx.weights = &params.weights[0][0];
  ctx.slopes = &params.slopes[0][0];
  ctx.srcU = job.srcU->data;
  ctx.srcV = job.srcV->data;
  ctx.luma = job.luma->data;
  return ctx;
}

}  // namespace

void kqChromaFilter(const KQChromaJob& job, int32_t threads, const KQChromaDsp* dsp) {
  Geometry g;
  if (dsp == nullptr ||
      !checkPlanes(job.luma, job.srcU, job.srcV, job.dstU, job.dstV, job.half, &g))
    return;
  KQChromaParams params;
  if (!kqChromaSetup(job.mode, job.strength, g.ratio, &params)) return;
  KQChromaPassContext ctx = passContext(job, g, params);
  struct Pass {
    KQStage stage;
    int32_t margin;
    const KQImage8* inU;
    const KQImage8* inV;
    KQImage8* outU;
    KQImage8* outV;
  };
  const Pass passes[3] = {
      {KQStage::kChromaPass1, params.margin1, job.srcU, job.srcV, job.half[0], job.half[1]},
      {KQStage::kChromaPass2, params.margin2, job.half[0], job.half[1], job.half[2], job.half[3]},
      {KQStage::kChromaPass3, 2, job.half[2], job.half[3], job.dstU, job.dstV},
  };
  for (int p = 0; p < 3; ++p) {
    const Pass& pass = passes[p];
    ctx.margin = pass.margin;
    ctx.tailCount = kqChromaTailCount(p + 1, g.w, pass.margin);
    ctx.inU = pass.inU->data;
    ctx.inV = pass.inV->data;
    ctx.outU = pass.outU->data;
    ctx.outV = pass.outV->data;
    kqStageStart(pass.stage);
    // Ranges start on even rows, as the passes' row pairs need.
    KQChromaPassFn* kernel = dsp->pass[p][params.kind - 1];
    kqParallelRows(0, g.he, 2, threads, [&ctx, kernel](int32_t first, int32_t end, int32_t) {
      KQChromaPassContext rows = ctx;
      rows.firstRow = first;
      rows.endRow = end;
      kernel(&rows);
    });
    kqStageStop(pass.stage);
  }
  fixUpBorders(job.dstU->data, g.w, g.h);
  fixUpBorders(job.dstV->data, g.w, g.h);
}

void kqChromaNoiseReductionDsp(const KQImage8* luma, const KQImage8* srcU, const KQImage8* srcV,
                               KQImage8* dstU, KQImage8* dstV, KQImage8* half1U,
                               KQImage8* half1V, KQImage8* half2U, KQImage8* half2V,
                               const KQImage8* guide, int32_t mode, float strength,
                               int32_t threads, const KQChromaDsp* dsp) {
  const KQChromaJob job = {luma,  srcU, srcV, dstU, dstV, {half1U, half1V, half2U, half2V},
                           guide, mode, strength};
  kqChromaFilter(job, threads, dsp);
}

void kqChromaNoiseReduction(const KQImage8* luma, const KQImage8* srcU, const KQImage8* srcV,
                            KQImage8* dstU, KQImage8* dstV, KQImage8* half1U, KQImage8* half1V,
                            KQImage8* half2U, KQImage8* half2V, const KQImage8* guide,
                            int32_t mode, float strength, int32_t threads) {
  kqChromaNoiseReductionDsp(luma, srcU, srcV, dstU, dstV, half1U, half1V, half2U, half2V, guide,
                            mode, strength, threads, kqChromaDspGet());
}
