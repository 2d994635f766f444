// workspace.h - one block of working memory per call, lent from a small
// process-wide cache so that repeated calls of one size do not map, fault in
// and unmap their planes every time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "runtime/log.h"

// Blocks kept between calls: one per concurrent caller up to this count.
// Callers beyond it get a block of their own that is unmapped when they
// return it.
constexpr int32_t kKqCachedBlocks = 2;

// A cached block serves a request it holds with at most 1 / kKqReuseSlack
// of its size to spare; otherwise it is unmapped and one of the new size
// takes its place. Calls of the same sizes always fit; a smaller call does
// not keep an outgrown block alive.
constexpr size_t kKqReuseSlack = 4;

// Blocks of at most this size (the warp's scratch of a call without
// filters) are kept beside a large one: they serve any request they hold,
// and a small request replaces a small kept block before a large one, so a
// caller that alternates a bare warp with filtered calls keeps both.
constexpr size_t kKqSmallBlock = size_t{2} << 20;

// Blocks are mapped in whole units of this many bytes.
constexpr size_t kKqBlockGranule = size_t{64} << 10;

// A lent block. `slot` is the cache entry it came from (-1: a private one).
struct KQBlock {
  uint8_t* data;
  size_t bytes;
  int32_t slot;
};

// Lends a block of at least `bytes` bytes (uninitialised, page-aligned), or
// a block with null data when it cannot be mapped (logged). Thread-safe.
// A new block is mapped with the advice to back it with transparent huge
// pages where the kernel has them, unless the environment variable
// KQ_HUGE_PAGES is 0 at that moment.
//
// Kept blocks are given back to the system when a request of another size
// replaces them, when kqWorkspaceTrim runs, and when the library is
// unloaded. Setting the environment variable KQ_KEEP_MEMORY to 0
// before the first call keeps nothing: every block is unmapped on return.
KQBlock kqWorkspaceAcquire(size_t bytes);

// Returns a block from kqWorkspaceAcquire (a null block is ignored).
void kqWorkspaceRelease(KQBlock* block);

// Unmaps every kept block that no call is using; returns the bytes freed.
size_t kqWorkspaceTrim();

// Bytes currently kept between calls (in use or not).
size_t kqWorkspaceKeptBytes();

// The working memory's part of fork safety: its lock is held across fork;
// in the child, blocks lent to the parent's other threads (which the child
// does not have) are free again.
void kqWorkspaceAtFork(KQForkPhase phase);
