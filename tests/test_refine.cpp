#include <gtest/gtest.h>

#include <opencv2/imgproc/imgproc_c.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "colormodel/TrainingData.h"
#include "engine/BandGraph.h"
#include "engine/BandPixels.h"
#include "engine/KORUSEHybrid.h"
#include "graph/KORUSEGraph.h"
#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SessionFixture.h"
#include "support/Marks.h"
#include "testing/LogCapture.h"
#include "testing/SyntheticScene.h"

using Refine = SessionTest;

// Pixels where a 0/255 full-size image disagrees with the truth.
static size_t mismatch(const IplImage* mask, const Scene& s) {
  size_t wrong = 0;
  for (int y = 0; y < mask->height; ++y)
    for (int x = 0; x < mask->width; ++x) {
      const bool object = static_cast<uint8_t>(mask->imageData[y * mask->widthStep + x]) == 255;
      wrong += object != (s.truth[size_t(y) * s.width + x] == 1);
    }
  return wrong;
}

TEST_F(Refine, BandCutBeatsPlainEnlargement) {
  // An ellipse, so that the outline crosses working pixels at every phase.
  Scene s = makeScene(1280, 960, [](int x, int y) {
    const double dx = (x - 641.5) / 301.3, dy = (y - 477.2) / 233.9;
    return dx * dx + dy * dy <= 1.0;
  });
  open(s.width, s.height, s.pixels);
  ASSERT_EQ(g_imageResizeFactor, 4.0f);
  HostMask mask = blankMask();
  boxEdit(300, 200, 980, 760, &mask);

  IplImage* refined = cvCreateImage(cvSize(s.width, s.height), 8, 1);
  for (int i = 0; i < s.width * s.height; ++i)
    refined->imageData[(i / s.width) * refined->widthStep + i % s.width] = mask[i] == 0 ? 255 : 0;
  // The working-size labels the cut left behind, enlarged as they are.
  const IplImage* labels = KORUSEMarker::m_labelImage;
  IplImage* small = cvCreateImage(cvGetSize(labels), 8, 1);
  for (int y = 0; y < small->height; ++y)
    for (int x = 0; x < small->width; ++x) {
      const uint8_t l = labels->imageData[y * labels->widthStep + x];
      small->imageData[y * small->widthStep + x] = (l == 2 || l == 4) ? 255 : 0;
    }
  IplImage* enlarged = cvCreateImage(cvSize(s.width, s.height), 8, 1);
  cvResize(small, enlarged, CV_INTER_NN);

  const size_t plain = mismatch(enlarged, s), band = mismatch(refined, s);
  EXPECT_GT(plain, 1000u);  // a 4x enlargement leaves visible steps
  EXPECT_LT(band * 2, plain) << "band " << band << " plain " << plain;
  for (IplImage* image : {refined, small, enlarged}) cvReleaseImage(&image);
}

