// Session state: everything that lives between two calls of the exported
// functions. Static members only; the class is never instantiated, and the
// engine reads and writes the same members directly.
#pragma once

#include <opencv2/core/core_c.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

// Stroke types: bit 1 set = brush stroke (else a closed loop),
// bit 0 set = the mark is background (else it adds to the object).
enum StrokeType { LOOP_ADD = 0, LOOP_REMOVE = 1, STROKE_ADD = 2, STROKE_REMOVE = 3 };
inline bool isBrush(int type) { return (type & ~1) == 2; }       // STROKE_ADD, STROKE_REMOVE
inline bool addsToObject(int type) { return (type & ~2) == 0; }  // LOOP_ADD, STROKE_ADD

// Marker and label values. Object = 2 or 4, background = 1 or 3.
enum MarkValue {
  MARK_NONE = 0,
  MARK_BACKGROUND = 1,
  MARK_OBJECT = 2,
  MARK_PROBABLE_BACKGROUND = 3,
  MARK_PROBABLE_OBJECT = 4
};
inline bool isObject(uint8_t label) { return label == MARK_OBJECT || label == MARK_PROBABLE_OBJECT; }
inline bool isBackground(uint8_t label) {
  return label == MARK_BACKGROUND || label == MARK_PROBABLE_BACKGROUND;
}

// The stroke of the current edit.
struct strokeInfo {
  std::vector<int32_t> points;  // x, y pairs in source pixels; empty without a polyline
  int32_t type = 0;             // StrokeType
};

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
  // Called for each new engine: noise level 0.1, flags cleared. A label image
  // left by an earlier engine is released, not just forgotten (that leaked).
  static void initializer();
  // Start over on the same photo: labels and previous result released,
  // stroke points emptied (its type kept), flags and noise level reset.
  static void resetMarkers();
  // Session over: every image released; sizes, box and flags untouched.
  static void dellocator();
};

// Releases an image if set and nulls the pointer.
void releaseImage(IplImage** image);

// Holds an image until it is handed on (release()) or the holder goes.
struct ImageReleaser {
  void operator()(IplImage* image) const { releaseImage(&image); }
};
using OwnedImage = std::unique_ptr<IplImage, ImageReleaser>;
