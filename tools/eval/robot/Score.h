// How far an object mask is from the truth. Object masks here are 8-bit,
// 255 on the object and 0 elsewhere; truth is 255 object, 0 background, and
// any other value (mixed pixels on the border) is left out of every score.
#pragma once

#include <opencv2/core.hpp>

// Misclassified pixels as a percentage of the scored pixels inside `area`
// (clipped to the image; the whole image when empty). 0 when nothing there
// is scored. One pass over the area.
double errorPercent(const cv::Mat& object, const cv::Mat& truth, cv::Rect area = {});

// Intersection over union of the mask's and the truth's object, over the
// scored pixels; 1 when both are empty. One pass over the image.
double scoredIoU(const cv::Mat& object, const cv::Mat& truth);

// Scored pixels that the mask gets wrong: `missed` object pixels (truth 255,
// mask 0) and `extra` background pixels (truth 0, mask 255), each 255 there.
void wrongPixels(const cv::Mat& object, const cv::Mat& truth, cv::Mat& missed, cv::Mat& extra);
