package org.segmentationcore;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** One session at a time, calls from its thread only, nothing after close. */
class GuardTest {
  private static final Scene SCENE = Scene.disc(200, 150);
  private static final int[] BOX = SCENE.boxAround(15);

  @Test
  void oneSessionAtATimeAndOneShotCutsWaitTheirTurn() {
    try (CutoutSession first = open()) {
      assertThrows(IllegalStateException.class, GuardTest::open);
      assertThrows(IllegalStateException.class, GuardTest::cutBox);
      assertEquals(Outcome.DONE, box(first).outcome(), "the refusals left the open session alone");
    }
    try (CutoutSession second = open()) {
      assertEquals(Outcome.DONE, box(second).outcome());
    }
  }

  @Test
  void aOneShotBoxCutGivesTheSessionsMaskAndNoPreview() {
    EditResult oneShot = cutBox();
    assertEquals(Outcome.DONE, oneShot.outcome());
    assertThrows(IllegalStateException.class, () -> oneShot.drawPreview(new int[SCENE.width * SCENE.height]));
    try (CutoutSession session = open()) {
      EditResult boxed = box(session);
      assertArrayEquals(Masks.of(boxed), Masks.of(oneShot));
      assertArrayEquals(boxed.outline(), oneShot.outline());
    }
  }

  @Test
  void everyCallAfterCloseThrowsAndCloseAgainDoesNothing() {
    CutoutSession session = open();
    EditResult result = box(session);
    session.close();
    assertTrue(session.isClosed());
    assertFalse(result.isCurrent());
    int[] xy = {BOX[0], BOX[1], BOX[2], BOX[1], BOX[2], BOX[3]};
    Executable[] calls = {
      () -> box(session), () -> session.loop(Mode.ADD, xy), () -> session.stroke(Mode.ADD, 3, xy),
      () -> session.cut(Mode.ADD, 3, xy), session::undo, session::redo, session::reset, session::canUndo,
      session::canRedo, result::mask, () -> result.drawPreview(new int[SCENE.width * SCENE.height])
    };
    for (Executable call : calls) {
      assertThrows(IllegalStateException.class, call);
    }
    assertFalse(session.cancel());
    session.close();
    assertEquals(1, result.outline().length, "a result keeps its outline");
  }

  @Test
  void anotherThreadMayOnlyCancelOrClose() throws Exception {
    CutoutSession session = open();
    EditResult result = box(session);
    ExecutorService other = Executors.newSingleThreadExecutor();
    try {
      Executable[] calls = {
        () -> box(session), session::undo, session::reset, session::canUndo, session::canRedo,
        () -> result.drawPreview(new int[SCENE.width * SCENE.height])
      };
      for (Executable call : calls) {
        Future<Throwable> thrown = other.submit(() -> assertThrows(IllegalStateException.class, call));
        assertTrue(thrown.get().getMessage().contains("belongs to thread"));
      }
      assertFalse(other.submit(session::cancel).get(), "no edit runs");
      assertTrue(session.canUndo(), "the refusals changed nothing");
      other.submit(session::close).get();
      assertTrue(session.isClosed());
      open().close(); // the session's place is free again
    } finally {
      other.shutdown();
      session.close();
    }
  }

  private static CutoutSession open() {
    return CutoutSession.open(SCENE.width, SCENE.height, SCENE.argb);
  }

  private static EditResult box(CutoutSession session) {
    return session.box(BOX[0], BOX[1], BOX[2], BOX[3]);
  }

  private static EditResult cutBox() {
    return CutoutSession.cutBox(SCENE.width, SCENE.height, SCENE.argb, BOX[0], BOX[1], BOX[2], BOX[3]);
  }
}
