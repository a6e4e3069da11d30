package org.segmentationcore;

import java.nio.ByteBuffer;

/**
 * The JNI glue's entry points. Callers have checked every argument and hold
 * the session guard; a session handle is live from {@link #open} to
 * {@link #close}.
 */
final class NativeCalls {
  // Step kinds of edit(), as the glue reads them.
  static final int BOX = 0;
  static final int LOOP = 1;
  static final int STROKE = 2;
  static final int CUT = 3;

  // Outcomes in Delivery, in the order of Outcome's constants.
  static final int DONE = 0;
  static final int CANCELLED = 1;
  static final int TIMED_OUT = 2;
  static final int NO_RESULT = 3;

  static {
    System.loadLibrary("segmentationcore_jni");
  }

  private NativeCalls() {}

  /** The widest brush radius the marks are drawn with. */
  static native int maxRadius();

  /** The most threads an edit may use. */
  static native int maxThreads();

  /** The threads an edit uses unless the app says otherwise: the cores, at most four. */
  static native int defaultThreads();

  /** A session on a copy of the pixels; the handle of its native side. */
  static native long open(int width, int height, int[] argb, int threads);

  static native void close(long session);

  /** Marks and cuts a box (x1, y1, x2, y2), loop, stroke or cut; finishEdit says what became of it. */
  static native void edit(long session, int kind, boolean add, int radius, int[] xy);

  /**
   * The outcome of the edit just run, {@code cancelled} when cancelEdit was called while it ran; a new
   * mask goes into {@code alpha}, which is left alone when nothing changed.
   */
  static native Delivery finishEdit(long session, boolean cancelled, ByteBuffer alpha);

  /** Any thread, only while an edit runs: asks it to stop (the library's request lasts until finishEdit). */
  static native void cancelEdit();

  /** Null, with nothing changed, when there is nothing to undo. */
  static native Delivery undo(long session, ByteBuffer alpha);

  /** Null, with nothing changed, when there is nothing to redo. */
  static native Delivery redo(long session, ByteBuffer alpha);

  static native Delivery reset(long session, ByteBuffer alpha);

  static native boolean canUndo(long session);

  static native boolean canRedo(long session);

  /** The preview now shown: the photo with the outline in yellow, 0xAARRGGBB. */
  static native void drawPreview(long session, int[] out);

  /** The one-shot box cut: a library session of its own, torn down after. */
  static native Delivery cutBox(
      int width, int height, int[] argb, int x1, int y1, int x2, int y2, int threads, ByteBuffer alpha);
}
