// Session state: everything that lives between two calls of the exported
// functions and that the engine, the history, the colour model and the
// search read as well. Static members only; the class is never
// instantiated, and the engine reads and writes the same members directly.
// What only the exported functions share is in interface/SessionGlobals.h.
#pragma once

#include <opencv2/core/core_c.h>

#include <atomic>
#include <cstdint>
#include <vector>

// The stroke of the current edit.
struct strokeInfo {
  std::vector<int32_t> points;  // x, y pairs in source pixels; empty without a polyline
  int32_t type = 0;             // StrokeType
};

// The regulariser the colour models add to singular covariances
// (m_noiseLevel), as every new engine and every reset leaves it.
constexpr double kNoiseLevel = 0.1;

class KORUSEMarker {
 public:
  static IplImage* m_srcImage;       // working (possibly reduced) copy of the source
  static IplImage* m_labelImage;     // 8-bit labels built from the marker image
  static IplImage* m_originalImage;  // full-resolution source, B,G,R
  static IplImage* m_prevResult;     // previous mask taken from the history
  static IplImage* m_texHor;         // horizontal texture plane
  static IplImage* m_texVer;         // vertical texture plane
  static strokeInfo currentStroke;
  static int32_t m_xMinBBox, m_xMaxBBox, m_yMinBBox, m_yMaxBBox;  // working pixels
  static int32_t m_originalWidth, m_originalHeight;
  static int32_t m_width, m_height;  // working image size
  static bool m_isGreyScale;
  static bool m_isHomogenous;
  // Set by cancelSegmentation from any thread; polled by the running cut.
  static std::atomic<bool> m_exitApp;
  static double m_noiseLevel;

  static void allocator();    // nothing to do; kept for symmetry with dellocator
  // Called for each new engine: noise level kNoiseLevel, flags cleared. A label image
  // left by an earlier engine is released, not just forgotten (that leaked).
  static void initializer();
  // Start over on the same photo: labels and previous result released,
  // stroke points emptied (its type kept), flags and noise level reset.
  static void resetMarkers();
  // Session over: every image released; sizes, box and flags untouched.
  static void dellocator();
};

// Source size / working size: 1.0 for each new engine, set by the engine
// when it reduces the photo. The one interface global the engine writes.
extern float g_imageResizeFactor;
