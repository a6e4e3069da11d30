#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <opencv2/imgproc/imgproc_c.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <cstring>
#include <string>
#include <thread>

#include "colormodel/ModelUpdate.h"
#include "colormodel/TrainingData.h"
#include "engine/BoundaryContrast.h"
#include "engine/KORUSEHybrid.h"
#include "engine/ModelFitting.h"
#include "engine/RegionSamples.h"
#include "graph/KORUSEGraph.h"
#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SessionFixture.h"
#include "support/ImageRows.h"
#include "support/Marks.h"
#include "support/StageTrace.h"
#include "testing/LogCapture.h"
#include "testing/SyntheticScene.h"

class Segment : public SessionTest {
 protected:
  void openScene(const Scene& s) {
    scene_ = s;
    open(s.width, s.height, s.pixels);
  }
  // Marks of a brush stroke along a polyline, `radius` pixels thick.
  std::vector<int> strokeMarks(const std::vector<int>& pts, int radius, int value) {
    cv::Mat m(h_, w_, CV_32S, cv::Scalar(0));
    for (size_t i = 2; i + 1 < pts.size(); i += 2)
      cv::line(m, {pts[i - 2], pts[i - 1]}, {pts[i], pts[i + 1]}, cv::Scalar(value), 2 * radius + 1);
    return std::vector<int>(m.begin<int>(), m.end<int>());
  }
  Scene scene_;
};

TEST_F(Segment, BoxCutsFindTheObject) {
  struct Case {
    const char* name;
    Scene scene;
    int box[4];
  };
  const Case cases[] = {
      {"small colour disc", discScene(160, 120), {40, 16, 120, 104}},
      {"grey on grey texture", discScene(160, 120, 0.3, 0.5, 0.5, true), {40, 16, 120, 104}},
      {"touching the border", discScene(200, 150, 0.35, 0.1, 0.5), {0, 15, 75, 135}},
      // Reduced by 4 to the working size and refined at full resolution.
      {"1280 x 960", discScene(1280, 960), {320, 150, 960, 810}},
  };
  for (const Case& c : cases) {
    openScene(c.scene);
    HostMask mask = blankMask();
    EXPECT_EQ(boxEdit(c.box[0], c.box[1], c.box[2], c.box[3], &mask), 0);
    EXPECT_GE(hostMaskIoU(mask, scene_), 0.95) << c.name;
  }
}

TEST_F(Segment, EachEditMovesOnlyItsOwnWayAndUndoRestores) {
  openScene(discScene(200, 150));
  HostMask loop = blankMask();
  std::vector<int> inside(size_t(w_) * h_, 0);
  std::vector<int> polygon = {50, 10, 150, 10, 150, 140, 50, 140};
  for (int y = 10; y <= 140; ++y)
    for (int x = 50; x <= 150; ++x) inside[y * w_ + x] = MARK_PROBABLE_OBJECT;
  ASSERT_EQ(edit(polygon, inside, LOOP_ADD, &loop), 0);
  EXPECT_GE(hostMaskIoU(loop, scene_), 0.95);

  // A remove stroke across the disc's right half.
  std::vector<int> cutLine = {100, 75, 140, 75};
  HostMask removed = blankMask();
  ASSERT_EQ(edit(cutLine, strokeMarks(cutLine, 3, MARK_BACKGROUND), STROKE_REMOVE, &removed), 0);
  size_t lost = 0;
  for (size_t i = 0; i < loop.size(); ++i) {
    EXPECT_FALSE(loop[i] == 255 && removed[i] == 0) << "a remove stroke added pixel " << i;
    lost += loop[i] == 0 && removed[i] == 255;
  }
  EXPECT_GT(lost, 0u);

  // An add stroke back over it.
  HostMask added = blankMask();
  ASSERT_EQ(edit(cutLine, strokeMarks(cutLine, 3, MARK_OBJECT), STROKE_ADD, &added), 0);
  size_t gained = 0;
  for (size_t i = 0; i < loop.size(); ++i) {
    EXPECT_FALSE(removed[i] == 0 && added[i] == 255) << "an add stroke removed pixel " << i;
    gained += removed[i] == 255 && added[i] == 0;
  }
  EXPECT_GT(gained, 0u);

  HostMask back = blankMask();
  undo(nullptr, back.data());
  EXPECT_EQ(back, removed);
  undo(nullptr, back.data());
  EXPECT_EQ(back, loop);
}

