package org.segmentationcore;

/**
 * The library keeps one session per process, and a one-shot box cut tears down whatever session is
 * open: whoever uses it holds this guard.
 */
final class SessionGuard {
  private static final Object LOCK = new Object();
  private static String holder; // who holds it, for the refusal; null when free

  private SessionGuard() {}

  static void claim(String who) {
    synchronized (LOCK) {
      if (holder != null) {
        throw new IllegalStateException(
            "The library keeps one session per process, and " + holder + " holds it: close that session first.");
      }
      holder = who;
    }
  }

  static void release() {
    synchronized (LOCK) {
      holder = null;
    }
  }
}
