package org.segmentationcore;

import java.nio.ByteBuffer;
import java.util.function.LongConsumer;

/**
 * What an edit, undo, redo or reset left on show: the outcome, the object mask, its outline and the
 * preview. The mask and the preview are the session's and stay readable while this result is the one
 * shown; a later call replaces them. The outline and the time stay with the result.
 */
public final class EditResult {
  private final CutoutSession session; // null for a one-shot box cut, whose mask is its own
  private final int version;
  private final int width;
  private final int height;
  private final ByteBuffer mask;
  private final Outcome outcome;
  private final boolean hasObject;
  private final int[][] outline;
  private final long millis;

  EditResult(CutoutSession session, int version, int width, int height, ByteBuffer mask, Delivery delivery, long millis) {
    this.session = session;
    this.version = version;
    this.width = width;
    this.height = height;
    this.mask = mask;
    this.outcome = Outcome.values()[delivery.outcome];
    this.hasObject = delivery.hasObject;
    this.outline = delivery.outline;
    this.millis = millis;
  }

  public Outcome outcome() {
    return outcome;
  }

  /**
   * Whether a result is shown: false before the first, after undoing it and after a reset, when the
   * mask is all 0 and there is no outline.
   */
  public boolean hasObject() {
    return hasObject;
  }

  /** Wall time of the call, in milliseconds. */
  public long millis() {
    return millis;
  }

  public int width() {
    return width;
  }

  public int height() {
    return height;
  }

  /** Whether this result is still the one shown: its session is open and no later call replaced it. */
  public boolean isCurrent() {
    return session == null || session.isCurrent(version);
  }

  /**
   * The object mask: a read-only direct buffer of width x height bytes, row by row, 255 on the object
   * and 0 elsewhere (all 0 when no object is shown). It is the session's buffer, which the next call
   * rewrites: copy it to keep it.
   *
   * @throws IllegalStateException when this result is no longer the one shown
   */
  public ByteBuffer mask() {
    return session == null ? mask.asReadOnlyBuffer() : session.mask(version);
  }

  /**
   * The outline of the object: one polygon per contour, each x, y, x, y, ... in photo pixels. A copy:
   * the caller may keep and change it.
   */
  public int[][] outline() {
    int[][] copy = new int[outline.length][];
    for (int i = 0; i < outline.length; ++i) {
      copy[i] = outline[i].clone();
    }
    return copy;
  }

  /**
   * Draws the preview, the photo with the outline in opaque yellow, 0xAARRGGBB row by row, into the
   * first width x height pixels of {@code out}. On the session's thread only.
   *
   * @throws IllegalStateException when this result is no longer the one shown, or is a one-shot cut's
   */
  public void drawPreview(int[] out) {
    Checks.preview(out, width, height);
    drawPreviewWith(nativeSession -> NativeCalls.drawPreview(nativeSession, out));
  }

  /** Runs {@code draw} with the native session while this result is the one shown. */
  void drawPreviewWith(LongConsumer draw) {
    if (session == null) {
      throw new IllegalStateException("A one-shot box cut draws no preview: open a session for one.");
    }
    session.drawPreview(version, draw);
  }
}
