// stages.h - the stages of one call, as the stage timers name them: one
// enum for the pipeline, the filters, the tools and the benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>

// Stage ids (the numbers the timer hooks report). Groups enclose the stages
// listed after them with a greater depth.
enum class KQStage : int32_t {
  kIntake = 0,
  kHomographies = 1,
  kLumaWarp = 2,
  kChromaWarp = 3,
  kFilters = 4,  // group: the three filters
  kLumaNoise = 12,
  kNoiseInterior = 92,
  kNoiseBorder = 101,
  kNoiseBlend = 99,
  kSharpening = 13,
  kSharpenOuter = 95,
  kSharpenRows = 91,
  kChromaNoise = 14,
  kChromaPass1 = 80,
  kChromaPass2 = 81,
  kChromaPass3 = 83,
  kOutput = 5,  // group: the output layout
  kLumaSpread = 21,
  kChromaInterleave = 22,
};

struct KQStageInfo {
  KQStage id;
  int32_t depth;      // 0: a stage of the call; 1, 2: inside the one above
  const char* label;  // the name the timer reports
  const char* what;   // what the stage does, in words
};

// Every stage, in the order a call runs them (a group before its stages).
extern const KQStageInfo kKqStages[];
extern const size_t kKqStageCount;

// The entry of one stage (null for an id that is none).
const KQStageInfo* kqStageInfo(KQStage stage);

inline int32_t kqStageId(KQStage stage) { return static_cast<int32_t>(stage); }
