#include "Marks.h"

#include <opencv2/imgproc.hpp>

namespace {

std::vector<int> flatten(const std::vector<cv::Point>& points) {
  std::vector<int> xy;
  xy.reserve(points.size() * 2);
  for (const cv::Point& p : points) {
    xy.push_back(p.x);
    xy.push_back(p.y);
  }
  return xy;
}

// The border of a box, clockwise, each corner once: top, right, bottom, left.
std::vector<cv::Point> boxBorder(cv::Point a, cv::Point b) {
  std::vector<cv::Point> border;
  for (int x = a.x; x < b.x; ++x) border.emplace_back(x, a.y);
  for (int y = a.y; y < b.y; ++y) border.emplace_back(b.x, y);
  for (int x = b.x; x > a.x; --x) border.emplace_back(x, b.y);
  for (int y = b.y; y > a.y; --y) border.emplace_back(a.x, y);
  return border;
}

// Every pixel along the polyline, 8-connected, without repeats at the joints.
std::vector<cv::Point> denseLine(const std::vector<cv::Point>& corners, const cv::Mat& image) {
  std::vector<cv::Point> dense{corners.front()};
  for (size_t i = 1; i < corners.size(); ++i) {
    cv::LineIterator it(image, corners[i - 1], corners[i], 8);
    ++it;  // its first pixel is the previous corner, already in
    for (int k = 1; k < it.count; ++k, ++it) dense.push_back(it.pos());
  }
  return dense;
}

void drawBrush(cv::Mat& marks, const std::vector<cv::Point>& line, int radius, int value) {
  if (line.size() == 1) {
    cv::circle(marks, line.front(), radius, cv::Scalar(value), cv::FILLED, cv::LINE_8);
    return;
  }
  const std::vector<std::vector<cv::Point>> lines{line};
  cv::polylines(marks, lines, false, cv::Scalar(value), 2 * radius + 1, cv::LINE_8);
}

void drawInside(cv::Mat& marks, const std::vector<cv::Point>& polygon, int value) {
  const std::vector<std::vector<cv::Point>> polygons{polygon};
  cv::fillPoly(marks, polygons, cv::Scalar(value), cv::LINE_8);
}

}  // namespace

Edit markEdit(const Step& step, int width, int height) {
  Edit edit;
  cv::Mat marks(height, width, CV_8UC1, cv::Scalar(kMarkNone));
  std::vector<cv::Point> points = step.points;
  switch (step.kind) {
    case StepKind::Box:
      marks(cv::Rect(step.points[0], step.points[1] + cv::Point(1, 1))).setTo(kMarkProbableObject);
      points = boxBorder(step.points[0], step.points[1]);
      edit.strokeType = kLoopAdd;
      break;
    case StepKind::Loop:
      // A remove loop means "not this": its inside is background outright.
      drawInside(marks, points, step.add ? kMarkProbableObject : kMarkBackground);
      edit.strokeType = step.add ? kLoopAdd : kLoopRemove;
      break;
    case StepKind::Stroke:
    case StepKind::Cut:
      if (step.radius >= 0) {
        points = denseLine(points, marks);
        drawBrush(marks, points, step.radius, step.add ? kMarkObject : kMarkBackground);
      } else {
        drawInside(marks, points, step.add ? kMarkObject : kMarkBackground);
      }
      edit.strokeType = step.add ? kStrokeAdd : kStrokeRemove;
      break;
    default:
      break;  // undo, redo, reset mark nothing
  }
  edit.markers.assign(marks.begin<uchar>(), marks.end<uchar>());
  edit.points = flatten(points);
  return edit;
}
