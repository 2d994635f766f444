// pool.cpp - worker pool, parallel steps (pool and team forms), thread
// naming, fork safety and CPU affinity.
#include "runtime/pool.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

#if defined(__linux__)
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

#include "runtime/alloc.h"
#include "runtime/log.h"
#include "runtime/workspace.h"

namespace {

// A job handed to a worker: run(arg, worker) with the worker's slot index.
using KQJobFn = void(void* arg, int32_t worker);

struct WorkerPool;

struct WorkerSlot {
  // kIdle, kHanded (a job is handed over and not yet claimed), kLeave (the
  // pool stops) or kExitAck (the worker has left its loop).
  std::atomic<int32_t> pending;
  std::atomic<int32_t> done;  // jobs finished since the dispatcher cleared it
  const char* name;
  KQJobFn* jobFn;
  void* jobArg;
  WorkerPool* pool;
  int32_t index;
  int32_t spinning;
  int32_t wake;  // guarded by mutex
  pthread_mutex_t mutex;
  pthread_cond_t cond;
};

struct WorkerPool {
  int32_t count;
  pthread_t threads[kKqMaxThreads];
  WorkerSlot slots[kKqMaxThreads];
  pthread_mutex_t dispatch;
};

pthread_mutex_t gPoolLock = PTHREAD_MUTEX_INITIALIZER;
// The one pool's record lives here, so that starting it allocates nothing;
// gPool points at it while the pool exists.
alignas(64) unsigned char gPoolStorage[sizeof(WorkerPool)];
WorkerPool* gPool = nullptr;  // guarded by gPoolLock
int32_t gUsers = 0;           // guarded by gPoolLock

constexpr int32_t kIdle = 0, kHanded = 1, kLeave = 2, kExitAck = 100;

// The first thread of the process that cannot be started is reported; later
// ones are not (the work goes on with fewer threads either way).
std::atomic<bool> gThreadFailureSaid{false};

}  // namespace

int kqStartThread(pthread_t* thread, void* (*main)(void*), void* arg) {
  const int rc = kqCreateThread(thread, main, arg);
  if (rc != 0 && !gThreadFailureSaid.exchange(true)) {
    kqLog(stdout, KQ_LOG_INFO, KQ_LOG_TAG,
          "KQUpScale: a worker thread could not be started (%s); the work runs on fewer threads",
          std::strerror(rc));
  }
  return rc;
}

namespace {

// Busy-wait step between two sequentially consistent loads of the counter
// being watched (those loads are the barrier). A yield now and then keeps a
// waiting thread from starving the workers on an oversubscribed or emulated
// CPU.
inline void spinPause(uint32_t* rounds) {
  if ((++*rounds & 63u) == 0) sched_yield();
}

void nameThisThread(const char* name) {
  if (name == nullptr) return;
#if defined(__linux__)
  char buffer[16] = {0};
  std::strncpy(buffer, name, 15);
  if (prctl(PR_SET_NAME, reinterpret_cast<unsigned long>(buffer), 0, 0, 0) != 0) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "cannot set thread name to '%s'", buffer);
    return;
  }
  char check[16] = {0};
  if (prctl(PR_GET_NAME, reinterpret_cast<unsigned long>(check), 0, 0, 0) != 0) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "cannot get thread name");
  }
#endif
}

void* workerMain(void* arg) {
  WorkerSlot* slot = static_cast<WorkerSlot*>(arg);
  nameThisThread(slot->name);
  for (;;) {
    if (slot->spinning) {
      uint32_t rounds = 0;
      while (slot->pending.load() == kIdle) spinPause(&rounds);
    } else {
      pthread_mutex_lock(&slot->mutex);
      while (slot->wake != 1) pthread_cond_wait(&slot->cond, &slot->mutex);
      slot->wake = 0;
      pthread_mutex_unlock(&slot->mutex);
    }
    // Claim the job. The dispatcher withdraws it from a worker that has not
    // claimed it by the time every piece is taken, so a late wake-up finds
    // nothing to do and never touches a job that has already returned. The
    // request to leave is a state of its own, read in the same step: a
    // worker woken late for a withdrawn job while the pool stops leaves and
    // never mistakes the stop for that job.
    int32_t seen = kHanded;
    if (slot->pending.compare_exchange_strong(seen, kIdle)) {
      slot->jobFn(slot->jobArg, slot->index);
      slot->done.fetch_add(1);
    } else if (seen == kLeave) {
      break;
    }
  }
  slot->pending.store(kExitAck);
  return nullptr;
}

// One step's pieces, taken in increasing order by whichever worker is free.
struct PieceJob {
  std::atomic<int32_t> next;
  int32_t count;
  KQPieceFn* fn;
  void* user;
};

void takePieces(void* arg, int32_t worker) {
  PieceJob* job = static_cast<PieceJob*>(arg);
  for (;;) {
    const int32_t i = job->next.fetch_add(1);
    if (i >= job->count) return;
    job->fn(job->user, i, worker);
  }
}

