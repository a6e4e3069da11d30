#include "RobotUser.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "Gestures.h"
#include "RegionMemory.h"
#include "Score.h"
#include "WrongRegion.h"

namespace {

// A fingertip (about 7 mm, the touch target phones are designed for) on a
// portrait screen about 65 mm wide that shows the photo across its width.
constexpr double kFingertipShareOfWidth = 0.1;
// A person circles a part at least two fingertips across: one pass of the
// finger would paint less than half of it.
constexpr double kLoopMinFingertipsAcross = 2.0;
// ... when a loop round it takes in little else: the part fills at least
// this much of its convex hull (a C, an L or a branching part does not).
constexpr double kLoopMinHullShare = 0.8;
// A loop drawn this far inside the outline (about a millimetre on screen,
// a quarter of the fingertip's radius) keeps a finger's wobble off the
// correct side.
constexpr double kLoopPullPerFingertipRadius = 0.25;

// The region's share of its convex hull, both counted in pixels.
double hullShare(const WrongRegion& region) {
  std::vector<cv::Point> pixels, hull;
  cv::findNonZero(region.pixels, pixels);
  cv::convexHull(pixels, hull);
  cv::Mat filled = cv::Mat::zeros(region.pixels.size(), CV_8UC1);
  cv::fillConvexPoly(filled, hull, cv::Scalar(255), cv::LINE_8);
  return static_cast<double>(region.area) / std::max(1, cv::countNonZero(filled));
}

bool worthALoop(const WrongRegion& region, int fingertip) {
  const double across = 2.0 * region.deepest, fingertipWidth = 2.0 * fingertip;
  return across >= kLoopMinFingertipsAcross * fingertipWidth && hullShare(region) >= kLoopMinHullShare;
}

// The person's correction of `region` whose history is `record`.
Correction personCorrection(const WrongRegion& region, const RegionRecord& record) {
  const int fingertip = fingertipRadius(region.pixels.size());
  const double pull = kLoopPullPerFingertipRadius * fingertip;
  const Gesture gesture = nextGesture(record, worthALoop(region, fingertip));
  switch (gesture) {
    case Gesture::Loop:
      return {loopInside(region, pull), gesture, region.centre};
    case Gesture::WiderScribble:
      return {scribbleAlong(region, widerRadius(region, record.lastRadius)), gesture, region.centre};
    case Gesture::Paint:
      return {paintOver(region, pull, scribbleRadius(region, fingertip)), gesture, region.centre};
    default:
      return {scribbleAlong(region, scribbleRadius(region, fingertip)), Gesture::Scribble, region.centre};
  }
}

Correction correctionOf(const WrongRegion& region, const RegionRecord& record, RobotStyle style) {
  if (style == RobotStyle::Dab) return {dabOn(region), Gesture::Dab, region.centre};
  return personCorrection(region, record);
}

}  // namespace

const char* robotStyleName(RobotStyle style) { return style == RobotStyle::Dab ? "dab" : "person"; }

int fingertipRadius(cv::Size photo) {
  return std::max(1, static_cast<int>(std::lround(kFingertipShareOfWidth * photo.width / 2)));
}

std::optional<Correction> nextCorrection(const cv::Mat& object, const cv::Mat& truth, RobotStyle style) {
  const std::optional<WrongRegion> region = largestWrongRegion(object, truth);
  if (!region) return std::nullopt;
  return correctionOf(*region, RegionRecord{}, style);
}

RobotOutcome runRobot(cv::Mat object, const cv::Mat& truth, RobotStyle style, const ApplyStroke& apply) {
  RobotOutcome outcome;
  outcome.startIoU = scoredIoU(object, truth);
  if (outcome.startIoU >= kRobotGoalIoU) {
    outcome.strokes = 0;
    return outcome;
  }
  RegionMemory memory;
  memory.seenBefore(object);
  double iou = outcome.startIoU;
  for (int k = 1; k <= kRobotMaxStrokes; ++k) {
    const std::optional<WrongRegion> region = largestWrongRegion(object, truth);
    if (!region) break;  // nothing scored is wrong, yet IoU is short: cannot happen past 0
    RegionRecord& record = memory.recall(*region);
    const Correction correction = correctionOf(*region, record, style);
    apply(correction.step, object);
    const double before = iou;
    iou = scoredIoU(object, truth);
    const bool seen = memory.seenBefore(object);
    const bool failed = iou - before < kRobotMinGain || seen;
    noteOutcome(record, correction.gesture, correction.step.radius, failed);
    outcome.given.push_back(correction);
    outcome.iou.push_back(iou);
    outcome.failed.push_back(failed);
    if (iou >= kRobotGoalIoU) {
      outcome.strokes = k;
      return outcome;
    }
  }
  return outcome;
}
