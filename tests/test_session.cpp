#include <gtest/gtest.h>
#include <opencv2/imgproc/imgproc_c.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>
#include <set>
#include <thread>
#include <utility>

#include "interface/BoxMarks.h"
#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SessionFixture.h"
#include "support/Marks.h"
#include "support/OwnedImage.h"
#include "testing/LogCapture.h"
#include "testing/SyntheticScene.h"

using Point = std::pair<int, int>;

// The outline polygons of the last result, as fetch_path_array lays them out.
static std::vector<std::vector<Point>> fetchOutline() {
  int* array = nullptr;
  int length = -1;
  EXPECT_EQ(fetch_path_array(&array, &length), 0);
  std::vector<std::vector<Point>> polygons;
  int k = 1;
  for (int c = 0; c < array[0]; ++c) {
    int n = array[k++];
    std::vector<Point> poly;
    for (int i = 0; i < n; ++i, k += 2) poly.push_back({array[k], array[k + 1]});
    EXPECT_EQ(array[k++], -1);
    polygons.push_back(poly);
  }
  EXPECT_EQ(k, length);
  delete[] array;
  return polygons;
}

TEST_F(SessionTest, SquareObjectGivesFourCornerOutline) {
  open(9, 9);
  HostMask mask = blankMask();
  Pixels preview = photo_;
  cut(3, 3, 5, 5, 2, &mask, &preview);  // MARK_OBJECT on a 3 x 3 square

  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 9; ++x)
      EXPECT_EQ(mask[y * 9 + x], (x >= 3 && x <= 5 && y >= 3 && y <= 5) ? 0 : 255) << x << "," << y;

  // Only pixels on or next to the square's border turn yellow.
  int yellow = 0;
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 9; ++x) {
      if (preview[y * 9 + x] != 0xFFFFFF00u) {
        EXPECT_EQ(preview[y * 9 + x], photo_[y * 9 + x]);
        continue;
      }
      ++yellow;
      EXPECT_TRUE(x >= 2 && x <= 6 && y >= 2 && y <= 6) << x << "," << y;
    }
  EXPECT_GT(yellow, 0);

  auto outline = fetchOutline();
  ASSERT_EQ(outline.size(), 1u);
  std::set<Point> corners(outline[0].begin(), outline[0].end());
  EXPECT_EQ(outline[0].size(), 4u);
  EXPECT_EQ(corners, (std::set<Point>{{3, 3}, {5, 3}, {5, 5}, {3, 5}}));
  EXPECT_TRUE(fetchOutline().empty());  // consumed by the first fetch
}

TEST_F(SessionTest, RingGivesTwoContoursAndOnePixelGivesOnePoint) {
  open(11, 11);
  cut(2, 2, 8, 8, 2);
  cut(4, 4, 6, 6, 1);  // clear a hole: MARK_BACKGROUND
  Pixels preview = photo_;
  // Re-deliver the ring through the history to get its outline.
  cut(0, 0, 0, 0, 3, nullptr, &preview);  // probable marks change nothing
  auto ring = fetchOutline();
  ASSERT_EQ(ring.size(), 2u);
  if (ring[0].size() > ring[1].size()) std::swap(ring[0], ring[1]);
  // The outer square keeps its 4 corners. The hole's border runs through the
  // object pixels 4-adjacent to the hole, so its corners are cut: 8 points.
  EXPECT_EQ(std::set<Point>(ring[0].begin(), ring[0].end()),
            (std::set<Point>{{2, 2}, {8, 2}, {8, 8}, {2, 8}}));
  EXPECT_EQ(std::set<Point>(ring[1].begin(), ring[1].end()),
            (std::set<Point>{{4, 3}, {6, 3}, {7, 4}, {7, 6}, {6, 7}, {4, 7}, {3, 6}, {3, 4}}));

  resetSegmentationInterface();
  cut(7, 1, 7, 1, 2, nullptr, &preview);
  int* array = nullptr;
  int length = 0;
  fetch_path_array(&array, &length);
  ASSERT_EQ(length, 5);
  EXPECT_EQ(std::vector<int>(array, array + 5), (std::vector<int>{1, 1, 7, 1, -1}));
  delete[] array;
}

