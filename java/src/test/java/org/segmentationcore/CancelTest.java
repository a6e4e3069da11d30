package org.segmentationcore;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.Executors;
import java.util.concurrent.ScheduledExecutorService;
import java.util.concurrent.ScheduledFuture;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;

/**
 * Cancel and close from another thread while an edit runs on a 12-megapixel photo: the edit ends
 * promptly as CANCELLED, nothing changes, and the next edit is the one it would have been.
 */
class CancelTest {
  // From the cancel to the edit's return: 200 ms, more in a sanitized build (the build says).
  private static final long PROMPT_MS = Long.getLong("segmentationcore.promptMillis", 200);
  // Well inside a box edit at this size, which takes several times as long.
  private static final long CANCEL_AFTER_MS = 100;

  private static Scene scene;
  private static ScheduledExecutorService other;

  @BeforeAll
  static void photo() {
    scene = Scene.disc(4000, 3000);
    other = Executors.newSingleThreadScheduledExecutor();
  }

  @AfterAll
  static void stop() {
    other.shutdown();
  }

  /** A first result: a strip across the photo's top painted as object. */
  private static EditResult cut(CutoutSession session) {
    return session.cut(Mode.ADD, 10, 100, 100, 3900, 100);
  }

  private static EditResult box(CutoutSession session) {
    int[] box = scene.boxAround(200);
    return session.box(box[0], box[1], box[2], box[3]);
  }

  @Test
  void aCancelledEditChangesNothingAndTheNextEditIsAsIfNoneHadBeen() throws Exception {
    byte[] expected;
    try (CutoutSession session = CutoutSession.open(scene.width, scene.height, scene.argb)) {
      cut(session);
      expected = Masks.of(box(session));
    }
    try (CutoutSession session = CutoutSession.open(scene.width, scene.height, scene.argb)) {
      byte[] painted = Masks.of(cut(session));
      long[] cancelledAt = new long[1];
      ScheduledFuture<Boolean> cancel = other.schedule(() -> {
        cancelledAt[0] = System.nanoTime();
        return session.cancel();
      }, CANCEL_AFTER_MS, TimeUnit.MILLISECONDS);
      EditResult cancelled = box(session);
      long returned = System.nanoTime();
      assertTrue(cancel.get(), "the cancel reached the running edit");
      long latencyMs = (returned - cancelledAt[0]) / 1_000_000;
      assertEquals(Outcome.CANCELLED, cancelled.outcome());
      assertTrue(latencyMs <= PROMPT_MS, "the edit returned " + latencyMs + " ms after the cancel");

      assertArrayEquals(painted, Masks.of(cancelled), "the cut's mask is still shown");
      assertTrue(session.canUndo());
      assertFalse(session.canRedo());
      assertFalse(session.cancel(), "no edit runs");
      EditResult again = box(session);
      assertEquals(Outcome.DONE, again.outcome());
      assertArrayEquals(expected, Masks.of(again));
      assertArrayEquals(painted, Masks.of(session.undo()));
      assertFalse(session.undo().hasObject(), "a cut, a box: the cancelled edit left no trace");
    }
  }

  @Test
  void closeDuringAnEditCancelsItWaitsForItAndFreesTheSession() throws Exception {
    CutoutSession session = CutoutSession.open(scene.width, scene.height, scene.argb);
    long[] closed = new long[2];
    ScheduledFuture<?> close = other.schedule(() -> {
      closed[0] = System.nanoTime();
      session.close();
      closed[1] = System.nanoTime();
    }, CANCEL_AFTER_MS, TimeUnit.MILLISECONDS);
    EditResult result = box(session);
    close.get();
    assertEquals(Outcome.CANCELLED, result.outcome());
    assertTrue((closed[1] - closed[0]) / 1_000_000 <= PROMPT_MS, "close() waited for the cancelled edit only");
    assertTrue(session.isClosed());
    assertThrows(IllegalStateException.class, result::mask);
    assertThrows(IllegalStateException.class, () -> box(session));
    CutoutSession.open(8, 8, new int[64]).close(); // the session's place is free
  }
}
