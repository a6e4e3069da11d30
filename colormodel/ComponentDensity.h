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
