// alloc_test.cpp - allocator paths, size header and failure reports.
#include "runtime/alloc.h"

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
