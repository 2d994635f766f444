/* example_upscale.c - the smallest complete use of libKQUpScale from C:
 * enlarge a 64x48 NV21 image to 256x192 with every filter on, then check
 * that the output holds the picture (it is also run as a test). */
#include <KQUpScale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
  enum { W = 64, H = 48, OW = 256, OH = 192 };
  static uint8_t in[W * H * 3 / 2];
  static uint8_t out[OW * OH * 3 / 2];
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) in[y * W + x] = (uint8_t)(x < W / 2 ? 40 : 200); /* a vertical edge */
  memset(in + W * H, 128, W * H / 2); /* neutral chroma */

  KQYUVMultiPlaneImage src = {8 /* NV21 */, W, H, 1, W, H, 2, W, 2, W, in, in + W * H, NULL};
  KQYUVMultiPlaneImage dst = {8, OW, OH, 1, OW, OH, 2, OW, 2, OW, out, out + OW * OH, NULL};
  if (KQUpScale_ScaleImage(&src, &dst, /*noiseReduction*/ 3, /*chromaNoiseReduction*/ 3,
                           /*sharpening*/ 1.0f, /*numThreads*/ 2, /*affinityMask*/ 0) != 0) {
    return 1;
  }
  /* Left and right of the edge keep their grey levels; chroma stays neutral. */
  const int left = out[(OH / 2) * OW + 8], right = out[(OH / 2) * OW + OW - 16];
  const int chroma = out[OW * OH + (OH / 4) * OW + OW / 2];
  printf("%s\nleft %d, right %d, chroma %d\n", KQUpScale_GetVersion(), left, right, chroma);
  return (abs(left - 40) <= 2 && abs(right - 200) <= 2 && abs(chroma - 128) <= 1) ? 0 : 1;
}
