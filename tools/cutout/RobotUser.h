// The robot user of `cutout eval`: corrects a cut one brush stroke at a
// time, as a person on the phone would, and counts the strokes it takes.
//
// Each stroke goes to the largest wrong region of the current result (8-
// connected, scored pixels only): an add stroke inside a part the cut
// missed, a remove stroke inside a part it wrongly took. It is centred on
// the region's deepest point (largest distance to the region's edge), a few
// pixels long, with a radius in proportion to that depth, and never leaves
// the region.
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "SessionFile.h"

constexpr double kRobotGoalIoU = 0.95;  // IoU that counts as done
constexpr int kRobotMaxStrokes = 10;    // the robot gives up after this many

// The next stroke for `object` (255 = object) against `truth` (255 object,
// 0 background, other values not scored), or nothing when no scored pixel is
// wrong. Costs a labelling and a distance transform of the image.
std::optional<Step> correctiveStroke(const cv::Mat& object, const cv::Mat& truth);

// Applies one stroke's edit to the method being measured; replaces `object`
// with the new result (or leaves it when there is none).
using ApplyStroke = std::function<void(const Step& stroke, cv::Mat& object)>;

struct RobotOutcome {
  int strokes = -1;         // strokes until IoU reached kRobotGoalIoU; -1: not within kRobotMaxStrokes
  double startIoU = 0.0;    // of the first cut
  std::vector<Step> given;  // the strokes, in order
  std::vector<double> iou;  // after each of them
};

// From `object` (the first cut's result), up to kRobotMaxStrokes strokes,
// each computed from the result the previous one gave. 0 strokes when the
// first cut is already good enough.
RobotOutcome runRobot(cv::Mat object, const cv::Mat& truth, const ApplyStroke& apply);
