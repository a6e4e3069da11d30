#include <gtest/gtest.h>

#include <dlfcn.h>
#include <opencv2/core/core_c.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numeric>
#include <random>
#include <set>
#include <vector>

#include "colormodel/ClusterInfo.h"
#include "colormodel/ComponentDensity.h"
#include "colormodel/KMeans.h"
#include "colormodel/KMeansInit.h"
#include "colormodel/KORUSEColorModel.h"
#include "colormodel/ModelUpdate.h"
#include "colormodel/PackedSample.h"
#include "colormodel/TrainingData.h"
#include "colormodel/VarPartition.h"
#include "interface/session/KORUSEMarker.h"
#include "support/Marks.h"
#include "testing/LogCapture.h"

namespace {

// The noise level the segmentation uses, set for every test of this file.
class ColorModelTest : public ::testing::Test {
 protected:
  void SetUp() override { KORUSEMarker::m_noiseLevel = 0.1; }
};

void setComponent(KORUSEColorModel& m, int k, double w, pixelVal mean, std::vector<double> diag) {
  m.m_weights[k] = w;
  std::copy(mean.v, mean.v + 3, m.m_means[k]);
  std::fill(m.m_covariances[k], m.m_covariances[k] + 9, 0.0);
  for (int c = 0; c < 3; ++c) m.m_covariances[k][4 * c] = diag[c];
}

void refresh(KORUSEColorModel& m) {
  m.setDeterminant();
  m.setInverseCovariance();
}

// The values of a sample set in order, then `fillers` filler samples.
std::vector<double> flat(const std::vector<pixelVal>& s, int fillers = 0) {
  std::vector<double> f;
  for (const pixelVal& p : s) f.insert(f.end(), p.v, p.v + 3);
  while (fillers-- > 0) f.insert(f.end(), {10, 20, 30});
  return f;
}

// A w x h 8-bit image whose channel c at (x, y) is value(x, y, c).
IplImage* makeImage(int w, int h, int channels, const std::function<int(int, int, int)>& value) {
  IplImage* img = cvCreateImage(cvSize(w, h), IPL_DEPTH_8U, channels);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w * channels; ++x)
      img->imageData[y * img->widthStep + x] = static_cast<char>(value(x / channels, y, x % channels));
  return img;
}

}  // namespace

TEST_F(ColorModelTest, DensitiesWorkedByHand) {
  KORUSEColorModel m;
  EXPECT_EQ(m.GMMProb({{10, 20, 30}}), 0.0);  // fresh model: all absent

  // diag(4, 9, 16): det 576, so the density at the mean is 1/24.
  setComponent(m, 2, 0.4, {{10, 20, 30}}, {4, 9, 16});
  refresh(m);
  EXPECT_DOUBLE_EQ(m.GMMProb({{10, 20, 30}}), 0.4 / 24);
  // Offset (2, 3, 4) is one standard deviation per value: q = 3.
  EXPECT_DOUBLE_EQ(m.gaussianProb(2, {{12, 23, 34}}), std::exp(-1.5) / 24);
  // First value only: variance 4, offset 2 -> exp(-0.5)/2.
  EXPECT_DOUBLE_EQ(m.gaussianProbGreyScale(2, {{12, 0, 0}}), std::exp(-0.5) / 2);
  EXPECT_TRUE(std::isnan(m.GMMProbGreyScale({{12, 0, 0}})));  // absent components have variance 0

  // [[2,1,0],[1,2,0],[0,0,1]]: det 3, inverse [[2,-1,0],[-1,2,0],[0,0,3]] / 3.
  m.m_weights[4] = 0.6;
  const double cov[9] = {2, 1, 0, 1, 2, 0, 0, 0, 1}, inv[9] = {2, -1, 0, -1, 2, 0, 0, 0, 3};
  std::copy(cov, cov + 9, m.m_covariances[4]);
  refresh(m);
  for (int e = 0; e < 9; ++e) EXPECT_NEAR(m.m_inverseCovariances[4][e], inv[e] / 3, 1e-15);
  EXPECT_DOUBLE_EQ(m.GMMProb({{0, 0, 0}}),
                   0.6 / std::sqrt(3.0) + 0.4 / 24 * std::exp(-0.5 * (100 / 4.0 + 400 / 9.0 + 900 / 16.0)));
}