TEST_F(SessionTest, MarkersSaturateInsteadOfWrapping) {
  open(4, 4);
  cut(0, 0, 3, 3, 2);  // everything object
  // 257 would wrap to 1 (background) and -254 to 2; saturated they are
  // 255 and 0, which leave the mask alone.
  HostMask mask = blankMask();
  cut(0, 0, 3, 1, 257, &mask);
  cut(0, 2, 3, 3, -254, &mask);
  EXPECT_EQ(mask, blankMask(0));
  EXPECT_EQ(canUndo(), 1);  // three entries, each a full-object mask
}

TEST_F(SessionTest, StrokePointsAreClampedInTheCallersArray) {
  open(10, 6);
  int xy[] = {-5, 2, 3, -1, 12, 7, 9, 5};
  setCurrentMarkerVector(8, xy);
  const int clamped[] = {0, 2, 3, 0, 9, 5, 9, 5};
  EXPECT_TRUE(std::equal(xy, xy + 8, clamped));
  EXPECT_EQ(KORUSEMarker::currentStroke.points, std::vector<int32_t>(clamped, clamped + 8));
  setCurrentMarkerVector(0, nullptr);
  EXPECT_TRUE(KORUSEMarker::currentStroke.points.empty());
}

TEST_F(SessionTest, BoxTracesItsBorderClockwise) {
  Pixels photo = gradientPhoto(6, 5);
  HostMask mask(30, 77);
  doSegmentationBB(6, 5, photo.data(), 1, 1, 3, 2, mask.data());
  EXPECT_EQ(KORUSEMarker::currentStroke.points,
            (std::vector<int32_t>{1, 1, 2, 1, 3, 1, 3, 2, 2, 2, 1, 2}));
  EXPECT_EQ(KORUSEMarker::currentStroke.type, 0);
  EXPECT_NE(pHybrid, nullptr);
}

TEST_F(SessionTest, ProcessWithoutResultShowsThePhoto) {
  open(4, 3);
  Pixels preview(12, 0);
  HostMask mask = blankMask(9);
  EXPECT_EQ(processSegment(0, 0, 0, preview.data(), mask.data()), 0);
  EXPECT_EQ(preview, opaque(photo_));
  EXPECT_EQ(mask, blankMask(9));
}

TEST_F(SessionTest, CancelThenExitTearsTheSessionDown) {
  open(4, 3);
  EXPECT_EQ(exitSegmentation(), 0);  // no cancel yet: nothing pending
  cancelSegmentation();              // cancel alone does not tear down
  EXPECT_EQ(processSegment(0, 0, 0, nullptr, nullptr), 0);
  EXPECT_NE(pHybrid, nullptr);
  initSegmentationEngine(0);         // a new engine clears the flag
  EXPECT_FALSE(KORUSEMarker::m_exitApp);

  std::thread other([] { EXPECT_EQ(cancelSegmentation(), 1); });
  other.join();
  EXPECT_EQ(exitSegmentation(), 1);
  Pixels preview(12, 0);
  EXPECT_EQ(processSegment(0, 0, 0, preview.data(), nullptr), -1);
  EXPECT_EQ(preview, opaque(photo_));
  EXPECT_EQ(pHybrid, nullptr);
  EXPECT_EQ(KORUSEMarker::m_originalImage, nullptr);
  EXPECT_EQ(canUndo(), 0);
}

// Which call tore the session down decides what a later plain cancel means:
// processSegment leaves g_exitStatus set (the host saw -1 and must start
// afresh), cutOutImage, undo and redo clear it.
TEST_F(SessionTest, ExitStatusAfterEachKindOfTeardown) {
  const std::vector<int> marks(12, 2);
  const struct {
    const char* call;
    int statusAfter;
    int laterCancelledEdit;  // processSegment's answer in the next session
  } kinds[] = {{"processSegment", 1, -1}, {"cutOutImage", 0, 0}, {"undo", 0, 0}, {"redo", 0, 0}};
  for (const auto& kind : kinds) {
    SCOPED_TRACE(kind.call);
    open(4, 3);
    std::vector<int> copy = marks;
    setMarkerImage(4, 3, copy.data(), STROKE_ADD_TYPE);
    cancelSegmentation();
    exitSegmentation();
    const std::string call = kind.call;
    if (call == "processSegment") EXPECT_EQ(processSegment(0, 0, 0, nullptr, nullptr), -1);
    if (call == "cutOutImage") cutOutImage(0, 0, 0, nullptr, nullptr);
    if (call == "undo") undo(nullptr, nullptr);
    if (call == "redo") redo(nullptr, nullptr);
    EXPECT_EQ(pHybrid, nullptr);
    EXPECT_EQ(g_exitStatus, kind.statusAfter);

    // A new session, an edit pending, a plain cancel (no exit).
    open(4, 3);
    copy = marks;
    setMarkerImage(4, 3, copy.data(), STROKE_ADD_TYPE);
    cancelSegmentation();
    Pixels preview(12, 0);
    EXPECT_EQ(processSegment(0, 0, 0, preview.data(), nullptr), kind.laterCancelledEdit);
    EXPECT_EQ(preview, opaque(photo_));
    EXPECT_EQ(pHybrid == nullptr, kind.laterCancelledEdit == -1);
    g_exitStatus = 0;
  }
}

