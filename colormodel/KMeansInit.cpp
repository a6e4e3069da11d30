#include "colormodel/KMeansInit.h"

#include <opencv2/core.hpp>

#include <cfloat>
#include <cstddef>
#include <limits>
#include <new>
#include <utility>

#include "colormodel/ClusterInfo.h"
#include "colormodel/KMeans.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"

namespace {

// The segmentation's k-means: stop when the error no longer changes at
// all, and after at most 10 iterations.
constexpr double kKMeansTolerance = 0.0;
constexpr int kKMeansMaxIterations = 10;

// Components from the labels, then the determinants (steps shared by both
// initialisers). Takes the labels by value: ClusterInfo wants its own copy.
void componentsFromLabels(std::vector<int> labels, const std::vector<pixelVal>& samples,
                          KORUSEColorModel& model) {
  ClusterInfo info(std::move(labels), samples);
  setComponentsFromClusters(info, static_cast<int>(samples.size()), model);
  model.setDeterminant();
}

float clampToFloat(double x) {
  if (x > FLT_MAX) return FLT_MAX;
  if (x < -FLT_MAX) return -FLT_MAX;
  return static_cast<float>(x);
}

}  // namespace

void initModelWithKmeansKORU(const std::vector<pixelVal>& samples, KORUSEColorModel& model) {
  if (samples.size() < static_cast<std::size_t>(kMinClusteringSamples)) return;
  if (samples.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) / 3) {
    logBadCall("initModelWithKmeansKORU", "too many samples");
    return;
  }
  const int n = static_cast<int>(samples.size());
  // One block for all point copies instead of one allocation per point.
  double* values = static_cast<double*>(
      KORU_Malloc_Msg(sizeof(double) * 3 * n, "initModelWithKmeansKORU", __LINE__));
  double** points =
      static_cast<double**>(KORU_Malloc_Msg(sizeof(double*) * n, "initModelWithKmeansKORU", __LINE__));
  int* labels = static_cast<int*>(KORU_Calloc_Msg(n, sizeof(int), "initModelWithKmeansKORU", __LINE__));
  if (values && points && labels) {
    for (int i = 0; i < n; ++i) {
      points[i] = values + 3 * i;
      for (int c = 0; c < 3; ++c) points[i][c] = samples[i].v[c];
    }
    k_means(points, labels, n, kKMeansTolerance, kKMeansMaxIterations, nullptr);
  }
  bool clustered = values && points && labels;
  try {
    std::vector<int> labelVector;
    if (clustered) labelVector.assign(labels, labels + n);
    if (values) KORU_Free_Msg(values, "initModelWithKmeansKORU", __LINE__);
    if (points) KORU_Free_Msg(points, "initModelWithKmeansKORU", __LINE__);
    if (labels) KORU_Free_Msg(labels, "initModelWithKmeansKORU", __LINE__);
    labels = nullptr;
    if (clustered) componentsFromLabels(std::move(labelVector), samples, model);
  } catch (const std::bad_alloc&) {
    logBadCall("initModelWithKmeansKORU", "out of memory; model kept");
    if (labels) KORU_Free_Msg(labels, "initModelWithKmeansKORU", __LINE__);
  }
}

void initModelWithKmeans(const std::vector<pixelVal>& samples, KORUSEColorModel& model) {
  try {
    std::vector<cv::Vec3f> data(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
      for (int c = 0; c < 3; ++c) data[i][c] = clampToFloat(samples[i].v[c]);
    cv::Mat labels;
    cv::kmeans(data, kNumComponents, labels,
               cv::TermCriteria(cv::TermCriteria::COUNT, kKMeansMaxIterations, kKMeansTolerance),
               0 /* attempts: OpenCV makes one */, cv::KMEANS_PP_CENTERS, cv::noArray());
    componentsFromLabels(std::vector<int>(labels.begin<int>(), labels.end<int>()), samples, model);
  } catch (const cv::Exception& e) {
    logBadCall("initModelWithKmeans", e.what());
  } catch (const std::exception& e) {
    logBadCall("initModelWithKmeans", e.what());
  }
}

void initModelWithKmeans(const std::vector<pixelVal>& first, const std::vector<pixelVal>& second,
                         KORUSEColorModel& firstModel, KORUSEColorModel& secondModel) {
  initModelWithKmeans(first, firstModel);
  initModelWithKmeans(second, secondModel);
}
