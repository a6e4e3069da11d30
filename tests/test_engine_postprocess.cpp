// Result cleaning on masks drawn as text: '#' = object (255), '.' = 0.
// Every expected mask below was drawn by hand from the rules in the comment.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include <random>
#include <string>
#include <vector>

#include "engine/KORUSEHybrid.h"
#include "engine/MaskCleaning.h"
#include "interface/session/KORUSEMarker.h"
#include "support/Marks.h"
#include "support/OwnedImage.h"

using Art = std::vector<std::string>;

static IplImage* maskOf(const Art& art) {
  IplImage* m = cvCreateImage(cvSize(int(art[0].size()), int(art.size())), IPL_DEPTH_8U, 1);
  for (int y = 0; y < m->height; ++y)
    for (int x = 0; x < m->width; ++x) m->imageData[y * m->widthStep + x] = art[y][x] == '#' ? -1 : 0;
  return m;
}

class PostProcess : public ::testing::Test {
 protected:
  void TearDown() override {
    KORUSEMarker::dellocator();
    KORUSEMarker::currentStroke = strokeInfo();
    KORUSEMarker::m_xMinBBox = KORUSEMarker::m_yMinBBox = 0;
    g_imageResizeFactor = 1.0f;
  }
  // The edit: stroke, previous result (none when empty), box in working pixels.
  void edit(int type, std::vector<int> points, const Art& prev, int x0 = 0, int y0 = 0, int w = 0, int h = 0) {
    KORUSEMarker::currentStroke = {points, type};
    releaseImage(&KORUSEMarker::m_prevResult);
    if (!prev.empty()) KORUSEMarker::m_prevResult = maskOf(prev);
    KORUSEMarker::m_xMinBBox = x0, KORUSEMarker::m_yMinBBox = y0;
    engine.m_roiWidth = w, engine.m_roiHeight = h;
  }
  // Runs one step on the drawn mask and draws the result ('?' for neither 0 nor 255).
  Art run(Art art, void (KORUSEHybrid::*step)(IplImage*)) {
    IplImage* m = maskOf(art);
    (engine.*step)(m);
    for (int y = 0; y < m->height; ++y)
      for (int x = 0; x < m->width; ++x) {
        const uint8_t v = uint8_t(m->imageData[y * m->widthStep + x]);
        art[y][x] = v == 255 ? '#' : v == 0 ? '.' : '?';
      }
    cvReleaseImage(&m);
    return art;
  }
  KORUSEHybrid engine;
};

TEST_F(PostProcess, LoopDropsSmallIslandsAndFillsPinHoles) {
  // Big block 64 - 2 - 5 = 57 pixels: threshold (int)5.7 = 5. The 3-pixel
  // speck (x 10) and the pixel touching the block only diagonally at (9,9)
  // go; the 5-pixel speck (x 14) is not below 5 and stays. The 2-pixel hole
  // is filled, the 5-pixel one stays.
  const Art in = {"................", ".########.#...#.", ".########.#...#.", ".##..####.#...#.",
                  ".########.....#.", ".########.....#.", ".#.....##.......", ".########.......",
                  ".########.......", ".........#......", "................"};
  Art out = in;
  out[1][10] = out[2][10] = out[3][10] = out[9][9] = '.', out[3][3] = out[3][4] = '#';
  edit(LOOP_ADD, {}, {});  // first result: nothing to merge with
  EXPECT_EQ(run(in, &KORUSEHybrid::postProcess), out);
  edit(LOOP_REMOVE, {}, {});  // no cleaning at all
  EXPECT_EQ(run(in, &KORUSEHybrid::postProcess), in);

  // 320 one-pixel specks (more than an 8-bit label image counts) above a
  // 64 x 19 block: threshold (int)121.6 = 121, every speck goes.
  Art many(40, std::string(64, '.')), block = many;
  for (int y = 21; y < 40; ++y) many[y] = block[y] = std::string(64, '#');
  for (int i = 0; i < 320; ++i) many[i / 32 * 2][i % 32 * 2] = '#';
  edit(LOOP_ADD, {}, {});
  EXPECT_EQ(run(many, &KORUSEHybrid::postProcessForLoop), block);
}

