#include "interface/BoxMarks.h"

#include <algorithm>
#include <cstring>

#include "support/ImageRows.h"
#include "support/FreshPages.h"
#include "support/ThreadSetting.h"
#include "support/WorkerPool.h"
#include "support/Marks.h"

std::vector<int> traceBoxBorder(int x1, int y1, int x2, int y2) {
  std::vector<int> points;
  const auto add = [&](int x, int y) {
    points.push_back(x);
    points.push_back(y);
  };
  for (int x = x1; x < x2; ++x) add(x, y1);
  for (int y = y1; y < y2; ++y) add(x2, y);
  for (int x = x2; x > x1; --x) add(x, y2);
  for (int y = y2; y > y1; --y) add(x1, y);
  return points;
}

IplImage* boxMarkerImage(int width, int height, int x1, int y1, int x2, int y2) {
  IplImage* marks = cvCreateImage(cvSize(width, height), IPL_DEPTH_8U, 1);
  mapPagesForWriting(marks->imageData, marks->imageSize);
  // Each byte is written once: the rows outside the box, and the parts of
  // box rows left and right of it, are MARK_NONE.
  const bool box = x2 >= x1 && y2 >= y1;
  const int left = std::max(x1, 0), right = std::min(x2, width - 1);
  const int top = std::max(y1, 0), bottom = std::min(y2, height - 1);
  const bool spans = box && left <= right;
  runRanges(height, segmentationThreads(), 256, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      uint8_t* row = imageRow(marks, y);
      if (!spans || y < top || y > bottom) {
        std::memset(row, MARK_NONE, width);
        continue;
      }
      std::memset(row, MARK_NONE, left);
      std::memset(row + left, MARK_PROBABLE_OBJECT, right - left + 1);
      std::memset(row + right + 1, MARK_NONE, width - right - 1);
    }
  });
  return marks;
}
