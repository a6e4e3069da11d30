// What a host hands the library for one edit: the per-pixel marks, the
// stroke's points and its type, made from a step the way the phone app
// makes them from a finger.
#pragma once

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