TEST_F(ColorModelTest, RegularisationOfSingularCovariances) {
  KORUSEColorModel m;
  setComponent(m, 1, 1.0, {{5, 5, 5}}, {0, 0, 0});
  m.m_normFactors[1] = 7.0;
  m.setDeterminant();
  EXPECT_TRUE(m.m_determinants[1] == 0.0 && m.m_normFactors[1] == 7.0);  // left alone at det 0
  m.setInverseCovariance();
  // One step of 0.1 on the diagonal: det 0.001 > epsilon, inverse diag(10).
  EXPECT_EQ(m.m_covariances[1][8], 0.1);  // the loading stays
  for (int e = 0; e < 9; ++e) EXPECT_NEAR(m.m_inverseCovariances[1][e], e % 4 == 0 ? 10.0 : 0.0, 1e-12);
  // The noise level is read at the call: 0 cannot lift a determinant of
  // 1e-18, which ends, logged, with density 0.
  LogCapture log;
  KORUSEMarker::m_noiseLevel = 0.0;
  setComponent(m, 0, 0.5, {{0, 0, 0}}, {1e-6, 1e-6, 1e-6});
  refresh(m);
  EXPECT_EQ(m.gaussianProb(0, {{0, 0, 0}}), 0.0);
  EXPECT_EQ(log.count("Error"), 1u);
}

TEST_F(ColorModelTest, UpdateModelAndAssignCluster) {
  KORUSEColorModel tie;
  EXPECT_EQ(tie.assignCluster({{1, 2, 3}}), 0);  // all densities 0
  // Equal densities at (1, 0, 0): the lower index, whatever the weights.
  setComponent(tie, 3, 0.9, {{2, 0, 0}}, {1, 1, 1});
  setComponent(tie, 1, 0.1, {{0, 0, 0}}, {1, 1, 1});
  refresh(tie);
  EXPECT_EQ(tie.assignCluster({{1, 0, 0}}), 1);

  KORUSEColorModel m;
  setComponent(m, 0, 0.25, {{0, 0, 0}}, {1, 1, 1});
  setComponent(m, 2, 0.25, {{100, 100, 100}}, {1, 1, 1});
  setComponent(m, 4, 0.5, {{1000, 1000, 1000}}, {1, 1, 1});  // present, receives nothing
  m.m_means[1][0] = 7.5;                                      // absent, but not zero
  refresh(m);
  // 3 samples near 0 and 7 near 100.
  std::vector<pixelVal> s = {{{1, 0, 0}}, {{0, 1, 0}}, {{0, 0, 1}}};
  for (int i = 0; i < 7; ++i) s.push_back({{100.0 + i % 2, 100, 100}});
  updateModel(s, m);
  EXPECT_DOUBLE_EQ(m.m_weights[0], 0.3);
  EXPECT_DOUBLE_EQ(m.m_weights[2], 0.7);
  // Components without samples are kept; weights not renormalised.
  EXPECT_TRUE(m.m_weights[4] == 0.5 && m.m_means[4][0] == 1000 && m.m_means[1][0] == 7.5);
  // Component 0: mean 1/3 each; covariance 1/3 - 1/9 = 2/9 on the diagonal,
  // -1/9 off it. Component 2: first value 4 x 100, 3 x 101 -> mean 100 + 3/7,
  // variance 12/49; the other values are constant. (About a wrong mean the
  // covariances would differ, so they check the means too.)
  for (int a = 0; a < 3; ++a)
    for (int b = 0; b < 3; ++b) EXPECT_NEAR(m.m_covariances[0][3 * a + b], a == b ? 2.0 / 9 : -1.0 / 9, 1e-15);
  EXPECT_NEAR(m.m_covariances[2][0], 12.0 / 49, 1e-12);
  EXPECT_EQ(m.m_determinants[2], 0.0);  // refreshed: singular now
  // No samples: determinants refreshed all the same.
  m.m_covariances[2][4] = m.m_covariances[2][8] = 1;
  updateModel(std::vector<pixelVal>{}, m);
  EXPECT_NEAR(m.m_determinants[2], 12.0 / 49, 1e-12);
}

