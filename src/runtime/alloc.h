// alloc.h - the library's allocator: 16-byte size header, heap below 1 MiB,
// anonymous mappings from 1 MiB on.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

// Requests of this many bytes or more are served by mmap, smaller ones by
// the C heap; kqFree applies the same test to the stored size.
constexpr uint32_t kKqMapThreshold = 0x100000u;
constexpr uint32_t kKqAllocHeader = 16u;

// Returns at least `size` writable, uninitialised bytes, or null (logged).
// A zero size is refused. The 32-bit size sits 16 bytes before the result.
void* kqMalloc(uint32_t size);

// Releases a block from kqMalloc/kqCalloc; null is ignored.
void kqFree(void* p);

// kqMalloc(count * size) (32-bit product, unchecked) filled with zeros.
void* kqCalloc(uint32_t count, uint32_t size);

// Plain C-heap allocation that logs failures; release with free(), never
// with kqFree.
void* kqMallocChecked(size_t size);

// Maps `bytes` (at least 1) of page-aligned, uninitialised memory with the
// allocator's mapping call, or returns null (logged). Release with
// kqUnmapBlock and the same size.
void* kqMapBlock(size_t bytes);
void kqUnmapBlock(void* block, size_t bytes);

// The system calls behind the allocator, and thread creation, the other
// resource a call can be refused. Tests replace them to observe the path a
// request takes or to simulate exhaustion; null entries keep the real call.
struct KQAllocSystem {
  void* (*heapAlloc)(size_t size);
  void (*heapFree)(void* p);
  void* (*mapAnon)(size_t length);  // returns null on failure
  int (*unmap)(void* p, size_t length);
  // pthread_create with default attributes: 0 or an error number.
  int (*createThread)(pthread_t* thread, void* (*main)(void*), void* arg);
};

// Starts a thread through the installed system (pthread_create with default
// attributes); returns 0 or the error number.
int kqCreateThread(pthread_t* thread, void* (*main)(void*), void* arg);

// Installs `system` (copied); null restores the real calls. Not for use
// while other threads allocate.
void kqAllocSetSystem(const KQAllocSystem* system);
