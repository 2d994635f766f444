// bench_util.h - helpers shared by the benchmark files.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/cpu.h"

// A camera-like luma plane: gradients, edges and mild noise (deterministic).
inline std::vector<uint8_t> kqBenchPlane(int width, int height, uint32_t seed = 1) {
  std::vector<uint8_t> p(size_t(width) * height);
  uint32_t s = seed * 2654435761u + 1;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      s ^= s << 13;
      s ^= s >> 17;
      s ^= s << 5;
      const int edge = ((x / 64 + y / 48) & 1) ? 60 : 0;
      p[size_t(y) * width + x] = uint8_t((x / 8 + y / 6) % 160 + edge + (s & 7));
    }
  return p;
}

// Registers fn once per instruction-set level the CPU offers, named
// "<base>/<isa>", with megapixels per second as items/s.
template <typename Fn>
void kqBenchPerLevel(const std::string& base, Fn fn) {
  for (uint32_t level : kqCpuLevels()) {
    benchmark::RegisterBenchmark((base + "/" + kqCpuLevelName(level)).c_str(),
                                 [fn, level](benchmark::State& st) { fn(st, level); });
  }
}
