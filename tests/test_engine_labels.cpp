#include <gtest/gtest.h>

#include <opencv2/imgproc/imgproc_c.h>

#include "SessionFixture.h"
#include "engine/KORUSEHybrid.h"
#include "graph/KORUSEGraph.h"
#include "interface/KORUSEMarker.h"
#include "interface/SessionGlobals.h"

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
  KORUSEHybrid& e = *pHybrid;
  KORUSEMarker::m_xMinBBox = KORUSEMarker::m_yMinBBox = 0;
  e.m_roiWidth = 4;
  e.m_roiHeight = 1;
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
