package org.segmentationcore;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** Each kind of misuse throws what the API says, and leaves the session working. */
class ArgumentsTest {
  private static final Scene SCENE = Scene.disc(200, 150);
  private static final int W = SCENE.width;
  private static final int H = SCENE.height;

  @Test
  void badPhotosAreRefusedAndNothingIsHeld() {
    assertThrows(NullPointerException.class, () -> CutoutSession.open(W, H, null));
    assertThrows(IllegalArgumentException.class, () -> CutoutSession.open(0, H, SCENE.argb));
    assertThrows(IllegalArgumentException.class, () -> CutoutSession.open(W, -1, SCENE.argb));
    assertThrows(IllegalArgumentException.class, () -> CutoutSession.open(W, H, new int[W * H - 1]));
    assertThrows(IllegalArgumentException.class, () -> CutoutSession.open(65536, 65536, SCENE.argb));
    assertThrows(IllegalArgumentException.class, () -> CutoutSession.cutBox(W, H, SCENE.argb, 10, 10, W, 20));
    assertThrows(IllegalArgumentException.class, () -> CutoutSession.setThreads(0));
    assertThrows(IllegalArgumentException.class, () -> CutoutSession.setThreads(1000));
    CutoutSession.open(W, H, SCENE.argb).close(); // none of them took the session's place
  }

  @Test
  void badMarksAreRefusedAndTheSessionWorksOn() {
    try (CutoutSession session = CutoutSession.open(W, H, SCENE.argb)) {
      int[] triangle = {10, 10, 100, 10, 50, 80};
      Executable[] outside = {
        () -> session.box(-1, 10, 100, 100), () -> session.box(10, 10, W, 100), () -> session.box(10, 10, 100, H),
        () -> session.loop(Mode.ADD, 10, 10, W, 10, 50, 80), () -> session.stroke(Mode.REMOVE, 4, 5, 5, 5, -5),
        () -> session.cut(Mode.ADD, 4, 5, H)
      };
      Executable[] malformed = {
        () -> session.box(50, 10, 50, 100), () -> session.box(60, 10, 50, 100),
        () -> session.loop(Mode.ADD, 10, 10, 100, 10), () -> session.loop(Mode.ADD, 10, 10, 100, 10, 50),
        () -> session.stroke(Mode.ADD, 4), () -> session.stroke(Mode.ADD, 4, 10, 10, 20),
        () -> session.cut(Mode.ADD, 4, 10)
      };
      Executable[] badRadius = {
        () -> session.stroke(Mode.ADD, 0, triangle), () -> session.cut(Mode.ADD, -3, triangle),
        () -> session.stroke(Mode.ADD, 1001, triangle)
      };
      Executable[] nulls = {
        () -> session.loop(null, triangle), () -> session.loop(Mode.ADD, (int[]) null),
        () -> session.stroke(Mode.ADD, 3, (int[]) null), () -> session.cut(null, 3, triangle)
      };
      for (Executable call : outside) assertThrows(IllegalArgumentException.class, call);
      for (Executable call : malformed) assertThrows(IllegalArgumentException.class, call);
      for (Executable call : badRadius) assertThrows(IllegalArgumentException.class, call);
      for (Executable call : nulls) assertThrows(NullPointerException.class, call);
      assertFalse(session.canUndo(), "no refused edit reached the history");

      int[] box = SCENE.boxAround(10);
      EditResult result = session.box(box[0], box[1], box[2], box[3]);
      assertEquals(Outcome.DONE, result.outcome());
      assertThrows(IllegalArgumentException.class, () -> result.drawPreview(new int[W * H - 1]));
      assertThrows(NullPointerException.class, () -> result.drawPreview(null));
      result.drawPreview(new int[W * H]);
      assertEquals(Outcome.DONE, session.cut(Mode.REMOVE, 1000, 5, 5).outcome(), "the widest brush");
    }
  }
}
