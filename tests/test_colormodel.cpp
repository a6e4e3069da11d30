#include <gtest/gtest.h>

#include <opencv2/core/core_c.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "LogCapture.h"
#include "colormodel/ClusterInfo.h"
#include "colormodel/KMeans.h"
#include "colormodel/KMeansInit.h"
#include "colormodel/KORUSEColorModel.h"
#include "colormodel/ModelUpdate.h"
#include "colormodel/TrainingData.h"
#include "colormodel/VarPartition.h"
#include "interface/KORUSEMarker.h"

namespace {

// The noise level the segmentation uses, set for every test of this file.
class ColorModelTest : public ::testing::Test {
 protected:
  void SetUp() override { KORUSEMarker::m_noiseLevel = 0.1; }
};

void setComponent(KORUSEColorModel& m, int k, double w, pixelVal mean, std::vector<double> diag) {
  m.m_weights[k] = w;
  for (int c = 0; c < 3; ++c) m.m_means[k][c] = mean.v[c];
  for (int e = 0; e < 9; ++e) m.m_covariances[k][e] = 0.0;
  for (int c = 0; c < 3; ++c) m.m_covariances[k][4 * c] = diag[c];
}

bool sameBits(const KORUSEColorModel& a, const KORUSEColorModel& b) {
  return std::memcmp(&a, &b, sizeof(KORUSEColorModel)) == 0;
}

// Blobs of samples spread by at most 3 around well separated centres, from a
// fixed linear congruential sequence (independent of rand()).
struct Blobs {
  std::vector<pixelVal> samples;
  std::vector<pixelVal> means;  // the exact mean of each blob's samples
};
Blobs makeBlobs(const std::vector<pixelVal>& centres, const std::vector<int>& sizes) {
  Blobs b;
  unsigned state = 12345;
  for (size_t j = 0; j < centres.size(); ++j) {
    pixelVal sum = {{0, 0, 0}};
    for (int i = 0; i < sizes[j]; ++i) {
      pixelVal s;
      for (int c = 0; c < 3; ++c) {
        state = state * 1103515245u + 12345u;
        s.v[c] = centres[j].v[c] + static_cast<int>((state >> 16) % 7) - 3;
        sum.v[c] += s.v[c];
      }
      b.samples.push_back(s);
    }
    for (int c = 0; c < 3; ++c) sum.v[c] /= sizes[j];
    b.means.push_back(sum);
  }
  return b;
}

// Each blob must be matched by exactly one component with its share and mean.
void expectBlobModel(const KORUSEColorModel& m, const Blobs& b, const std::vector<int>& sizes) {
  const double n = static_cast<double>(b.samples.size());
  std::vector<bool> used(kNumComponents, false);
  for (size_t j = 0; j < b.means.size(); ++j) {
    int k = 0;
    for (int i = 1; i < kNumComponents; ++i)
      if (distSq(b.means[j], {{m.m_means[i][0], m.m_means[i][1], m.m_means[i][2]}}) <
          distSq(b.means[j], {{m.m_means[k][0], m.m_means[k][1], m.m_means[k][2]}}))
        k = i;
    EXPECT_FALSE(used[k]) << "blob " << j;
    used[k] = true;
    EXPECT_DOUBLE_EQ(m.m_weights[k], sizes[j] / n);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(m.m_means[k][c], b.means[j].v[c], 1e-9);
    // Values spread uniformly over 7 integers: variance 4 per value.
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(m.m_covariances[k][4 * c], 4.0, 1.0);
  }
}

}  // namespace

