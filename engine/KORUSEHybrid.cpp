// The engine object: construction, the per-photo set-up, buffers and the
// cancellation test.
#include "engine/KORUSEHybrid.h"

#include <opencv2/imgproc/imgproc_c.h>

#include <cmath>

#include "graph/KORUSEGraph.h"
#include "interface/session/Cancellation.h"
#include "interface/session/KORUSEMarker.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/KORUTimer.h"
#include "support/LogSites.h"
#include "support/OwnedImage.h"

namespace {
// The working image is aimed at 320 x 240 = 76,800 pixels.
const float kInverseWorkingPixels = 1.3020834e-5f;
}  // namespace

KORUSEHybrid::KORUSEHybrid()
    : m_imageWidth(0),
      m_imageHeight(0),
      m_roiHeight(0),
      m_roiWidth(0),
      m_trimapWidth(0),
      m_trimapHeight(0),
      m_roiImage(nullptr),
      m_roiLabel(nullptr),
      m_roiInitialLabel(nullptr),
      m_iterLabel{nullptr, nullptr, nullptr},
      m_lambda(0.0),
      m_beta(0.0),
      m_minRegionArea(0),
      m_graph(nullptr),
      m_trimapGraph(nullptr),
      m_nlinks(nullptr) {}

KORUSEHybrid::~KORUSEHybrid() {
  // A cancelled edit may leave its buffers; release them with the engine.
  clearMemory();
  if (m_nlinks) KORU_Free_Msg(m_nlinks, site::engineDestructor);
  m_nlinks = nullptr;
}

// f = sqrt(w * h / 76800); above 1 the photo is reduced by f on each side.
static float workingScale(int w, int h) {
  return std::sqrt(static_cast<float>(w * h) * kInverseWorkingPixels);
}

void KORUSEHybrid::intializer() {
  const int w = KORUSEMarker::m_originalWidth, h = KORUSEMarker::m_originalHeight;
  float f = workingScale(w, h);
  if (f > 1.0f)
    g_imageResizeFactor = f;
  else
    f = g_imageResizeFactor;

  releaseImage(&KORUSEMarker::m_srcImage);
  if (!KORUSEMarker::m_originalImage) {
    logBadCall("intializer", "no source image");
    return;
  }
  if (f == 1.0f) {
    KORUSEMarker::m_height = h;
    KORUSEMarker::m_width = w;
    if (!checkImageSize(w, h, site::intializerFullSize)) return;
    KORUSEMarker::m_srcImage = cvCreateImage(cvGetSize(KORUSEMarker::m_originalImage), 8, 3);
    cvCopy(KORUSEMarker::m_originalImage, KORUSEMarker::m_srcImage, nullptr);
  } else {
    KORUSEMarker::m_height = static_cast<int>(h / f);
    KORUSEMarker::m_width = static_cast<int>(w / f);
    if (!checkImageSize(KORUSEMarker::m_width, KORUSEMarker::m_height, site::intializerReduced)) return;
    KORUSEMarker::m_srcImage =
        cvCreateImage(cvSize(KORUSEMarker::m_width, KORUSEMarker::m_height), 8, 3);
    cvResize(KORUSEMarker::m_originalImage, KORUSEMarker::m_srcImage, CV_INTER_LINEAR);
  }

  KORUSEMarker::m_isGreyScale = greyScaleTest(KORUSEMarker::m_srcImage);
  if (KORUSEMarker::m_isGreyScale) computeTexture();
  m_imageWidth = KORUSEMarker::m_srcImage->width;
  m_imageHeight = KORUSEMarker::m_srcImage->height;
  // A second photo on one engine must not leak the first one's weights.
  if (m_nlinks) KORU_Free_Msg(m_nlinks, site::intializerWeights);
  m_nlinks = nullptr;
  computeNlinks();
  for (IplImage*& snapshot : m_iterLabel) snapshot = nullptr;
}

KORUSEGraph* KORUSEHybrid::graphSpaceAllocator() {
  const int n = m_roiHeight * m_roiWidth;
  m_graph = new KORUSEGraph(n, 8 * n, m_roiWidth, m_roiHeight, 0);
  return m_graph;
}

void KORUSEHybrid::graphSpaceDellocator() {
  delete m_graph;
  m_graph = nullptr;
}

void KORUSEHybrid::clearMemory() {
  for (IplImage*& snapshot : m_iterLabel) releaseImage(&snapshot);
  releaseImage(&m_roiImage);
  releaseImage(&m_roiLabel);
  releaseImage(&m_roiInitialLabel);
  graphSpaceDellocator();
  destroy_timer(g_cancelTimer);
  g_cancelTimer = nullptr;
}

bool KORUSEHybrid::cancelSegmentation() {
  stop_cpu_timer(g_cancelTimer);
  return segmentationStopped();
}
