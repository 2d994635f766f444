// alloc_test.cpp - allocator paths, size header and failure reports, and the
// cache that lends call working memory.
#include "runtime/alloc.h"
#include "runtime/workspace.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

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
    if (failMap) return nullptr;
    return std::malloc(n);  // stands in for a mapping; released by unmap
  }
  static int unmap(void* p, size_t n) {
    unmapAddresses.push_back(p);
    unmapLengths.push_back(n);
    std::free(p);
    return 0;
  }
  static void reset() {
    heapSizes.clear();
    mapLengths.clear();
    unmapLengths.clear();
    unmapAddresses.clear();
    failHeap = failMap = false;
  }
};
std::vector<size_t> SystemSpy::heapSizes, SystemSpy::mapLengths, SystemSpy::unmapLengths;
std::vector<void*> SystemSpy::unmapAddresses;
bool SystemSpy::failHeap, SystemSpy::failMap;

class AllocTest : public testing::Test {
 protected:
  void SetUp() override {
    SystemSpy::reset();
    KQAllocSystem spy{SystemSpy::heapAlloc, nullptr, SystemSpy::mapAnon, SystemSpy::unmap};
    kqAllocSetSystem(&spy);
  }
  void TearDown() override { kqAllocSetSystem(nullptr); }
  KqLogCapture log_;
};

uint32_t headerOf(void* p) {
  uint32_t size;
  std::memcpy(&size, static_cast<uint8_t*>(p) - 16, sizeof size);
  return size;
}

TEST_F(AllocTest, ThresholdSelectsHeapOrMappingAndFreeMirrorsIt) {
  void* small = kqMalloc(0xFFFFF);
  ASSERT_NE(small, nullptr);
  EXPECT_EQ(headerOf(small), 0xFFFFFu);
  ASSERT_EQ(SystemSpy::heapSizes.size(), 1u);
  EXPECT_EQ(SystemSpy::heapSizes[0], 0xFFFFFu + 16);
  EXPECT_TRUE(SystemSpy::mapLengths.empty());
  std::memset(small, 0xAB, 0xFFFFF);  // every promised byte is writable
  kqFree(small);
  EXPECT_TRUE(SystemSpy::unmapLengths.empty());

  void* large = kqMalloc(0x100000);
  ASSERT_NE(large, nullptr);
  EXPECT_EQ(headerOf(large), 0x100000u);
  ASSERT_EQ(SystemSpy::mapLengths.size(), 1u);
  EXPECT_EQ(SystemSpy::mapLengths[0], 0x100010u);
  std::memset(large, 0xCD, 0x100000);
  kqFree(large);
  ASSERT_EQ(SystemSpy::unmapLengths.size(), 1u);
  EXPECT_EQ(SystemSpy::unmapLengths[0], 0x100010u);
  EXPECT_EQ(SystemSpy::unmapAddresses[0], static_cast<uint8_t*>(large) - 16);
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(AllocTest, ZeroSizeAndNullAreHandledWithTheDocumentedReports) {
  EXPECT_EQ(kqMalloc(0), nullptr);
  ASSERT_EQ(log_.lines().size(), 1u);
  EXPECT_EQ(log_.lines()[0].message, "malloc(0) called with zero size");
  EXPECT_EQ(log_.lines()[0].priority, 6);
  EXPECT_EQ(log_.lines()[0].tag, "Orvane");
  EXPECT_EQ(log_.lines()[0].stream, stderr);

  log_.clear();
  kqFree(nullptr);
  EXPECT_TRUE(log_.lines().empty());

  // calloc of nothing reports twice: the allocator's line, then its own.
  EXPECT_EQ(kqCalloc(0, 8), nullptr);
  const auto msgs = log_.messages();
  ASSERT_EQ(msgs.size(), 2u);
  EXPECT_EQ(msgs[0], "malloc(0) called with zero size");
  EXPECT_EQ(msgs[1].rfind("calloc(0, 8) failed (", 0), 0u) << msgs[1];
}

TEST_F(AllocTest, ExhaustionIsLoggedAndAnsweredWithNull) {
  SystemSpy::failHeap = true;
  errno = 0;
  EXPECT_EQ(kqMalloc(100), nullptr);
  SystemSpy::failMap = true;
  EXPECT_EQ(kqMalloc(0x200000), nullptr);
  // Larger than any 32-bit target could map: refused without a system call.
  EXPECT_EQ(kqMalloc(0xFFFFFF00u), nullptr);
  EXPECT_EQ(SystemSpy::mapLengths.size(), 1u);
  const auto msgs = log_.messages();
  ASSERT_EQ(msgs.size(), 3u);
  EXPECT_EQ(msgs[0].rfind("malloc(100) failed (", 0), 0u) << msgs[0];
  EXPECT_EQ(msgs[1].rfind("mmap(2097152) failed (", 0), 0u) << msgs[1];
  EXPECT_EQ(msgs[2].rfind("mmap(4294967040) failed (", 0), 0u) << msgs[2];
}

TEST_F(AllocTest, CallocZeroFillsAcrossBothPaths) {
  for (uint32_t count : {3u, 0x40001u}) {
    uint8_t* p = static_cast<uint8_t*>(kqCalloc(count, 4));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(headerOf(p), count * 4);
    size_t nonzero = 0;
    for (uint32_t i = 0; i < count * 4; ++i) nonzero += p[i] != 0;
    EXPECT_EQ(nonzero, 0u);
    kqFree(p);
  }
  EXPECT_EQ(SystemSpy::heapSizes.size(), 1u);
  EXPECT_EQ(SystemSpy::mapLengths.size(), 1u);
}

TEST(AllocRealSystem, MappedBlocksArePageAlignedPlusHeader) {
  void* p = kqMalloc(0x100000);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ((reinterpret_cast<uintptr_t>(p) - 16) % 4096, 0u);
  static_cast<uint8_t*>(p)[0x100000 - 1] = 1;
  kqFree(p);
  void* q = kqMalloc(24);
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % 8, 0u);
  kqFree(q);
}

