// The two cleanings of a result mask (8-bit, 255 = object, 0 = background)
// that depend on the edit's input mode: after a loop and after a brush
// stroke. Both work in place.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

const uchar kObject = 255;
const uchar kBackground = 0;
// After a loop, object islands under this share of the largest one go.
const double kIslandShare = 0.1;
// Background pockets of fewer pixels than this are pin holes and are filled.
const int kPinHoleLimit = 5;

// After a loop: object components (4-connected) smaller than kIslandShare of
// the largest are cleared, then background components smaller than
// kPinHoleLimit are filled. Pixels of other values stay.
void loopCleaning(cv::Mat& mask);

// After a brush stroke: of the pixels that went from `opposite` = 255 - fill
// in `prev` to `fill` in `mask`, only the 4-connected components that a
// stroke point (x, y pairs; points off the mask reach nothing) lies on keep
// `fill`; every other pixel takes `prev`.
void strokeCleaning(cv::Mat& mask, const cv::Mat& prev, uchar fill,
                    const std::vector<int32_t>& points);

// ---- reference ------------------------------------------------------------------

// The same steps done plainly, with flood fills on a 0/255 copy and a change
// image: what the run-based ones above must equal, and their way for masks
// of very many runs. loopCleaning is plainDropIslands, then plainFillPinHoles.
void plainDropIslands(cv::Mat& mask);
void plainFillPinHoles(cv::Mat& mask);
void plainStrokeCleaning(cv::Mat& mask, const cv::Mat& prev, uchar fill,
                         const std::vector<int32_t>& points);