// The band's box, logged. Working mask 320 x 240 with the object at
// 100..109 x 50..59: the 3-fold dilation reaches 97..112 x 47..62 and only
// the 3-fold erosion's 103..106 is left out inside, so the box is that of
// the dilation; doubled to 640 x 480 (nearest): 194..225 x 94..125, 32 x 32.
// An empty mask has no band: logged, plain enlargement, no graph.
TEST_F(Refine, BandBoxIsLoggedOrFallsBack) {
  Scene s = discScene(640, 480);
  open(s.width, s.height, s.pixels);
  LogCapture log;
  KORUSEHybrid& e = *pHybrid;
  KORUSEMarker::m_labelImage = cvCreateImage(cvSize(320, 240), 8, 1);
  cvSet(KORUSEMarker::m_labelImage, cvScalarAll(MARK_BACKGROUND));
  IplImage* low = cvCreateImage(cvSize(320, 240), 8, 1);
  cvSetZero(low);
  cvRectangle(low, cvPoint(100, 50), cvPoint(109, 59), cvScalarAll(1), CV_FILLED);
  IplImage* full = e.intelligentUpscaling(low);
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{ANDROID_LOG_INFO, "Info", "Passed: xmin:194, xmax:225, ymin:94, ymax:125"},
                                              {ANDROID_LOG_INFO, "Info", "m_boundWidthTrimap:32, m_boundHeightTrimap:32"}}));
  EXPECT_EQ(e.m_trimapWidth, 32);
  cvReleaseImage(&full);

  log.clear();
  cvSetZero(low);
  full = e.intelligentUpscaling(low);
  ASSERT_NE(full, nullptr);
  EXPECT_EQ(full->width, 640);
  EXPECT_EQ(cvCountNonZero(full), 0);
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{ANDROID_LOG_ERROR, "Error",
                                                "Failed: xmin:2147483647, xmax:-1, ymin:2147483647, ymax:-1"}}));
  EXPECT_EQ(e.m_trimapWidth, 0);
  EXPECT_EQ(e.m_trimapGraph, nullptr);
  cvReleaseImage(&full);
  cvReleaseImage(&low);
}

namespace {
// The 4 x 2 crop worked out by hand below: an engine with lambda 10, beta
// 0.01 and unit Gaussians at 0 (background) and 20 (object), the image and
// the trimap.
struct HandCrop {
  HandCrop() {
    e.m_lambda = 10.0;
    e.m_beta = 0.01;
    for (KORUSEColorModel* m : {&e.m_fgModel, &e.m_bgModel}) {
      m->m_weights[0] = 1.0;
      for (int c = 0; c < 3; ++c) m->m_covariances[0][4 * c] = 1.0;
    }
    e.m_fgModel.m_means[0][0] = 20.0;
    for (KORUSEColorModel* m : {&e.m_fgModel, &e.m_bgModel}) m->setDeterminant(), m->setInverseCovariance();
    const int trimap[8] = {1, 0, 7, 2, 0, 0, 2, 2}, colour[8] = {0, 20, 0, 10, 0, 10, 10, 10};
    for (int i = 0; i < 8; ++i) {
      cvSet2D(image, i / 4, i % 4, cvScalar(colour[i], 0, 0));
      cvSet2D(band, i / 4, i % 4, cvScalar(trimap[i]));
    }
    KORUSEMarker::m_isGreyScale = false;
  }
  ~HandCrop() {
    delete e.m_trimapGraph;
    e.m_trimapGraph = nullptr;
    cvReleaseImage(&image);
    cvReleaseImage(&band);
  }
  KORUSEHybrid e;
  IplImage* image = cvCreateImage(cvSize(4, 2), 8, 3);
  IplImage* band = cvCreateImage(cvSize(4, 2), 8, 1);
};
}  // namespace

