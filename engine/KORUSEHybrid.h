// The segmentation engine: turns the working image and a label image into an
// object mask. One instance per photo, owned by the interface (pHybrid).
#pragma once

#include <opencv2/core/core_c.h>

#include <cstdint>

class KORUSEHybrid {
 public:
  int32_t m_imageWidth;   // working image size, set by intializer
  int32_t m_imageHeight;

  KORUSEHybrid();
  ~KORUSEHybrid();

  // Prepares the engine for a new photo: the working copy aimed at
  // 320 x 240 pixels (g_imageResizeFactor), its size.
  void intializer();
  // Builds the label image of this edit from the host's marks.
  void setLabelImage(IplImage* markers);
  // Runs the cut for the pending edit. Returns a new source-size mask
  // (255 = object) that the caller owns, or null when there is no result.
  IplImage* segment();
};
