// Results as the host shows them: the byte mask, the outline painted over the
// preview, the outline as polygons, and the direct edit.
#include <opencv2/imgproc/imgproc_c.h>

#include "SegmentationCore.h"
#include "history/KORUSEManageUndoRedo.h"
#include "interface/ExportGuard.h"
#include "interface/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "support/KORULog.h"

namespace {
const unsigned int kOutlineColour = 0xFFFFFF00u;  // opaque yellow
const int kOutlineThickness = 2;
const int kAntiAliased = 16;

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
    // The host's convention is inverted: 0 = object.
    for (int y = 0; y < resultMask->height; ++y) {
      const uint8_t* row =
          reinterpret_cast<const uint8_t*>(resultMask->imageData + y * resultMask->widthStep);
      unsigned char* out = mask + static_cast<size_t>(y) * resultMask->width;
      for (int x = 0; x < resultMask->width; ++x) out[x] = row[x] == 255 ? 0 : 255;
    }
  });
}

// Finds the outline of resultMask into `storage`/`contours`.
static void findOutline() {
  releaseStorage();
  storage = cvCreateMemStorage(0);
  IplImage* scratch = cvCloneImage(resultMask);  // the search destroys its input
  int found = cvFindContours(scratch, storage, &contours, sizeof(CvContour), CV_RETR_LIST,
                             CV_CHAIN_APPROX_SIMPLE, cvPoint(0, 0));
  cvReleaseImage(&scratch);
  if (found > 0 && contours) pathAvailable = 1;
}

// Draws the outline found last and paints its full-strength pixels yellow;
// anti-aliased fringe pixels below 255 are left alone.
static void paintOutline(unsigned int* blended) {
  IplImage* outline = cvCreateImage(cvGetSize(resultMask), IPL_DEPTH_8U, 1);
  cvSetZero(outline);
  if (contours)
    cvDrawContours(outline, contours, cvScalarAll(255), cvScalarAll(255), 255, kOutlineThickness,
                   kAntiAliased, cvPoint(0, 0));
  for (int y = 0; y < outline->height; ++y) {
    const uint8_t* row =
        reinterpret_cast<const uint8_t*>(outline->imageData + y * outline->widthStep);
    unsigned int* out = blended + static_cast<size_t>(y) * outline->width;
    for (int x = 0; x < outline->width; ++x)
      if (row[x] == 255) out[x] = kOutlineColour;
  }
  cvReleaseImage(&outline);
}

void loadBlendedImageInfo(unsigned int* blended) {
  exportGuardVoid("loadBlendedImageInfo", [&] {
    if (!haveResult("loadBlendedImageInfo")) return;
    if (!checkImageSize(resultMask->width, resultMask->height, "loadBlendedImageInfo", 493))
      return;
    // Found also without a preview to paint: fetch_path_array reads it.
    findOutline();
    if (blended) paintOutline(blended);
  });
}

void cutOutImage(int, int, int, unsigned int* blended, unsigned char* mask) {
  exportGuardVoid("cutOutImage", [&] {
    const int w = KORUSEMarker::m_originalWidth, h = KORUSEMarker::m_originalHeight;
    if (!checkImageSize(w, h, "cutOutImage", 197) || !haveSource("cutOutImage")) return;
    if (!markerImage) {
      logBadCall("cutOutImage", "no marks (call setMarkerImage first)");
      return;
    }
    releaseImage(&resultMask);
    resultMask = cvCreateImage(cvSize(w, h), IPL_DEPTH_8U, 1);
    // The last mask, read straight into the result; an empty history starts
    // from an empty mask.
    if (!KORUSEManageUndoRedo::prevMaskInto(resultMask)) cvSetZero(resultMask);
    for (int y = 0; y < h; ++y) {
      uint8_t* out = reinterpret_cast<uint8_t*>(resultMask->imageData + y * resultMask->widthStep);
      const uint8_t* marks =
          reinterpret_cast<const uint8_t*>(markerImage->imageData + y * markerImage->widthStep);
      for (int x = 0; x < w; ++x) {
        if (marks[x] == MARK_OBJECT) out[x] = 255;
        else if (marks[x] == MARK_BACKGROUND) out[x] = 0;
      }
    }
    KORUSEManageUndoRedo::updateBitPlane(resultMask);
    if (mask) loadMaskImageInfo(mask);
    if (blended) loadBlendedImageInfo(blended);
    releaseImage(&resultMask);
    releaseImage(&markerImage);
    endOfCallTeardown();
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
