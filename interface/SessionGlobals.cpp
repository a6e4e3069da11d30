#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "support/OwnedImage.h"

#include <climits>

#include "engine/KORUSEHybrid.h"
#include "history/KORUSEManageUndoRedo.h"
#include "SegmentationCore.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"
#include "support/FreshPages.h"
#include "support/LogSites.h"

KORUSEHybrid* pHybrid = nullptr;
int32_t g_exitStatus = 0;
CvMemStorage* storage = nullptr;
CvSeq* contours = nullptr;
uint8_t pathAvailable = 0;
IplImage* markerImage = nullptr;
IplImage* resultMask = nullptr;

namespace {
IplImage* g_keptImage = nullptr;  // photo-sized, 8-bit, for the next edit

bool photoSized(const IplImage* image) {
  return image->width == KORUSEMarker::m_originalWidth &&
         image->height == KORUSEMarker::m_originalHeight && image->nChannels == 1 &&
         image->depth == IPL_DEPTH_8U && !image->roi;
}
}  // namespace

IplImage* photoSizedImage() {
  if (g_keptImage && photoSized(g_keptImage)) {
    IplImage* image = g_keptImage;
    g_keptImage = nullptr;
    return image;
  }
  releaseImage(&g_keptImage);
  IplImage* image =
      cvCreateImage(cvSize(KORUSEMarker::m_originalWidth, KORUSEMarker::m_originalHeight), IPL_DEPTH_8U, 1);
  mapPagesForWriting(image->imageData, image->imageSize);
  return image;
}

void retireImage(IplImage** image) {
  if (*image && !g_keptImage && photoSized(*image)) {
    g_keptImage = *image;
    *image = nullptr;
    return;
  }
  releaseImage(image);
}

void releaseKeptImage() { releaseImage(&g_keptImage); }

void releaseStorage() {
  if (storage) cvReleaseMemStorage(&storage);
  storage = nullptr;
  contours = nullptr;
  pathAvailable = 0;
}

void tearDownSession() {
  releaseStorage();
  releaseKeptImage();
  KORUSEMarker::dellocator();
  KORUSEManageUndoRedo::deallocate();
  delete pHybrid;
  pHybrid = nullptr;
}

bool endOfSegmentCall() {
  if (g_exitStatus && KORUSEMarker::m_exitApp) {
    tearDownSession();
    return true;
  }
  g_exitStatus = 0;
  return false;
}

void endOfOutputCall() {
  endOfSegmentCall();
  g_exitStatus = 0;
}

void deliverResult(unsigned int* blended, unsigned char* mask) {
  if (resultMask) {
    loadMaskImageInfo(mask);
    deliverOutlineAndRelease(blended);
  } else {
    writeSourcePixels(blended);
  }
  retireImage(&markerImage);
}

bool haveSource(const char* function) {
  if (KORUSEMarker::m_originalImage) return true;
  logBadCall(function, "no source image (call setSourceImage first)");
  return false;
}

void writeSourcePixels(unsigned int* out) {
  const IplImage* src = KORUSEMarker::m_originalImage;
  if (!src || !out) return;
  for (int y = 0; y < src->height; ++y) {
    const uint8_t* bgr = imageRow(src, y);
    unsigned int* row = out + static_cast<size_t>(y) * src->width;
    for (int x = 0; x < src->width; ++x, bgr += 3)
      row[x] = 0xFF000000u | (uint32_t(bgr[2]) << 16) | (uint32_t(bgr[1]) << 8) | bgr[0];
  }
}

bool photoSizeHoldable(int width, int height, const char* function) {
  // OpenCV's row arithmetic overflows past this width before it checks.
  if (width > INT_MAX / 24) {
    logBadCall(function, "photo too wide");
    return false;
  }
  IplImage probe;  // OpenCV throws here for a size it cannot hold
  cvInitImageHeader(&probe, cvSize(width, height), IPL_DEPTH_8U, 3);
  return true;
}

void createEngine() {
  g_imageResizeFactor = 1.0f;
  pHybrid = new KORUSEHybrid();
  KORUSEMarker::initializer();
  pHybrid->intializer();
}

bool marksFitPhoto(int width, int height, bool haveMarks) {
  if (!checkImageSize(width, height, site::setMarkerImage)) {
    // Both of its size checks speak, before and after viewing the buffer; no
    // view is made of a size OpenCV refuses.
    checkImageSize(width, height, site::setMarkerImageViewed);
    return false;
  }
  if (!haveMarks || !haveSource("setMarkerImage")) {
    if (!haveMarks) logBadCall("setMarkerImage", "null marker buffer");
    return false;
  }
  if (width != KORUSEMarker::m_originalWidth || height != KORUSEMarker::m_originalHeight) {
    logBadCall("setMarkerImage", "marker size differs from the source size");
    return false;
  }
  return true;
}

void adoptMarkerImage(IplImage* marks, int strokeType) {
  retireImage(&markerImage);
  markerImage = marks;
  KORUSEMarker::currentStroke.type = strokeType;
}
