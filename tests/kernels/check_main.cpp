// check_main.cpp - entry point of the kernel checks: gtest's own flags, and
// --bench or --bench=<part of a kernel's name> to time each implementation
// the checks compare, so that this binary is also the per-kernel benchmark.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

#include "kernels/check_util.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--bench") == 0) {
      kqSetBench("");
    } else if (std::strncmp(argv[i], "--bench=", 8) == 0) {
      kqSetBench(argv[i] + 8);
    } else {
      std::fprintf(stderr, "%s: unknown argument '%s' (gtest flags, --bench[=kernel])\n", argv[0],
                   argv[i]);
      return 2;
    }
  }
  return RUN_ALL_TESTS();
}
