// pool_test.cpp - worker pool lifecycle, slice hand-out, context copies,
// thread-count rules and concurrent dispatch.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstring>
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
  int32_t slice;
  int32_t count;
  int32_t poolFlag;
  int32_t job;
  struct Recorder* rec;
};

struct Recorder {
  std::mutex mutex;
  std::vector<int32_t> splitSlices;  // slice index per split call, in order
  std::vector<int32_t> splitCounts;
  std::vector<int32_t> splitFlags;
  std::vector<int32_t> ran;          // slice index per task run
  std::set<pthread_t> threads;
  std::vector<pthread_t> runners;  // thread per task run
  std::vector<const void*> contexts;
  std::vector<std::string> names;
  std::atomic<int64_t>* seq = nullptr;
  std::vector<std::pair<int64_t, int64_t>> spans;  // (start, end) sequence marks
};

void split(int32_t slice, int32_t count, int32_t flag, void* p) {
  Ctx* c = static_cast<Ctx*>(p);
  c->slice = slice;
  c->count = count;
  c->poolFlag = flag;
  std::lock_guard<std::mutex> lock(c->rec->mutex);
  c->rec->splitSlices.push_back(slice);
  c->rec->splitCounts.push_back(count);
  c->rec->splitFlags.push_back(flag);
}

void task(void* p) {
  Ctx* c = static_cast<Ctx*>(p);
  const int64_t start = c->rec->seq ? c->rec->seq->fetch_add(1) : 0;
  std::string name;
#if defined(__linux__)
  char buffer[16] = {0};
  prctl(PR_GET_NAME, reinterpret_cast<unsigned long>(buffer), 0, 0, 0);
  name = buffer;
#endif
  std::this_thread::yield();
  const int64_t end = c->rec->seq ? c->rec->seq->fetch_add(1) : 0;
  std::lock_guard<std::mutex> lock(c->rec->mutex);
  c->rec->ran.push_back(c->slice);
  c->rec->threads.insert(pthread_self());
  c->rec->runners.push_back(pthread_self());
  c->rec->contexts.push_back(p);
  c->rec->names.push_back(name);
  c->rec->spans.emplace_back(start, end);
}

std::vector<int32_t> sorted(std::vector<int32_t> v) {
  std::sort(v.begin(), v.end());
  return v;
}

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

TEST_F(PoolTest, CountOneRunsOnTheCallersOwnContext) {
  Recorder rec;
  Ctx ctx{-1, -1, -1, 0, &rec};
  EXPECT_TRUE(kqParallelFor(task, split, &ctx, sizeof ctx, 1));
  EXPECT_EQ(rec.splitSlices, std::vector<int32_t>{0});
  EXPECT_EQ(rec.splitCounts, std::vector<int32_t>{1});
  EXPECT_EQ(rec.splitFlags, std::vector<int32_t>{0});
  ASSERT_EQ(rec.contexts.size(), 1u);
  EXPECT_EQ(rec.contexts[0], &ctx);  // no copy
  EXPECT_EQ(*rec.threads.begin(), pthread_self());
}

TEST_F(PoolTest, CountsBelowOneNeverCreateAPoolAndRunOnTheCaller) {
  KqLogCapture log;
  for (int32_t n : {0, -3}) {
    kqPoolStart(n, 0, "KQUpScale");
    EXPECT_EQ(kqPoolSlotCount(), 0) << n;
    Recorder rec;
    Ctx ctx{-1, -1, -1, 0, &rec};
    EXPECT_TRUE(kqParallelFor(task, split, &ctx, sizeof ctx, n));
    EXPECT_EQ(rec.ran, std::vector<int32_t>{0});
    EXPECT_EQ(rec.contexts[0], &ctx);
    kqPoolStop();
  }
  // Both pool requests were refused by the allocator.
  const auto msgs = log.messages();
  EXPECT_EQ(std::count(msgs.begin(), msgs.end(), "malloc(0) called with zero size"), 2);
}

