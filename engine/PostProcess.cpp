// Cleaning a result mask (255 = object, 0 = background, source size) before
// it is shown and recorded, and trimming black borders off the edit region.
#include <opencv2/core.hpp>

#include <algorithm>
#include <vector>

#include "engine/KORUSEHybrid.h"
#include "interface/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "support/KORULog.h"

namespace {
const uchar kObject = 255;
const uchar kBackground = 0;
// A flipped pixel of the stroke cleaning, before and after a stroke point
// has reached its component.
const uchar kFlipped = 127;
const uchar kTouched = 255;
// After a loop, object islands under this share of the largest one go.
const double kIslandShare = 0.1;
// Background pockets of fewer pixels than this are pin holes and are filled.
const int kPinHoleLimit = 5;

inline bool isBrush(int type) { return (type & ~1) == 2; }
inline bool addsToObject(int type) { return (type & ~2) == 0; }

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

// Sets the 4-connected component of pixels equal to `from` around `seed`
// to `to` (from != to) and returns its size. A scanline fill: one run per
// stack entry, and the stack is the caller's, reused, so that thousands of
// specks cost no allocation each.
int fillComponent(cv::Mat& m, cv::Point seed, uchar from, uchar to, std::vector<cv::Point>& stack) {
  int area = 0;
  stack.clear();
  stack.push_back(seed);
  while (!stack.empty()) {
    const cv::Point p = stack.back();
    stack.pop_back();
    uchar* r = m.ptr<uchar>(p.y);
    if (r[p.x] != from) continue;  // reached through another run meanwhile
    int left = p.x, right = p.x;
    while (left > 0 && r[left - 1] == from) --left;
    while (right + 1 < m.cols && r[right + 1] == from) ++right;
    std::fill(r + left, r + right + 1, to);
    area += right - left + 1;
    for (const int y : {p.y - 1, p.y + 1}) {
      if (y < 0 || y >= m.rows) continue;
      const uchar* n = m.ptr<uchar>(y);
      for (int x = left; x <= right; ++x)
        if (n[x] == from && (x == left || n[x - 1] != from)) stack.push_back(cv::Point(x, y));
    }
  }
  return area;
}

// Calls visit(seed, area) once for every 4-connected component of the
// pixels equal to `value` in m. Components are filled in a 0/255 copy and
// marked visited with 1 there, so any number of them is counted.
template <typename Visit>
void forEachComponent(const cv::Mat& m, uchar value, std::vector<cv::Point>& stack, Visit visit) {
  cv::Mat work = (m == value);
  for (int y = 0; y < work.rows; ++y) {
    const uchar* r = work.ptr<uchar>(y);
    for (int x = 0; x < work.cols; ++x)
      if (r[x] == 255) visit(cv::Point(x, y), fillComponent(work, cv::Point(x, y), 255, 1, stack));
  }
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
  cv::Mat merged = prev.clone();
  if (rows >= 1 && cols >= 1) {
    const int yEnd = std::min(y0 + rows, m.rows), xEnd = std::min(x0 + cols, m.cols);
    for (int y = std::max(y0, 0); y < yEnd; ++y) {
      const uchar* in = m.ptr<uchar>(y);
      uchar* out = merged.ptr<uchar>(y);
      for (int x = std::max(x0, 0); x < xEnd; ++x)
        if (in[x] == fill) out[x] = fill;
    }
  }
  merged.copyTo(m);
}

void KORUSEHybrid::postProcessForStroke(IplImage* mask) {
  if (!KORUSEMarker::m_prevResult) return;
  if (mask && !checkImageSize(mask->width, mask->height, "postProcessForStroke", 1694)) return;
  cv::Mat m = maskView(mask, "postProcessForStroke");
  if (m.empty()) return;
  cv::Mat prev = previousFor(m, "postProcessForStroke");
  if (prev.empty()) return;

  const uchar fill = KORUSEMarker::currentStroke.type == STROKE_REMOVE ? kBackground : kObject;
  const uchar opposite = static_cast<uchar>(255 - fill);
  const std::vector<int32_t> points = KORUSEMarker::currentStroke.points;
  std::vector<cv::Point> stack;

  // The pixels the new result flipped towards the stroke's side.
  cv::Mat change(m.size(), CV_8UC1);
  for (int y = 0; y < m.rows; ++y) {
    const uchar* now = m.ptr<uchar>(y);
    const uchar* before = prev.ptr<uchar>(y);
    uchar* c = change.ptr<uchar>(y);
    for (int x = 0; x < m.cols; ++x) c[x] = now[x] == fill && before[x] == opposite ? kFlipped : 0;
  }

  // Keep the flipped components that a stroke point lies on. Points off the
  // mask (and a dangling x) reach nothing.
  for (size_t i = 0; i + 1 < points.size(); i += 2) {
    const int x = points[i], y = points[i + 1];
    if (x < 0 || y < 0 || x >= change.cols || y >= change.rows) continue;
    if (change.at<uchar>(y, x) == kFlipped) fillComponent(change, {x, y}, kFlipped, kTouched, stack);
  }

  for (int y = 0; y < m.rows; ++y) {
    const uchar* before = prev.ptr<uchar>(y);
    const uchar* c = change.ptr<uchar>(y);
    uchar* out = m.ptr<uchar>(y);
    for (int x = 0; x < m.cols; ++x) out[x] = c[x] >= kTouched ? fill : before[x];
  }
}

void KORUSEHybrid::postProcessForLoop(IplImage* mask) {
  cv::Mat m = maskView(mask, "postProcessForLoop");
  if (m.empty()) return;

  std::vector<cv::Point> stack, fill;

  // Small islands: under a tenth of the largest object component.
  int largest = 0;
  forEachComponent(m, kObject, stack, [&](cv::Point, int area) { largest = std::max(largest, area); });
  const int threshold = static_cast<int>(largest * kIslandShare);
  forEachComponent(m, kObject, stack, [&](cv::Point seed, int area) {
    if (area < threshold) fillComponent(m, seed, kObject, kBackground, fill);
  });

  // Pin holes: background pockets of 1 to 4 pixels.
  forEachComponent(m, kBackground, stack, [&](cv::Point seed, int area) {
    if (area < kPinHoleLimit) fillComponent(m, seed, kBackground, kObject, fill);
  });
}

namespace {
// The region lies inside `image` (cropImage itself does not check).
bool regionInside(const IplImage* image, int width, int height) {
  const int x0 = KORUSEMarker::m_xMinBBox, y0 = KORUSEMarker::m_yMinBBox;
  return x0 >= 0 && y0 >= 0 && x0 + width <= image->width && y0 + height <= image->height;
}

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
    uchar* out = reinterpret_cast<uchar*>(labels->imageData + (y0 + y) * labels->widthStep) + x0;
    for (int x = 0; x < width; ++x)
      if (x <= left || x >= right || y <= top || y >= bottom) out[x] = MARK_BACKGROUND;
  }
  KORUSEMarker::m_xMinBBox += left;
  KORUSEMarker::m_yMinBBox += top;
  m_roiWidth = right + 1 - left;
  m_roiHeight = bottom + 1 - top;
}
