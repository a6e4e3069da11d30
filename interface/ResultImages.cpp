// Results as the host shows them: the byte mask, the outline painted over the
// preview, the outline as polygons, and the direct edit.
#include <opencv2/core.hpp>
#include <opencv2/imgproc/imgproc_c.h>

#include <algorithm>
#include <cstring>

#include "history/KORUSEManageUndoRedo.h"
#include "interface/ExportGuard.h"
#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SegmentationCore.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"
#include "support/LogSites.h"
#include "support/Marks.h"
#include "support/OwnedImage.h"

namespace {
const unsigned int kOutlineColour = 0xFFFFFF00u;  // opaque yellow
const int kOutlineThickness = 2;
const int kAntiAliased = 16;
// Extra pixels around the object's box in the image the outline is drawn
// into: the thick anti-aliased lines reach about 3 pixels past their points,
// and the drawing clips 2 pixels inside the image's edges.
const int kDrawingMargin = 8;

// A result of the photo's size; anything else would write past the host's buffers.
bool haveResult(const char* function) {
  if (resultMask && resultMask->width == KORUSEMarker::m_originalWidth &&
      resultMask->height == KORUSEMarker::m_originalHeight)
    return true;
  logBadCall(function, resultMask ? "result size differs from the photo" : "no result to deliver");
  return false;
}
}  // namespace

void loadMaskImageInfo(unsigned char* mask) {
  exportGuardVoid("loadMaskImageInfo", [&] {
    if (!mask || !haveResult("loadMaskImageInfo")) {
      if (!mask) logBadCall("loadMaskImageInfo", "null mask buffer");
      return;
    }
    // The host's convention is inverted: 0 = object, 255 for anything else.
    const cv::Mat result = cv::cvarrToMat(resultMask);
    cv::Mat host(result.rows, result.cols, CV_8UC1, mask);
    cv::compare(result, 255, host, cv::CMP_NE);
  });
}

// r grown by `margin` on every side, within width x height.
static CvRect grown(CvRect r, int margin, int width, int height) {
  const int x0 = std::max(r.x - margin, 0), y0 = std::max(r.y - margin, 0);
  const int x1 = std::min(r.x + r.width + margin, width);
  const int y1 = std::min(r.y + r.height + margin, height);
  return cvRect(x0, y0, x1 - x0, y1 - y0);
}

// Finds the outline of resultMask into `storage`/`contours` and returns the
// box of the object (empty when there is none). The search ignores an
// image's one-pixel frame, and outside the object's box with a frame of
// zeros there is nothing to find: searched there and offset back, the
// contours are those of the whole mask, point for point. The search
// destroys what it reads: a copy, unless the result is released next.
static CvRect findOutline(bool resultGoesNext) {
  releaseStorage();
  storage = cvCreateMemStorage(0);
  const CvRect object = nonzeroBox(resultMask);
  if (object.width < 1) return object;  // no contour: `contours` stays null
  const CvRect part = grown(object, 1, resultMask->width, resultMask->height);
  OwnedImage copy;
  cvSetImageROI(resultMask, part);
  if (!resultGoesNext) {
    copy.reset(cvCreateImage(cvSize(part.width, part.height), IPL_DEPTH_8U, 1));
    cvCopy(resultMask, copy.get(), nullptr);
    cvResetImageROI(resultMask);
  }
  IplImage* scratch = resultGoesNext ? resultMask : copy.get();
  const int found = cvFindContours(scratch, storage, &contours, sizeof(CvContour), CV_RETR_LIST,
                                   CV_CHAIN_APPROX_SIMPLE, cvPoint(part.x, part.y));
  cvResetImageROI(resultMask);
  if (found > 0 && contours) pathAvailable = 1;
  return object;
}