TEST_F(ColorModelTest, DensitiesWorkedByHand) {
  KORUSEColorModel m;
  EXPECT_EQ(m.GMMProb({{10, 20, 30}}), 0.0);  // fresh model: all absent

  // diag(4, 9, 16): det 576, 1/sqrt(det) = 1/24, inverse diag(1/4, 1/9, 1/16).
  setComponent(m, 2, 0.4, {{10, 20, 30}}, {4, 9, 16});
  m.setDeterminant();
  m.setInverseCovariance();
  EXPECT_DOUBLE_EQ(m.m_determinants[2], 576.0);
  EXPECT_DOUBLE_EQ(m.gaussianProb(2, {{10, 20, 30}}), 1.0 / 24);
  EXPECT_DOUBLE_EQ(m.GMMProb({{10, 20, 30}}), 0.4 / 24);
  // Offset (2, 3, 4) is one standard deviation per value: q = 3.
  EXPECT_DOUBLE_EQ(m.gaussianProb(2, {{12, 23, 34}}), std::exp(-1.5) / 24);
  // First value only: variance 4, offset 2 -> exp(-0.5)/2.
  EXPECT_DOUBLE_EQ(m.gaussianProbGreyScale(2, {{12, 0, 0}}), std::exp(-0.5) / 2);
  EXPECT_TRUE(std::isnan(m.GMMProbGreyScale({{12, 0, 0}})));  // absent components have variance 0

  // Correlated covariance [[2,1,0],[1,2,0],[0,0,1]], det 3: the inverse
  // times the covariance is the identity, and the density at the mean is
  // 1/sqrt(3).
  m.m_weights[4] = 0.6;
  const double cov[9] = {2, 1, 0, 1, 2, 0, 0, 0, 1};
  std::copy(cov, cov + 9, m.m_covariances[4]);
  m.setDeterminant();
  m.setInverseCovariance();
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) {
      double dot = 0;
      for (int i = 0; i < 3; ++i) dot += m.m_inverseCovariances[4][3 * r + i] * cov[3 * i + c];
      EXPECT_NEAR(dot, r == c ? 1.0 : 0.0, 1e-15);
    }
  EXPECT_DOUBLE_EQ(m.gaussianProb(4, {{0, 0, 0}}), 1 / std::sqrt(3.0));
  EXPECT_DOUBLE_EQ(m.GMMProb({{0, 0, 0}}), 0.6 / std::sqrt(3.0) + 0.4 / 24 * std::exp(-0.5 * (100 / 4.0 + 400 / 9.0 + 900 / 16.0)));
}

TEST_F(ColorModelTest, RegularisationOfSingularCovariances) {
  KORUSEColorModel m;
  setComponent(m, 1, 1.0, {{5, 5, 5}}, {0, 0, 0});
  m.m_normFactors[1] = 7.0;
  m.setDeterminant();
  EXPECT_EQ(m.m_determinants[1], 0.0);
  EXPECT_EQ(m.m_normFactors[1], 7.0);  // a zero determinant leaves it alone
  m.setInverseCovariance();
  // One step of 0.1 on the diagonal: det 0.001 > epsilon, inverse diag(10).
  for (int c = 0; c < 3; ++c) EXPECT_DOUBLE_EQ(m.m_covariances[1][4 * c], 0.1);
  EXPECT_DOUBLE_EQ(m.m_determinants[1], 0.001);
  for (int e = 0; e < 9; ++e) EXPECT_NEAR(m.m_inverseCovariances[1][e], e % 4 == 0 ? 10.0 : 0.0, 1e-12);
  EXPECT_DOUBLE_EQ(m.m_normFactors[1], 1 / std::sqrt(0.001));

  // A homogeneous model is loaded with 10 instead: one step, diag(10).
  KORUSEMarker::m_noiseLevel = 10.0;
  setComponent(m, 3, 0.5, {{0, 0, 0}}, {0, 0, 0});
  m.setDeterminant();
  m.setInverseCovariance();
  EXPECT_DOUBLE_EQ(m.m_covariances[3][0], 10.0);
  EXPECT_DOUBLE_EQ(m.m_covariances[1][0], 0.1);  // already regular: untouched

  // A noise level that cannot repair the matrix ends, logged, with density 0.
  LogCapture log;
  KORUSEMarker::m_noiseLevel = 0.0;
  setComponent(m, 0, 0.5, {{0, 0, 0}}, {0, 0, 0});
  m.setDeterminant();
  m.setInverseCovariance();
  EXPECT_EQ(m.gaussianProb(0, {{0, 0, 0}}), 0.0);
  EXPECT_EQ(log.count("Error"), 1u);
}

