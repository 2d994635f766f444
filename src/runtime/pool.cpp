// pool.cpp - worker pool, parallel-for (pool and ad-hoc team forms), thread
// naming and CPU affinity.
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

namespace {

struct WorkerPool;

struct WorkerSlot {
  // kIdle, kHanded (a job is handed over and not yet claimed), kLeave (the
  // pool stops) or kExitAck (the worker has left its loop).
  std::atomic<int32_t> pending;
  std::atomic<int32_t> done;     // jobs finished since the dispatcher cleared it
  const char* name;
  KQTaskFn* jobFn;
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

struct SliceEntry {
  KQTaskFn* task;
  void* context;
};

struct Job {
  int32_t next;
  int32_t total;
  SliceEntry* table;
  pthread_mutex_t* mutex;
};

pthread_mutex_t gPoolLock = PTHREAD_MUTEX_INITIALIZER;
WorkerPool* gPool = nullptr;  // guarded by gPoolLock
int32_t gUsers = 0;           // guarded by gPoolLock

constexpr int32_t kIdle = 0, kHanded = 1, kLeave = 2, kExitAck = 100;

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
    // claimed it by the time every slice is taken, so a late wake-up finds
    // nothing to do and never touches a job that has already returned. The
    // request to leave is a state of its own, read in the same step: a
    // worker woken late for a withdrawn job while the pool stops leaves and
    // never mistakes the stop for that job.
    int32_t seen = kHanded;
    if (slot->pending.compare_exchange_strong(seen, kIdle)) {
      slot->jobFn(slot->jobArg);
      slot->done.fetch_add(1);
    } else if (seen == kLeave) {
      break;
    }
  }
  slot->pending.store(kExitAck);
  return nullptr;
}

// Takes slices in increasing index order until none is left.
void runJob(void* arg) {
  Job* job = static_cast<Job*>(arg);
  for (;;) {
    pthread_mutex_lock(job->mutex);
    const int32_t i = job->next;
    const SliceEntry* entry = i < job->total ? &job->table[i] : nullptr;
    job->next = i + 1;
    pthread_mutex_unlock(job->mutex);
    if (entry == nullptr) return;
    entry->task(entry->context);
  }
}

bool dispatchOnPool(WorkerPool* pool, KQTaskFn* task, KQSplitFn* split, void* context,
                    uint32_t contextSize, int32_t threadCount) {
  bool ran = false;
  pthread_mutex_lock(&pool->dispatch);
  int32_t slices = threadCount > kKqMaxSlices / 4 ? kKqMaxSlices : 4 * threadCount;
  if (slices < 0) slices = 0;
  pthread_mutex_t jobMutex = PTHREAD_MUTEX_INITIALIZER;
  SliceEntry table[kKqMaxSlices];
  Job job{0, slices, table, &jobMutex};
  uint8_t* copies = static_cast<uint8_t*>(kqMalloc(uint32_t(slices) * contextSize));
  if (copies != nullptr) {
    for (int32_t s = 0; s < slices; ++s) {
      void* copy = copies + size_t(s) * contextSize;
      std::memcpy(copy, context, contextSize);
      split(s, slices, 1, copy);
      table[s] = SliceEntry{task, copy};
    }
    for (int32_t i = 1; i < pool->count; ++i) {
      WorkerSlot* slot = &pool->slots[i];
      slot->jobFn = runJob;
      slot->jobArg = &job;
      slot->done.store(0);
      slot->pending.store(kHanded);
      pthread_mutex_lock(&slot->mutex);
      slot->wake = 1;
      pthread_cond_signal(&slot->cond);
      pthread_mutex_unlock(&slot->mutex);
    }
    runJob(&job);
    // Every slice is taken. Workers that have not woken up yet lose their
    // claim (they would find no slice anyway); only those that claimed the
    // job can still be running a slice, and they are waited for.
    for (int32_t i = 1; i < pool->count; ++i) {
      WorkerSlot* slot = &pool->slots[i];
      int32_t handed = kHanded;
      if (slot->pending.compare_exchange_strong(handed, kIdle)) continue;
      uint32_t rounds = 0;
      while (slot->done.load() == 0) spinPause(&rounds);
    }
    kqFree(copies);
    ran = true;
  }
  pthread_mutex_destroy(&jobMutex);
  pthread_mutex_unlock(&pool->dispatch);
  return ran;
}

struct TeamSlot {
  const char* name;
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

void* teamMain(void* arg) {
  TeamSlot* slot = static_cast<TeamSlot*>(arg);
  nameThisThread(slot->name);
  slot->task(slot->context);
  pthread_mutex_lock(&slot->mutex);
  slot->done = 1;
  pthread_cond_signal(&slot->cond);
  pthread_mutex_unlock(&slot->mutex);
  return nullptr;
}

void runSingleSlice(KQTaskFn* task, KQSplitFn* split, void* context) {
  split(0, 1, 0, context);
  task(context);
}

// Ad-hoc team of n (2..32) threads, one slice each. All memory is obtained
// before the first thread starts, so a failure leaves nothing half done: the
// work then runs as one slice on the calling thread.
void runTeam(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize, int32_t n,
             const char* name) {
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
    slot->name = name;
    slot->task = task;
    pthread_cond_init(&slot->cond, nullptr);
    slot->done = 0;
    pthread_mutex_init(&slot->mutex, nullptr);
    slot->context = copies + size_t(i) * contextSize;
    std::memcpy(slot->context, context, contextSize);
    split(i, n, 0, slot->context);
    slot->index = i;
    team->started[i] = pthread_create(&team->threads[i], nullptr, teamMain, slot) == 0;
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
                  int32_t threadCount, const char* name) {
  const int32_t n = threadCount > kKqMaxThreads ? kKqMaxThreads : threadCount;
  if (n < 2) {
    runSingleSlice(task, split, context);
    return;
  }
  runTeam(task, split, context, contextSize, n, name);
}

WorkerPool* currentPool() {
  pthread_mutex_lock(&gPoolLock);
  WorkerPool* pool = gPool;
  pthread_mutex_unlock(&gPoolLock);
  return pool;
}

}  // namespace

bool kqParallelFor(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                   int32_t threadCount) {
  if (threadCount == 1) {
    runSingleSlice(task, split, context);
    return true;
  }
  if (WorkerPool* pool = currentPool()) {
    return dispatchOnPool(pool, task, split, context, contextSize, threadCount);
  }
  teamDispatch(task, split, context, contextSize, threadCount, nullptr);
  return true;
}

void kqParallelForThreads(KQTaskFn* task, KQSplitFn* split, void* context, uint32_t contextSize,
                          int32_t threadCount) {
  teamDispatch(task, split, context, contextSize, threadCount, nullptr);
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

void kqPoolStart(int32_t threadCount, int32_t spinningCount, const char* name) {
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
  // The record is requested n times over (room for 32 slots is already in
  // it).
  void* memory = kqMalloc(uint32_t(n) * uint32_t(sizeof(WorkerPool)));
  if (memory == nullptr) {
    pthread_mutex_unlock(&gPoolLock);
    return;
  }
  WorkerPool* pool = new (memory) WorkerPool;
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
    if (i > 0) {
      if (pthread_create(&pool->threads[i], nullptr, workerMain, slot) != 0) {
        // Without its thread the slot would never report done; shrink the
        // pool to the slots that run.
        pthread_cond_destroy(&slot->cond);
        pthread_mutex_destroy(&slot->mutex);
        pool->count = i;
        break;
      }
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
  kqFree(pool);
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
