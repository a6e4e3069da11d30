// Labels and the region of interest: from the host's marks to the label
// image, the region a cut covers, the crops, and from labels back to a mask.
#include <opencv2/core.hpp>
#include <opencv2/imgproc/imgproc_c.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

#include "engine/KORUSEHybrid.h"
#include "graph/KORUSEGraph.h"
#include "history/KORUSEManageUndoRedo.h"
#include "interface/session/KORUSEMarker.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"
#include "support/LogSites.h"
#include "support/Marks.h"
#include "support/NearestSampling.h"
#include "support/OwnedImage.h"
#include "support/StageTrace.h"

namespace {
// A brush stroke's soft halo: 5 % of the image's geometric mean side.
const double kHaloFraction = 0.05;
// The stroke's own path is left to the cut, this many pixels wide.
const int kUnknownPathThickness = 3;
// Margin around the edit's box, in working pixels.
const int kRegionMargin = 10;
}  // namespace

// Brush strokes: dilate the marks; the new ring around a stroke's own value
// becomes the matching probable label. Only the marks' box grown by the
// dilation can change (the rest is 0 and stays 0), so only that part is
// copied and dilated: the same bytes as dilating the whole image.
static void addBrushHalo(IplImage* marker, int type) {
  const int k = static_cast<int>(std::sqrt(double(marker->width) * marker->height) * kHaloFraction);
  const CvRect marks = nonzeroBox(marker);
  if (marks.width < 1) return;  // nothing to dilate, no ring
  const int x0 = std::max(marks.x - k, 0), y0 = std::max(marks.y - k, 0);
  const int x1 = std::min(marks.x + marks.width - 1 + k, marker->width - 1);
  const int y1 = std::min(marks.y + marks.height - 1 + k, marker->height - 1);
  const cv::Rect box(x0, y0, x1 - x0 + 1, y1 - y0 + 1);

  IplImage area = cvIplImage(cv::cvarrToMat(marker)(box));  // a header over the box
  OwnedImage copy(cvCreateImage(cvSize(box.width, box.height), IPL_DEPTH_8U, 1));
  cvCopy(&area, copy.get(), nullptr);
  cvDilate(copy.get(), &area, nullptr, k);
  const uint8_t own = type == STROKE_ADD ? MARK_OBJECT : MARK_BACKGROUND;
  const uint8_t halo = type == STROKE_ADD ? MARK_PROBABLE_OBJECT : MARK_PROBABLE_BACKGROUND;
  for (int y = 0; y < box.height; ++y) {
    uint8_t* out = imageRow(marker, y0 + y) + x0;
    const uint8_t* before = imageRow(copy.get(), y);
    for (int x = 0; x < box.width; ++x)
      if (out[x] == own && before[x] == MARK_NONE) out[x] = halo;
  }
}

// The label of one pixel from its mark and the previous result there (none
// on a first edit): unmarked pixels take the previous result as hard labels
// (or become hard background); marked pixels already agreeing with the
// edit's side become hard.
static inline uint8_t labelOf(uint8_t mark, const uint8_t* before, int type) {
  if (!before) return mark == MARK_NONE ? uint8_t(MARK_BACKGROUND) : mark;
  if (mark == MARK_NONE) {
    if (*before == 255) return MARK_OBJECT;
    return *before == 0 ? uint8_t(MARK_BACKGROUND) : mark;
  }
  if (addsToObject(type) && *before == 255) return MARK_OBJECT;
  if (!addsToObject(type) && *before == 0) return MARK_BACKGROUND;
  return mark;
}

// Labels of every pixel: the working image is the photo itself.
static void fullLabels(IplImage* labels, const IplImage* marker, const IplImage* prev, int type) {
  for (int y = 0; y < labels->height; ++y) {
    uint8_t* out = imageRow(labels, y);
    const uint8_t* marks = imageRow(marker, y);
    const uint8_t* before = prev ? imageRow(prev, y) : nullptr;
    for (int x = 0; x < labels->width; ++x)
      out[x] = labelOf(marks[x], before ? before + x : nullptr, type);
  }
}

