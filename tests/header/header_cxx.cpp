// header_cxx.cpp - the public header compiles alone as C++ with C linkage.
#include "KQUpScale.h"

#include <cstddef>
#include <type_traits>

static_assert(std::is_standard_layout<KQYUVMultiPlaneImage>::value, "C layout");
static_assert(sizeof(KQYUVMultiPlaneImage) == (sizeof(void*) == 4 ? 52 : 64), "13 fields");

extern "C" size_t kqHeaderCheckRecordSizeC(void);

size_t kqHeaderCheckRecordSizeCxx() { return sizeof(KQYUVMultiPlaneImage); }
bool kqHeaderCheckSameLayout() { return kqHeaderCheckRecordSizeC() == kqHeaderCheckRecordSizeCxx(); }
