# Geometric warp: scaling homographies, tiled warp driver, warp kernels.
list(APPEND KQ_CORE_SOURCES
  src/warp/homography.cpp
  src/warp/warp_c.cpp
  src/warp/warp_dsp.cpp
  src/warp/warp_engine.cpp
  src/warp/warp_family.cpp)
list(APPEND KQ_NEON_SOURCES
  src/warp/arm/warp_neon.cpp)
list(APPEND KQ_SSE41_SOURCES
  src/warp/x86/warp_sse41.cpp)
list(APPEND KQ_AVX2_SOURCES
  src/warp/x86/warp_avx2.cpp)
list(APPEND KQ_AVX512_SOURCES
  src/warp/x86/warp_avx512.cpp)
list(APPEND KQ_TEST_SOURCES
  tests/unit/homography_test.cpp
  tests/unit/warp_driver_test.cpp)
list(APPEND KQ_CHECK_SOURCES
  tests/kernels/check_warp.cpp)
list(APPEND KQ_BENCH_SOURCES
  bench/bench_warp.cpp)
