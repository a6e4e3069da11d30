#include <gtest/gtest.h>

#include <opencv2/imgproc/imgproc_c.h>

#include <random>

#include "engine/KORUSEHybrid.h"
#include "graph/KORUSEGraph.h"
#include "history/KORUSEManageUndoRedo.h"
#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SessionFixture.h"
#include "support/Marks.h"

static uint8_t at(const IplImage* image, int x, int y) {
  return static_cast<uint8_t>(image->imageData[y * image->widthStep + x]);
}

// An 8-bit marker image of the photo's size, `value` inside the rectangle.
static IplImage* markers(int w, int h, int x0, int y0, int x1, int y1, int value) {
  IplImage* m = cvCreateImage(cvSize(w, h), 8, 1);
  cvSetZero(m);
  cvRectangle(m, cvPoint(x0, y0), cvPoint(x1, y1), cvScalarAll(value), CV_FILLED);
  return m;
}

using EngineLabels = SessionTest;
using H = KORUSEManageUndoRedo;

TEST_F(EngineLabels, WorkingImageAimsAt320By240) {
  open(640, 480);
  EXPECT_EQ(g_imageResizeFactor, 2.0f);  // sqrt(640 * 480 / 76800)
  EXPECT_EQ(KORUSEMarker::m_width, 320);
  EXPECT_EQ(KORUSEMarker::m_height, 240);
  EXPECT_EQ(pHybrid->m_imageWidth, 320);
  // Small photos are copied as they are.
  for (auto size : {std::make_pair(320, 240), std::make_pair(1000, 1)}) {
    open(size.first, size.second);
    EXPECT_EQ(g_imageResizeFactor, 1.0f);
    ASSERT_EQ(KORUSEMarker::m_srcImage->width, size.first);
    EXPECT_EQ(KORUSEMarker::m_srcImage->height, size.second);
    EXPECT_EQ(at(KORUSEMarker::m_srcImage, 3 * 7 + 2, 0), 7);  // red of (7, 0) is x = 7
  }
}

TEST_F(EngineLabels, FirstLoopFixesEverythingOutsideAsBackground) {
  open(40, 30);
  int loop[] = {5, 5, 30, 5, 30, 20, 5, 20};
  setCurrentMarkerVector(8, loop);
  KORUSEMarker::currentStroke.type = LOOP_ADD;
  IplImage* m = markers(40, 30, 5, 5, 30, 20, MARK_PROBABLE_OBJECT);
  pHybrid->setLabelImage(m);
  const IplImage* labels = KORUSEMarker::m_labelImage;
  EXPECT_EQ(at(labels, 0, 0), MARK_BACKGROUND);
  EXPECT_EQ(at(labels, 35, 25), MARK_BACKGROUND);
  EXPECT_EQ(at(labels, 15, 12), MARK_PROBABLE_OBJECT);
  // The loop's own path is left to the cut, inside and out: a line of
  // thickness 3 covers two pixels either side of y = 5 (rounded ends).
  EXPECT_EQ(at(labels, 15, 5), MARK_NONE);
  EXPECT_EQ(at(labels, 15, 3), MARK_NONE);
  EXPECT_EQ(at(labels, 15, 2), MARK_BACKGROUND);
  EXPECT_EQ(at(labels, 30, 12), MARK_NONE);
  cvReleaseImage(&m);

  // The region: the loop's box with a margin of 10, clamped at the image.
  pHybrid->computeBoundingBox();
  EXPECT_EQ(KORUSEMarker::m_xMinBBox, 0);
  EXPECT_EQ(KORUSEMarker::m_yMinBBox, 0);
  EXPECT_EQ(pHybrid->m_roiWidth, 40);   // min(30 + 10, 39) - 0 + 1
  EXPECT_EQ(pHybrid->m_roiHeight, 30);  // min(20 + 10, 29) - 0 + 1
}

TEST_F(EngineLabels, BrushHaloIsFivePercentOfTheMeanSide) {
  open(400, 100);  // sqrt(400 * 100) * 0.05 = 10 dilations
  int stroke[] = {190, 50, 210, 50};
  setCurrentMarkerVector(4, stroke);
  KORUSEMarker::currentStroke.type = STROKE_ADD;
  IplImage* m = markers(400, 100, 190, 50, 210, 50, MARK_OBJECT);
  pHybrid->setLabelImage(m);
  EXPECT_EQ(at(m, 200, 50), MARK_OBJECT);  // the stroke keeps its own value
  EXPECT_EQ(at(m, 180, 40), MARK_PROBABLE_OBJECT);
  EXPECT_EQ(at(m, 220, 60), MARK_PROBABLE_OBJECT);
  EXPECT_EQ(at(m, 179, 50), MARK_NONE);
  EXPECT_EQ(at(m, 200, 39), MARK_NONE);
  const IplImage* labels = KORUSEMarker::m_labelImage;
  EXPECT_EQ(at(labels, 200, 50), MARK_NONE);  // the path is always unknown
  EXPECT_EQ(at(labels, 200, 47), MARK_PROBABLE_OBJECT);
  EXPECT_EQ(at(labels, 100, 10), MARK_BACKGROUND);
  cvReleaseImage(&m);

  pHybrid->computeBoundingBox();  // the halo's box: 180..220 x 40..60
  EXPECT_EQ(KORUSEMarker::m_xMinBBox, 170);
  EXPECT_EQ(KORUSEMarker::m_yMinBBox, 30);
  EXPECT_EQ(pHybrid->m_roiWidth, 61);
  EXPECT_EQ(pHybrid->m_roiHeight, 41);
}