// The band graph of a 4 x 2 crop, by hand. lambda 10, beta 0.01, so
// T[0] = 1, T[10] = e^-1, T[20] = e^-4; D = (float)(10 * 0.70710679...).
// Trimap (nodes in raster order, 7 is no node) and first channel:
//   1 0 7 2      n0 n1 .  n2       0 20  0 10
//   0 0 2 2      n3 n4 n5 n6       0 10 10 10
// Edges, both ways alike (A absent: outside the crop or towards a 7):
// left is 10 whatever the colours (n1: 0 | 20, n4: 0 | 10), upper is
// 10 T[d], diagonals D T[d]. Terminals: 1 -> (0, 1000), 2 -> (1000, 0), 0
// -> (-ln P_bg, -ln P_fg) with unit Gaussians at 0 (background) and 20
// (object): 0.5 d^2 each. n1 (20): (200, 0); n3 (0): (0, 200); n4 (10):
// (50, 50), which adds 50 to the flow and leaves 0.
TEST(BandGraph, CapacitiesByHand) {
  HandCrop crop;
  KORUSEHybrid& e = crop.e;
  ASSERT_EQ(e.constructGraphTrimapKORU(crop.image, crop.image, crop.band, nullptr, nullptr), 0);
  const KORUSEGraph& g = *e.m_trimapGraph;
  ASSERT_EQ(g.nodeCount, 7);
  const float A = ABSENT_CAPACITY, D = 7.0710678f, e1 = 0.36787944f, e4 = 0.018315639f;
  const float edges[7][4] = {{A, A, A, A},      {10, A, A, A},          {A, A, A, A},  {A, A, 10, D * e4},
                             {10, D * e1, 10 * e1, A}, {10, D * e1, A, D}, {10, A, 10, A}};
  for (int n = 0; n < 7; ++n)
    for (int k = 0; k < 8; ++k) EXPECT_FLOAT_EQ(g.arcArray[8 * n + k], edges[n][k / 2]) << n << " " << k;
  const float residual[7] = {-1000, 200, 1000, -200, 0, 1000, 1000};
  for (int n = 0; n < 7; ++n) EXPECT_NEAR(g.residualTerminalCapacity[n], residual[n], 1e-4) << n;
  EXPECT_FLOAT_EQ(g.flowValue, 50.0f);
}

// The same crop with the rings merged into the terminals: only n1, n3, n4
// remain, as m0 m1 m2. m0 (20): (200, 0), plus the outer ring on its left
// (10, to the sink) and the inner ring lower right (D T[10], from the
// source): residual 190 + D e^-1, flow 10. m1 (0): (0, 200), plus the outer
// ring above (10 T[0] = 10): residual -210. m2 (10): (50, 50), plus the
// inner ring on its right (10) and the outer ring upper left (D T[10]):
// residual 10 - D e^-1, flow 50 + D e^-1. Edges only between band pixels:
// m1 upper-right m0 (D e^-4), m2 left m1 (10), m2 upper m0 (10 e^-1). The
// cut: m2 stays with the object, since severing its edge to m1 (10) costs
// less than its residual and its edge to m0 (7.4 + 3.7); so with the rings
// kept.
TEST(BandGraph, MergedRingsByHand) {
  HandCrop crop;
  KORUSEHybrid& e = crop.e;
  std::vector<bool> sides[2];
  for (BandRings rings : {BandRings::kept, BandRings::merged}) {
    ASSERT_EQ(buildBandGraph(e, pictureOfCrops(crop.image, crop.band, nullptr, nullptr), rings), 0);
    KORUSEGraph& g = *e.m_trimapGraph;
    if (rings == BandRings::merged) {
      ASSERT_EQ(g.nodeCount, 3);
      const float A = ABSENT_CAPACITY, D = 7.0710678f, e1 = 0.36787944f, e4 = 0.018315639f;
      const float edges[3][4] = {{A, A, A, A}, {A, A, A, D * e4}, {10, A, 10 * e1, A}};
      for (int n = 0; n < 3; ++n)
        for (int k = 0; k < 8; ++k) EXPECT_FLOAT_EQ(g.arcArray[8 * n + k], edges[n][k / 2]) << n << " " << k;
      const float residual[3] = {190 + D * e1, -210, 10 - D * e1};
      for (int n = 0; n < 3; ++n) EXPECT_NEAR(g.residualTerminalCapacity[n], residual[n], 1e-4) << n;
      EXPECT_NEAR(g.flowValue, 60 + D * e1, 1e-4);
    }
    g.maxFlow();
    const int bandPixels[3][2] = {{1, 0}, {0, 1}, {1, 1}};
    for (const auto& p : bandPixels) sides[rings == BandRings::merged].push_back(g.getTreeofNode(g.nodeAt(p[0], p[1])));
    delete e.m_trimapGraph;
    e.m_trimapGraph = nullptr;
  }
  EXPECT_EQ(sides[0], (std::vector<bool>{false, true, false}));
  EXPECT_EQ(sides[1], sides[0]);
}

