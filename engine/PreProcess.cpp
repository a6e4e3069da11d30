// Image analyses ahead of the cut: is there colour at all, texture features
// for grey photos, and tightening the edit region to where the image has
// structure.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdlib>
#include <vector>

#include "engine/KORUSEHybrid.h"
#include "interface/session/KORUSEMarker.h"
#include "support/Gradient.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"
#include "support/LogSites.h"
#include "support/Marks.h"
#include "support/OwnedImage.h"

namespace {
// Mean channel spread |c0 - c1| + |c0 - c2| below this: a grey photo.
const float kGreySpread = 1.0f;
// A row or column of the region has structure when the mean change of the
// gradient magnitude between neighbours along it is above this.
const double kStructure = 5.0;
// Growing the tightened region goes on while the mean step between the
// border line and the next one outside lies in this range: a soft ramp,
// neither flat nor an edge.
const double kGrowMinStep = 0.5;
const double kGrowMaxStep = 40.0;
// Each side may then move out by up to this many pixels, stopping at the
// first step in mean grey above kSideStep.
const int kSideReach = 5;
const double kSideStep = 10.0;
// Tightening rounds; the last one also grows and adjusts the sides.
const int kRounds = 3;

}  // namespace

bool KORUSEHybrid::greyScaleTest(IplImage* img) {
  if (!img || img->depth != IPL_DEPTH_8U || img->nChannels < 3) {
    logBadCall("greyScaleTest", "needs an 8-bit colour image");
    return true;  // nothing that could carry colour
  }
  // Float on purpose: on large images the decision near 1.0 depends on its rounding.
  float spread = 0.0f;
  for (int y = 0; y < img->height; ++y) {
    const uchar* p = imageRow(img, y);
    for (int x = 0; x < img->width; ++x, p += img->nChannels)
      spread += static_cast<float>(std::abs(p[0] - p[1]) + std::abs(p[0] - p[2]));
  }
  // Written so that an empty image (0 / 0) counts as grey.
  return !(spread / static_cast<float>(img->width * img->height) >= kGreySpread);
}

void KORUSEHybrid::computeTexture() {
  const IplImage* src = KORUSEMarker::m_srcImage;
  if (!src || src->depth != IPL_DEPTH_8U) {
    logBadCall("computeTexture", "no 8-bit working image");
    return;
  }
  const int W = src->width, H = src->height, n = src->nChannels;
  releaseImage(&KORUSEMarker::m_texHor);  // planes of an earlier photo
  releaseImage(&KORUSEMarker::m_texVer);
  const bool usable = checkImageSize(W, H, site::computeTextureHor);
  checkImageSize(W, H, site::computeTextureVer);
  if (!usable) return;
  IplImage* hor = cvCreateImage(cvSize(W, H), IPL_DEPTH_8U, 1);
  IplImage* ver = cvCreateImage(cvSize(W, H), IPL_DEPTH_8U, 1);
  cvSetZero(hor);
  cvSetZero(ver);
  KORUSEMarker::m_texHor = hor;
  KORUSEMarker::m_texVer = ver;

  // I(y, x): the first channel. Row 0 looks down, every other row up.
  const auto I = [&](int y, int x) { return static_cast<int>(imageRow(src, y)[x * n]); };
  for (int y = 0; y < H; ++y) {
    uchar* h = imageRow(hor, y);
    uchar* v = imageRow(ver, y);
    for (int x = 0; x + 1 < W; ++x) {
      h[x] = static_cast<uchar>(std::abs(I(y, x + 1) - I(y, x)));
      if (y > 0)
        v[x] = static_cast<uchar>(std::abs(I(y, x) - I(y - 1, x)));
      else if (H > 1)
        v[x] = static_cast<uchar>(std::abs(I(1, x) - I(0, x)));
    }
  }
  // Last column, rows 1 and below. The vertical plane reads the byte at
  // offset W - 1 of each row (a channel of pixel (W - 1) / 3), not the last
  // pixel's first channel. This reading is kept on purpose; do not "fix" it.
  for (int y = 1; y < H; ++y) {
    if (W > 1) imageRow(hor, y)[W - 1] = static_cast<uchar>(std::abs(I(y, W - 2) - I(y, W - 1)));
    imageRow(ver, y)[W - 1] =
        static_cast<uchar>(std::abs(imageRow(src, y - 1)[W - 1] - imageRow(src, y)[W - 1]));
  }
}

// ---- region tightening ----------------------------------------------------------

