/* KQUpScale.h - public interface of libKQUpScale: enlarge one NV12/NV21 image
 * (or a rectangle of it) into a caller-supplied output image. */
#ifndef KQUPSCALE_H
#define KQUPSCALE_H

#include <stdint.h>

#if defined(_WIN32)
#define KQ_API
#else
#define KQ_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define KQ_NOEXCEPT noexcept
extern "C" {
#else
#define KQ_NOEXCEPT
#endif

/**
 * Describes one two-plane YUV 4:2:0 image owned by the caller (input or
 * output). The library never writes to the record itself.
 */
typedef struct KQYUVMultiPlaneImage {
  /** Format code: 9 = NV12 (chroma bytes U,V); 8 and every other value =
   *  NV21 (chroma bytes V,U). */
  int32_t type;
  /** Luma width in pixels. For the output, the size to enlarge to. */
  int32_t width;
  /** Luma height in rows. For the output, the size to enlarge to. */
  int32_t height;
  /** Distance between neighbouring luma samples (1); carried, not read. */
  int32_t yPixelStride;
  /** Bytes from one luma row to the next (width plus row padding). The
   *  interleaved chroma plane uses the same row stride. */
  int32_t yRowStride;
  /** Rows allocated in the luma plane (height plus bottom padding). */
  int32_t yScanlines;
  /** Distance between U samples (2 for interleaved chroma); not read. */
  int32_t uPixelStride;
  /** Bytes per chroma row (equal to yRowStride); carried, not read. */
  int32_t uRowStride;
  /** Distance between V samples (2 for interleaved chroma); not read. */
  int32_t vPixelStride;
  /** Bytes per chroma row (equal to yRowStride); carried, not read. */
  int32_t vRowStride;
  /** First byte of the luma plane: yRowStride * yScanlines bytes. */
  uint8_t* yData;
  /** First byte of the interleaved chroma plane (whichever of U or V comes
   *  first): height / 2 rows of yRowStride bytes. */
  uint8_t* chromaData;
  /** Second chroma pointer; carried, not read by the upscaler. */
  uint8_t* vData;
} KQYUVMultiPlaneImage;

/**
 * Returns the library's version string: "KQUpScale v1.3.0 (<platform>/<bits>,
 * <build date> <build time>, <40-digit revision>)". The string is static and
 * must not be freed. Thread-safe.
 */
KQ_API const char* KQUpScale_GetVersion(void) KQ_NOEXCEPT;

/**
 * Enlarges the whole input image into the output image.
 * Exactly KQUpScale_ScaleImageFromROI(in, out, -1, -1, -1, -1, ...).
 */
KQ_API int32_t KQUpScale_ScaleImage(const KQYUVMultiPlaneImage* in,
                                    const KQYUVMultiPlaneImage* out,
                                    int32_t noiseReduction,
                                    int32_t chromaNoiseReduction,
                                    float sharpening, int32_t numThreads,
                                    int32_t affinityMask) KQ_NOEXCEPT;

/**
 * Enlarges a rectangle of the input image to the size of the output image.
 *
 * @param in      input image; its planes are only read.
 * @param out     output image; width and height set the output size, and the
 *                result is written into its luma and chroma planes with its
 *                yRowStride (row padding bytes are left as they are, chroma
 *                row padding is filled with 128).
 * @param left,top,right,bottom  inclusive region corners in input pixels;
 *                left = -1 selects the whole image. Corners outside the image
 *                are clamped, and the region's width and height are rounded
 *                down to multiples of 4.
 * @param noiseReduction        luma noise reduction 1..10 (0 = off).
 * @param chromaNoiseReduction  chroma noise reduction 1..10 (0 = off).
 * @param sharpening            sharpening strength (> 0.0 enables it; 1.0 is
 *                              a typical value).
 * @param numThreads  > 1: the process-wide worker pool with this many
 *                    threads; 0 or 1: the calling thread only; < 0: |n|
 *                    threads created for each parallel step.
 * @param affinityMask  >= 1: bind the calling thread to these CPUs first.
 * @return 0. Both records and all planes stay owned by the caller. Calls on
 *         different threads may run at once on different images.
 */
KQ_API int32_t KQUpScale_ScaleImageFromROI(
    const KQYUVMultiPlaneImage* in, const KQYUVMultiPlaneImage* out,
    int32_t left, int32_t top, int32_t right, int32_t bottom,
    int32_t noiseReduction, int32_t chromaNoiseReduction, float sharpening,
    int32_t numThreads, int32_t affinityMask) KQ_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif /* KQUPSCALE_H */