TEST_F(ColorModelTest, UpdateModelAndAssignCluster) {
  KORUSEColorModel empty;
  EXPECT_EQ(empty.assignCluster({{1, 2, 3}}), 0);  // all densities 0

  KORUSEColorModel tie;  // equal densities at (1, 0, 0): the lower index
  setComponent(tie, 3, 0.5, {{2, 0, 0}}, {1, 1, 1});
  setComponent(tie, 1, 0.5, {{0, 0, 0}}, {1, 1, 1});
  tie.setDeterminant();
  tie.setInverseCovariance();
  EXPECT_EQ(tie.assignCluster({{1, 0, 0}}), 1);
  EXPECT_EQ(tie.assignCluster({{1.5, 0, 0}}), 3);

  KORUSEColorModel m;
  setComponent(m, 0, 0.25, {{0, 0, 0}}, {1, 1, 1});
  setComponent(m, 2, 0.25, {{100, 100, 100}}, {1, 1, 1});
  setComponent(m, 4, 0.5, {{1000, 1000, 1000}}, {1, 1, 1});  // present, receives nothing
  m.m_means[1][0] = 7.5;                                      // absent, but not zero
  m.setDeterminant();
  m.setInverseCovariance();
  KORUSEColorModel before = m;

  // 3 samples near 0 and 7 near 100.
  std::vector<pixelVal> s = {{{1, 0, 0}}, {{0, 1, 0}}, {{0, 0, 1}}};
  for (int i = 0; i < 7; ++i) s.push_back({{100.0 + i % 2, 100, 100}});
  updateModel(s, m);
  EXPECT_DOUBLE_EQ(m.m_weights[0], 0.3);
  EXPECT_DOUBLE_EQ(m.m_weights[2], 0.7);
  // Not renormalised: 0.3 + 0.7 + the old 0.5 of component 4.
  EXPECT_DOUBLE_EQ(m.m_weights[4], 0.5);
  for (int k : {1, 3, 4}) {
    EXPECT_EQ(std::memcmp(m.m_means[k], before.m_means[k], sizeof m.m_means[k]), 0);
    EXPECT_EQ(std::memcmp(m.m_covariances[k], before.m_covariances[k], sizeof m.m_covariances[k]), 0);
  }
  // Component 0: mean 1/3 each; covariance 1/3 - 1/9 = 2/9 on the diagonal,
  // -1/9 off it. Component 2: first value 4 x 100, 3 x 101 -> mean 100 + 3/7,
  // variance 12/49; the other values are constant.
  for (int a = 0; a < 3; ++a) {
    EXPECT_DOUBLE_EQ(m.m_means[0][a], 1.0 / 3);
    for (int b = 0; b < 3; ++b) EXPECT_NEAR(m.m_covariances[0][3 * a + b], a == b ? 2.0 / 9 : -1.0 / 9, 1e-15);
  }
  EXPECT_DOUBLE_EQ(m.m_means[2][0], 100 + 3.0 / 7);
  EXPECT_NEAR(m.m_covariances[2][0], 12.0 / 49, 1e-12);
  EXPECT_EQ(m.m_determinants[2], 0.0);  // refreshed: singular now

  // No samples: parameters kept, determinants refreshed.
  KORUSEColorModel stale = before;
  stale.m_covariances[0][0] = 4;
  updateModel(std::vector<pixelVal>{}, stale);
  EXPECT_DOUBLE_EQ(stale.m_determinants[0], 4.0);
  EXPECT_EQ(stale.m_weights[0], 0.25);
}

TEST_F(ColorModelTest, HomogeneityCriteria) {
  KORUSEColorModel m;
  setComponent(m, 0, 1.0, {{0, 0, 0}}, {5, 1, 1});
  m.setDeterminant();
  EXPECT_TRUE(m.colorModelCriteria());  // no pair at all

  // Two halves 200 apart with determinant 5: distinct colours, wide -> false.
  setComponent(m, 0, 0.5, {{0, 0, 0}}, {5, 1, 1});
  setComponent(m, 1, 0.5, {{200, 0, 0}}, {5, 1, 1});
  m.setDeterminant();
  EXPECT_FALSE(m.colorModelCriteria());
  // Distance exactly 100 is not "within": decided by the determinants.
  m.m_means[1][0] = 100;
  EXPECT_FALSE(m.colorModelCriteria());
  m.m_means[1][0] = 99.99;
  EXPECT_TRUE(m.colorModelCriteria());
  // Far apart again but both heavy components very narrow (det 0.5) -> true.
  m.m_means[1][0] = 200;
  m.m_covariances[0][0] = m.m_covariances[1][0] = 0.5;
  m.setDeterminant();
  EXPECT_TRUE(m.colorModelCriteria());
  // A light far component (weight 0.05) does not count as a colour.
  setComponent(m, 0, 0.95, {{0, 0, 0}}, {5, 1, 1});
  setComponent(m, 1, 0.05, {{200, 0, 0}}, {5, 1, 1});
  m.setDeterminant();
  EXPECT_TRUE(m.colorModelCriteria());
}

