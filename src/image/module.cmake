# Image records, plane intake and output assembly.
list(APPEND KQ_CORE_SOURCES
  src/image/image8.cpp)
list(APPEND KQ_TEST_SOURCES
  tests/unit/image8_test.cpp)
