// kq_cost.cpp - the work whose instructions scripts/bench-arm.sh counts under qemu: one case of
// the whole-call benchmark (kq_bench_call's workloads and frames), or one stage of the pipeline
// alone, repeated a given number of times in one process.
//
//   kq_cost CASE WORKLOAD REPS
//     CASE      whole calls (1 thread, as kq_bench_call makes them):
//                 memcpy    a memcpy of the output's bytes (the floor)
//                 warp      noise reduction 0, chroma noise reduction 0, sharpening 0
//                 nr        noise reduction 3 only        sharpen   sharpening 0.6 only
//                 chroma    chroma noise reduction 4 only defaults  3, 4, 0.6
//               stages alone, on the planes the pipeline hands them (made before the work):
//                 stage.intake        the chroma split into U and V planes for the chroma filter
//                 stage.luma-warp     the bilinear luma warp
//                 stage.chroma-pairs  the nearest-sample warp of interleaved pairs (no chroma
//                 filter) stage.chroma-warp   the nearest-sample warp of the U and V planes
//                 stage.luma-nr       luma noise reduction, strength 3
//                 stage.sharpen       sharpening, strength 0.6
//                 stage.chroma-nr     chroma noise reduction, strength 4 (its three passes)
//                 stage.chroma-nr1, stage.chroma-nr2, stage.chroma-nr3   one pass of it
//                 stage.chroma-nr-noise  the whole filter on U and V planes of random bytes,
//                                        where the weights' look-ups take their longest way
//                 stage.interleave    the chroma interleave into the caller's plane
//     WORKLOAD  an index into kq_bench_call's workloads (0: 1024x768 -> 4096x3072)
//     REPS      how many times the work runs
//
// Everything else the process does (frames painted, planes allocated, stage inputs made, the
// first call's set-up) is the same for every REPS, so the count of REPS = 3 less that of REPS = 1,
// halved, is one warm repetition. The whole-call cases call the pipeline that the exported
// functions wrap (KQUpScale_ScaleImage and ..FromROI are one call to it), linked statically so
// that the counting plugin's per-block profile maps onto the program's symbols.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "api/pipeline.h"
#include "camera_frame.h"
#include "filters/chroma_dsp.h"
#include "filters/chroma_nr.h"
#include "filters/luma_nr.h"
#include "filters/sharpen.h"
#include "image/image8.h"
#include "image/output_assembly.h"
#include "image/plane_intake.h"
#include "runtime/pool.h"
#include "warp/homography.h"
#include "warp/warp_dsp.h"
#include "warp/warp_engine.h"

namespace {

using kqbench::Frame;
using kqbench::Workload;

constexpr int32_t kNoiseReduction = 3;
constexpr int32_t kChromaNoiseReduction = 4;
constexpr float kSharpening = 0.6f;
constexpr int32_t kGridSide = 4;

struct Plane {
  std::vector<uint8_t> bytes;
  KQImage8 image{};
  Plane(int32_t w, int32_t h) : bytes(size_t(w) * size_t(h), 0) { image = {w, h, bytes.data()}; }
};

// The planes and grids of one workload's pipeline, as the pipeline makes them for a whole-image
// call (a region call reads the region where it lies in the input's planes; the stages see the
// same sizes).
struct Stages {
  const Workload& wl;
  Frame& in;
  Frame& out;
  KQYUVMultiPlaneImage source;
  int32_t workW, workH, outW, outH;
  KQScalingGrids grids, chromaGrids;
  Plane inU, inV, lumaY, outU, outV, filtU, filtV, h1U, h1V, h2U, h2V;
  std::vector<uint8_t> warpScratch;

  Stages(const Workload& w, Frame& input, Frame& output)
      : wl(w),
        in(input),
        out(output),
        source(input.image),
        workW(w.left < 0 ? w.inW : w.w & ~3),
        workH(w.left < 0 ? w.inH : w.h & ~3),
        outW(w.outW),
        outH(w.outH),
        inU(workW / 2, workH / 2),
        inV(workW / 2, workH / 2),
        lumaY(outW, outH),
        outU(outW / 2, outH / 2),
        outV(outW / 2, outH / 2),
        filtU(outW / 2, outH / 2),
        filtV(outW / 2, outH / 2),
        h1U(outW / 4, outH / 4),
        h1V(outW / 4, outH / 4),
        h2U(outW / 4, outH / 4),
        h2V(outW / 4, outH / 4) {
    const int32_t left = w.left < 0 ? 0 : w.left, top = w.left < 0 ? 0 : w.top;
    source.type = 10;  // NV21 inside the library
    source.width = workW;
    source.height = workH;
    source.yScanlines = workH;
    source.yData = in.image.yData + size_t(top) * size_t(in.image.yRowStride) + size_t(left);
    source.chromaData =
        in.image.chromaData + size_t(top / 2) * size_t(in.image.yRowStride) + size_t(left);
    kqScalingGrids(workW, workH, outW, outH, &grids);
    chromaGrids = grids;
    kqHalveHomographyTranslations(chromaGrids.forward, chromaGrids.inverse);
    // One thread: one worker's scratch, enough for every warp of the workload.
    KQWarpRequest planes = request(KQWarpKind::kChromaPlanes, grids);
    planes.source[0].width = planes.source[1].width = workW / 2;
    planes.target[0].width = planes.target[1].width = outW / 2;
    warpScratch.resize(std::max(kqWarpScratchBytes(request(KQWarpKind::kLuma, grids), 1),
                                kqWarpScratchBytes(planes, 1)));
    // The inputs of the later stages: the warped planes, made once.
    intake();
    lumaWarp(&lumaY.image);
    chromaWarp();
  }

