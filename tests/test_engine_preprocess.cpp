// Grey test, texture planes and region tightening on small generated images
// whose answers were worked out by hand (see each comment).
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "engine/KORUSEHybrid.h"
#include "interface/session/KORUSEMarker.h"
#include "support/Marks.h"
#include "support/OwnedImage.h"

using Pixel = std::function<CvScalar(int x, int y)>;

static IplImage* image(int w, int h, const Pixel& at) {
  IplImage* img = cvCreateImage(cvSize(w, h), IPL_DEPTH_8U, 3);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) cvSet2D(img, y, x, at(x, y));
  return img;
}
static CvScalar grey(int v) { return cvScalar(v, v, v); }
static int at(const IplImage* img, int x, int y) {
  return uint8_t(img->imageData[y * img->widthStep + x * img->nChannels]);
}

class PreProcess : public ::testing::Test {
 protected:
  void TearDown() override {
    KORUSEMarker::dellocator();
    KORUSEMarker::m_xMinBBox = KORUSEMarker::m_yMinBBox = 0;
  }
  // Working image, labels all `label`, region at (x0, y0) of w x h.
  void session(IplImage* src, int label, int x0, int y0, int w, int h) {
    KORUSEMarker::dellocator();
    KORUSEMarker::m_srcImage = src;
    KORUSEMarker::m_labelImage = cvCreateImage(cvGetSize(src), IPL_DEPTH_8U, 1);
    cvSet(KORUSEMarker::m_labelImage, cvScalarAll(label));
    KORUSEMarker::m_xMinBBox = x0, KORUSEMarker::m_yMinBBox = y0;
    engine.m_roiWidth = w, engine.m_roiHeight = h;
  }
  // The region is (x0, y0) w x h; labels are 1 where inFrame(x, y), else `other`.
  void expect(int x0, int y0, int w, int h, const std::function<bool(int, int)>& inFrame, int other) {
    EXPECT_EQ(std::vector<int>({KORUSEMarker::m_xMinBBox, KORUSEMarker::m_yMinBBox, engine.m_roiWidth,
                                engine.m_roiHeight}),
              std::vector<int>({x0, y0, w, h}));
    const IplImage* l = KORUSEMarker::m_labelImage;
    for (int y = 0; y < l->height; ++y)
      for (int x = 0; x < l->width; ++x) ASSERT_EQ(at(l, x, y), inFrame(x, y) ? 1 : other) << x << "," << y;
  }
  KORUSEHybrid engine;
};

TEST_F(PreProcess, GreyScaleTest) {
  // Three grey pixels and one `odd` at (1,1): the mean spread is the odd
  // pixel's |c0 - c1| + |c0 - c2| over 4.
  const auto isGrey = [&](CvScalar odd) {
    IplImage* img = image(2, 2, [&](int x, int y) { return x && y ? odd : grey(40 * x + y); });
    const bool result = engine.greyScaleTest(img);
    cvReleaseImage(&img);
    return result;
  };
  EXPECT_TRUE(isGrey(grey(9)));               // 0
  EXPECT_TRUE(isGrey(cvScalar(10, 12, 9)));   // 3 / 4
  EXPECT_FALSE(isGrey(cvScalar(10, 12, 8)));  // 4 / 4 = 1.0 exactly: colour
  EXPECT_FALSE(isGrey(cvScalar(10, 4, 16)));  // 12 / 4
  EXPECT_TRUE(engine.greyScaleTest(nullptr));
}

