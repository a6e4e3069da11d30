package org.segmentationcore;

/** What became of an edit. Whatever it is, the result says what is shown now. */
public enum Outcome {
  /** A new result is shown and recorded in the history. */
  DONE,
  /**
   * {@link CutoutSession#cancel()} reached the edit while it ran: what is shown and the history are as
   * before it, except that redo steps are gone when the edit had already recorded its result.
   */
  CANCELLED,
  /** The edit used up the library's 10-second budget before giving a result: nothing changed. */
  TIMED_OUT,
  /** The library gave no result for these marks: nothing changed. */
  NO_RESULT
}