// On generated scenes, the rings merged into the terminals leave every band
// pixel on the side it takes with the rings kept, however many threads
// build the graph; and before the search, the data terms alone put each
// band pixel where the first trees of the graph with the rings kept do. The trimap is made as the
// refinement makes it: counts of the dilations and erosions of a working
// mask (here the truth at a quarter of the size, shifted by a working pixel
// so that the band straddles the true outline), enlarged 4 times.
TEST_F(Refine, MergedRingsCutAsKeptRingsDoAndDataTermsAsFirstTrees) {
  const Scene scenes[] = {discScene(640, 480, 0.3, 0.45, 0.5),
                          makeScene(512, 384, [](int x, int y) { return (x / 40 + y / 56) % 3 == 0 && y > 40; }, false, 11)};
  for (const Scene& s : scenes)
    for (double lambda : {50.0, 13.513, 4.0}) {
      SCOPED_TRACE(testing::Message() << s.width << "x" << s.height << " lambda " << lambda);
      open(s.width, s.height, s.pixels);
      KORUSEHybrid& e = *pHybrid;
      const int w = s.width / 4, h = s.height / 4;
      IplImage* low = cvCreateImage(cvSize(w, h), 8, 1);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) low->imageData[y * low->widthStep + x] = s.truth[size_t(4 * y) * s.width + 4 * std::max(x - 1, 0)];
      IplImage* count = cvCreateImage(cvSize(w, h), 8, 1), *scratch = cvCreateImage(cvSize(w, h), 8, 1);
      cvSetZero(count);
      for (int k : {3, 1}) cvDilate(low, scratch, nullptr, k), cvAdd(count, scratch, count, nullptr);
      for (int k : {1, 3}) cvErode(low, scratch, nullptr, k), cvAdd(count, scratch, count, nullptr);
      const uint8_t recode[5] = {7, 1, 0, 2, 7};
      IplImage* trimap = cvCreateImage(cvSize(s.width, s.height), 8, 1);
      for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x)
          trimap->imageData[y * trimap->widthStep + x] = recode[uint8_t(count->imageData[(y / 4) * count->widthStep + x / 4])];
      // Models from the truth's colours, each with two fifths of the other
      // side's mixed in: data terms weak enough that the smoothness, and so
      // the rings, decide much of the band.
      std::vector<pixelVal> object, background;
      for (size_t i = 0; i < s.pixels.size(); i += 7) {
        const unsigned p = s.pixels[i];
        const bool mixed = i % 5 < 2;
        (s.truth[i] != mixed ? object : background).push_back(pixelVal{{double(p & 0xFF), double(p >> 8 & 0xFF), double(p >> 16 & 0xFF)}});
      }
      initModel(object, e.m_fgModel, 0);
      initModel(background, e.m_bgModel, 0);
      e.m_fgModel.setInverseCovariance();
      e.m_bgModel.setInverseCovariance();
      e.m_lambda = lambda;
      const BandPicture picture = pictureOfCrops(KORUSEMarker::m_originalImage, trimap, nullptr, nullptr);
      const auto bandPixelSides = [&](const KORUSEGraph& g) {
        std::vector<int> sides;
        for (int y = 0; y < s.height; ++y)
          for (int x = 0; x < s.width; ++x)
            if (trimap->imageData[y * trimap->widthStep + x] == 0) sides.push_back(g.getTreeofNode(g.nodeAt(x, y)));
        return sides;
      };
      std::vector<int> sides[2];
      ASSERT_EQ(buildBandGraph(e, picture, BandRings::kept), 0);
      // Before any search, the first trees: each band pixel by its data term.
      e.m_trimapGraph->maxflowInit();
      for (int threads : {1, 3}) {
        const std::vector<uint8_t> first = bandSidesOfDataTerms(e, picture, threads);
        EXPECT_EQ(std::vector<int>(first.begin(), first.end()), bandPixelSides(*e.m_trimapGraph)) << threads;
      }
      e.m_trimapGraph->maxFlow();
      sides[0] = bandPixelSides(*e.m_trimapGraph);
      delete e.m_trimapGraph;
      // Merged, built on one thread and on three: the same graph, to the bit.
      std::vector<float> arcs, terminals;
      for (int threads : {1, 3}) {
        ASSERT_EQ(buildBandGraph(e, picture, BandRings::merged, threads), 0);
        KORUSEGraph& g = *e.m_trimapGraph;
        const std::vector<float> a(g.arcArray, g.arcArray + g.arcFloatCount),
            t(g.residualTerminalCapacity, g.residualTerminalCapacity + g.nodeCount);
        if (threads == 1) arcs = a, terminals = t;
        EXPECT_TRUE(a == arcs && t == terminals) << "built on " << threads << " threads";
        g.maxFlow();
        sides[1] = bandPixelSides(g);
        delete e.m_trimapGraph;
      }
      e.m_trimapGraph = nullptr;
      ASSERT_EQ(sides[1].size(), sides[0].size());
      EXPECT_GT(sides[0].size(), 1000u);
      size_t differing = 0;
      for (size_t i = 0; i < sides[0].size(); ++i) differing += sides[0][i] != sides[1][i];
      EXPECT_EQ(differing, 0u);
      // Both sides are taken in the band: the cut is not decided by the rings alone.
      EXPECT_NE(std::count(sides[0].begin(), sides[0].end(), 1), 0);
      EXPECT_NE(std::count(sides[0].begin(), sides[0].end(), 0), 0);
      for (IplImage* image : {low, count, scratch, trimap}) cvReleaseImage(&image);
    }
}

