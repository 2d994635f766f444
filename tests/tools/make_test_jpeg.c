/* make_test_jpeg.c - writes the JPEG inputs the tool tests need and the tool
 * cannot make itself: any size (odd ones too) and CMYK as Adobe stores it.
 * rgb and cmyk: the picture's left half is red, its right half blue. quad:
 * red top left, green top right, blue bottom left, yellow bottom right.
 * Usage: make_test_jpeg <out.jpg> <width> <height> rgb|cmyk|quad */
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
/* after stdio.h: jpeglib.h uses FILE and size_t */
#include <jpeglib.h>

int main(int argc, char** argv) {
  if (argc != 5) {
    fprintf(stderr, "usage: %s <out.jpg> <width> <height> rgb|cmyk|quad\n", argv[0]);
    return 2;
  }
  const int width = atoi(argv[2]), height = atoi(argv[3]);
  const int cmyk = strcmp(argv[4], "cmyk") == 0;
  const int quad = strcmp(argv[4], "quad") == 0;
  if (width < 1 || height < 1 || width > 8192 || height > 8192) return 2;
  FILE* f = fopen(argv[1], "wb");
  if (f == NULL) return 1;
  struct jpeg_compress_struct cinfo;
  struct jpeg_error_mgr err;
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_compress(&cinfo);
  jpeg_stdio_dest(&cinfo, f);
  cinfo.image_width = (JDIMENSION)width;
  cinfo.image_height = (JDIMENSION)height;
  cinfo.input_components = cmyk ? 4 : 3;
  cinfo.in_color_space = cmyk ? JCS_CMYK : JCS_RGB;
  jpeg_set_defaults(&cinfo);
  /* CMYK is stored as CMYK with an Adobe marker and inverted inks (255 = no
   * ink), as Photoshop writes it. */
  if (cmyk) jpeg_set_colorspace(&cinfo, JCS_CMYK);
  jpeg_set_quality(&cinfo, 95, TRUE);
  jpeg_start_compress(&cinfo, TRUE);
  const int n = cinfo.input_components;
  JSAMPLE* row = malloc((size_t)width * n);
  static const JSAMPLE kQuad[4][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 0}};
  while (cinfo.next_scanline < cinfo.image_height) {
    const int bottom = cinfo.next_scanline >= (JDIMENSION)height / 2;
    for (int x = 0; x < width; ++x) {
      const int left = x < width / 2;
      JSAMPLE* p = row + (size_t)x * n;
      if (cmyk) { /* red: M and Y full; blue: C and M full; inverted */
        p[0] = left ? 255 : 0;
        p[1] = 0;
        p[2] = left ? 0 : 255;
        p[3] = 255;
      } else if (quad) {
        memcpy(p, kQuad[2 * bottom + !left], 3);
      } else {
        p[0] = left ? 255 : 0;
        p[1] = 0;
        p[2] = left ? 0 : 255;
      }
    }
    jpeg_write_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_compress(&cinfo);
  jpeg_destroy_compress(&cinfo);
  free(row);
  return fclose(f) == 0 ? 0 : 1;
}
