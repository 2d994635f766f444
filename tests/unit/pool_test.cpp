// pool_test.cpp - worker pool: slice hand-out and context copies, the
// thread-count rules and caps, the use count, stopping while workers wake,
// and thread affinity (concurrent callers: stress_test.cpp).
#include "runtime/parallel_for.h"
#include "runtime/pool.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "runtime/alloc.h"
#include "support/log_capture.h"

namespace {

// Context record as the stages use it: a slice range rewritten per slice.
struct Ctx {
  int32_t slice, count, poolFlag, job;
  struct Job* owner;
};

struct TaskRun {
  int32_t slice;
  pthread_t thread;
  const void* context;
};

// A recorder of split calls and task runs, with the caller's context record.
struct Job {
  std::mutex mutex;
  std::vector<std::array<int32_t, 3>> splits;  // (slice, count, flag) in call order
  std::vector<TaskRun> runs;
  Ctx ctx{-1, -1, -1, 0, this};
  std::vector<int32_t> column(int i) const {
    std::vector<int32_t> v;
    for (const auto& s : splits) v.push_back(s[size_t(i)]);
    return v;
  }
  std::vector<int32_t> ranSorted() const {
    std::vector<int32_t> v;
    for (const TaskRun& r : runs) v.push_back(r.slice);
    std::sort(v.begin(), v.end());
    return v;
  }
  std::set<pthread_t> threads() const {
    std::set<pthread_t> t;
    for (const TaskRun& r : runs) t.insert(r.thread);
    return t;
  }
};

void split(int32_t slice, int32_t count, int32_t flag, void* p) {
  Ctx* c = static_cast<Ctx*>(p);
  c->slice = slice;
  c->count = count;
  c->poolFlag = flag;
  std::lock_guard<std::mutex> lock(c->owner->mutex);
  c->owner->splits.push_back({slice, count, flag});
}

void task(void* p) {
  Ctx* c = static_cast<Ctx*>(p);
  Job* j = c->owner;
  std::lock_guard<std::mutex> lock(j->mutex);
  j->runs.push_back(TaskRun{c->slice, pthread_self(), p});
}

bool parallelFor(Job& j, int32_t n) { return kqParallelFor(task, split, &j.ctx, sizeof j.ctx, n); }

std::vector<int32_t> iota(int32_t n) {
  std::vector<int32_t> v(size_t(n < 0 ? 0 : n));
  for (int32_t i = 0; i < n; ++i) v[size_t(i)] = i;
  return v;
}

class PoolTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(kqPoolSlotCount(), 0) << "a previous test left a pool behind";
    users_ = kqPoolUserCount();
  }
  void TearDown() override {
    EXPECT_EQ(kqPoolSlotCount(), 0);
    EXPECT_EQ(kqPoolUserCount(), users_);
  }
  int32_t users_ = 0;
};

// With a pool, 4 * n slices: split in slice order first, each run exactly
// once on a private copy (the caller's record untouched), by at most the
// pool's threads; at most 2048 slices. Count 0 with a pool runs nothing.
TEST_F(PoolTest, PoolRunsEverySliceOnceOnItsOwnCopy) {
  kqPoolStart(5, 0, "KQUpScale");
  ASSERT_EQ(kqPoolSlotCount(), 5);
  for (int32_t n : {2, 3, 4, 7, 100000}) {
    const int32_t slices = std::min(4 * n, 2048);
    Job j;
    j.ctx.job = 77;
    EXPECT_TRUE(parallelFor(j, n));
    EXPECT_EQ(j.column(0), iota(slices)) << "splits run in slice order first";
    EXPECT_EQ(j.column(1), std::vector<int32_t>(size_t(slices), slices));
    EXPECT_EQ(j.column(2), std::vector<int32_t>(size_t(slices), 1));
    EXPECT_EQ(j.ranSorted(), iota(slices));
    EXPECT_LE(j.threads().size(), 5u);
    std::set<const void*> distinct;
    for (const TaskRun& r : j.runs) distinct.insert(r.context);
    EXPECT_EQ(distinct.size(), size_t(slices));
    EXPECT_EQ(distinct.count(&j.ctx), 0u);
    EXPECT_EQ(j.ctx.slice, -1);
    EXPECT_EQ(j.ctx.job, 77);
  }
  KqLogCapture log;
  Job none;
  EXPECT_FALSE(parallelFor(none, 0));
  EXPECT_TRUE(none.runs.empty() && none.splits.empty());
  kqPoolStop();
}