TEST_F(SessionTest, UndefinedCallsAreLoggedAndTouchNothing) {
  LogCapture log;
  HostMask mask(12, 9);
  Pixels preview(12, 5);
  int marks[12] = {2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2};
  int xy[] = {1, 1};

  // Before any photo.
  setMarkerImage(4, 3, marks, 0);
  cutOutImage(0, 0, 0, preview.data(), mask.data());
  undo(preview.data(), mask.data());
  redo(preview.data(), mask.data());
  processSegment(0, 0, 0, preview.data(), mask.data());
  setCurrentMarkerVector(2, xy);
  initSegmentationEngine(0);
  fetch_path_array(nullptr, nullptr);
  setSourceImage(0, 3, nullptr);
  setSourceImage(4, 3, nullptr);
  EXPECT_EQ(mask, HostMask(12, 9));
  EXPECT_EQ(preview, Pixels(12, 5));

  // With a photo: marks of the wrong size, no marks, odd point counts.
  open(4, 3);
  setMarkerImage(3, 3, marks, 0);
  cutOutImage(0, 0, 0, preview.data(), mask.data());
  setMarkerImage(0, 3, marks, 0);
  setMarkerImage(4, 3, nullptr, 0);
  int odd[] = {9, 9, 9};
  setCurrentMarkerVector(3, odd);
  EXPECT_EQ(KORUSEMarker::currentStroke.points, (std::vector<int32_t>{3, 2}));
  EXPECT_EQ(mask, HostMask(12, 9));
  EXPECT_EQ(preview, Pixels(12, 5));
  EXPECT_EQ(canUndo(), 0);

  // A second photo without deinitSegmentation: the old engine is dropped, so
  // an edit yields no result instead of a mask of the old size.
  Pixels bigger = gradientPhoto(8, 6);
  setSourceImage(8, 6, bigger.data());
  int bigMarks[48] = {};
  setMarkerImage(8, 6, bigMarks, 0);
  HostMask big(48, 9);
  processSegment(0, 0, 0, nullptr, big.data());
  EXPECT_EQ(big, HostMask(48, 9));

  EXPECT_TRUE(log.contains({ANDROID_LOG_ERROR, "Error", "MEMORY_CRASH : setSourceImage 115"}));
  // Both of setMarkerImage's size checks speak, in order.
  const std::vector<LogLine> lines = log.lines();
  const auto first = std::find(lines.begin(), lines.end(),
                               LogLine{ANDROID_LOG_ERROR, "Error", "MEMORY_CRASH : setMarkerImage 164"});
  ASSERT_TRUE(first != lines.end() && first + 1 != lines.end());
  EXPECT_EQ(first[1], (LogLine{ANDROID_LOG_ERROR, "Error", "MEMORY_CRASH : setMarkerImage 173"}));
}

// The box marks as they were made before: an int buffer filled box-wise
// (clipped, nothing for an inverted box) and converted to 8 bits.
static IplImage* boxMarksViaInts(int w, int h, int x1, int y1, int x2, int y2) {
  std::vector<int> marks(size_t(w) * h, 0);
  if (x2 >= x1 && y2 >= y1)
    for (int y = std::max(y1, 0); y <= std::min(y2, h - 1); ++y)
      for (int x = std::max(x1, 0); x <= std::min(x2, w - 1); ++x) marks[size_t(y) * w + x] = 4;
  IplImage view;
  cvInitImageHeader(&view, cvSize(w, h), IPL_DEPTH_32S, 1);
  cvSetData(&view, marks.data(), w * int(sizeof(int)));
  IplImage* out = cvCreateImage(cvSize(w, h), IPL_DEPTH_8U, 1);
  cvConvertScale(&view, out, 1.0, 0.0);
  return out;
}

