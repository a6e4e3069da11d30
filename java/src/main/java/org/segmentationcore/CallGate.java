package org.segmentationcore;

import java.util.function.LongConsumer;

/**
 * Who may call into a session, and when: its owner thread, one native call at a time; cancels and
 * close from any thread. It also counts what the session has shown, so that a result knows whether it
 * is still the one shown.
 */
final class CallGate {
  private final Thread owner = Thread.currentThread();
  private final Object lock = new Object();
  private long handle; // the native session; 0 once closed
  private boolean closing; // close has begun: no new calls
  private boolean running; // the owner is inside a native call
  private boolean editing; // ... an edit, which a cancel may stop
  private boolean cancelled; // a cancel reached the edit that runs
  private int shownVersion; // counts the calls that changed what is shown

  /** The calling thread owns the gate. */
  CallGate(long handle) {
    this.handle = handle;
  }

  /** Owner only: a native call begins; the handle to call with. */
  long enter() {
    Thread caller = Thread.currentThread();
    if (caller != owner) {
      throw new IllegalStateException(
          "This session belongs to thread \"" + owner.getName() + "\", which opened it; thread \""
              + caller.getName() + "\" may only cancel() or close() it.");
    }
    synchronized (lock) {
      if (handle == 0 || closing) {
        throw new IllegalStateException("This session is closed.");
      }
      running = true;
      return handle;
    }
  }

  /** The native call is over. */
  void leave() {
    synchronized (lock) {
      running = false;
      lock.notifyAll();
    }
  }

  /** Inside a call: an edit begins, and cancels reach it from now on. */
  void beginEdit() {
    synchronized (lock) {
      editing = true;
      cancelled = false;
    }
  }

  /** The edit is over for cancels; whether one reached it. */
  boolean endEdit() {
    synchronized (lock) {
      editing = false;
      return cancelled;
    }
  }

  /** Any thread: raises the library's cancel request for the edit that runs, once; false when none runs. */
  boolean cancel() {
    synchronized (lock) {
      return raiseCancel();
    }
  }

  /**
   * Any thread: refuses new calls, cancels a running edit, waits for the owner to leave its call and
   * then hands the handle to {@code release}, once. False when it was closed already.
   */
  boolean close(LongConsumer release) {
    synchronized (lock) {
      if (handle == 0) {
        return false;
      }
      closing = true;
      raiseCancel();
      awaitIdle();
      if (handle == 0) {
        return false; // another close finished while this one waited
      }
      release.accept(handle);
      handle = 0;
      ++shownVersion;
      return true;
    }
  }

  boolean isClosed() {
    synchronized (lock) {
      return handle == 0 || closing;
    }
  }

  /** What is shown has changed: its version. */
  int nextVersion() {
    synchronized (lock) {
      return ++shownVersion;
    }
  }

  /** Whether the session is open and shows what it showed at {@code version}. */
  boolean isCurrent(int version) {
    synchronized (lock) {
      return handle != 0 && !closing && version == shownVersion;
    }
  }

  /** Holding {@code lock}: the library's cancel request for the edit that runs, once. */
  private boolean raiseCancel() {
    if (!editing) {
      return false;
    }
    if (!cancelled) {
      cancelled = true;
      NativeCalls.cancelEdit();
    }
    return true;
  }

  /** Waits, holding {@code lock}, until the owner has left its native call. */
  private void awaitIdle() {
    boolean interrupted = false;
    while (running) {
      try {
        lock.wait();
      } catch (InterruptedException e) {
        interrupted = true; // the call ends promptly once cancelled: finish waiting
      }
    }
    if (interrupted) {
      Thread.currentThread().interrupt();
    }
  }
}
