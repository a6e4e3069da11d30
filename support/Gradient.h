// Edge strength of a grey image, as the region tightening and the choice
// between a homogeneous image's cuts both measure it.
#pragma once

#include <opencv2/core.hpp>

// sqrt(gx^2 + gy^2) of the 3 x 3 Sobel derivatives of an 8-bit, 1-channel
// image, as 32-bit floats of the image's size.
cv::Mat gradientMagnitude(const cv::Mat& grey);
