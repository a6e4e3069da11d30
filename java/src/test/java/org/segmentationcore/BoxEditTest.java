package org.segmentationcore;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.ByteBuffer;
import org.junit.jupiter.api.Test;

/**
 * A box around a generated disc: the mask, the outline and the preview are checked where the truth is
 * known, away from the disc's rim (a few pixels either side, where a cut may fairly go either way).
 */
class BoxEditTest {
  private static final double RIM = 4; // pixels either side of the true edge left unjudged

  private static final Scene SCENE = Scene.disc(640, 480);

  @Test
  void maskIsTheDiscAwayFromItsRim() {
    try (CutoutSession session = CutoutSession.open(SCENE.width, SCENE.height, SCENE.argb)) {
      int[] box = SCENE.boxAround(30);
      EditResult result = session.box(box[0], box[1], box[2], box[3]);
      assertEquals(Outcome.DONE, result.outcome());
      assertTrue(result.hasObject());

      ByteBuffer mask = result.mask();
      assertTrue(mask.isDirect() && mask.isReadOnly());
      assertEquals(SCENE.width * SCENE.height, mask.remaining());
      int wrong = 0;
      for (int y = 0; y < SCENE.height; ++y) {
        for (int x = 0; x < SCENE.width; ++x) {
          double d = SCENE.distance(x, y);
          if (Math.abs(d - SCENE.radius) <= RIM) continue;
          int expected = d < SCENE.radius ? 0xFF : 0;
          wrong += (mask.get(y * SCENE.width + x) & 0xFF) == expected ? 0 : 1;
        }
      }
      assertEquals(0, wrong, "mask pixels away from the rim that differ from the disc");
    }
  }

  @Test
  void outlineIsOneClosedPolygonOnTheRimAroundTheDisc() {
    try (CutoutSession session = CutoutSession.open(SCENE.width, SCENE.height, SCENE.argb)) {
      int[] box = SCENE.boxAround(30);
      int[][] outline = session.box(box[0], box[1], box[2], box[3]).outline();
      assertEquals(1, outline.length, "one object, one contour");
      int[] polygon = outline[0];
      assertTrue(polygon.length >= 2 * 8 && polygon.length % 2 == 0);
      for (int i = 0; i < polygon.length; i += 2) {
        double d = SCENE.distance(polygon[i], polygon[i + 1]);
        assertTrue(Math.abs(d - SCENE.radius) <= RIM, "point " + i / 2 + " lies " + d + " from the centre");
      }
      // Closed around the disc: its area (shoelace; the polygon closes from its last point to its
      // first) is the disc's, and the centre lies inside it.
      double area = 0;
      for (int i = 0; i < polygon.length; i += 2) {
        int j = (i + 2) % polygon.length;
        area += (double) polygon[i] * polygon[j + 1] - (double) polygon[j] * polygon[i + 1];
      }
      double disc = Math.PI * SCENE.radius * SCENE.radius;
      assertEquals(disc, Math.abs(area) / 2, 0.03 * disc);
      assertTrue(windsAround(polygon, SCENE.centreX, SCENE.centreY));
    }
  }

  @Test
  void previewIsThePhotoWithTheOutlineInYellow() {
    try (CutoutSession session = CutoutSession.open(SCENE.width, SCENE.height, SCENE.argb)) {
      int[] box = SCENE.boxAround(30);
      EditResult result = session.box(box[0], box[1], box[2], box[3]);
      int[] preview = new int[SCENE.width * SCENE.height];
      result.drawPreview(preview);
      int[] polygon = result.outline()[0];
      for (int i = 0; i < polygon.length; i += 2) {
        assertEquals(0xFFFFFF00, preview[polygon[i + 1] * SCENE.width + polygon[i]], "outline point " + i / 2);
      }
      int[] photo = new int[preview.length];
      int[] drawn = new int[preview.length];
      for (int y = 0; y < SCENE.height; ++y) {
        for (int x = 0; x < SCENE.width; ++x) {
          if (Math.abs(SCENE.distance(x, y) - SCENE.radius) <= 2 * RIM) continue; // the line and its fringe
          int p = y * SCENE.width + x;
          photo[p] = SCENE.argb[p] | 0xFF000000;
          drawn[p] = preview[p];
        }
      }
      assertArrayEquals(photo, drawn, "away from the outline, the photo itself");
    }
  }

  /** Whether the polygon's winding number around (x, y) is not zero. */
  private static boolean windsAround(int[] polygon, double x, double y) {
    int winding = 0;
    for (int i = 0; i < polygon.length; i += 2) {
      int j = (i + 2) % polygon.length;
      double x0 = polygon[i], y0 = polygon[i + 1], x1 = polygon[j], y1 = polygon[j + 1];
      double side = (x1 - x0) * (y - y0) - (x - x0) * (y1 - y0);
      if (y0 <= y && y1 > y && side > 0) ++winding;
      if (y0 > y && y1 <= y && side < 0) --winding;
    }
    return winding != 0;
  }
}