// Draws the outline found last and paints its full-strength pixels yellow;
// anti-aliased fringe pixels below 255 are left alone. Drawn into the
// object's box with kDrawingMargin: the lines stay well inside it, and where
// they reach the photo's edge so does the box, so the clipping is the same
// as in a drawing of the whole photo.
static void paintOutline(CvRect object, unsigned int* blended) {
  if (object.width < 1 || !contours) return;
  const int width = resultMask->width;
  const CvRect part = grown(object, kDrawingMargin, width, resultMask->height);
  OwnedImage owned(cvCreateImage(cvSize(part.width, part.height), IPL_DEPTH_8U, 1));
  IplImage* outline = owned.get();
  cvSetZero(outline);
  cvDrawContours(outline, contours, cvScalarAll(255), cvScalarAll(255), 255, kOutlineThickness,
                 kAntiAliased, cvPoint(-part.x, -part.y));
  for (int y = 0; y < part.height; ++y) {
    const uint8_t* row = imageRow(outline, y);
    unsigned int* out = blended + static_cast<size_t>(part.y + y) * width + part.x;
    int x = 0;
    for (; x + 8 <= part.width; x += 8) {  // mostly empty: skip eight at a time
      uint64_t word;
      std::memcpy(&word, row + x, 8);
      if (!word) continue;
      for (int i = x; i < x + 8; ++i)
        if (row[i] == 255) out[i] = kOutlineColour;
    }
    for (; x < part.width; ++x)
      if (row[x] == 255) out[x] = kOutlineColour;
  }
}

// loadBlendedImageInfo, logged under its name.
static void outlineResult(unsigned int* blended, bool resultGoesNext) {
  exportGuardVoid("loadBlendedImageInfo", [&] {
    if (!haveResult("loadBlendedImageInfo")) return;
    if (!checkImageSize(resultMask->width, resultMask->height, site::loadBlendedImageInfo))
      return;
    // Found also without a preview to paint: fetch_path_array reads it.
    const CvRect object = findOutline(resultGoesNext);
    if (blended) paintOutline(object, blended);
  });
}

void loadBlendedImageInfo(unsigned int* blended) { outlineResult(blended, false); }

void deliverOutlineAndRelease(unsigned int* blended) {
  outlineResult(blended, true);
  retireImage(&resultMask);
}

void cutOutImage(int, int, int, unsigned int* blended, unsigned char* mask) {
  exportGuardVoid("cutOutImage", [&] {
    const int w = KORUSEMarker::m_originalWidth, h = KORUSEMarker::m_originalHeight;
    if (!checkImageSize(w, h, site::cutOutImage) || !haveSource("cutOutImage")) return;
    if (!markerImage) {
      logBadCall("cutOutImage", "no marks (call setMarkerImage first)");
      return;
    }
    releaseImage(&resultMask);
    resultMask = photoSizedImage();
    // The last mask, read straight into the result; an empty history starts
    // from an empty mask.
    if (!KORUSEManageUndoRedo::prevMaskInto(resultMask)) cvSetZero(resultMask);
    for (int y = 0; y < h; ++y) {
      uint8_t* out = imageRow(resultMask, y);
      const uint8_t* marks = imageRow(markerImage, y);
      for (int x = 0; x < w; ++x) {
        if (marks[x] == MARK_OBJECT) out[x] = 255;
        else if (marks[x] == MARK_BACKGROUND) out[x] = 0;
      }
    }
    KORUSEManageUndoRedo::updateBitPlane(resultMask);
    if (mask) loadMaskImageInfo(mask);
    if (blended) deliverOutlineAndRelease(blended);
    retireImage(&resultMask);
    retireImage(&markerImage);
    endOfOutputCall();
  });
}

int fetch_path_array(int** array, int* length) {
  return exportGuard("fetch_path_array", 0, [&] {
    if (!array || !length) {
      logBadCall("fetch_path_array", "null out-parameter");
      return 0;
    }
    int n = 0, points = 0;
    if (pathAvailable == 1)
      for (CvSeq* c = contours; c; c = c->h_next, ++n) points += c->total;
    *length = pathAvailable == 1 ? 2 * (n + points) + 1 : 1;
    int* out = new int[*length];
    out[0] = pathAvailable == 1 ? n : 0;
    int k = 1;
    if (pathAvailable == 1) {
      for (CvSeq* c = contours; c; c = c->h_next) {
        out[k++] = c->total;
        for (int i = 0; i < c->total; ++i) {
          const CvPoint* p = reinterpret_cast<const CvPoint*>(cvGetSeqElem(c, i));
          out[k++] = p->x;
          out[k++] = p->y;
        }
        out[k++] = -1;
      }
    }
    *array = out;
    contours = nullptr;
    pathAvailable = 0;
    return 0;
  });
}
