// pool.h - the process-wide worker pool and the parallel-for that every
// data-parallel stage runs through.
#pragma once

#include <cstdint>

// Runs one slice on its own copy of the caller's context record.
using KQTaskFn = void(void* context);

// Narrows a fresh byte copy of the caller's context to slice `slice` of
// `sliceCount` (normally a row or tile range). `poolFlag` is 1 when the pool
// runs the slices and 0 for the single-slice and ad-hoc forms. Called on the
// dispatching thread, once per slice in increasing order, before any task.
using KQSplitFn = void(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context);

// Upper bounds of the pool and of one parallel-for.
constexpr int32_t kKqMaxThreads = 32;
constexpr int32_t kKqMaxSlices = 2048;

// Runs `task` over slices of `context` and returns when all have finished.
//  - threadCount 1: split(0, 1, 0, context) then task(context), on the
//    calling thread, on the caller's own record.
//  - with a pool: 4 * threadCount slices (at most 2048), handed out in
//    increasing order to whichever of the pool's threads is free, the calling
//    thread working as slot 0. A count below 1 runs no slice.
//  - without a pool: as kqParallelForThreads(threadCount).
// Returns false when no slice ran (count below 1 with a pool, or the context
// copies could not be allocated); true otherwise. A task must never start a
// parallel-for itself.
bool kqParallelFor(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                   int32_t threadCount);

// Pool-free form: min(threadCount, 32) freshly created threads run one slice
// each while the caller waits; a count below 2 runs one slice on the calling
// thread. If the team cannot be set up, the single slice runs on the calling
// thread instead.
void kqParallelForThreads(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                          int32_t threadCount);

// The thread-count rule shared by every stage: n < 0 runs |n| fresh threads
// (kqParallelForThreads), n > 1 goes through kqParallelFor, 0 and 1 run one
// slice on the calling thread.
void kqParallelRun(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                   int32_t threadCount);

// Takes one use of the process-wide pool, creating it with
// min(threadCount, 32) slots (slot 0 is the dispatching thread) when none
// exists. A count below 1 creates no pool. `spinningCount` workers busy-wait
// instead of sleeping (negative means 4). Threads are named `name`.
void kqPoolStart(int32_t threadCount, int32_t spinningCount, const char* name);

// Gives up one use; the last use shuts the pool down and joins its threads.
void kqPoolStop();

// Slots of the current pool (0 when there is none), and its user count.
int32_t kqPoolSlotCount();
int32_t kqPoolUserCount();

// Binds the calling thread to the CPUs set in `mask` (raw sched_setaffinity).
// Failures are logged and otherwise ignored.
void kqSetThreadAffinity(int32_t mask);