TEST_F(PreProcess, TexturePlanes) {
  // First channel I below; the second channel of column 1 is 7, 27, 3 by
  // row, all else 0. Hor = |I(x+1) - I(x)|, last column |I(W-2) - I(W-1)|;
  // ver = |I(y) - I(y-1)|, row 0 |I(1) - I(0)|; (0, W-1) stays 0. The last
  // column of ver reads byte offset 4 = column 1's second channel:
  // |7 - 27| = 20 and |27 - 3| = 24 (the first channel would give 10, 155).
  const int I[3][5] = {{10, 20, 40, 70, 110}, {15, 15, 30, 90, 100}, {0, 50, 50, 50, 255}};
  const int c1[3] = {7, 27, 3};
  const int hor[3][5] = {{10, 20, 30, 40, 0}, {0, 15, 60, 10, 10}, {50, 0, 0, 205, 205}};
  const int ver[3][5] = {{5, 5, 10, 20, 0}, {5, 5, 10, 20, 20}, {15, 35, 20, 40, 24}};
  KORUSEMarker::m_srcImage =
      image(5, 3, [&](int x, int y) { return cvScalar(I[y][x], x == 1 ? c1[y] : 0, 0); });
  engine.computeTexture();
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x) {
      EXPECT_EQ(at(KORUSEMarker::m_texHor, x, y), hor[y][x]) << x << "," << y;
      EXPECT_EQ(at(KORUSEMarker::m_texVer, x, y), ver[y][x]) << x << "," << y;
    }
  // A 1 x 1 image: one zero pixel in each plane.
  releaseImage(&KORUSEMarker::m_srcImage);
  KORUSEMarker::m_srcImage = image(1, 1, [](int, int) { return grey(77); });
  engine.computeTexture();
  ASSERT_EQ(KORUSEMarker::m_texHor->width * KORUSEMarker::m_texVer->height, 1);
  EXPECT_EQ(at(KORUSEMarker::m_texHor, 0, 0) + at(KORUSEMarker::m_texVer, 0, 0), 0);
}

TEST_F(PreProcess, ShrinksToTheStructuredCentre) {
  // Region (5,5) 40 x 40 of a 50 x 50 image; crop coordinates below. Grey
  // 88 left of column 14, 100 from there, a ramp 102, 104, ... from column
  // 24, and a 200 square at 17..22 in both directions. Sobel spreads the
  // square one pixel, so every round tightens to 16..23 each way (the step
  // and the ramp alone stay under 5 per row: 128 / 40; their columns are
  // constant downwards). Growing: left 16|15 and up/down are flat (0 <
  // 0.5); right steps of 2 walk to the last column 39. Sides: left moves 2
  // (14|13 differ by 12 > 10), right is at the border, top and bottom move
  // the full 5. R = x 14..39, y 11..28; its border and all outside -> 1.
  const auto grey100 = [](int x, int y) {
    if (x >= 17 && x <= 22 && y >= 17 && y <= 22) return 200;
    return x < 14 ? 88 : x < 24 ? 100 : 102 + 2 * (x - 24);
  };
  session(image(50, 50, [&](int x, int y) { return grey(grey100(x - 5, y - 5)); }), MARK_OBJECT, 5,
          5, 40, 40);
  engine.preProcess();
  expect(5 + 14, 5 + 11, 26, 18, [](int x, int y) {
    const bool inOld = x >= 5 && x < 45 && y >= 5 && y < 45;
    x -= 5, y -= 5;
    return inOld && (x <= 14 || x >= 39 || y <= 11 || y >= 28);
  }, MARK_OBJECT);
}

TEST_F(PreProcess, FlatRegionsAndBlackBands) {
  // A flat region (black outside it, which the crop never sees): no row has
  // structure, the scans run off the ends, nothing changes.
  session(image(30, 30, [](int x, int y) { return grey(x >= 3 && y >= 4 ? 100 : 0); }), 0, 3, 4,
          20, 20);
  engine.preProcess();
  expect(3, 4, 20, 20, [](int, int) { return false; }, 0);

  // Region (2,3) 30 x 20 whose first 10 columns have a zero first channel
  // (the other two are not zero: only the first counts). left = 10,
  // right = 29, top = 0, bottom = 19; the band, column 10 and the span's
  // outer rows and column 29 become 1. The rest is flat: no tightening.
  session(image(40, 30, [](int x, int) { return x >= 2 && x < 12 ? cvScalar(0, 60, 60) : grey(100); }),
          0, 2, 3, 30, 20);
  engine.preProcess();
  expect(12, 3, 20, 20, [](int x, int y) {
    return x >= 2 && x < 32 && y >= 3 && y < 23 && (x <= 12 || x >= 31 || y <= 3 || y >= 22);
  }, 0);
}
