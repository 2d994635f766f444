// alloc.cpp - kqMalloc / kqFree / kqCalloc and the checked malloc wrapper.
#include "runtime/alloc.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "runtime/log.h"

namespace {

// Requests this large can never be met on the 32-bit targets (the size plus
// header wraps, or no address range that long exists); 64-bit builds refuse
// them too so that every target answers the same requests the same way.
constexpr uint32_t kLargestRequest = 0x7FFFFFFFu;

void* realMapAnon(size_t length) {
  void* p = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : p;
}

int realUnmap(void* p, size_t length) { return munmap(p, length); }

int realCreateThread(pthread_t* thread, void* (*main)(void*), void* arg) {
  return pthread_create(thread, nullptr, main, arg);
}

const KQAllocSystem kRealSystem = {std::malloc, std::free, realMapAnon, realUnmap,
                                   realCreateThread};
KQAllocSystem gSystem = kRealSystem;

}  // namespace

void kqAllocSetSystem(const KQAllocSystem* system) {
  if (system == nullptr) {
    gSystem = kRealSystem;
    return;
  }
  gSystem.heapAlloc = system->heapAlloc ? system->heapAlloc : kRealSystem.heapAlloc;
  gSystem.heapFree = system->heapFree ? system->heapFree : kRealSystem.heapFree;
  gSystem.mapAnon = system->mapAnon ? system->mapAnon : kRealSystem.mapAnon;
  gSystem.unmap = system->unmap ? system->unmap : kRealSystem.unmap;
  gSystem.createThread = system->createThread ? system->createThread : kRealSystem.createThread;
}

int kqCreateThread(pthread_t* thread, void* (*main)(void*), void* arg) {
  return gSystem.createThread(thread, main, arg);
}

void* kqMalloc(uint32_t size) {
  if (size == 0) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "malloc(%u) called with zero size", 0u);
    return nullptr;
  }
  uint8_t* block;
  if (size < kKqMapThreshold) {
    block = static_cast<uint8_t*>(gSystem.heapAlloc(size_t{size} + kKqAllocHeader));
    if (block == nullptr) {
      kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "malloc(%u) failed (%s)", size, std::strerror(errno));
      return nullptr;
    }
  } else {
    if (size > kLargestRequest) {
      block = nullptr;
      errno = ENOMEM;
    } else {
      block = static_cast<uint8_t*>(gSystem.mapAnon(size_t{size} + kKqAllocHeader));
    }
    if (block == nullptr) {
      kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "mmap(%u) failed (%s)", size, std::strerror(errno));
      return nullptr;
    }
  }
  std::memcpy(block, &size, sizeof size);
  return block + kKqAllocHeader;
}

void kqFree(void* p) {
  if (p == nullptr) return;
  uint8_t* block = static_cast<uint8_t*>(p) - kKqAllocHeader;
  uint32_t size;
  std::memcpy(&size, block, sizeof size);
  if (size < kKqMapThreshold) {
    gSystem.heapFree(block);
    return;
  }
  if (gSystem.unmap(block, size_t{size} + kKqAllocHeader) != 0) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "munmap(%u) failed (%s)", size, std::strerror(errno));
  }
}

void* kqMapBlock(size_t bytes) {
  void* block = bytes > 0 ? gSystem.mapAnon(bytes) : nullptr;
  if (block == nullptr) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "mmap(%zu) failed (%s)", bytes, std::strerror(errno));
  }
  return block;
}

void kqUnmapBlock(void* block, size_t bytes) {
  if (block == nullptr) return;
  if (gSystem.unmap(block, bytes) != 0) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "munmap(%zu) failed (%s)", bytes, std::strerror(errno));
  }
}

void* kqCalloc(uint32_t count, uint32_t size) {
  const uint32_t total = count * size;  // 32-bit product, as documented
  void* q = kqMalloc(total);
  if (q == nullptr) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, "calloc(%u, %u) failed (%s)", count, size,
          std::strerror(errno));
    return nullptr;
  }
  std::memset(q, 0, total);
  return q;
}

void* kqMallocChecked(size_t size) {
  void* p = std::malloc(size);
  if (p == nullptr) {
    kqLog(stderr, KQ_LOG_ERROR, KQ_LOG_TAG,
          "Out of Memory! malloc() failed (size=%zu bytes, system error: %s)", size,
          std::strerror(errno));
  }
  return p;
}
