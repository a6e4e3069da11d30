#include "support/ImageRows.h"

#include <cstring>

namespace image_rows_detail {

int firstWhere(const uint8_t* row, int x, int end, Nonzero) {
  for (; x + 8 <= end; x += 8) {
    uint64_t word;
    std::memcpy(&word, row + x, 8);
    if (word) break;
  }
  while (x < end && !row[x]) ++x;
  return x;
}

int lastWhere(const uint8_t* row, int begin, int end, Nonzero) {
  for (; end - 8 >= begin; end -= 8) {
    uint64_t word;
    std::memcpy(&word, row + end - 8, 8);
    if (word) break;
  }
  while (end > begin && !row[end - 1]) --end;
  return end - 1;
}

}  // namespace image_rows_detail

CvRect nonzeroBox(const IplImage* image) { return boxWhere(image, image_rows_detail::Nonzero()); }
