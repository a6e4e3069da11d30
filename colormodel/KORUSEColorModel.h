// Colour model of one region: a mixture of five 3-D Gaussians over pixelVal
// samples, in double precision.
//
// Life of a model: constructed all-zero (every component absent); weights,
// means and covariances written by an initialiser (KMeansInit.h,
// TrainingData.h) or by updateModel (ModelUpdate.h); then setDeterminant and
// setInverseCovariance derive the cached quantities; then the densities are
// read, possibly from many threads at once.
//
// A component whose weight is not above 0 is absent: determinant 0,
// normalisation factor 0, inverse all zero, density 0.
#pragma once

#include <vector>

// One sample: in colour mode the three 8-bit channels of a pixel in the
// image's own order; in grey-scale mode intensity, horizontal texture,
// vertical texture. The model treats the three values alike.
struct pixelVal {
  double v[3];  // the sample's three values, in the order above
};

// Number of mixture components; every loop runs over 0..4 in that order.
constexpr int kNumComponents = 5;

// A covariance whose determinant is not above this (the double machine
// epsilon) is loaded on the diagonal until it is.
constexpr double kMinDeterminant = 2.220446049250313e-16;

class KORUSEColorModel {
 public:
  double m_weights[kNumComponents];                 // mixing weight; <= 0 marks the component absent
  double m_means[kNumComponents][3];                // mean sample
  double m_covariances[kNumComponents][9];          // 3x3 covariance, row-major (r,c) at 3r+c
  double m_determinants[kNumComponents];            // as last computed by setDeterminant/setInverseCovariance
  double m_normFactors[kNumComponents];             // 1/sqrt(determinant)
  double m_inverseCovariances[kNumComponents][9];   // inverse of the (regularised) covariance, row-major

  // All-zero model: every component absent, every density 0.
  KORUSEColorModel();

  // Recomputes m_determinants and m_normFactors from weights and
  // covariances. Absent components get 0 for both. A present component with
  // determinant exactly 0 keeps its previous m_normFactors (deliberately not
  // reset; setInverseCovariance repairs it). Cost: 5 determinants.
  void setDeterminant();

  // Needs setDeterminant first (reads the stored determinants). Loads the
  // diagonal of every present component whose determinant is not above
  // kMinDeterminant by KORUSEMarker::m_noiseLevel (read once, at entry),
  // step by step until it is; the loading stays in m_covariances. Then
  // stores the exact inverse. Absent components get an all-zero inverse.
  // A noise level that cannot repair the matrix (0, negative, NaN data) is
  // given up after a million steps: logged, and the
  // component's determinant set to 0 so its density is 0.
  void setInverseCovariance();

  // Unweighted density of component k: normFactor * exp(-0.5 d'A d), or 0
  // when its determinant is 0. The (2 pi)^(-3/2) factor is deliberately
  // left out: it shifts both data capacities of a pixel alike, and the hard
  // capacity 1000 and the smoothness weights are tuned without it.
  double gaussianProb(int k, pixelVal x) const;

  // Weighted mixture density, sum of weight * gaussianProb over the five
  // components (not normalised by the weight sum). This is what the graph
  // builders ask, once per pixel per model: no allocation, cached inverse.
  double GMMProb(pixelVal x) const;

  // One-dimensional density of component k on the first value only:
  // exp(-0.5 d^2/v)/sqrt(v) with v the covariance entry (0,0). No test of v.
  double gaussianProbGreyScale(int k, pixelVal x) const;

  // Sum over all five components of weight * gaussianProbGreyScale. Skips
  // nothing, so an absent component (variance 0) makes it NaN.
  double GMMProbGreyScale(pixelVal x) const;

  // ---- refitting (ModelUpdate.cpp) ------------------------------------------

  // Index of the component with the largest unweighted density at x (the
  // weights are deliberately ignored); ties and all-zero go to the lower
  // index. Uses the cached inverses and determinants as they stand.
  int assignCluster(pixelVal x) const;

  // Soft-assignment refinement, `iterations` passes with no convergence
  // test. 4 samples or fewer: nothing changes. The E-steps use the
  // determinants, norm factors and inverses cached before the call (not
  // refreshed between passes); only weights and means move between them.
  // Ends with setDeterminant and setInverseCovariance.
  // Cost: iterations * n * 5 densities; one n*5 array per pass.
  void EM(std::vector<pixelVal> samples, int iterations);

  // True when the model is homogeneous: all components heavier than 0.05
  // lie within colour distance 100 of each other, or every component
  // heavier than 0.35 has determinant below 1. Reads the stored
  // determinants, so the driver asks between updateModel and
  // setInverseCovariance.
  bool colorModelCriteria() const;
};
