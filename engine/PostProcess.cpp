// Cleaning a result mask (255 = object, 0 = background, source size) before
// it is shown and recorded, and trimming black borders off the edit region.
#include <opencv2/core.hpp>

#include <algorithm>
#include <vector>

#include "engine/KORUSEHybrid.h"
#include "engine/MaskCleaning.h"
#include "interface/session/KORUSEMarker.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"
#include "support/LogSites.h"
#include "support/Marks.h"

namespace {
// A usable 8-bit, 1-channel mask, or an empty matrix after logging.
cv::Mat maskView(IplImage* mask, const char* function) {
  if (!mask || mask->nChannels != 1 || mask->depth != IPL_DEPTH_8U) {
    logBadCall(function, "mask missing or not 8-bit single-channel");
    return cv::Mat();
  }
  return cv::cvarrToMat(mask);
}

// The previous result when it matches the mask's size and type, else empty.
cv::Mat previousFor(const cv::Mat& m, const char* function) {
  IplImage* prev = KORUSEMarker::m_prevResult;
  if (!prev) return cv::Mat();
  cv::Mat p = cv::cvarrToMat(prev);
  if (p.size() != m.size() || p.type() != m.type()) {
    logBadCall(function, "previous result differs in size from the mask");
    return cv::Mat();
  }
  return p;
}
}  // namespace

void KORUSEHybrid::postProcess(IplImage* mask) {
  cv::Mat m = maskView(mask, "postProcess");
  if (m.empty()) return;
  const int type = KORUSEMarker::currentStroke.type;
  if (type == LOOP_ADD)
    postProcessForLoop(mask);
  else if (isBrush(type))
    postProcessForStroke(mask);

  cv::Mat prev = previousFor(m, "postProcess");
  if (prev.empty()) return;

  // The edit's box in source pixels; truncated like the rest of the scaling.
  const float f = g_imageResizeFactor;
  const uchar fill = addsToObject(type) ? kObject : kBackground;
  const int rows = static_cast<int>(f * m_roiHeight), cols = static_cast<int>(f * m_roiWidth);
  const int y0 = static_cast<int>(f * KORUSEMarker::m_yMinBBox);
  const int x0 = static_cast<int>(f * KORUSEMarker::m_xMinBBox);

  // Only the edit's direction, only inside the box: elsewhere the previous
  // result wins. Rounding may push the box a pixel past the mask; clamp.
  // One pass in place: a box pixel keeps `fill` if it has it, every other
  // pixel takes the previous result.
  const bool box = rows >= 1 && cols >= 1;
  const int yBegin = box ? std::max(y0, 0) : 0, yEnd = box ? std::min(y0 + rows, m.rows) : 0;
  const int xBegin = box ? std::min(std::max(x0, 0), m.cols) : 0;
  const int xEnd = box ? std::max(std::min(x0 + cols, m.cols), xBegin) : 0;
  for (int y = 0; y < m.rows; ++y) {
    const uchar* before = prev.ptr<uchar>(y);
    uchar* out = m.ptr<uchar>(y);
    if (y < yBegin || y >= yEnd) {
      std::copy(before, before + m.cols, out);
      continue;
    }
    std::copy(before, before + xBegin, out);
    for (int x = xBegin; x < xEnd; ++x)
      if (out[x] != fill) out[x] = before[x];
    std::copy(before + xEnd, before + m.cols, out + xEnd);
  }
}

void KORUSEHybrid::postProcessForStroke(IplImage* mask) {
  if (!KORUSEMarker::m_prevResult) return;
  if (mask && !checkImageSize(mask->width, mask->height, site::postProcessForStroke)) return;
  cv::Mat m = maskView(mask, "postProcessForStroke");
  if (m.empty()) return;
  cv::Mat prev = previousFor(m, "postProcessForStroke");
  if (prev.empty()) return;
  const uchar fill = KORUSEMarker::currentStroke.type == STROKE_REMOVE ? kBackground : kObject;
  strokeCleaning(m, prev, fill, KORUSEMarker::currentStroke.points);
}

void KORUSEHybrid::postProcessForLoop(IplImage* mask) {
  cv::Mat m = maskView(mask, "postProcessForLoop");
  if (m.empty()) return;
  loopCleaning(m);
}

namespace {
// A row or column is black when its first channel sums to 0.
bool blackRow(const cv::Mat& c, int y) {
  const uchar* p = c.ptr<uchar>(y);
  for (int x = 0; x < c.cols; ++x)
    if (p[x * c.channels()]) return false;
  return true;
}
bool blackColumn(const cv::Mat& c, int x) {
  for (int y = 0; y < c.rows; ++y)
    if (c.ptr<uchar>(y)[x * c.channels()]) return false;
  return true;
}
}  // namespace

void KORUSEHybrid::removeBlackRegion() {
  IplImage* labels = KORUSEMarker::m_labelImage;
  if (!KORUSEMarker::m_srcImage || !labels) {
    logBadCall("removeBlackRegion", "no working image or no labels");
    return;
  }
  if (m_roiWidth >= 1 && m_roiHeight >= 1 &&
      (!regionInside(KORUSEMarker::m_srcImage, m_roiWidth, m_roiHeight) ||
       !regionInside(labels, m_roiWidth, m_roiHeight))) {
    logBadCall("removeBlackRegion", "region outside the working image");
    return;
  }
  IplImage* crop = cropImage(KORUSEMarker::m_srcImage);
  if (!crop) return;
  const cv::Mat c = cv::cvarrToMat(crop);
  const int width = c.cols, height = c.rows;

  int left = 0, right = width - 1, top = 0, bottom = height - 1;
  while (left < width && blackColumn(c, left)) ++left;
  while (right >= 0 && blackColumn(c, right)) --right;
  while (top < height && blackRow(c, top)) ++top;
  while (bottom >= 0 && blackRow(c, bottom)) --bottom;
  cvReleaseImage(&crop);

  if (left == 0 && right == width - 1 && top == 0 && bottom == height - 1) return;
  // All black: no span to move to; the region stays as it was.
  if (left > right || top > bottom) return;

  // Everything not strictly inside the non-black span becomes background:
  // the span's own first and last rows and columns too, on purpose.
  const int x0 = KORUSEMarker::m_xMinBBox, y0 = KORUSEMarker::m_yMinBBox;
  for (int y = 0; y < height; ++y) {
    uchar* out = imageRow(labels, y0 + y) + x0;
    for (int x = 0; x < width; ++x)
      if (x <= left || x >= right || y <= top || y >= bottom) out[x] = MARK_BACKGROUND;
  }
  KORUSEMarker::m_xMinBBox += left;
  KORUSEMarker::m_yMinBBox += top;
  m_roiWidth = right + 1 - left;
  m_roiHeight = bottom + 1 - top;
}
