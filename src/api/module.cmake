# The exported functions and the pipeline behind them.
list(APPEND KQ_CORE_SOURCES
  src/api/pipeline.cpp)
