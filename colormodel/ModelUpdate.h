// Refitting a model from new samples by hard assignment: each sample goes to
// its most likely component (assignCluster) and every component that
// received samples is re-estimated from them. The segmentation passes after
// the first use this. (EM, colorModelCriteria and assignCluster are members
// of KORUSEColorModel; see KORUSEColorModel.h.)
#pragma once

#include <vector>

#include "colormodel/KORUSEColorModel.h"

// Needs the model's cached inverses and determinants to be current (they
// decide the assignment). Re-estimates weight, mean and biased covariance of
// every component that received a sample; the others keep their previous
// values and the weights are not renormalised. Ends with setDeterminant;
// the inverses stay stale until the caller runs setInverseCovariance with
// the noise level of its choice. No samples: only the determinants are
// refreshed. Cost: n * 5 densities, one n-entry label array.
void updateModel(const std::vector<pixelVal>& samples, KORUSEColorModel& model);

// updateModel(first, firstModel), then updateModel(second, secondModel).
void updateModel(const std::vector<pixelVal>& first, const std::vector<pixelVal>& second,
                 KORUSEColorModel& firstModel, KORUSEColorModel& secondModel);
