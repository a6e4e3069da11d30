#include "RegionMemory.h"

#include "tools/host/Fnv1a.h"

RegionRecord& RegionMemory::recall(const WrongRegion& region) {
  RegionRecord* best = nullptr;
  int bestShared = 0;
  for (RegionRecord& record : regions_) {
    if (record.missed != region.missed) continue;
    const int shared = cv::countNonZero(record.pixels & region.pixels);
    if (shared > bestShared) {
      bestShared = shared;
      best = &record;
    }
  }
  if (!best) {
    regions_.emplace_back();
    best = &regions_.back();
    best->missed = region.missed;
  }
  best->pixels = region.pixels;
  return *best;
}

bool RegionMemory::seenBefore(const cv::Mat& object) {
  const cv::Mat binary = object != 0;  // continuous, whatever `object` is a view of
  Fnv1a hash;
  hash.add(binary.data, binary.total());
  return !seen_.insert(hash.value()).second;
}

void noteOutcome(RegionRecord& record, Gesture gesture, int radius, bool failed) {
  record.failuresInARow = failed ? record.failuresInARow + 1 : 0;
  record.last = gesture;
  record.lastRadius = radius;
}

Gesture nextGesture(const RegionRecord& record, bool worthALoop) {
  const int failures = record.failuresInARow;
  if (failures >= 2 || (failures == 1 && record.last == Gesture::Paint)) return Gesture::Paint;
  if (failures == 1) return record.last == Gesture::Loop ? Gesture::Scribble : Gesture::WiderScribble;
  return worthALoop ? Gesture::Loop : Gesture::Scribble;
}
