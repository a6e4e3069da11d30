package org.segmentationcore;

import java.util.Objects;

/**
 * The argument checks every public call makes before anything reaches the library. Each refusal says
 * what was wrong with which value.
 */
final class Checks {
  private Checks() {}

  static void photo(int width, int height, int[] argb) {
    Objects.requireNonNull(argb, "argb");
    if (width < 1 || height < 1) {
      throw new IllegalArgumentException("The photo is " + width + " x " + height + " pixels: both sides must be 1 or more.");
    }
    if ((long) width * height > Integer.MAX_VALUE) {
      throw new IllegalArgumentException("A " + width + " x " + height + " photo has more pixels than a Java array holds.");
    }
    if (argb.length < width * height) {
      throw new IllegalArgumentException(
          "argb holds " + argb.length + " pixels; a " + width + " x " + height + " photo needs " + width * height + ".");
    }
  }

  /** Corners inclusive: x1 < x2 and y1 < y2, all inside the photo. */
  static void box(int x1, int y1, int x2, int y2, int width, int height) {
    point(x1, y1, width, height, "The box's first corner");
    point(x2, y2, width, height, "The box's last corner");
    if (x2 <= x1 || y2 <= y1) {
      throw new IllegalArgumentException(
          "The box (" + x1 + ", " + y1 + ") - (" + x2 + ", " + y2 + ") is empty: x2 must exceed x1 and y2 exceed y1.");
    }
  }

  /**
   * x, y pairs, at least {@code minPoints} of them, every one inside the photo. Returns the copy it
   * checked, which no other thread can change before it is used.
   */
  static int[] points(int[] points, int minPoints, int width, int height, String what) {
    int[] xy = Objects.requireNonNull(points, "xy").clone();
    if (xy.length % 2 != 0) {
      throw new IllegalArgumentException(what + " has " + xy.length + " coordinates: they come in x, y pairs.");
    }
    if (xy.length / 2 < minPoints) {
      throw new IllegalArgumentException(what + " has " + xy.length / 2 + " points; it needs " + minPoints + " or more.");
    }
    for (int i = 0; i < xy.length; i += 2) {
      point(xy[i], xy[i + 1], width, height, what + "'s point " + i / 2);
    }
    return xy;
  }

  static void radius(int radius, int maxRadius) {
    if (radius < 1 || radius > maxRadius) {
      throw new IllegalArgumentException("The brush radius is " + radius + ": it must lie in 1.." + maxRadius + ".");
    }
  }

  static void mode(Mode mode) {
    Objects.requireNonNull(mode, "mode");
  }

  /** An int[] of at least width x height pixels for a preview. */
  static void preview(int[] out, int width, int height) {
    Objects.requireNonNull(out, "out");
    if (out.length < width * height) {
      throw new IllegalArgumentException(
          "The preview needs " + width * height + " pixels; the array holds " + out.length + ".");
    }
  }

  static void threads(int threads, int maxThreads) {
    if (threads < 1 || threads > maxThreads) {
      throw new IllegalArgumentException("threads is " + threads + ": it must lie in 1.." + maxThreads + ".");
    }
  }

  private static void point(int x, int y, int width, int height, String what) {
    if (x < 0 || y < 0 || x >= width || y >= height) {
      throw new IllegalArgumentException(
          what + " (" + x + ", " + y + ") lies outside the " + width + " x " + height + " photo.");
    }
  }
}
