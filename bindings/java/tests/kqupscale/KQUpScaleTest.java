package kqupscale;

import java.io.File;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * KQUpScale on a desktop JVM against the library's C call (run by the helper program named by the
 * first argument): the same bytes through every plane layout an Image may hand over, the
 * refusals, calls from several threads at once.
 */
public final class KQUpScaleTest {
  private static final byte MARK = 0x33;
  private static String helper;
  private static File work;
  private static int checks;
  private static int failures;

  private static void check(boolean ok, String what) {
    checks++;
    if (!ok) {
      failures++;
      System.err.println("FAILED: " + what);
    }
  }

  /** A smooth picture with noise as packed NV21: luma rows, then V,U rows, all w bytes. */
  static byte[] picture(int w, int h, int seed) {
    byte[] nv = new byte[w * h + w * (h / 2)];
    int s = 0x9E3779B9 * (seed + 1);
    for (int i = 0; i < nv.length; i++) {
      s ^= s << 13;
      s ^= s >>> 17;
      s ^= s << 5;
      int noise = (s >>> 24) % 25 - 12;
      int value;
      if (i < w * h) {
        int x = i % w, y = i / w;
        value = 96 + (int) (80 * Math.sin(x / 5.0) * Math.cos(y / 7.0)) + noise;
      } else {
        value = 128 + 3 * noise;
      }
      nv[i] = (byte) Math.max(0, Math.min(255, value));
    }
    return nv;
  }

  /**
   * The C call on a packed NV frame of format code `type`; returns the packed NV21 output.
   */
  static byte[] reference(byte[] nv, int w, int h, int ow, int oh, int type, int nr, int cnr,
                          float sharpening, int left, int top, int right, int bottom)
      throws IOException, InterruptedException {
    File in = new File(work, "in.yuv"), out = new File(work, "out.yuv");
    Files.write(in.toPath(), nv);
    Process p = new ProcessBuilder(helper, "" + w, "" + h, "" + ow, "" + oh, "" + type, "8",
        "" + nr, "" + cnr, "" + sharpening, "" + left, "" + top, "" + right, "" + bottom,
        in.getPath(), out.getPath()).inheritIO().start();
    if (p.waitFor() != 0) throw new IllegalStateException("reference call failed");
    return Files.readAllBytes(out.toPath());
  }

  static byte[] reference(byte[] nv, int w, int h, int ow, int oh)
      throws IOException, InterruptedException {
    return reference(nv, w, h, ow, oh, 8, 3, 4, 0.6f, -1, -1, -1, -1);
  }

  /** How a frame's planes lie in its direct buffer. */
  static final class Layout {
    final String name;
    final int yStride;      // luma row stride
    final int cStride;      // chroma row stride
    final String chroma;    // "vu", "uv": interleaved, that byte first; "planar": pixel stride 1
    final int lead;         // bytes before the luma: the planes' buffers start at a position
    final boolean tight;    // views end at their last sample, as Image planes do

    Layout(String name, int yStride, int cStride, String chroma, int lead, boolean tight) {
      this.name = name;
      this.yStride = yStride;
      this.cStride = cStride;
      this.chroma = chroma;
      this.lead = lead;
      this.tight = tight;
    }

