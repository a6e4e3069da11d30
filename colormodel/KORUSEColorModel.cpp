#include "colormodel/KORUSEColorModel.h"

#include <cmath>

#include "colormodel/ComponentDensity.h"
#include "interface/session/KORUSEMarker.h"
#include "support/KORULog.h"

namespace {

// No real covariance needs this many loading steps (with the noise level
// 0.1 it would take a matrix with an eigenvalue near -100000); reaching it
// means the noise level cannot repair the matrix and the loop would not end.
constexpr long kMaxRegularisationSteps = 1000000;

// Expansion along the first row, in the evaluation order the stored
// models were tuned with.
double determinant3(const double* c) {
  return (c[8] * c[4] - c[7] * c[5]) * c[0] + (c[6] * c[5] - c[3] * c[8]) * c[1] +
         (c[3] * c[7] - c[6] * c[4]) * c[2];
}

// Adjugate over determinant.
void inverse3(const double* c, double det, double* inv) {
  inv[0] = (c[4] * c[8] - c[5] * c[7]) / det;
  inv[1] = (c[2] * c[7] - c[1] * c[8]) / det;
  inv[2] = (c[1] * c[5] - c[2] * c[4]) / det;
  inv[3] = (c[5] * c[6] - c[3] * c[8]) / det;
  inv[4] = (c[0] * c[8] - c[2] * c[6]) / det;
  inv[5] = (c[2] * c[3] - c[0] * c[5]) / det;
  inv[6] = (c[3] * c[7] - c[4] * c[6]) / det;
  inv[7] = (c[1] * c[6] - c[0] * c[7]) / det;
  inv[8] = (c[0] * c[4] - c[1] * c[3]) / det;
}

bool validComponent(int k, const char* function) {
  if (k >= 0 && k < kNumComponents) return true;
  logBadCall(function, "component index out of range");
  return false;
}

}  // namespace

KORUSEColorModel::KORUSEColorModel() {
  for (int k = 0; k < kNumComponents; ++k) {
    m_weights[k] = 0.0;
    for (int c = 0; c < 3; ++c) m_means[k][c] = 0.0;
    for (int e = 0; e < 9; ++e) m_covariances[k][e] = 0.0;
    m_determinants[k] = 0.0;
    m_normFactors[k] = 0.0;
  }
  setDeterminant();
  setInverseCovariance();
}

void KORUSEColorModel::setDeterminant() {
  for (int k = 0; k < kNumComponents; ++k) {
    if (m_weights[k] > 0) {
      const double det = determinant3(m_covariances[k]);
      m_determinants[k] = det;
      if (det != 0) m_normFactors[k] = 1.0 / std::sqrt(det);
    } else {
      m_determinants[k] = 0;
      m_normFactors[k] = 0;
    }
  }
}

void KORUSEColorModel::setInverseCovariance() {
  const double epsilon = KORUSEMarker::m_noiseLevel;
  for (int k = 0; k < kNumComponents; ++k) {
    double* c = m_covariances[k];
    double* inv = m_inverseCovariances[k];
    if (!(m_weights[k] > 0)) {
      for (int e = 0; e < 9; ++e) inv[e] = 0.0;
      continue;
    }
    double det = m_determinants[k];
    long steps = 0;
    // Diagonal loading; written back, so it is permanent.
    while (!(det > kMinDeterminant) && steps < kMaxRegularisationSteps) {
      c[0] += epsilon;
      c[4] += epsilon;
      c[8] += epsilon;
      det = determinant3(c);
      m_determinants[k] = det;
      if (det != 0) m_normFactors[k] = 1.0 / std::sqrt(det);
      ++steps;
    }
    if (!(det > kMinDeterminant)) {
      logBadCall("setInverseCovariance", "noise level cannot regularise the covariance");
      m_determinants[k] = 0;
      for (int e = 0; e < 9; ++e) inv[e] = 0.0;
      continue;
    }
    inverse3(c, det, inv);
  }
}

double KORUSEColorModel::gaussianProb(int k, pixelVal x) const {
  if (!validComponent(k, "gaussianProb")) return 0.0;
  return componentDensity(*this, k, x);
}

double KORUSEColorModel::GMMProb(pixelVal x) const {
  double sum = 0.0;
  for (int k = 0; k < kNumComponents; ++k) sum += m_weights[k] * componentDensity(*this, k, x);
  return sum;
}

double KORUSEColorModel::gaussianProbGreyScale(int k, pixelVal x) const {
  if (!validComponent(k, "gaussianProbGreyScale")) return 0.0;
  const double variance = m_covariances[k][0];
  const double d = x.v[0] - m_means[k][0];
  return std::exp(-0.5 * d * d / variance) / std::sqrt(variance);
}

double KORUSEColorModel::GMMProbGreyScale(pixelVal x) const {
  double sum = 0.0;
  for (int k = 0; k < kNumComponents; ++k) {
    const double variance = m_covariances[k][0];
    const double d = x.v[0] - m_means[k][0];
    sum += m_weights[k] * std::exp(-0.5 * d * d / variance) / std::sqrt(variance);
  }
  return sum;
}