TEST_F(EngineLabels, PreviousResultBecomesHardLabels) {
  open(20, 10);
  std::vector<int> marks(200, 0);
  for (int x = 0; x < 10; ++x) marks[5 * 20 + x] = MARK_OBJECT;  // row 5, left half
  setMarkerImage(20, 10, marks.data(), STROKE_ADD);
  cutOutImage(0, 0, 0, nullptr, nullptr);  // history: row 5 left half is object

  setCurrentMarkerVector(0, nullptr);
  KORUSEMarker::currentStroke.type = LOOP_REMOVE;
  IplImage* m = markers(20, 10, 5, 4, 14, 6, MARK_PROBABLE_BACKGROUND);
  pHybrid->setLabelImage(m);
  const IplImage* labels = KORUSEMarker::m_labelImage;
  EXPECT_EQ(at(labels, 2, 5), MARK_OBJECT);                // unmarked: previous object
  EXPECT_EQ(at(labels, 2, 2), MARK_BACKGROUND);            // unmarked: previous background
  EXPECT_EQ(at(labels, 7, 5), MARK_PROBABLE_BACKGROUND);   // marked, was object: soft
  EXPECT_EQ(at(labels, 12, 5), MARK_BACKGROUND);           // marked, already background: hard
  cvReleaseImage(&m);

  // No points and no unknown or probable-object label: the 11 x 11 corner.
  pHybrid->computeBoundingBox();
  EXPECT_EQ(KORUSEMarker::m_xMinBBox, 0);
  EXPECT_EQ(pHybrid->m_roiWidth, 11);
  EXPECT_EQ(pHybrid->m_roiHeight, 10);  // clamped to the 10 rows
}

TEST_F(EngineLabels, UpdateLabelImageMovesSoftLabelsOnly) {
  open(4, 1);
  // Region 4 x 1; nodes 0 and 2 are tied to the source, 1 and 3 to the sink.
  KORUSEHybrid& e = engineWithRegion(4, 1);
  e.graphSpaceAllocator();
  e.m_graph->addNode(4);
  for (int i = 0; i < 4; ++i) {
    for (int s = 0; s < 4; ++s) e.m_graph->addEdge(i, -1, 0, 0, true);
    e.m_graph->addtWeights(i, i % 2 ? 0.0f : 5.0f, i % 2 ? 5.0f : 0.0f);
  }
  e.m_graph->maxFlow();
  e.m_roiLabel = cvCreateImage(cvSize(4, 1), 8, 1);
  const uint8_t before[4] = {MARK_BACKGROUND, MARK_OBJECT, MARK_NONE, MARK_PROBABLE_OBJECT};
  std::copy(before, before + 4, reinterpret_cast<uint8_t*>(e.m_roiLabel->imageData));
  EXPECT_EQ(e.updateLabelImage(), 2);  // nodes 0 and 2, whatever their labels
  const uint8_t after[4] = {MARK_BACKGROUND, MARK_OBJECT, MARK_PROBABLE_OBJECT,
                            MARK_PROBABLE_BACKGROUND};
  EXPECT_TRUE(std::equal(after, after + 4, reinterpret_cast<uint8_t*>(e.m_roiLabel->imageData)));
  e.clearMemory();
}

// Random marks 0..4 where `dense`, else a few brush-like blobs.
static IplImage* randomMarks(int w, int h, std::mt19937& rng, bool dense, int value) {
  IplImage* m = cvCreateImage(cvSize(w, h), 8, 1);
  cvSetZero(m);
  if (dense) {
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) m->imageData[y * m->widthStep + x] = static_cast<char>(rng() % 5);
  } else {
    for (int i = 0; i < 3; ++i) {
      const int x = rng() % w, y = rng() % h;
      cvRectangle(m, cvPoint(x, y), cvPoint(x + int(rng() % 9), y + int(rng() % 5)), cvScalarAll(value), CV_FILLED);
    }
  }
  return m;
}

