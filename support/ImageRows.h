// Row access into IplImages without OpenCV's per-pixel accessors: bytes of
// 8-bit images, or the elements of 32F and 64F ones.
#pragma once

#include <opencv2/core/core_c.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

// Start of row y, as bytes or (imageRow<float>, imageRow<double>) as elements.
// The offset is taken in ptrdiff_t: a header the host set up over its own
// buffer may span more than 2 GB.
template <typename Element = uint8_t>
inline Element* imageRow(const IplImage* image, int y) {
  return reinterpret_cast<Element*>(image->imageData + static_cast<ptrdiff_t>(y) * image->widthStep);
}

// First byte of pixel (x, y).
inline uint8_t* imagePixel(const IplImage* image, int x, int y) {
  return imageRow(image, y) + x * image->nChannels;
}

// The smallest rectangle holding every byte of an 8-bit, 1-channel image
// for which wanted(byte) holds; width and height 0 when there is none.
template <typename Wanted>
CvRect boxWhere(const IplImage* image, Wanted wanted);

// boxWhere for the nonzero bytes, skipping zeros eight at a time.
CvRect nonzeroBox(const IplImage* image);

// ---- implementation ------------------------------------------------------------

namespace image_rows_detail {
// First index in [x, end) whose byte is wanted, or end.
template <typename Wanted>
int firstWhere(const uint8_t* row, int x, int end, Wanted wanted) {
  while (x < end && !wanted(row[x])) ++x;
  return x;
}
// Last index in [begin, end) whose byte is wanted, or begin - 1.
template <typename Wanted>
int lastWhere(const uint8_t* row, int begin, int end, Wanted wanted) {
  while (end > begin && !wanted(row[end - 1])) --end;
  return end - 1;
}

// The same for nonzero bytes, a word at a time (ImageRows.cpp).
struct Nonzero {
  bool operator()(uint8_t v) const { return v != 0; }
};
int firstWhere(const uint8_t* row, int x, int end, Nonzero);
int lastWhere(const uint8_t* row, int begin, int end, Nonzero);
}  // namespace image_rows_detail

template <typename Wanted>
CvRect boxWhere(const IplImage* image, Wanted wanted) {
  int x0 = image->width, y0 = image->height, x1 = -1, y1 = -1;
  for (int y = 0; y < image->height; ++y) {
    const uint8_t* row = imageRow(image, y);
    const int first = image_rows_detail::firstWhere(row, 0, image->width, wanted);
    if (first == image->width) continue;
    x0 = std::min(x0, first);
    // Only what lies right of the box so far can widen it.
    x1 = std::max(x1, image_rows_detail::lastWhere(row, std::max(first, x1 + 1), image->width, wanted));
    y0 = std::min(y0, y);
    y1 = y;
  }
  if (y1 < 0) return cvRect(0, 0, 0, 0);
  return cvRect(x0, y0, x1 - x0 + 1, y1 - y0 + 1);
}
