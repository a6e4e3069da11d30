package org.segmentationcore;

import static org.junit.jupiter.api.Assertions.assertEquals;

import org.junit.jupiter.api.Test;

/** The README's Java example compiles (ReadmeExample is made from it), runs, and leaves no session open. */
class ReadmeExampleTest {
  @Test
  void theReadmeExampleRunsOnAPhotoWithAnObjectInsideItsLoop() {
    Scene scene = Scene.disc(240, 210); // the disc lies inside the example's loop
    ReadmeExample.run(scene.width, scene.height, scene.argb);
    try (CutoutSession session = CutoutSession.open(scene.width, scene.height, scene.argb)) {
      assertEquals(Outcome.DONE, session.loop(Mode.ADD, 40, 30, 200, 30, 200, 180, 40, 180).outcome());
    }
  }
}
