// The one-shot box cut (doSegmentationBB): a library session of its own,
// torn down when the cut is over.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "EditOutcome.h"

struct BoxCut {
  EditOutcome outcome = EditOutcome::NoResult;
  std::vector<unsigned char> mask;              // host mask: 0 object, 255 background; all 255 without a result
  std::vector<std::vector<cv::Point>> outline;  // empty without a result
};

// Corners inclusive and inside the photo, checked by the caller. Tears down
// any open session of the library: the caller makes sure none is open.
BoxCut cutBox(int width, int height, std::vector<unsigned int> argb, cv::Point first, cv::Point last);
