// guarded_buffer.h - a buffer alone in a mapping between two inaccessible
// pages, so that a stray read or write past either end of it faults instead
// of landing in some other object: the inputs of the kernel checks, and the
// caller planes of the fuzz targets (header-only: those do not link the
// checks' helpers).
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

// The bytes sit at the end of the accessible pages (right before the
// trailing guard: a read past the last byte faults) or, atEnd false, at
// their start (right after the leading guard: an access below the first
// byte faults). The rest of the accessible pages, the slack, holds a
// sentinel that slackIntact() checks. A buffer of 0 bytes still gets one
// page. Accessible pages of up to kFilledLimit bytes are filled with the
// sentinel; larger ones (huge row strides over a few rows) stay zero, their
// slack unchecked.
class KqGuardedBuffer {
 public:
  static constexpr size_t kFilledLimit = size_t{16} << 20;

  explicit KqGuardedBuffer(size_t bytes, bool atEnd = true, uint8_t sentinel = 0)
      : bytes_(bytes), sentinel_(sentinel) {
    page_ = size_t(sysconf(_SC_PAGESIZE));
    inner_ = (bytes + page_ - 1) / page_ * page_;
    if (inner_ == 0) inner_ = page_;
    total_ = inner_ + 2 * page_;
    void* m = mmap(nullptr, total_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (m == MAP_FAILED) std::abort();
    map_ = static_cast<uint8_t*>(m);
    if (mprotect(map_ + page_, inner_, PROT_READ | PROT_WRITE) != 0) std::abort();
    data_ = atEnd ? map_ + page_ + inner_ - bytes : map_ + page_;
    // Fresh anonymous pages are zero already.
    if (sentinel != 0 && filled()) std::memset(map_ + page_, sentinel, inner_);
  }
  ~KqGuardedBuffer() { munmap(map_, total_); }
  KqGuardedBuffer(const KqGuardedBuffer&) = delete;
  KqGuardedBuffer& operator=(const KqGuardedBuffer&) = delete;

  uint8_t* data() const { return data_; }
  size_t size() const { return bytes_; }
  bool filled() const { return inner_ <= kFilledLimit; }

  // Inputs: any write into them faults from here on.
  void readOnly() {
    if (mprotect(map_ + page_, inner_, PROT_READ) != 0) std::abort();
  }

  // The slack between the buffer and the guards still holds the sentinel.
  bool slackIntact() const {
    if (!filled()) return true;
    const uint8_t* lo = map_ + page_;
    const uint8_t* hi = map_ + page_ + inner_;
    return intactAt(lo, size_t(data_ - lo)) &&
           intactAt(data_ + bytes_, size_t(hi - data_ - bytes_));
  }

  // Bytes [from, from + n) of the buffer still hold the sentinel.
  bool intact(size_t from, size_t n) const { return intactAt(data_ + from, n); }

 private:
  bool intactAt(const uint8_t* p, size_t n) const {
    for (size_t i = 0; i < n; ++i)
      if (p[i] != sentinel_) return false;
    return true;
  }
  size_t page_ = 0, inner_ = 0, total_ = 0, bytes_ = 0;
  uint8_t* map_ = nullptr;
  uint8_t* data_ = nullptr;
  uint8_t sentinel_ = 0;
};
