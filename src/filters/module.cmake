# Filters: luma noise reduction and sharpening, and the luma-guided chroma
# noise reduction; drivers, dispatch tables, scalar references and vector rows.
list(APPEND KQ_CORE_SOURCES
  src/filters/luma_nr.cpp
  src/filters/sharpen.cpp
  src/filters/luma_dsp.cpp
  src/filters/luma_c.cpp
  src/filters/chroma_nr.cpp
  src/filters/chroma_dsp.cpp
  src/filters/chroma_c.cpp)
list(APPEND KQ_NEON_SOURCES
  src/filters/arm/luma_neon.cpp
  src/filters/arm/chroma_neon.cpp)
list(APPEND KQ_SSE41_SOURCES
  src/filters/x86/luma_sse41.cpp
  src/filters/x86/chroma_sse41.cpp)
list(APPEND KQ_AVX2_SOURCES
  src/filters/x86/luma_avx2.cpp
  src/filters/x86/chroma_avx2.cpp)
list(APPEND KQ_AVX512_SOURCES
  src/filters/x86/luma_avx512.cpp
  src/filters/x86/chroma_avx512.cpp)
list(APPEND KQ_TEST_SOURCES
  tests/unit/filters_test.cpp)
list(APPEND KQ_CHECK_SOURCES
  tests/kernels/check_luma.cpp
  tests/kernels/check_chroma.cpp)
list(APPEND KQ_BENCH_SOURCES
  bench/bench_luma.cpp
  bench/bench_chroma.cpp)
