// OpenCV's k-means (used by cv::grabCut, and by our colour models) draws
// from OpenCV's global generator of the calling thread. `cutout eval` starts
// it afresh before every measured call, so that a result depends on the
// photo and the marks, not on what ran before it.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

inline void restartOpenCvGenerator() {
  constexpr uint64_t kOpenCvInitialState = 0xffffffffu;  // the state cv::RNG() starts from
  cv::theRNG().state = kOpenCvInitialState;
}
