// Our library driven through its exported functions, as the phone app
// drives it, for `cutout eval`. The library keeps one session per process:
// each cut below starts a fresh one, ourEdit continues the open one, and
// closeOurSession ends it.
#pragma once

#include <array>
#include <opencv2/core.hpp>

#include "tools/host/Marks.h"
#include "tools/host/Photo.h"

// What one cut gave and what it cost.
struct CutResult {
  bool any = false;  // false: no result (failed, cancelled, over the time budget)
  cv::Mat object;    // 255 on the object, 0 elsewhere; all 0 without a result
  double cpuMs = 0;  // process CPU time of the timed calls (see Stopwatch.h)
  double wallMs = 0;
};

// doSegmentationBB with the box (x1, y1, x2, y2 inclusive, inside the photo).
// Timed: the one call, engine set-up included.
CutResult ourBoxCut(const Photo& photo, const std::array<int, 4>& box);

// A lasso: its inside (trimap 128 and 255) marked probable object, the
// outline of its largest part traced densely as the loop's points, stroke
// type loop-add. `trimap` is 8-bit, the photo's size.
Edit lassoEdit(const cv::Mat& trimap);

// setSourceImage, initSegmentationEngine and the edit (a first edit: no
// previous result). Timed: all of it, as the box cut's engine set-up is.
CutResult ourLoopCut(const Photo& photo, const Edit& loop);

// One more edit on the open session: setCurrentMarkerVector, setMarkerImage,
// processSegment. Replaces `object` and returns true when there is a result;
// leaves it and returns false otherwise.
bool ourEdit(const Photo& photo, const Edit& edit, cv::Mat& object);

// The direct tool on the open session: the edit's hard marks (object 2,
// background 1) painted into the last mask by cutOutImage, no segmentation.
// Replaces `object` and returns true when there is a result.
bool ourPaint(const Photo& photo, const Edit& edit, cv::Mat& object);

// deinitSegmentation.
void closeOurSession();