    /** A frame with these planes holding packed NV21 `nv` (or MARK bytes only when null). */
    KQUpScale.Frame frame(byte[] nv, int w, int h) {
      int w2 = w / 2, h2 = h / 2;
      boolean planar = chroma.equals("planar");
      int cStart = lead + yStride * h + 5;
      int cBytes = planar ? cStride * h2 * 2 : cStride * h2;
      ByteBuffer all = ByteBuffer.allocateDirect(cStart + cBytes + 7);
      while (all.hasRemaining()) all.put(MARK);
      int uAt = planar ? cStart : chroma.equals("uv") ? cStart : cStart + 1;
      int vAt = planar ? cStart + cStride * h2 : chroma.equals("uv") ? cStart + 1 : cStart;
      int ps = planar ? 1 : 2;
      if (nv != null) {
        for (int r = 0; r < h; r++)
          for (int c = 0; c < w; c++) all.put(lead + r * yStride + c, nv[r * w + c]);
        for (int r = 0; r < h2; r++) {
          for (int i = 0; i < w2; i++) {
            all.put(vAt + r * cStride + i * ps, nv[w * h + r * w + 2 * i]);
            all.put(uAt + r * cStride + i * ps, nv[w * h + r * w + 2 * i + 1]);
          }
        }
      }
      int yEnd = tight ? lead + (h - 1) * yStride + w : all.capacity();
      int cLen = (h2 - 1) * cStride + (w2 - 1) * ps + 1;
      return new KQUpScale.Frame(w, h, view(all, lead, yEnd, false), yStride, 1,
          view(all, uAt, tight ? uAt + cLen : all.capacity(), true), cStride, ps,
          view(all, vAt, tight ? vAt + cLen : all.capacity(), true), cStride, ps);
    }
  }

  /** A view of [from, to): positioned in a duplicate, or as a slice starting at 0. */
  static ByteBuffer view(ByteBuffer all, int from, int to, boolean slice) {
    ByteBuffer d = all.duplicate();
    d.limit(to);
    d.position(from);
    return slice ? d.slice() : d;
  }

  static int at(KQUpScale.Frame f, int plane, int row, int column) {
    ByteBuffer b = f.planes[plane];
    return b.get(b.position() + row * f.rowStrides[plane] + column * f.pixelStrides[plane]);
  }

  /** A frame's samples as packed NV21, read at its strides. */
  static byte[] samples(KQUpScale.Frame f) {
    int w = f.width, h = f.height;
    byte[] nv = new byte[w * h + w * (h / 2)];
    for (int r = 0; r < h; r++)
      for (int c = 0; c < w; c++) nv[r * w + c] = (byte) at(f, 0, r, c);
    for (int r = 0; r < h / 2; r++) {
      for (int i = 0; i < w / 2; i++) {
        nv[w * h + r * w + 2 * i] = (byte) at(f, 2, r, i);
        nv[w * h + r * w + 2 * i + 1] = (byte) at(f, 1, r, i);
      }
    }
    return nv;
  }

  /** Whether the luma row padding and the bytes before the luma still hold MARK. */
  static boolean lumaPaddingKept(KQUpScale.Frame f, Layout layout) {
    ByteBuffer b = f.planes[0];
    for (int i = 0; i < layout.lead; i++) {
      if (b.get(i) != MARK) return false;
    }
    for (int r = 0; r < f.height - 1; r++) {
      for (int c = f.width; c < layout.yStride; c++) {
        if (b.get(layout.lead + r * layout.yStride + c) != MARK) return false;
      }
    }
    return true;
  }

  /** A packed NV21 frame holding `nv`, or MARK bytes only when null. */
  static KQUpScale.Frame packed(byte[] nv, int w, int h) {
    ByteBuffer b = ByteBuffer.allocateDirect(w * h + w * (h / 2));
    if (nv != null) {
      b.put(nv);
    } else {
      while (b.hasRemaining()) b.put(MARK);
    }
    b.rewind();
    return KQUpScale.Frame.packed(b, w, h, w, false);
  }

  static void testMatchesTheCCall() throws Exception {
    int w = 64, h = 48;
    byte[] in = picture(w, h, 1);
    KQUpScale.Options defaults = new KQUpScale.Options();
    byte[] ref = reference(in, w, h, 256, 192);
    for (int threads : new int[] {0, 2, -2}) {
      KQUpScale.Frame out = packed(null, 256, 192);
      KQUpScale.upscale(packed(in, w, h), out, new KQUpScale.Options().threads(threads));
      check(Arrays.equals(samples(out), ref), "defaults, threads " + threads);
    }
    KQUpScale.Frame out = packed(null, 200, 100);
    KQUpScale.upscale(packed(in, w, h), out,
        new KQUpScale.Options().noiseReduction(0).chromaNoiseReduction(0).sharpening(0));
    check(Arrays.equals(samples(out), reference(in, w, h, 200, 100, 8, 0, 0, 0f, -1, -1, -1, -1)),
        "bare warp with an aspect cut");
    out = packed(null, 160, 120);
    KQUpScale.upscale(packed(in, w, h), 8, 4, 48, 34, out, defaults);
    check(Arrays.equals(samples(out), reference(in, w, h, 160, 120, 8, 3, 4, 0.6f, 8, 4, 47, 33)),
        "region");
    // An odd left edge: the C call with the byte order exchanged keeps U as U.
    out = packed(null, 160, 120);
    KQUpScale.upscale(packed(in, w, h), 5, 3, 46, 33, out, defaults);
    check(Arrays.equals(samples(out), reference(in, w, h, 160, 120, 9, 3, 4, 0.6f, 5, 3, 45, 32)),
        "region with an odd left edge");
  }

