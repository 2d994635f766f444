// stress_test.cpp - the exported call under load: many calls at once from
// several threads at every thread count, each result compared with the same
// call made alone on one thread, and thousands of small calls in a row that
// must leave the heap and the process's thread count as they found them.
// KQ_STRESS_SCALE (default 1) scales the duration and the call count (the
// qemu and sanitizer builds run them shorter); KQ_STRESS_RSS=0 skips the
// resident-size check.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "KQUpScale.h"
#include "kernels/check_util.h"
#include "runtime/log.h"
#include "runtime/pool.h"
#include "support/yuv_image.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KQ_SANITIZER_HEAP 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KQ_SANITIZER_HEAP 1
#endif
#if defined(KQ_SANITIZER_HEAP)
// The sanitizer runtimes' count of bytes in live blocks (declared here:
// GCC ships the runtime without its interface headers).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

double stressScale() {
  const char* s = std::getenv("KQ_STRESS_SCALE");
  const double v = s != nullptr ? std::atof(s) : 1.0;
  return v > 0.0 ? v : 1.0;
}

// One call with everything it depends on; `src` is its input image.
struct Job {
  KqYuv src;
  int type = 8, outW = 2, outH = 2, outStride = 2;
  int left = -1, top = -1, right = -1, bottom = -1;  // left = -1: whole image
  int nr = 0, cnr = 0;
  float sharp = 0.0f;
  int threads = 1;

  std::vector<uint8_t> run() const {
    KqYuv dst(outW, outH, outStride, 0x3C);
    const KQYUVMultiPlaneImage in = src.record(type), out = dst.record(type);
    KQUpScale_ScaleImageFromROI(&in, &out, left, top, right, bottom, nr, cnr, sharp, threads, 0);
    return dst.bytes();
  }
};

// Small random calls: every stage combination, strengths from off (and
// below) to past their useful range, whole images and regions, padded
// outputs; thread counts from -3 (fresh threads per step) to 8.
const float kSharp[] = {-1.0f, 0.0f, 0.6f, 1.0f, 2.5f, 6.0f, std::nanf("")};
const int kThreads[] = {-3, -2, -1, 0, 1, 2, 3, 4, 8};
Job randomJob(KqRng& rng, int maxIn, int maxOut) {
  const int inW = rng.range(4, maxIn), inH = rng.range(4, maxIn);
  Job j{KqYuv::camera(inW, inH, rng.next())};
  j.type = rng.range(8, 9);
  j.outW = rng.range(2, maxOut);
  j.outH = rng.range(2, maxOut);
  j.outStride = j.outW + (rng.range(0, 2) == 0 ? 0 : rng.range(1, 9));
  if (rng.range(0, 2) == 0) {
    j.left = rng.range(-2, inW / 2);
    j.top = rng.range(-2, inH / 2);
    j.right = rng.range(inW / 2, inW + 2);
    j.bottom = rng.range(inH / 2, inH + 2);
  }
  j.nr = rng.range(-1, 10);
  j.cnr = rng.range(-1, 10);
  j.sharp = kSharp[rng.range(0, 6)];
  j.threads = kThreads[rng.range(0, 8)];
  return j;
}

// Drops the library's log lines (two version lines per call) for its
// lifetime: neither printed nor kept, so they cost no memory either.
class PipelineStress : public testing::Test {
 protected:
  PipelineStress() {
    kqLogSetSink([](void*, FILE*, int32_t, const char*, const char*) {}, nullptr);
  }
  ~PipelineStress() override { kqLogSetSink(nullptr, nullptr); }
};

