#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <cstring>

#include "engine/KORUSEHybrid.h"
#include "engine/RegionSamples.h"
#include "graph/KORUSEGraph.h"
#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SessionFixture.h"
#include "support/Marks.h"

using EngineWeights = SessionTest;

static Pixels greyLevels(std::initializer_list<int> levels) {
  Pixels p;
  for (int v : levels) p.push_back(0xFF000000u | (v << 16) | (v << 8) | v);
  return p;
}

TEST_F(EngineWeights, ConstantImageGivesUnitWeights) {
  open(5, 4, Pixels(20, 0xFF336699u));
  const float* w = pHybrid->m_nlinks;
  EXPECT_EQ(pHybrid->m_beta, 0.0);
  // Interior (2, 2): straight 1, diagonal 1/sqrt 2. Column 0 has no left or
  // upper-left neighbour, the last column no upper-right; row 0 keeps its left.
  EXPECT_EQ(std::vector<float>(w + 4 * 12, w + 4 * 13), (std::vector<float>{1.0f, 0.70710677f, 1.0f, 0.70710677f}));
  EXPECT_TRUE(w[4 * 5] == 0.0f && w[4 * 5 + 1] == 0.0f && w[4 * 9 + 3] == 0.0f && w[4 * 3] == 1.0f);
}

TEST_F(EngineWeights, BetaOnAThreeByTwoImage) {
  // Grey levels        0 10 10
  //                    0  0 10
  // The 11 neighbour pairs (4WH - 3W - 3H + 2) include 5 that differ by 10 in
  // each channel (squared distance 300), so S = 1500 and beta = 11 / 3000.
  open(3, 2, greyLevels({0, 10, 10, 0, 0, 10}));
  const double beta = 11.0 / 3000.0;
  EXPECT_NEAR(pHybrid->m_beta, beta, 1e-12);
  const float* w = pHybrid->m_nlinks;
  const double differ = std::exp(-300 * beta);
  EXPECT_NEAR(w[4 * 1 + 0], differ, 1e-6);                    // (1,0) left: 0 vs 10
  EXPECT_NEAR(w[4 * 2 + 0], 1.0, 1e-6);                       // (2,0) left: 10 vs 10
  EXPECT_NEAR(w[4 * 4 + 1], 0.70710677, 1e-6);                // (1,1) upper-left: 0 vs 0
  EXPECT_NEAR(w[4 * 4 + 3], 0.70710677 * differ, 1e-6);       // (1,1) upper-right: 0 vs 10
  EXPECT_NEAR(w[4 * 3 + 3], 0.70710677 * differ, 1e-6);       // (0,1) upper-right: 0 vs 10
  EXPECT_NEAR(w[4 * 5 + 0], differ, 1e-6);                    // (2,1) left: 10 vs 0
}

// Every slot of a seeded 9 x 6 image against the formula evaluated here
// pair by pair: beta from the integer sum over all neighbour pairs, then
// T[|d0|] * T[|d1|] * T[|d2|], diagonals times 1/sqrt(2) in double, absent
// neighbours 0.
TEST_F(EngineWeights, SeededImageWeightsFollowTheFormula) {
  const int w = 9, h = 6;
  Pixels photo(w * h);
  std::mt19937 rng(21);
  for (auto& p : photo) p = 0xFF000000u | (rng() & 0xFFFFFFu);
  open(w, h, photo);
  auto channel = [&](int x, int y, int c) { return int(photo[y * w + x] >> (8 * c) & 0xFF); };
  const int dx[4] = {-1, -1, 0, 1}, dy[4] = {0, -1, -1, -1};
  auto present = [&](int x, int y, int s) { return x + dx[s] >= 0 && x + dx[s] < w && y + dy[s] >= 0; };
  int64_t sum = 0;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int s = 0; s < 4; ++s)
        if (present(x, y, s))
          for (int c = 0; c < 3; ++c) sum += std::pow(channel(x, y, c) - channel(x + dx[s], y + dy[s], c), 2);
  const double beta = (4.0 * w * h - 3.0 * w - 3.0 * h + 2.0) / (2.0 * sum);
  EXPECT_EQ(pHybrid->m_beta, beta);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int s = 0; s < 4; ++s) {
        float expected = 0.0f;
        if (present(x, y, s)) {
          expected = 1.0f;
          for (int c = 0; c < 3; ++c) {
            const int d = std::abs(channel(x, y, c) - channel(x + dx[s], y + dy[s], c));
            expected *= expf(static_cast<float>(-(d * d) * beta));
          }
          if (s % 2) expected = static_cast<float>(expected * double(0.70710677f));
        }
        EXPECT_EQ(pHybrid->m_nlinks[4 * (y * w + x) + s], expected) << x << "," << y << " slot " << s;
      }
}

