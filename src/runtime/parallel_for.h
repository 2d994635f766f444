// parallel_for.h - the parallel-for of the original stage interfaces: a task
// run over slices, each on its own byte copy of a context record that a
// split function narrows. Kept for the stage functions of that form; the
// pipeline's stages run on the parallel steps of pool.h.
#pragma once

#include <cstdint>

#include "runtime/pool.h"

// Runs one slice on its own copy of the caller's context record.
using KQTaskFn = void(void* context);

// Narrows a fresh byte copy of the caller's context to slice `slice` of
// `sliceCount` (normally a row or tile range). `poolFlag` is 1 when the pool
// runs the slices and 0 for the single-slice and ad-hoc forms. Called on the
// dispatching thread, once per slice in increasing order, before any task.
using KQSplitFn = void(int32_t slice, int32_t sliceCount, int32_t poolFlag, void* context);

// Runs `task` over slices of `context` and returns when all have finished.
//  - threadCount 1: split(0, 1, 0, context) then task(context), on the
//    calling thread, on the caller's own record.
//  - with a pool: 4 * threadCount slices (at most 2048), their context
//    copies in one kqMalloc block, handed out in increasing order to
//    whichever of the pool's threads is free, the calling thread working as
//    slot 0. A count below 1 runs no slice.
//  - without a pool: as kqParallelForThreads(threadCount).
// Returns false when no slice ran (count below 1 with a pool, or the context
// copies could not be allocated); true otherwise. A task must never start a
// parallel-for itself.
bool kqParallelFor(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                   int32_t threadCount);

// Pool-free form: min(threadCount, 32) freshly created threads run one slice
// each while the caller waits; a count below 2 runs one slice on the calling
// thread. If the team cannot be set up, the single slice runs on the calling
// thread instead; a slice whose thread cannot be started runs on the calling
// thread.
void kqParallelForThreads(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                          int32_t threadCount);

// The thread-count rule over the two forms above: n < 0 runs |n| fresh
// threads (kqParallelForThreads), n > 1 goes through kqParallelFor (one slice
// on the calling thread if that cannot run), 0 and 1 run one slice on the
// calling thread.
void kqParallelRun(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                   int32_t threadCount);

