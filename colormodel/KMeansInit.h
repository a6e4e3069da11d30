// Starting a fresh model by clustering its training samples into five
// groups: each group's share, mean and covariance become one component.
#pragma once

#include <cstdint>
#include <vector>

#include "colormodel/KORUSEColorModel.h"

// Fewer samples than this leave the model as it was: too few to cluster.
constexpr int kMinClusteringSamples = 5;

// The system's own initialiser (what the segmentation uses): k_means with
// tolerance 0 and at most 10 iterations, then the components from the
// clusters (setComponentsAndDeterminants). The inverses are
// left to the caller (setInverseCovariance with its noise level). A cluster
// left empty leaves its component untouched. The same samples always give
// the same model, bit for bit. 4 samples or fewer: nothing changes.
// Cost: k_means on n points plus two n-sized copies.
void initModelWithKmeansKORU(const std::vector<pixelVal>& samples, KORUSEColorModel& model);

// initModelWithKmeansKORU on n packed 8-bit samples (PackedSample.h): the
// same model, bit for bit, as from the pixelVals they unpack to, without
// making them. Fewer than 5 samples: nothing changes.
void initModelWithKmeansPacked(const uint32_t* samples, int n, KORUSEColorModel& model);

// The same with OpenCV's cv::kmeans (k-means++ centres, 10 iterations, one
// attempt) on single-precision copies of the samples; the parameters are
// then computed from the double samples. Depends on OpenCV's random state.
// Needs at least 5 samples: fewer are logged and leave the model unchanged.
void initModelWithKmeans(const std::vector<pixelVal>& samples, KORUSEColorModel& model);

// initModelWithKmeans(first, firstModel), then (second, secondModel).
void initModelWithKmeans(const std::vector<pixelVal>& first, const std::vector<pixelVal>& second,
                         KORUSEColorModel& firstModel, KORUSEColorModel& secondModel);
