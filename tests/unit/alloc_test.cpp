// alloc_test.cpp - allocator paths and failure answers, and the cache that
// lends call working memory: reuse and failed mappings (concurrent holders:
// stress_test.cpp).
#include "runtime/alloc.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "runtime/workspace.h"
#include "support/log_capture.h"

namespace {

// Records which system call served each request.
struct SystemSpy {
  static std::vector<size_t> heapSizes, mapLengths, unmapLengths;
  static std::vector<void*> unmapAddresses;
  static bool failHeap, failMap;
  static void* heapAlloc(size_t n) {
    heapSizes.push_back(n);
    return failHeap ? nullptr : std::malloc(n);
  }
  static void* mapAnon(size_t n) {
    mapLengths.push_back(n);
    return failMap ? nullptr : std::malloc(n);  // stands in for a mapping; released by unmap
  }
  static int unmap(void* p, size_t n) {
    unmapAddresses.push_back(p);
    unmapLengths.push_back(n);
    std::free(p);
    return 0;
  }
};
std::vector<size_t> SystemSpy::heapSizes, SystemSpy::mapLengths, SystemSpy::unmapLengths;
std::vector<void*> SystemSpy::unmapAddresses;
bool SystemSpy::failHeap, SystemSpy::failMap;

class AllocTest : public testing::Test {
 protected:
  void SetUp() override {
    for (auto* v : {&SystemSpy::heapSizes, &SystemSpy::mapLengths, &SystemSpy::unmapLengths})
      v->clear();
    SystemSpy::unmapAddresses.clear();
    SystemSpy::failHeap = SystemSpy::failMap = false;
    KQAllocSystem spy{SystemSpy::heapAlloc, nullptr, SystemSpy::mapAnon, SystemSpy::unmap};
    kqAllocSetSystem(&spy);
  }
  void TearDown() override { kqAllocSetSystem(nullptr); }
  KqLogCapture log_;
};

// Below 1 MiB the heap serves the request plus its 16-byte header, from
// 1 MiB on a mapping, which kqFree unmaps with the length it mapped.
TEST_F(AllocTest, ThresholdSelectsHeapOrMappingAndFreeMirrorsIt) {
  void* small = kqMalloc(0xFFFFF);
  ASSERT_NE(small, nullptr);
  EXPECT_EQ(SystemSpy::heapSizes, std::vector<size_t>{0xFFFFFu + 16});
  std::memset(small, 0xAB, 0xFFFFF);  // every promised byte is writable
  kqFree(small);
  void* large = kqMalloc(0x100000);
  ASSERT_NE(large, nullptr);
  std::memset(large, 0xCD, 0x100000);
  kqFree(large);
  EXPECT_EQ(SystemSpy::mapLengths, std::vector<size_t>{0x100010u});
  EXPECT_EQ(SystemSpy::unmapLengths, std::vector<size_t>{0x100010u});
  EXPECT_EQ(SystemSpy::unmapAddresses[0], static_cast<uint8_t*>(large) - 16);
  EXPECT_TRUE(log_.lines().empty());
}

// Zero sizes and exhausted heaps or mappings are logged and answered with
// null; sizes no 32-bit target could map are refused without a system call.
TEST_F(AllocTest, ZeroSizeAndExhaustionAreLoggedAndAnsweredWithNull) {
  kqFree(nullptr);
  EXPECT_EQ(kqMalloc(0), nullptr);
  SystemSpy::failHeap = SystemSpy::failMap = true;
  EXPECT_EQ(kqMalloc(100), nullptr);
  EXPECT_EQ(kqMalloc(0x200000), nullptr);
  EXPECT_EQ(kqMalloc(0xFFFFFF00u), nullptr);
  EXPECT_EQ(SystemSpy::mapLengths.size(), 1u);
  EXPECT_EQ(log_.lines().size(), 4u);
}

}  // namespace

// The working-memory cache, on the spy system: which requests map, which
// reuse a kept block and which give one back.
class WorkspaceTest : public AllocTest {
 protected:
  void SetUp() override {
    kqWorkspaceTrim();  // blocks kept by earlier tests came from the real system
    AllocTest::SetUp();
  }
  void TearDown() override {
    kqWorkspaceTrim();
    AllocTest::TearDown();
  }
};

