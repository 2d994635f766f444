// log.cpp - kqLog: formats messages and passes them to the platform log.
#include "runtime/log.h"

#include <cstdarg>
#include <mutex>

#if defined(__ANDROID__)
#include <android/log.h>
#endif

namespace {

std::mutex gSinkMutex;
KQLogSinkFn* gSinkFn = nullptr;
void* gSinkUser = nullptr;

void writeDefault(FILE* stream, int32_t priority, const char* tag, const char* message) {
#if defined(__ANDROID__)
  (void)stream;
  __android_log_print(priority, tag, "%s", message);
#else
  if (stream == nullptr) stream = stderr;
  // One fprintf per line keeps lines from different threads whole.
  std::fprintf(stream, "%c/%s: %s\n", kqLogPriorityLetter(priority), tag != nullptr ? tag : "",
               message);
  std::fflush(stream);
#endif
}

}  // namespace

char kqLogPriorityLetter(int32_t priority) {
  static const char kLetters[] = "??VDIWEFS";
  return (priority >= 0 && priority <= 8) ? kLetters[priority] : '?';
}

void kqLogSetSink(KQLogSinkFn* sink, void* user) {
  std::lock_guard<std::mutex> lock(gSinkMutex);
  gSinkFn = sink;
  gSinkUser = sink != nullptr ? user : nullptr;
}

void kqLog(FILE* stream, int32_t priority, const char* tag, const char* format, ...) {
  char buffer[4096];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  KQLogSinkFn* sink;
  void* user;
  {
    std::lock_guard<std::mutex> lock(gSinkMutex);
    sink = gSinkFn;
    user = gSinkUser;
  }
  if (sink != nullptr) {
    sink(user, stream, priority, tag, buffer);
    return;
  }
  writeDefault(stream, priority, tag, buffer);
}
