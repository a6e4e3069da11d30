#include "engine/ModelFitting.h"

#include <vector>

#include "colormodel/ModelUpdate.h"
#include "colormodel/PackedTraining.h"
#include "colormodel/TrainingData.h"
#include "engine/KORUSEHybrid.h"
#include "engine/RegionSamples.h"
#include "support/ImageRows.h"
#include "support/Marks.h"

namespace {
// initModel's third argument: accepted and ignored, passed as it always was.
const int kIgnoredIterations = 10;

// The region's labels as extractTrainingData reads them (8-bit, one
// channel, the region's size), or null: then the plain way runs.
const IplImage* trainingLabels(const KORUSEHybrid& engine, const RegionSamples& samples) {
  const IplImage* labels = engine.m_roiLabel;
  const bool usable = samples.ready() && labels && labels->depth == IPL_DEPTH_8U && labels->nChannels == 1 &&
                      labels->imageData && labels->width == engine.m_roiWidth &&
                      labels->height == engine.m_roiHeight;
  return usable ? labels : nullptr;
}

// visit(p, toObject) for every pixel labelled object (2, 4) or background
// (1, 3), in raster order: the order of extractTrainingData's samples.
template <class Visit>
void forEachTrainingPixel(const IplImage* labels, Visit visit) {
  for (int r = 0; r < labels->height; ++r) {
    const uint8_t* row = imageRow(labels, r);
    for (int c = 0; c < labels->width; ++c)
      if (isObject(row[c]) || isBackground(row[c])) visit(r * labels->width + c, isObject(row[c]));
  }
}
}  // namespace

bool initRegionModels(KORUSEHybrid& engine, RegionSamples& samples) {
  const IplImage* labels = trainingLabels(engine, samples);
  if (!labels) return false;
  const std::size_t room = static_cast<std::size_t>(labels->width) * labels->height;
  PackedTrainingSet object(room), background(room);
  if (!object.ready() || !background.ready()) return false;
  forEachTrainingPixel(labels, [&](int p, bool toObject) { (toObject ? object : background).add(samples.sampleAt(p)); });
  background.initModel(engine.m_bgModel);
  object.initModel(engine.m_fgModel);
  return true;
}

bool refitRegionModels(KORUSEHybrid& engine, RegionSamples& samples) {
  const IplImage* labels = trainingLabels(engine, samples);
  if (!labels) return false;
  samples.follow(engine.m_fgModel, engine.m_bgModel);
  AssignedTrainingSet object, background;
  forEachTrainingPixel(labels, [&](int p, bool toObject) {
    const RegionSamples::Evaluation& e = samples.at(p);
    if (toObject)
      object.add(e.objectComponent, samples.sampleAt(p));
    else
      background.add(e.backgroundComponent, samples.sampleAt(p));
  });
  object.refit(engine.m_fgModel);
  background.refit(engine.m_bgModel);
  return true;
}

void fitModelsFromVectors(KORUSEHybrid& engine, int mode) {
  std::vector<pixelVal> object, background;
  extractTrainingData(engine.m_roiImage, engine.m_roiLabel, object, background);
  if (mode == UPDATE_MODELS) {
    updateModel(object, background, engine.m_fgModel, engine.m_bgModel);
    return;
  }
  initModel(background, engine.m_bgModel, kIgnoredIterations);
  initModel(object, engine.m_fgModel, kIgnoredIterations);
}

bool fitModels(KORUSEHybrid& engine, int mode, bool firstPass, bool switching, RegionSamples& samples) {
  if (mode == KEEP_MODELS) return switching;
  if (mode == UPDATE_MODELS) {
    if (!refitRegionModels(engine, samples)) fitModelsFromVectors(engine, mode);
    engine.homogenousLamda(1);  // after pass 0 the homogeneity flag alone decides
    return switching;
  }
  if (!initRegionModels(engine, samples)) fitModelsFromVectors(engine, mode);
  return engine.homogenousLamda(firstPass ? 0 : 1);
}