TEST_F(PostProcess, StrokeKeepsOnlyTheFlipsItTouches) {
  const Art prev = {"..........", ".###......", ".###......", ".###......", "..........", ".........."};
  // Flips to object: A = (4,1),(4,2); B = x 7-8; C = row 5; E = (5,3),
  // only diagonal to A. (2,3) flipped the wrong way. Points: on A twice,
  // on (2,3), three off the mask and a dangling x. Only A survives.
  const Art add = {"..........", ".####..##.", ".####..##.", ".#.#.#.##.", "..........", "##........"};
  edit(STROKE_ADD, {4, 1, 4, 2, 2, 3, -1, 2, 10, 0, 3, 100, 7}, prev);
  EXPECT_EQ(run(add, &KORUSEHybrid::postProcessForStroke),
            Art({"..........", ".####.....", ".####.....", ".###......", "..........", ".........."}));

  // Removing: column 1 (touched at (1,2)) stays removed, (3,3) is reverted,
  // the added (8,5) goes against the stroke and is reverted.
  const Art cut = {"..........", "..##......", "..##......", "..#.......", "..........", "........#."};
  edit(STROKE_REMOVE, {1, 2}, prev);
  EXPECT_EQ(run(cut, &KORUSEHybrid::postProcessForStroke),
            Art({"..........", "..##......", "..##......", "..##......", "..........", ".........."}));

  // Points on pixels the cut left alone: the previous mask comes back,
  // also after the merge over the whole image.
  edit(STROKE_ADD, {0, 0, 2, 2}, prev, 0, 0, 10, 6);
  EXPECT_EQ(run(add, &KORUSEHybrid::postProcess), prev);
}

TEST_F(PostProcess, MergeMovesOnlyInTheEditsDirectionInsideTheBox) {
  const Art prev = {"........", ".####...", ".####...", ".####...", "........", "........"};
  // One solid block: the loop cleaning leaves it alone.
  const Art grown = {"........", ".....###", ".....###", ".....###", ".....###", "........"};
  // Box x 4-6, y 2-3: the block's pixels there are added; (4,2),(4,3) stay
  // object although the new mask dropped them.
  edit(LOOP_ADD, {}, prev, 4, 2, 3, 2);
  EXPECT_EQ(run(grown, &KORUSEHybrid::postProcess),
            Art({"........", ".####...", ".######.", ".######.", "........", "........"}));
  // Factor 2: corner (2,1) size 2x1 is x 4-7, y 2-3 in mask pixels.
  g_imageResizeFactor = 2.0f;
  edit(LOOP_ADD, {}, prev, 2, 1, 2, 1);
  EXPECT_EQ(run(grown, &KORUSEHybrid::postProcess),
            Art({"........", ".####...", ".#######", ".#######", "........", "........"}));
  // Removing loop, box x 4-6, y 2-3: only the removal of (4,2),(4,3)
  // counts; the new object pixel (6,2) is ignored.
  g_imageResizeFactor = 1.0f;
  edit(LOOP_REMOVE, {}, prev, 4, 2, 3, 2);
  const Art removed = {"........", "........", "......#.", "........", "........", "........"};
  EXPECT_EQ(run(removed, &KORUSEHybrid::postProcess),
            Art({"........", ".####...", ".###....", ".###....", "........", "........"}));
  // Empty box: the previous mask.
  edit(LOOP_REMOVE, {}, prev, 4, 2, 0, 2);
  EXPECT_EQ(run(removed, &KORUSEHybrid::postProcess), prev);
}

// Discs of many sizes on background, speckle flipped at rate `noise`, and
// now and then a pixel of another value, which neither cleaning may touch.
static cv::Mat randomMask(std::mt19937& rng, int w, int h, double noise) {
  cv::Mat m = cv::Mat::zeros(h, w, CV_8UC1);
  for (int i = 0; i < 6; ++i)
    cv::circle(m, cv::Point(int(rng() % w), int(rng() % h)), int(rng() % 25), cv::Scalar(255), cv::FILLED);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const double r = u(rng);
      if (r < noise) m.at<uchar>(y, x) = 255 - m.at<uchar>(y, x);
      else if (r > 0.998) m.at<uchar>(y, x) = 7;
    }
  return m;
}

// The run-based cleanings against the plain flood fills, on seeded masks
// from clean to so noisy that the run-based ones hand over to the plain ones.
TEST(MaskCleaning, RunsEqualThePlainFloodFills) {
  std::mt19937 rng(3);
  const std::pair<int, int> sizes[] = {{1, 37}, {37, 1}, {64, 48}, {101, 67}, {200, 150}};
  for (int round = 0; round < 80; ++round) {
    const int w = sizes[round % 5].first, h = sizes[round % 5].second;
    const double noise = round % 4 == 3 ? 0.3 : round % 4 == 2 ? 0.02 : 0.002;
    cv::Mat fast = randomMask(rng, w, h, noise), plain = fast.clone();
    loopCleaning(fast);
    plainDropIslands(plain);
    plainFillPinHoles(plain);
    ASSERT_EQ(cv::countNonZero(fast != plain), 0) << "loop, round " << round;

    const cv::Mat prev = randomMask(rng, w, h, noise);
    const uchar fill = round % 2 ? 255 : 0;
    std::vector<int32_t> points;
    for (int i = 0; i < 9; ++i) points.push_back(int(rng() % (w + 4)) - 2), points.push_back(int(rng() % (h + 4)) - 2);
    points.push_back(1);  // a dangling x
    fast = randomMask(rng, w, h, noise), plain = fast.clone();
    strokeCleaning(fast, prev, fill, points);
    plainStrokeCleaning(plain, prev, fill, points);
    ASSERT_EQ(cv::countNonZero(fast != plain), 0) << "stroke, round " << round;
  }
}
