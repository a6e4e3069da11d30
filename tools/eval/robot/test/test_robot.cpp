// The robot user of `cutout eval`: where its corrections go on generated
// scenes whose missed part is known, and how it changes tool when they fail.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "testing/SyntheticScene.h"
#include "tools/eval/robot/RobotUser.h"
#include "tools/host/Marks.h"

namespace {

constexpr int kWidth = 640, kHeight = 480;
const cv::Point kCentre(320, 240);

// The truth of a generated scene: 255 object, 0 background.
template <typename Inside>
cv::Mat truthOf(Inside inside) {
  const Scene scene = makeScene(kWidth, kHeight, inside);
  cv::Mat truth(kHeight, kWidth, CV_8UC1);
  for (size_t i = 0; i < scene.truth.size(); ++i) truth.data[i] = scene.truth[i] ? 255 : 0;
  return truth;
}

// A disc of `radius` object pixels at the centre.
cv::Mat discTruth(double radius) {
  return truthOf([=](int x, int y) { return std::hypot(x - kCentre.x, y - kCentre.y) <= radius; });
}

// The truth with `missed` (drawn in 255) taken out of the object, as a cut
// that missed it would give.
cv::Mat missing(const cv::Mat& truth, const cv::Mat& missed) { return truth & ~missed; }

cv::Mat blank() { return cv::Mat::zeros(kHeight, kWidth, CV_8UC1); }

Correction correct(const cv::Mat& object, const cv::Mat& truth) {
  const std::optional<Correction> c = nextCorrection(object, truth, RobotStyle::Person);
  EXPECT_TRUE(c.has_value());
  return c.value_or(Correction{});
}

// A thin band tilted by 30 degrees, 200 pixels long, missed inside a large
// object: a scribble from one end to the other.
TEST(Robot, ScribbleRunsAlongAMissedBandEndToEnd) {
  const cv::Mat truth = discTruth(200);
  cv::Mat band = blank();
  cv::ellipse(band, kCentre, cv::Size(100, 12), 30, 0, 360, cv::Scalar(255), cv::FILLED);
  const Correction c = correct(missing(truth, band), truth);
  ASSERT_STREQ(gestureName(c.gesture), "scribble");
  EXPECT_TRUE(c.step.add);
  EXPECT_GT(c.step.radius, 0);
  EXPECT_LE(c.step.radius, 6);  // half the band's depth of 12
  for (const cv::Point& p : c.step.points) ASSERT_TRUE(band.at<uchar>(p)) << p;

  // Its ends near the band's two tips: within twice the band's depth, where
  // a dab at the centre would be 100 pixels short.
  const double angle = 30 * CV_PI / 180;
  const cv::Point2d axis(100 * std::cos(angle), 100 * std::sin(angle));
  const cv::Point2d tipA = cv::Point2d(kCentre) - axis, tipB = cv::Point2d(kCentre) + axis;
  const cv::Point2d front(c.step.points.front()), back(c.step.points.back());
  const double ends = std::min(std::max(cv::norm(front - tipA), cv::norm(back - tipB)),
                               std::max(cv::norm(front - tipB), cv::norm(back - tipA)));
  EXPECT_LE(ends, 24.0) << front << " " << back;
}

// A large disc missed inside a larger object: a loop just inside its edge.
TEST(Robot, LoopCirclesALargeCompactMissedPart) {
  const cv::Mat truth = discTruth(220);
  cv::Mat part = blank();
  cv::circle(part, kCentre, 100, cv::Scalar(255), cv::FILLED);
  const Correction c = correct(missing(truth, part), truth);
  ASSERT_STREQ(gestureName(c.gesture), "loop");
  ASSERT_EQ(c.step.kind, StepKind::Loop);
  EXPECT_TRUE(c.step.add);
  const std::vector<cv::Point>& loop = c.step.points;
  ASSERT_GT(loop.size(), 3u);
  // Closed and traced: each point a neighbour of the one before, the last of the first.
  for (size_t i = 0; i < loop.size(); ++i) {
    const cv::Point step = loop[i] - loop[(i + 1) % loop.size()];
    ASSERT_LE(std::max(std::abs(step.x), std::abs(step.y)), 1) << i;
    ASSERT_TRUE(part.at<uchar>(loop[i])) << loop[i];
  }
  EXPECT_GT(cv::pointPolygonTest(loop, c.centre, false), 0);
  EXPECT_EQ(c.centre, kCentre);
  // Pulled in by a few pixels, not shrunk to a speck.
  const double inside = cv::contourArea(loop), whole = CV_PI * 100 * 100;
  EXPECT_LT(inside, 0.97 * whole);
  EXPECT_GT(inside, 0.7 * whole);
}

// Small parts and parts a loop would not fit are scribbled over, also when
// the cut took them wrongly.
TEST(Robot, OnlyLargeCompactPartsGetALoop) {
  const cv::Mat truth = discTruth(150);
  cv::Mat small = blank();
  cv::circle(small, {80, 80}, 40, cv::Scalar(255), cv::FILLED);  // under two fingertips across
  Correction c = correct(truth | small, truth);
  EXPECT_STREQ(gestureName(c.gesture), "scribble");
  EXPECT_FALSE(c.step.add);

  cv::Mat arc = blank();  // thick, but a C: a loop round it would take in its middle
  cv::ellipse(arc, kCentre, cv::Size(230, 230), 0, 180, 360, cv::Scalar(255), 150);
  c = correct(truth | arc, truth);
  EXPECT_STREQ(gestureName(c.gesture), "scribble");
  EXPECT_LE(c.step.radius, fingertipRadius(truth.size()));
}

TEST(Robot, PerfectMaskNeedsNoCorrection) {
  cv::Mat truth = discTruth(150);
  cv::circle(truth, kCentre, 151, cv::Scalar(128), 2);  // mixed border pixels are not scored
  const cv::Mat object = truth == 255;
  EXPECT_FALSE(nextCorrection(object, truth, RobotStyle::Person).has_value());
  const RobotOutcome outcome =
      runRobot(object, truth, RobotStyle::Person, [](const Step&, cv::Mat&) { ADD_FAILURE() << "corrected"; });
  EXPECT_EQ(outcome.strokes, 0);
  EXPECT_TRUE(outcome.given.empty());
}

// The direct tool as a method applies it: the step's hard marks set in the mask.
void paint(const Step& step, cv::Mat& object) {
  ASSERT_EQ(step.kind, StepKind::Cut);
  const Edit edit = markEdit(step, object.cols, object.rows);
  for (size_t i = 0; i < edit.markers.size(); ++i) {
    if (edit.markers[i] == kMarkObject) object.data[i] = 255;
    if (edit.markers[i] == kMarkBackground) object.data[i] = 0;
  }
}

std::vector<std::string> kinds(const RobotOutcome& outcome) {
  std::vector<std::string> names;
  for (const Correction& c : outcome.given) names.push_back(gestureName(c.gesture));
  return names;
}

// A method on which a segmentation fixes next to nothing (the pixel the
// finger first touches): each is a new mask gaining too little, so the loop
// fails, the scribble after it fails, and the third correction paints.
TEST(RobotHabits, AFailedLoopIsFollowedByAScribbleThenByPainting) {
  const cv::Mat truth = discTruth(220);
  cv::Mat part = blank();
  cv::circle(part, kCentre, 100, cv::Scalar(255), cv::FILLED);
  const RobotOutcome outcome =
      runRobot(missing(truth, part), truth, RobotStyle::Person, [](const Step& step, cv::Mat& object) {
        if (step.kind == StepKind::Cut) return paint(step, object);
        object.at<uchar>(step.points.front()) = step.add ? 255 : 0;
      });
  ASSERT_EQ(kinds(outcome), (std::vector<std::string>{"loop", "scribble", "paint"}));
  EXPECT_EQ(outcome.failed, (std::vector<bool>{true, true, false}));
  EXPECT_EQ(outcome.given[1].step.kind, StepKind::Stroke);
  EXPECT_EQ(outcome.given[1].step.radius, fingertipRadius(truth.size()));  // 100 deep: a whole fingertip
  const Step& painted = outcome.given[2].step;
  EXPECT_TRUE(painted.add);
  EXPECT_LT(painted.radius, 0);  // the part's inside, not a brush
  for (const cv::Point& p : painted.points) ASSERT_TRUE(part.at<uchar>(p)) << p;
  EXPECT_EQ(outcome.strokes, 3);
  EXPECT_GE(outcome.iou.back(), kRobotGoalIoU);
}

// Two corrections undoing each other, as two scribbles on an edge a method
// cannot hold: the cut either misses band A or takes band B. Fixing A takes
// B and gains IoU, fixing B brings A back and loses it. Returning to a mask
// seen before fails however much it gains, so the A scribble is not simply
// repeated; each band's tool widens after one failure, and painting B ends it.
TEST(RobotHabits, ARepeatedMaskEndsTheRepeats) {
  const cv::Mat truth = discTruth(120);
  cv::Mat bandA = blank(), bandB = blank();
  cv::ellipse(bandA, kCentre, cv::Size(110, 12), 0, 0, 360, cv::Scalar(255), cv::FILLED);
  cv::ellipse(bandB, {kCentre.x, kCentre.y - 150}, cv::Size(70, 14), 0, 0, 360, cv::Scalar(255), cv::FILLED);
  const cv::Mat missesA = missing(truth, bandA), takesB = truth | bandB;
  const RobotOutcome outcome = runRobot(missesA, truth, RobotStyle::Person, [&](const Step& step, cv::Mat& object) {
    if (step.kind == StepKind::Cut) return paint(step, object);
    object = (cv::countNonZero(object != missesA) == 0 ? takesB : missesA).clone();
  });
  ASSERT_EQ(kinds(outcome), (std::vector<std::string>{"scribble", "scribble", "scribble", "wider scribble",
                                                      "wider scribble", "paint"}));
  EXPECT_EQ(outcome.failed, (std::vector<bool>{false, true, true, true, true, false}));
  EXPECT_GT(outcome.iou[2] - outcome.iou[1], 0.02);  // a gain, yet back to the mask of the first correction
  const std::vector<Correction>& c = outcome.given;
  for (int k : {0, 2, 4}) EXPECT_TRUE(c[k].step.add) << k;  // on A
  for (int k : {1, 3, 5}) EXPECT_FALSE(c[k].step.add) << k;  // on B
  EXPECT_GT(c[3].step.radius, c[1].step.radius);
  EXPECT_GT(c[4].step.radius, c[2].step.radius);
  for (const cv::Point& p : c[4].step.points) ASSERT_TRUE(bandA.at<uchar>(p)) << p;
  EXPECT_EQ(outcome.strokes, 6);
}

}  // namespace