// A cancel from another thread that arrives as the edit reaches a stage:
// the stage tracer raises the flag at that moment.
struct CancelPoint {
  const char* stage;
  int index;
  bool yields;  // a result comes all the same
};
CancelPoint g_cancelAt;
void cancelOnArrival(const char* stage, int index) {
  if (std::strcmp(stage, g_cancelAt.stage) == 0 && index == g_cancelAt.index) cancelSegmentation();
}

// Up to the last cut, a cancel yields no result: the mask untouched, the
// region's buffers released, nothing recorded. From then on the edit goes
// on: the refinement's search stops at once and its band is labelled from
// the trees as they stand (before the search, from each pixel's data term:
// the same mask wherever such a cancel came), and the mask is
// post-processed, recorded and delivered. Either way the cancel stays in force until the host starts
// over, and the same edit then gives the uncancelled result.
TEST_F(Segment, CancelBeforeTheMaskYieldsNothingAndAfterItTheRefinementStops) {
  openScene(discScene(1280, 960));
  HostMask uncancelled = blankMask();
  ASSERT_EQ(boxEdit(320, 150, 960, 810, &uncancelled), 0);
  const CancelPoint points[] = {{"region", 0, false}, {"models", 1, false},           {"search", 1, false},
                                {"graph", 3, false},  {"search", 5, false},           {"mask", 0, true},
                                {"refinement: graph", 0, true}, {"refinement: search", 0, true}};
  HostMask stopped;  // what every cancel before the band's search leaves
  for (const CancelPoint& at : points) {
    SCOPED_TRACE(testing::Message() << at.stage << " " << at.index);
    openScene(discScene(1280, 960));
    LogCapture log;
    HostMask mask = blankMask(9);
    g_cancelAt = at;
    setStageTracer(cancelOnArrival);
    EXPECT_EQ(boxEdit(320, 150, 960, 810, &mask), 0);
    setStageTracer(nullptr);
    const bool toldCancelled = log.contains({ANDROID_LOG_ERROR, "Error", "Segmentation canceled due to timeout"});
    const KORUSEHybrid& e = *pHybrid;
    EXPECT_EQ(e.m_roiImage, nullptr);
    EXPECT_EQ(e.m_roiLabel, nullptr);
    EXPECT_EQ(e.m_roiInitialLabel, nullptr);
    for (IplImage* snapshot : e.m_iterLabel) EXPECT_EQ(snapshot, nullptr);
    EXPECT_EQ(e.m_graph, nullptr);
    EXPECT_EQ(e.m_trimapGraph, nullptr);
    if (at.yields) {
      EXPECT_FALSE(toldCancelled);
      EXPECT_NE(mask, uncancelled) << "the band was cut all the same";
      EXPECT_GE(hostMaskIoU(mask, scene_), 0.9);  // only the band is judged by its data terms alone
      if (stopped.empty()) stopped = mask;
      EXPECT_EQ(mask, stopped) << "the search never started: the same sides wherever the cancel came";
      HostMask back = blankMask();
      redo(nullptr, back.data());  // the newest entry: this result
      EXPECT_EQ(back, mask);
    } else {
      EXPECT_TRUE(toldCancelled);
      EXPECT_EQ(mask, blankMask(9));
      EXPECT_EQ(canUndo() + canRedo(), 0);  // nothing recorded
    }
    HostMask later = blankMask(9);
    EXPECT_EQ(boxEdit(320, 150, 960, 810, &later), 0);
    EXPECT_EQ(later, blankMask(9)) << "a cancel stays in force";
    resetSegmentationInterface();
    EXPECT_EQ(boxEdit(320, 150, 960, 810, &later), 0);
    EXPECT_EQ(later, uncancelled);
  }
}

