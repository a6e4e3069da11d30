package org.segmentationcore;

import com.sun.management.ThreadMXBean;
import java.awt.Graphics2D;
import java.awt.RenderingHints;
import java.awt.image.BufferedImage;
import java.io.File;
import java.lang.management.ManagementFactory;
import java.util.Arrays;
import javax.imageio.ImageIO;

/**
 * The binding's cost: the same box edit on a 12-megapixel photo through the Java API and straight through
 * the library's C calls, in one process, by process CPU time; and what the Java API allocates on the
 * Java heap per edit. Usage: BindingBenchmark PHOTO X1 Y1 X2 Y2 [ROUNDS].
 */
public final class BindingBenchmark {
  private static final double MEGAPIXELS = 12;
  private static final int EDITS_PER_ROUND = 3;

  private static final ThreadMXBean THREADS = (ThreadMXBean) ManagementFactory.getThreadMXBean();

  static {
    System.loadLibrary("segmentationcore_bench_jni");
  }

  private BindingBenchmark() {}

  private static native void openC(int width, int height, int[] argb, int threads);

  private static native int boxEditC(int x1, int y1, int x2, int y2);

  private static native void closeC();

  private static native long processCpuNanos();

  public static void main(String[] args) throws Exception {
    BufferedImage sample = ImageIO.read(new File(args[0]));
    double scale = Math.sqrt(MEGAPIXELS * 1e6 / ((double) sample.getWidth() * sample.getHeight()));
    int width = (int) Math.round(sample.getWidth() * scale), height = (int) Math.round(sample.getHeight() * scale);
    int[] argb = scaled(sample, width, height).getRGB(0, 0, width, height, null, 0, width);
    // The far corner is the last pixel before the scaled far edge.
    int[] box = {
      (int) (Integer.parseInt(args[1]) * scale), (int) (Integer.parseInt(args[2]) * scale),
      (int) ((Integer.parseInt(args[3]) + 1) * scale) - 1, (int) ((Integer.parseInt(args[4]) + 1) * scale) - 1
    };
    int rounds = args.length > 5 ? Integer.parseInt(args[5]) : 5;
    // One thread by default: the CPU time is then the edit's own, without a pool's waiting.
    CutoutSession.setThreads(Integer.getInteger("threads", 1));
    System.out.printf("%s at %d x %d (%.1f MP), box %s, %d threads, %d rounds of %d edits a side%n", args[0], width,
        height, width * (double) height / 1e6, Arrays.toString(box), CutoutSession.threads(), rounds, EDITS_PER_ROUND);

    double[] javaMs = new double[rounds * EDITS_PER_ROUND], cMs = new double[rounds * EDITS_PER_ROUND];
    long heapPerEdit = 0;
    for (int r = 0; r < rounds; ++r) {
      heapPerEdit = Math.max(heapPerEdit, javaRound(width, height, argb, box, javaMs, r * EDITS_PER_ROUND));
      cRound(width, height, argb, box, cMs, r * EDITS_PER_ROUND);
    }
    double java = median(javaMs), c = median(cMs);
    System.out.printf("box edit, CPU ms (median): Java API %.1f, C calls %.1f, binding overhead %+.1f%% (budget 5%%)%n",
        java, c, 100 * (java - c) / c);
    System.out.printf("Java heap allocated per edit: %.1f KB at most (the photo is %.1f MB)%n", heapPerEdit / 1024.0,
        4.0 * width * height / (1 << 20));
  }

  /** A session, a warm-up edit, then timed edits into {@code ms} from {@code at}; the most heap one took. */
  private static long javaRound(int width, int height, int[] argb, int[] box, double[] ms, int at) {
    long heapPerEdit = 0;
    try (CutoutSession session = CutoutSession.open(width, height, argb)) {
      session.box(box[0], box[1], box[2], box[3]);
      for (int k = 0; k < EDITS_PER_ROUND; ++k) {
        long heap = THREADS.getThreadAllocatedBytes(Thread.currentThread().getId());
        long cpu = processCpuNanos();
        session.box(box[0], box[1], box[2], box[3]);
        ms[at + k] = (processCpuNanos() - cpu) / 1e6;
        heapPerEdit = Math.max(heapPerEdit, THREADS.getThreadAllocatedBytes(Thread.currentThread().getId()) - heap);
      }
    }
    return heapPerEdit;
  }

  /** The same through the C calls. */
  private static void cRound(int width, int height, int[] argb, int[] box, double[] ms, int at) {
    openC(width, height, argb, CutoutSession.threads());
    try {
      boxEditC(box[0], box[1], box[2], box[3]);
      for (int k = 0; k < EDITS_PER_ROUND; ++k) {
        long cpu = processCpuNanos();
        boxEditC(box[0], box[1], box[2], box[3]);
        ms[at + k] = (processCpuNanos() - cpu) / 1e6;
      }
    } finally {
      closeC();
    }
  }

  private static BufferedImage scaled(BufferedImage image, int width, int height) {
    BufferedImage out = new BufferedImage(width, height, BufferedImage.TYPE_INT_RGB);
    Graphics2D g = out.createGraphics();
    g.setRenderingHint(RenderingHints.KEY_INTERPOLATION, RenderingHints.VALUE_INTERPOLATION_BICUBIC);
    g.drawImage(image, 0, 0, width, height, null);
    g.dispose();
    return out;
  }

  private static double median(double[] values) {
    double[] sorted = values.clone();
    Arrays.sort(sorted);
    return sorted[sorted.length / 2];
  }
}
