/* reference_call.c - the library's C call on packed NV frames from files,
 * for the Java test to compare the binding with:
 *   kq_reference_call W H OW OH TYPE OUT_TYPE NR CNR SHARPENING LEFT TOP RIGHT BOTTOM IN OUT
 * IN holds W x H luma rows and H / 2 chroma rows of W bytes (format code
 * TYPE); OUT receives OW x OH luma and OH / 2 chroma rows of OW bytes
 * (format code OUT_TYPE).
 * Even widths only (an odd one packs the output's chroma rows closer). */
#include <KQUpScale.h>
#include <stdio.h>
#include <stdlib.h>

static int readAll(const char* path, uint8_t* data, size_t n) {
  FILE* f = fopen(path, "rb");
  if (f == NULL) return 0;
  const size_t got = fread(data, 1, n, f);
  const int extra = fgetc(f) != EOF;
  fclose(f);
  return got == n && !extra;
}

int main(int argc, char** argv) {
  if (argc != 16) {
    fprintf(stderr,
            "usage: %s W H OW OH TYPE OUT_TYPE NR CNR SHARPENING LEFT TOP RIGHT BOTTOM IN OUT\n",
            argv[0]);
    return 2;
  }
  int v[13];
  for (int i = 0; i < 13; ++i) v[i] = atoi(argv[i + 1]);
  const float sharpening = (float)atof(argv[9]);
  const int w = v[0], h = v[1], ow = v[2], oh = v[3];
  if (w < 1 || h < 1 || ow < 2 || oh < 2 || w % 2 || ow % 2) return 2;
  const size_t inBytes = (size_t)w * h + (size_t)w * (h / 2);
  const size_t outBytes = (size_t)ow * oh + (size_t)ow * (oh / 2);
  uint8_t* in = malloc(inBytes);
  uint8_t* out = calloc(outBytes, 1);
  if (in == NULL || out == NULL || !readAll(argv[14], in, inBytes)) return 3;
  KQYUVMultiPlaneImage src = {v[4], w, h, 1, w, h, 2, w, 2, w, in, in + (size_t)w * h, NULL};
  KQYUVMultiPlaneImage dst = {v[5], ow, oh, 1, ow, oh, 2, ow, 2, ow, out, out + (size_t)ow * oh,
                              NULL};
  KQUpScale_ScaleImageFromROI(&src, &dst, v[9], v[10], v[11], v[12], v[6], v[7], sharpening, 0, 0);
  FILE* f = fopen(argv[15], "wb");
  if (f == NULL || fwrite(out, 1, outBytes, f) != outBytes || fclose(f) != 0) return 4;
  free(in);
  free(out);
  return 0;
}
