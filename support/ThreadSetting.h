// How many threads a segmentation may use: one process-wide number that
// outlives every session, set by the host (setSegmentationThreads).
#pragma once

// The most a host may ask for; more are clamped to it.
constexpr int kMaxSegmentationThreads = 16;

// 1 (the default) runs every stage on the calling thread, as the library
// always has; more lets the stages that can share the work do so.
int segmentationThreads();
// Clamped to 1 .. kMaxSegmentationThreads. Returns the value kept.
int setSegmentationThreadCount(int n);
