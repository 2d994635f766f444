# Chroma noise reduction: driver, dispatch, scalar reference and vector kernels.
list(APPEND KQ_CORE_SOURCES
  src/filters/chroma_nr.cpp
  src/filters/chroma_dsp.cpp
  src/filters/chroma_c.cpp)
list(APPEND KQ_NEON_SOURCES
  src/filters/arm/chroma_neon.cpp)
list(APPEND KQ_SSE41_SOURCES
  src/filters/x86/chroma_sse41.cpp)
list(APPEND KQ_AVX2_SOURCES
  src/filters/x86/chroma_avx2.cpp)
list(APPEND KQ_AVX512_SOURCES
  src/filters/x86/chroma_avx512.cpp)
list(APPEND KQ_TEST_SOURCES
  tests/unit/chroma_nr_test.cpp)
list(APPEND KQ_CHECK_SOURCES
  tests/kernels/check_chroma.cpp)
list(APPEND KQ_BENCH_SOURCES
  bench/bench_chroma.cpp)