TEST_F(ColorModelTest, EMRefinement) {
  KORUSEColorModel m;
  setComponent(m, 0, 0.5, {{2, 0, 0}}, {1, 1, 1});
  setComponent(m, 1, 0.5, {{98, 0, 0}}, {1, 1, 1});
  m.setDeterminant();
  m.setInverseCovariance();
  KORUSEColorModel before = m;
  m.EM({{{0, 0, 0}}, {{1, 0, 0}}, {{2, 0, 0}}, {{3, 0, 0}}}, 5);
  EXPECT_TRUE(sameBits(m, before));  // 4 samples: nothing happens

  // Two groups 100 apart: responsibilities are 0 or 1 up to exp(-1000), so
  // one pass gives each component its group's share, mean and covariance.
  // The sample at 5000 has mixture density 0: it still counts in n.
  std::vector<pixelVal> s = {{{0, 0, 0}}, {{2, 0, 0}}, {{100, 0, 0}}, {{102, 0, 0}},
                             {{98, 0, 0}},  {{5000, 0, 0}}};
  m.EM(s, 1);
  EXPECT_DOUBLE_EQ(m.m_weights[0], 2.0 / 6);
  EXPECT_DOUBLE_EQ(m.m_weights[1], 3.0 / 6);  // sum 5/6 < 1
  EXPECT_DOUBLE_EQ(m.m_means[0][0], 1.0);
  EXPECT_DOUBLE_EQ(m.m_means[1][0], 100.0);
  // Variances (1 + 1) / 2 and (0 + 4 + 4) / 3; the other values have zero
  // spread, so the final regularisation adds 0.1 to the whole diagonal.
  EXPECT_DOUBLE_EQ(m.m_covariances[0][0], 1.0 + 0.1);
  EXPECT_DOUBLE_EQ(m.m_covariances[1][0], 8.0 / 3 + 0.1);
  EXPECT_DOUBLE_EQ(m.m_covariances[1][4], 0.1);
  EXPECT_DOUBLE_EQ(m.m_determinants[1], (8.0 / 3 + 0.1) * 0.1 * 0.1);

  // Two passes in one call keep the inverses and norm factors cached before
  // the call; two calls of one pass refresh them in between, so on
  // overlapping groups the two differ.
  KORUSEColorModel onePass;
  setComponent(onePass, 0, 0.5, {{0, 0, 0}}, {1, 1, 1});
  setComponent(onePass, 1, 0.5, {{3, 0, 0}}, {1, 1, 1});
  onePass.setDeterminant();
  onePass.setInverseCovariance();
  KORUSEColorModel twoPasses = onePass;
  const std::vector<pixelVal> overlap = {{{-4, 0, 0}}, {{0, 0, 0}}, {{1, 0, 0}}, {{2, 0, 0}},
                                         {{3, 0, 0}},  {{9, 0, 0}}};
  onePass.EM(overlap, 1);
  onePass.EM(overlap, 1);
  twoPasses.EM(overlap, 2);
  EXPECT_NE(onePass.m_weights[0], twoPasses.m_weights[0]);

  // 0 iterations: only determinants and inverses are refreshed.
  m.m_covariances[0][0] = 2.0;
  m.EM(s, 0);
  EXPECT_DOUBLE_EQ(m.m_determinants[0], 2.0 * 0.1 * 0.1);
  EXPECT_DOUBLE_EQ(m.m_inverseCovariances[0][0], 0.5);
  EXPECT_DOUBLE_EQ(m.m_weights[0], 2.0 / 6);
}

