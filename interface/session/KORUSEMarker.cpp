#include "interface/session/KORUSEMarker.h"

#include "support/OwnedImage.h"

IplImage* KORUSEMarker::m_srcImage = nullptr;
IplImage* KORUSEMarker::m_labelImage = nullptr;
IplImage* KORUSEMarker::m_originalImage = nullptr;
IplImage* KORUSEMarker::m_prevResult = nullptr;
IplImage* KORUSEMarker::m_texHor = nullptr;
IplImage* KORUSEMarker::m_texVer = nullptr;
strokeInfo KORUSEMarker::currentStroke;
int32_t KORUSEMarker::m_xMinBBox = 0;
int32_t KORUSEMarker::m_xMaxBBox = 0;
int32_t KORUSEMarker::m_yMinBBox = 0;
int32_t KORUSEMarker::m_yMaxBBox = 0;
int32_t KORUSEMarker::m_originalWidth = 0;
int32_t KORUSEMarker::m_originalHeight = 0;
int32_t KORUSEMarker::m_width = 0;
int32_t KORUSEMarker::m_height = 0;
bool KORUSEMarker::m_isGreyScale = false;
bool KORUSEMarker::m_isHomogenous = false;
std::atomic<bool> KORUSEMarker::m_exitApp{false};
double KORUSEMarker::m_noiseLevel = 0.0;
float g_imageResizeFactor = 1.0f;

void KORUSEMarker::allocator() {}

void KORUSEMarker::initializer() {
  m_noiseLevel = kNoiseLevel;
  m_exitApp = false;
  m_isHomogenous = false;
  // A label image left over from an earlier engine is no longer anyone's.
  releaseImage(&m_labelImage);
}

void KORUSEMarker::resetMarkers() {
  releaseImage(&m_labelImage);
  releaseImage(&m_prevResult);
  m_noiseLevel = kNoiseLevel;
  currentStroke.points.clear();
  m_exitApp = false;
  m_isHomogenous = false;
}

void KORUSEMarker::dellocator() {
  releaseImage(&m_srcImage);
  releaseImage(&m_labelImage);
  releaseImage(&m_originalImage);
  releaseImage(&m_prevResult);
  releaseImage(&m_texHor);
  releaseImage(&m_texVer);
  currentStroke.points.clear();
}
