// The robot user of `cutout eval`: corrects a cut one gesture at a time and
// counts the gestures it takes. Each goes to the largest wrong region of the
// current result (WrongRegion.h): it adds where the cut missed object and
// removes where it took background.
//
// The person (the default) scribbles along the region's medial line with a
// brush no wider than a fingertip, and circles a region that is large and
// compact with a loop just inside its outline; when a correction fails it
// changes tool as RegionMemory.h tells, up to painting the region directly.
// The dab robot, kept so that older numbers and the fingerprint's sessions
// stay comparable, puts a short dab at the region's deepest point and never
// changes tool. See Gestures.h for the shapes.
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "Gestures.h"
#include "tools/host/SessionFile.h"

constexpr double kRobotGoalIoU = 0.95;  // IoU that counts as done
constexpr int kRobotMaxStrokes = 10;    // the robot gives up after this many

enum class RobotStyle { Person, Dab };

const char* robotStyleName(RobotStyle style);  // "person", "dab"

struct Correction {
  Step step;         // as a session file would hold it
  Gesture gesture;
  cv::Point centre;  // the wrong region's deepest point
};

// The brush radius of a fingertip on a phone showing the whole photo of
// `photo`'s size, in photo pixels (at least 1).
int fingertipRadius(cv::Size photo);

// The first correction for `object` (255 = object) against `truth` (255
// object, 0 background, other values not scored), before any has failed, or
// nothing when no scored pixel is wrong. Costs a few passes over the photo and, for a scribble, a
// thinning of the region.
std::optional<Correction> nextCorrection(const cv::Mat& object, const cv::Mat& truth, RobotStyle style);

// Applies one correction's step to the method being measured; replaces
// `object` with the new result (or leaves it when there is none). A "cut"
// step paints its marks into the mask directly, without a segmentation.
using ApplyStroke = std::function<void(const Step& step, cv::Mat& object)>;

struct RobotOutcome {
  int strokes = -1;               // corrections until IoU reached kRobotGoalIoU; -1: not within kRobotMaxStrokes
  double startIoU = 0.0;          // of the first cut
  std::vector<Correction> given;  // the corrections, in order
  std::vector<double> iou;        // after each of them
  std::vector<bool> failed;       // whether each of them failed (RegionMemory.h)
};

// From `object` (the first cut's result), up to kRobotMaxStrokes
// corrections, each computed from the result the previous one gave and, for
// the person, from how the earlier ones went. 0 when the first cut is
// already good enough.
RobotOutcome runRobot(cv::Mat object, const cv::Mat& truth, RobotStyle style, const ApplyStroke& apply);
