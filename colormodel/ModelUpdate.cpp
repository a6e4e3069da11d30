#include "colormodel/ModelUpdate.h"

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <limits>

#include "colormodel/ClusterInfo.h"
#include "colormodel/ComponentDensity.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"

namespace {

// Homogeneity test: components lighter than this do not count as colours.
constexpr double kSignificantWeight = 0.05;
// Squared colour distance (100^2) within which significant means are "alike".
constexpr float kHomogeneousDistanceSq = 10000.0f;
// Components heavier than this dominate the model...
constexpr double kHeavyWeight = 0.35;
// ...and are "very narrow" below this determinant.
constexpr double kNarrowDeterminant = 1.0;

// Double to float as IEEE rounding would do it, without the undefined
// behaviour of converting a value beyond the float range.
float toFloat(double x) {
  if (x > FLT_MAX) return std::numeric_limits<float>::infinity();
  if (x < -FLT_MAX) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(x);
}

}  // namespace

int KORUSEColorModel::assignCluster(pixelVal x) const {
  int best = 0;
  double bestDensity = 0.0;
  for (int k = 0; k < kNumComponents; ++k) {
    const double p = componentDensity(*this, k, x);
    if (k == 0 || p > bestDensity) {  // strict: ties keep the lower index
      best = k;
      bestDensity = p;
    }
  }
  return best;
}

void updateModel(const std::vector<pixelVal>& samples, KORUSEColorModel& model) {
  const std::size_t n = samples.size();
  if (n == 0 || n > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    if (n != 0) logBadCall("updateModel", "too many samples");
    model.setDeterminant();
    return;
  }
  int* assigned = static_cast<int*>(KORU_Malloc_Msg(n * sizeof(int), LOG_SITE_HERE("updateModel")));
  if (!assigned) {  // already logged; keep the parameters, as for no samples
    model.setDeterminant();
    return;
  }
  for (std::size_t i = 0; i < n; ++i) assigned[i] = model.assignCluster(samples[i]);
  const ClusterInfo info(assigned, samples.data(), n);
  KORU_Free_Msg(assigned, LOG_SITE_HERE("updateModel"));
  setComponentsAndDeterminants(info, static_cast<int>(n), model);
}

void updateModel(const std::vector<pixelVal>& first, const std::vector<pixelVal>& second,
                 KORUSEColorModel& firstModel, KORUSEColorModel& secondModel) {
  updateModel(first, firstModel);
  updateModel(second, secondModel);
}

void KORUSEColorModel::EM(std::vector<pixelVal> samples, int iterations) {
  if (samples.size() <= 4) return;
  if (samples.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) / kNumComponents) {
    logBadCall("EM", "too many samples");
    return;
  }
  const int n = static_cast<int>(samples.size());
  for (int pass = 0; pass < iterations; ++pass) {
    double* resp = static_cast<double*>(
        KORU_Malloc_Msg(sizeof(double) * kNumComponents * n, LOG_SITE_HERE("EM")));
    if (!resp) break;  // logged by the allocator; keep the passes done so far

    // E-step with the determinants, norm factors and inverses cached before
    // EM began (deliberately stale); weights and means are the current ones.
    for (int i = 0; i < n; ++i) {
      double* r = resp + kNumComponents * i;
      double total = 0.0;
      for (int k = 0; k < kNumComponents; ++k) {
        r[k] = m_weights[k] * gaussianProb(k, samples[i]);
        total += r[k];
      }
      const double scale = total > 0 ? 1.0 / total : 0.0;
      for (int k = 0; k < kNumComponents; ++k) r[k] = total > 0 ? r[k] * scale : 0.0;
    }

    // M-step: weights, means, then covariances about the new means.
    for (int k = 0; k < kNumComponents; ++k) {
      double mass = 0.0;
      double mean[3] = {0.0, 0.0, 0.0};
      for (int i = 0; i < n; ++i) {
        const double r = resp[kNumComponents * i + k];
        mass += r;
        for (int c = 0; c < 3; ++c) mean[c] += r * samples[i].v[c];
      }
      m_weights[k] = mass * (1.0 / n);
      for (int c = 0; c < 3; ++c) m_means[k][c] = mass > 0 ? mean[c] / mass : mean[c];
      double cov[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0};
      for (int i = 0; i < n; ++i) {
        const double r = resp[kNumComponents * i + k];
        double d[3];
        for (int c = 0; c < 3; ++c) d[c] = samples[i].v[c] - m_means[k][c];
        for (int a = 0; a < 3; ++a)
          for (int b = 0; b < 3; ++b) cov[3 * a + b] += r * d[a] * d[b];
      }
      for (int e = 0; e < 9; ++e) m_covariances[k][e] = mass > 0 ? cov[e] / mass : cov[e];
    }
    KORU_Free_Msg(resp, LOG_SITE_HERE("EM"));
  }
  setDeterminant();
  setInverseCovariance();
}

bool KORUSEColorModel::colorModelCriteria() const {
  float farthest = -1.0f;  // largest squared distance between significant means
  for (int i = 0; i < kNumComponents; ++i) {
    for (int j = i + 1; j < kNumComponents; ++j) {
      if (!(m_weights[i] > kSignificantWeight && m_weights[j] > kSignificantWeight)) continue;
      double distSq = 0.0;
      for (int c = 0; c < 3; ++c) {
        const double d = m_means[i][c] - m_means[j][c];
        distSq += d * d;
      }
      const float f = toFloat(distSq);
      if (f > farthest) farthest = f;
    }
  }
  if (farthest < kHomogeneousDistanceSq) return true;

  bool anyHeavy = false;
  for (int k = 0; k < kNumComponents; ++k) {
    if (!(m_weights[k] > kHeavyWeight)) continue;
    anyHeavy = true;
    if (!(m_determinants[k] < kNarrowDeterminant)) return false;
  }
  return anyHeavy;
}
