// pool.h - the process-wide worker pool and the parallel steps that every
// data-parallel stage runs through.
#pragma once

#include <pthread.h>

#include <cstdint>

// Upper bounds of the pool and of one parallel-for.
constexpr int32_t kKqMaxThreads = 32;
constexpr int32_t kKqMaxSlices = 2048;

// ---------------------------------------------------------------------------
// Parallel steps. A step is a number of pieces, each run once, handed out in
// increasing order to whichever worker is free. The thread count of a call
// decides the workers, by one rule:
//  - n > 1: the calling thread (worker 0) and pool threads, n workers in
//    all at most (fewer when the pool is smaller; it may have been started
//    by an earlier call that is still running);
//  - n < 0: the calling thread and |n| - 1 threads started for this step
//    alone (|n| at most 32);
//  - 0 and 1: the calling thread alone.
// Steps allocate nothing. A thread that cannot be started leaves its pieces
// to the others; the first such failure of the process is logged at
// information level.

// Runs one piece; `worker` is the index of the worker running it, below
// kqStepWorkers(threads) of the step.
using KQPieceFn = void(void* user, int32_t piece, int32_t worker);

// How many workers a step with this thread count may run on (worker
// indices 0 .. n - 1). Per-worker scratch memory is sized by it.
int32_t kqStepWorkers(int32_t threads);

// Runs pieces 0 .. count - 1 and returns when all have finished. A piece
// must not start a step itself.
void kqRunPieces(int32_t count, int32_t threads, KQPieceFn* fn, void* user);

// The one row splitter: [begin, end) cut into `count` consecutive ranges
// whose inner boundaries lie a multiple of `grain` rows after `begin`. One
// range for a single worker, otherwise four per worker (fewer when the rows
// run short), so that the free workers balance uneven rows.
struct KQRowPieces {
  int32_t begin, end, grain, count;
  // First row of range `piece` (the end of range piece - 1); `end` for
  // piece == count.
  int32_t first(int32_t piece) const;
};
KQRowPieces kqRowPieces(int32_t begin, int32_t end, int32_t grain, int32_t threads);

// Calls fn(first, end, worker) for every non-empty range of
// kqRowPieces(begin, end, grain, threads), spread over the step's workers.
template <typename Fn>
void kqParallelRows(int32_t begin, int32_t end, int32_t grain, int32_t threads, Fn&& fn) {
  struct Call {
    KQRowPieces rows;
    Fn* fn;
  } call{kqRowPieces(begin, end, grain, threads), &fn};
  kqRunPieces(call.rows.count, threads,
              [](void* user, int32_t piece, int32_t worker) {
                const Call* c = static_cast<const Call*>(user);
                const int32_t a = c->rows.first(piece), b = c->rows.first(piece + 1);
                if (a < b) (*c->fn)(a, b, worker);
              },
              &call);
}

// ---------------------------------------------------------------------------
// The pool.

// Takes one use of the process-wide pool, creating it with
// min(threadCount, 32) slots (slot 0 is the dispatching thread) when none
// exists. A count below 1 creates no pool. `spinningCount` workers busy-wait
// instead of sleeping (negative means 4). Threads are named `name`. The
// pool's record is static: starting it allocates nothing but its threads,
// and a slot whose thread cannot be started is dropped (the pool runs with
// fewer).
void kqPoolStart(int32_t threadCount, int32_t spinningCount, const char* name);

// Gives up one use; the last use shuts the pool down and joins its threads.
void kqPoolStop();

// Slots of the current pool (0 when there is none), and its user count.
int32_t kqPoolSlotCount();
int32_t kqPoolUserCount();

// Starts a thread through the allocator's system calls (kqCreateThread):
// 0, or the error number; the first failure of the process is logged at
// information level.
int kqStartThread(pthread_t* thread, void* (*main)(void*), void* arg);

// Makes the library's process-wide state survive fork(): a child forked
// while other threads are inside a call forgets their pool and locks and
// starts its own. Idempotent and cheap; called on entry to every call.
void kqForkSafetyInstall();

// Binds the calling thread to the CPUs set in `mask` (raw sched_setaffinity).
// Failures are logged and otherwise ignored.
void kqSetThreadAffinity(int32_t mask);
