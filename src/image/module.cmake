# Working planes (image8), plane intake and output assembly, with their
# chroma split / merge row kernels.
list(APPEND KQ_CORE_SOURCES
  src/image/image8.cpp
  src/image/planes_dsp.cpp
  src/image/planes_c.cpp
  src/image/plane_intake.cpp
  src/image/output_assembly.cpp)
list(APPEND KQ_NEON_SOURCES
  src/image/arm/planes_neon.cpp)
list(APPEND KQ_SSE41_SOURCES
  src/image/x86/planes_sse41.cpp)
list(APPEND KQ_AVX2_SOURCES
  src/image/x86/planes_avx2.cpp)
list(APPEND KQ_TEST_SOURCES
  tests/unit/image8_test.cpp
  tests/unit/plane_intake_test.cpp
  tests/unit/output_assembly_test.cpp)
list(APPEND KQ_CHECK_SOURCES
  tests/kernels/check_planes.cpp)
list(APPEND KQ_BENCH_SOURCES
  bench/bench_planes.cpp)
