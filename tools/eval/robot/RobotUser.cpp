#include "RobotUser.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "Gestures.h"
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

Correction personCorrection(const WrongRegion& region) {
  const int fingertip = fingertipRadius(region.pixels.size());
  if (worthALoop(region, fingertip))
    return {loopInside(region, kLoopPullPerFingertipRadius * fingertip), Gesture::Loop, region.centre};
  return {scribbleAlong(region, fingertip), Gesture::Scribble, region.centre};
}

}  // namespace

const char* robotStyleName(RobotStyle style) { return style == RobotStyle::Dab ? "dab" : "person"; }

const char* gestureName(Gesture gesture) {
  switch (gesture) {
    case Gesture::Dab:
      return "dab";
    case Gesture::Scribble:
      return "scribble";
    case Gesture::Loop:
      return "loop";
  }
  return "?";
}

int fingertipRadius(cv::Size photo) {
  return std::max(1, static_cast<int>(std::lround(kFingertipShareOfWidth * photo.width / 2)));
}

std::optional<Correction> nextCorrection(const cv::Mat& object, const cv::Mat& truth, RobotStyle style) {
  const std::optional<WrongRegion> region = largestWrongRegion(object, truth);
  if (!region) return std::nullopt;
  if (style == RobotStyle::Dab) return Correction{dabOn(*region), Gesture::Dab, region->centre};
  return personCorrection(*region);
}

RobotOutcome runRobot(cv::Mat object, const cv::Mat& truth, RobotStyle style, const ApplyStroke& apply) {
  RobotOutcome outcome;
  outcome.startIoU = scoredIoU(object, truth);
  if (outcome.startIoU >= kRobotGoalIoU) {
    outcome.strokes = 0;
    return outcome;
  }
  for (int k = 1; k <= kRobotMaxStrokes; ++k) {
    const std::optional<Correction> correction = nextCorrection(object, truth, style);
    if (!correction) break;  // nothing scored is wrong, yet IoU is short: cannot happen past 0
    apply(correction->step, object);
    outcome.given.push_back(*correction);
    outcome.iou.push_back(scoredIoU(object, truth));
    if (outcome.iou.back() >= kRobotGoalIoU) {
      outcome.strokes = k;
      return outcome;
    }
  }
  return outcome;
}
