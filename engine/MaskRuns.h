// Horizontal runs of a mask and the 4-connected components they form. A
// mask of a few large objects has a few runs per row, so its components are
// found in one pass over the mask and kept in little memory, without a label
// image.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

struct MaskRun {
  int32_t y;       // row
  int32_t x0, x1;  // first and last column
};

struct RunComponents {
  std::vector<MaskRun> runs;       // in raster order
  std::vector<int32_t> rowStart;   // rows + 1 entries: row y's runs start at rowStart[y]
  std::vector<int32_t> component;  // per run: its component, 0 .. size.size() - 1
  std::vector<int32_t> size;       // per component: its pixels
};

// The components of the pixels equal to `value`. False, with `out` left
// incomplete, when the mask has more than `maxRuns` such runs.
bool componentsOfValue(const cv::Mat& mask, uchar value, size_t maxRuns, RunComponents& out);

// The components of the pixels where mask == `now` and before == `then`
// (same size). False as above.
bool componentsOfChange(const cv::Mat& mask, uchar now, const cv::Mat& before, uchar then,
                        size_t maxRuns, RunComponents& out);

// The run of row y that holds column x, or -1.
int runAt(const RunComponents& c, int x, int y);

// Sets the pixels of run r to `value`.
inline void paintRun(cv::Mat& mask, const MaskRun& r, uchar value) {
  uchar* row = mask.ptr<uchar>(r.y);
  std::fill(row + r.x0, row + r.x1 + 1, value);
}
