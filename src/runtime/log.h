// log.h - the library's single message channel (error and information lines).
#pragma once

#include <cstdint>
#include <cstdio>

#define KQ_LOG_TAG "Orvane"

// Android log priorities used by the library.
enum : int32_t { KQ_LOG_INFO = 4, KQ_LOG_ERROR = 6 };

// Formats a printf-style message and hands it to the system log under `tag`
// (liblog on Android). Elsewhere the line goes to `stream` as
// "<P>/<tag>: <message>", P being the priority letter (I, E, ...).
// Messages longer than 4095 bytes are cut, never overflowed.
void kqLog(FILE* stream, int32_t priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Receives every formatted message instead of the default writer. Used by
// tests to capture output and by tools to reformat or silence it. `stream` is
// the stream the caller passed to kqLog.
using KQLogSinkFn = void(void* user, FILE* stream, int32_t priority, const char* tag,
                         const char* message);

// Installs a sink (null restores the default).
void kqLogSetSink(KQLogSinkFn* sink, void* user);

// The letter logcat shows for a priority ('I' for 4, 'E' for 6, '?' if none).
char kqLogPriorityLetter(int32_t priority);
