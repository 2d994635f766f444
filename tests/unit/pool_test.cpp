// pool_test.cpp - worker pool: slice hand-out and context copies, the
// thread-count rules and caps, the use count, stopping while workers wake,
// and thread affinity (concurrent callers: stress_test.cpp).
#include "runtime/parallel_for.h"
#include "runtime/pool.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

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
