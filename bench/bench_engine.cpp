// Per-photo and per-edit engine stages: these run on the phone's UI path.
#include <benchmark/benchmark.h>

#include <opencv2/imgproc/imgproc_c.h>

#include "colormodel/TrainingData.h"
#include "engine/KORUSEHybrid.h"
#include "engine/RegionSamples.h"
#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SegmentationCore.h"
#include "support/Marks.h"
#include "testing/SyntheticScene.h"

static void openScene(int w, int h) {
  deinitSegmentation();
  Scene s = discScene(w, h);
  setSourceImage(w, h, s.pixels.data());
  initSegmentationEngine(0);
}

static void BM_Intializer(benchmark::State& state) {
  const int w = state.range(0), h = state.range(1);
  openScene(w, h);
  for (auto _ : state) pHybrid->intializer();
  state.counters["Mpixel"] = w * h / 1e6;
  deinitSegmentation();
}
BENCHMARK(BM_Intializer)->Args({640, 480})->Args({4000, 3000})->Unit(benchmark::kMillisecond);

static void BM_SetLabelImage(benchmark::State& state) {
  const int w = state.range(0), h = state.range(1);
  openScene(w, h);
  int loop[] = {w / 5, h / 5, 4 * w / 5, h / 5, 4 * w / 5, 4 * h / 5, w / 5, 4 * h / 5};
  setCurrentMarkerVector(8, loop);
  KORUSEMarker::currentStroke.type = LOOP_ADD;
  IplImage* marks = cvCreateImage(cvSize(w, h), 8, 1);
  for (auto _ : state) {
    cvSetZero(marks);
    cvRectangle(marks, cvPoint(w / 5, h / 5), cvPoint(4 * w / 5, 4 * h / 5),
                cvScalarAll(MARK_PROBABLE_OBJECT), CV_FILLED);
    pHybrid->setLabelImage(marks);
  }
  cvReleaseImage(&marks);
  deinitSegmentation();
}
BENCHMARK(BM_SetLabelImage)->Args({4000, 3000})->Unit(benchmark::kMillisecond);

// A whole 320 x 240 working image as the region, with models trained on a
// box of probable object; the engine is left ready for a cut.
static KORUSEHybrid& regionWithModels() {
  openScene(320, 240);
  KORUSEHybrid& e = *pHybrid;
  std::vector<int> marks(320 * 240, 0);
  for (int y = 40; y < 200; ++y)
    for (int x = 60; x < 260; ++x) marks[y * 320 + x] = MARK_PROBABLE_OBJECT;
  setCurrentMarkerVector(0, nullptr);
  setMarkerImage(320, 240, marks.data(), LOOP_ADD);
  e.setLabelImage(markerImage);
  KORUSEMarker::m_xMinBBox = KORUSEMarker::m_yMinBBox = 0;
  e.m_roiWidth = 320;
  e.m_roiHeight = 240;
  e.m_lambda = 50.0;
  e.m_roiImage = e.cropImage(KORUSEMarker::m_srcImage);
  e.m_roiLabel = e.cropImage(KORUSEMarker::m_labelImage);
  std::vector<pixelVal> object, background;
  extractTrainingData(e.m_roiImage, e.m_roiLabel, object, background);
  initModel(object, background, e.m_fgModel, e.m_bgModel, 10);
  e.m_fgModel.setInverseCovariance();
  e.m_bgModel.setInverseCovariance();
  e.graphSpaceAllocator();
  return e;
}

// The plain build: every soft pixel's densities computed on the spot.
static void BM_ConstructGraph(benchmark::State& state) {
  KORUSEHybrid& e = regionWithModels();
  for (auto _ : state) e.constructGraphKORU_Whole_Image();
  state.SetItemsProcessed(state.iterations() * 320 * 240);
  e.clearMemory();
  deinitSegmentation();
}
BENCHMARK(BM_ConstructGraph)->Unit(benchmark::kMillisecond);

// The driver's build. Arg 0: the models change before every build (as in
// cuts 1, 4 and 5: each distinct colour evaluated once); arg 1: they stay
// (cuts 2 and 3: every capacity reused).
static void BM_BuildRegionGraph(benchmark::State& state) {
  KORUSEHybrid& e = regionWithModels();
  RegionSamples samples;
  samples.index(e);
  const KORUSEColorModel models[2] = {e.m_fgModel, [&] {
                                        KORUSEColorModel m = e.m_fgModel;
                                        m.m_weights[0] *= 0.5;  // another model, bit for bit
                                        return m;
                                      }()};
  const bool keep = state.range(0) == 1;
  int round = 0;
  for (auto _ : state) {
    if (!keep) e.m_fgModel = models[round++ % 2];
    buildRegionGraph(e, samples);
  }
  state.SetItemsProcessed(state.iterations() * 320 * 240);
  e.clearMemory();
  deinitSegmentation();
}
BENCHMARK(BM_BuildRegionGraph)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
