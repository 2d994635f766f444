/* header_c.c - the public header compiles alone as C, with the record layout
 * that C callers see. */
#include "KQUpScale.h"

#include <stddef.h>

_Static_assert(offsetof(KQYUVMultiPlaneImage, vRowStride) == 9 * 4, "ten int32 fields first");
_Static_assert(offsetof(KQYUVMultiPlaneImage, yData) % sizeof(void*) == 0, "pointer alignment");
_Static_assert(offsetof(KQYUVMultiPlaneImage, chromaData) ==
                   offsetof(KQYUVMultiPlaneImage, yData) + sizeof(void*), "chromaData follows yData");
_Static_assert(sizeof(KQYUVMultiPlaneImage) == (sizeof(void*) == 4 ? 52 : 64), "13 fields");

size_t kqHeaderCheckRecordSizeC(void) { return sizeof(KQYUVMultiPlaneImage); }
const char* (*kqHeaderCheckVersionFnC(void))(void) { return KQUpScale_GetVersion; }

/* The output-size helper compiled as C, for comparison with the C++ build. */
int32_t kqHeaderCheckOutputSizeC(int32_t width, int32_t height, double scale, int32_t* outWidth,
                                 int32_t* outHeight) {
  return KQUpScale_OutputSize(width, height, scale, outWidth, outHeight);
}
