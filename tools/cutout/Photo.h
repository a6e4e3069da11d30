// The photo, read once and held in the two forms the tool needs.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

struct Photo {
  std::string path;                  // as given, for messages
  cv::Mat bgr;                       // 8-bit, 3 channels, EXIF orientation applied
  std::vector<unsigned int> pixels;  // the library's form: 0xFFRRGGBB, stride = width
  int width() const { return bgr.cols; }
  int height() const { return bgr.rows; }
};

// Reads any format imgcodecs decodes (8 or 16 bit, grey, colour or with alpha;
// alpha is dropped). Throws CutoutError(kExitPhoto) when the file is missing,
// unreadable or not an image.
Photo readPhoto(const std::string& path);
