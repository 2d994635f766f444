// bench_chroma.cpp - chroma noise reduction on the chroma of a 4096x3072
// output (2048x1536 U and V), per instruction-set level, one thread and the
// pool; items are chroma pixels (one U and one V sample each). Then each
// pass's kernel on its own over the whole plane, one thread, per level.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "bench_util.h"
#include "filters/chroma_nr.h"
#include "runtime/pool.h"

namespace {

constexpr int kW = 2048, kH = 1536;

struct ChromaPlanes {
  std::vector<uint8_t> luma = kqBenchPlane(2 * kW, 2 * kH, 1);
  std::vector<uint8_t> u = kqBenchPlane(kW, kH, 2), v = kqBenchPlane(kW, kH, 3);
  std::vector<uint8_t> h[4];
  ChromaPlanes() {
    for (auto& p : h) p.assign(size_t(kW / 2) * (kH / 2), 0);
  }
};

void benchChroma(benchmark::State& st, uint32_t level, float strength) {
  static ChromaPlanes planes;
  const std::vector<uint8_t> u0 = planes.u, v0 = planes.v;
  KQChromaDsp dsp;
  kqChromaDspInit(&dsp, level);
  const int threads = int(st.range(0));
  if (threads > 1) kqPoolStart(threads, 0, "kq-bench");
  KQImage8 luma{2 * kW, 2 * kH, planes.luma.data()};
  KQImage8 u{kW, kH, planes.u.data()}, v{kW, kH, planes.v.data()};
  KQImage8 h[4];
  for (int i = 0; i < 4; ++i) h[i] = KQImage8{kW / 2, kH / 2, planes.h[i].data()};
  const KQChromaJob job = {&luma, &u, &v, &u, &v, {&h[0], &h[1], &h[2], &h[3]}, nullptr, 0,
                           strength};
  for (auto _ : st) {
    kqChromaFilter(job, threads, &dsp);
    benchmark::ClobberMemory();
  }
  if (threads > 1) kqPoolStop();
  planes.u = u0;  // in place: keep the input the same for the next case
  planes.v = v0;
  st.SetItemsProcessed(st.iterations() * int64_t(kW) * kH);
}

void registerChromaBenches() {
  for (float strength : {1.0f, 10.0f})
    for (uint32_t level : kqCpuLevels()) {
      const std::string name = "chroma.nr/2048x1536/s" + std::to_string(int(strength)) + "/" +
                               kqCpuLevelName(level);
      benchmark::RegisterBenchmark(name.c_str(),
                                   [level, strength](benchmark::State& st) {
                                     benchChroma(st, level, strength);
                                   })
          ->ArgName("threads")
          ->Arg(1)
          ->Arg(2)
          ->Arg(4)
          ->UseRealTime()
          ->Unit(benchmark::kMillisecond);
    }
}

// One pass's kernel over every row of the work area, called directly (one
// slice, the calling thread), as the stage would call it at this strength
// and mode 0. Pass 3 writes to planes of its own rather than in place, so
// that every iteration filters the same input; items are that pass's
// output pixels.
void benchPass(benchmark::State& st, uint32_t level, float strength, int pass) {
  static ChromaPlanes planes;
  static std::vector<uint8_t> outU(size_t(kW) * kH), outV(size_t(kW) * kH);
  KQChromaDsp dsp;
  kqChromaDspInit(&dsp, level);
  KQChromaParams params;
  kqChromaSetup(0, strength, 2, &params);
  KQChromaPassContext c;
  std::memset(&c, 0, sizeof c);
  static const uint8_t kNoGuide = 0;
  c.endRow = kH;
  c.lumaWidth = 2 * kW;
  c.chromaWidth = kW;
  c.evenHeight = kH;
  c.lumaRatio = 2;
  c.guide = &kNoGuide;
  c.weights = &params.weights[0][0];
  c.slopes = &params.slopes[0][0];
  c.srcU = planes.u.data();
  c.srcV = planes.v.data();
  c.luma = planes.luma.data();
  // Inputs of passes 2 and 3 from the passes before them.
  const int margins[3] = {params.margin1, params.margin2, 2};
  uint8_t* const ins[4][2] = {{planes.u.data(), planes.v.data()},
                              {planes.h[0].data(), planes.h[1].data()},
                              {planes.h[2].data(), planes.h[3].data()},
                              {outU.data(), outV.data()}};
  auto setPass = [&](int p) {
    c.margin = margins[p - 1];
    c.tailCount = kqChromaTailCount(p, kW, c.margin);
    c.inU = ins[p - 1][0];
    c.inV = ins[p - 1][1];
    c.outU = ins[p][0];
    c.outV = ins[p][1];
  };
  for (int p = 1; p < pass; ++p) {
    setPass(p);
    KQChromaPassContext k = c;
    dsp.pass[p - 1][params.kind - 1](&k);
  }
  setPass(pass);
  KQChromaPassFn* const fn = dsp.pass[pass - 1][params.kind - 1];
  for (auto _ : st) {
    KQChromaPassContext k = c;
    fn(&k);
    benchmark::ClobberMemory();
  }
  st.SetItemsProcessed(st.iterations() * int64_t(kW) * kH / (pass == 3 ? 1 : 4));
}

void registerPassBenches() {
  for (int pass = 1; pass <= 3; ++pass)
    for (float strength : {1.0f, 10.0f})
      for (uint32_t level : kqCpuLevels()) {
        const std::string name = "chroma.pass" + std::to_string(pass) + "/2048x1536/s" +
                                 std::to_string(int(strength)) + "/" + kqCpuLevelName(level);
        benchmark::RegisterBenchmark(
            name.c_str(),
            [level, strength, pass](benchmark::State& st) { benchPass(st, level, strength, pass); })
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
      }
}

}  // namespace

static const int kReg = (registerChromaBenches(), registerPassBenches(), 0);