// The driver builds each cut's graph from data capacities kept across the
// passes and shared by pixels of one colour. At the start of every search,
// the plain build on the same labels, models and weight must give the same
// graph, bit for bit. The weights of an edit's five cuts: homogeneous
// edits do not switch, 50 in every cut: a grey disc with the flag set
// beforehand (the grey candidates would start at 15), and the colour disc,
// whose one blue-grey background the criteria find homogeneous in pass 0.
// A colour disc whose background stripes alternate with their inverse
// (about 150 apart: not homogeneous) cuts with 50, 13 (13.513 truncated)
// and 8, then twice with one weight, an untruncated candidate or the
// fallback 4.
namespace {
struct BuildCheck {
  int differing = 0;
  std::vector<double> lambdas;  // one per cut
};
BuildCheck g_check;

bool sameBits(const void* a, const void* b, size_t bytes) { return std::memcmp(a, b, bytes) == 0; }

void compareWithPlainBuild(const char* stage, int) {
  if (std::string(stage) != "search") return;
  KORUSEHybrid& e = *pHybrid;
  KORUSEGraph* built = e.m_graph;
  const int n = e.m_roiWidth * e.m_roiHeight;
  KORUSEGraph plain(n, 8 * n, e.m_roiWidth, e.m_roiHeight, 0);
  e.m_graph = &plain;
  e.constructGraphKORU_Whole_Image();
  e.m_graph = built;
  g_check.lambdas.push_back(e.m_lambda);
  const bool same = plain.nodeCount == built->nodeCount && plain.arcFloatCount == built->arcFloatCount &&
                    sameBits(&plain.flowValue, &built->flowValue, sizeof(float)) &&
                    sameBits(plain.residualTerminalCapacity, built->residualTerminalCapacity, n * sizeof(float)) &&
                    sameBits(plain.arcArray, built->arcArray, plain.arcFloatCount * sizeof(float));
  g_check.differing += !same;
}
}  // namespace

TEST_F(Segment, EveryCutsWeightAndGraph) {
  for (int kind : {0, 1, 2}) {  // inverse stripes, grey, plain colour
    const bool grey = kind == 1;
    Scene scene = discScene(160, 120, 0.3, 0.5, 0.5, grey);
    for (size_t i = 0; i < scene.pixels.size(); ++i)
      if (kind == 0 && !scene.truth[i] && (i % 160) / 10 % 2) scene.pixels[i] ^= 0xFFFFFF;
    openScene(scene);
    ASSERT_EQ(KORUSEMarker::m_isGreyScale, grey);
    KORUSEMarker::m_isHomogenous = grey;
    g_check = {};
    setStageTracer(compareWithPlainBuild);
    HostMask mask = blankMask();
    boxEdit(40, 16, 120, 104, &mask);
    std::vector<int> line = {80, 60, 115, 60};
    edit(line, strokeMarks(line, 2, MARK_BACKGROUND), STROKE_REMOVE, &mask);
    setStageTracer(nullptr);
    EXPECT_EQ(g_check.differing, 0) << kind;
    const std::vector<double>& l = g_check.lambdas;
    ASSERT_EQ(l.size(), 10u);  // five cuts per edit
    if (kind > 0) {
      EXPECT_EQ(l, std::vector<double>(10, 50.0)) << kind;
      continue;
    }
    EXPECT_TRUE(l[0] == 50 && l[1] == 13 && l[2] == 8 && l[3] == l[4]) << l[1] << " " << l[2] << " " << l[3];
    const double later[] = {50, 13.513f, 8, 4};
    EXPECT_NE(std::find(later, later + 4, l[3]), later + 4) << l[3];
  }
}

