// timer.h - stage timer hooks that bracket every pipeline stage.
#pragma once

#include <cstdint>

// Marks the start of stage `stage` on the calling thread.
void kqTimerStart(int32_t stage);

// Marks the end of stage `stage`. When timing is enabled it logs
// "stage <label> (<id>): <ms> ms" at information priority and returns the
// elapsed milliseconds; otherwise it does nothing and returns 0.0.
// Timing never changes any image output.
double kqTimerStop(const char* label, int32_t stage);

// Timing is off unless the environment variable KQ_STAGE_TIMING is set to a
// non-empty value other than "0" when the first hook runs, or this switch
// turns it on (tools, tests).
void kqTimerSetEnabled(bool enabled);
bool kqTimerEnabled();
