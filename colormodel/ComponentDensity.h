// The density of one mixture component, the computation behind gaussianProb,
// GMMProb and assignCluster: one home, inlined where it is hot.
#pragma once

#include <cmath>

#include "colormodel/KORUSEColorModel.h"

// q = d' A d, summed column by column: q = sum_j d_j * sum_i A[3i+j] d_i.
inline double quadraticForm(const double* a, const double* mean, const pixelVal& x) {
  const double d0 = x.v[0] - mean[0];
  const double d1 = x.v[1] - mean[1];
  const double d2 = x.v[2] - mean[2];
  return d0 * (a[0] * d0 + a[3] * d1 + a[6] * d2) + d1 * (a[1] * d0 + a[4] * d1 + a[7] * d2) +
         d2 * (a[2] * d0 + a[5] * d1 + a[8] * d2);
}

// normFactor * exp(-0.5 q) of component k (0..4, not checked), or 0 when
// its determinant is 0.
inline double componentDensity(const KORUSEColorModel& m, int k, const pixelVal& x) {
  if (m.m_determinants[k] == 0) return 0.0;
  return m.m_normFactors[k] * std::exp(-0.5 * quadraticForm(m.m_inverseCovariances[k], m.m_means[k], x));
}

// GMMProb(x) and assignCluster(x) in one pass over the components: the
// mixture density is returned and the component of the largest unweighted
// density (ties and all-zero: the lower index) written to *nearest. The
// same operations in the same order as the two separate calls.
inline double densityAndNearest(const KORUSEColorModel& m, const pixelVal& x, int* nearest) {
  double sum = 0.0, bestDensity = 0.0;
  int best = 0;
  for (int k = 0; k < kNumComponents; ++k) {
    const double p = componentDensity(m, k, x);
    sum += m.m_weights[k] * p;
    if (k == 0 || p > bestDensity) {
      best = k;
      bestDensity = p;
    }
  }
  *nearest = best;
  return sum;
}

// ---- all components side by side ---------------------------------------------

// Even, so that the quadratic forms of a sample go in pairs of lanes.
constexpr int kPackedLanes = 6;

// A model's means and inverses value by value, one lane per component (the
// last lane zero and never read), so that the five quadratic forms of a
// sample are computed side by side: the same operations per component as
// quadraticForm, several at a time.
struct PackedComponents {
  double mean[3][kPackedLanes];
  double inverse[9][kPackedLanes];
  double weight[kNumComponents];
  double determinant[kNumComponents];
  double normFactor[kNumComponents];

  explicit PackedComponents(const KORUSEColorModel& m) {
    for (int k = 0; k < kPackedLanes; ++k) {
      const bool real = k < kNumComponents;
      for (int c = 0; c < 3; ++c) mean[c][k] = real ? m.m_means[k][c] : 0.0;
      for (int e = 0; e < 9; ++e) inverse[e][k] = real ? m.m_inverseCovariances[k][e] : 0.0;
    }
    for (int k = 0; k < kNumComponents; ++k) {
      weight[k] = m.m_weights[k];
      determinant[k] = m.m_determinants[k];
      normFactor[k] = m.m_normFactors[k];
    }
  }
};

// densityAndNearest of the model packed.
inline double densityAndNearest(const PackedComponents& m, const pixelVal& x, int* nearest) {
  const double x0 = x.v[0], x1 = x.v[1], x2 = x.v[2];
  double q[kPackedLanes];
  for (int k = 0; k < kPackedLanes; ++k) {
    const double d0 = x0 - m.mean[0][k], d1 = x1 - m.mean[1][k], d2 = x2 - m.mean[2][k];
    q[k] = d0 * (m.inverse[0][k] * d0 + m.inverse[3][k] * d1 + m.inverse[6][k] * d2) +
           d1 * (m.inverse[1][k] * d0 + m.inverse[4][k] * d1 + m.inverse[7][k] * d2) +
           d2 * (m.inverse[2][k] * d0 + m.inverse[5][k] * d1 + m.inverse[8][k] * d2);
  }
  double sum = 0.0, bestDensity = 0.0;
  int best = 0;
  for (int k = 0; k < kNumComponents; ++k) {
    const double p = m.determinant[k] == 0 ? 0.0 : m.normFactor[k] * std::exp(-0.5 * q[k]);
    sum += m.weight[k] * p;
    if (k == 0 || p > bestDensity) {
      best = k;
      bestDensity = p;
    }
  }
  *nearest = best;
  return sum;
}
