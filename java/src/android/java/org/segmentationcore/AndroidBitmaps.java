package org.segmentationcore;

import android.graphics.Bitmap;

/**
 * Sessions on {@link Bitmap}s: the photo is read, and the preview drawn, straight from and into the
 * bitmap's memory, so no photo-sized int[] lands on the Java heap. ARGB_8888 bitmaps only.
 */
public final class AndroidBitmaps {
  private AndroidBitmaps() {}

  /** Opens a session on the bitmap's pixels (copied; alpha ignored). The calling thread owns it. */
  public static CutoutSession open(Bitmap photo) {
    checkFormat(photo);
    return CutoutSession.openWith(photo.getWidth(), photo.getHeight(), threads -> openBitmap(photo, threads));
  }

  /**
   * Draws the result's preview, the photo with the outline in yellow, into a bitmap of the photo's
   * size. On the session's thread only.
   *
   * @throws IllegalStateException when the result is no longer the one shown
   */
  public static void drawPreview(EditResult result, Bitmap out) {
    checkFormat(out);
    if (out.getWidth() != result.width() || out.getHeight() != result.height()) {
      throw new IllegalArgumentException("The bitmap is " + out.getWidth() + " x " + out.getHeight()
          + "; the photo is " + result.width() + " x " + result.height() + ".");
    }
    result.drawPreviewWith(session -> drawBitmap(session, out));
  }

  private static void checkFormat(Bitmap bitmap) {
    if (bitmap.getConfig() != Bitmap.Config.ARGB_8888) {
      throw new IllegalArgumentException("The bitmap is " + bitmap.getConfig() + "; only ARGB_8888 is read.");
    }
  }

  private static native long openBitmap(Bitmap photo, int threads);

  private static native void drawBitmap(long session, Bitmap out);
}