TEST(BoxMarks, EqualTheIntBufferConversion) {
  const int w = 7, h = 5;  // rows padded to 8 bytes
  const int boxes[][4] = {{1, 1, 3, 2}, {0, 0, 6, 4}, {2, 3, 2, 3}, {-3, -2, 2, 1},  {4, 2, 9, 8},
                          {-5, 1, 20, 3}, {1, -4, 3, 10}, {3, 1, 1, 2}, {1, 3, 2, 1}, {8, 0, 9, 4},
                          {0, 6, 6, 7},  {-4, -4, -1, -1}};
  for (const auto& b : boxes) {
    IplImage* direct = boxMarkerImage(w, h, b[0], b[1], b[2], b[3]);
    IplImage* reference = boxMarksViaInts(w, h, b[0], b[1], b[2], b[3]);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        ASSERT_EQ(direct->imageData[y * direct->widthStep + x], reference->imageData[y * reference->widthStep + x])
            << "box " << b[0] << "," << b[1] << "," << b[2] << "," << b[3] << " at " << x << "," << y;
    cvReleaseImage(&direct);
    cvReleaseImage(&reference);
  }
}

// doSegmentationBB keeps no preview, yet its mask and outline are those of
// the same edit sent through the exported calls with a preview.
TEST_F(SessionTest, BoxCutMatchesTheSameEditSentByHand) {
  const Scene scene = discScene(90, 70);
  Pixels photo = scene.pixels;
  for (const auto& b : {std::array<int, 4>{20, 10, 70, 60}, std::array<int, 4>{-10, 5, 60, 90}}) {
    HostMask viaBox(photo.size(), 77), byHand(photo.size(), 77);
    doSegmentationBB(90, 70, photo.data(), b[0], b[1], b[2], b[3], viaBox.data());
    const auto boxOutline = fetchOutline();

    open(90, 70, photo);
    std::vector<int> marks(photo.size(), 0);
    for (int y = std::max(b[1], 0); y <= std::min(b[3], 69); ++y)
      for (int x = std::max(b[0], 0); x <= std::min(b[2], 89); ++x) marks[y * 90 + x] = 4;
    const int x1 = std::max(b[0], 0), y1 = std::max(b[1], 0), x2 = std::min(b[2], 89), y2 = std::min(b[3], 69);
    std::vector<int> loop;
    for (int x = x1; x < x2; ++x) loop.insert(loop.end(), {x, y1});
    for (int y = y1; y < y2; ++y) loop.insert(loop.end(), {x2, y});
    for (int x = x2; x > x1; --x) loop.insert(loop.end(), {x, y2});
    for (int y = y2; y > y1; --y) loop.insert(loop.end(), {x1, y});
    edit(loop, marks, 0, &byHand);
    EXPECT_EQ(viaBox, byHand);
    EXPECT_NE(std::count(viaBox.begin(), viaBox.end(), 0), 0);
    EXPECT_EQ(boxOutline, fetchOutline());
    deinitSegmentation();
  }
}

// The outline as it was found and drawn before: on a copy of the whole mask
// and into an image of the whole photo.
static std::pair<std::vector<std::vector<Point>>, Pixels> wholeImageOutline(const IplImage* mask, Pixels preview) {
  IplImage* scratch = cvCloneImage(mask);
  CvMemStorage* store = cvCreateMemStorage(0);
  CvSeq* first = nullptr;
  cvFindContours(scratch, store, &first, sizeof(CvContour), CV_RETR_LIST, CV_CHAIN_APPROX_SIMPLE, cvPoint(0, 0));
  IplImage* drawn = cvCreateImage(cvGetSize(mask), IPL_DEPTH_8U, 1);
  cvSetZero(drawn);
  if (first) cvDrawContours(drawn, first, cvScalarAll(255), cvScalarAll(255), 255, 2, 16, cvPoint(0, 0));
  std::vector<std::vector<Point>> polygons;
  for (CvSeq* c = first; c; c = c->h_next) {
    polygons.emplace_back();
    for (int i = 0; i < c->total; ++i) {
      const CvPoint* p = reinterpret_cast<const CvPoint*>(cvGetSeqElem(c, i));
      polygons.back().push_back({p->x, p->y});
    }
  }
  for (int y = 0; y < mask->height; ++y)
    for (int x = 0; x < mask->width; ++x)
      if (uint8_t(drawn->imageData[y * drawn->widthStep + x]) == 255) preview[size_t(y) * mask->width + x] = 0xFFFFFF00u;
  cvReleaseImage(&drawn);
  cvReleaseImage(&scratch);
  cvReleaseMemStorage(&store);
  return {polygons, preview};
}