  static void testPlaneLayouts() throws Exception {
    int w = 64, h = 48, ow = 192, oh = 144;
    byte[] in = picture(w, h, 2);
    byte[] ref = reference(in, w, h, ow, oh);
    Layout[] inputs = {
        new Layout("Image planes, V first", 80, 80, "vu", 0, true),
        new Layout("Image planes, U first", 80, 80, "uv", 0, true),
        new Layout("planar chroma", 72, 40, "planar", 0, true),
        new Layout("chroma at a stride of its own", 80, 96, "vu", 0, false),
        new Layout("packed at a position", 64, 64, "vu", 13, false),
    };
    Layout[] outputs = {
        new Layout("Image planes, V first", 208, 208, "vu", 0, true),
        new Layout("Image planes, U first", 200, 200, "uv", 3, true),
        new Layout("padded rows, whole buffer", 208, 208, "vu", 0, false),
        new Layout("planar chroma", 200, 100, "planar", 0, true),
        new Layout("chroma at a stride of its own", 192, 200, "uv", 0, false),
        new Layout("packed", 192, 192, "vu", 0, false),
    };
    for (Layout li : inputs) {
      for (Layout lo : outputs) {
        KQUpScale.Frame src = li.frame(in, w, h);
        byte[] before = samples(src);
        KQUpScale.Frame out = lo.frame(null, ow, oh);
        KQUpScale.upscale(src, out);
        String name = li.name + " -> " + lo.name;
        check(Arrays.equals(samples(out), ref), name + ": output bytes");
        check(lumaPaddingKept(out, lo), name + ": luma padding kept");
        check(Arrays.equals(samples(src), before), name + ": input unchanged");
      }
    }
  }

  interface Call {
    void run(KQUpScale.Frame out);
  }

  static void refused(String name, String reason, Call call) {
    KQUpScale.Frame out = packed(null, 128, 96);
    try {
      call.run(out);
      check(false, name + ": no exception");
    } catch (IllegalArgumentException e) {
      check(e.getMessage().contains(reason), name + ": message '" + e.getMessage() + "'");
    }
    byte[] after = samples(out);
    boolean kept = true;
    for (byte b : after) kept &= b == MARK;
    check(kept, name + ": output untouched");
  }

