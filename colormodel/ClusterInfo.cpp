#include "colormodel/ClusterInfo.h"

#include <cstddef>

#include "support/KORULog.h"

ClusterInfo::ClusterInfo(std::vector<int> labels, std::vector<pixelVal> samples) {
  std::size_t n = samples.size();
  if (labels.size() != n) {
    logBadCall("ClusterInfo", "label and sample counts differ");
    if (labels.size() < n) n = labels.size();
  }
  accumulate(labels.data(), samples.data(), n);
}

ClusterInfo::ClusterInfo(const int* labels, const pixelVal* samples, std::size_t n) {
  accumulate(labels, samples, n);
}

ClusterInfo::ClusterInfo() { clear(); }

void ClusterInfo::clear() {
  for (int k = 0; k < kNumComponents; ++k) {
    m_counts[k] = 0;
    for (int c = 0; c < 3; ++c) m_sums[c][k] = 0.0;
    for (int e = 0; e < 9; ++e) m_productSums[e][k] = 0.0;
  }
}

void ClusterInfo::complete() {
  for (int a = 1; a < 3; ++a)
    for (int b = 0; b < a; ++b)
      for (int k = 0; k < kNumComponents; ++k) m_productSums[3 * a + b][k] = m_productSums[3 * b + a][k];
}

void ClusterInfo::accumulate(const int* labels, const pixelVal* samples, std::size_t n) {
  clear();
  bool reported = false;
  for (std::size_t i = 0; i < n; ++i) {
    const int k = labels[i];
    if (k < 0 || k >= kNumComponents) {
      if (!reported) logBadCall("ClusterInfo", "label outside 0..4 ignored");
      reported = true;
      continue;
    }
    add(k, samples[i]);
  }
  complete();
}

void setComponentsFromClusters(const ClusterInfo& info, int n, KORUSEColorModel& model) {
  const double share = 1.0 / n;
  for (int k = 0; k < kNumComponents; ++k) {
    const int m = info.m_counts[k];
    if (m == 0) continue;
    model.m_weights[k] = m * share;
    double* mean = model.m_means[k];
    for (int c = 0; c < 3; ++c) mean[c] = info.m_sums[c][k] / m;
    for (int a = 0; a < 3; ++a)
      for (int b = 0; b < 3; ++b)
        model.m_covariances[k][3 * a + b] = info.m_productSums[3 * a + b][k] / m - mean[a] * mean[b];
  }
}

void setComponentsAndDeterminants(const ClusterInfo& info, int n, KORUSEColorModel& model) {
  setComponentsFromClusters(info, n, model);
  model.setDeterminant();
}
