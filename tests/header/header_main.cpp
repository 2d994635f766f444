// header_main.cpp - links the header checks against libKQUpScale.so and
// verifies the version strings that a caller sees.
#include <cstdio>
#include <cstring>

#include "KQUpScale.h"

bool kqHeaderCheckSameLayout();

int main() {
  int failures = 0;
  if (!kqHeaderCheckSameLayout()) {
    std::fprintf(stderr, "record layout differs between C and C++\n");
    ++failures;
  }
  const char* v = KQUpScale_GetVersion();
  const char* prefix = "KQUpScale v1.3.0 (";
  if (v == nullptr || std::strncmp(v, prefix, std::strlen(prefix)) != 0) {
    std::fprintf(stderr, "unexpected version string: %s\n", v ? v : "(null)");
    ++failures;
  } else if (KQUpScale_GetVersion() != v) {
    std::fprintf(stderr, "version string is not one static string\n");
    ++failures;
  }
  std::printf("%s\n%d passed, %d failed\n", v ? v : "", failures == 0 ? 1 : 0, failures);
  return failures == 0 ? 0 : 1;
}
