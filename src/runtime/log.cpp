// log.cpp - kqLog: formats messages and passes them to the platform log.
#include "runtime/log.h"

#include <pthread.h>
#include <strings.h>

#include <atomic>
#include <cstdarg>
#include <cstdlib>

#if defined(__ANDROID__)
#include <android/log.h>
#endif

namespace {

pthread_mutex_t gSinkMutex = PTHREAD_MUTEX_INITIALIZER;
KQLogSinkFn* gSinkFn = nullptr;
void* gSinkUser = nullptr;

// -1 until decided (KQ_LOG is read on first use), then a KQLogLevel.
std::atomic<int32_t> gLevel{-1};

void writeLine(FILE* stream, int32_t priority, const char* tag, const char* message) {
  if (stream == nullptr || stream == stdout) stream = stderr;
  // One fprintf per line keeps lines from different threads whole.
  std::fprintf(stream, "%c/%s: %s\n", kqLogPriorityLetter(priority), tag != nullptr ? tag : "",
               message);
  std::fflush(stream);
}

void writeDefault(FILE* stream, int32_t priority, const char* tag, const char* message) {
#if defined(__ANDROID__)
  // logcat filters by priority itself.
  (void)stream;
  __android_log_print(priority, tag, "%s", message);
#else
  if (kqLogWanted(priority)) writeLine(stream, priority, tag, message);
#endif
}

}  // namespace

bool kqLogLevelFromText(const char* text, KQLogLevel* level) {
  if (text == nullptr) return false;
  if (strcasecmp(text, "off") == 0) {
    *level = KQ_LOG_LEVEL_OFF;
  } else if (strcasecmp(text, "error") == 0) {
    *level = KQ_LOG_LEVEL_ERROR;
  } else if (strcasecmp(text, "info") == 0) {
    *level = KQ_LOG_LEVEL_INFO;
  } else {
    return false;
  }
  return true;
}

KQLogLevel kqLogLevel() {
  int32_t level = gLevel.load(std::memory_order_relaxed);
  if (level < 0) {
    const char* env = std::getenv("KQ_LOG");
    KQLogLevel parsed = KQ_LOG_LEVEL_ERROR;
    const bool understood = env == nullptr || env[0] == '\0' || kqLogLevelFromText(env, &parsed);
    int32_t expected = -1;
    // Only the thread that decides reports a bad value, so it is said once.
    if (gLevel.compare_exchange_strong(expected, parsed) && !understood) {
      char message[160];
      std::snprintf(message, sizeof message,
                    "KQ_LOG='%.64s' is not off, error or info; showing errors only", env);
      writeLine(stderr, KQ_LOG_ERROR, KQ_LOG_TAG, message);
    }
    level = gLevel.load(std::memory_order_relaxed);
  }
  return static_cast<KQLogLevel>(level);
}

void kqLogSetLevel(KQLogLevel level) { gLevel.store(level, std::memory_order_relaxed); }

bool kqLogWanted(int32_t priority) {
  return kqLogLevel() >= (priority >= KQ_LOG_ERROR ? KQ_LOG_LEVEL_ERROR : KQ_LOG_LEVEL_INFO);
}

char kqLogPriorityLetter(int32_t priority) {
  static const char kLetters[] = "??VDIWEFS";
  return (priority >= 0 && priority <= 8) ? kLetters[priority] : '?';
}

void kqLogSetSink(KQLogSinkFn* sink, void* user) {
  pthread_mutex_lock(&gSinkMutex);
  gSinkFn = sink;
  gSinkUser = sink != nullptr ? user : nullptr;
  pthread_mutex_unlock(&gSinkMutex);
}

void kqLogAtFork(KQForkPhase phase) {
  switch (phase) {
    case KQForkPhase::kPrepare:
      pthread_mutex_lock(&gSinkMutex);
      break;
    case KQForkPhase::kParent:
      pthread_mutex_unlock(&gSinkMutex);
      break;
    case KQForkPhase::kChild:
      pthread_mutex_init(&gSinkMutex, nullptr);
      break;
  }
}

void kqLog(FILE* stream, int32_t priority, const char* tag, const char* format, ...) {
  char buffer[4096];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  KQLogSinkFn* sink;
  void* user;
  pthread_mutex_lock(&gSinkMutex);
  sink = gSinkFn;
  user = gSinkUser;
  pthread_mutex_unlock(&gSinkMutex);
  if (sink != nullptr) {
    sink(user, stream, priority, tag, buffer);
    return;
  }
  writeDefault(stream, priority, tag, buffer);
}