// The one-pass density and assignment, components side by side, must be
// GMMProb and assignCluster bit for bit: seeded models with absent and identical components (ties),
// samples near and far (all densities 0).
TEST_F(ColorModelTest, DensityAndNearestEqualGMMProbAndAssignCluster) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> value(0.0, 255.0), spread(2.0, 900.0);
  for (int trial = 0; trial < 50; ++trial) {
    KORUSEColorModel m;
    for (int k = 0; k < kNumComponents; ++k) {
      if (k == trial % 5) continue;  // absent
      setComponent(m, k, 0.1 + 0.05 * k, {{value(rng), value(rng), value(rng)}}, {spread(rng), spread(rng), spread(rng)});
      double* c = m.m_covariances[k];  // correlated values: every inverse entry counts
      c[1] = c[3] = 0.3 * std::min(c[0], c[4]);
      c[2] = c[6] = -0.2 * std::min(c[0], c[8]);
      c[5] = c[7] = 0.25 * std::min(c[4], c[8]);
    }
    if (trial % 7 == 0) {  // two identical components: ties
      const int a = (trial + 1) % 5, b = (trial + 3) % 5;
      std::copy_n(m.m_means[a], 3, m.m_means[b]);
      std::copy_n(m.m_covariances[a], 9, m.m_covariances[b]);
      m.m_weights[b] = 0.5;
    }
    refresh(m);
    const PackedComponents packed(m);
    for (int i = 0; i < 200; ++i) {
      const pixelVal x = {{value(rng) * (i % 10 ? 1 : 40), value(rng), value(rng)}};
      const double plain = m.GMMProb(x);
      int nearest = -1;
      const double density = densityAndNearest(packed, x, &nearest);
      ASSERT_EQ(std::memcmp(&density, &plain, sizeof density), 0) << trial << " " << i;
      ASSERT_EQ(nearest, m.assignCluster(x)) << trial << " " << i;
    }
  }
}

// The statistics, from whole vectors or sample by sample, against the plain
// nine products per sample, in sample order, on seeded fractional samples.
TEST_F(ColorModelTest, ClusterSumsEqualThePlainOnes) {
  std::mt19937 rng(8);
  std::uniform_real_distribution<double> value(-50.0, 300.0);
  std::vector<pixelVal> samples(997);
  std::vector<int> labels(samples.size());
  for (size_t i = 0; i < samples.size(); ++i) {
    for (double& v : samples[i].v) v = value(rng);
    labels[i] = rng() % kNumComponents;
  }
  double sums[3][kNumComponents] = {}, products[9][kNumComponents] = {};
  int counts[kNumComponents] = {};
  for (size_t i = 0; i < samples.size(); ++i) {
    const int k = labels[i];
    ++counts[k];
    for (int a = 0; a < 3; ++a) {
      sums[a][k] += samples[i].v[a];
      for (int b = 0; b < 3; ++b) products[3 * a + b][k] += samples[i].v[a] * samples[i].v[b];
    }
  }
  const ClusterInfo byValue(labels, samples), inPlace(labels.data(), samples.data(), samples.size());
  ClusterInfo oneByOne;
  for (size_t i = 0; i < samples.size(); ++i) oneByOne.add(labels[i], samples[i]);
  oneByOne.complete();
  for (const ClusterInfo* info : std::vector<const ClusterInfo*>{&byValue, &inPlace, &oneByOne}) {
    EXPECT_EQ(std::memcmp(info->m_counts, counts, sizeof counts), 0);
    EXPECT_EQ(std::memcmp(info->m_sums, sums, sizeof sums), 0);
    EXPECT_EQ(std::memcmp(info->m_productSums, products, sizeof products), 0);
  }
}