TEST_F(EngineWeights, RegionGraphScalesWeightsAndTiesHardLabels) {
  open(3, 2);
  KORUSEHybrid& e = *pHybrid;
  for (int i = 0; i < 4 * 6; ++i) e.m_nlinks[i] = 0.5f;
  // Region: the right 2 x 2 block, so that the image's column 0 is outside.
  KORUSEMarker::m_xMinBBox = 1;
  KORUSEMarker::m_yMinBBox = 0;
  e.m_roiWidth = e.m_roiHeight = 2;
  e.m_lambda = 50.0;
  e.m_roiImage = e.cropImage(KORUSEMarker::m_srcImage);
  e.m_roiLabel = cvCreateImage(cvSize(2, 2), 8, 1);
  const uint8_t labels[4] = {MARK_BACKGROUND, MARK_OBJECT, MARK_OBJECT, MARK_BACKGROUND};
  for (int i = 0; i < 4; ++i) e.m_roiLabel->imageData[(i / 2) * e.m_roiLabel->widthStep + i % 2] = labels[i];
  e.graphSpaceAllocator();
  e.constructGraphKORU_Whole_Image();

  const KORUSEGraph& g = *e.m_graph;
  EXPECT_EQ(g.residualTerminalCapacity[0], -1000.0f);  // (0, 1000)
  EXPECT_EQ(g.residualTerminalCapacity[1], 1000.0f);   // (1000, 0)
  // Node 0: every neighbour outside the region (image column 0 included).
  for (int a = 0; a < 8; ++a) EXPECT_EQ(g.arcArray[a], -2.0f);
  // Node 1 (0,1 in the region): left present at 50 * 0.5 both ways.
  EXPECT_EQ(g.arcArray[8 + 0], 25.0f);
  EXPECT_EQ(g.arcArray[8 + 1], 25.0f);
  EXPECT_EQ(g.arcArray[8 + 4], -2.0f);
  // Node 3 (1,1): left, upper-left and upper present; upper-right absent.
  const float expected[8] = {25, 25, 25, 25, 25, 25, -2, -2};
  EXPECT_TRUE(std::equal(expected, expected + 8, g.arcArray + 24));
  // Node 2 (1,0): upper and upper-right present, left and upper-left absent.
  const float node2[8] = {-2, -2, -2, -2, 25, 25, 25, 25};
  EXPECT_TRUE(std::equal(node2, node2 + 8, g.arcArray + 16));
  e.clearMemory();
}

