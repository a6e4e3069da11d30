// Sufficient statistics of a labelled sample set, and the step that turns
// them into mixture components (shared by the k-means initialisers and the
// hard-assignment update).
#pragma once

#include <cstddef>
#include <vector>

#include "colormodel/KORUSEColorModel.h"

struct ClusterInfo {
  int m_counts[kNumComponents];            // samples given to each component
  double m_sums[3][kNumComponents];        // [c][k]: sum of value c over component k
  double m_productSums[9][kNumComponents]; // [3a+b][k]: sum of value a * value b over component k

  // labels[i] in 0..4 is the component of samples[i]. Starts all-zero and
  // adds every sample in order. A label outside 0..4, or label and sample
  // vectors of different lengths, are logged; the offending samples (or the
  // unmatched tail) are left out rather than written out of bounds.
  ClusterInfo(std::vector<int> labels, std::vector<pixelVal> samples);

  // The same sums from n labels and n samples in place, without copies.
  ClusterInfo(const int* labels, const pixelVal* samples, std::size_t n);

  // ---- one sample at a time ----------------------------------------------------

  // All-zero: no sample yet.
  ClusterInfo();
  // Adds sample x to component k (0..4, not checked). Only the upper
  // triangle of m_productSums (a <= b) is summed here: x[b] * x[a] equals
  // x[a] * x[b], so the lower triangle would repeat the same sums.
  void add(int k, const pixelVal& x) {
    const double* v = x.v;
    m_counts[k] += 1;
    for (int c = 0; c < 3; ++c) m_sums[c][k] += v[c];
    for (int a = 0; a < 3; ++a)
      for (int b = a; b < 3; ++b) m_productSums[3 * a + b][k] += v[a] * v[b];
  }
  // Copies the upper triangle into the lower one, after the last add.
  void complete();

 private:
  void clear();
  void accumulate(const int* labels, const pixelVal* samples, std::size_t n);
};

// For every component k with at least one sample, m = count, n = total:
//   weight = m * (1/n), mean = sums / m,
//   covariance[3a+b] = productSums[3a+b] / m - mean_a * mean_b  (biased).
// A component with no sample is left exactly as it was; the weights are
// deliberately not renormalised afterwards, so they may sum to more than 1.
// Touches neither determinants nor inverses.
void setComponentsFromClusters(const ClusterInfo& info, int n, KORUSEColorModel& model);

// setComponentsFromClusters, then model.setDeterminant(): how the
// initialisers and the update end. The inverses are left to the caller.
void setComponentsAndDeterminants(const ClusterInfo& info, int n, KORUSEColorModel& model);
