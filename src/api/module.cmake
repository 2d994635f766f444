# The exported functions and the pipeline behind them. upscale_api.cpp is
# also compiled into the shared library itself; having it in kq_core lets
# tests and tools call the exported functions without the .so.
list(APPEND KQ_CORE_SOURCES
  src/api/pipeline.cpp
  src/api/plan.cpp
  src/api/upscale_api.cpp)
list(APPEND KQ_TEST_SOURCES
  tests/pipeline/pipeline_test.cpp
  tests/pipeline/golden_test.cpp
  tests/pipeline/stress_test.cpp)
