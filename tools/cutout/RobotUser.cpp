#include "RobotUser.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "Score.h"

namespace {

constexpr double kRadiusPerDepth = 0.5;  // brush radius as a share of the region's depth
constexpr int kMaxRadius = 12;           // about a fingertip on a phone showing a 640-pixel photo
constexpr int kMaxHalfLength = 3;        // a short dab: at most 7 pixels end to end

struct Region {
  cv::Mat pixels;  // 255 inside
  int area = 0;
};

// The largest 8-connected part of `wrong`; area 0 when there is none.
Region largestPart(const cv::Mat& wrong) {
  cv::Mat labels, stats, centroids;
  const int count = cv::connectedComponentsWithStats(wrong, labels, stats, centroids, 8, CV_32S);
  Region best;
  int bestLabel = 0;
  for (int label = 1; label < count; ++label) {
    const int area = stats.at<int>(label, cv::CC_STAT_AREA);
    if (area > best.area) {
      best.area = area;
      bestLabel = label;
    }
  }
  if (best.area > 0) best.pixels = labels == bestLabel;
  return best;
}

}  // namespace

std::optional<Step> correctiveStroke(const cv::Mat& object, const cv::Mat& truth) {
  cv::Mat missed, extra;
  wrongPixels(object, truth, missed, extra);
  const Region missedPart = largestPart(missed), extraPart = largestPart(extra);
  if (missedPart.area == 0 && extraPart.area == 0) return std::nullopt;
  const bool add = missedPart.area >= extraPart.area;
  const cv::Mat& region = add ? missedPart.pixels : extraPart.pixels;

  // A zero frame makes the photo's edge an edge of the region too.
  cv::Mat framed, distance;
  cv::copyMakeBorder(region, framed, 1, 1, 1, 1, cv::BORDER_CONSTANT, cv::Scalar(0));
  cv::distanceTransform(framed, distance, cv::DIST_L2, cv::DIST_MASK_PRECISE);
  double depth = 0;
  cv::Point deepest;
  cv::minMaxLoc(distance, nullptr, &depth, nullptr, &deepest);
  deepest -= cv::Point(1, 1);

  // Every brush pixel lies within radius + halfLength < depth of the
  // deepest point, so inside the region.
  const int radius = std::min(kMaxRadius, static_cast<int>(depth * kRadiusPerDepth));
  const int halfLength = std::max(0, std::min(kMaxHalfLength, static_cast<int>(depth) - radius - 1));
  Step stroke;
  stroke.kind = StepKind::Stroke;
  stroke.add = add;
  stroke.radius = radius;
  stroke.points = {deepest - cv::Point(halfLength, 0)};
  if (halfLength > 0) stroke.points.push_back(deepest + cv::Point(halfLength, 0));
  return stroke;
}

RobotOutcome runRobot(cv::Mat object, const cv::Mat& truth, const ApplyStroke& apply) {
  RobotOutcome outcome;
  outcome.startIoU = scoredIoU(object, truth);
  if (outcome.startIoU >= kRobotGoalIoU) {
    outcome.strokes = 0;
    return outcome;
  }
  for (int k = 1; k <= kRobotMaxStrokes; ++k) {
    const std::optional<Step> stroke = correctiveStroke(object, truth);
    if (!stroke) break;  // nothing scored is wrong, yet IoU is short: cannot happen past 0
    apply(*stroke, object);
    outcome.given.push_back(*stroke);
    outcome.iou.push_back(scoredIoU(object, truth));
    if (outcome.iou.back() >= kRobotGoalIoU) {
      outcome.strokes = k;
      return outcome;
    }
  }
  return outcome;
}