TEST(AllocChecked, WrapperDoesNotUseTheHeader) {
  KqLogCapture log;
  void* p = kqMallocChecked(40);
  ASSERT_NE(p, nullptr);
  std::free(p);  // must be releasable with the C library's free
  EXPECT_TRUE(log.lines().empty());
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
  KQBlock a = kqWorkspaceAcquire(3 * mb + 5);
  ASSERT_NE(a.data, nullptr);
  EXPECT_EQ(a.bytes % kKqBlockGranule, 0u);
  EXPECT_GE(a.bytes, 3 * mb + 5);
  uint8_t* first = a.data;
  kqWorkspaceRelease(&a);
  EXPECT_EQ(a.data, nullptr);
  EXPECT_TRUE(SystemSpy::unmapLengths.empty());  // kept

  // The same size, and a slightly smaller one, get the kept block back.
  for (size_t bytes : {3 * mb + 5, 3 * mb - 1000}) {
    KQBlock b = kqWorkspaceAcquire(bytes);
    EXPECT_EQ(b.data, first);
    kqWorkspaceRelease(&b);
  }
  EXPECT_EQ(SystemSpy::mapLengths.size(), 1u);

  // Much smaller or larger: the kept block goes and the new one stays.
  for (size_t bytes : {mb, 5 * mb}) {
    KQBlock c = kqWorkspaceAcquire(bytes);
    ASSERT_NE(c.data, nullptr);
    kqWorkspaceRelease(&c);
    EXPECT_EQ(kqWorkspaceKeptBytes(), SystemSpy::mapLengths.back()) << bytes;
  }
  EXPECT_EQ(SystemSpy::mapLengths.size(), 3u);
  EXPECT_EQ(SystemSpy::unmapLengths.size(), 2u);
  EXPECT_EQ(kqWorkspaceTrim(), SystemSpy::mapLengths.back());
  EXPECT_EQ(kqWorkspaceKeptBytes(), 0u);
}

TEST_F(WorkspaceTest, ConcurrentHoldersGetTheirOwnBlocks) {
  const size_t bytes = size_t{2} << 20;
  KQBlock held[kKqCachedBlocks + 1];
  for (KQBlock& b : held) b = kqWorkspaceAcquire(bytes);
  for (int i = 0; i <= kKqCachedBlocks; ++i)
    for (int j = 0; j < i; ++j) EXPECT_NE(held[i].data, held[j].data);
  EXPECT_EQ(held[kKqCachedBlocks].slot, -1);  // beyond the cache: private
  // Blocks in use survive a trim; the private one is unmapped on return.
  EXPECT_EQ(kqWorkspaceTrim(), 0u);
  kqWorkspaceRelease(&held[kKqCachedBlocks]);
  EXPECT_EQ(SystemSpy::unmapLengths.size(), 1u);
  const size_t kept = size_t(kKqCachedBlocks) * held[0].bytes;
  for (int i = 0; i < kKqCachedBlocks; ++i) kqWorkspaceRelease(&held[i]);
  EXPECT_EQ(kqWorkspaceKeptBytes(), kept);
  EXPECT_EQ(kqWorkspaceTrim(), kept);
}

TEST_F(WorkspaceTest, FailedMappingIsReportedAndKeepsNothing) {
  SystemSpy::failMap = true;
  KQBlock b = kqWorkspaceAcquire(size_t{1} << 20);
  EXPECT_EQ(b.data, nullptr);
  kqWorkspaceRelease(&b);  // a null block is ignored
  EXPECT_EQ(kqWorkspaceKeptBytes(), 0u);
  EXPECT_EQ(log_.messages().size(), 1u);
}