TEST_F(ColorModelTest, HomogeneityCriteria) {
  // Two components apart on the first value only; the other variances are
  // 1, so each determinant is the first variance.
  const double cases[][6] = {
      // weight 0, variance 0, weight 1, distance, variance 1, homogeneous
      {1.0, 5, 0.0, 200, 5, 1},      // one colour only: no pair
      {0.5, 5, 0.5, 200, 5, 0},      // distinct colours, both wide
      {0.5, 5, 0.5, 100, 5, 0},      // distance exactly 100 is not "within"
      {0.5, 5, 0.5, 99.99, 5, 1},
      {0.5, 0.5, 0.5, 200, 0.5, 1},  // far apart, but both heavy ones narrow
      {0.5, 0.5, 0.5, 200, 5, 0},    // one heavy wide one is enough
      {0.95, 5, 0.05, 200, 5, 1},    // weight 0.05 does not count as a colour
  };
  for (const auto& [w0, var0, w1, distance, var1, homogeneous] : cases) {
    KORUSEColorModel m;
    setComponent(m, 0, w0, {{0, 0, 0}}, {var0, 1, 1});
    setComponent(m, 1, w1, {{distance, 0, 0}}, {var1, 1, 1});
    m.setDeterminant();
    EXPECT_EQ(m.colorModelCriteria(), homogeneous == 1) << w1 << " " << distance << " " << var0;
  }
}

TEST_F(ColorModelTest, EMRefinement) {
  KORUSEColorModel m;
  setComponent(m, 0, 0.5, {{2, 0, 0}}, {1, 1, 1});
  setComponent(m, 1, 0.5, {{98, 0, 0}}, {1, 1, 1});
  refresh(m);
  // Two groups 100 apart: responsibilities are 0 or 1 up to exp(-1000), so
  // one pass gives each component its group's share, mean and covariance.
  // The sample at 5000 has mixture density 0: it still counts in n.
  m.EM({{{0, 0, 0}}, {{2, 0, 0}}, {{100, 0, 0}}, {{102, 0, 0}}, {{98, 0, 0}}, {{5000, 0, 0}}}, 1);
  EXPECT_DOUBLE_EQ(m.m_weights[0], 2.0 / 6);
  EXPECT_DOUBLE_EQ(m.m_weights[1], 3.0 / 6);  // sum 5/6 < 1
  // Variances about the means 1 and 100: 2/2 and 8/3. The other values have
  // zero spread, so the final regularisation adds 0.1 to the whole diagonal.
  EXPECT_DOUBLE_EQ(m.m_covariances[0][0], 1.0 + 0.1);
  EXPECT_DOUBLE_EQ(m.m_determinants[1], (8.0 / 3 + 0.1) * 0.1 * 0.1);

  // One call of two passes keeps the caches of before the call; two calls
  // of one pass refresh them in between: on overlapping groups they differ.
  setComponent(m, 0, 0.5, {{0, 0, 0}}, {1, 1, 1});
  setComponent(m, 1, 0.5, {{3, 0, 0}}, {1, 1, 1});
  refresh(m);
  KORUSEColorModel twoPasses = m;
  const std::vector<pixelVal> overlap = {{{-4, 0, 0}}, {{0, 0, 0}}, {{1, 0, 0}},
                                         {{2, 0, 0}},  {{3, 0, 0}}, {{9, 0, 0}}};
  for (int call = 0; call < 2; ++call) m.EM(overlap, 1);
  twoPasses.EM(overlap, 2);
  EXPECT_NE(m.m_weights[0], twoPasses.m_weights[0]);
}

TEST_F(ColorModelTest, KMeansThreadSplitAndSeeding) {
  std::vector<double> values(60, 0.0);
  std::vector<double*> points;
  for (int i = 0; i < 20; ++i) points.push_back(&values[3 * i]);
  // n = 7: threads 0..2 take one point each, the last the other four. The
  // points coincide, so ties send each to cluster 0.
  const double centres[15] = {0};
  std::vector<int> labels(7, -1);
  for (int t = 0; t < kKMeansThreads; ++t) {
    KMeansWork w{points.data(), labels.data(), 7, t, centres, {}, {}, 0.0};
    findMinDistance(&w);
    EXPECT_EQ(w.counts[0], t == 3 ? 4 : 1) << t;
  }

  // k-means++ against a reference draw written here: seed with n, then with
  // the running distance sum, walk the distances. n points on one axis, so
  // all sums are exact integers.
  for (int n : {20, 17, 13}) {
    for (int i = 0; i < n; ++i) values[3 * i] = (7 * i) % n;
    std::srand(n);
    std::vector<int> ref = {static_cast<int>(n * (std::rand() / 2147483648.0))};
    std::vector<double> d(n, INFINITY);
    for (;;) {
      for (int j = 0; j < n; ++j) d[j] = std::min(d[j], std::pow(values[3 * j] - values[3 * ref.back()], 2));
      if (ref.size() == 5) break;
      const double sum = std::accumulate(d.begin(), d.end(), 0.0);
      std::srand(static_cast<unsigned>(sum));
      double target = sum * (std::rand() / 2147483648.0);
      int i = 0;
      while (i < n - 1 && target > d[i]) target -= d[i++];
      ref.push_back(i);
    }
    std::vector<int> seeds(5);
    chooseCentersKMeanspp(points.data(), n, 5, seeds.data());
    EXPECT_EQ(seeds, ref) << n;
  }
}