TEST_F(ColorModelTest, KMeansThreadSplitAndSeeding) {
  // n = 7: quarters of 1 point, the last thread takes [3, 7).
  std::vector<double> values(21, 0.0);
  std::vector<double*> points;
  for (int i = 0; i < 7; ++i) points.push_back(&values[3 * i]);
  const double centres[15] = {0};
  const int expectBegin[4] = {0, 1, 2, 3}, expectEnd[4] = {1, 2, 3, 7};
  for (int t = 0; t < kKMeansThreads; ++t) {
    std::vector<int> labels(7, -1);
    KMeansWork w{points.data(), labels.data(), 7, t, centres, {}, {}, 0.0};
    findMinDistance(&w);
    for (int i = 0; i < 7; ++i)
      EXPECT_EQ(labels[i], i >= expectBegin[t] && i < expectEnd[t] ? 0 : -1) << t << " " << i;
    EXPECT_EQ(w.counts[0], expectEnd[t] - expectBegin[t]);  // ties: all to cluster 0
  }

  // Two distinct points: the second seed is always the other point (the
  // chosen one has distance 0 and cannot be drawn).
  values[3] = 50;
  int two[2];
  chooseCentersKMeanspp(points.data(), 2, 2, two);
  EXPECT_EQ(two[0] + two[1], 1);
  // Against a reference draw written here: seed with n, then with the
  // running distance sum, walk the distances (20 points on one axis, so all
  // sums are exact integers).
  const int n = 20;
  std::vector<double> axis(3 * n, 0.0);
  std::vector<double*> axisPoints;
  for (int i = 0; i < n; ++i) {
    axis[3 * i] = (7 * i) % n;
    axisPoints.push_back(&axis[3 * i]);
  }
  auto sq = [&](int i, int j) { return (axis[3 * i] - axis[3 * j]) * (axis[3 * i] - axis[3 * j]); };
  std::srand(n);
  std::vector<int> ref = {static_cast<int>(n * (std::rand() / 2147483648.0))};
  std::vector<double> d(n);
  for (int i = 0; i < n; ++i) d[i] = sq(i, ref[0]);
  while (ref.size() < 5) {
    double sum = 0;
    for (double e : d) sum += e;
    std::srand(static_cast<unsigned>(sum));
    double target = sum * (std::rand() / 2147483648.0);
    int i = 0;
    while (i < n - 1 && target > d[i]) target -= d[i++];
    ref.push_back(i);
    for (int j = 0; j < n; ++j) d[j] = std::min(d[j], sq(j, i));
  }
  int seeds[5];
  chooseCentersKMeanspp(axisPoints.data(), n, 5, seeds);
  EXPECT_EQ(std::vector<int>(seeds, seeds + 5), ref);

  // Identical points: every later seed is point 0.
  values[3] = 0;
  int chosen[5];
  chooseCentersKMeanspp(points.data(), 7, 5, chosen);
  for (int k = 1; k < 5; ++k) EXPECT_EQ(chosen[k], 0);
}

TEST_F(ColorModelTest, KMeansInitialisersFindFiveBlobs) {
  const std::vector<int> sizes = {100, 200, 300, 150, 250};
  const Blobs b = makeBlobs(
      {{{20, 20, 20}}, {{230, 20, 20}}, {{20, 230, 20}}, {{20, 20, 230}}, {{230, 230, 230}}}, sizes);
  KORUSEColorModel own;
  initModelWithKmeansKORU(b.samples, own);
  expectBlobModel(own, b, sizes);

  // Same samples, scrambled rand() state: the same model, bit for bit.
  std::srand(99);
  std::rand();
  KORUSEColorModel again;
  initModel(b.samples, again, 10);
  EXPECT_TRUE(sameBits(own, again));

  KORUSEColorModel viaOpenCV;
  initModelWithKmeans(b.samples, viaOpenCV);
  expectBlobModel(viaOpenCV, b, sizes);
}

