// What the person robot remembers between corrections, so that it changes
// tool when one fails instead of repeating it: per wrong region, how its
// last correction went, and every mask it has seen.
//
// A correction fails when it raises IoU by less than kRobotMinGain or gives
// a mask seen before. The next correction of a region whose last one failed:
//   after a failed loop, a scribble;
//   after a failed scribble, a wider one;
//   after two failures in a row (or a failed paint), painting it directly.
#pragma once

#include <opencv2/core.hpp>
#include <unordered_set>
#include <vector>

#include "Gestures.h"
#include "WrongRegion.h"

constexpr double kRobotMinGain = 0.005;  // an IoU gain below this is a failed correction

struct RegionRecord {
  cv::Mat pixels;      // the region as last seen
  bool missed = true;  // as WrongRegion::missed
  int failuresInARow = 0;
  Gesture last = Gesture::Scribble;
  int lastRadius = -1;  // the last brush radius, -1 for none
};

class RegionMemory {
 public:
  // The record of the remembered region of the same kind that shares most
  // pixels with `region`, now updated to it; a new record when none does.
  // The reference stays valid until the next call. One pass over the photo
  // per remembered region.
  RegionRecord& recall(const WrongRegion& region);

  // Whether `object` (nonzero = object) was seen before; remembers it.
  bool seenBefore(const cv::Mat& object);

 private:
  std::vector<RegionRecord> regions_;
  std::unordered_set<unsigned long long> seen_;
};

// Notes how the last correction of `record` went.
void noteOutcome(RegionRecord& record, Gesture gesture, int radius, bool failed);

// The next correction of the region of `record`: by the rules above, or,
// when its last one did not fail, a loop if the region is `worthALoop`,
// else a scribble.
Gesture nextGesture(const RegionRecord& record, bool worthALoop);
