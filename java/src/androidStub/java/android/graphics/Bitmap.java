package android.graphics;

/**
 * The part of Android's Bitmap that the bitmap adapter uses, so that the adapter compiles here; on a
 * phone the real class stands in its place.
 */
public final class Bitmap {
  public enum Config {
    ALPHA_8,
    RGB_565,
    ARGB_4444,
    ARGB_8888
  }

  public int getWidth() {
    throw new UnsupportedOperationException("a stand-in for compiling only");
  }

  public int getHeight() {
    throw new UnsupportedOperationException("a stand-in for compiling only");
  }

  public Config getConfig() {
    throw new UnsupportedOperationException("a stand-in for compiling only");
  }
}
