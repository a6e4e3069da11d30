// find_parent_info on a camera-preview and a full-size photo, random colours.
// Reported as time per pixel (the "per_pixel" counter, in seconds).
#include <benchmark/benchmark.h>
#include <opencv2/core/core_c.h>

#include "path/PathSearch.h"

static void BM_FindParentInfo(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
  IplImage* colour = cvCreateImage(cvSize(width, height), IPL_DEPTH_8U, 3);
  CvRNG rng = cvRNG(7);
  cvRandArr(&rng, colour, CV_RAND_UNI, cvScalarAll(0), cvScalarAll(256));
  for (auto _ : state) {
    auto parents = find_parent_info(colour, nullptr, height / 2, width / 2, 0.5);
    benchmark::DoNotOptimize(parents.data());
  }
  state.counters["per_pixel"] = benchmark::Counter(
      static_cast<double>(width) * height,
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  cvReleaseImage(&colour);
}
BENCHMARK(BM_FindParentInfo)->Args({320, 240})->Args({1280, 960})->Unit(benchmark::kMillisecond);
