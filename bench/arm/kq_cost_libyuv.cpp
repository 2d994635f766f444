// kq_cost_libyuv.cpp - the anchor of scripts/bench-arm.sh: libyuv's NV12Scale (bilinear) on the
// workloads and frames of kq_bench_call, as kq_bench_call calls it, repeated REPS times.
//
//   kq_cost_libyuv WORKLOAD REPS
//
// Built against a libyuv for the target that the script unpacks into a private folder.
#include <libyuv/scale.h>

#include <cstdio>
#include <cstdlib>

#include "camera_frame.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: kq_cost_libyuv WORKLOAD REPS\n");
    return 2;
  }
  const int workload = std::atoi(argv[1]);
  const int reps = std::atoi(argv[2]);
  if (workload < 0 || workload >= kqbench::kWorkloadCount || reps < 0) return 2;
  const kqbench::Workload& w = kqbench::kWorkloads[workload];
  kqbench::Frame in(w.inW, w.inH, 0), out(w.outW, w.outH, 0x5a);
  kqbench::paintCameraFrame(&in, 1);
  const int32_t x0 = w.left < 0 ? 0 : w.left, y0 = w.left < 0 ? 0 : w.top;
  const uint8_t* srcY = in.y.get() + size_t(y0) * size_t(in.w) + size_t(x0);
  const uint8_t* srcVU = in.vu.get() + size_t(y0 / 2) * size_t(in.w) + size_t(x0);
  for (int r = 0; r < reps; ++r)
    libyuv::NV12Scale(srcY, in.w, srcVU, in.w, w.w, w.h, out.y.get(), out.w, out.vu.get(), out.w,
                      out.w, out.h, libyuv::kFilterBilinear);
  return 0;
}