// kqParallelRun: 0 and 1 run one slice on the caller's own record and
// thread (also with a pool); negative counts and counts without a pool
// start one fresh thread per slice, at most 32 (INT32_MIN included).
TEST_F(PoolTest, ThreadCountRuleAndCaps) {
  for (bool pool : {false, true}) {
    if (pool) kqPoolStart(4, 0, "KQUpScale");
    for (int32_t n : {1, 0}) {
      Job j;
      kqParallelRun(task, split, &j.ctx, sizeof j.ctx, n);
      EXPECT_EQ(j.splits, (std::vector<std::array<int32_t, 3>>{{0, 1, 0}})) << n;
      ASSERT_EQ(j.runs.size(), 1u) << n;
      EXPECT_EQ(j.runs[0].context, &j.ctx) << n;
      EXPECT_TRUE(pthread_equal(j.runs[0].thread, pthread_self())) << n;
    }
    for (int32_t n : {-2, -40, INT32_MIN}) {
      Job j;
      kqParallelRun(task, split, &j.ctx, sizeof j.ctx, n);
      const int32_t expected = std::min(n == INT32_MIN ? 32 : -n, 32);
      EXPECT_EQ(j.column(0), iota(expected)) << n;
      EXPECT_EQ(j.ranSorted(), iota(expected)) << n;
      EXPECT_EQ(j.column(2), std::vector<int32_t>(size_t(expected), 0)) << n;
      EXPECT_EQ(j.threads().size(), size_t(expected)) << "one fresh thread each, " << n;
      EXPECT_EQ(j.threads().count(pthread_self()), 0u) << n;
    }
    Job j;
    parallelFor(j, 40);
    EXPECT_EQ(j.ranSorted(), iota(pool ? 160 : 32));
    if (pool) kqPoolStop();
  }
}

// Later starts share the first pool until the last stop; a start with a
// count below 1 counts as a use but builds nothing; counts above 32 are
// capped; spinning workers run jobs like sleeping ones.
TEST_F(PoolTest, UseCountCapAndSpinningWorkers) {
  kqPoolStart(0, 0, "KQUpScale");
  EXPECT_EQ(kqPoolSlotCount(), 0);
  kqPoolStart(4, 0, "KQUpScale");
  kqPoolStart(2, 0, "KQUpScale");
  EXPECT_EQ(kqPoolSlotCount(), 4);
  EXPECT_EQ(kqPoolUserCount(), users_ + 3);
  kqPoolStop();
  kqPoolStop();
  EXPECT_EQ(kqPoolSlotCount(), 4);
  kqPoolStop();
  EXPECT_EQ(kqPoolSlotCount(), 0);
  kqPoolStart(100, 0, "KQUpScale");
  EXPECT_EQ(kqPoolSlotCount(), 32);
  kqPoolStop();
  kqPoolStart(3, -1, "KQUpScale");
  Job j;
  for (int i = 0; i < 20; ++i) parallelFor(j, 3);
  kqPoolStop();
  EXPECT_EQ(j.runs.size(), 20u * 12u);
}

// Stopping the pool wakes its workers to leave, never to take a job: a
// worker that wakes late for a job the caller has already finished alone
// must not run that job while the pool stops. Many short start-run-stop
// cycles make such late wake-ups common.
std::atomic<int32_t> gSliceRuns{0};
void countSlice(void*) { gSliceRuns.fetch_add(1); }
void noSplit(int32_t, int32_t, int32_t, void*) {}