  void intake() { kqTakeYUVPlanes(&source, nullptr, &inU.image, &inV.image, 1); }

  // A warp through `g` as the pipeline issues it: the 4 x 4 grid, this
  // CPU's row kernels.
  KQWarpRequest request(KQWarpKind kind, const KQScalingGrids& g) const {
    KQWarpRequest r = {};
    r.kind = kind;
    r.target[0].width = outW;
    r.forwardGrid = g.forward;
    r.inverseGrid = g.inverse;
    r.tileColumns = r.tileRows = kGridSide;
    r.tileLimit = kGridSide * kGridSide;
    r.dsp = kqWarpDspGet();
    return r;
  }

  void lumaWarp(KQImage8* dst) {
    KQWarpRequest r = request(KQWarpKind::kLuma, grids);
    r.source[0] = {source.yData, workW, workH, source.yRowStride};
    r.target[0] = {dst->data, dst->width, dst->height, dst->width};
    kqWarpRun(r, 1, warpScratch.data(), warpScratch.size());
  }

  void chromaWarp() {
    KQWarpRequest r = request(KQWarpKind::kChromaPlanes, chromaGrids);
    r.source[0] = {inU.image.data, workW / 2, workH / 2, workW / 2};
    r.source[1] = {inV.image.data, workW / 2, workH / 2, workW / 2};
    r.target[0] = {outU.image.data, outW / 2, outH / 2, outW / 2};
    r.target[1] = {outV.image.data, outW / 2, outH / 2, outW / 2};
    kqWarpRun(r, 1, warpScratch.data(), warpScratch.size());
  }

  void chromaPairs() {
    KQWarpRequest r = request(KQWarpKind::kChromaPairs, chromaGrids);
    r.source[0] = {source.chromaData, workW / 2, workH / 2, source.yRowStride};
    r.target[0] = {out.image.chromaData, outW / 2, outH / 2, ptrdiff_t(outW & ~1)};
    kqWarpRun(r, 1, warpScratch.data(), warpScratch.size());
  }

  void lumaNr() {
    KQImage8 dst{outW, outH, out.image.yData};
    kqLumaNoiseReduction(&lumaY.image, &dst, nullptr, kNoiseReduction, 1);
  }

  void sharpen() {
    KQImage8 dst{outW, outH, out.image.yData};
    kqImageSharpening(&lumaY.image, &dst, nullptr, kSharpening, 0.0f, kKqSharpen5Tap, 1);
  }

  // The whole filter, into planes apart from its input so that every repetition filters the
  // same bytes (the pipeline filters in place; pass 3 reads each source byte before writing it,
  // so the work is the same).
  void chromaNr() {
    KQImage8 luma{outW, outH, lumaY.image.data};
    kqChromaNoiseReduction(&luma, &outU.image, &outV.image, &filtU.image, &filtV.image, &h1U.image,
                           &h1V.image, &h2U.image, &h2V.image, nullptr, 0,
                           float(kChromaNoiseReduction), 1);
  }

  // U and V planes of random bytes (the same on every run): nearly every vector step of the
  // chroma filter then has a tap 32 levels or more from its centre.
  void noiseChroma() {
    uint32_t x = 0x2545f491u;
    for (Plane* p : {&outU, &outV})
      for (uint8_t& b : p->bytes) {
        x = x * 1664525u + 1013904223u;
        b = uint8_t(x >> 24);
      }
  }

