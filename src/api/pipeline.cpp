// pipeline.cpp - the upscale pipeline: a call's plan is made, its one block
// of working memory taken, and its stages run in order, each bracketed by
// its timer hooks: intake, homographies, luma and chroma warp, luma noise
// reduction, sharpening, chroma noise reduction, and the output layout.
#include "api/pipeline.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "api/plan.h"
#include "filters/chroma_nr.h"
#include "filters/luma_nr.h"
#include "filters/sharpen.h"
#include "image/image8.h"
#include "image/output_assembly.h"
#include "image/plane_intake.h"
#include "runtime/log.h"
#include "runtime/pool.h"
#include "runtime/timer.h"
#include "runtime/version.h"
#include "runtime/workspace.h"
#include "warp/homography.h"
#include "warp/warp_dsp.h"
#include "warp/warp_engine.h"

namespace {

// Format codes: the public one for NV12 and the internal layout codes the
// intake and output stages take (11 = U,V order, 10 = V,U).
constexpr int32_t kPublicNv12 = 9;
constexpr int32_t kLayoutUV = 11;
constexpr int32_t kLayoutVU = 10;

// Chroma padding bytes hold this neutral value.
constexpr uint8_t kNeutralChroma = 128;

constexpr int32_t kGridTiles = kKqGridSide * kKqGridSide;

// Everything the stages of one call share.
struct Run {
  const KQUpScaleCall& call;
  const KQPlan& plan;
  KQImage8 plane[kPlaneCount] = {};
  // The work region as a whole-image record of its own (internal format
  // code), read where it lies or from its packed copy.
  KQYUVMultiPlaneImage source = {};
  KQImage8 callerY = {};              // the caller's luma plane, packed rows
  const KQImage8* lumaSoFar = nullptr;  // the newest luma
  KQScalingGrids grids = {};
  // Chroma rows lie back to back at this pitch in the caller's plane (one
  // byte less than the row stride for an odd width), followed by padX bytes
  // of padding.
  int32_t chromaPadX = 0;
  size_t chromaPitch = 0;