// Labels of the working image: each pixel is labelled from the photo pixel
// that a nearest-neighbour reduction of full labels would pick, so no full
// label image is made.
static void sampledLabels(IplImage* labels, const IplImage* marker, const IplImage* prev,
                          int type) {
  const NearestSampling samples = nearestSampling(marker->width, marker->height, labels->width, labels->height);
  const std::vector<int32_t>& xs = samples.column;
  const std::vector<int32_t>& ys = samples.row;
  for (int y = 0; y < labels->height; ++y) {
    uint8_t* out = imageRow(labels, y);
    const uint8_t* marks = imageRow(marker, ys[y]);
    const uint8_t* before = prev ? imageRow(prev, ys[y]) : nullptr;
    for (int x = 0; x < labels->width; ++x)
      out[x] = labelOf(marks[xs[x]], before ? before + xs[x] : nullptr, type);
  }
}

// The mask on display into m_prevResult (null when there is none). The
// image kept from the last edit is refilled when it has the photo's size:
// a new photo-sized image each edit would cost its pages afresh.
static void takePreviousResult() {
  IplImage*& prev = KORUSEMarker::m_prevResult;
  const bool fits = prev && prev->width == KORUSEMarker::m_originalWidth &&
                    prev->height == KORUSEMarker::m_originalHeight && prev->nChannels == 1 &&
                    prev->depth == IPL_DEPTH_8U && !prev->roi;
  if (fits && KORUSEManageUndoRedo::prevMaskInto(prev)) return;
  releaseImage(&prev);
  prev = KORUSEManageUndoRedo::prevMask();
}

void KORUSEHybrid::setLabelImage(IplImage* marker) {
  releaseImage(&KORUSEMarker::m_labelImage);
  if (!marker || !KORUSEMarker::m_srcImage) {
    releaseImage(&KORUSEMarker::m_prevResult);
    logBadCall("setLabelImage", "no marks or no working image");
    return;
  }
  const int type = KORUSEMarker::currentStroke.type;
  if (isBrush(type)) addBrushHalo(marker, type);

  takePreviousResult();
  const IplImage* prev = KORUSEMarker::m_prevResult;
  if (prev && (prev->width < marker->width || prev->height < marker->height)) {
    logBadCall("setLabelImage", "marks larger than the previous result: it is left out");
    prev = nullptr;
  }
  if (g_imageResizeFactor == 1.0f) {
    KORUSEMarker::m_labelImage = cvCloneImage(marker);
    fullLabels(KORUSEMarker::m_labelImage, marker, prev, type);
  } else {
    checkImageSize(KORUSEMarker::m_srcImage->width, KORUSEMarker::m_srcImage->height,
                   site::setLabelImage);
    KORUSEMarker::m_labelImage = cvCreateImage(cvGetSize(KORUSEMarker::m_srcImage), 8, 1);
    sampledLabels(KORUSEMarker::m_labelImage, marker, prev, type);
  }
  addUnknownRegion();
}

void KORUSEHybrid::addUnknownRegion() {
  const std::vector<int32_t>& p = KORUSEMarker::currentStroke.points;
  const int count = static_cast<int>(p.size() / 2);
  if (count < 2 || !KORUSEMarker::m_labelImage) return;
  const auto at = [&](int i) {
    return cvPoint(static_cast<int>(p[2 * i] / g_imageResizeFactor),
                   static_cast<int>(p[2 * i + 1] / g_imageResizeFactor));
  };
  // Closed also for brush strokes: the last point joins the first.
  for (int i = 0; i < count; ++i)
    cvLine(KORUSEMarker::m_labelImage, at(i), at((i + 1) % count), cvScalarAll(0),
           kUnknownPathThickness, 8, 0);
}

namespace {
struct Box {
  int xmin = INT_MAX, xmax = -1, ymin = INT_MAX, ymax = -1;
  void add(int x, int y) {
    xmin = std::min(xmin, x);
    xmax = std::max(xmax, x);
    ymin = std::min(ymin, y);
    ymax = std::max(ymax, y);
  }
  bool empty() const { return xmax < 0; }
};

template <typename Wanted>
Box boxOfLabels(IplImage* labels, Wanted wanted) {
  if (!labels) return Box();
  const CvRect r = boxWhere(labels, wanted);
  if (r.width < 1) return Box();
  return Box{r.x, r.x + r.width - 1, r.y, r.y + r.height - 1};
}
}  // namespace

