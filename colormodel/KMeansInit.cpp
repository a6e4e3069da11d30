#include "colormodel/KMeansInit.h"

#include <opencv2/core.hpp>

#include <cfloat>
#include <cstddef>
#include <limits>

#include "colormodel/ClusterInfo.h"
#include "colormodel/KMeans.h"
#include "colormodel/PackedSample.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"

namespace {

// The segmentation's k-means: stop when the error no longer changes at
// all, and after at most 10 iterations.
constexpr double kKMeansTolerance = 0.0;
constexpr int kKMeansMaxIterations = 10;

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
  // k_means only reads the points: they point into the samples themselves.
  double** points =
      static_cast<double**>(KORU_Malloc_Msg(sizeof(double*) * n, LOG_SITE_HERE("initModelWithKmeansKORU")));
  int* labels = static_cast<int*>(KORU_Calloc_Msg(n, sizeof(int), LOG_SITE_HERE("initModelWithKmeansKORU")));
  if (points && labels) {
    for (int i = 0; i < n; ++i) points[i] = const_cast<double*>(samples[i].v);
    k_means(points, labels, n, kKMeansTolerance, kKMeansMaxIterations, nullptr);
    setComponentsAndDeterminants(ClusterInfo(labels, samples.data(), samples.size()), n, model);
  }
  if (points) KORU_Free_Msg(points, LOG_SITE_HERE("initModelWithKmeansKORU"));
  if (labels) KORU_Free_Msg(labels, LOG_SITE_HERE("initModelWithKmeansKORU"));
}

void initModelWithKmeansPacked(const uint32_t* samples, int n, KORUSEColorModel& model) {
  if (n < kMinClusteringSamples || !samples) return;
  int* labels = static_cast<int*>(KORU_Calloc_Msg(n, sizeof(int), LOG_SITE_HERE("initModelWithKmeansPacked")));
  if (!labels) return;
  kMeansPacked(samples, labels, n, kKMeansTolerance, kKMeansMaxIterations);
  ClusterInfo info;
  for (int i = 0; i < n; ++i) info.add(labels[i], unpackSample(samples[i]));
  info.complete();
  setComponentsAndDeterminants(info, n, model);
  KORU_Free_Msg(labels, LOG_SITE_HERE("initModelWithKmeansPacked"));
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
    const ClusterInfo info(std::vector<int>(labels.begin<int>(), labels.end<int>()), samples);
    setComponentsAndDeterminants(info, static_cast<int>(samples.size()), model);
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
