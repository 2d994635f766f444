// timer.cpp - stage timer hooks; silent unless timing is switched on.
#include "runtime/timer.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "runtime/log.h"

namespace {

// -1: not decided yet (read the environment on first use), 0: off, 1: on.
std::atomic<int> gEnabled{-1};
std::atomic<const KQStageReceiver*> gReceiver{nullptr};

// Stage ids are small integers; each thread keeps its own start times.
constexpr int kMaxStage = 128;
thread_local std::chrono::steady_clock::time_point tStart[kMaxStage];

bool enabledNow() {
  int state = gEnabled.load(std::memory_order_relaxed);
  if (state < 0) {
    const char* env = std::getenv("KQ_STAGE_TIMING");
    state = (env != nullptr && env[0] != '\0' && !(env[0] == '0' && env[1] == '\0')) ? 1 : 0;
    int expected = -1;
    gEnabled.compare_exchange_strong(expected, state);
    state = gEnabled.load(std::memory_order_relaxed);
  }
  return state == 1 || gReceiver.load(std::memory_order_acquire) != nullptr;
}

}  // namespace

void kqTimerSetEnabled(bool enabled) { gEnabled.store(enabled ? 1 : 0); }

bool kqTimerEnabled() { return enabledNow(); }

void kqTimerSetReceiver(const KQStageReceiver* receiver) {
  gReceiver.store(receiver != nullptr && receiver->fn != nullptr ? receiver : nullptr,
                  std::memory_order_release);
}

void kqTimerStart(int32_t stage) {
  if (!enabledNow() || stage < 0 || stage >= kMaxStage) return;
  tStart[stage] = std::chrono::steady_clock::now();
}

double kqTimerStop(const char* label, int32_t stage) {
  if (!enabledNow() || stage < 0 || stage >= kMaxStage) return 0.0;
  const std::chrono::duration<double, std::milli> elapsed =
      std::chrono::steady_clock::now() - tStart[stage];
  if (const KQStageReceiver* r = gReceiver.load(std::memory_order_acquire)) {
    r->fn(r->user, stage, elapsed.count());
  } else {
    kqLog(stderr, KQ_LOG_INFO, KQ_LOG_TAG, "stage %s (%d): %.3f ms",
          label != nullptr ? label : "?", static_cast<int>(stage), elapsed.count());
  }
  return elapsed.count();
}

void kqStageStart(KQStage stage) { kqTimerStart(kqStageId(stage)); }

double kqStageStop(KQStage stage) {
  if (!enabledNow()) return 0.0;  // the label is looked up only when it is used
  const KQStageInfo* info = kqStageInfo(stage);
  return kqTimerStop(info != nullptr ? info->label : nullptr, kqStageId(stage));
}