// The band's data-term cache gives what the plain computation gives, bit for
// bit, whether a sample is kept, new, or takes a slot another sample held:
// 200 000 random pixels of 3 000 colours, read twice in a shuffled order.
TEST(BandGraph, DataTermCacheGivesThePlainTerms) {
  KORUSEColorModel fg, bg;
  for (KORUSEColorModel* m : {&fg, &bg})
    for (int k = 0; k < 3; ++k) {
      m->m_weights[k] = 0.2 + 0.1 * k;
      for (int c = 0; c < 3; ++c) m->m_means[k][c] = 40.0 * k + 30 * c + (m == &fg ? 60 : 0), m->m_covariances[k][4 * c] = 90.0 + 20 * k;
    }
  fg.setDeterminant(), fg.setInverseCovariance(), bg.setDeterminant(), bg.setInverseCovariance();
  const int w = 400, h = 500;
  IplImage* image = cvCreateImage(cvSize(w, h), 8, 3);
  std::mt19937 rng(5);
  std::vector<cv::Vec3b> colours(3000);
  for (cv::Vec3b& c : colours) c = cv::Vec3b(rng() % 256, rng() % 256, rng() % 256);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const cv::Vec3b c = colours[rng() % colours.size()];
      std::copy(c.val, c.val + 3, reinterpret_cast<uint8_t*>(image->imageData) + y * image->widthStep + 3 * x);
    }
  BandPicture band;
  band.width = w;
  band.height = h;
  band.image = image;
  BandDataTerms cache(fg, bg);
  const PackedComponents pfg(fg), pbg(bg);
  for (int pass = 0; pass < 2; ++pass)
    for (int i = 0; i < w * h; ++i) {
      const int p = pass ? (i * 7919) % (w * h) : i, x = p % w, y = p / w;
      const TerminalCapacities got = cache.at(band, x, y), want = terminalCapacities(bandDataTerm(pfg, pbg, bandSample(band, x, y)));
      ASSERT_EQ(std::memcmp(&got, &want, sizeof got), 0) << x << "," << y;
    }
  cvReleaseImage(&image);
}