  // One pass of the filter, with the context the stage gives it (its inputs are the previous
  // passes' outputs, left by a whole run made before the work).
  void chromaPass(int pass) {
    KQChromaParams params;
    kqChromaSetup(0, float(kChromaNoiseReduction), 2, &params);
    KQChromaPassContext c;
    std::memset(&c, 0, sizeof c);
    static const uint8_t kNoGuide = 0;
    c.lumaWidth = outW;
    c.chromaWidth = outW / 2;
    c.evenHeight = (outH / 2) & ~1;
    c.lumaRatio = 2;
    c.guide = &kNoGuide;
    c.weights = &params.weights[0][0];
    c.slopes = &params.slopes[0][0];
    c.srcU = outU.image.data;
    c.srcV = outV.image.data;
    c.luma = lumaY.image.data;
    const uint8_t* inputs[3][2] = {{outU.image.data, outV.image.data},
                                   {h1U.image.data, h1V.image.data},
                                   {h2U.image.data, h2V.image.data}};
    uint8_t* outputs[3][2] = {{h1U.image.data, h1V.image.data},
                              {h2U.image.data, h2V.image.data},
                              {filtU.image.data, filtV.image.data}};
    const int32_t margins[3] = {params.margin1, params.margin2, 2};
    c.margin = margins[pass - 1];
    c.firstRow = 0;
    c.endRow = c.evenHeight;
    c.tailCount = kqChromaTailCount(pass, c.chromaWidth, c.margin);
    c.inU = inputs[pass - 1][0];
    c.inV = inputs[pass - 1][1];
    c.outU = outputs[pass - 1][0];
    c.outV = outputs[pass - 1][1];
    kqChromaDspGet()->pass[pass - 1][params.kind - 1](&c);
  }

  void interleave() {
    KQYUVMultiPlaneImage target = out.image;
    target.type = 10;
    kqSetUVData(&filtU.image, &filtV.image, &target, 0, 0, 1);
  }
};

void call(const Workload& w, Frame& in, Frame& out, int32_t nr, int32_t chromaNr, float sharp) {
  KQUpScaleCall c = {&in.image, &out.image, -1, -1, -1, -1, nr, chromaNr, sharp, 1, 0};
  if (w.left >= 0) {
    c.left = w.left;
    c.top = w.top;
    c.right = w.left + w.w - 1;
    c.bottom = w.top + w.h - 1;
  }
  kqUpScaleRun(c);
}

int usage() {
  std::fprintf(stderr, "usage: kq_cost CASE WORKLOAD REPS (see bench/arm/kq_cost.cpp)\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return usage();
  const std::string name = argv[1];
  const int workload = std::atoi(argv[2]);
  const int reps = std::atoi(argv[3]);
  if (workload < 0 || workload >= kqbench::kWorkloadCount || reps < 0) return usage();
  // The library's information lines are not wanted.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  const Workload& w = kqbench::kWorkloads[workload];
  Frame in(w.inW, w.inH, 0), out(w.outW, w.outH, 0x5a), floorSource(w.outW, w.outH, 0x33);
  kqbench::paintCameraFrame(&in, 1);

  if (name.rfind("stage.", 0) == 0) {
    Stages s(w, in, out);
    if (name == "stage.chroma-nr1" || name == "stage.chroma-nr2" || name == "stage.chroma-nr3")
      s.chromaNr();  // the passes' inputs
    if (name == "stage.chroma-nr-noise") s.noiseChroma();
    for (int r = 0; r < reps; ++r) {
      if (name == "stage.intake")
        s.intake();
      else if (name == "stage.luma-warp")
        s.lumaWarp(&s.lumaY.image);
      else if (name == "stage.chroma-pairs")
        s.chromaPairs();
      else if (name == "stage.chroma-warp")
        s.chromaWarp();
      else if (name == "stage.luma-nr")
        s.lumaNr();
      else if (name == "stage.sharpen")
        s.sharpen();
      else if (name == "stage.chroma-nr" || name == "stage.chroma-nr-noise")
        s.chromaNr();
      else if (name == "stage.chroma-nr1")
        s.chromaPass(1);
      else if (name == "stage.chroma-nr2")
        s.chromaPass(2);
      else if (name == "stage.chroma-nr3")
        s.chromaPass(3);
      else if (name == "stage.interleave")
        s.interleave();
      else
        return usage();
    }
    return 0;
  }
  for (int r = 0; r < reps; ++r) {
    if (name == "memcpy") {
      std::memcpy(out.y.get(), floorSource.y.get(), out.lumaBytes());
      std::memcpy(out.vu.get(), floorSource.vu.get(), out.chromaBytes());
    } else if (name == "warp") {
      call(w, in, out, 0, 0, 0.0f);
    } else if (name == "nr") {
      call(w, in, out, kNoiseReduction, 0, 0.0f);
    } else if (name == "sharpen") {
      call(w, in, out, 0, 0, kSharpening);
    } else if (name == "chroma") {
      call(w, in, out, 0, kChromaNoiseReduction, 0.0f);
    } else if (name == "defaults") {
      call(w, in, out, kNoiseReduction, kChromaNoiseReduction, kSharpening);
    } else {
      return usage();
    }
  }
  return 0;
}
