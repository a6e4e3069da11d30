// Training samples from the working image and its labels, and the model
// initialisers the segmentation driver calls on its first pass.
//
// The first set takes the pixels labelled 2 or 4 (object), the second set
// those labelled 1 or 3 (background); other label values give no sample.
#pragma once

#include <opencv2/core/core_c.h>

#include <vector>

#include "colormodel/KORUSEColorModel.h"

// A set never reaches a model with fewer samples than this: it is topped up
// with the filler sample.
constexpr int kMinTrainingSamples = 5;
// Tops up a set too small to cluster; an empty region thus gets a model of
// one component at this colour.
constexpr pixelVal kFillerSample = {{10.0, 20.0, 30.0}};

// A sample with a score (the fourth value), for sorting samples by score.
struct vec4 {
  double v[4];  // the sample's three values, then its score
};

// a.score < b.score, computed as !(a.score >= b.score).
bool order(vec4 a, vec4 b);

// Empties both sets (capacity kept) and fills them in raster order from an
// 8-bit image and an 8-bit one-channel label image of the same size.
// Colour mode: the sample is the pixel's three channels in the image's own
// order. Grey-scale mode (KORUSEMarker::m_isGreyScale): channel 0 of the
// pixel, then KORUSEMarker::m_texHor and m_texVer at the same pixel shifted
// by the crop origin (m_xMinBBox, m_yMinBBox), since the texture planes are
// full-size. Finally each set is topped up to kMinTrainingSamples with the
// filler. A missing or empty image or label image gives fillers only;
// unusable ones (wrong depth, too few channels, texture planes not covering
// the crop) are also logged.
void extractTrainingData(const IplImage* image, const IplImage* labels,
                         std::vector<pixelVal>& first, std::vector<pixelVal>& second);

// initModelWithKmeansKORU(samples, model); the int is ignored.
void initModel(const std::vector<pixelVal>& samples, KORUSEColorModel& model, int);

// initModelWithKmeansKORU for (first, firstModel) then (second,
// secondModel); the int is ignored.
void initModel(const std::vector<pixelVal>& first, const std::vector<pixelVal>& second,
               KORUSEColorModel& firstModel, KORUSEColorModel& secondModel, int);

// ---- alternative initialisation (not used by the segmentation) -----------

// Splits the pixels into B (labels 1, 3) and A (all others); fits
// secondModel to B with OpenCV's k-means; ranks A by secondModel.GMMProb;
// keeps the least B-like third of A as A and moves the most B-like third to
// B (highest score first); drops the middle third. Then fits firstModel to
// A and secondModel to B with initModelWithKmeansKORU (a set of 4 samples or
// fewer leaves its model as it was). Scores that are NaN sort first.
void initThirdInitalization(const IplImage* image, const IplImage* labels,
                            KORUSEColorModel& firstModel, KORUSEColorModel& secondModel);
