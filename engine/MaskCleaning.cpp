// The mask cleanings on runs: one pass over the mask finds the components,
// and only the pixels that change are written.
#include "engine/MaskCleaning.h"

#include <algorithm>
#include <cstring>

#include "engine/MaskRuns.h"

namespace {
// A mask with more runs than one per this many pixels is cleaned plainly:
// its runs would cost more memory than the plain way's copy.
const size_t kPixelsPerRun = 64;

size_t runBudget(const cv::Mat& m) { return m.total() / kPixelsPerRun + 1024; }

// Sets the components whose size is below `limit` to `value`.
void paintSmall(cv::Mat& m, const RunComponents& c, int limit, uchar value) {
  for (size_t r = 0; r < c.runs.size(); ++r)
    if (c.size[c.component[r]] < limit) paintRun(m, c.runs[r], value);
}
}  // namespace

void loopCleaning(cv::Mat& m) {
  RunComponents c;
  if (componentsOfValue(m, kObject, runBudget(m), c)) {
    const int largest = c.size.empty() ? 0 : *std::max_element(c.size.begin(), c.size.end());
    paintSmall(m, c, static_cast<int>(largest * kIslandShare), kBackground);
  } else {
    plainDropIslands(m);
  }
  // The pockets are those of the mask without the islands.
  if (componentsOfValue(m, kBackground, runBudget(m), c))
    paintSmall(m, c, kPinHoleLimit, kObject);
  else
    plainFillPinHoles(m);
}

void strokeCleaning(cv::Mat& m, const cv::Mat& prev, uchar fill,
                    const std::vector<int32_t>& points) {
  const uchar opposite = static_cast<uchar>(255 - fill);
  RunComponents c;
  if (!componentsOfChange(m, fill, prev, opposite, runBudget(m), c))
    return plainStrokeCleaning(m, prev, fill, points);
  std::vector<bool> touched(c.size.size(), false);
  for (size_t i = 0; i + 1 < points.size(); i += 2) {
    const int x = points[i], y = points[i + 1];
    if (x < 0 || y < 0 || x >= m.cols || y >= m.rows) continue;
    const int r = runAt(c, x, y);
    if (r >= 0) touched[c.component[r]] = true;
  }
  for (int y = 0; y < m.rows; ++y) std::memcpy(m.ptr<uchar>(y), prev.ptr<uchar>(y), m.cols);
  for (size_t r = 0; r < c.runs.size(); ++r)
    if (touched[c.component[r]]) paintRun(m, c.runs[r], fill);
}
