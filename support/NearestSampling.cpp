#include "support/NearestSampling.h"

#include <opencv2/imgproc/imgproc_c.h>

#include <algorithm>

#include "support/ImageRows.h"

namespace {

// The source index cvResize picks for each of `to` destination positions
// along one axis: 8-bit probes carry the index a byte at a time.
std::vector<int32_t> axisMap(int from, int to, bool alongRows) {
  std::vector<int32_t> map(std::max(to, 0), 0);
  if (from < 1 || to < 1) return map;
  const CvSize source = alongRows ? cvSize(1, from) : cvSize(from, 1);
  const CvSize target = alongRows ? cvSize(1, to) : cvSize(to, 1);
  IplImage* probe = cvCreateImage(source, IPL_DEPTH_8U, 1);
  IplImage* picked = cvCreateImage(target, IPL_DEPTH_8U, 1);
  for (int shift = 0; (from - 1) >> shift; shift += 8) {
    for (int i = 0; i < from; ++i) {
      uint8_t& p = alongRows ? imageRow(probe, i)[0] : imageRow(probe, 0)[i];
      p = static_cast<uint8_t>(i >> shift);
    }
    cvResize(probe, picked, CV_INTER_NN);
    for (int j = 0; j < to; ++j) {
      const uint8_t p = alongRows ? imageRow(picked, j)[0] : imageRow(picked, 0)[j];
      map[j] |= int32_t(p) << shift;
    }
  }
  cvReleaseImage(&probe);
  cvReleaseImage(&picked);
  return map;
}

}  // namespace

NearestSampling nearestSampling(int sw, int sh, int dw, int dh) {
  NearestSampling s;
  s.column = axisMap(sw, dw, false);
  s.row = axisMap(sh, dh, true);
  s.firstColumn.assign(std::max(sw, 0), 1);
  s.lastColumn.assign(std::max(sw, 0), 0);
  for (int x = dw - 1; x >= 0; --x) s.firstColumn[s.column[x]] = x;
  for (int x = 0; x < dw; ++x) s.lastColumn[s.column[x]] = x;
  return s;
}
