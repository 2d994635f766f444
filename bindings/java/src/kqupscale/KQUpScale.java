package kqupscale;

import java.nio.Buffer;
import java.nio.ByteBuffer;

/**
 * Enlarges a YUV 4:2:0 frame held in direct {@link ByteBuffer}s with libKQUpScale.
 *
 * <p>A {@link Frame} describes the three planes as {@code android.media.Image.Plane} hands them
 * over: a buffer, a row stride and a pixel stride each. Each plane starts at its buffer's
 * position, and its remaining bytes must hold the plane's samples. Luma samples are 1 byte apart.
 * Chroma is read where it lies when U and V are two views of one interleaved plane (pixel stride
 * 2, one byte apart, the luma's row stride); the byte order follows from the view that starts
 * first (V first: NV21, U first: NV12). Any other chroma layout (planar, or rows at a stride of
 * their own) is copied through a scratch plane on the way in and on the way out, as the library
 * reads and writes chroma at the luma's row stride. Output chroma written where it lies gets its
 * row padding set to 128; through the scratch plane only the samples are written.
 *
 * <p>A call the library would refuse, non-direct buffers, read-only output buffers and buffers too
 * small for their strides and heights throw {@link IllegalArgumentException} with the reason
 * before anything is read or written. Calls on different threads may run at once.
 */
public final class KQUpScale {
  static {
    System.loadLibrary("kqupscale_jni");
  }

  private KQUpScale() {}

  /** One 4:2:0 frame: width x height luma samples, (width / 2) x (height / 2) U and V samples. */
  public static final class Frame {
    final int width;
    final int height;
    final ByteBuffer[] planes;
    final int[] rowStrides;
    final int[] pixelStrides;

    /**
     * A frame from its three planes, as {@code Image.getPlanes()} gives them (0: Y, 1: U, 2: V).
     */
    public Frame(int width, int height,
                 ByteBuffer y, int yRowStride, int yPixelStride,
                 ByteBuffer u, int uRowStride, int uPixelStride,
                 ByteBuffer v, int vRowStride, int vPixelStride) {
      if (y == null || u == null || v == null) {
        throw new NullPointerException("a plane buffer is null");
      }
      this.width = width;
      this.height = height;
      this.planes = new ByteBuffer[] {y, u, v};
      this.rowStrides = new int[] {yRowStride, uRowStride, vRowStride};
      this.pixelStrides = new int[] {yPixelStride, uPixelStride, vPixelStride};
    }

    /**
     * A frame packed in one buffer from its position on: {@code height} luma rows of {@code
     * rowStride} bytes, then {@code height / 2} rows of interleaved chroma at the same stride, in
     * V,U order ({@code nv12} false) or U,V order.
     */
    public static Frame packed(ByteBuffer frame, int width, int height, int rowStride,
                               boolean nv12) {
      long lumaBytes = (long) rowStride * height;
      if (rowStride < 1 || height < 1 || lumaBytes + 2 > frame.remaining()) {
        throw new IllegalArgumentException("a packed " + width + "x" + height + " frame at row "
            + "stride " + rowStride + " does not fit the buffer's " + frame.remaining()
            + " bytes");
      }
      int chroma = frame.position() + (int) lumaBytes;
      ByteBuffer first = view(frame, chroma);
      ByteBuffer second = view(frame, chroma + 1);
      ByteBuffer u = nv12 ? first : second;
      ByteBuffer v = nv12 ? second : first;
      return new Frame(width, height, view(frame, frame.position()), rowStride, 1,
          u, rowStride, 2, v, rowStride, 2);
    }

    private static ByteBuffer view(ByteBuffer buffer, int position) {
      ByteBuffer view = buffer.duplicate();
      ((Buffer) view).position(position);  // Buffer's method: also under Java 8
      return view.slice();
    }

    int[] geometry() {
      int[] g = new int[14];
      g[0] = width;
      g[1] = height;
      for (int i = 0; i < 3; i++) {
        g[2 + 4 * i] = planes[i].position();
        g[3 + 4 * i] = planes[i].remaining();
        g[4 + 4 * i] = rowStrides[i];
        g[5 + 4 * i] = pixelStrides[i];
      }
      return g;
    }
  }

  /** Strengths and threads of a call; the defaults are the command-line tool's. */
  public static final class Options {
    int noiseReduction = 3;
    int chromaNoiseReduction = 4;
    float sharpening = 0.6f;
    int threads = 0;

    /** Luma noise reduction, useful range 1..10; 0 switches it off. */
    public Options noiseReduction(int strength) {
      noiseReduction = strength;
      return this;
    }

    /** Chroma noise reduction 1..10; 0 switches it off. */
    public Options chromaNoiseReduction(int strength) {
      chromaNoiseReduction = strength;
      return this;
    }

    /** Sharpening strength, 0 or more (0: off, about 1 typical). */
    public Options sharpening(float strength) {
      sharpening = strength;
      return this;
    }

    /**
     * 0 or 1: the calling thread; n &gt; 1: a process-wide pool of n threads; n &lt; 0: |n|
     * threads started for each step. The bytes are the same for every count.
     */
    public Options threads(int count) {
      threads = count;
      return this;
    }
  }

  /** The library's version string. */
  public static native String version();

  /** Enlarges the whole of {@code in} to the size of {@code out}, with the default options. */
  public static void upscale(Frame in, Frame out) {
    upscale(in, out, new Options());
  }

  /** Enlarges the whole of {@code in} to the size of {@code out}. */
  public static void upscale(Frame in, Frame out, Options options) {
    run(in, null, out, options);
  }

  /**
   * Enlarges a region of {@code in} to the size of {@code out}. The region is given as {@code
   * android.graphics.Rect} holds it (as {@code Image.getCropRect()} returns it): left and top
   * inclusive, right and bottom exclusive. It must lie inside the frame; its sides are rounded
   * down to multiples of 4 and it is cut at the right or bottom to the output's aspect ratio. An
   * odd left edge takes each U from the pair left of its V.
   */
  public static void upscale(Frame in, int left, int top, int right, int bottom, Frame out,
                             Options options) {
    run(in, new int[] {left, top, right - left, bottom - top}, out, options);
  }

  private static void run(Frame in, int[] region, Frame out, Options options) {
    if (in == null || out == null || options == null) {
      throw new NullPointerException("a frame or the options are null");
    }
    String[] names = {"Y", "U", "V"};
    for (int i = 0; i < 3; i++) {
      if (out.planes[i].isReadOnly()) {
        throw new IllegalArgumentException("output " + names[i] + " buffer is read-only");
      }
    }
    nativeUpscale(in.planes[0], in.planes[1], in.planes[2], in.geometry(),
        out.planes[0], out.planes[1], out.planes[2], out.geometry(), region,
        options.noiseReduction, options.chromaNoiseReduction, options.sharpening,
        options.threads);
  }

  // geometry: width, height, then for Y, U and V: position, remaining, row stride, pixel
  // stride. region: null (the whole frame) or x, y, width, height.
  private static native void nativeUpscale(ByteBuffer inY, ByteBuffer inU, ByteBuffer inV,
      int[] inGeometry, ByteBuffer outY, ByteBuffer outU, ByteBuffer outV, int[] outGeometry,
      int[] region, int noiseReduction, int chromaNoiseReduction, float sharpening, int threads);

  /** Prints the library's version ({@code java -jar KQUpScale.jar}). */
  public static void main(String[] args) {
    System.out.println(version());
  }
}
