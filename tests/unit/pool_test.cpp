// pool_test.cpp - worker pool lifecycle, slice hand-out, context copies,
// thread-count rules and concurrent dispatch.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#if defined(__linux__)
#include <sys/prctl.h>
#endif

#include "runtime/pool.h"
#include "support/log_capture.h"

namespace {

// Context record as the stages use it: a slice range rewritten per slice.
struct Ctx {
  int32_t slice, count, poolFlag, job;
  struct Job* owner;
};

struct TaskRun {  // one task run
  int32_t slice;
  pthread_t thread;
  const void* context;
  std::string name;
  int64_t start, end;  // sequence marks
};

// A recorder of split calls and task runs, with the caller's context record.
struct Job {
  std::mutex mutex;
  std::vector<std::array<int32_t, 3>> splits;  // (slice, count, flag) in call order
  std::vector<TaskRun> runs;
  std::atomic<int64_t>* seq = nullptr;
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
  const int64_t start = j->seq ? j->seq->fetch_add(1) : 0;
  char name[16] = {0};
#if defined(__linux__)
  prctl(PR_GET_NAME, reinterpret_cast<unsigned long>(name), 0, 0, 0);
#endif
  std::this_thread::yield();
  const int64_t end = j->seq ? j->seq->fetch_add(1) : 0;
  std::lock_guard<std::mutex> lock(j->mutex);
  j->runs.push_back(TaskRun{c->slice, pthread_self(), p, name, start, end});
}

bool parallelFor(Job& j, int32_t n) { return kqParallelFor(task, split, &j.ctx, sizeof j.ctx, n); }

std::vector<int32_t> iota(int32_t n) {
  std::vector<int32_t> v(n);
  for (int32_t i = 0; i < n; ++i) v[i] = i;
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

// Count 1 runs one slice on the caller's own record (no copy) and thread.
// Counts below 1 never create a pool, quietly (they are a mode of the
// public call, not an error), and run the same way; count 0 with a pool
// runs nothing (its slice table of 0 bytes is refused).
TEST_F(PoolTest, CountsUpToOneRunOnTheCallersOwnContext) {
  KqLogCapture log;
  for (int32_t n : {1, 0, -3}) {
    if (n < 1) kqPoolStart(n, 0, "KQUpScale");
    EXPECT_EQ(kqPoolSlotCount(), 0) << n;
    Job j;
    EXPECT_TRUE(parallelFor(j, n));
    EXPECT_EQ(j.splits, (std::vector<std::array<int32_t, 3>>{{0, 1, 0}})) << n;
    ASSERT_EQ(j.runs.size(), 1u) << n;
    EXPECT_EQ(j.runs[0].context, &j.ctx) << n;  // no copy
    EXPECT_TRUE(pthread_equal(j.runs[0].thread, pthread_self())) << n;
    if (n < 1) kqPoolStop();
  }
  kqPoolStart(3, 0, "KQUpScale");
  Job j;
  EXPECT_FALSE(parallelFor(j, 0));
  EXPECT_TRUE(j.runs.empty() && j.splits.empty());
  kqPoolStop();
  const auto msgs = log.messages();
  EXPECT_EQ(std::count(msgs.begin(), msgs.end(), "malloc(0) called with zero size"), 1);
}

TEST_F(PoolTest, SlicesAreSharedByThePoolsThreadsAndRunExactlyOnce) {
  kqPoolStart(5, 0, "KQUpScale");
  ASSERT_EQ(kqPoolSlotCount(), 5);
  for (int32_t n : {2, 3, 4, 7}) {
    Job j;
    j.ctx.job = 77;
    EXPECT_TRUE(parallelFor(j, n));
    EXPECT_EQ(j.column(0), iota(4 * n)) << "splits run in slice order first";
    EXPECT_EQ(j.column(1), std::vector<int32_t>(size_t(4 * n), 4 * n));
    EXPECT_EQ(j.column(2), std::vector<int32_t>(size_t(4 * n), 1));
    EXPECT_EQ(j.ranSorted(), iota(4 * n));
    EXPECT_LE(j.threads().size(), 5u);
    // Every slice saw a private copy, and the caller's record is untouched.
    std::set<const void*> distinct;
    for (const TaskRun& r : j.runs) distinct.insert(r.context);
    EXPECT_EQ(distinct.size(), size_t(4 * n));
    EXPECT_EQ(distinct.count(&j.ctx), 0u);
    EXPECT_EQ(j.ctx.slice, -1);
    EXPECT_EQ(j.ctx.job, 77);
  }
  kqPoolStop();
}

TEST_F(PoolTest, WorkersCarryThePoolName) {
  kqPoolStart(3, 0, "KQUpScale-with-a-long-name");
  Job j;
  // Many slices, each yielding, so that the workers take some of them. A
  // worker that wakes after the caller has taken every slice loses its
  // claim to that job, so on a busy machine this can take many rounds.
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (j.threads().size() < 2 && std::chrono::steady_clock::now() < until) parallelFor(j, 16);
  kqPoolStop();
  size_t byWorkers = 0;
  for (const TaskRun& r : j.runs) {
    if (pthread_equal(r.thread, pthread_self())) continue;
    ++byWorkers;
#if defined(__linux__)
    EXPECT_EQ(r.name, "KQUpScale-with-");  // cut to 15 characters
#endif
  }
  EXPECT_GT(byWorkers, 0u) << "no worker ever took a slice";
}

// Later starts share the first pool until the last stop; counts above 32
// are capped; negative spinning counts make the first four slots spin.
TEST_F(PoolTest, UseCountCapAndSpinningWorkers) {
  kqPoolStart(4, 0, "KQUpScale");
  kqPoolStart(2, 0, "KQUpScale");  // another user: same pool, same size
  kqPoolStart(0, 0, "KQUpScale");  // a user that could not have built one
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

// An ad hoc team runs one slice per fresh thread, at most 32; without a
// pool kqParallelFor forms one too.
TEST_F(PoolTest, AdHocTeamRunsOneSlicePerThreadCappedAt32) {
  for (int32_t n : {2, 5, 40}) {
    Job j;
    kqParallelForThreads(task, split, &j.ctx, sizeof j.ctx, n);
    const int32_t expected = std::min(n, 32);
    EXPECT_EQ(j.column(0), iota(expected));
    EXPECT_EQ(j.ranSorted(), iota(expected));
    EXPECT_EQ(j.column(2), std::vector<int32_t>(size_t(expected), 0));
    EXPECT_EQ(j.threads().size(), size_t(expected));  // one fresh thread each
    EXPECT_EQ(j.threads().count(pthread_self()), 0u);
  }
  Job j;
  parallelFor(j, 40);
  EXPECT_EQ(j.ranSorted(), iota(32));
}

// kqParallelRun sends negative counts to a team even with a pool (INT32_MIN:
// a team of 32, not an overflow), positive ones to the pool, 0 to the caller.
// Counts above 2048 slices are capped.
TEST_F(PoolTest, RunRuleAndSliceCap) {
  kqPoolStart(4, 0, "KQUpScale");
  Job team, pool, single, extreme, large;
  kqParallelRun(task, split, &team.ctx, sizeof team.ctx, -2);
  kqParallelRun(task, split, &pool.ctx, sizeof pool.ctx, 3);
  kqParallelRun(task, split, &single.ctx, sizeof single.ctx, 0);
  kqParallelRun(task, split, &extreme.ctx, sizeof extreme.ctx, INT32_MIN);
  EXPECT_TRUE(parallelFor(large, 100000));
  kqPoolStop();
  EXPECT_EQ(extreme.ranSorted(), iota(32));
  EXPECT_EQ(team.ranSorted(), iota(2));
  EXPECT_EQ(team.column(2), (std::vector<int32_t>{0, 0}));
  EXPECT_EQ(pool.ranSorted(), iota(12));
  ASSERT_EQ(single.runs.size(), 1u);
  EXPECT_EQ(single.runs[0].context, &single.ctx);
  EXPECT_EQ(large.ranSorted(), iota(2048));
}

TEST_F(PoolTest, ConcurrentParallelForsRunOneAfterAnother) {
  kqPoolStart(3, 0, "KQUpScale");
  std::atomic<int64_t> seq{0};
  constexpr int kCallers = 4, kRounds = 12;
  std::vector<Job> jobs(kCallers * kRounds);
  std::vector<std::thread> callers;
  for (int t = 0; t < kCallers; ++t)
    callers.emplace_back([&, t] {
      for (int r = 0; r < kRounds; ++r) {
        Job& j = jobs[t * kRounds + r];
        j.seq = &seq;
        j.ctx.job = t;
        parallelFor(j, 2 + (r % 3));
      }
    });
  for (auto& c : callers) c.join();
  kqPoolStop();
  // Each job ran all its slices once, and no two jobs' slices interleaved.
  std::vector<std::pair<int64_t, int64_t>> marks;
  for (int i = 0; i < kCallers * kRounds; ++i) {
    ASSERT_EQ(jobs[i].ranSorted(), iota(4 * (2 + (i % kRounds) % 3)));
    int64_t lo = INT64_MAX, hi = INT64_MIN;
    for (const TaskRun& run : jobs[i].runs) {
      lo = std::min(lo, run.start);
      hi = std::max(hi, run.end);
    }
    marks.emplace_back(lo, hi);
  }
  std::sort(marks.begin(), marks.end());
  for (size_t i = 1; i < marks.size(); ++i) EXPECT_LT(marks[i - 1].second, marks[i].first);
}

// Stopping the pool wakes its workers to leave, never to take a job: a
// worker that wakes late for a job the caller has already finished alone
// (and withdrawn from it) must not run that job while the pool stops. Many
// short start-run-stop cycles on sleeping workers make such late wake-ups
// common.
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
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].message, "Error in the syscall setaffinity: mask=0=0x0 err=22=0x16");
  }).join();
}
#endif

}  // namespace