// Found and drawn only around the object, the outline is still that of the
// whole photo: objects at the edges, thin slanted lines, specks, holes,
// values other than 255, photos smaller than the drawing margin. The host
// mask on the way.
TEST_F(SessionTest, OutlineAroundTheObjectEqualsTheWholeImageOne) {
  std::mt19937 rng(11);
  const std::pair<int, int> sizes[] = {{1, 1}, {1, 40}, {40, 1}, {20, 15}, {97, 61}, {300, 200}};
  for (int round = 0; round < 60; ++round) {
    const int w = sizes[round % 6].first, h = sizes[round % 6].second;
    open(w, h);
    IplImage* mask = cvCreateImage(cvSize(w, h), IPL_DEPTH_8U, 1);
    cvSetZero(mask);
    for (int i = 0; i < int(rng() % 4); ++i) {
      const CvPoint a = cvPoint(int(rng() % (w + 10)) - 5, int(rng() % (h + 10)) - 5);
      const CvPoint b = cvPoint(int(rng() % (w + 10)) - 5, int(rng() % (h + 10)) - 5);
      const int kind = rng() % 3;
      if (kind == 0) cvRectangle(mask, a, b, cvScalarAll(255), CV_FILLED);
      if (kind == 1) cvLine(mask, a, b, cvScalarAll(rng() % 2 ? 255 : 9), 1, 8, 0);
      if (kind == 2) cvCircle(mask, a, int(rng() % 30), cvScalarAll(0), CV_FILLED);
    }
    if (rng() % 2) mask->imageData[(rng() % h) * mask->widthStep + rng() % w] = -1;
    const auto expected = wholeImageOutline(mask, gradientPhoto(w, h));
    for (const bool goesNext : {false, true}) {
      resultMask = cvCloneImage(mask);
      Pixels preview = gradientPhoto(w, h);
      if (goesNext) {
        HostMask host(size_t(w) * h, 77);
        loadMaskImageInfo(host.data());  // 0 exactly where the result is 255
        for (int y = 0; y < h; ++y)
          for (int x = 0; x < w; ++x)
            ASSERT_EQ(host[size_t(y) * w + x], uint8_t(mask->imageData[y * mask->widthStep + x]) == 255 ? 0 : 255);
        deliverOutlineAndRelease(preview.data());
        EXPECT_EQ(resultMask, nullptr);
      } else {
        loadBlendedImageInfo(preview.data());
        releaseImage(&resultMask);
      }
      ASSERT_EQ(fetchOutline(), expected.first) << "round " << round;
      ASSERT_EQ(preview, expected.second) << "round " << round;
    }
    cvReleaseImage(&mask);
  }
}

// An image kept from one edit for the next must not outlive its photo: a
// larger photo handed over without deinitSegmentation gets images of its
// own size (a kept small one would be overrun).
TEST_F(SessionTest, KeptImagesFollowThePhoto) {
  open(6, 4);
  cut(0, 0, 2, 2, 2);
  cut(1, 1, 3, 3, 2);  // two edits: their mask and marks are kept
  photo_ = gradientPhoto(9, 7);
  w_ = 9, h_ = 7;
  setSourceImage(9, 7, photo_.data());
  initSegmentationEngine(0);
  HostMask mask = blankMask();
  cut(0, 0, 8, 6, 2, &mask);
  EXPECT_EQ(mask, blankMask(0));
  cut(2, 1, 8, 6, 1, &mask);
  for (int y = 0; y < 7; ++y)
    for (int x = 0; x < 9; ++x) ASSERT_EQ(mask[y * 9 + x], (x >= 2 && y >= 1) ? 255 : 0) << x << "," << y;
  freeLocalBuffers();
  cut(0, 0, 0, 0, 2, &mask);
  EXPECT_EQ(mask[0], 0);
  EXPECT_EQ(mask[9 * 7 - 1], 255);
}
