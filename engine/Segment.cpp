// The five-pass driver: cut the region five times, alternating the choice of
// the smoothness weight with refitting the two colour models.
//
//   pass 0      candidate weight 0, fresh models (homogeneity decided here)
//   pass 1, 2   candidates 1 and 2 from the user's labels, pass-0 models
//   pass 3      the weight optimalLamda prefers, continuing from its labels
//               and refitting the models (or the fallback weight)
//   pass 4      refit and cut again with the pass-3 weight
// A homogeneous image never switches: five cuts at weight 50 with a refit
// before each, the classic iterated graph cut.
#include "engine/KORUSEHybrid.h"
#include "engine/ModelFitting.h"
#include "engine/RegionSamples.h"
#include "graph/KORUSEGraph.h"
#include "graph/parallel/StripeSearch.h"
#include "interface/session/KORUSEMarker.h"
#include "support/KORULog.h"
#include "support/KORUTimer.h"
#include "support/StageTrace.h"
#include "support/ThreadSetting.h"

namespace {
const int kPasses = 5;
const int kSnapshots = 3;  // labellings kept after cuts 1 to 3
}  // namespace

// One cut: the region's graph with the current models and weight, its
// minimum cut, and the new labels.
static void cut(KORUSEHybrid& engine, int pass, RegionSamples& samples) {
  traceStage("graph", pass + 1);
  buildRegionGraph(engine, samples);
  traceStage("search", pass + 1);
  stripedMaxFlow(*engine.m_graph, segmentationThreads());
  engine.updateLabelImage();
}

IplImage* KORUSEHybrid::segment() {
  clearMemory();  // an edit that OpenCV interrupted by throwing left its buffers
  g_cancelTimer = create_timer();
  start_cpu_timer(g_cancelTimer);
  traceStage("region");

  computeBoundingBox();
  preProcess();
  graphSpaceAllocator();
  m_roiImage = cropImage(KORUSEMarker::m_srcImage);
  m_roiLabel = cropImage(KORUSEMarker::m_labelImage);
  if (!m_roiImage || !m_roiLabel || !m_nlinks) {
    clearMemory();
    return nullptr;
  }
  m_roiInitialLabel = cvCloneImage(m_roiLabel);
  RegionSamples samples;  // what the models make of the region's colours, shared by the passes
  samples.index(*this);
  m_lambda = kStrongestLambda;
  KORUSEMarker::m_noiseLevel = kNoiseLevel;

  bool switching = true;
  int mode = FRESH_MODELS;
  for (int k = 0; k < kPasses; ++k) {
    traceStage("models", k + 1);
    if (switching) mode = parallelLamdaSwtich(k);
    switching = fitModels(*this, mode, k == 0, switching, samples);
    if (k == 0) mode = UPDATE_MODELS;
    cut(*this, k, samples);
    if (k < kSnapshots) m_iterLabel[k] = cvCloneImage(m_roiLabel);
    if (cancelSegmentation()) {
      logLine(ANDROID_LOG_ERROR, kTagError, "Segmentation canceled due to timeout");
      clearMemory();
      return nullptr;
    }
  }
  traceStage("mask");
  if (KORUSEMarker::m_isHomogenous) chooseIter();
  graphSpaceDellocator();
  IplImage* mask = getObjMask();
  clearMemory();
  return mask;
}
