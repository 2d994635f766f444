// log.h - the library's single message channel (error and information lines).
#pragma once

#include <cstdint>
#include <cstdio>

#define KQ_LOG_TAG "Orvane"

// Android log priorities used by the library.
enum : int32_t { KQ_LOG_INFO = 4, KQ_LOG_ERROR = 6 };

// How much the default writer shows off Android: nothing, error lines only,
// or error and information lines. Priorities below KQ_LOG_ERROR count as
// information.
enum KQLogLevel : int32_t { KQ_LOG_LEVEL_OFF = 0, KQ_LOG_LEVEL_ERROR = 1, KQ_LOG_LEVEL_INFO = 2 };

// Formats a printf-style message and hands it to the system log under `tag`
// (liblog on Android, every priority). Elsewhere the line is written as
// "<P>/<tag>: <message>", P being the priority letter (I, E, ...), to
// `stream`, except that a null `stream` or standard output means standard
// error: the host program's standard output is its own. Lines below the
// level (kqLogLevel) are dropped there. Messages longer than 4095 bytes are
// cut, never overflowed.
void kqLog(FILE* stream, int32_t priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Receives every formatted message, whatever the level, instead of the
// default writer. Used by tests to capture output and by tools to reformat or
// silence it (kqLogWanted tells what the level asks for). `stream` is the
// stream the caller passed to kqLog.
using KQLogSinkFn = void(void* user, FILE* stream, int32_t priority, const char* tag,
                         const char* message);

// Installs a sink (null restores the default).
void kqLogSetSink(KQLogSinkFn* sink, void* user);

// The level in force. Unless kqLogSetLevel chose one, it comes from the
// environment variable KQ_LOG (off, error or info, any case), read once when
// first needed; unset or empty means error. Any other value also means error,
// and one error line says the value was not understood.
KQLogLevel kqLogLevel();
void kqLogSetLevel(KQLogLevel level);

// Parses "off", "error" or "info" (any case); false for anything else.
bool kqLogLevelFromText(const char* text, KQLogLevel* level);

// Whether the level in force shows lines of this priority.
bool kqLogWanted(int32_t priority);

// The letter logcat shows for a priority ('I' for 4, 'E' for 6, '?' if none).
char kqLogPriorityLetter(int32_t priority);

// The phases of fork() at which the library's modules make their
// process-wide state safe for the child (see kqForkSafetyInstall).
enum class KQForkPhase { kPrepare, kParent, kChild };

// The log's part: its sink lock is held across fork and reset in the child.
void kqLogAtFork(KQForkPhase phase);
