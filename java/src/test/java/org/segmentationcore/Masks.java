package org.segmentationcore;

import java.nio.ByteBuffer;

/** Reading masks out of results in tests. */
final class Masks {
  private Masks() {}

  /** A copy of the result's mask: 255 on the object, 0 elsewhere. */
  static byte[] of(EditResult result) {
    ByteBuffer mask = result.mask();
    byte[] bytes = new byte[mask.remaining()];
    mask.get(bytes);
    return bytes;
  }

  static int objectPixels(byte[] mask) {
    int count = 0;
    for (byte b : mask) {
      count += b != 0 ? 1 : 0;
    }
    return count;
  }
}