TEST_F(PoolTest, SlicesAreSharedByThePoolsThreadsAndRunExactlyOnce) {
  kqPoolStart(5, 0, "KQUpScale");
  ASSERT_EQ(kqPoolSlotCount(), 5);
  for (int32_t n : {2, 3, 4, 7}) {
    Recorder rec;
    Ctx ctx{-1, -1, -1, 77, &rec};
    EXPECT_TRUE(kqParallelFor(task, split, &ctx, sizeof ctx, n));
    EXPECT_EQ(rec.splitSlices, iota(4 * n)) << "splits run in slice order first";
    EXPECT_TRUE(std::all_of(rec.splitCounts.begin(), rec.splitCounts.end(),
                            [&](int32_t c) { return c == 4 * n; }));
    EXPECT_TRUE(std::all_of(rec.splitFlags.begin(), rec.splitFlags.end(),
                            [](int32_t f) { return f == 1; }));
    EXPECT_EQ(sorted(rec.ran), iota(4 * n));
    EXPECT_LE(rec.threads.size(), 5u);
    // Every slice saw a private copy, and the caller's record is untouched.
    std::set<const void*> distinct(rec.contexts.begin(), rec.contexts.end());
    EXPECT_EQ(distinct.size(), size_t(4 * n));
    EXPECT_EQ(distinct.count(&ctx), 0u);
    EXPECT_EQ(ctx.slice, -1);
    EXPECT_EQ(ctx.job, 77);
  }
  kqPoolStop();
}

TEST_F(PoolTest, WorkersCarryThePoolName) {
  kqPoolStart(3, 0, "KQUpScale-with-a-long-name");
  Recorder rec;
  Ctx ctx{-1, -1, -1, 0, &rec};
  // Many slices, each yielding, so that the workers take some of them.
  for (int round = 0; round < 50 && rec.threads.size() < 2; ++round) {
    kqParallelFor(task, split, &ctx, sizeof ctx, 16);
  }
  kqPoolStop();
  size_t byWorkers = 0;
  for (size_t i = 0; i < rec.runners.size(); ++i) {
    if (pthread_equal(rec.runners[i], pthread_self())) continue;
    ++byWorkers;
#if defined(__linux__)
    EXPECT_EQ(rec.names[i], "KQUpScale-with-");  // cut to 15 characters
#endif
  }
  EXPECT_GT(byWorkers, 0u) << "no worker ever took a slice";
}

TEST_F(PoolTest, ZeroCountWithAPoolRunsNothing) {
  KqLogCapture log;
  kqPoolStart(3, 0, "KQUpScale");
  Recorder rec;
  Ctx ctx{-1, -1, -1, 0, &rec};
  EXPECT_FALSE(kqParallelFor(task, split, &ctx, sizeof ctx, 0));
  EXPECT_TRUE(rec.ran.empty());
  EXPECT_TRUE(rec.splitSlices.empty());
  kqPoolStop();
  const auto msgs = log.messages();
  EXPECT_NE(std::find(msgs.begin(), msgs.end(), "malloc(0) called with zero size"), msgs.end());
}

TEST_F(PoolTest, UseCountKeepsTheFirstPoolUntilTheLastStop) {
  kqPoolStart(4, 0, "KQUpScale");
  kqPoolStart(2, 0, "KQUpScale");   // another user: same pool, same size
  kqPoolStart(0, 0, "KQUpScale");   // a user that could not have built one
  EXPECT_EQ(kqPoolSlotCount(), 4);
  EXPECT_EQ(kqPoolUserCount(), users_ + 3);
  kqPoolStop();
  kqPoolStop();
  EXPECT_EQ(kqPoolSlotCount(), 4);
  kqPoolStop();
  EXPECT_EQ(kqPoolSlotCount(), 0);
  // Counts above 32 are capped.
  kqPoolStart(100, 0, "KQUpScale");
  EXPECT_EQ(kqPoolSlotCount(), 32);
  kqPoolStop();
}

TEST_F(PoolTest, SpinningWorkersRunJobsAndShutDown) {
  kqPoolStart(3, -1, "KQUpScale");  // negative: the first four slots spin
  Recorder rec;
  Ctx ctx{-1, -1, -1, 0, &rec};
  for (int i = 0; i < 20; ++i) kqParallelFor(task, split, &ctx, sizeof ctx, 3);
  kqPoolStop();
  EXPECT_EQ(rec.ran.size(), 20u * 12u);
}

