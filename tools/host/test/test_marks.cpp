// Marks as the host hands them to the library: a brush drawn in pieces
// paints what OpenCV's one polyline paints, the traced length is known
// before drawing, and a fill can be stopped between its pieces.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "tools/host/Marks.h"

namespace {

Step brush(StepKind kind, bool add, int radius, std::vector<cv::Point> points) {
  Step step;
  step.kind = kind;
  step.add = add;
  step.radius = radius;
  step.points = std::move(points);
  return step;
}

std::vector<cv::Point> pointsOf(const Edit& edit) {
  std::vector<cv::Point> points;
  for (size_t i = 0; i + 1 < edit.points.size(); i += 2) points.emplace_back(edit.points[i], edit.points[i + 1]);
  return points;
}

}  // namespace

// The reference is cv::polylines over the trace markEdit hands the library,
// drawn in one call: pieces that met badly would leave gaps or blobs.
TEST(Marks, ABrushDrawnInPiecesPaintsWhatOnePolylinePaints) {
  const int w = 700, h = 500;
  const std::vector<cv::Point> zigzag = {{20, 30}, {680, 60}, {40, 470}, {650, 480}, {350, 10}};
  for (int radius : {0, 1, 4, 40, 300}) {
    for (bool add : {true, false}) {
      const Edit edit = markEdit(brush(StepKind::Stroke, add, radius, zigzag), w, h);
      cv::Mat expected(h, w, CV_32SC1, cv::Scalar(kMarkNone));
      const std::vector<std::vector<cv::Point>> line{pointsOf(edit)};
      cv::polylines(expected, line, false, cv::Scalar(add ? kMarkObject : kMarkBackground), 2 * radius + 1, cv::LINE_8);
      const cv::Mat got(h, w, CV_32SC1, const_cast<int*>(edit.markers.data()));
      EXPECT_EQ(cv::countNonZero(got != expected), 0) << "radius " << radius;
      EXPECT_EQ(edit.strokeType, add ? kStrokeAdd : kStrokeRemove);
    }
  }
}

TEST(Marks, TracedPointsIsWhatTheLibraryIsHanded) {
  const std::vector<cv::Point> corners = {{5, 5}, {60, 9}, {61, 70}, {3, 40}};
  Step box;
  box.points = {{10, 20}, {50, 35}};
  const Step steps[] = {box,
                        brush(StepKind::Stroke, true, 3, corners),
                        brush(StepKind::Stroke, false, 0, {{7, 7}}),
                        brush(StepKind::Cut, true, 2, corners),
                        brush(StepKind::Cut, false, -1, corners),
                        brush(StepKind::Loop, true, -1, corners)};
  // By hand: the box's border is 2 * (40 + 15); the strokes' traces are
  // 1 + 55 + 61 + 58 pixels long (the longer axis of each segment).
  const size_t expected[] = {110, 175, 1, 175, 4, 4};
  for (size_t i = 0; i < std::size(steps); ++i) {
    EXPECT_EQ(tracedPoints(steps[i]), expected[i]) << i;
    EXPECT_EQ(markEdit(steps[i], 80, 80).points.size(), 2 * expected[i]) << i;
  }
}

TEST(Marks, AStoppedFillGivesNoMarksAndStopsAtOnce) {
  const Step wide = brush(StepKind::Stroke, true, 300, {{100, 100}, {900, 700}});
  int asked = 0;
  const FillControl stopSecond{[&] { return ++asked == 2; }};
  EXPECT_FALSE(markEdit(wide, 1000, 800, stopSecond));
  EXPECT_EQ(asked, 2) << "the fill went on drawing after it was told to stop";

  asked = 0;
  const FillControl never{[&] { return ++asked < 0; }};
  const auto drawn = markEdit(wide, 1000, 800, never);
  ASSERT_TRUE(drawn);
  EXPECT_GT(asked, 10) << "a wide brush on a long trace must be asked between its pieces";
  EXPECT_EQ(drawn->markers, markEdit(wide, 1000, 800).markers);
}