// chooseIter on a photo whose gradient is known per column: columns 0..219
// carry black and white stripes 2 wide, the rest is black, so the Sobel
// magnitude is 4 * 255 (> 70) in columns 1..220 and 0 (< 30) in column 0 and
// from 221 on. Each object is a rectangle ending at column 221; of its inner
// boundary (the object minus its 3 x 3 erosion) column 221 alone is weak:
//   first   rows 4..6, columns 208..221: n = 42 - 12, 3 weak, r0 = 24/30 = 0.8
//   final   rows 4..5, columns 182..221: n = 80, 2 weak, r1 = 76/80 = 0.95
//   final   row 4, columns 22..221: n = 200, 1 weak, r1 = 198/200 = 0.99
// 0.95: r0 >= 0.75, r1 <= 0.98, r1 - r0 <= 0.2: the first cut is kept. 0.99
// is above 0.98, and a first cut without object has r0 = 0: the final stays.
TEST(ChooseIter, KeepsTheFirstCutOnlyIfTheLaterOnesDidNotImprove) {
  KORUSEHybrid e;
  e.m_roiImage = cvCreateImage(cvSize(240, 12), 8, 3);
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 240; ++x) cvSet2D(e.m_roiImage, y, x, cvScalarAll(x < 220 && (x / 2) % 2 ? 255 : 0));
  const auto labelling = [](const int* r) {  // x0 (-1: no object), y0, y1
    IplImage* l = cvCreateImage(cvSize(240, 12), 8, 1);
    cvSet(l, cvScalarAll(MARK_PROBABLE_BACKGROUND));
    if (r[0] >= 0) cvRectangle(l, cvPoint(r[0], r[1]), cvPoint(221, r[2]), cvScalarAll(MARK_PROBABLE_OBJECT), CV_FILLED);
    return l;
  };
  const struct { int first[3], last[3]; bool keepsFirst; } cases[] = {
      {{208, 4, 6}, {182, 4, 5}, true}, {{208, 4, 6}, {22, 4, 4}, false}, {{-1, 0, 0}, {182, 4, 5}, false}};
  for (const auto& c : cases) {
    e.m_iterLabel[0] = labelling(c.first);
    e.m_roiLabel = labelling(c.last);
    IplImage* expected = cvCloneImage(c.keepsFirst ? e.m_iterLabel[0] : e.m_roiLabel);
    e.chooseIter();
    EXPECT_EQ(cvNorm(e.m_roiLabel, expected, CV_L1), 0.0) << c.first[0] << " " << c.last[0];
    for (IplImage** image : {&expected, &e.m_roiLabel, &e.m_iterLabel[0]}) cvReleaseImage(image);
  }
}

// The model steps read the region's samples directly: a fresh start must
// give the models initModel gives, and a refit (components taken from the
// evaluations the last cut made) the models updateModel gives, bit for bit,
// from the sample vectors extractTrainingData makes. Labels: probable object
// in a box, probable background and hard labels around it; then an object
// of three pixels, which is topped up with fillers.
TEST_F(Segment, ModelStepsFromTheRegionEqualThePlainOnes) {
  for (bool grey : {false, true}) {
    for (int objectPixels : {-1, 3}) {
      openScene(discScene(120, 90, 0.3, 0.5, 0.5, grey));
      KORUSEHybrid& e = engineWithRegion(120, 90);
      e.m_roiImage = e.cropImage(KORUSEMarker::m_srcImage);
      e.m_roiLabel = cvCreateImage(cvSize(120, 90), 8, 1);
      cvSet(e.m_roiLabel, cvScalarAll(MARK_PROBABLE_BACKGROUND));
      cvRectangle(e.m_roiLabel, cvPoint(0, 0), cvPoint(119, 5), cvScalarAll(MARK_BACKGROUND), CV_FILLED);
      if (objectPixels < 0) {
        cvRectangle(e.m_roiLabel, cvPoint(30, 15), cvPoint(90, 75), cvScalarAll(MARK_PROBABLE_OBJECT), CV_FILLED);
        cvRectangle(e.m_roiLabel, cvPoint(55, 40), cvPoint(65, 50), cvScalarAll(MARK_OBJECT), CV_FILLED);
      } else {
        for (int i = 0; i < objectPixels; ++i) e.m_roiLabel->imageData[45 * e.m_roiLabel->widthStep + 60 + i] = MARK_OBJECT;
      }
      const std::string what = std::string(grey ? "grey" : "colour") + (objectPixels < 0 ? "" : ", fillers");
      RegionSamples samples;
      ASSERT_TRUE(samples.index(e));
      std::vector<pixelVal> object, background;
      extractTrainingData(e.m_roiImage, e.m_roiLabel, object, background);

      KORUSEColorModel fg = e.m_fgModel, bg = e.m_bgModel;
      initModel(background, bg, 10);
      initModel(object, fg, 10);
      ASSERT_TRUE(initRegionModels(e, samples));
      EXPECT_EQ(std::memcmp(&fg, &e.m_fgModel, sizeof fg), 0) << what;
      EXPECT_EQ(std::memcmp(&bg, &e.m_bgModel, sizeof bg), 0) << what;

      e.m_fgModel.setInverseCovariance();
      e.m_bgModel.setInverseCovariance();
      e.graphSpaceAllocator();
      buildRegionGraph(e, samples);  // evaluates the soft pixels
      fg = e.m_fgModel, bg = e.m_bgModel;
      updateModel(object, background, fg, bg);
      ASSERT_TRUE(refitRegionModels(e, samples));
      EXPECT_EQ(std::memcmp(&fg, &e.m_fgModel, sizeof fg), 0) << what;
      EXPECT_EQ(std::memcmp(&bg, &e.m_bgModel, sizeof bg), 0) << what;

      // Labels that are not the region's size: refused, models untouched.
      IplImage* labels = e.m_roiLabel;
      e.m_roiLabel = cvCreateImage(cvSize(60, 90), 8, 1);
      EXPECT_FALSE(refitRegionModels(e, samples));
      EXPECT_FALSE(initRegionModels(e, samples));
      EXPECT_EQ(std::memcmp(&fg, &e.m_fgModel, sizeof fg), 0);
      cvReleaseImage(&labels);
      e.clearMemory();
    }
  }
}

