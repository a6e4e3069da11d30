package org.segmentationcore;

import java.util.Random;

/**
 * A generated photo whose object is known: a speckled orange disc on speckled blue-grey stripes, as the
 * library's own tests generate them. Seeded: the same call gives the same photo.
 */
final class Scene {
  final int width;
  final int height;
  final int[] argb;
  final double centreX;
  final double centreY;
  final double radius;

  private Scene(int width, int height, double radius) {
    this.width = width;
    this.height = height;
    this.centreX = width / 2.0;
    this.centreY = height / 2.0;
    this.radius = radius;
    this.argb = new int[width * height];
    Random random = new Random(7);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        int n = random.nextInt(37) - 18, n2 = random.nextInt(37) - 18, n3 = random.nextInt(37) - 18;
        int stripe = ((x + y) / 6) % 2 == 1 ? 14 : -14;
        argb[y * width + x] = distance(x, y) <= radius
            ? pixel(215 + n, 120 + n2 / 2, 40 + n3 / 3)
            : pixel(60 + stripe + n, 90 + stripe + n2, 140 + stripe + n3);
      }
    }
  }

  /** A disc of radius 0.3 of the shorter side in the middle of a width x height photo. */
  static Scene disc(int width, int height) {
    return new Scene(width, height, 0.3 * Math.min(width, height));
  }

  double distance(double x, double y) {
    return Math.hypot(x - centreX, y - centreY);
  }

  /** The box around the disc with {@code margin} pixels to spare on each side, x1, y1, x2, y2. */
  int[] boxAround(int margin) {
    return new int[] {
      (int) (centreX - radius) - margin, (int) (centreY - radius) - margin,
      (int) (centreX + radius) + margin, (int) (centreY + radius) + margin
    };
  }

  private static int pixel(int r, int g, int b) {
    return 0xFF000000 | clamp(r) << 16 | clamp(g) << 8 | clamp(b);
  }

  private static int clamp(int v) {
    return Math.max(0, Math.min(255, v));
  }
}
