// What a host hands the library for one edit: the per-pixel marks, the
// stroke's points and its type, made from a step the way the phone app
// makes them from a finger.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "SessionFile.h"

// The library's marker values and stroke types (its public encoding).
enum Mark : int {
  kMarkNone = 0,
  kMarkBackground = 1,
  kMarkObject = 2,
  kMarkProbableBackground = 3,
  kMarkProbableObject = 4
};
enum StrokeType : int { kLoopAdd = 0, kLoopRemove = 1, kStrokeAdd = 2, kStrokeRemove = 3 };

struct Edit {
  std::vector<int> markers;  // width x height, row-major, Mark values
  std::vector<int> points;   // x, y pairs inside the photo
  int strokeType = kLoopAdd;
};

// Box: its inside probable object, its border traced clockwise as the loop.
// Loop: its inside probable object (add) or background (remove), its corners
// as the points. Stroke and cut with a radius: the line drawn
// that wide marked object or background, every pixel of its centre line as
// the points (a finger reports a dense trace). Cut without a radius: the
// polygon's inside marked object or background. Points must lie inside.
Edit markEdit(const Step& step, int width, int height);

// A wide brush along a long trace takes long to draw (a disc per pixel of
// the trace), so an interactive host stops it as it stops a segmentation:
// `stop` is asked between pieces of the drawing, and a true answer ends it.
struct FillControl {
  std::function<bool()> stop;
};

// markEdit, drawn piece by piece under `control`; empty when it was stopped.
// The marks it gives are those of markEdit.
std::optional<Edit> markEdit(const Step& step, int width, int height, const FillControl& control);

// How many points markEdit hands the library for `step`: the box's border,
// a loop's or polygon's corners, a brush line's every pixel. Known before
// anything is drawn or allocated, so a host can refuse a trace too long.
size_t tracedPoints(const Step& step);