TEST_F(PoolTest, AdHocTeamRunsOneSlicePerThreadCappedAt32) {
  for (int32_t n : {2, 5, 40}) {
    Recorder rec;
    Ctx ctx{-1, -1, -1, 0, &rec};
    kqParallelForThreads(task, split, &ctx, sizeof ctx, n);
    const int32_t expected = std::min(n, 32);
    EXPECT_EQ(rec.splitSlices, iota(expected));
    EXPECT_EQ(sorted(rec.ran), iota(expected));
    EXPECT_TRUE(std::all_of(rec.splitFlags.begin(), rec.splitFlags.end(),
                            [](int32_t f) { return f == 0; }));
    EXPECT_EQ(rec.threads.size(), size_t(expected));  // one fresh thread each
    EXPECT_EQ(rec.threads.count(pthread_self()), 0u);
  }
  // Without a pool, kqParallelFor also forms a team.
  Recorder rec;
  Ctx ctx{-1, -1, -1, 0, &rec};
  kqParallelFor(task, split, &ctx, sizeof ctx, 40);
  EXPECT_EQ(sorted(rec.ran), iota(32));
}

TEST_F(PoolTest, RunRuleSendsNegativeCountsToATeamEvenWithAPool) {
  kqPoolStart(4, 0, "KQUpScale");
  Recorder team, pool, single;
  Ctx a{-1, -1, -1, 0, &team}, b{-1, -1, -1, 0, &pool}, c{-1, -1, -1, 0, &single};
  kqParallelRun(task, split, &a, sizeof a, -2);
  kqParallelRun(task, split, &b, sizeof b, 3);
  kqParallelRun(task, split, &c, sizeof c, 0);
  Recorder extreme;
  Ctx d{-1, -1, -1, 0, &extreme};
  kqParallelRun(task, split, &d, sizeof d, INT32_MIN);  // a team of 32, not an overflow
  kqPoolStop();
  EXPECT_EQ(sorted(extreme.ran), iota(32));
  EXPECT_EQ(sorted(team.ran), iota(2));
  EXPECT_EQ(team.splitFlags, (std::vector<int32_t>{0, 0}));
  EXPECT_EQ(sorted(pool.ran), iota(12));
  EXPECT_EQ(single.ran, std::vector<int32_t>{0});
  EXPECT_EQ(single.contexts[0], &c);
}

TEST_F(PoolTest, VeryLargeCountsAreCappedAt2048Slices) {
  kqPoolStart(2, 0, "KQUpScale");
  Recorder rec;
  Ctx ctx{-1, -1, -1, 0, &rec};
  EXPECT_TRUE(kqParallelFor(task, split, &ctx, sizeof ctx, 100000));
  kqPoolStop();
  EXPECT_EQ(sorted(rec.ran), iota(2048));
}

TEST_F(PoolTest, ConcurrentParallelForsRunOneAfterAnother) {
  kqPoolStart(3, 0, "KQUpScale");
  std::atomic<int64_t> seq{0};
  constexpr int kCallers = 4, kRounds = 12;
  std::vector<Recorder> recs(kCallers * kRounds);
  std::vector<std::thread> callers;
  for (int t = 0; t < kCallers; ++t) {
    callers.emplace_back([&, t] {
      for (int r = 0; r < kRounds; ++r) {
        Recorder& rec = recs[t * kRounds + r];
        rec.seq = &seq;
        Ctx ctx{-1, -1, -1, t, &rec};
        kqParallelFor(task, split, &ctx, sizeof ctx, 2 + (r % 3));
      }
    });
  }
  for (auto& c : callers) c.join();
  kqPoolStop();
  // Each job ran all its slices once, and no two jobs' slices interleaved.
  std::vector<std::pair<int64_t, int64_t>> jobs;
  for (int i = 0; i < kCallers * kRounds; ++i) {
    const int32_t slices = 4 * (2 + (i % kRounds) % 3);
    ASSERT_EQ(sorted(recs[i].ran), iota(slices));
    int64_t lo = INT64_MAX, hi = INT64_MIN;
    for (auto& s : recs[i].spans) {
      lo = std::min(lo, s.first);
      hi = std::max(hi, s.second);
    }
    jobs.emplace_back(lo, hi);
  }
  std::sort(jobs.begin(), jobs.end());
  for (size_t i = 1; i < jobs.size(); ++i) EXPECT_LT(jobs[i - 1].second, jobs[i].first);
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