  Run(const KQUpScaleCall& c, const KQPlan& p) : call(c), plan(p) {}
  KQImage8* get(KQPlaneId id) { return plane[id].data != nullptr ? &plane[id] : nullptr; }
};

// The planes of the plan, carved from its block, and the records the
// stages read and write.
void prepare(Run& run, uint8_t* block) {
  const KQPlan& plan = run.plan;
  for (int32_t id = 0; id < kPlaneCount; ++id)
    if (plan.needs(KQPlaneId(id)))
      run.plane[id] = {plan.planeWidth[id], plan.planeHeight[id], block + plan.offset[id]};
  const KQYUVMultiPlaneImage* in = run.call.in;
  const KQYUVMultiPlaneImage* out = run.call.out;
  run.callerY = {out->width, out->height, out->yData};
  run.lumaSoFar = plan.luma.warpToCaller ? &run.callerY : run.get(kLumaY);
  // Luma from (left, top), chroma from byte `left` of chroma row top / 2 (an
  // odd left starts on the second byte of a pair, which exchanges U and V),
  // at the caller's row stride.
  KQYUVMultiPlaneImage& s = run.source;
  s = *in;
  s.type = in->type == kPublicNv12 ? kLayoutUV : kLayoutVU;
  s.width = plan.width;
  s.height = plan.height;
  s.yScanlines = plan.height;
  s.yData = in->yData + size_t(plan.top) * size_t(in->yRowStride) + size_t(plan.left);
  s.chromaData =
      in->chromaData + size_t(plan.top / 2) * size_t(in->yRowStride) + size_t(plan.left);
  // An output whose row stride equals its width has no padding, whatever
  // its scanline count.
  run.chromaPadX = out->yRowStride != out->width ? out->yRowStride - out->width : 0;
  run.chromaPitch = size_t(out->width & ~1) + size_t(run.chromaPadX);
}

// The caller's padding bytes that the packed luma rows will cover, saved
// before the first write and put back after the spread.
void savePadding(Run& run) {
  if (run.plan.savedBytes == 0) return;
  const KQYUVMultiPlaneImage* out = run.call.out;
  uint8_t* saved = run.get(kPaddingSaved)->data;
  kqForEachCoveredPadding(out->width, out->height, out->yRowStride, [&](size_t start, size_t n) {
    std::memcpy(saved, out->yData + start, n);
    saved += n;
  });
}

// --- the stages ----------------------------------------------------------

void takePlanes(Run& run) {
  const int32_t threads = run.call.threads;
  KQYUVMultiPlaneImage& s = run.source;
  if (!run.plan.readInPlace) {
    // The output shares memory with the input: work from a packed copy. The
    // intake's luma copy packs rows of bytes, so it also packs the
    // interleaved chroma rows, taken as a plane of half the height.
    KQYUVMultiPlaneImage chromaRows = s;
    chromaRows.yData = s.chromaData;
    chromaRows.height = chromaRows.yScanlines = s.height / 2;
    kqTakeYUVPlanes(&s, run.get(kCopyY), nullptr, nullptr, threads);
    kqTakeYUVPlanes(&chromaRows, run.get(kCopyUV), nullptr, nullptr, threads);
    s.yData = run.get(kCopyY)->data;
    s.chromaData = run.get(kCopyUV)->data;
    s.yRowStride = s.width;
  }
  // The chroma filter works on U and V planes.
  if (run.plan.chromaFilter) kqTakeYUVPlanes(&s, nullptr, run.get(kInU), run.get(kInV), threads);
}

void makeGrids(Run& run) {
  kqScalingGrids(run.plan.width, run.plan.height, run.call.out->width, run.call.out->height,
                 &run.grids);
}

// A warp of `kind` through the call's grids, with the plan's scratch.
KQWarpRequest warpOf(Run& run, KQWarpKind kind) {
  KQWarpRequest r = {};
  r.kind = kind;
  r.forwardGrid = run.grids.forward;
  r.inverseGrid = run.grids.inverse;
  r.tileColumns = r.tileRows = kKqGridSide;
  r.tileLimit = kGridTiles;
  r.dsp = kqWarpDspGet();
  return r;
}

void runWarp(Run& run, const KQWarpRequest& request) {
  if (const KQImage8* scratch = run.get(kWarpScratch))
    kqWarpRun(request, run.call.threads, scratch->data, size_t(scratch->width));
}

void warpLuma(Run& run) {
  if (!run.plan.luma.warp) return;
  const KQYUVMultiPlaneImage& s = run.source;
  KQWarpRequest luma = warpOf(run, KQWarpKind::kLuma);
  luma.source[0] = {s.yData, s.width, s.height, s.yRowStride};
  luma.target[0] = {run.lumaSoFar->data, run.lumaSoFar->width, run.lumaSoFar->height,
                    run.lumaSoFar->width};
  runWarp(run, luma);
}

void warpChroma(Run& run) {
  kqHalveHomographyTranslations(run.grids.forward, run.grids.inverse);
  const KQYUVMultiPlaneImage* out = run.call.out;
  if (run.plan.chromaFilter) {
    KQWarpRequest planes = warpOf(run, KQWarpKind::kChromaPlanes);
    const KQPlaneId from[2] = {kInU, kInV}, to[2] = {kOutU, kOutV};
    for (int i = 0; i < 2; ++i) {
      const KQImage8* s = run.get(from[i]);
      const KQImage8* t = run.get(to[i]);
      planes.source[i] = {s->data, s->width, s->height, s->width};
      planes.target[i] = {t->data, t->width, t->height, t->width};
    }
    runWarp(run, planes);
    return;
  }
  // Nothing filters the chroma: the warp takes the pairs from the input and
  // writes them into the caller's plane, in the output's byte order.
  const KQYUVMultiPlaneImage& s = run.source;
  KQWarpRequest pairs = warpOf(run, KQWarpKind::kChromaPairs);
  pairs.source[0] = {s.chromaData, s.width / 2, s.height / 2, s.yRowStride};
  pairs.target[0] = {out->chromaData, out->width / 2, out->height / 2,
                     ptrdiff_t(run.chromaPitch)};
  pairs.swapPairs = (run.call.in->type == kPublicNv12) != (out->type == kPublicNv12);
  runWarp(run, pairs);
}

void denoiseLuma(Run& run) {
  if (!run.plan.luma.denoise) return;
  KQImage8* destination = run.plan.luma.denoiseToCaller ? &run.callerY : run.get(kLumaY);
  kqLumaNoiseReduction(run.lumaSoFar, destination, nullptr, run.call.noiseReduction,
                       run.call.threads);
  run.lumaSoFar = destination;
}

void sharpenLuma(Run& run) {
  if (!run.plan.luma.sharpen) return;
  kqImageSharpening(run.lumaSoFar, &run.callerY, nullptr, run.call.sharpening, 0.0f,
                    kKqSharpen5Tap, run.call.threads);
}

void denoiseChroma(Run& run) {
  if (!run.plan.chromaFilter) return;
  // In place, guided by the output luma: the warped chroma is both the
  // source and the result.
  const KQChromaJob job = {&run.callerY,
                           run.get(kOutU),
                           run.get(kOutV),
                           run.get(kOutU),
                           run.get(kOutV),
                           {run.get(kHalf1U), run.get(kHalf1V), run.get(kHalf2U), run.get(kHalf2V)},
                           nullptr,
                           0,
                           static_cast<float>(run.call.chromaNoiseReduction)};
  kqChromaFilter(job, run.call.threads, kqChromaDspGet());
}

void spreadLuma(Run& run) {
  // Spreading rows that no stage wrote would move the caller's own bytes.
  if (!run.plan.luma.spread) return;
  const KQYUVMultiPlaneImage* out = run.call.out;
  kqAddPaddingToYChannelWithBuffer(&run.callerY, out->yRowStride - out->width,
                                   run.get(kPaddingRow)->data);
  if (run.plan.savedBytes == 0) return;
  const uint8_t* saved = run.get(kPaddingSaved)->data;
  kqForEachCoveredPadding(out->width, out->height, out->yRowStride, [&](size_t start, size_t n) {
    std::memcpy(out->yData + start, saved, n);
    saved += n;
  });
}

void interleaveChroma(Run& run) {
  const KQYUVMultiPlaneImage* out = run.call.out;
  if (!run.plan.chromaFilter) {
    // The warp wrote the pairs; the padding after them is neutral chroma.
    if (run.chromaPadX <= 0) return;
    for (int32_t r = 0; r < out->height / 2; ++r)
      std::memset(out->chromaData + size_t(r) * run.chromaPitch + 2 * size_t(out->width / 2),
                  kNeutralChroma, size_t(run.chromaPadX));
    return;
  }
  KQYUVMultiPlaneImage target = *out;
  target.type = out->type == kPublicNv12 ? kLayoutUV : kLayoutVU;
  const int32_t padY = run.chromaPadX > 0 ? out->yScanlines - out->height : 0;
  kqSetUVData(run.get(kOutU), run.get(kOutV), &target, padY, run.chromaPadX, run.call.threads);
}

// The stages in order, each in its group (whose timer encloses its stages).
// Every hook runs, whether or not its stage has work in this call.
struct Step {
  KQStage stage;
  KQStage group;  // the stage itself for a stage outside any group
  void (*run)(Run&);
};
constexpr Step kSteps[] = {
    {KQStage::kIntake, KQStage::kIntake, takePlanes},
    {KQStage::kHomographies, KQStage::kHomographies, makeGrids},
    {KQStage::kLumaWarp, KQStage::kLumaWarp, warpLuma},
    {KQStage::kChromaWarp, KQStage::kChromaWarp, warpChroma},
    {KQStage::kLumaNoise, KQStage::kFilters, denoiseLuma},
    {KQStage::kSharpening, KQStage::kFilters, sharpenLuma},
    {KQStage::kChromaNoise, KQStage::kFilters, denoiseChroma},
    {KQStage::kLumaSpread, KQStage::kOutput, spreadLuma},
    {KQStage::kChromaInterleave, KQStage::kOutput, interleaveChroma},
};

void runSteps(Run& run) {
  const Step* open = nullptr;  // the step whose group timer runs
  for (const Step& step : kSteps) {
    const bool grouped = step.group != step.stage;
    if (open != nullptr && open->group != step.group) kqStageStop(open->group);
    if (grouped && (open == nullptr || open->group != step.group)) kqStageStart(step.group);
    open = grouped ? &step : nullptr;
    kqStageStart(step.stage);
    step.run(run);
    kqStageStop(step.stage);
  }
  if (open != nullptr) kqStageStop(open->group);
}

}  // namespace

