// One whole edit through the exported functions, and the stages it is made
// of, on generated photos from 0.3 to 12 megapixels.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <opencv2/imgproc/imgproc_c.h>

#include "SegmentationCore.h"
#include "SyntheticScene.h"
#include "engine/KORUSEHybrid.h"
#include "history/KORUSEManageUndoRedo.h"
#include "interface/KORUSEMarker.h"
#include "interface/SessionGlobals.h"

namespace {
struct Session {
  Scene scene;
  std::vector<int> marks, loop;
  std::vector<unsigned int> preview;
  std::vector<unsigned char> mask;

  Session(int w, int h) : scene(discScene(w, h)), marks(size_t(w) * h, 0), preview(scene.pixels),
                          mask(size_t(w) * h) {
    const int x0 = w / 5, y0 = h / 10, x1 = 4 * w / 5, y1 = 9 * h / 10;
    for (int y = y0; y <= y1; ++y)
      for (int x = x0; x <= x1; ++x) marks[size_t(y) * w + x] = MARK_PROBABLE_OBJECT;
    loop = {x0, y0, x1, y0, x1, y1, x0, y1};
    deinitSegmentation();
    setSourceImage(w, h, scene.pixels.data());
    initSegmentationEngine(0);
  }
  ~Session() { deinitSegmentation(); }
  // The box edit's labels in the engine, without a cut.
  void labels() {
    setCurrentMarkerVector(8, loop.data());
    setMarkerImage(scene.width, scene.height, marks.data(), LOOP_ADD);
    pHybrid->setLabelImage(markerImage);
  }
  void boxEdit() {
    setCurrentMarkerVector(8, loop.data());
    setMarkerImage(scene.width, scene.height, marks.data(), LOOP_ADD);
    processSegment(0, 0, 0, preview.data(), mask.data());
  }
};

// The library's informational log lines would break up the table.
const int kQuiet = (__android_log_set_minimum_priority(ANDROID_LOG_WARN), 0);

double peakResidentMB() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}
}  // namespace

// The whole edit as the phone app makes it; history reset between runs.
static void BM_BoxEdit(benchmark::State& state) {
  Session s(state.range(0), state.range(1));
  for (auto _ : state) {
    s.boxEdit();
    state.PauseTiming();
    resetSegmentationInterface();
    state.ResumeTiming();
  }
  state.counters["Mpixel"] = s.scene.width * double(s.scene.height) / 1e6;
  state.counters["peakRSS_MB"] = peakResidentMB();
}
BENCHMARK(BM_BoxEdit)->Args({640, 480})->Args({1280, 960})->Args({4000, 3000})
    ->Unit(benchmark::kMillisecond)->Iterations(3);

// The label image from the marks, the previous result and the stroke's
// path, reduced to the working size: the first step of every edit.
static void BM_StageLabels(benchmark::State& state) {
  Session s(state.range(0), state.range(1));
  s.boxEdit();  // a previous result, as for every edit but the first
  for (auto _ : state) {
    state.PauseTiming();
    setCurrentMarkerVector(8, s.loop.data());
    setMarkerImage(s.scene.width, s.scene.height, s.marks.data(), LOOP_ADD);
    state.ResumeTiming();
    pHybrid->setLabelImage(markerImage);
  }
  freeLocalBuffers();
}
BENCHMARK(BM_StageLabels)->Args({1280, 960})->Args({4000, 3000})->Unit(benchmark::kMillisecond);

// The region of interest and its tightening to where the image has structure.
static void BM_StageRegion(benchmark::State& state) {
  Session s(320, 240);
  for (auto _ : state) {
    state.PauseTiming();
    s.labels();
    state.ResumeTiming();
    pHybrid->computeBoundingBox();
    pHybrid->preProcess();
  }
  freeLocalBuffers();
}
BENCHMARK(BM_StageRegion)->Unit(benchmark::kMillisecond);

// Cleaning a full-size result of a box edit (islands, pin holes).
static void BM_StagePostProcess(benchmark::State& state) {
  Session s(state.range(0), state.range(1));
  s.boxEdit();
  IplImage* result = KORUSEManageUndoRedo::prevMask();
  for (auto _ : state) {
    state.PauseTiming();
    IplImage* mask = cvCloneImage(result);
    state.ResumeTiming();
    pHybrid->postProcess(mask);
    state.PauseTiming();
    cvReleaseImage(&mask);
    state.ResumeTiming();
  }
  cvReleaseImage(&result);
}
BENCHMARK(BM_StagePostProcess)->Args({1280, 960})->Args({4000, 3000})->Unit(benchmark::kMillisecond);

// Region, five cuts, post-processing and history on the working image alone
// (a 320 x 240 photo is not reduced, so nothing is refined).
static void BM_StageCuts(benchmark::State& state) {
  Session s(320, 240);
  for (auto _ : state) {
    state.PauseTiming();
    s.labels();
    KORUSEManageUndoRedo::reset();
    state.ResumeTiming();
    IplImage* mask = pHybrid->segment();
    cvReleaseImage(&mask);
  }
}
BENCHMARK(BM_StageCuts)->Unit(benchmark::kMillisecond);

// The full-resolution band cut of a reduced result.
static void BM_StageRefinement(benchmark::State& state) {
  Session s(state.range(0), state.range(1));
  s.boxEdit();
  IplImage* low = cvCreateImage(cvGetSize(KORUSEMarker::m_labelImage), 8, 1);
  for (int y = 0; y < low->height; ++y)
    for (int x = 0; x < low->width; ++x) {
      const uint8_t l = KORUSEMarker::m_labelImage->imageData[y * KORUSEMarker::m_labelImage->widthStep + x];
      low->imageData[y * low->widthStep + x] = (l == 2 || l == 4) ? 1 : 0;
    }
  for (auto _ : state) {
    IplImage* copy = cvCloneImage(low);
    IplImage* full = pHybrid->intelligentUpscaling(copy);
    cvReleaseImage(&full);
    cvReleaseImage(&copy);
  }
  cvReleaseImage(&low);
  state.counters["peakRSS_MB"] = peakResidentMB();
}
BENCHMARK(BM_StageRefinement)->Args({1280, 960})->Args({4000, 3000})->Unit(benchmark::kMillisecond);

// Recording in the history, and drawing the outline, at full size.
static void BM_StageHistoryAndOutline(benchmark::State& state) {
  Session s(state.range(0), state.range(1));
  s.boxEdit();
  IplImage* mask = KORUSEManageUndoRedo::prevMask();
  for (auto _ : state) {
    KORUSEManageUndoRedo::updateBitPlane(mask);
    resultMask = mask;
    loadBlendedImageInfo(s.preview.data());
    resultMask = nullptr;
  }
  cvReleaseImage(&mask);
}
BENCHMARK(BM_StageHistoryAndOutline)->Args({4000, 3000})->Unit(benchmark::kMillisecond);