// The driver's build (kept data capacities, edges row by row) against the
// plain one on regions of every shape the row rules distinguish: one pixel,
// one row, one column, and wider ones, with hard and soft labels.
TEST_F(EngineWeights, RegionGraphOfEveryShapeEqualsThePlainBuild) {
  open(6, 5);
  KORUSEHybrid& e = *pHybrid;
  for (int i = 0; i < 4 * 30; ++i) e.m_nlinks[i] = 0.01f * (i % 97);
  e.m_lambda = 13.513f;
  e.m_fgModel.m_weights[0] = e.m_bgModel.m_weights[0] = 1.0;
  for (int c = 0; c < 3; ++c) e.m_fgModel.m_covariances[0][4 * c] = e.m_bgModel.m_covariances[0][4 * c] = 400.0;
  e.m_bgModel.m_means[0][0] = 200.0;
  for (KORUSEColorModel* m : {&e.m_fgModel, &e.m_bgModel}) m->setDeterminant(), m->setInverseCovariance();
  const int shapes[][4] = {{2, 1, 1, 1}, {1, 2, 4, 1}, {3, 0, 1, 4}, {1, 1, 2, 2}, {0, 0, 6, 5}};
  for (const auto& shape : shapes) {
    KORUSEMarker::m_xMinBBox = shape[0];
    KORUSEMarker::m_yMinBBox = shape[1];
    e.m_roiWidth = shape[2];
    e.m_roiHeight = shape[3];
    const int n = shape[2] * shape[3];
    e.m_roiImage = e.cropImage(KORUSEMarker::m_srcImage);
    e.m_roiLabel = cvCreateImage(cvSize(shape[2], shape[3]), 8, 1);
    for (int i = 0; i < n; ++i) e.m_roiLabel->imageData[(i / shape[2]) * e.m_roiLabel->widthStep + i % shape[2]] = i % 5;
    RegionSamples terms;
    ASSERT_TRUE(terms.index(e));
    e.graphSpaceAllocator();
    buildRegionGraph(e, terms);
    KORUSEGraph* built = e.m_graph;
    e.graphSpaceAllocator();
    e.constructGraphKORU_Whole_Image();
    EXPECT_EQ(built->arcFloatCount, 8 * n);
    EXPECT_EQ(std::memcmp(built->arcArray, e.m_graph->arcArray, 8 * n * sizeof(float)), 0) << shape[2] << "x" << shape[3];
    EXPECT_EQ(std::memcmp(built->residualTerminalCapacity, e.m_graph->residualTerminalCapacity, n * sizeof(float)), 0)
        << shape[2] << "x" << shape[3];
    delete built;
    e.clearMemory();
  }
}

// Models that change back and forth, more often than the evaluation stamps
// can count: every value must still be that of the models of the moment.
TEST_F(EngineWeights, RegionSamplesFollowModelsThatKeepChanging) {
  open(16, 12);
  KORUSEHybrid& e = engineWithRegion(16, 12);
  e.m_roiImage = e.cropImage(KORUSEMarker::m_srcImage);
  KORUSEColorModel models[2][2];  // [pair][object, background]
  for (int pair = 0; pair < 2; ++pair)
    for (int side = 0; side < 2; ++side) {
      KORUSEColorModel& m = models[pair][side];
      m.m_weights[0] = 1.0;
      for (int c = 0; c < 3; ++c) m.m_means[0][c] = 40.0 + 60 * pair + 30 * side + 10 * c, m.m_covariances[0][4 * c] = 300.0;
      m.setDeterminant();
      m.setInverseCovariance();
    }
  RegionSamples samples;
  ASSERT_TRUE(samples.index(e));
  // Every pixel in the first round and from the 255th on, pixel 0 alone in
  // between: values stamped in the first round are still there when the
  // stamps wrap.
  for (int round = 0; round < 300; ++round) {
    const int pair = round % 2;
    samples.follow(models[pair][0], models[pair][1]);
    for (int p = 0; p < (round == 0 || round >= 255 ? 16 * 12 : 1); ++p) {
      uint8_t bytes[3];
      regionSample(e, p / 16, p % 16, bytes);
      const TerminalCapacities want = terminalCapacities(sampleDataTerm(models[pair][0], models[pair][1], false, bytes));
      const TerminalCapacities got = samples.at(p).capacities;
      ASSERT_EQ(std::memcmp(&want, &got, sizeof want), 0) << round << " " << p;
    }
  }
  e.clearMemory();
}
