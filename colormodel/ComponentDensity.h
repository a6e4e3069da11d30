// The density of one mixture component: the computation behind gaussianProb,
// GMMProb and assignCluster, the packed one of the region's samples, and the
// single-precision one of the block data terms. One home, inlined where it
// is hot.
#pragma once

#include <cmath>

#include "colormodel/DoublePair.h"
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

// weight * density of component k as the block data terms evaluate it, in
// the precision their models were tuned with: the differences and the
// exponent -0.5 d'A d in float (rows summed as sum_i (sum_j A[i][j] d_j) d_i),
// the term itself in double. Absent components are not skipped: their
// weight and norm factor are 0.
inline double blockComponentTerm(const KORUSEColorModel& m, int k, const double pixel[3]) {
  const double* a = m.m_inverseCovariances[k];
  const double* mean = m.m_means[k];
  const float d[3] = {static_cast<float>(pixel[0] - mean[0]), static_cast<float>(pixel[1] - mean[1]),
                      static_cast<float>(pixel[2] - mean[2])};
  double q = 0.0;
  for (int i = 0; i < 3; ++i) {
    double row = 0.0;
    for (int j = 0; j < 3; ++j) row += a[3 * i + j] * d[j];
    q += row * d[i];
  }
  const float exponent = static_cast<float>(q * -0.5);
  return m.m_normFactors[k] * m.m_weights[k] * std::exp(static_cast<double>(exponent));
}

// ---- all components side by side ---------------------------------------------

// A model's means and inverses value by value, two components to a register
// (0-1, 2-3, 4 with an empty lane), so that the five quadratic forms of a
// sample are computed side by side: per lane the same operations as
// quadraticForm.
struct PackedComponents {
  static constexpr int kPairs = (kNumComponents + 1) / 2;
  DoublePair mean[3][kPairs];
  DoublePair inverse[9][kPairs];
  double weight[kNumComponents];
  double determinant[kNumComponents];
  double normFactor[kNumComponents];

  explicit PackedComponents(const KORUSEColorModel& m) {
    for (int j = 0; j < kPairs; ++j) {
      const int a = 2 * j, b = 2 * j + 1;
      const bool second = b < kNumComponents;
      for (int c = 0; c < 3; ++c) mean[c][j] = DoublePair{m.m_means[a][c], second ? m.m_means[b][c] : 0.0};
      for (int e = 0; e < 9; ++e)
        inverse[e][j] = DoublePair{m.m_inverseCovariances[a][e], second ? m.m_inverseCovariances[b][e] : 0.0};
    }
    for (int k = 0; k < kNumComponents; ++k) {
      weight[k] = m.m_weights[k];
      determinant[k] = m.m_determinants[k];
      normFactor[k] = m.m_normFactors[k];
    }
  }

  // quadraticForm of the pair j of components.
  DoublePair quadraticForms(int j, DoublePair x0, DoublePair x1, DoublePair x2) const {
    const DoublePair(&a)[9][kPairs] = inverse;
    const DoublePair d0 = x0 - mean[0][j], d1 = x1 - mean[1][j], d2 = x2 - mean[2][j];
    return d0 * (a[0][j] * d0 + a[3][j] * d1 + a[6][j] * d2) + d1 * (a[1][j] * d0 + a[4][j] * d1 + a[7][j] * d2) +
           d2 * (a[2][j] * d0 + a[5][j] * d1 + a[8][j] * d2);
  }
};

// GMMProb(x) and assignCluster(x) of the model packed, in one pass over the
// components: the mixture density is returned and the component of the
// largest unweighted density (ties and all-zero: the lower index) written to
// *nearest. The same operations in the same order as the two separate calls.
inline double densityAndNearest(const PackedComponents& m, const pixelVal& x, int* nearest) {
  static_assert(kNumComponents == 5, "components are paired as 0-1, 2-3, 4");
  const DoublePair x0 = {x.v[0], x.v[0]}, x1 = {x.v[1], x.v[1]}, x2 = {x.v[2], x.v[2]};
  const DoublePair q01 = m.quadraticForms(0, x0, x1, x2), q23 = m.quadraticForms(1, x0, x1, x2),
                   q4 = m.quadraticForms(2, x0, x1, x2);
  const double q[kNumComponents] = {q01[0], q01[1], q23[0], q23[1], q4[0]};
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