// Distance passes while counting: k_means runs one per iteration, its four
// quarters as one job of the library's workers. Counted by standing in for
// runTasks, which the library calls through the symbol table.
static std::atomic<int> g_passes{-1};  // -1: not counting
void runTasks(int count, int threads, const std::function<void(int)>& task) {
  using Run = void (*)(int, int, const std::function<void(int)>&);
  static const Run real = reinterpret_cast<Run>(dlsym(RTLD_NEXT, "_Z8runTasksiiRKSt8functionIFviEE"));
  if (g_passes >= 0 && count == kKMeansThreads) ++g_passes;
  real(count, threads, task);
}

// Iterations of k_means as the driver runs it (tolerance 0, at most 10).
// Identical samples: error 0 against the largest double, then 0 again:
// unchanged, 2 iterations. Five pairs {100j, 100j + 1}, seeded one point per
// pair: errors 5 (each partner 1 from its seed), 2.5 (0.5 from the pair's
// mean), 2.5: 3 iterations. The values 0..99 on one axis: still moving after
// 10 iterations (uncapped it needs more), so it stops at 10.
TEST_F(ColorModelTest, KMeansStopsOnAnUnchangedErrorOrAtTenIterations) {
  const auto iterations = [](const std::function<void()>& run) {
    g_passes = 0;
    run();
    return g_passes.exchange(-1);
  };
  std::vector<pixelVal> same(8, {{40, 50, 60}}), pairs, line;
  for (int i = 0; i < 10; ++i) pairs.push_back({{100.0 * (i / 2) + i % 2, 0, 0}});
  for (int i = 0; i < 100; ++i) line.push_back({{double(i), 0, 0}});
  std::vector<double*> pairPoints, linePoints;
  for (pixelVal& p : pairs) pairPoints.push_back(p.v);
  for (pixelVal& p : line) linePoints.push_back(p.v);
  int seeds[5];
  chooseCentersKMeanspp(pairPoints.data(), 10, 5, seeds);
  std::set<int> seededPairs;
  for (int s : seeds) seededPairs.insert(s / 2);
  ASSERT_EQ(seededPairs.size(), 5u);

  KORUSEColorModel m;
  EXPECT_EQ(iterations([&] { initModelWithKmeansKORU(same, m); }), 2);
  EXPECT_EQ(iterations([&] { initModelWithKmeansKORU(pairs, m); }), 3);
  EXPECT_EQ(iterations([&] { initModelWithKmeansKORU(line, m); }), 10);
  std::vector<int> labels(100);
  EXPECT_GT(iterations([&] { k_means(linePoints.data(), labels.data(), 100, 0.0, 100, nullptr); }), 10);
}

// The distance pass as first written: the record's accumulators updated
// point by point, each distance summed channel by channel from 0.
void plainMinDistance(KMeansWork& w) {
  const int quarter = w.n / kKMeansThreads, begin = w.thread * quarter;
  const int end = w.thread == kKMeansThreads - 1 ? w.n : begin + quarter;
  for (int i = begin; i < end; ++i) {
    double best = DBL_MAX;
    int cluster = 0;
    for (int k = 0; k < kNumComponents; ++k) {
      double d = 0.0;
      for (int c = 0; c < 3; ++c) d += (w.points[i][c] - w.centres[3 * k + c]) * (w.points[i][c] - w.centres[3 * k + c]);
      if (d < best) best = d, cluster = k;
    }
    w.labels[i] = cluster;
    for (int c = 0; c < 3; ++c) w.sums[cluster][c] += w.points[i][c];
    w.counts[cluster] += 1.0;
    w.error += best;
  }
}

