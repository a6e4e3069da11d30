// Labels and the region of interest: from the host's marks to the label
// image, the region a cut covers, the crops, and from labels back to a mask.
#include <opencv2/imgproc/imgproc_c.h>

#include <algorithm>
#include <climits>
#include <cmath>

#include "engine/KORUSEHybrid.h"
#include "graph/KORUSEGraph.h"
#include "history/KORUSEManageUndoRedo.h"
#include "interface/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "support/KORULog.h"
#include "support/ImageRows.h"
#include "support/StageTrace.h"

namespace {
// A brush stroke's soft halo: 5 % of the image's geometric mean side.
const double kHaloFraction = 0.05;
// The stroke's own path is left to the cut, this many pixels wide.
const int kUnknownPathThickness = 3;
// Margin around the edit's box, in working pixels.
const int kRegionMargin = 10;

inline bool isBrush(int type) { return (type & ~1) == 2; }
inline bool addsToObject(int type) { return (type & ~2) == 0; }
}  // namespace

// Brush strokes: dilate the marks; the new ring around a stroke's own value
// becomes the matching probable label.
static void addBrushHalo(IplImage* marker, int type) {
  IplImage* copy = cvCloneImage(marker);
  const int k = static_cast<int>(std::sqrt(double(marker->width) * marker->height) * kHaloFraction);
  cvDilate(copy, marker, nullptr, k);
  const uint8_t own = type == STROKE_ADD ? MARK_OBJECT : MARK_BACKGROUND;
  const uint8_t halo = type == STROKE_ADD ? MARK_PROBABLE_OBJECT : MARK_PROBABLE_BACKGROUND;
  for (int y = 0; y < marker->height; ++y) {
    uint8_t* out = imageRow(marker, y);
    const uint8_t* before = imageRow(copy, y);
    for (int x = 0; x < marker->width; ++x)
      if (out[x] == own && before[x] == MARK_NONE) out[x] = halo;
  }
  cvReleaseImage(&copy);
}

// Unmarked pixels take the previous result as hard labels (or become hard
// background on a first edit); marked pixels already agreeing with the
// edit's side become hard.
static void applyPreviousResult(IplImage* labels, const IplImage* marker, const IplImage* prev,
                                int type) {
  for (int y = 0; y < labels->height; ++y) {
    uint8_t* out = imageRow(labels, y);
    const uint8_t* marks = imageRow(marker, y);
    const uint8_t* before = prev ? imageRow(prev, y) : nullptr;
    for (int x = 0; x < labels->width; ++x) {
      if (!before) {
        if (marks[x] == MARK_NONE) out[x] = MARK_BACKGROUND;
      } else if (marks[x] == MARK_NONE) {
        if (before[x] == 255) out[x] = MARK_OBJECT;
        else if (before[x] == 0) out[x] = MARK_BACKGROUND;
      } else if (addsToObject(type) && before[x] == 255) {
        out[x] = MARK_OBJECT;
      } else if (!addsToObject(type) && before[x] == 0) {
        out[x] = MARK_BACKGROUND;
      }
    }
  }
}

void KORUSEHybrid::setLabelImage(IplImage* marker) {
  releaseImage(&KORUSEMarker::m_labelImage);
  releaseImage(&KORUSEMarker::m_prevResult);
  if (!marker || !KORUSEMarker::m_srcImage) {
    logBadCall("setLabelImage", "no marks or no working image");
    return;
  }
  const int type = KORUSEMarker::currentStroke.type;
  if (isBrush(type)) addBrushHalo(marker, type);

  IplImage* labels = cvCloneImage(marker);
  KORUSEMarker::m_prevResult = KORUSEManageUndoRedo::prevMask();
  applyPreviousResult(labels, marker, KORUSEMarker::m_prevResult, type);

  if (g_imageResizeFactor == 1.0f) {
    KORUSEMarker::m_labelImage = cvCloneImage(labels);
  } else {
    checkImageSize(KORUSEMarker::m_srcImage->width, KORUSEMarker::m_srcImage->height,
                   "setLabelImage", 223);
    KORUSEMarker::m_labelImage = cvCreateImage(cvGetSize(KORUSEMarker::m_srcImage), 8, 1);
    cvResize(labels, KORUSEMarker::m_labelImage, CV_INTER_NN);  // no new label values
  }
  addUnknownRegion();
  cvReleaseImage(&labels);
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
  Box box;
  if (!labels) return box;
  for (int y = 0; y < labels->height; ++y) {
    const uint8_t* r = imageRow(labels, y);
    for (int x = 0; x < labels->width; ++x)
      if (wanted(r[x])) box.add(x, y);
  }
  return box;
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

IplImage* KORUSEHybrid::cropImage(IplImage* src) {
  if (!checkImageSize(m_roiWidth, m_roiHeight, "cropImage", 850) || !src) return nullptr;
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
  checkImageSize(m_imageWidth, m_imageHeight, "getObjMask", 1410);
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
      if (labels[c] == MARK_OBJECT || labels[c] == MARK_PROBABLE_OBJECT) out[c] = object;
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
