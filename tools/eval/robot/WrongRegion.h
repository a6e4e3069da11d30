// What the robot user looks at before each correction: the largest part of
// a cut that is wrong (8-connected, scored pixels only), either object the
// cut missed or background it took, and how deep that part is.
#pragma once

#include <opencv2/core.hpp>
#include <optional>

struct WrongRegion {
  cv::Mat pixels;      // 255 inside, the photo's size
  bool missed = true;  // true: object the cut missed (add); false: background it took (remove)
  int area = 0;        // pixels
  cv::Mat depth;       // CV_32F, the photo's size: each pixel's distance to the nearest
                       // pixel outside the region (the photo's edge counts as outside)
  double deepest = 0;  // the largest depth
  cv::Point centre;    // where it is (the first such pixel, row by row)
};

// The larger of the largest missed and the largest false part of `object`
// (255 = object) against `truth` (255 object, 0 background, other values not
// scored); the missed one on a tie. Nothing when no scored pixel is wrong.
// Costs two labellings and a distance transform of the photo.
std::optional<WrongRegion> largestWrongRegion(const cv::Mat& object, const cv::Mat& truth);