TEST_F(ColorModelTest, DistancePassEqualsThePlainOne) {
  // Seeded points and centres with fractions, a few points per thread so
  // that a distance differing in its last bit still shows in the error; one
  // exact tie of centres (1 and 3) and repeated points.
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> value(0.0, 255.0);
  int tiesToOne = 0;
  for (int trial = 0; trial < 300; ++trial) {
    const int n = 4 + trial % 9;
    std::vector<double> values(3 * n);
    for (double& v : values) v = value(rng);
    std::copy_n(&values[0], 3, &values[3 * (n - 1)]);
    std::vector<double*> points;
    for (int i = 0; i < n; ++i) points.push_back(&values[3 * i]);
    double centres[15];
    for (double& c : centres) c = value(rng);
    std::copy_n(centres + 3, 3, centres + 9);
    std::vector<int> fast(n, -1), plain(n, -1);
    for (int t = 0; t < kKMeansThreads; ++t) {
      KMeansWork a{points.data(), fast.data(), n, t, centres, {}, {}, 0.0};
      KMeansWork b{points.data(), plain.data(), n, t, centres, {}, {}, 0.0};
      findMinDistance(&a);
      plainMinDistance(b);
      ASSERT_EQ(std::memcmp(a.sums, b.sums, sizeof a.sums), 0) << trial << " " << t;
      ASSERT_EQ(std::memcmp(a.counts, b.counts, sizeof a.counts), 0) << trial << " " << t;
      ASSERT_EQ(std::memcmp(&a.error, &b.error, sizeof a.error), 0) << trial << " " << t;
    }
    ASSERT_EQ(fast, plain) << trial;
    tiesToOne += std::count(plain.begin(), plain.end(), 1);
    EXPECT_EQ(std::count(plain.begin(), plain.end(), 3), 0);  // the tie goes to 1
  }
  EXPECT_GT(tiesToOne, 0);
}

// The packed initialiser against initModelWithKmeansKORU on the pixelVals
// the samples unpack to: the same model bit for bit, for sets of every
// thread split (5, 6, 7 and more samples) and seeded colours with repeats;
// the clusterings themselves against k_means.
TEST_F(ColorModelTest, PackedSamplesGiveTheSameModel) {
  std::mt19937 rng(17);
  for (int n : {5, 6, 7, 8, 97, 4000}) {
    std::vector<uint32_t> packed(n);
    std::vector<pixelVal> samples(n);
    for (int i = 0; i < n; ++i) {
      packed[i] = i % 5 == 4 ? packed[i / 2] : packSample(uint8_t(rng()), uint8_t(rng()), uint8_t(rng()));
      samples[i] = unpackSample(packed[i]);
    }
    std::vector<double*> points;
    for (pixelVal& p : samples) points.push_back(p.v);
    std::vector<int> labels(n), packedLabels(n);
    k_means(points.data(), labels.data(), n, 0.0, 10, nullptr);
    kMeansPacked(packed.data(), packedLabels.data(), n, 0.0, 10);
    EXPECT_EQ(labels, packedLabels) << n;
    KORUSEColorModel plain, fromPacked;
    initModelWithKmeansKORU(samples, plain);
    initModelWithKmeansPacked(packed.data(), n, fromPacked);
    EXPECT_EQ(std::memcmp(&plain, &fromPacked, sizeof plain), 0) << n;
    EXPECT_GT(plain.m_weights[0], 0.0) << n;  // a model was made
  }
}