TEST_F(ColorModelTest, KMeansDegenerateSampleSets) {
  // 4 samples or fewer: the model stays as it was.
  KORUSEColorModel m;
  setComponent(m, 3, 1.0, {{1, 2, 3}}, {1, 1, 1});
  m.setDeterminant();
  KORUSEColorModel before = m;
  initModelWithKmeansKORU(std::vector<pixelVal>(4, {{9, 9, 9}}), m);
  initModelWithKmeansKORU({}, m);
  EXPECT_TRUE(sameBits(m, before));
  {
    LogCapture log;  // OpenCV's k-means refuses fewer samples than clusters
    initModelWithKmeans(std::vector<pixelVal>(3, {{9, 9, 9}}), m);
    EXPECT_TRUE(sameBits(m, before));
    EXPECT_EQ(log.count("Error"), 1u);
  }

  // 8 identical samples: all distances 0, so every point goes to cluster 0
  // (lowest index on ties) and all later seeds are point 0. Clusters 1..4
  // stay empty and each forces its seed, point 0, back in: the last forcing
  // (cluster 4) stands. So component 0 holds 7 samples, component 4 one,
  // both at the sample with zero covariance, and the mixture is exactly one
  // regularised component of weight 1.
  KORUSEColorModel fresh;
  initModelWithKmeansKORU(std::vector<pixelVal>(8, {{40, 50, 60}}), fresh);
  EXPECT_DOUBLE_EQ(fresh.m_weights[0], 7.0 / 8);
  EXPECT_DOUBLE_EQ(fresh.m_weights[4], 1.0 / 8);
  for (int k : {1, 2, 3}) EXPECT_EQ(fresh.m_weights[k], 0.0);
  for (int k : {0, 4}) {
    EXPECT_EQ(fresh.m_means[k][0], 40.0);
    EXPECT_EQ(fresh.m_means[k][2], 60.0);
    for (int e = 0; e < 9; ++e) EXPECT_EQ(fresh.m_covariances[k][e], 0.0);
  }
  fresh.setInverseCovariance();
  EXPECT_DOUBLE_EQ(fresh.GMMProb({{40, 50, 60}}), 1 / std::sqrt(0.001));
}

TEST_F(ColorModelTest, ExtractTrainingData) {
  // 3 x 2 crop at (2, 1) of a 6 x 4 frame. Pixel (x, y) has channels
  // (10y + x, 100 + x, 200 + y); labels by position below.
  IplImage* img = cvCreateImage(cvSize(3, 2), IPL_DEPTH_8U, 3);
  IplImage* lab = cvCreateImage(cvSize(3, 2), IPL_DEPTH_8U, 1);
  const unsigned char labels[6] = {4, 1, 0, 5, 255, 1};  // object: one pixel; background: two
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) {
      unsigned char* p = reinterpret_cast<unsigned char*>(img->imageData + y * img->widthStep) + 3 * x;
      p[0] = 10 * y + x, p[1] = 100 + x, p[2] = 200 + y;
      lab->imageData[y * lab->widthStep + x] = labels[3 * y + x];
    }
  std::vector<pixelVal> first(9, {{1, 1, 1}}), second;
  KORUSEMarker::m_isGreyScale = false;
  extractTrainingData(img, lab, first, second);
  ASSERT_EQ(first.size(), 5u);
  ASSERT_EQ(second.size(), 5u);
  EXPECT_EQ(first[0].v[2], 200.0);
  EXPECT_EQ(first[1].v[0], 10.0);  // filler (10, 20, 30)
  EXPECT_EQ(first[4].v[2], 30.0);
  EXPECT_EQ(second[0].v[0], 1.0);    // (1, 0): channels (1, 101, 200)
  EXPECT_EQ(second[1].v[0], 12.0);   // (2, 1): channels (12, 102, 201)
  EXPECT_EQ(second[1].v[2], 201.0);
  EXPECT_EQ(second[2].v[1], 20.0);   // filler

  // Grey-scale: channel 0, then both texture planes at the shifted place.
  IplImage* hor = cvCreateImage(cvSize(6, 4), IPL_DEPTH_8U, 1);
  IplImage* ver = cvCreateImage(cvSize(6, 4), IPL_DEPTH_8U, 1);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 6; ++x) {
      hor->imageData[y * hor->widthStep + x] = static_cast<char>(10 * y + x);
      ver->imageData[y * ver->widthStep + x] = static_cast<char>(100 + 10 * y + x);
    }
  KORUSEMarker::m_texHor = hor;
  KORUSEMarker::m_texVer = ver;
  KORUSEMarker::m_xMinBBox = 2;
  KORUSEMarker::m_yMinBBox = 1;
  KORUSEMarker::m_isGreyScale = true;
  extractTrainingData(img, lab, first, second);
  EXPECT_EQ(first[0].v[0], 0.0);
  EXPECT_EQ(first[0].v[1], 12.0);   // frame (2, 1)
  EXPECT_EQ(first[0].v[2], 112.0);
  EXPECT_EQ(second[1].v[1], 24.0);  // crop (2, 1) -> frame (4, 2)
  EXPECT_EQ(second[1].v[2], 124.0);

  // No label image: fillers only.
  KORUSEMarker::m_isGreyScale = false;
  extractTrainingData(img, nullptr, first, second);
  EXPECT_EQ(first.size(), 5u);
  EXPECT_EQ(second[0].v[0], 10.0);

  KORUSEMarker::m_texHor = KORUSEMarker::m_texVer = nullptr;
  KORUSEMarker::m_xMinBBox = KORUSEMarker::m_yMinBBox = 0;
  for (IplImage* i : {img, lab, hor, ver}) cvReleaseImage(&i);
}

