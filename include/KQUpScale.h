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
 *
 * A record is valid when it is not null, yData and chromaData are not null,
 * width and height are at least 1 (at least 2 for the output), yRowStride
 * >= width, yScanlines >= height, and the luma plane's extent yRowStride *
 * yScanlines is at most 0x7FFFFFFF bytes (2 GiB - 1, on every target). Its
 * planes must then hold:
 *  - luma: yRowStride * yScanlines bytes from yData: `height` rows of
 *    `width` pixels, yRowStride bytes apart;
 *  - chroma: height / 2 rows (rounded down) of yRowStride bytes from
 *    chromaData, each row width / 2 interleaved byte pairs.
 * A call given an invalid record reads and writes none of its planes: it
 * logs the one line "KQUpScale: <input|output> image <problem>; nothing
 * written" and returns 0.
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
 * @param out     output image; width and height set the output size. Luma
 *                rows go yRowStride apart; the bytes after `width` in each
 *                row and the rows after `height` are as they were when the
 *                call returns. (While it runs, the luma is built as packed
 *                rows from yData on, which pass over the padding of the rows
 *                above: the padding bytes are saved first and put back.
 *                Do not let another thread use them during the call.)
 *                Chroma: height / 2 rows, each width / 2 pairs followed by
 *                yRowStride - width bytes of 128, laid back to back from
 *                chromaData. For an even width that puts row r at r *
 *                yRowStride; an odd width makes every row one byte shorter,
 *                (width - 1) plus the padding, so row r starts at r *
 *                (yRowStride - 1) and the plane's last height / 2 bytes are
 *                not written.
 * @param left,top,right,bottom  inclusive region corners in input pixels;
 *                left = -1 selects the whole image as it is (the other three
 *                are not read). Otherwise corners outside the image are
 *                clamped to it, and the region's width and height are
 *                rounded down to multiples of 4. An odd left corner starts
 *                the chroma on the second byte of a pair, so U and V trade
 *                places in the result.
 *                The picture is not stretched: the region is cut at its right
 *                or bottom edge to the output's aspect ratio. A region (or
 *                whole image) below 4x4 pixels, inverted corners included,
 *                and a cut that leaves less than 4x4 pixels are refused as an
 *                invalid record is (one log line, nothing written).
 * @param noiseReduction  luma noise reduction, useful range 1..10 (0 and
 *                below: off): the result keeps about noiseReduction * 10 %
 *                of the range-filtered plane (10: the filtered plane alone).
 *                Above 10 the blend extrapolates past the filtered plane in
 *                16-bit arithmetic that wraps: pixels overshoot, and where the
 *                sum wraps they come out meaningless, the more so the larger
 *                the value (on a camera-like picture: 3 % of the pixels at
 *                100, most at 1000). Not clamped, by design.
 * @param chromaNoiseReduction  chroma noise reduction 1..10 (0 and below:
 *                off); values above 10 act as 10. An output below 4x4 keeps
 *                its chroma as warped.
 * @param sharpening  unsharp-mask strength, > 0.0 enables it; useful up to
 *                about 4 (1.0 is typical). It becomes the 16-bit gain
 *                trunc(sharpening * 256) taken modulo 2^16 as a signed
 *                number: s and s + 256 give the same bytes, 128 up to 256
 *                act as negative gains, and 256, very large values and
 *                infinity (gain 0 or -1) leave the warp as it is or nearly
 *                so. From about 8 on, strong edges clip to black and white;
 *                beyond 32 the products wrap into meaningless pixels.
 *                0.0 (and -0.0): off. Below 0 or NaN: off as well, and then
 *                with noiseReduction off too no luma stage runs at all: the
 *                caller's luma plane keeps the bytes it had, and the chroma
 *                (still written) is filtered, when chromaNoiseReduction is
 *                on, with those old luma bytes as its guide.
 * @param numThreads  how the work is spread; the bytes are the same for
 *                every value:
 *                > 1: the calling thread and the process-wide worker pool.
 *                  The first of the calls running at one time that asks for
 *                  a pool creates it with min(numThreads, 32) threads (the
 *                  calling thread counted); calls that start while it exists
 *                  use it as it is, at most numThreads threads of it. The
 *                  last of them to return joins its threads: no thread
 *                  outlives the calls.
 *                0 or 1: the calling thread only.
 *                < 0: the calling thread and min(|numThreads|, 32) - 1
 *                  threads started for each parallel step and joined before
 *                  the step ends; no pool.
 *                A thread that cannot be started is no failure: its share of
 *                the work goes to the others (the first such thread of the
 *                process is reported in one information line).
 * @param affinityMask  >= 1: the calling thread is first bound to the CPUs
 *                whose bits are set (bit i = CPU i); the binding stays after
 *                the call returns. A mask the system refuses is logged and
 *                ignored. 0 and negative values change nothing.
 * @return 0, also for a refused call. Both records and all planes stay owned
 *         by the caller, and nothing outside the planes a valid record
 *         describes is read or written. Calls on different threads may run at
 *         once on different images.
 *
 * Resources: a call takes one block of working memory before it writes any
 * output byte (kept for the next call of the same sizes); when it cannot be
 * had, the call is refused ("... working memory could not be allocated;
 * nothing written") and the output is untouched. Apart from it and its
 * threads a call allocates nothing and throws nothing. It needs under 20 KiB
 * of the calling thread's stack. A process may fork() while calls run on
 * other threads: the child's own calls work, with a pool of their own.
 */
KQ_API int32_t KQUpScale_ScaleImageFromROI(
    const KQYUVMultiPlaneImage* in, const KQYUVMultiPlaneImage* out,
    int32_t left, int32_t top, int32_t right, int32_t bottom,
    int32_t noiseReduction, int32_t chromaNoiseReduction, float sharpening,
    int32_t numThreads, int32_t affinityMask) KQ_NOEXCEPT;

/**
 * Computes an output size that the calls above accept for enlarging a source
 * by `scale` per side (below 1 it shrinks). Not exported: compiled into the
 * caller. The kqupscale tool sizes its outputs with it.
 *
 * @param width,height  the size the call enlarges: the input's width and
 *                height for a whole-image call; for a region, its width and
 *                height after clamping, each rounded down to a multiple of 4
 *                as the call rounds them.
 * @param scale   enlargement per side, a finite number above 0.
 * @param outWidth,outHeight  receive the size; written only on success.
 *
 * Both sides come out even, as 4:2:0 output needs, and at least 2. The
 * longer source side times `scale` is rounded to the nearest even number
 * (halves up: 641 x 3 = 1923 gives 1924); the shorter side is then taken
 * from that at the source's aspect ratio and rounded the same way. The call
 * does not stretch: when the output's aspect ratio differs from the
 * source's, it cuts the source at its right or bottom edge to the output's
 * ratio. Keeping the two ratios as close as even sizes allow keeps that cut
 * small: nothing when both scaled sides are even whole numbers (640x480 at
 * 2 or 1.5); for scales of 1 and more and a source at most twice as long
 * as wide, at most 2 source rows or columns (3 when a side is odd). A thin
 * source loses more, as its short output side can only be even.
 * @return 1 on success. 0 when the call would refuse every such size: width
 *         or height below 4, scale not a finite number above 0, a packed
 *         output luma plane (width * height bytes) above 0x7FFFFFFF bytes,
 *         or an output so small that the cut leaves less than 4x4 source
 *         pixels (a 6x4 source at 0.5 would give 4x2, a 3x4 cut).
 */
static inline int32_t KQUpScale_OutputSize(int32_t width, int32_t height, double scale,
                                           int32_t* outWidth, int32_t* outHeight) KQ_NOEXCEPT {
  const int wide = width >= height;
  const double longSide = wide ? width : height;
  const double shortSide = wide ? height : width;
  int64_t longOut, shortOut, w, h;
  float srcRatio, outRatio;
  /* `!(a < b)` also catches NaN and infinity. */
  if (width < 4 || height < 4 || !(scale > 0.0) || !(longSide * scale < 4294967296.0)) return 0;
  longOut = 2 * (int64_t)(longSide * scale / 2.0 + 0.5);
  if (longOut < 2) longOut = 2;
  if (longOut > 0x3FFFFFFF) return 0; /* the short side is at least 2 */
  shortOut = 2 * (int64_t)((double)longOut * shortSide / longSide / 2.0 + 0.5);
  if (shortOut < 2) shortOut = 2;
  w = wide ? longOut : shortOut;
  h = wide ? shortOut : longOut;
  if (w * h > 0x7FFFFFFF) return 0;
  /* The call's cut, in its single-precision arithmetic: it keeps
   * width / outRatio rows or outRatio * height columns, made even. */
  srcRatio = (float)width / (float)height;
  outRatio = (float)w / (float)h;
  if (srcRatio < outRatio && (float)width / outRatio < 4.0f) return 0;
  if (srcRatio > outRatio && outRatio * (float)height < 4.0f) return 0;
  *outWidth = (int32_t)w;
  *outHeight = (int32_t)h;
  return 1;
}

#ifdef __cplusplus
}
#endif

#endif /* KQUPSCALE_H */
