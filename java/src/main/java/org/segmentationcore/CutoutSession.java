package org.segmentationcore;

import java.nio.ByteBuffer;
import java.util.function.LongConsumer;
import java.util.function.LongPredicate;
import java.util.function.IntToLongFunction;

/**
 * Cuts an object out of one photo with a few marks: a box, closed loops and brush strokes that add to
 * or remove from the object. Each edit answers with an {@link EditResult}: its outcome, the object
 * mask, the outline and a way to draw the preview. Every result goes into an undo/redo history.
 *
 * <pre>{@code
 * try (CutoutSession session = CutoutSession.open(width, height, argb)) {
 *   EditResult result = session.box(72, 14, 482, 392);
 *   if (result.outcome() == Outcome.DONE) show(result.mask());
 * }
 * }</pre>
 *
 * <p><b>One session at a time.</b> The native library keeps one session per process: {@link #open}
 * throws {@link IllegalStateException} while another session is open or a {@link #cutBox one-shot
 * cut} runs. Close every session; try-with-resources does.
 *
 * <p><b>Threads.</b> The thread that opens a session owns it, and every call but {@link #cancel()},
 * {@link #close()} and {@link #isClosed()} must come from it; from any other thread they throw
 * {@link IllegalStateException}. Edits block for as long as the cut takes, up to about 10 seconds on a
 * large photo, so open and edit on a background thread (a single-thread executor, say), never on the
 * UI thread. {@link #cancel()} and {@link #close()} may come from any thread, the UI's included.
 *
 * <p><b>Misuse</b> is refused before anything reaches the library and changes nothing: bad values throw
 * {@link IllegalArgumentException} (null arrays {@link NullPointerException}); calls after
 * {@link #close()}, from the wrong thread, or an undo or redo with nothing to step over throw
 * {@link IllegalStateException}.
 */
public final class CutoutSession implements AutoCloseable {
  private static final int MAX_RADIUS = NativeCalls.maxRadius();
  private static final int MAX_THREADS = NativeCalls.maxThreads();
  private static volatile int threads = NativeCalls.defaultThreads();

  private final int width;
  private final int height;
  // The mask now shown, 255 on the object: one buffer for the session's life, rewritten by each call.
  private final ByteBuffer alpha;
  private final CallGate gate;

  private CutoutSession(int width, int height, ByteBuffer alpha, long handle) {
    this.width = width;
    this.height = height;
    this.alpha = alpha;
    this.gate = new CallGate(handle);
  }

  /**
   * Opens a session on a photo of {@code width x height} pixels, 0xAARRGGBB row by row as {@code
   * Bitmap.getPixels} gives them (alpha is ignored). The pixels are copied; the calling thread owns the
   * session.
   */
  public static CutoutSession open(int width, int height, int[] argb) {
    Checks.photo(width, height, argb);
    return openWith(width, height, threadCount -> NativeCalls.open(width, height, argb, threadCount));
  }

  /** Opens through {@code nativeOpen}, which takes the thread count and returns the native handle. */
  static CutoutSession openWith(int width, int height, IntToLongFunction nativeOpen) {
    SessionGuard.claim("a session opened on thread \"" + Thread.currentThread().getName() + "\"");
    try {
      ByteBuffer alpha = ByteBuffer.allocateDirect(width * height);
      return new CutoutSession(width, height, alpha, nativeOpen.applyAsLong(threads));
    } catch (RuntimeException | Error e) {
      SessionGuard.release();
      throw e;
    }
  }

  /**
   * A one-shot box cut, without a session or a history: the object inside the box, corners inclusive.
   * It uses the library's one session, so it throws {@link IllegalStateException} while a session is
   * open. Its result has no preview.
   */
  public static EditResult cutBox(int width, int height, int[] argb, int x1, int y1, int x2, int y2) {
    Checks.photo(width, height, argb);
    Checks.box(x1, y1, x2, y2, width, height);
    SessionGuard.claim("a one-shot box cut on thread \"" + Thread.currentThread().getName() + "\"");
    try {
      ByteBuffer mask = ByteBuffer.allocateDirect(width * height);
      long start = System.nanoTime();
      Delivery delivery = NativeCalls.cutBox(width, height, argb, x1, y1, x2, y2, threads, mask);
      return new EditResult(null, 0, width, height, mask, delivery, millisSince(start));
    } finally {
      SessionGuard.release();
    }
  }

  /**
   * How many threads an edit may use, for sessions opened from now on: 1 keeps an edit on the
   * calling thread. The default is the number of cores, up to 4. Results do not depend on it.
   */
  public static void setThreads(int count) {
    Checks.threads(count, MAX_THREADS);
    threads = count;
  }

  public static int threads() {
    return threads;
  }

  public int width() {
    return width;
  }

  public int height() {
    return height;
  }

  /** A segmentation from a box, corners inclusive: its inside is probably the object. */
  public EditResult box(int x1, int y1, int x2, int y2) {
    Checks.box(x1, y1, x2, y2, width, height);
    return edit(NativeCalls.BOX, Mode.ADD, -1, new int[] {x1, y1, x2, y2});
  }

