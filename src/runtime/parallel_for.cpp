// parallel_for.cpp - the parallel-for of the original stage interfaces, a
// task over slices of a context record, on the parallel steps of pool.cpp
// (its slices as pieces) or on an ad-hoc team of one thread per slice.
#include "runtime/parallel_for.h"

#include <pthread.h>

#include <cstring>

#include "runtime/alloc.h"
#include "runtime/pool.h"

namespace {

void runSingleSlice(KQTaskFn* task, KQSplitFn* split, void* context) {
  split(0, 1, 0, context);
  task(context);
}

// Slices of a parallel-for as pieces: slice i runs its task on copy i.
struct SliceCopies {
  KQTaskFn* task;
  uint8_t* copies;
  uint32_t size;
};

void runSliceCopy(void* user, int32_t piece, int32_t) {
  const SliceCopies* s = static_cast<const SliceCopies*>(user);
  s->task(s->copies + size_t(piece) * s->size);
}

bool parallelForOnPool(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                       int32_t threadCount) {
  int32_t slices = threadCount > kKqMaxSlices / 4 ? kKqMaxSlices : 4 * threadCount;
  if (slices < 0) slices = 0;
  uint8_t* copies = static_cast<uint8_t*>(kqMalloc(uint32_t(slices) * contextSize));
  if (copies == nullptr) return false;
  for (int32_t s = 0; s < slices; ++s) {
    void* copy = copies + size_t(s) * contextSize;
    std::memcpy(copy, context, contextSize);
    split(s, slices, 1, copy);
  }
  SliceCopies sc{task, copies, contextSize};
  // Every slot of the pool takes part, whatever count the caller gave.
  kqRunPieces(slices, kKqMaxThreads, runSliceCopy, &sc);
  kqFree(copies);
  return true;
}

struct TeamSlot {
  KQTaskFn* task;
  void* context;
  int32_t index;
  int32_t done;  // guarded by mutex
  pthread_cond_t cond;
  pthread_mutex_t mutex;
};

struct Team {
  int32_t size;
  TeamSlot* slots;
  pthread_t threads[kKqMaxThreads];
  bool started[kKqMaxThreads];
};

void* teamSlotMain(void* arg) {
  TeamSlot* slot = static_cast<TeamSlot*>(arg);
  slot->task(slot->context);
  pthread_mutex_lock(&slot->mutex);
  slot->done = 1;
  pthread_cond_signal(&slot->cond);
  pthread_mutex_unlock(&slot->mutex);
  return nullptr;
}

// Ad-hoc team of n (2..32) threads, one slice each, the caller waiting. All
// memory is obtained before the first thread starts, so a failure leaves
// nothing half done: the work then runs as one slice on the calling thread.
void runTeam(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize, int32_t n) {
  Team* team = static_cast<Team*>(kqMalloc(sizeof(Team)));
  TeamSlot* slots = static_cast<TeamSlot*>(kqMalloc(uint32_t(sizeof(TeamSlot)) * uint32_t(n)));
  uint8_t* copies =
      contextSize > 0 ? static_cast<uint8_t*>(kqMalloc(contextSize * uint32_t(n))) : nullptr;
  if (team == nullptr || slots == nullptr || copies == nullptr) {
    kqFree(copies);
    kqFree(slots);
    kqFree(team);
    runSingleSlice(task, split, context);
    return;
  }
  team->size = n;
  team->slots = slots;
  for (int32_t i = 0; i < n; ++i) {
    TeamSlot* slot = &slots[i];
    slot->task = task;
    pthread_cond_init(&slot->cond, nullptr);
    slot->done = 0;
    pthread_mutex_init(&slot->mutex, nullptr);
    slot->context = copies + size_t(i) * contextSize;
    std::memcpy(slot->context, context, contextSize);
    split(i, n, 0, slot->context);
    slot->index = i;
    team->started[i] = kqStartThread(&team->threads[i], teamSlotMain, slot) == 0;
  }
  for (int32_t i = 0; i < n; ++i) {
    TeamSlot* slot = &slots[i];
    if (!team->started[i]) {
      slot->task(slot->context);  // no thread: run this slice here instead
      continue;
    }
    pthread_mutex_lock(&slot->mutex);
    while (slot->done != 1) pthread_cond_wait(&slot->cond, &slot->mutex);
    slot->done = 0;
    pthread_mutex_unlock(&slot->mutex);
  }
  for (int32_t i = 0; i < n; ++i) {
    if (team->started[i]) pthread_join(team->threads[i], nullptr);
    pthread_cond_destroy(&slots[i].cond);
    pthread_mutex_destroy(&slots[i].mutex);
  }
  kqFree(copies);
  kqFree(slots);
  kqFree(team);
}

void teamDispatch(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                  int32_t threadCount) {
  const int32_t n = threadCount > kKqMaxThreads ? kKqMaxThreads : threadCount;
  if (n < 2) {
    runSingleSlice(task, split, context);
    return;
  }
  runTeam(task, split, context, contextSize, n);
}

}  // namespace

bool kqParallelFor(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                   int32_t threadCount) {
  if (threadCount == 1) {
    runSingleSlice(task, split, context);
    return true;
  }
  if (kqPoolSlotCount() > 0) {
    return parallelForOnPool(task, split, context, contextSize, threadCount);
  }
  teamDispatch(task, split, context, contextSize, threadCount);
  return true;
}

void kqParallelForThreads(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                          int32_t threadCount) {
  teamDispatch(task, split, context, contextSize, threadCount);
}

void kqParallelRun(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                   int32_t threadCount) {
  if (threadCount < 0) {
    // Teams are capped at 32 threads anyway; capping first keeps INT32_MIN
    // from being negated.
    const int32_t n = threadCount < -kKqMaxThreads ? kKqMaxThreads : -threadCount;
    kqParallelForThreads(task, split, context, contextSize, n);
  } else if (threadCount > 1) {
    if (!kqParallelFor(task, split, context, contextSize, threadCount)) {
      // The pool could not take the job (no memory for the slice copies):
      // the work still has to be done, so do it here in one slice.
      runSingleSlice(task, split, context);
    }
  } else {
    runSingleSlice(task, split, context);
  }
}

