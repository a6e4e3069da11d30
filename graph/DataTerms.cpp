#include "graph/DataTerms.h"

namespace {
// Below this the two log-likelihoods of a grey pixel count as equal.
const float kGreyTieTolerance = 0.0001f;
}  // namespace

DataTerm dataTermOfDensities(double objectDensity, double backgroundDensity, bool grey) {
  if (!grey) return {-std::log(backgroundDensity), -std::log(objectDensity)};
  double a = std::log(backgroundDensity);
  const double b = std::log(objectDensity);
  if (static_cast<float>(std::fabs(b - a)) < kGreyTieTolerance) a = b;
  return {-a, -b};
}
