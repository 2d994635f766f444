// workspace.cpp - the process-wide cache of call working memory.
#include "runtime/workspace.h"

#include <pthread.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

#include "runtime/alloc.h"

namespace {

struct CacheSlot {
  uint8_t* data;
  size_t bytes;
  bool busy;
};

pthread_mutex_t gLock = PTHREAD_MUTEX_INITIALIZER;
CacheSlot gSlots[kKqCachedBlocks] = {};
int gKeep = -1;  // -1: not read yet; guarded by gLock

bool keepBlocks() {
  if (gKeep < 0) {
    const char* value = std::getenv("KQ_KEEP_MEMORY");
    gKeep = (value != nullptr && std::strcmp(value, "0") == 0) ? 0 : 1;
  }
  return gKeep == 1;
}

// Blocks ask the kernel for transparent huge pages: a first call then
// faults its planes in 2 MiB at a time instead of 4 KiB (at 4096x3072 with
// the tool's defaults about 900 faults instead of 5,500, and a quarter less
// time), and the passes over the planes need far fewer address
// translations. Kernels without such pages (most Android ones) ignore the
// advice; systems without the call skip it. KQ_HUGE_PAGES=0 leaves it out.
void adviseHugePages(uint8_t* data, size_t bytes) {
#if defined(MADV_HUGEPAGE)
  if (data == nullptr) return;
  const char* value = std::getenv("KQ_HUGE_PAGES");
  if (value != nullptr && std::strcmp(value, "0") == 0) return;
  (void)madvise(data, bytes, MADV_HUGEPAGE);
#else
  (void)data;
  (void)bytes;
#endif
}

size_t roundUp(size_t bytes) {
  const size_t units = bytes / kKqBlockGranule + (bytes % kKqBlockGranule != 0 ? 1 : 0);
  return (units > 0 ? units : 1) * kKqBlockGranule;
}

bool serves(const CacheSlot& slot, size_t bytes) {
  return slot.data != nullptr && slot.bytes >= bytes &&
         (slot.bytes <= kKqSmallBlock || slot.bytes - bytes <= slot.bytes / kKqReuseSlack);
}

// Which free slot a new block of `bytes` takes, lower first: one holding a
// block of its own class (small or large), then an empty one, then one
// holding a block of the other class. So one caller whose sizes change keeps
// one block per class, not one per size.
int32_t replaceRank(const CacheSlot& slot, size_t bytes) {
  if (slot.data == nullptr) return 1;
  return (slot.bytes <= kKqSmallBlock) == (bytes <= kKqSmallBlock) ? 0 : 2;
}

// Gives the kept blocks back when the library is unloaded, so that leak
// checkers and long-lived hosts that unload it see nothing left behind.
struct UnloadTrim {
  ~UnloadTrim() { kqWorkspaceTrim(); }
} gUnloadTrim;

}  // namespace

KQBlock kqWorkspaceAcquire(size_t bytes) {
  const size_t want = roundUp(bytes);
  KQBlock block{nullptr, want, -1};
  uint8_t* stale = nullptr;
  size_t staleBytes = 0;

  pthread_mutex_lock(&gLock);
  if (keepBlocks()) {
    int32_t free = -1;
    for (int32_t i = 0; i < kKqCachedBlocks; ++i) {
      CacheSlot& slot = gSlots[i];
      if (slot.busy) continue;
      if (serves(slot, want)) {
        slot.busy = true;
        block = {slot.data, slot.bytes, i};
        pthread_mutex_unlock(&gLock);
        return block;
      }
      if (free < 0 || replaceRank(slot, want) < replaceRank(gSlots[free], want)) free = i;
    }
    if (free >= 0) {
      CacheSlot& slot = gSlots[free];
      stale = slot.data;
      staleBytes = slot.bytes;
      slot = {nullptr, 0, true};
      block.slot = free;
    }
  }
  pthread_mutex_unlock(&gLock);

  // Mapping and unmapping happen outside the lock: other callers with a
  // fitting block go on meanwhile.
  if (stale != nullptr) kqUnmapBlock(stale, staleBytes);
  block.data = static_cast<uint8_t*>(kqMapBlock(want));
  adviseHugePages(block.data, want);
  if (block.slot >= 0) {
    pthread_mutex_lock(&gLock);
    CacheSlot& slot = gSlots[block.slot];
    if (block.data != nullptr) {
      slot = {block.data, want, true};
    } else {
      slot = {nullptr, 0, false};
      block.slot = -1;
    }
    pthread_mutex_unlock(&gLock);
  }
  return block;
}

void kqWorkspaceRelease(KQBlock* block) {
  if (block == nullptr || block->data == nullptr) return;
  if (block->slot >= 0) {
    pthread_mutex_lock(&gLock);
    gSlots[block->slot].busy = false;
    pthread_mutex_unlock(&gLock);
  } else {
    kqUnmapBlock(block->data, block->bytes);
  }
  *block = {nullptr, 0, -1};
}

size_t kqWorkspaceTrim() {
  CacheSlot freed[kKqCachedBlocks] = {};
  pthread_mutex_lock(&gLock);
  for (int32_t i = 0; i < kKqCachedBlocks; ++i) {
    if (gSlots[i].busy || gSlots[i].data == nullptr) continue;
    freed[i] = gSlots[i];
    gSlots[i] = {nullptr, 0, false};
  }
  pthread_mutex_unlock(&gLock);
  size_t total = 0;
  for (const CacheSlot& slot : freed) {
    if (slot.data == nullptr) continue;
    kqUnmapBlock(slot.data, slot.bytes);
    total += slot.bytes;
  }
  return total;
}

size_t kqWorkspaceKeptBytes() {
  pthread_mutex_lock(&gLock);
  size_t total = 0;
  for (const CacheSlot& slot : gSlots) total += slot.data != nullptr ? slot.bytes : 0;
  pthread_mutex_unlock(&gLock);
  return total;
}

void kqWorkspaceAtFork(KQForkPhase phase) {
  switch (phase) {
    case KQForkPhase::kPrepare:
      pthread_mutex_lock(&gLock);
      break;
    case KQForkPhase::kParent:
      pthread_mutex_unlock(&gLock);
      break;
    case KQForkPhase::kChild:
      pthread_mutex_init(&gLock, nullptr);
      for (CacheSlot& slot : gSlots) slot.busy = false;
      break;
  }
}