// The reduced labels are those of the whole photo (the path taken when the
// photo is the working image) reduced by cvResize CV_INTER_NN, for every
// stroke type, with and without a previous result, on sizes whose ratio to
// the working size is not a whole number.
TEST_F(EngineLabels, ReducedLabelsAreTheFullLabelsResizedNearest) {
  std::mt19937 rng(99);
  for (auto size : {std::make_pair(641, 479), std::make_pair(1001, 333), std::make_pair(333, 1001),
                    std::make_pair(1500, 77), std::make_pair(2001, 1499)}) {
    const int w = size.first, h = size.second;
    open(w, h);
    const float f = g_imageResizeFactor;
    ASSERT_GT(f, 1.0f);
    setCurrentMarkerVector(0, nullptr);  // no path drawn over the labels
    for (int withPrevious = 0; withPrevious < 2; ++withPrevious) {
      if (withPrevious) {
        IplImage* prev = randomMarks(w, h, rng, true, 0);
        cvCmpS(prev, 2, prev, CV_CMP_GE);  // 0 / 255
        H::updateBitPlane(prev);
        cvReleaseImage(&prev);
      }
      for (int type = 0; type < 4; ++type) {
        KORUSEMarker::currentStroke.type = type;
        IplImage* marks = randomMarks(w, h, rng, type < 2, type == 2 ? 2 : 1);
        IplImage* copy = cvCloneImage(marks);
        g_imageResizeFactor = 1.0f;
        pHybrid->setLabelImage(copy);
        IplImage* expected = cvCreateImage(cvGetSize(KORUSEMarker::m_srcImage), 8, 1);
        cvResize(KORUSEMarker::m_labelImage, expected, CV_INTER_NN);
        g_imageResizeFactor = f;
        pHybrid->setLabelImage(marks);
        const IplImage* labels = KORUSEMarker::m_labelImage;
        ASSERT_EQ(labels->width, expected->width);
        for (int y = 0; y < labels->height; ++y)
          for (int x = 0; x < labels->width; ++x)
            ASSERT_EQ(at(labels, x, y), at(expected, x, y))
                << w << "x" << h << " type " << type << " previous " << withPrevious << " at " << x << "," << y;
        cvReleaseImage(&expected);
        cvReleaseImage(&copy);
        cvReleaseImage(&marks);
      }
    }
  }
}

// The halo is dilated only around the marks; it must equal dilating the
// whole marker image, also for marks at the image's edges.
TEST_F(EngineLabels, BrushHaloEqualsTheWholeImageDilation) {
  std::mt19937 rng(5);
  open(160, 90);  // 6 dilations
  for (int round = 0; round < 30; ++round) {
    const int type = round % 2 ? STROKE_REMOVE : STROKE_ADD;
    const uint8_t own = type == STROKE_ADD ? MARK_OBJECT : MARK_BACKGROUND;
    KORUSEMarker::currentStroke.type = type;
    IplImage* marks = randomMarks(160, 90, rng, false, own);
    if (round % 3 == 0) cvSet2D(marks, 89, 159, cvScalarAll(3));  // another value in a corner
    IplImage* before = cvCloneImage(marks);
    IplImage* expected = cvCloneImage(marks);
    cvDilate(before, expected, nullptr, 6);
    for (int y = 0; y < 90; ++y)
      for (int x = 0; x < 160; ++x)
        if (at(expected, x, y) == own && at(before, x, y) == MARK_NONE)
          expected->imageData[y * expected->widthStep + x] = type == STROKE_ADD ? MARK_PROBABLE_OBJECT : MARK_PROBABLE_BACKGROUND;
    pHybrid->setLabelImage(marks);
    for (int y = 0; y < 90; ++y)
      for (int x = 0; x < 160; ++x) ASSERT_EQ(at(marks, x, y), at(expected, x, y)) << "round " << round << " at " << x << "," << y;
    for (IplImage* image : {marks, before, expected}) cvReleaseImage(&image);
  }
}

// The previous result is refilled in place from edit to edit; it must follow
// the history, down to none when undo has reached the plain photo.
TEST_F(EngineLabels, PreviousResultFollowsTheHistory) {
  open(30, 20);
  IplImage* none = markers(30, 20, 0, 0, -1, -1, 0);
  const auto previousAt = [&](int x, int y) {
    pHybrid->setLabelImage(none);
    return KORUSEMarker::m_prevResult ? int(at(KORUSEMarker::m_prevResult, x, y)) : -1;
  };
  cut(2, 2, 5, 5, MARK_OBJECT);
  EXPECT_EQ(previousAt(3, 3), 255);
  EXPECT_EQ(previousAt(10, 10), 0);
  cut(10, 10, 12, 12, MARK_OBJECT);
  EXPECT_EQ(previousAt(10, 10), 255);
  cut(2, 2, 5, 5, MARK_BACKGROUND);
  EXPECT_EQ(previousAt(3, 3), 0);
  const auto undo = [] {
    if (IplImage* shown = H::undo()) cvReleaseImage(&shown);
  };
  undo();
  EXPECT_EQ(previousAt(3, 3), 255);
  undo();
  EXPECT_EQ(previousAt(10, 10), 0);
  undo();
  EXPECT_EQ(previousAt(3, 3), -1);  // the plain photo: no previous result
  cvReleaseImage(&none);
}
