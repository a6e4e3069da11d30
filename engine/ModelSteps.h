// Named values of the segmentation passes.
#pragma once

// What a pass does with the two colour models.
enum ModelStepMode { FRESH_MODELS = 0, UPDATE_MODELS = 1, KEEP_MODELS = 2 };

// The strongest smoothness weight: the first colour candidate, the weight of
// homogeneous images and the first pass's starting weight.
constexpr double kStrongestLambda = 50.0;
// The regulariser of a homogeneous image's background model; the usual
// one is the session's kNoiseLevel.
constexpr double kHomogeneousNoiseLevel = 10.0;