TEST_F(ColorModelTest, KMeansInitialisersFindFiveBlobs) {
  // Five blobs around well separated centres. Sizes are multiples of 7 and
  // each value steps evenly through the offsets -3..3, so a blob's mean is
  // its centre and its variance per value is exactly 4.
  const double centres[5][3] = {{20, 20, 20}, {230, 20, 20}, {20, 230, 20}, {20, 20, 230}, {230, 230, 230}};
  const int sizes[5] = {98, 196, 294, 147, 245};
  std::vector<pixelVal> samples;
  for (int j = 0; j < 5; ++j)
    for (int i = 0; i < sizes[j]; ++i)
      samples.push_back({{centres[j][0] + (2 * i) % 7 - 3, centres[j][1] + (3 * i + 1) % 7 - 3,
                          centres[j][2] + (5 * i + 4) % 7 - 3}});
  // Each blob is matched by one component with its share, mean and variance
  // (integer sums over counts: the means are exact).
  auto expectBlobModel = [&](const KORUSEColorModel& m) {
    for (int j = 0; j < 5; ++j) {
      int k = 0;
      while (k < kNumComponents && !std::equal(centres[j], centres[j] + 3, m.m_means[k])) ++k;
      ASSERT_LT(k, kNumComponents) << "blob " << j;
      EXPECT_DOUBLE_EQ(m.m_weights[k], sizes[j] / 980.0);
      for (int c = 0; c < 3; ++c) EXPECT_DOUBLE_EQ(m.m_covariances[k][4 * c], 4.0);
    }
  };
  KORUSEColorModel own, again, viaOpenCV;
  initModelWithKmeansKORU(samples, own);
  expectBlobModel(own);
  // Same samples, scrambled rand() state: the same model, bit for bit.
  std::srand(99);
  std::rand();
  initModel(samples, again, 10);
  EXPECT_EQ(std::memcmp(&own, &again, sizeof own), 0);
  initModelWithKmeans(samples, viaOpenCV);
  expectBlobModel(viaOpenCV);
}

TEST_F(ColorModelTest, DegenerateSampleSets) {
  // 4 samples leave the model as it was, in EM and both initialisers;
  // OpenCV's k-means refuses fewer samples than clusters, logged.
  KORUSEColorModel m;
  setComponent(m, 3, 1.0, {{1, 2, 3}}, {1, 1, 1});
  refresh(m);
  const KORUSEColorModel before = m;
  const std::vector<pixelVal> four = {{{0, 0, 0}}, {{1, 0, 0}}, {{2, 0, 0}}, {{3, 0, 0}}};
  LogCapture log;
  m.EM(four, 5);
  initModelWithKmeansKORU(four, m);
  initModelWithKmeans(four, m);
  EXPECT_EQ(std::memcmp(&m, &before, sizeof m), 0);
  EXPECT_EQ(log.count("Error"), 1u);

  // 8 identical samples: all distances 0, so every point goes to cluster 0
  // (lowest index on ties) and all later seeds are point 0. Clusters 1..4
  // stay empty and each forces its seed, point 0, back in: the last forcing
  // (cluster 4) stands. Components 0 and 4 hold 7 and 1 samples, both at the
  // sample with zero covariance: regularised, one component of weight 1.
  KORUSEColorModel fresh;
  initModelWithKmeansKORU(std::vector<pixelVal>(8, {{40, 50, 60}}), fresh);
  const double weights[kNumComponents] = {7.0 / 8, 0, 0, 0, 1.0 / 8};
  for (int k = 0; k < kNumComponents; ++k) EXPECT_DOUBLE_EQ(fresh.m_weights[k], weights[k]);
  fresh.setInverseCovariance();
  EXPECT_DOUBLE_EQ(fresh.GMMProb({{40, 50, 60}}), 1 / std::sqrt(0.001));
}

TEST_F(ColorModelTest, ExtractTrainingData) {
  // 3 x 2 crop at (2, 1) of a 6 x 4 frame. Pixel (x, y) has channels
  // (10y + x, 100 + x, 200 + y). Object: (0, 0), (0, 1); background: (1, 0),
  // (2, 1); each set is topped up with 3 fillers.
  const int labels[6] = {4, 3, 0, 2, 255, 1};
  IplImage* img =
      makeImage(3, 2, 3, [](int x, int y, int c) { return c == 0 ? 10 * y + x : c == 1 ? 100 + x : 200 + y; });
  IplImage* lab = makeImage(3, 2, 1, [&](int x, int y, int) { return labels[3 * y + x]; });
  std::vector<pixelVal> first(9, {{1, 1, 1}}), second;
  KORUSEMarker::m_isGreyScale = false;
  extractTrainingData(img, lab, first, second);
  EXPECT_EQ(flat(first), flat({{{0, 100, 200}}, {{10, 100, 201}}}, 3));
  EXPECT_EQ(flat(second), flat({{{1, 101, 200}}, {{12, 102, 201}}}, 3));

  // Grey-scale: channel 0, then both full-frame texture planes at the
  // shifted place: crop (x, y) is frame (x + 2, y + 1).
  KORUSEMarker::m_texHor = makeImage(6, 4, 1, [](int x, int y, int) { return 10 * y + x; });
  KORUSEMarker::m_texVer = makeImage(6, 4, 1, [](int x, int y, int) { return 100 + 10 * y + x; });
  KORUSEMarker::m_xMinBBox = 2, KORUSEMarker::m_yMinBBox = 1;
  KORUSEMarker::m_isGreyScale = true;
  extractTrainingData(img, lab, first, second);
  EXPECT_EQ(flat(first), flat({{{0, 12, 112}}, {{10, 22, 122}}}, 3));

  // No label image: fillers only.
  KORUSEMarker::m_isGreyScale = false;
  extractTrainingData(img, nullptr, first, second);
  EXPECT_EQ(flat(second), flat({}, 5));

  for (IplImage* i : {img, lab, KORUSEMarker::m_texHor, KORUSEMarker::m_texVer}) cvReleaseImage(&i);
  KORUSEMarker::m_texHor = KORUSEMarker::m_texVer = nullptr;
  KORUSEMarker::m_xMinBBox = KORUSEMarker::m_yMinBBox = 0;
}

