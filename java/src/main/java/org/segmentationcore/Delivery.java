package org.segmentationcore;

/** What a native call that changes what is shown hands back, besides the mask. */
final class Delivery {
  final int outcome;
  final boolean hasObject;
  final int[][] outline;

  Delivery(int outcome, boolean hasObject, int[][] outline) {
    this.outcome = outcome;
    this.hasObject = hasObject;
    this.outline = outline;
  }
}