// Runs `job` on the calling thread (worker 0) and on pool slots 1 .. k - 1,
// k = min(pool size, workers).
void runOnPool(WorkerPool* pool, PieceJob* job, int32_t workers) {
  pthread_mutex_lock(&pool->dispatch);
  const int32_t k = pool->count < workers ? pool->count : workers;
  for (int32_t i = 1; i < k; ++i) {
    WorkerSlot* slot = &pool->slots[i];
    slot->jobFn = takePieces;
    slot->jobArg = job;
    slot->done.store(0);
    slot->pending.store(kHanded);
    pthread_mutex_lock(&slot->mutex);
    slot->wake = 1;
    pthread_cond_signal(&slot->cond);
    pthread_mutex_unlock(&slot->mutex);
  }
  takePieces(job, 0);
  // Every piece is taken. Workers that have not woken up yet lose their
  // claim (they would find no piece anyway); only those that claimed the job
  // can still be running a piece, and they are waited for.
  for (int32_t i = 1; i < k; ++i) {
    WorkerSlot* slot = &pool->slots[i];
    int32_t handed = kHanded;
    if (slot->pending.compare_exchange_strong(handed, kIdle)) continue;
    uint32_t rounds = 0;
    while (slot->done.load() == 0) spinPause(&rounds);
  }
  pthread_mutex_unlock(&pool->dispatch);
}

struct TeamMember {
  PieceJob* job;
  int32_t worker;
};

void* teamMemberMain(void* arg) {
  const TeamMember* m = static_cast<const TeamMember*>(arg);
  takePieces(m->job, m->worker);
  return nullptr;
}

// Runs `job` on the calling thread and `workers` - 1 threads started for it.
void runOnTeam(PieceJob* job, int32_t workers) {
  pthread_t threads[kKqMaxThreads];
  TeamMember members[kKqMaxThreads];
  bool started[kKqMaxThreads] = {};
  for (int32_t i = 1; i < workers; ++i) {
    members[i] = TeamMember{job, i};
    started[i] = kqStartThread(&threads[i], teamMemberMain, &members[i]) == 0;
  }
  takePieces(job, 0);
  for (int32_t i = 1; i < workers; ++i)
    if (started[i]) pthread_join(threads[i], nullptr);
}

WorkerPool* currentPool() {
  pthread_mutex_lock(&gPoolLock);
  WorkerPool* pool = gPool;
  pthread_mutex_unlock(&gPoolLock);
  return pool;
}

// --- fork ----------------------------------------------------------------

// Around fork() every lock of the library's process-wide state is taken (in
// the order the library itself takes them: pool, working memory, log), so
// the child starts from consistent records. The child has none of the
// parent's other threads: it forgets the pool they use (its next call starts
// one of its own) and gives up no blocks they hold (its copies of them are
// free to reuse).
void forkPrepare() {
  pthread_mutex_lock(&gPoolLock);
  kqWorkspaceAtFork(KQForkPhase::kPrepare);
  kqLogAtFork(KQForkPhase::kPrepare);
}

void forkParent() {
  kqLogAtFork(KQForkPhase::kParent);
  kqWorkspaceAtFork(KQForkPhase::kParent);
  pthread_mutex_unlock(&gPoolLock);
}

void forkChild() {
  kqLogAtFork(KQForkPhase::kChild);
  kqWorkspaceAtFork(KQForkPhase::kChild);
  pthread_mutex_init(&gPoolLock, nullptr);
  gPool = nullptr;
  gUsers = 0;
}

pthread_once_t gForkOnce = PTHREAD_ONCE_INIT;

void registerForkHandlers() { pthread_atfork(forkPrepare, forkParent, forkChild); }

}  // namespace

// --- parallel steps --------------------------------------------------------

int32_t kqStepWorkers(int32_t threads) {
  if (threads < 0) return threads < -kKqMaxThreads ? kKqMaxThreads : -threads;
  if (threads > 1) return threads > kKqMaxThreads ? kKqMaxThreads : threads;
  return 1;
}

void kqRunPieces(int32_t count, int32_t threads, KQPieceFn* fn, void* user) {
  if (count < 1) return;
  const int32_t workers = kqStepWorkers(threads);
  if (workers == 1 || count == 1) {
    for (int32_t i = 0; i < count; ++i) fn(user, i, 0);
    return;
  }
  PieceJob job;
  job.next.store(0);
  job.count = count;
  job.fn = fn;
  job.user = user;
  WorkerPool* pool = threads > 1 ? currentPool() : nullptr;
  if (pool != nullptr) {
    runOnPool(pool, &job, workers);
  } else {
    runOnTeam(&job, workers);
  }
}

int32_t KQRowPieces::first(int32_t piece) const {
  if (piece >= count) return end;
  const int64_t units = (int64_t(end) - begin + grain - 1) / grain;
  return begin + int32_t(int64_t(grain) * (units * piece / count));
}

