// A session: the edits a person makes, in order, as read from a session file
// (or the single box of --box).
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

enum class StepKind { Box, Loop, Stroke, Cut, Undo, Redo, Reset };

// A brush wider than this is surely a mistake (and beyond what OpenCV draws).
constexpr int kMaxRadius = 1000;

struct Step {
  StepKind kind = StepKind::Box;
  bool add = true;                // "add" (object) or "remove" (background)
  std::vector<cv::Point> points;  // box: its two corners; loop, stroke, cut: the line
  int radius = -1;                // brush radius in pixels; -1: no brush (cut: polygon)
};

// "box", "loop", ... as in the session file.
const char* stepKindName(StepKind kind);

// Reads and checks a session file. Throws CutoutError: kExitSession when the
// file cannot be read or is malformed (syntax errors name line and column,
// other errors the step), kExitUnknownStep for an unknown "kind". Boxes must
// not be empty; points are not yet checked against the photo.
std::vector<Step> readSessionFile(const std::string& path);

// The same from text already in memory; `source` starts every message.
std::vector<Step> parseSession(const std::string& text, const std::string& source);

// One step object as it stands in a session file, checked alike.
Step parseStep(const std::string& text, const std::string& source);

// A session file that readSessionFile reads back as `steps`: one step a line.
std::string sessionText(const std::vector<Step>& steps);

// The one step of --box. Throws CutoutError(kExitBox) when it is empty.
Step boxStep(const std::array<int, 4>& box);

// Brings every point inside a width x height photo. Returns the warnings
// (one line each, empty when nothing moved). Throws CutoutError(kExitBox)
// for a box with no area left inside the photo. `source` (the session
// file, or "--box") starts every message.
std::vector<std::string> clampToPhoto(std::vector<Step>& steps, int width, int height,
                                      const std::string& source);