TEST_F(PoolTest, StopNeverHandsAWithdrawnJobToALateWorker) {
  // qemu-user keeps memory for every thread it has started (the emulated
  // runs set KQ_STRESS_RSS=0 for that reason): far fewer cycles there.
  const char* rss = std::getenv("KQ_STRESS_RSS");
  const int cycles = rss != nullptr && std::atoi(rss) == 0 ? 150 : 2000;
  for (int cycle = 0; cycle < cycles; ++cycle) {
    kqPoolStart(8, cycle % 2 == 0 ? 0 : 8, "KQUpScale");
    gSliceRuns = 0;
    int32_t context = 0;
    ASSERT_TRUE(kqParallelFor(countSlice, noSplit, &context, sizeof context, 2));
    kqPoolStop();
    ASSERT_EQ(gSliceRuns.load(), 8) << "cycle " << cycle;
  }
}

// The row splitter: consecutive ranges that cover [begin, end) once, inner
// boundaries a multiple of the grain after begin, one range for a single
// worker and at most four per worker otherwise.
TEST(ParallelRows, RangesCoverTheRowsOnceOnGrainBoundaries) {
  for (int32_t begin : {0, 3, -5})
    for (int32_t span : {0, 1, 7, 8, 9, 100, 1081})
      for (int32_t grain : {1, 2, 4})
        for (int32_t threads : {-40, -3, 0, 1, 2, 3, 8, 100}) {
          const KQRowPieces rows = kqRowPieces(begin, begin + span, grain, threads);
          SCOPED_TRACE(::testing::Message() << begin << "+" << span << " grain " << grain
                                            << " threads " << threads);
          const int32_t workers = kqStepWorkers(threads);
          EXPECT_LE(rows.count, workers == 1 ? 1 : 4 * workers);
          EXPECT_EQ(rows.count == 0, span == 0);
          ASSERT_EQ(rows.first(0), begin);
          ASSERT_EQ(rows.first(rows.count), begin + span);
          for (int32_t p = 1; p < rows.count; ++p) {
            EXPECT_LE(rows.first(p - 1), rows.first(p));
            EXPECT_EQ((rows.first(p) - begin) % grain, 0);
          }
        }
}

// Every piece runs once, on a worker whose index is below the step's
// workers and below the pool's size; the calling thread is worker 0 and
// takes part; a step with one worker stays on the calling thread.
TEST_F(PoolTest, StepsRunEveryPieceOnceOnTheirWorkers) {
  struct Seen {
    std::mutex mutex;
    std::vector<int32_t> pieces, workers;
    std::set<pthread_t> threads;
    bool callerWorker0 = true;
    pthread_t caller = pthread_self();
  };
  auto run = [](int32_t count, int32_t threads) {
    Seen seen;
    kqRunPieces(count, threads,
                [](void* user, int32_t piece, int32_t worker) {
                  Seen* s = static_cast<Seen*>(user);
                  std::lock_guard<std::mutex> lock(s->mutex);
                  s->pieces.push_back(piece);
                  s->workers.push_back(worker);
                  s->threads.insert(pthread_self());
                  if (pthread_equal(pthread_self(), s->caller) && worker != 0)
                    s->callerWorker0 = false;
                },
                &seen);
    std::sort(seen.pieces.begin(), seen.pieces.end());
    EXPECT_EQ(seen.pieces, iota(count)) << threads;
    EXPECT_TRUE(seen.callerWorker0) << threads;
    return std::make_pair(*std::max_element(seen.workers.begin(), seen.workers.end()),
                          seen.threads.size());
  };
  for (int32_t threads : {0, 1}) {
    const auto r = run(50, threads);
    EXPECT_EQ(r.first, 0);
    EXPECT_EQ(r.second, 1u);
  }
  // Fresh threads: |n| workers at most, the calling thread among them.
  const auto team = run(400, -3);
  EXPECT_LT(team.first, 3);
  EXPECT_LE(team.second, 3u);
  kqPoolStart(4, 0, "KQUpScale");
  for (int32_t threads : {2, 3, 8}) {
    const auto r = run(400, threads);
    EXPECT_LT(r.first, std::min(threads, 4)) << threads;
    EXPECT_LE(r.second, size_t(std::min(threads, 4))) << threads;
  }
  kqPoolStop();
}