KQRowPieces kqRowPieces(int32_t begin, int32_t end, int32_t grain, int32_t threads) {
  KQRowPieces rows{begin, end, grain < 1 ? 1 : grain, 0};
  if (end <= begin) return rows;
  const int64_t units = (int64_t(end) - begin + rows.grain - 1) / rows.grain;
  const int32_t workers = kqStepWorkers(threads);
  const int64_t wanted = workers == 1 ? 1 : 4 * int64_t(workers);
  rows.count = int32_t(wanted < units ? wanted : units);
  return rows;
}

// --- the pool --------------------------------------------------------------

void kqPoolStart(int32_t threadCount, int32_t spinningCount, const char* name) {
  kqForkSafetyInstall();
  const int32_t n = threadCount > kKqMaxThreads ? kKqMaxThreads : threadCount;
  if (spinningCount < 0) spinningCount = 4;
  pthread_mutex_lock(&gPoolLock);
  // Every start counts as a use, also one that could not build a pool, so
  // that concurrent callers' stops pair with their own starts.
  ++gUsers;
  if (gPool != nullptr) {
    pthread_mutex_unlock(&gPoolLock);
    return;
  }
  // A count below 1 is a documented mode (the calling thread, or threads
  // of its own per step), not a failure: no pool, and nothing to log.
  if (n < 1) {
    pthread_mutex_unlock(&gPoolLock);
    return;
  }
  WorkerPool* pool = new (gPoolStorage) WorkerPool;
  pool->count = n;
  pthread_mutex_init(&pool->dispatch, nullptr);
  for (int32_t i = 0; i < n; ++i) {
    WorkerSlot* slot = &pool->slots[i];
    slot->pending.store(kIdle);
    slot->done.store(0);
    slot->jobFn = nullptr;
    slot->jobArg = nullptr;
    slot->wake = 0;
    slot->name = name;
    slot->pool = pool;
    slot->index = i;
    slot->spinning = i < spinningCount ? 1 : 0;
    pthread_cond_init(&slot->cond, nullptr);
    pthread_mutex_init(&slot->mutex, nullptr);
    if (i > 0 && kqStartThread(&pool->threads[i], workerMain, slot) != 0) {
      // Without its thread the slot would never report done; the pool
      // keeps the slots that run.
      pthread_cond_destroy(&slot->cond);
      pthread_mutex_destroy(&slot->mutex);
      pool->count = i;
      break;
    }
  }
  gPool = pool;
  pthread_mutex_unlock(&gPoolLock);
}

void kqPoolStop() {
  pthread_mutex_lock(&gPoolLock);
  const int32_t before = gUsers--;
  if (before >= 2 || gPool == nullptr) {
    pthread_mutex_unlock(&gPoolLock);
    return;
  }
  WorkerPool* pool = gPool;
  for (int32_t i = 1; i < pool->count; ++i) {
    WorkerSlot* slot = &pool->slots[i];
    slot->pending.store(kLeave);
    pthread_mutex_lock(&slot->mutex);
    slot->wake = 1;
    pthread_cond_signal(&slot->cond);
    pthread_mutex_unlock(&slot->mutex);
    uint32_t rounds = 0;
    while (slot->pending.load() != kExitAck) spinPause(&rounds);
    pthread_join(pool->threads[i], nullptr);
  }
  for (int32_t i = 0; i < pool->count; ++i) {
    pthread_cond_destroy(&pool->slots[i].cond);
    pthread_mutex_destroy(&pool->slots[i].mutex);
  }
  pthread_mutex_destroy(&pool->dispatch);
  pool->~WorkerPool();
  gPool = nullptr;
  pthread_mutex_unlock(&gPoolLock);
}

int32_t kqPoolSlotCount() {
  pthread_mutex_lock(&gPoolLock);
  const int32_t count = gPool != nullptr ? gPool->count : 0;
  pthread_mutex_unlock(&gPoolLock);
  return count;
}

int32_t kqPoolUserCount() {
  pthread_mutex_lock(&gPoolLock);
  const int32_t users = gUsers;
  pthread_mutex_unlock(&gPoolLock);
  return users;
}

void kqForkSafetyInstall() { pthread_once(&gForkOnce, registerForkHandlers); }

void kqSetThreadAffinity(int32_t mask) {
#if defined(__linux__)
  // The mask covers CPUs 0..31. It is handed over in one unsigned long (4
  // bytes on 32-bit targets), the unit in which the kernel and emulators
  // read CPU sets.
  unsigned long set = static_cast<uint32_t>(mask);
  const long tid = syscall(SYS_gettid);
  if (syscall(SYS_sched_setaffinity, tid, sizeof set, &set) != 0) {
    const int err = errno;
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG,
          "Error in the syscall setaffinity: mask=%d=0x%x err=%d=0x%x", mask,
          static_cast<unsigned>(mask), err, static_cast<unsigned>(err));
  }
#else
  (void)mask;
#endif
}
