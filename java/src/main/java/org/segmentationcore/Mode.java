package org.segmentationcore;

/** Whether a mark adds to the object or removes from it. */
public enum Mode {
  ADD,
  REMOVE
}
