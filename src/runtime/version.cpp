// version.cpp - version strings with platform, build time and revision.
#include "runtime/version.h"

#include <cstdint>

#ifndef KQ_REVISION
#define KQ_REVISION "0000000000000000000000000000000000000000"
#endif

#if defined(__ANDROID__)
#define KQ_PLATFORM "Android"
#elif defined(__linux__)
#define KQ_PLATFORM "Linux"
#elif defined(__APPLE__)
#define KQ_PLATFORM "Darwin"
#else
#define KQ_PLATFORM "Unknown"
#endif

#if UINTPTR_MAX == 0xFFFFFFFFu || (defined(__SIZEOF_POINTER__) && __SIZEOF_POINTER__ == 4)
#define KQ_BITS "32-bit"
#else
#define KQ_BITS "64-bit"
#endif

#define KQ_BUILD_PART " (" KQ_PLATFORM "/" KQ_BITS ", " __DATE__ " " __TIME__ ", " KQ_REVISION ")"

const char* kqBaseGetVersion() {
  static const char kVersion[] = "KQBase v1.12.0" KQ_BUILD_PART;
  return kVersion;
}

const char* kqUpScaleVersion() {
  static const char kVersion[] = "KQUpScale v1.3.0" KQ_BUILD_PART;
  return kVersion;
}
