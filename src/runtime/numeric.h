// numeric.h - conversions whose result must be the same on every CPU.
#pragma once

#include <cstdint>

// Truncates toward zero like a float->int conversion, but defined for every
// input: NaN gives 0 (as on Arm) and values beyond the int32 range saturate
// (a plain conversion is undefined there, and x86 and Arm would disagree).
static inline int32_t kqSaturateToInt32(double v) {
  if (!(v == v)) return 0;
  if (v >= 2147483647.0) return INT32_MAX;
  if (v <= -2147483648.0) return INT32_MIN;
  return static_cast<int32_t>(v);
}