  /** A segmentation from a closed loop of at least 3 points, x, y pairs: its inside is added or removed. */
  public EditResult loop(Mode mode, int... xy) {
    Checks.mode(mode);
    return edit(NativeCalls.LOOP, mode, -1, Checks.points(xy, 3, width, height, "The loop"));
  }

  /**
   * A segmentation from a brush line through the points, x, y pairs, reaching {@code radius} pixels (1 to
   * 1000) either side of them.
   */
  public EditResult stroke(Mode mode, int radius, int... xy) {
    Checks.mode(mode);
    Checks.radius(radius, MAX_RADIUS);
    return edit(NativeCalls.STROKE, mode, radius, Checks.points(xy, 1, width, height, "The stroke"));
  }

  /**
   * A direct edit without a segmentation: the pixels of a brush line as {@link #stroke}'s become object or
   * background.
   */
  public EditResult cut(Mode mode, int radius, int... xy) {
    Checks.mode(mode);
    Checks.radius(radius, MAX_RADIUS);
    return edit(NativeCalls.CUT, mode, radius, Checks.points(xy, 1, width, height, "The cut"));
  }

  /** Goes back to the previous result, or to no object before the first. */
  public EditResult undo() {
    return step(session -> NativeCalls.undo(session, alpha), "There is nothing to undo.");
  }

  /** Goes forward again after an undo. */
  public EditResult redo() {
    return step(session -> NativeCalls.redo(session, alpha), "There is nothing to redo.");
  }

  /** Starts over on the same photo: no object, the history emptied. */
  public EditResult reset() {
    return step(session -> NativeCalls.reset(session, alpha), null);
  }

  /** Whether {@link #undo()} would change what is shown: while a result is shown. */
  public boolean canUndo() {
    return ask(NativeCalls::canUndo);
  }

  /**
   * Whether {@link #redo()} has a step to go forward to. A new result drops the redo steps, and so does
   * an edit cancelled after it had recorded its result.
   */
  public boolean canRedo() {
    return ask(NativeCalls::canRedo);
  }

  /**
   * Any thread: stops the edit that runs, which then returns {@link Outcome#CANCELLED} promptly, with
   * what is shown and the history as they were. False when no edit runs: nothing lingers to stop a later
   * one.
   */
  public boolean cancel() {
    return gate.cancel();
  }

  /**
   * Any thread, any number of times: ends the session and releases its native memory. A running edit
   * is cancelled and waited for. Results of the session keep their outlines but no longer give a mask
   * or a preview.
   */
  @Override
  public void close() {
    if (gate.close(NativeCalls::close)) {
      SessionGuard.release();
    }
  }

  public boolean isClosed() {
    return gate.isClosed();
  }

  // ---- for EditResult ---------------------------------------------------------------

  boolean isCurrent(int version) {
    return gate.isCurrent(version);
  }

  ByteBuffer mask(int version) {
    checkCurrent(version);
    return alpha.asReadOnlyBuffer();
  }

  /** Runs {@code draw} with the native session while the result of {@code version} is shown. */
  void drawPreview(int version, LongConsumer draw) {
    long session = gate.enter();
    try {
      checkCurrent(version);
      draw.accept(session);
    } finally {
      gate.leave();
    }
  }

  // ---- calls on the owner thread ------------------------------------------------------

  private interface NativeDelivery {
    Delivery call(long session);
  }

  /**
   * Runs an edit. From its start until the owner takes the native side's answer, a cancel raises the
   * library's request: one that comes before the library starts to cut still stops it, and none is left
   * over for the next edit, since finishEdit clears it.
   */
  private EditResult edit(int kind, Mode mode, int radius, int[] xy) {
    long session = gate.enter();
    try {
      long start = System.nanoTime();
      gate.beginEdit();
      Delivery delivery;
      try {
        NativeCalls.edit(session, kind, mode == Mode.ADD, radius, xy);
      } finally {
        // After a failure too: the answer clears a request the edit leaves.
        delivery = NativeCalls.finishEdit(session, gate.endEdit(), alpha);
      }
      return result(delivery, start);
    } finally {
      gate.leave();
    }
  }

  private boolean ask(LongPredicate question) {
    long session = gate.enter();
    try {
      return question.test(session);
    } finally {
      gate.leave();
    }
  }

  /** Runs a history step; a null delivery means it refused, with {@code refusal}. */
  private EditResult step(NativeDelivery body, String refusal) {
    long session = gate.enter();
    try {
      long start = System.nanoTime();
      Delivery delivery = body.call(session);
      if (delivery == null) {
        throw new IllegalStateException(refusal);
      }
      return result(delivery, start);
    } finally {
      gate.leave();
    }
  }

  private EditResult result(Delivery delivery, long startNanos) {
    return new EditResult(this, gate.nextVersion(), width, height, alpha, delivery, millisSince(startNanos));
  }

  private void checkCurrent(int version) {
    if (!isCurrent(version)) {
      throw new IllegalStateException(
          "This result is no longer shown: a later call (or close) replaced it. Copy a mask to keep it.");
    }
  }

  private static long millisSince(long startNanos) {
    return (System.nanoTime() - startNanos) / 1_000_000;
  }
}