void KORUSEHybrid::computeBoundingBox() {
  const strokeInfo& stroke = KORUSEMarker::currentStroke;
  IplImage* labels = KORUSEMarker::m_labelImage;
  Box box;
  if (stroke.points.empty()) {
    box = boxOfLabels(labels, [](uint8_t v) { return v == MARK_NONE || v == MARK_PROBABLE_OBJECT; });
  } else if (!isBrush(stroke.type)) {
    const float inverse = 1.0f / g_imageResizeFactor;
    for (size_t i = 0; i + 1 < stroke.points.size(); i += 2)
      box.add(static_cast<int>(stroke.points[i] * inverse),
              static_cast<int>(stroke.points[i + 1] * inverse));
  } else {
    const uint8_t halo = stroke.type == STROKE_ADD ? MARK_PROBABLE_OBJECT : MARK_PROBABLE_BACKGROUND;
    box = boxOfLabels(labels, [halo](uint8_t v) { return v == halo; });
  }
  if (box.empty() || m_imageWidth < 1 || m_imageHeight < 1) box = Box{0, 0, 0, 0};

  KORUSEMarker::m_xMinBBox = std::max(box.xmin, kRegionMargin) - kRegionMargin;
  KORUSEMarker::m_yMinBBox = std::max(box.ymin, kRegionMargin) - kRegionMargin;
  m_roiHeight = std::min(box.ymax + kRegionMargin, m_imageHeight - 1) - KORUSEMarker::m_yMinBBox + 1;
  m_roiWidth = std::min(box.xmax + kRegionMargin, m_imageWidth - 1) - KORUSEMarker::m_xMinBBox + 1;
  m_minRegionArea = static_cast<int>((box.xmax - box.xmin) * (box.ymax - box.ymin) * 0.1);
}

bool regionInside(const IplImage* image, int width, int height) {
  const int x0 = KORUSEMarker::m_xMinBBox, y0 = KORUSEMarker::m_yMinBBox;
  return x0 >= 0 && y0 >= 0 && x0 + width <= image->width && y0 + height <= image->height;
}

IplImage* KORUSEHybrid::cropImage(IplImage* src) {
  if (!checkImageSize(m_roiWidth, m_roiHeight, site::cropImage) || !src) return nullptr;
  IplImage* crop = cvCreateImage(cvSize(m_roiWidth, m_roiHeight), 8, src->nChannels);
  const int bytes = m_roiWidth * src->nChannels;
  const int x0 = KORUSEMarker::m_xMinBBox * src->nChannels;
  for (int r = 0; r < m_roiHeight; ++r)
    std::copy_n(imageRow(src, KORUSEMarker::m_yMinBBox + r) + x0, bytes, imageRow(crop, r));
  return crop;
}

int KORUSEHybrid::updateLabelImage() {
  int objectNodes = 0;
  for (int r = 0; r < m_roiHeight; ++r) {
    uint8_t* labels = imageRow(m_roiLabel, r);
    for (int c = 0; c < m_roiWidth; ++c) {
      const bool background = m_graph->getTreeofNode(r * m_roiWidth + c);
      if (!background) ++objectNodes;
      uint8_t& label = labels[c];
      if (label != MARK_BACKGROUND && label != MARK_OBJECT)  // hard labels never move
        label = background ? MARK_PROBABLE_BACKGROUND : MARK_PROBABLE_OBJECT;
    }
  }
  return objectNodes;
}

IplImage* KORUSEHybrid::getObjMask() {
  checkImageSize(m_imageWidth, m_imageHeight, site::getObjMask);
  IplImage* mask = cvCreateImage(cvSize(m_imageWidth, m_imageHeight), 8, 1);
  cvSetZero(mask);
  // The refinement takes a 0/1 mask; without it the mask is final: 0/255.
  const uint8_t object = g_imageResizeFactor > 1.0f ? 1 : 255;
  for (int r = 0; r < m_roiHeight; ++r) {
    const uint8_t* labels = imageRow(m_roiLabel, r);
    uint8_t* full = imageRow(KORUSEMarker::m_labelImage, KORUSEMarker::m_yMinBBox + r) + KORUSEMarker::m_xMinBBox;
    uint8_t* out = imageRow(mask, KORUSEMarker::m_yMinBBox + r) + KORUSEMarker::m_xMinBBox;
    for (int c = 0; c < m_roiWidth; ++c) {
      full[c] = labels[c];
      if (isObject(labels[c])) out[c] = object;
    }
  }
  if (g_imageResizeFactor > 1.0f) {
    IplImage* fullSize = intelligentUpscaling(mask);
    cvReleaseImage(&mask);
    mask = fullSize;
  }
  traceStage("post-processing");
  postProcess(mask);
  traceStage("history");
  KORUSEManageUndoRedo::updateBitPlane(mask);
  return mask;
}