// Region images for optimalLamda: one colour, except a patch of another
// colour at (40..44, 40..44) that makes a labelling covering it fail the
// colour test (its border is uniform, its inside is not).
class WeightChoice : public ::testing::Test {
 protected:
  void SetUp() override {
    engine_.m_roiImage = cvCreateImage(cvSize(100, 100), 8, 3);
    cvSet(engine_.m_roiImage, cvScalar(90, 90, 90));
    cvRectangle(engine_.m_roiImage, cvPoint(40, 40), cvPoint(44, 44), cvScalar(200, 10, 10), CV_FILLED);
    for (auto& l : labels_) l = cvCreateImage(cvSize(100, 100), 8, 1);
    engine_.m_roiInitialLabel = cvCreateImage(cvSize(100, 100), 8, 1);
    cvSet(engine_.m_roiInitialLabel, cvScalarAll(MARK_NONE));
    engine_.m_roiLabel = cvCloneImage(engine_.m_roiInitialLabel);
    std::copy(labels_, labels_ + 3, engine_.m_iterLabel);  // the snapshots
  }
  void TearDown() override {
    std::fill(engine_.m_iterLabel, engine_.m_iterLabel + 3, nullptr);
    for (auto& l : labels_) cvReleaseImage(&l);
    KORUSEMarker::m_isGreyScale = false;
  }
  // Labelling k: object (4) on the given rectangle, probable background elsewhere.
  void object(int k, int x0, int y0, int x1, int y1, int thickness = CV_FILLED) {
    cvSet(labels_[k], cvScalarAll(MARK_PROBABLE_BACKGROUND));
    cvRectangle(labels_[k], cvPoint(x0, y0), cvPoint(x1, y1), cvScalarAll(MARK_PROBABLE_OBJECT), thickness);
  }
  int choose() { return engine_.optimalLamda(labels_, nullptr); }
  // parallelLamdaSwtich(k): its model step (0 fresh, 1 update, 2 keep), its
  // weight, and the labels it starts the cut from.
  void expectSwitch(int k, bool grey, double lambda, int mode, const IplImage* from) {
    KORUSEMarker::m_isGreyScale = grey;
    cvSet(engine_.m_roiLabel, cvScalarAll(MARK_OBJECT));
    EXPECT_EQ(engine_.parallelLamdaSwtich(k), mode) << k;
    EXPECT_EQ(engine_.m_lambda, lambda) << k;
    if (from) EXPECT_EQ(cvNorm(engine_.m_roiLabel, from, CV_L1), 0.0) << k;
  }
  KORUSEHybrid engine_;
  IplImage* labels_[3];
};