int32_t kqUpScaleRun(const KQUpScaleCall& call) {
  kqForkSafetyInstall();
  kqLog(stderr, KQ_LOG_INFO, KQ_LOG_TAG, "%s", kqUpScaleVersion());
  kqLog(stderr, KQ_LOG_INFO, KQ_LOG_TAG, "%s", kqBaseGetVersion());
  KQPlan plan;
  if (!kqPlanCall(call, &plan)) return 0;
  // All working memory is one block, obtained before the caller's planes are
  // touched, so that a failure leaves them as they were; nothing after it
  // allocates (the pool's record is static, and a worker thread that cannot
  // be started leaves its share to the others). A repeated call of the same
  // sizes gets the block the previous one used.
  KQBlock block{nullptr, 0, -1};
  if (plan.bytes > 0) block = kqWorkspaceAcquire(plan.bytes);
  if (plan.bytes > 0 && block.data == nullptr) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG,
          "KQUpScale: working memory could not be allocated; nothing written");
    return 0;
  }
  Run run(call, plan);
  prepare(run, block.data);
  if (call.affinityMask >= 1) kqSetThreadAffinity(call.affinityMask);
  // Counts of 0 and 1 run on the calling thread and negative ones start
  // their own threads per step: only counts above 1 use the pool.
  const bool pooled = call.threads > 1;
  if (pooled) kqPoolStart(call.threads, 0, "KQUpScale");
  savePadding(run);
  runSteps(run);
  if (pooled) kqPoolStop();
  kqWorkspaceRelease(&block);
  return 0;
}
