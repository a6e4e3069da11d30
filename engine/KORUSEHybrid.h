// KORUSEHybrid: the segmentation engine. Turns the working image and a label
// image into an object mask by an iterated graph cut.
//
// One instance per photo, owned by the interface (pHybrid). Per photo,
// intializer() derives the working image, the grey flag, the texture planes
// and the smoothness weights once. Per edit, setLabelImage() then segment():
// the region buffers and the graph live for that one call and are released by
// clearMemory(); between edits only m_nlinks, the two colour models and the
// scalars survive. Images shared with the interface live in KORUSEMarker.
//
// The member functions are spread over engine/ by concern:
//   KORUSEHybrid.cpp        object, buffers, cancellation
//   LabelImage.cpp          labels, region of interest, crops, result mask
//   PreProcess.cpp          grey test, texture planes, region tightening
//   SmoothnessWeights.cpp   contrast weights of the whole working image
//   GraphConstruction.cpp   the region's flow graph for one cut
//   RegionSamples.cpp       the region's colours and what the models make of
//                           them, shared by the cuts and model steps of an edit
//   Segment.cpp             the five-pass driver
//   ModelFitting.cpp        a pass's model step: fresh, refit or kept
//   WeightSelection.cpp     choosing the smoothness weight; for homogeneous
//                           images, the first or the last cut
//   BoundaryContrast.cpp    its colour test of a labelling's boundary
//   PostProcess.cpp         cleaning and merging result masks
//   Refinement.cpp          full-resolution cut in the boundary band
#pragma once

#include <opencv2/core/core_c.h>

#include <cstdint>

#include "colormodel/KORUSEColorModel.h"

class KORUSEGraph;

class KORUSEHybrid {
 public:
  int32_t m_imageWidth;          // working image size, set by intializer
  int32_t m_imageHeight;
  int32_t m_roiHeight;           // rows of the region (box plus margin)
  int32_t m_roiWidth;            // columns of the region
  int32_t m_trimapWidth;         // size of the boundary band's crop
  int32_t m_trimapHeight;
  IplImage* m_roiImage;          // region crop of the working image (3 channels)
  IplImage* m_roiLabel;          // region crop of the labels; every cut rewrites it
  IplImage* m_roiInitialLabel;   // the user's constraints only, before the first cut
  IplImage* m_iterLabel[3];      // labels after cuts 1, 2 and 3
  double m_lambda;               // smoothness weight multiplying the n-links
  double m_beta;                 // contrast parameter of the n-links
  int32_t m_minRegionArea;       // a tenth of the box area (informational)
  KORUSEGraph* m_graph;          // flow graph of the region; owned
  KORUSEGraph* m_trimapGraph;    // flow graph of the boundary band; owned
  float* m_nlinks;               // 4 contrast weights per working pixel
  KORUSEColorModel m_fgModel;    // object colours (labels 2 and 4)
  KORUSEColorModel m_bgModel;    // background colours (labels 1 and 3)

  KORUSEHybrid();
  // Frees m_nlinks, and first whatever an edit cut short by an exception
  // left (clearMemory): only a finished segment destroys its graph itself.
  ~KORUSEHybrid();

  // ---- per photo ----------------------------------------------------------------

  // The working image aimed at 320 x 240 (g_imageResizeFactor), the grey
  // flag and texture planes, the smoothness weights, the snapshot slots.
  void intializer();
  // Grey when the mean of |c0 - c1| + |c0 - c2| is below 1.0.
  bool greyScaleTest(IplImage* img);
  // Texture planes m_texHor/m_texVer from the working image's first channel.
  void computeTexture();
  // m_beta and the four contrast weights per working pixel (left,
  // upper-left, upper, upper-right; diagonals times 1/sqrt(2)).
  void computeNlinks();

  // ---- per edit: labels and region ------------------------------------------------