TEST_F(WorkspaceTest, SameSizeReusesAndOtherSizesReplace) {
  const size_t mb = size_t{1} << 20;
  KQBlock a = kqWorkspaceAcquire(8 * mb + 5);
  ASSERT_NE(a.data, nullptr);
  EXPECT_GE(a.bytes, 8 * mb + 5);
  uint8_t* first = a.data;
  kqWorkspaceRelease(&a);
  EXPECT_EQ(a.data, nullptr);
  EXPECT_TRUE(SystemSpy::unmapLengths.empty());  // kept

  // The same size, and a slightly smaller one, get the kept block back.
  for (size_t bytes : {8 * mb + 5, 8 * mb - 1000}) {
    KQBlock b = kqWorkspaceAcquire(bytes);
    EXPECT_EQ(b.data, first);
    kqWorkspaceRelease(&b);
  }
  EXPECT_EQ(SystemSpy::mapLengths.size(), 1u);

  // Much smaller or larger: the kept block goes and the new one stays.
  for (size_t bytes : {4 * mb, 12 * mb}) {
    KQBlock c = kqWorkspaceAcquire(bytes);
    ASSERT_NE(c.data, nullptr);
    kqWorkspaceRelease(&c);
    EXPECT_EQ(kqWorkspaceKeptBytes(), SystemSpy::mapLengths.back()) << bytes;
  }
  EXPECT_EQ(SystemSpy::mapLengths.size(), 3u);
  EXPECT_EQ(SystemSpy::unmapLengths.size(), 2u);

  // A small block (a bare warp's) is kept beside the large one, and serves
  // any small request it holds: alternating the two maps nothing more.
  const size_t large = kqWorkspaceKeptBytes();
  for (size_t bytes : {kKqSmallBlock / 2, 12 * mb, kKqSmallBlock / 8, kKqSmallBlock / 2, 12 * mb}) {
    KQBlock d = kqWorkspaceAcquire(bytes);
    ASSERT_NE(d.data, nullptr);
    kqWorkspaceRelease(&d);
  }
  EXPECT_EQ(SystemSpy::mapLengths.size(), 4u);
  EXPECT_EQ(SystemSpy::unmapLengths.size(), 2u);
  EXPECT_EQ(kqWorkspaceKeptBytes(), large + SystemSpy::mapLengths.back());
  // A second small size replaces the small block, not the large one.
  KQBlock e = kqWorkspaceAcquire(kKqSmallBlock);
  kqWorkspaceRelease(&e);
  EXPECT_EQ(kqWorkspaceKeptBytes(), large + kKqSmallBlock);
  EXPECT_EQ(kqWorkspaceTrim(), large + kKqSmallBlock);
  EXPECT_EQ(kqWorkspaceKeptBytes(), 0u);
}

TEST_F(WorkspaceTest, FailedMappingIsReportedAndKeepsNothing) {
  SystemSpy::failMap = true;
  KQBlock b = kqWorkspaceAcquire(size_t{1} << 20);
  EXPECT_EQ(b.data, nullptr);
  kqWorkspaceRelease(&b);  // a null block is ignored
  EXPECT_EQ(kqWorkspaceKeptBytes(), 0u);
  EXPECT_EQ(log_.messages().size(), 1u);
}

namespace {

// The THPeligible value of the mapping holding p (-1 when not listed).
int hugePageEligible(const void* p) {
  std::ifstream in("/proc/self/smaps");
  const auto at = reinterpret_cast<uintptr_t>(p);
  bool inside = false;
  for (std::string line; std::getline(in, line);) {
    unsigned long long lo = 0, hi = 0;
    if (std::sscanf(line.c_str(), "%llx-%llx ", &lo, &hi) == 2)
      inside = at >= lo && at < hi;
    else if (inside && line.rfind("THPeligible:", 0) == 0)
      return std::atoi(line.c_str() + 12);
  }
  return -1;
}

}  // namespace

// Blocks ask for huge pages unless KQ_HUGE_PAGES=0, as the kernel's account
// of the mapping shows where huge pages go only to mappings that ask (a
// mapping of our own that does not ask must not be eligible, one that asks
// must be: emulators ignore the advice).
TEST(WorkspaceHugePages, BlocksAskUnlessSwitchedOff) {
  const size_t bytes = size_t{8} << 20;
  void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(p, MAP_FAILED);
  const bool onRequest =
      hugePageEligible(p) == 0 && madvise(p, bytes, MADV_HUGEPAGE) == 0 && hugePageEligible(p) == 1;
  munmap(p, bytes);
  if (!onRequest) GTEST_SKIP() << "huge pages are not given on request here";
  kqWorkspaceTrim();
  for (const char* setting : {"1", "0"}) {
    setenv("KQ_HUGE_PAGES", setting, 1);
    KQBlock b = kqWorkspaceAcquire(bytes);
    ASSERT_NE(b.data, nullptr);
    const int eligible = hugePageEligible(b.data);
    kqWorkspaceRelease(&b);
    kqWorkspaceTrim();
    EXPECT_EQ(eligible, setting[0] == '1' ? 1 : 0) << "KQ_HUGE_PAGES=" << setting;
  }
  unsetenv("KQ_HUGE_PAGES");
}
