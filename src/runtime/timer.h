// timer.h - stage timer hooks that bracket every stage of a call.
#pragma once

#include <cstdint>

#include "runtime/stages.h"

// Marks the start and the end of `stage` on the calling thread (its label
// comes from the stage table). When timing is on, the end hands the elapsed
// milliseconds to the receiver if one is installed, else logs "stage
// <label> (<id>): <ms> ms" at information priority, and returns them;
// otherwise it does nothing and returns 0.0. Timing never changes any image
// output. Start times are kept per thread (thread-local storage, touched
// only while timing is on).
void kqStageStart(KQStage stage);
double kqStageStop(KQStage stage);

// The same by number and with the label given by the caller (ids 0..127;
// others are ignored).
void kqTimerStart(int32_t stage);
double kqTimerStop(const char* label, int32_t stage);

// Timing is off unless the environment variable KQ_STAGE_TIMING is set to a
// non-empty value other than "0" when the first hook runs, or this switch
// turns it on (tools, tests), or a receiver is installed.
void kqTimerSetEnabled(bool enabled);
bool kqTimerEnabled();

// Receives every measured stage instead of the log line: fn(user, stage id,
// milliseconds), called on the thread that ran the stage. The record must
// outlive its use; null uninstalls it. Installing one switches timing on.
struct KQStageReceiver {
  void (*fn)(void* user, int32_t stage, double ms);
  void* user;
};
void kqTimerSetReceiver(const KQStageReceiver* receiver);