TEST_F(ColorModelTest, VarianceSplitsAndOrder) {
  std::vector<vec4> v = {{{0, 0, 0, 0.5}}, {{0, 0, 0, 0.1}}, {{0, 0, 0, 0.3}}};
  std::sort(v.begin(), v.end(), order);
  EXPECT_EQ(v[0].v[3], 0.1);
  EXPECT_EQ(v[2].v[3], 0.5);

  // Equal variance on every value: split on value 0 at its mean 1.
  std::vector<pixelVal> low, high;
  g_maxVarDir = 2;
  varPartition({{{0, 0, 0}}, {{2, 2, 2}}}, low, high);
  EXPECT_EQ(g_maxVarDir, 0);
  EXPECT_EQ(low.size(), 1u);
  EXPECT_EQ(high[0].v[0], 2.0);

  // Values 0, 1, 2, 3, 10 on the first axis. Splits by hand: mean 3.2 ->
  // {0,1,2,3} {10}; SSE/n 1.25 vs 0 -> {0,1} {2,3}; then {0,1} (first of
  // two at 0.25) -> {0} {1}; then {2,3} -> {2} {3}. List: 10, 0, 1, 2, 3.
  std::vector<pixelVal> s;
  for (double x : {0, 1, 2, 3, 10}) s.push_back({{x, 7, 7}});
  double c[5][3];
  double* centres[5] = {c[0], c[1], c[2], c[3], c[4]};
  varParInit(s, centres);
  const double expected[5] = {10, 0, 1, 2, 3};
  for (int k = 0; k < 5; ++k) {
    EXPECT_EQ(c[k][0], expected[k]);
    EXPECT_EQ(c[k][1], 7.0);
  }
  // Deviations from the mean 3.2: 3.2, 2.2, 1.2, 0.2, 6.8; squares add to 62.8.
  EXPECT_DOUBLE_EQ(findSSE(s), 62.8);
}

TEST_F(ColorModelTest, ThirdInitialisationKeepsAThirdOfEachEnd) {
  // 10 x 10: left half background (label 1), right half unlabelled. 50
  // unlabelled pixels -> the 16 least and the 16 most background-like are
  // kept; B grows from 50 to 66 samples, A is the 16 least like B.
  IplImage* img = cvCreateImage(cvSize(10, 10), IPL_DEPTH_8U, 3);
  IplImage* lab = cvCreateImage(cvSize(10, 10), IPL_DEPTH_8U, 1);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 10; ++x) {
      unsigned char* p = reinterpret_cast<unsigned char*>(img->imageData + y * img->widthStep) + 3 * x;
      const bool green = x >= 5 && y >= 5;
      p[0] = green ? 20 : 200 + (x + y) % 5, p[1] = green ? 220 + x % 3 : 50 + y % 4, p[2] = 40 + (x * y) % 7;
      lab->imageData[y * lab->widthStep + x] = x < 5 ? MARK_BACKGROUND : MARK_NONE;
    }
  KORUSEColorModel a, b;
  initThirdInitalization(img, lab, a, b);
  double sumA = 0, sumB = 0;
  for (int k = 0; k < kNumComponents; ++k) {
    sumA += a.m_weights[k];
    sumB += b.m_weights[k];
    EXPECT_NEAR(a.m_weights[k] * 16, std::round(a.m_weights[k] * 16), 1e-9);
    EXPECT_NEAR(b.m_weights[k] * 66, std::round(b.m_weights[k] * 66), 1e-9);
  }
  EXPECT_DOUBLE_EQ(sumA, 1.0);
  EXPECT_DOUBLE_EQ(sumB, 1.0);
  for (IplImage* i : {img, lab}) cvReleaseImage(&i);
}
