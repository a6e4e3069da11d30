package org.segmentationcore;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;

/** Undo, redo and reset: what each shows, and what canUndo and canRedo say along the way. */
class HistoryTest {
  private static final Scene SCENE = Scene.disc(320, 240);

  @Test
  void undoAndRedoShowEachRecordedMaskByteForByte() {
    try (CutoutSession session = CutoutSession.open(SCENE.width, SCENE.height, SCENE.argb)) {
      assertFalse(session.canUndo());
      assertFalse(session.canRedo());
      int[] box = SCENE.boxAround(20);
      byte[] boxed = Masks.of(session.box(box[0], box[1], box[2], box[3]));
      assertTrue(session.canUndo(), "undo would go back to no object");
      // The direct edit paints a line of background across the disc, 3 pixels either side of row y.
      int y = (int) SCENE.centreY;
      EditResult cut = session.cut(Mode.REMOVE, 3, box[0], y, box[2], y);
      assertEquals(Outcome.DONE, cut.outcome());
      byte[] painted = Masks.of(cut);
      assertLinePainted(boxed, painted, y, 3);

      EditResult back = session.undo();
      assertArrayEquals(boxed, Masks.of(back));
      assertTrue(session.canUndo());
      assertTrue(session.canRedo());
      EditResult none = session.undo();
      assertFalse(none.hasObject());
      assertEquals(0, Masks.objectPixels(Masks.of(none)));
      assertEquals(0, none.outline().length);
      assertFalse(session.canUndo());
      assertThrows(IllegalStateException.class, session::undo);

      assertArrayEquals(boxed, Masks.of(session.redo()));
      assertArrayEquals(painted, Masks.of(session.redo()));
      assertFalse(session.canRedo());
      assertThrows(IllegalStateException.class, session::redo);
    }
  }

  @Test
  void aNewResultDropsTheRedoStepsAndResetEmptiesTheHistory() {
    try (CutoutSession session = CutoutSession.open(SCENE.width, SCENE.height, SCENE.argb)) {
      int[] box = SCENE.boxAround(20);
      session.box(box[0], box[1], box[2], box[3]);
      int y = (int) SCENE.centreY;
      session.cut(Mode.REMOVE, 3, box[0], y, box[2], y);
      session.undo();
      assertTrue(session.canRedo());
      session.cut(Mode.ADD, 2, 5, 5, 40, 5);
      assertFalse(session.canRedo());

      EditResult reset = session.reset();
      assertFalse(reset.hasObject());
      assertEquals(0, Masks.objectPixels(Masks.of(reset)));
      assertFalse(session.canUndo());
      assertFalse(session.canRedo());
    }
  }

  @Test
  void anEarlierResultNoLongerLendsItsMaskOrPreviewButKeepsItsOutline() {
    try (CutoutSession session = CutoutSession.open(SCENE.width, SCENE.height, SCENE.argb)) {
      int[] box = SCENE.boxAround(20);
      EditResult first = session.box(box[0], box[1], box[2], box[3]);
      assertTrue(first.isCurrent());
      int[][] outline = first.outline();
      session.undo();
      assertFalse(first.isCurrent());
      assertThrows(IllegalStateException.class, first::mask);
      assertThrows(IllegalStateException.class, () -> first.drawPreview(new int[SCENE.width * SCENE.height]));
      assertNotEquals(0, first.outline().length);
      assertArrayEquals(outline, first.outline());
    }
  }

  /**
   * {@code after} is {@code before} with a horizontal line of background through row y: cleared within
   * {@code radius} rows of it, as it was beyond the line's pixel of anti-aliasing slack.
   */
  private static void assertLinePainted(byte[] before, byte[] after, int y, int radius) {
    for (int row = 0; row < SCENE.height; ++row) {
      int off = Math.abs(row - y);
      for (int x = 0; x < SCENE.width; ++x) {
        int p = row * SCENE.width + x;
        if (off <= radius) assertEquals(0, after[p], "on the line at (" + x + ", " + row + ")");
        if (off > radius + 1) assertEquals(before[p], after[p], "off the line at (" + x + ", " + row + ")");
      }
    }
    assertTrue(Masks.objectPixels(after) < Masks.objectPixels(before));
  }
}