  // Builds m_labelImage from the marks, the previous result and the stroke.
  // Brush strokes get a soft halo, written into `marker` itself.
  void setLabelImage(IplImage* marker);
  // Leaves the stroke's path to the cut (label 0, 3 pixels wide).
  void addUnknownRegion();
  // The region to cut: the edit's box plus a margin of 10, clamped.
  void computeBoundingBox();
  // New image of the region's size copied from `src` at the region's corner.
  IplImage* cropImage(IplImage* src);
  // Writes the cut into m_roiLabel (soft labels only); returns the number
  // of region pixels on the object side.
  int updateLabelImage();
  // The result: labels back into m_labelImage, refined to full size when the
  // image was reduced, post-processed and recorded in the history.
  IplImage* getObjMask();

  // ---- per edit: pre-processing and graph ------------------------------------------

  // Shrinks the region to where the image has structure; the dropped frame
  // becomes hard background.
  void preProcess();
  // Kept as an entry point; builds nothing.
  void constructGraphKORU();
  // Resets m_graph and fills it for the region with the current models,
  // labels and m_lambda.
  void constructGraphKORU_Whole_Image();

  // ---- per edit: driver and weight selection --------------------------------------

  // Five cuts with model fitting and weight selection. Returns a new mask of
  // the source size (255 = object) owned by the caller, or null when
  // cancelled or past the 10 s budget by the end of the last cut. A cancel
  // that comes later only stops the refinement's search: its band is then
  // labelled from the trees as they stand, and the mask is post-processed,
  // recorded and returned all the same.
  IplImage* segment();
  // Homogeneous images: may fall back to the first cut's labelling.
  void chooseIter();
  // The weight (and starting labels) for pass k; returns the model step
  // mode: 0 fresh, 1 update, 2 keep.
  int parallelLamdaSwtich(int k);
  // The end of every model step: inverts both models' covariances; a
  // homogeneous image (asked of the background model for k = 0, else the
  // flag alone) gets the heavy background regulariser and weight 50.
  // Returns whether the weight keeps switching. The driver calls it after
  // each fit or refit.
  bool homogenousLamda(int k);
  // Which of the three snapshot labellings to continue from, or -1.
  int optimalLamda(IplImage** labels, float* unused);
  // 1 when the object's boundary separates colours, else 2.
  int intensityTest(const IplImage* mask);
  // The object reaches within f of all four borders.
  bool boundaryTest(const IplImage* mask, float f);

  // ---- result cleaning ------------------------------------------------------------

  // Clean by stroke type, then merge with the previous result in the edit's
  // direction and only inside the edit's box.
  void postProcess(IplImage* mask);
  // Drop small islands, fill pin holes.
  void postProcessForLoop(IplImage* mask);
  // Keep only the flips that a stroke point touches.
  void postProcessForStroke(IplImage* mask);
  // Trims black borders off the region and labels them background.
  void removeBlackRegion();

  // ---- full-resolution refinement -------------------------------------------------

  // Full-size mask (255 = object) from the reduced 0/1 mask, re-cut in a
  // band around the outline; plain enlargement when that is impossible.
  IplImage* intelligentUpscaling(IplImage* mask);
  // Copy of m_trimapWidth x m_trimapHeight from `src` at (x0, y0).
  IplImage* cropImageTrimap(IplImage* src, int width, int height, int x0, int y0);
  // Builds m_trimapGraph for the band; 0 when built.
  int constructGraphTrimapKORU(IplImage* image, IplImage* imageCopy, IplImage* trimap,
                               IplImage* texHor, IplImage* texVer);

  // ---- buffers and cancellation ---------------------------------------------------

  KORUSEGraph* graphSpaceAllocator();
  void graphSpaceDellocator();
  // Releases the region buffers and the graph, destroys the cancel timer.
  void clearMemory();
  // True when the host cancelled or the 10 s budget is spent.
  bool cancelSegmentation();
};

// The region of width x height at (m_xMinBBox, m_yMinBBox) lies inside
// `image`: what cropImage needs and does not check itself.
bool regionInside(const IplImage* image, int width, int height);
