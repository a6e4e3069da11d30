// The model step of a pass: start both colour models afresh, refit them to
// the current labels, or keep them; then invert them for the cut.
//
// The models come from the region's indexed samples when the region can be
// read that way (RegionSamples), and otherwise from the sample vectors of
// extractTrainingData: the same samples in the same order, the same models
// bit for bit.
#pragma once

#include "engine/ModelSteps.h"

class KORUSEHybrid;
class RegionSamples;

// One pass's model step in `mode` (ModelStepMode), ended by
// homogenousLamda. Returns whether the weight keeps switching.
bool fitModels(KORUSEHybrid& engine, int mode, bool firstPass, bool switching, RegionSamples& samples);

// ---- the two ways, for tests and benchmarks ------------------------------------

// initModel(background, m_bgModel), then initModel(object, m_fgModel), on
// the region's packed samples. False, with nothing changed, when the
// region cannot be read that way.
bool initRegionModels(KORUSEHybrid& engine, RegionSamples& samples);

// updateModel(object, background, m_fgModel, m_bgModel), each sample's
// component taken from its evaluation (mostly made by the last cut's
// graph). False, with nothing changed, when the region cannot be read so.
bool refitRegionModels(KORUSEHybrid& engine, RegionSamples& samples);

// The plain step: extractTrainingData, then initModel or updateModel.
void fitModelsFromVectors(KORUSEHybrid& engine, int mode);
