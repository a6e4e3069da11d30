// Zhang-Suen thinning: a region reduced to its one-pixel-wide skeleton.
// Written out here because the only packaged version comes with OpenCV's
// contrib modules, whose Debian package pulls in Qt, VTK and MPI.
#pragma once

#include <opencv2/core.hpp>

// `region`: 8-bit, nonzero inside. Returns 255 on the skeleton, 0 elsewhere.
// The outermost rows and columns are never thinned (frame the region first).
cv::Mat zhangSuenThinning(const cv::Mat& region);
