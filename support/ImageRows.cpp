#include "support/ImageRows.h"

#include <algorithm>
#include <cstring>

namespace {
// First index in [x, end) whose byte is nonzero, or end: eight bytes at a time.
int firstNonzero(const uint8_t* row, int x, int end) {
  for (; x + 8 <= end; x += 8) {
    uint64_t word;
    std::memcpy(&word, row + x, 8);
    if (word) break;
  }
  while (x < end && !row[x]) ++x;
  return x;
}

// Last index in [begin, end) whose byte is nonzero, or begin - 1.
int lastNonzero(const uint8_t* row, int begin, int end) {
  for (; end - 8 >= begin; end -= 8) {
    uint64_t word;
    std::memcpy(&word, row + end - 8, 8);
    if (word) break;
  }
  while (end > begin && !row[end - 1]) --end;
  return end - 1;
}
}  // namespace

CvRect nonzeroBox(const IplImage* image) {
  int x0 = image->width, y0 = image->height, x1 = -1, y1 = -1;
  for (int y = 0; y < image->height; ++y) {
    const uint8_t* row = imageRow(image, y);
    const int first = firstNonzero(row, 0, image->width);
    if (first == image->width) continue;
    x0 = std::min(x0, first);
    // Only what lies right of the box so far can widen it.
    x1 = std::max(x1, lastNonzero(row, std::max(first, x1 + 1), image->width));
    y0 = std::min(y0, y);
    y1 = y;
  }
  if (y1 < 0) return cvRect(0, 0, 0, 0);
  return cvRect(x0, y0, x1 - x0 + 1, y1 - y0 + 1);
}