namespace {
// Mean |difference| between neighbours along each row of `part`.
std::vector<double> rowActivity(const cv::Mat& part) {
  std::vector<double> activity(part.rows);
  for (int y = 0; y < part.rows; ++y) {
    const float* g = part.ptr<float>(y);
    double sum = 0.0;
    for (int x = 1; x < part.cols; ++x) sum += std::abs(g[x - 1] - g[x]);
    activity[y] = sum / part.cols;
  }
  return activity;
}

// First and last index with structure. Without any, the scans run off the
// ends (first = size, last = -1) and the rectangle they make is invalid.
void structureSpan(const std::vector<double>& activity, int& first, int& last) {
  const int n = static_cast<int>(activity.size());
  first = 0;
  while (first < n && !(activity[first] > kStructure)) ++first;
  last = n - 1;
  while (last >= 0 && !(activity[last] > kStructure)) --last;
}

// The part of r whose outer rows and columns have structure in the
// gradient magnitude g.
cv::Rect tighten(const cv::Mat& g, const cv::Rect& r) {
  const cv::Mat part = g(r);
  int top, bottom, left, right;
  structureSpan(rowActivity(part), top, bottom);
  structureSpan(rowActivity(part.t()), left, right);
  return cv::Rect(r.x + left, r.y + top, right - left + 1, bottom - top + 1);
}

bool fitsIn(const cv::Rect& r, const cv::Size& size) {
  return r.x >= 0 && r.y >= 0 && r.x < size.width && r.y < size.height && r.width > 0 &&
         r.height > 0 && r.x + r.width <= size.width && r.y + r.height <= size.height;
}

cv::Rect transposed(const cv::Rect& r) { return cv::Rect(r.y, r.x, r.height, r.width); }

// Mean over r's rows of |grey(b) - grey(a)| for columns a and b.
double columnStep(const cv::Mat& grey, const cv::Rect& r, int a, int b) {
  int sum = 0;
  for (int y = r.y; y < r.y + r.height; ++y) {
    const uchar* p = grey.ptr<uchar>(y);
    sum += std::abs(p[b] - p[a]);
  }
  return static_cast<double>(sum) / r.height;
}

// Mean over r's rows of grey in column c.
double columnMean(const cv::Mat& grey, const cv::Rect& r, int c) {
  int sum = 0;
  for (int y = r.y; y < r.y + r.height; ++y) sum += grey.ptr<uchar>(y)[c];
  return static_cast<double>(sum) / r.height;
}

// Grows r to the left, then to the right, one column at a time across soft
// ramps, never past the image.
void growSideways(const cv::Mat& grey, cv::Rect& r) {
  const auto soft = [](double s) { return s >= kGrowMinStep && s <= kGrowMaxStep; };
  while (r.x > 0 && soft(columnStep(grey, r, r.x, r.x - 1))) {
    --r.x;
    ++r.width;
  }
  while (r.x + r.width < grey.cols && soft(columnStep(grey, r, r.x + r.width - 1, r.x + r.width)))
    ++r.width;
}

// Moves the left, then the right side out by up to kSideReach columns,
// stopping before the first strong step in mean grey.
void adjustSideways(const cv::Mat& grey, cv::Rect& r) {
  const auto strong = [&](int a, int b) {
    return std::abs(columnMean(grey, r, a) - columnMean(grey, r, b)) > kSideStep;
  };
  if (r.x > kSideReach) {
    int i = 0;
    while (i < kSideReach && !strong(r.x - i, r.x - i - 1)) ++i;
    r.x -= i;
    r.width += i;
  }
  if (r.x + r.width <= grey.cols - kSideReach - 1) {
    const int end = r.x + r.width;
    int i = 0;
    while (i < kSideReach && !strong(end + i - 1, end + i)) ++i;
    r.width += i;
  }
}

// The rectangle of the crop worth cutting, or an invalid one.
cv::Rect structuredPart(const cv::Mat& grey) {
  const cv::Mat g = gradientMagnitude(grey);
  const cv::Mat greyT = grey.t();

  cv::Rect r(0, 0, grey.cols, grey.rows);
  for (int round = 0; round < kRounds; ++round) {
    r = tighten(g, r);
    if (!fitsIn(r, grey.size())) return r;
  }
  growSideways(grey, r);
  r = transposed(r);
  growSideways(greyT, r);  // up, then down
  r = transposed(r);
  adjustSideways(grey, r);
  r = transposed(r);
  adjustSideways(greyT, r);  // top, then bottom
  return transposed(r);
}
}  // namespace

void KORUSEHybrid::preProcess() {
  IplImage* src = KORUSEMarker::m_srcImage;
  IplImage* labels = KORUSEMarker::m_labelImage;
  if (!src || !labels || src->nChannels != 3 || src->depth != IPL_DEPTH_8U ||
      !regionInside(src, m_roiWidth, m_roiHeight) || !regionInside(labels, m_roiWidth, m_roiHeight)) {
    logBadCall("preProcess", "no colour working image, no labels, or region outside them");
    return;
  }
  removeBlackRegion();
  IplImage* crop = cropImage(src);
  if (!checkImageSize(m_roiWidth, m_roiHeight, site::preProcess) || !crop) {
    releaseImage(&crop);
    return;
  }
  cv::Mat grey;
  cv::cvtColor(cv::cvarrToMat(crop), grey, cv::COLOR_BGR2GRAY);
  releaseImage(&crop);

  const cv::Rect r = structuredPart(grey);
  if (!fitsIn(r, grey.size()) || r == cv::Rect(0, 0, grey.cols, grey.rows)) return;

  // The dropped frame and R's own one-pixel border become hard background,
  // whatever the user marked there.
  const int x0 = KORUSEMarker::m_xMinBBox, y0 = KORUSEMarker::m_yMinBBox;
  for (int y = 0; y < grey.rows; ++y) {
    uchar* out = imageRow(labels, y0 + y) + x0;
    for (int x = 0; x < grey.cols; ++x)
      if (x <= r.x || x >= r.x + r.width - 1 || y <= r.y || y >= r.y + r.height - 1)
        out[x] = MARK_BACKGROUND;
  }
  m_roiHeight = r.height;
  m_roiWidth = r.width;
  KORUSEMarker::m_xMinBBox += r.x;
  KORUSEMarker::m_yMinBBox += r.y;
}
