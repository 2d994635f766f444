// log_capture.h - collects kqLog lines during a test instead of printing them.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/log.h"

struct KqLogLine {
  FILE* stream;
  int priority;
  std::string tag;
  std::string message;
};

// Installs itself as the log sink for its lifetime.
class KqLogCapture {
 public:
  KqLogCapture() { kqLogSetSink(&KqLogCapture::sink, this); }
  ~KqLogCapture() { kqLogSetSink(nullptr, nullptr); }
  KqLogCapture(const KqLogCapture&) = delete;
  KqLogCapture& operator=(const KqLogCapture&) = delete;

  std::vector<KqLogLine> lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }
  std::vector<std::string> messages() const {
    std::vector<std::string> out;
    for (const KqLogLine& line : lines()) out.push_back(line.message);
    return out;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
  }

 private:
  static void sink(void* user, FILE* stream, int32_t priority, const char* tag,
                   const char* message) {
    KqLogCapture* self = static_cast<KqLogCapture*>(user);
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->lines_.push_back({stream, priority, tag != nullptr ? tag : "", message});
  }
  mutable std::mutex mutex_;
  std::vector<KqLogLine> lines_;
};
