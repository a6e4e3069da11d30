// The line a person's finger follows to paint along a region: the region's
// skeleton, walked from one end of its long axis to the other.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

// The 8-connected path through the skeleton of `region` (255 inside, one
// 8-connected part) between its two skeleton pixels farthest apart along the
// region's principal axis; when the skeleton falls apart, to the farthest one
// reachable. Empty when thinning leaves nothing. Costs a thinning of the
// region's bounding box.
std::vector<cv::Point> medialLine(const cv::Mat& region);
