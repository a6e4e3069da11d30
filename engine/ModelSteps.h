// Named values of the segmentation passes.
#pragma once

// What a pass does with the two colour models.
enum ModelStepMode { FRESH_MODELS = 0, UPDATE_MODELS = 1, KEEP_MODELS = 2 };

// The weight of homogeneous images, and the first pass's starting weight.
constexpr double kHomogeneousLambda = 50.0;
// Regularisers added to the covariance diagonals before inversion.
constexpr double kNoiseLevel = 0.1;
constexpr double kHomogeneousNoiseLevel = 10.0;
