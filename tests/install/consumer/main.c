/* A minimal client of the installed library: prints the version string and
 * runs one tiny upscale. */
#include <KQUpScale.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  static uint8_t src[16 * 16 * 3 / 2];
  static uint8_t dst[32 * 32 * 3 / 2];
  KQYUVMultiPlaneImage in, out;
  memset(src, 128, sizeof src);
  memset(&in, 0, sizeof in);
  memset(&out, 0, sizeof out);
  in.type = 9; in.width = 16; in.height = 16; in.yRowStride = 16; in.yScanlines = 16;
  in.yData = src; in.chromaData = src + 16 * 16;
  out.type = 9; out.width = 32; out.height = 32; out.yRowStride = 32; out.yScanlines = 32;
  out.yData = dst; out.chromaData = dst + 32 * 32;
  if (KQUpScale_ScaleImage(&in, &out, 0, 0, 0.0f, 1, 0) != 0) return 1;
  printf("%s\n", KQUpScale_GetVersion());
  return 0;
}