namespace counting {
std::atomic<int32_t> heap{0}, maps{0}, starts{0};
bool failStarts = false;
void* heapAlloc(size_t n) {
  heap.fetch_add(1);
  return std::malloc(n);
}
void* mapAnon(size_t n) {
  maps.fetch_add(1);
  return std::malloc(n);
}
int unmap(void* p, size_t) {
  std::free(p);
  return 0;
}
int createThread(pthread_t* t, void* (*main)(void*), void* arg) {
  starts.fetch_add(1);
  return failStarts ? EAGAIN : pthread_create(t, nullptr, main, arg);
}
}  // namespace counting

// A step allocates nothing, on the pool or on threads of its own; threads
// that cannot be started leave all the pieces to the calling thread.
TEST_F(PoolTest, StepsAllocateNothingAndSurviveThreadsThatCannotStart) {
  const KQAllocSystem system{counting::heapAlloc, nullptr, counting::mapAnon, counting::unmap,
                             counting::createThread};
  kqAllocSetSystem(&system);
  kqPoolStart(3, 0, "KQUpScale");
  counting::heap = counting::maps = counting::starts = 0;
  std::atomic<int32_t> rows{0};
  for (int32_t threads : {3, -4})
    kqParallelRows(0, 1000, 2, threads, [&rows](int32_t first, int32_t end, int32_t) {
      rows.fetch_add(end - first);
    });
  EXPECT_EQ(rows.load(), 2000);
  EXPECT_EQ(counting::heap.load(), 0);
  EXPECT_EQ(counting::maps.load(), 0);
  EXPECT_EQ(counting::starts.load(), 3);  // the team's three; the pool's were made before
  kqPoolStop();

  KqLogCapture log;
  counting::failStarts = true;
  kqPoolStart(4, 0, "KQUpScale");
  EXPECT_EQ(kqPoolSlotCount(), 1);  // the calling thread's slot alone
  rows = 0;
  for (int32_t threads : {4, -4})
    kqParallelRows(0, 1000, 1, threads, [&rows](int32_t first, int32_t end, int32_t worker) {
      EXPECT_EQ(worker, 0);
      rows.fetch_add(end - first);
    });
  kqPoolStop();
  counting::failStarts = false;
  kqAllocSetSystem(nullptr);
  EXPECT_EQ(rows.load(), 2000);
  // Reported at most once in the process (an earlier test may have said it).
  size_t lines = 0;
  for (const KqLogLine& line : log.lines())
    lines += line.message.find("could not be started") != std::string::npos;
  EXPECT_LE(lines, 1u);
}

#if defined(__linux__)
TEST(Affinity, BindsTheCallingThreadAndLogsFailures) {
  cpu_set_t original;
  ASSERT_EQ(sched_getaffinity(0, sizeof original, &original), 0);
  int first = -1;
  for (int i = 0; i < 32 && first < 0; ++i)
    if (CPU_ISSET(i, &original)) first = i;
  ASSERT_GE(first, 0);
  std::thread([&] {
    KqLogCapture log;
    kqSetThreadAffinity(int32_t(1u << first));
    cpu_set_t now;
    ASSERT_EQ(sched_getaffinity(0, sizeof now, &now), 0);
    EXPECT_EQ(CPU_COUNT(&now), 1);
    EXPECT_TRUE(CPU_ISSET(first, &now));
    EXPECT_TRUE(log.lines().empty());
    kqSetThreadAffinity(0);  // an empty set is refused by the kernel
    EXPECT_EQ(log.lines().size(), 1u);
  }).join();
}
#endif

}  // namespace
