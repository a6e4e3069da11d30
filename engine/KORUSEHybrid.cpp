#include "engine/KORUSEHybrid.h"

#include <opencv2/imgproc/imgproc_c.h>

#include <cmath>

#include "interface/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "support/KORULog.h"

namespace {
// The working image is aimed at 320 x 240 = 76,800 pixels.
const float kInverseWorkingPixels = 1.3020834e-5f;
}

KORUSEHybrid::KORUSEHybrid() : m_imageWidth(0), m_imageHeight(0) {}

KORUSEHybrid::~KORUSEHybrid() {}

void KORUSEHybrid::intializer() {
  const int w = KORUSEMarker::m_originalWidth, h = KORUSEMarker::m_originalHeight;
  float f = std::sqrt(static_cast<float>(w * h) * kInverseWorkingPixels);
  if (f > 1.0f)
    g_imageResizeFactor = f;
  else
    f = g_imageResizeFactor;

  releaseImage(&KORUSEMarker::m_srcImage);
  if (f == 1.0f) {
    KORUSEMarker::m_height = h;
    KORUSEMarker::m_width = w;
    if (!checkImageSize(w, h, "intializer", 92) || !KORUSEMarker::m_originalImage) return;
    KORUSEMarker::m_srcImage = cvCreateImage(cvGetSize(KORUSEMarker::m_originalImage), 8, 3);
    cvCopy(KORUSEMarker::m_originalImage, KORUSEMarker::m_srcImage, nullptr);
  } else {
    KORUSEMarker::m_height = static_cast<int>(h / f);
    KORUSEMarker::m_width = static_cast<int>(w / f);
    if (!checkImageSize(KORUSEMarker::m_width, KORUSEMarker::m_height, "intializer", 103) ||
        !KORUSEMarker::m_originalImage)
      return;
    KORUSEMarker::m_srcImage =
        cvCreateImage(cvSize(KORUSEMarker::m_width, KORUSEMarker::m_height), 8, 3);
    cvResize(KORUSEMarker::m_originalImage, KORUSEMarker::m_srcImage, CV_INTER_LINEAR);
  }
  m_imageWidth = KORUSEMarker::m_srcImage->width;
  m_imageHeight = KORUSEMarker::m_srcImage->height;
}

// The label image and the cut arrive with the rest of the engine; until then
// an edit yields no result and the host keeps showing its photo.
void KORUSEHybrid::setLabelImage(IplImage*) {}

IplImage* KORUSEHybrid::segment() { return nullptr; }
