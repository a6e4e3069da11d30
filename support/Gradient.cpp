#include "support/Gradient.h"

#include <opencv2/imgproc.hpp>

cv::Mat gradientMagnitude(const cv::Mat& grey) {
  cv::Mat gx, gy, magnitude;
  cv::Sobel(grey, gx, CV_32F, 1, 0, 3);
  cv::Sobel(grey, gy, CV_32F, 0, 1, 3);
  cv::magnitude(gx, gy, magnitude);
  return magnitude;
}
