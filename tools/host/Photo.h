// The photo, read once and held in the two forms the tool needs.
#pragma once

#include <array>
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

// A photo a host already holds as 0xAARRGGBB pixels (a phone's bitmap):
// alpha is dropped, as the library drops it. `path` names it in messages.
Photo pixelPhoto(int width, int height, const unsigned int* argb, const std::string& path);

// The same from a file's bytes in memory (JPEG, PNG and WebP never touch the
// disk on the way); `name` stands for the file in messages and as `path`.
Photo decodePhoto(const std::string& bytes, const std::string& name);

// The photo resampled (cubic) to about `megapixels`, as a phone of that
// resolution would have shot it; `box` (x1, y1, x2, y2 inclusive) is scaled
// alike. The photo itself when the size is already right.
Photo resizedPhoto(const Photo& photo, double megapixels, std::array<int, 4>& box);
