# Runtime services: allocator, worker pool, logging, stage timers, CPU flags.
list(APPEND KQ_CORE_SOURCES
  src/runtime/alloc.cpp
  src/runtime/cpu.cpp
  src/runtime/log.cpp
  src/runtime/parallel_for.cpp
  src/runtime/pool.cpp
  src/runtime/stages.cpp
  src/runtime/timer.cpp
  src/runtime/version.cpp
  src/runtime/workspace.cpp)
list(APPEND KQ_TEST_SOURCES
  tests/unit/alloc_test.cpp
  tests/unit/log_timer_test.cpp
  tests/unit/pool_test.cpp
  tests/unit/cpu_test.cpp)