TEST_F(WeightChoice, OptimalLamdaFollowsAreasAndFraming) {
  // All three cover the patch: none passes, the first candidate is used.
  object(0, 30, 30, 60, 60);
  object(1, 35, 35, 50, 50);
  object(2, 38, 38, 70, 70);
  EXPECT_EQ(choose(), 0);

  // Passing, unframed areas 1000 and 200 (the third fails): m = 0.6,
  // v = 0.32 <= 0.4, so the second-to-last passing one (index 0).
  object(0, 55, 55, 94, 79);  // 40 x 25
  object(1, 60, 10, 79, 19);  // 20 x 10
  EXPECT_EQ(choose(), 0);
  // Areas 1000 and 100: m = 0.55, v = 0.405 > 0.4, the last one.
  object(1, 60, 10, 69, 19);  // 10 x 10
  EXPECT_EQ(choose(), 1);
  // The switch: passes 0 to 2 start from the user's labels with the
  // candidates truncated (13.513 cuts as 13); pass 3 from the chosen
  // labelling with its candidate whole; later passes keep the weight.
  const IplImage* initial = engine_.m_roiInitialLabel;
  for (bool grey : {false, true}) {
    expectSwitch(0, grey, grey ? 15 : 50, 0, initial);
    expectSwitch(1, grey, grey ? 10 : 13, 2, initial);
    expectSwitch(2, grey, grey ? 7 : 8, 2, initial);
    expectSwitch(3, grey, grey ? 10.0f : 13.513f, 1, labels_[1]);
    expectSwitch(4, grey, grey ? 10.0f : 13.513f, 1, nullptr);
  }
  // Passing objects all under 100 pixels: fall back, from the user's labels.
  object(0, 55, 55, 63, 63);  // 9 x 9
  object(1, 60, 10, 68, 18);  // 9 x 9
  EXPECT_EQ(choose(), -1);
  expectSwitch(3, false, 4, 2, initial);
  expectSwitch(3, true, 3, 2, initial);

  // Framed objects (within 15 % of all borders, clear of the patch): the
  // smallest wins, whatever its index.
  object(0, 5, 5, 94, 94, 9);  // a wide frame
  object(1, 5, 5, 94, 94, 3);  // a narrow one
  EXPECT_EQ(choose(), 1);
}

// Components are numbered 2, 3, ... in raster order in an 8-bit image, so
// from the 254th on they all get 255 and count as one. A 20-pixel line (row
// 2, numbered 2) and 300 isolated pixels after it (3 .. 255, the last 48 all
// 255): the largest "component" is those 48 (limit 33), kept alone. None has
// an object neighbour, so there is no inner mean and the colour test fails:
// nothing passes, candidate 0. Counted apart, the line would be kept, pass,
// and be too small unframed: -1.
TEST_F(WeightChoice, MoreThan254ComponentsShareTheLastNumber) {
  for (int k = 0; k < 3; ++k) {
    cvSet(labels_[k], cvScalarAll(MARK_PROBABLE_BACKGROUND));
    cvLine(labels_[k], cvPoint(2, 2), cvPoint(21, 2), cvScalarAll(MARK_PROBABLE_OBJECT));
    for (int i = 0; i < 300; ++i) imageRow(labels_[k], 60 + 2 * (i / 45))[2 + 2 * (i % 45)] = MARK_OBJECT;
  }
  EXPECT_EQ(choose(), 0);
}

// optimalLamda's colour tests are made in one pass over the three masks;
// each mask's sums must be those of the plain computation, bit for bit, on
// seeded images and masks (blobs of 255 among 0 and other values).
TEST(BoundaryContrast, SumsOfSeveralMasksInOnePassEqualThePlainOnes) {
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> byte(0, 255);
  for (const cv::Size size : {cv::Size(37, 29), cv::Size(3, 3), cv::Size(2, 6), cv::Size(64, 1)}) {
    IplImage* image = cvCreateImage(cvSize(size.width, size.height), 8, 3);
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < 3 * size.width; ++x) image->imageData[y * image->widthStep + x] = char(byte(rng));
    IplImage* masks[3];
    for (IplImage*& mask : masks) mask = cvCreateImage(cvSize(size.width, size.height), 8, 1);
    for (int trial = 0; trial < 20; ++trial) {
      for (IplImage* mask : masks) {
        cvSetZero(mask);
        for (int blob = 0; blob < 4; ++blob)
          cvCircle(mask, cvPoint(byte(rng) % size.width, byte(rng) % size.height), 1 + byte(rng) % 9,
                   cvScalarAll(blob == 3 ? 128 : 255), CV_FILLED);
      }
      ContrastSums shared[3];
      contrastSumsOfMasks(masks, 3, image, shared);
      for (int k = 0; k < 3; ++k) {
        const ContrastSums plain = contrastSums(masks[k], image);
        EXPECT_EQ(std::memcmp(&plain.inner, &shared[k].inner, sizeof(double)), 0) << trial << " " << k;
        EXPECT_EQ(std::memcmp(&plain.border, &shared[k].border, sizeof(double)), 0) << trial << " " << k;
        EXPECT_EQ(plain.innerCount, shared[k].innerCount) << trial << " " << k;
        EXPECT_EQ(plain.borderCount, shared[k].borderCount) << trial << " " << k;
      }
    }
    for (IplImage*& mask : masks) cvReleaseImage(&mask);
    cvReleaseImage(&image);
  }
}