TEST_F(ColorModelTest, VarianceSplitsAndOrder) {
  std::vector<vec4> v = {{{0, 0, 0, 0.5}}, {{0, 0, 0, 0.1}}, {{0, 0, 0, 0.3}}};
  std::sort(v.begin(), v.end(), order);
  EXPECT_TRUE(v[0].v[3] == 0.1 && v[2].v[3] == 0.5);  // ascending by score

  // Equal variance on every value: split on value 0 at its mean 1.
  std::vector<pixelVal> low, high;
  g_maxVarDir = 2;
  varPartition({{{0, 0, 0}}, {{2, 2, 2}}}, low, high);
  EXPECT_EQ(g_maxVarDir, 0);
  EXPECT_TRUE(low.size() == 1 && flat(high) == (std::vector<double>{2, 2, 2}));

  // Values 0, 1, 2, 3, 10 on the first axis. Splits by hand: mean 3.2 ->
  // {0,1,2,3} {10}; SSE/n 1.25 vs 0 -> {0,1} {2,3}; then {0,1} (first of
  // two at 0.25) -> {0} {1}; then {2,3} -> {2} {3}. List: 10, 0, 1, 2, 3.
  std::vector<pixelVal> s;
  for (double x : {0, 1, 2, 3, 10}) s.push_back({{x, 7, 7}});
  double c[5][3];
  double* centres[5] = {c[0], c[1], c[2], c[3], c[4]};
  varParInit(s, centres);
  const double expected[5] = {10, 0, 1, 2, 3};
  for (int k = 0; k < 5; ++k) EXPECT_TRUE(c[k][0] == expected[k] && c[k][1] == 7.0) << k;
  // Deviations from the mean 3.2: 3.2, 2.2, 1.2, 0.2, 6.8; squares add to 62.8.
  EXPECT_DOUBLE_EQ(findSSE(s), 62.8);
}

TEST_F(ColorModelTest, ThirdInitialisationKeepsAThirdOfEachEnd) {
  // 10 x 10: left half background, right half unlabelled. Of the 50
  // unlabelled pixels a third (16) stays A and a third joins B (50 -> 66
  // samples), so the weights are multiples of 1/16 and 1/66.
  IplImage* img = makeImage(10, 10, 3, [](int x, int y, int c) {
    const bool green = x >= 5 && y >= 5;
    if (c == 0) return green ? 20 : 200 + (x + y) % 5;
    return c == 1 ? (green ? 220 + x % 3 : 50 + y % 4) : 40 + (x * y) % 7;
  });
  IplImage* lab = makeImage(10, 10, 1, [](int x, int, int) { return x < 5 ? MARK_BACKGROUND : MARK_NONE; });
  KORUSEColorModel a, b;
  initThirdInitalization(img, lab, a, b);
  for (int k = 0; k < kNumComponents; ++k) {
    EXPECT_NEAR(a.m_weights[k] * 16, std::round(a.m_weights[k] * 16), 1e-9);
    EXPECT_NEAR(b.m_weights[k] * 66, std::round(b.m_weights[k] * 66), 1e-9);
  }
  for (IplImage* i : {img, lab}) cvReleaseImage(&i);
}