  static void testRefusals() {
    int w = 64, h = 48;
    byte[] nv = picture(w, h, 3);
    Layout image = new Layout("Image planes", 80, 80, "vu", 0, true);
    KQUpScale.Frame in = image.frame(nv, w, h);
    KQUpScale.Options defaults = new KQUpScale.Options();
    refused("heap buffer", "not a direct ByteBuffer", out -> KQUpScale.upscale(
        KQUpScale.Frame.packed(ByteBuffer.allocate(w * h * 3 / 2), w, h, w, false), out));
    refused("luma a byte short", "input luma plane holds", out -> {
      KQUpScale.Frame f = image.frame(nv, w, h);
      f.planes[0].limit(f.planes[0].limit() - 1);
      KQUpScale.upscale(f, out);
    });
    refused("U a byte short", "input U plane holds", out -> {
      KQUpScale.Frame f = image.frame(nv, w, h);
      f.planes[1].limit(f.planes[1].limit() - 1);
      KQUpScale.upscale(f, out);
    });
    refused("luma pixel stride 2", "1 byte apart", out -> KQUpScale.upscale(
        new KQUpScale.Frame(w / 2, h, in.planes[0], 80, 2, in.planes[1], 80, 2, in.planes[2], 80,
            2), out));
    refused("row stride below the width", "row stride", out -> KQUpScale.upscale(
        new KQUpScale.Frame(w, h, in.planes[0], 60, 1, in.planes[1], 80, 2, in.planes[2], 80, 2),
        out));
    refused("3x3 input", "smaller than 4x4", out -> KQUpScale.upscale(
        new Layout("small", 3, 3, "vu", 0, false).frame(picture(3, 3, 0), 3, 3), out));
    refused("1x1 output", "below 2x2", out -> KQUpScale.upscale(in, new KQUpScale.Frame(1, 1,
        ByteBuffer.allocateDirect(4), 1, 1, ByteBuffer.allocateDirect(4), 1, 2,
        ByteBuffer.allocateDirect(4), 1, 2)));
    refused("region outside", "does not lie inside",
        out -> KQUpScale.upscale(in, 60, 0, 70, 8, out, defaults));
    refused("region below 4x4", "smaller than 4x4",
        out -> KQUpScale.upscale(in, 0, 0, 3, 40, out, defaults));
    refused("aspect cut", "less than 4x4", out -> KQUpScale.upscale(in, packed(null, 1000, 2)));
    refused("negative sharpening", "sharpening",
        out -> KQUpScale.upscale(in, out, new KQUpScale.Options().sharpening(-1)));
    refused("read-only output", "read-only", out -> KQUpScale.upscale(in, new KQUpScale.Frame(
        128, 96, out.planes[0].asReadOnlyBuffer(), 128, 1, out.planes[1], 128, 2, out.planes[2],
        128, 2)));
    refused("output chroma inside its luma", "share bytes", out -> KQUpScale.upscale(in,
        new KQUpScale.Frame(128, 96, out.planes[0], 128, 1, view(out.planes[0], 1, 7000, true),
            128, 2, view(out.planes[0], 0, 7000, true), 128, 2)));
    try {
      KQUpScale.upscale(in, null);
      check(false, "null output: no exception");
    } catch (NullPointerException e) {
      check(true, "null output");
    }
  }

  static void testThreads() throws Exception {
    final int n = 6;
    final byte[][] inputs = new byte[n][], refs = new byte[n][], results = new byte[n][];
    final int[] threadCounts = {0, 2, -2, 0, 3, 1};
    for (int i = 0; i < n; i++) {
      inputs[i] = picture(64 + 8 * i, 48, i);
      refs[i] = reference(inputs[i], 64 + 8 * i, 48, 160 + 16 * i, 120);
    }
    List<Thread> workers = new ArrayList<>();
    for (int t = 0; t < n; t++) {
      final int i = t;
      workers.add(new Thread(() -> {
        for (int k = 0; k < 3; k++) {
          KQUpScale.Frame out = packed(null, 160 + 16 * i, 120);
          KQUpScale.upscale(packed(inputs[i], 64 + 8 * i, 48), out,
              new KQUpScale.Options().threads(threadCounts[i]));
          results[i] = samples(out);
        }
      }));
    }
    for (Thread t : workers) t.start();
    for (Thread t : workers) t.join();
    for (int i = 0; i < n; i++) check(Arrays.equals(results[i], refs[i]), "thread " + i);
  }

  public static void main(String[] args) throws Exception {
    helper = args[0];
    work = Files.createTempDirectory("kqupscale-java").toFile();
    try {
      check(KQUpScale.version().startsWith("KQUpScale v1.3.0 ("), "version");
      testMatchesTheCCall();
      testPlaneLayouts();
      testRefusals();
      testThreads();
    } finally {
      for (File f : work.listFiles()) f.delete();
      work.delete();
    }
    System.out.println(checks + " checks, " + failures + " failed");
    if (failures > 0) System.exit(1);
  }
}