// Four callers at once, each making every (call, thread count) pair at least
// once and then random ones until the time is up: every result must be the
// bytes of the same call made alone on one thread. The calls include every
// combination of the stages (noise reduction on or off, chroma noise
// reduction on or off, sharpening on, off or negative) besides random ones.
TEST_F(PipelineStress, ConcurrentCallsAtAnyThreadCountMatchOneThreadAlone) {
  KqRng rng(kqTestSeed() ^ 0x57E55);
  std::vector<Job> jobs;
  for (int i = 0; i < 16; ++i) jobs.push_back(randomJob(rng, 48, 100));
  for (int i = 0; i < 12; ++i) {
    jobs[size_t(i)].nr = i % 2 * 4;
    jobs[size_t(i)].cnr = i / 2 % 2 * 3;
    jobs[size_t(i)].sharp = i / 4 == 0 ? 0.0f : i / 4 == 1 ? 1.0f : -1.0f;
  }
  std::vector<std::vector<uint8_t>> alone;
  for (Job& j : jobs) {
    j.threads = 1;
    alone.push_back(j.run());
  }
  const int pairs = int(jobs.size() * (sizeof kThreads / sizeof kThreads[0]));
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(int64_t(2000 * stressScale()));
  std::atomic<int> calls{0}, mismatches{0};
  std::mutex firstMutex;
  std::string first;
  std::vector<std::thread> callers;
  for (int t = 0; t < 4; ++t) {
    callers.emplace_back([&, t] {
      KqRng pick(uint64_t(t) * 7919u + 1u);
      for (int n = 0; n < pairs || std::chrono::steady_clock::now() < deadline; ++n) {
        const int pair = n < pairs ? (n + t * pairs / 4) % pairs : pick.range(0, pairs - 1);
        Job j = jobs[size_t(pair) % jobs.size()];
        j.threads = kThreads[size_t(pair) / jobs.size()];
        ++calls;
        if (j.run() != alone[size_t(pair) % jobs.size()]) {
          ++mismatches;
          std::lock_guard<std::mutex> lock(firstMutex);
          if (first.empty())
            first = "job " + std::to_string(pair % jobs.size()) + " threads " +
                    std::to_string(j.threads);
        }
      }
    });
  }
  for (std::thread& c : callers) c.join();
  EXPECT_EQ(mismatches.load(), 0) << "of " << calls.load() << " calls; first: " << first;
  EXPECT_EQ(kqPoolUserCount(), 0);
  EXPECT_EQ(kqPoolSlotCount(), 0);
}

// Bytes the heap holds for the process: the sanitizer's allocator when one
// replaces malloc, else every glibc arena (mmapped chunks included).
size_t heapInUse() {
#if defined(KQ_SANITIZER_HEAP)
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 m = mallinfo2();
  return m.uordblks + m.hblkhd;
#endif
}

// A field of /proc/self/status ("Threads", "VmRSS" in kB), -1 if absent.
long procStatus(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.compare(0, field.size() + 1, field + ":") == 0)
      return std::atol(line.c_str() + field.size() + 1);
  return -1;
}

TEST_F(PipelineStress, ThousandsOfCallsLeaveHeapAndThreadsAsTheyFoundThem) {
  KqRng rng(kqTestSeed() ^ 0xCA11);
  std::vector<Job> jobs;
  for (int i = 0; i < 24; ++i) jobs.push_back(randomJob(rng, 24, 40));
  const int calls = int(2000 * stressScale());
  // One pass first: tables built once, the log's buffers, any working
  // memory the library keeps between calls.
  for (const Job& j : jobs) j.run();
  // The first pass's threads are joined too, but under qemu-user one may
  // still be on its way out now: the count to come back to is the one that
  // has stopped moving (for 100 ms, within 2 s).
  using Clock = std::chrono::steady_clock;
  long threads = procStatus("Threads");
  const auto giveUp = Clock::now() + std::chrono::seconds(2);
  for (auto since = Clock::now();
       Clock::now() - since < std::chrono::milliseconds(100) && Clock::now() < giveUp;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const long now = procStatus("Threads");
    if (now != threads) {
      threads = now;
      since = Clock::now();
    }
  }
  const size_t heap = heapInUse();
  const long rss = procStatus("VmRSS");
  for (int i = 0; i < calls; ++i) jobs[size_t(i) % jobs.size()].run();
  // Every thread a call starts is joined before it returns, but under
  // qemu-user a joined thread's host thread ends only just after the join
  // (the emulator wakes the joiner on its way out), so the count may take a
  // moment to come down; a thread left running keeps it up for good.
  const auto settle = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (procStatus("Threads") != threads && std::chrono::steady_clock::now() < settle)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(procStatus("Threads"), threads) << "threads left running after " << calls << " calls";
  // A few kB come and go with the threads' own allocator state; 32 KiB over
  // 2000 calls is a leak of 16 bytes per call.
  const size_t grown = heapInUse() > heap ? heapInUse() - heap : 0;
  EXPECT_LE(grown, size_t{32} << 10)
      << "heap grew by " << grown << " bytes over " << calls << " calls";
  // The resident size means nothing under a sanitizer (its quarantine keeps
  // freed blocks) or qemu-user (which counts the emulator's own memory;
  // KQ_STRESS_RSS=0 there).
#if !defined(KQ_SANITIZER_HEAP)
  const char* rssCheck = std::getenv("KQ_STRESS_RSS");
  if (rssCheck == nullptr || std::atoi(rssCheck) != 0)
    EXPECT_LE(procStatus("VmRSS") - rss, 8 * 1024)
        << "resident size grew (kB) over " << calls << " calls";
#else
  (void)rss;
#endif
  EXPECT_EQ(kqPoolUserCount(), 0);
}

}  // namespace
