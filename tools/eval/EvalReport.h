// What `cutout eval` found, per photo and on average, and the two ways it
// is written down: the table on screen and the CSV file.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "tools/eval/robot/RobotUser.h"

// The methods compared, in the order of every table, file and chart.
enum Method : int { kOurBox, kOurLasso, kGrabCut, kSavedMasks, kMethodCount };

struct MethodInfo {
  const char* title;  // table heading and chart legend
  const char* key;    // CSV column prefix
  bool timed;         // saved masks cost nothing here
};
const MethodInfo& methodInfo(Method method);

struct MethodScore {
  bool ran = false;       // false: not run for this photo (no lasso, no saved mask); a cut
                          // that gave no result ran, and scores as all background
  double errImage = 0.0;  // % of scored pixels wrong, whole photo
  double errBox = 0.0;    // % of scored pixels wrong, inside the box
  double cpuMs = 0.0;     // process CPU time (std::clock)
  double wallMs = 0.0;
};

enum RobotSide : int { kRobotOurs, kRobotPeer, kRobotSides };  // from our box cut, from grabCut's

struct PhotoReport {
  std::string name;
  cv::Size size;
  std::array<MethodScore, kMethodCount> methods;
  bool robotRan = false;
  std::array<RobotOutcome, kRobotSides> robot;
};

// Means over the photos each method ran on, and the speed ratios.
struct EvalSummary {
  std::array<MethodScore, kMethodCount> mean;  // `ran` false when it ran nowhere
  std::array<int, kMethodCount> photos{};      // photos each method ran on
  double boxTotalMs = 0.0, peerTotalMs = 0.0;  // CPU over the photos both ran on
  double peerOverBox = 0.0;                     // their ratio, grabCut / ours
  double peerOverBoxGeo = 0.0;                  // geometric mean of the per-photo ratios
  double peerOverLasso = 0.0;  // total grabCut CPU / total our-lasso CPU, photos with a lasso
  // The robot user, per side, over the photos it ran on: how many reached
  // kRobotGoalIoU, and the median of the corrections it took, a photo that
  // did not reach counting as kRobotMaxStrokes + 1 (so a median above
  // kRobotMaxStrokes means "more than").
  RobotStyle robotStyle = RobotStyle::Person;
  int robotRuns = 0;
  std::array<int, kRobotSides> robotReached{};
  std::array<double, kRobotSides> robotMedian{};
  std::array<std::array<int, kGestureCount>, kRobotSides> robotGestures{};  // corrections of each kind
  std::array<int, kRobotSides> robotFailed{};  // corrections that failed (RegionMemory.h)
};

EvalSummary summarize(const std::vector<PhotoReport>& photos, RobotStyle robotStyle);

// The table: one row per photo, the means, then the speed and robot lines.
void printTable(std::ostream& out, const std::vector<PhotoReport>& photos, const EvalSummary& summary);

// One header line, one row per photo, then a row named "mean". Cells of
// methods that did not run are empty; robot strokes "not reached" are -1,
// and the mean row leaves the robot's cells empty (see EvalSummary).
std::string csvText(const std::vector<PhotoReport>& photos, const EvalSummary& summary);

// The robot's corrections, one line each: photo, side, number (0: the box
// cut), kind (gestureName), add/remove, the wrong region's deepest point x
// and y, the brush radius (empty without a brush), IoU after it, and 1 when
// it failed (0 otherwise, empty for the box cut).
std::string robotCsvText(const std::vector<PhotoReport>& photos);

// Writes `text` to `path` under a temporary name, then renames it. Throws
// CutoutError(kExitOutput) on failure.
void writeTextFile(const std::string& path, const std::string& text);
