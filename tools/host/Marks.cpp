#include "Marks.h"

#include <algorithm>
#include <cstdlib>
#include <opencv2/imgproc.hpp>

namespace {

// Roughly this many pixels are painted between two questions to a
// FillControl: a few milliseconds' work, whatever the brush's width.
constexpr double kPixelsPerPiece = 1 << 22;
constexpr size_t kMaxSegmentsPerPiece = 4096;

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

bool stopped(const FillControl* control) { return control && control->stop && control->stop(); }

// The line drawn 2 * radius + 1 wide, in pieces of a few segments. OpenCV
// draws a thick polyline segment by segment, each with the disc at its end
// (the first also at its start); a piece that starts where the last one
// ended draws the same disc there again, so the pieces paint exactly the
// pixels of the whole polyline.
bool drawBrush(cv::Mat& marks, const std::vector<cv::Point>& line, int radius, int value,
               const FillControl* control) {
  if (stopped(control)) return false;
  if (line.size() == 1) {
    cv::circle(marks, line.front(), radius, cv::Scalar(value), cv::FILLED, cv::LINE_8);
    return true;
  }
  const double width = 2.0 * radius + 1.0;
  const size_t piece = std::clamp<size_t>(static_cast<size_t>(kPixelsPerPiece / (width * width)), 1,
                                          kMaxSegmentsPerPiece);
  for (size_t start = 0; start + 1 < line.size(); start += piece) {
    if (start > 0 && stopped(control)) return false;
    const size_t end = std::min(line.size(), start + piece + 1);
    const std::vector<std::vector<cv::Point>> part{{line.begin() + start, line.begin() + end}};
    cv::polylines(marks, part, false, cv::Scalar(value), 2 * radius + 1, cv::LINE_8);
  }
  return true;
}

void drawInside(cv::Mat& marks, const std::vector<cv::Point>& polygon, int value) {
  const std::vector<std::vector<cv::Point>> polygons{polygon};
  cv::fillPoly(marks, polygons, cv::Scalar(value), cv::LINE_8);
}

std::optional<Edit> fill(const Step& step, int width, int height, const FillControl* control) {
  Edit edit;
  // Drawn straight into the ints the library takes: no second photo-sized image.
  edit.markers.assign(static_cast<size_t>(width) * height, kMarkNone);
  cv::Mat marks(height, width, CV_32SC1, edit.markers.data());
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
        if (!drawBrush(marks, points, step.radius, step.add ? kMarkObject : kMarkBackground, control))
          return std::nullopt;
      } else {
        drawInside(marks, points, step.add ? kMarkObject : kMarkBackground);
      }
      edit.strokeType = step.add ? kStrokeAdd : kStrokeRemove;
      break;
    default:
      break;  // undo, redo, reset mark nothing
  }
  if (stopped(control)) return std::nullopt;
  edit.points = flatten(points);
  return edit;
}

}  // namespace

Edit markEdit(const Step& step, int width, int height) { return *fill(step, width, height, nullptr); }

std::optional<Edit> markEdit(const Step& step, int width, int height, const FillControl& control) {
  return fill(step, width, height, &control);
}

size_t tracedPoints(const Step& step) {
  switch (step.kind) {
    case StepKind::Box: {
      const long long w = step.points[1].x - static_cast<long long>(step.points[0].x);
      const long long h = step.points[1].y - static_cast<long long>(step.points[0].y);
      return static_cast<size_t>(2 * std::max(w, 0ll) + 2 * std::max(h, 0ll));
    }
    case StepKind::Stroke:
    case StepKind::Cut: {
      if (step.radius < 0) return step.points.size();
      size_t n = 1;  // 8-connected: one pixel per step along the longer axis
      for (size_t i = 1; i < step.points.size(); ++i)
        n += static_cast<size_t>(std::max(std::llabs(step.points[i].x - static_cast<long long>(step.points[i - 1].x)),
                                          std::llabs(step.points[i].y - static_cast<long long>(step.points[i - 1].y))));
      return n;
    }
    case StepKind::Loop:
      return step.points.size();
    default:
      return 0;
  }
}
