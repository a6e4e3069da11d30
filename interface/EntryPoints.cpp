// The exported session functions: photo, engine, one edit at a time.
#include <algorithm>

#include "engine/KORUSEHybrid.h"
#include "history/KORUSEManageUndoRedo.h"
#include "interface/ExportGuard.h"
#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SegmentationCore.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"
#include "support/FreshPages.h"
#include "support/LogSites.h"
#include "support/OwnedImage.h"
#include "support/StageTrace.h"
#include "support/ThreadSetting.h"
#include "support/WorkerPool.h"

int setSourceImage(int width, int height, unsigned int* pixels) {
  return exportGuard("setSourceImage", 0, [&] {
    if (!checkImageSize(width, height, site::setSourceImage)) return 0;
    if (!pixels) {
      logBadCall("setSourceImage", "null pixel buffer");
      return 0;
    }
    if (!photoSizeHoldable(width, height, "setSourceImage")) return 0;
    // A photo handed over without deinitSegmentation replaces the old one;
    // the old photo's engine would cut at the wrong size.
    releaseImage(&KORUSEMarker::m_originalImage);
    if (pHybrid) {
      logBadCall("setSourceImage", "new photo without deinitSegmentation: engine released");
      delete pHybrid;
      pHybrid = nullptr;
    }
    // The old photo's outline and pending marks would be delivered at its size.
    releaseStorage();
    releaseImage(&markerImage);
    releaseKeptImage();
    IplImage* image = cvCreateImage(cvSize(width, height), IPL_DEPTH_8U, 3);
    mapPagesForWriting(image->imageData, image->imageSize);
    runRanges(height, segmentationThreads(), 256, [&](int y0, int y1) {
      for (int y = y0; y < y1; ++y) {
        uint8_t* bgr = imageRow(image, y);
        const unsigned int* row = pixels + static_cast<size_t>(y) * width;
        for (int x = 0; x < width; ++x, bgr += 3) {
          bgr[0] = row[x] & 0xFF;
          bgr[1] = (row[x] >> 8) & 0xFF;
          bgr[2] = (row[x] >> 16) & 0xFF;
        }
      }
    });
    KORUSEMarker::m_originalImage = image;
    KORUSEMarker::m_originalWidth = width;
    KORUSEMarker::m_originalHeight = height;
    KORUSEManageUndoRedo::allocate();
    return 0;
  });
}

int initSegmentationEngine(int) {
  return exportGuard("initSegmentationEngine", 0, [&] {
    if (!haveSource("initSegmentationEngine")) return 0;
    delete pHybrid;  // an engine belongs to one photo
    pHybrid = nullptr;
    createEngine();
    return 0;
  });
}

int setCurrentMarkerVector(int count, int* xy) {
  return exportGuard("setCurrentMarkerVector", 0, [&] {
    std::vector<int32_t>& points = KORUSEMarker::currentStroke.points;
    points.clear();
    if (count < 1) return 0;
    if (!xy || !haveSource("setCurrentMarkerVector")) {
      if (!xy) logBadCall("setCurrentMarkerVector", "null point array");
      return 0;
    }
    if (count % 2) logBadCall("setCurrentMarkerVector", "odd count: last value ignored");
    points.reserve(count);
    const int w = KORUSEMarker::m_originalWidth, h = KORUSEMarker::m_originalHeight;
    for (int i = 0; i + 1 < count; i += 2) {
      int& x = xy[i];
      int& y = xy[i + 1];
      if (x < 0) x = 0;
      if (y < 0) y = 0;
      if (x >= w) x = w - 1;
      if (y >= h) y = h - 1;
      points.push_back(x);
      points.push_back(y);
    }
    return 0;
  });
}

int setMarkerImage(int width, int height, int* markers, int strokeType) {
  return exportGuard("setMarkerImage", 0, [&] {
    if (!marksFitPhoto(width, height, markers != nullptr)) return 0;
    // A header over the caller's ints; the conversion saturates to 0..255.
    IplImage view;
    cvInitImageHeader(&view, cvSize(width, height), IPL_DEPTH_32S, 1);
    cvSetData(&view, markers, width * static_cast<int>(sizeof(int)));
    retireImage(&markerImage);  // first: it may serve as the new one
    IplImage* marks = photoSizedImage();
    adoptMarkerImage(marks, strokeType);
    cvConvertScale(&view, marks, 1.0, 0.0);
    return 0;
  });
}

int processSegment(int, int, int, unsigned int* blended, unsigned char* mask) {
  return exportGuard("processSegment", 0, [&] {
    releaseImage(&resultMask);  // only a call cut short by an error leaves one
    if (markerImage && pHybrid) {
      traceStage("labels");
      pHybrid->setLabelImage(markerImage);
      resultMask = pHybrid->segment();
      traceStage("outline");
    } else if (markerImage) {
      logBadCall("processSegment", "no engine (call initSegmentationEngine first)");
    }
    deliverResult(blended, mask);
    traceStage("done");
    return endOfSegmentCall() ? -1 : 0;
  });
}

int cancelSegmentation() {
  KORUSEMarker::m_exitApp = true;
  return 1;
}

int exitSegmentation() {
  g_exitStatus = KORUSEMarker::m_exitApp ? 1 : 0;
  return g_exitStatus;
}

int resetSegmentationInterface() {
  return exportGuard("resetSegmentationInterface", 0, [&] {
    KORUSEMarker::resetMarkers();
    KORUSEManageUndoRedo::reset();
    releaseStorage();
    return 0;
  });
}

int deinitSegmentation() {
  return exportGuard("deinitSegmentation", 0, [&] {
    tearDownSession();
    return 0;
  });
}

int freeLocalBuffers() {
  return exportGuard("freeLocalBuffers", 0, [&] {
    releaseImage(&resultMask);
    releaseImage(&markerImage);
    releaseKeptImage();
    return 0;
  });
}

void copySourceImage(unsigned int* out) {
  exportGuardVoid("copySourceImage", [&] {
    if (!out) logBadCall("copySourceImage", "null output buffer");
    writeSourcePixels(out);
  });
}

int setSegmentationThreads(int n) { return setSegmentationThreadCount(n); }
