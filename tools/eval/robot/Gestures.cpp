#include "Gestures.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "MedialLine.h"

namespace {

constexpr double kRadiusPerDepth = 0.5;  // brush radius as a share of the region's depth
constexpr int kDabMaxRadius = 12;        // the dab's own cap, whatever the photo
constexpr int kDabMaxHalfLength = 3;     // a short dab: at most 7 pixels end to end

Step brush(const WrongRegion& region, int radius, std::vector<cv::Point> points) {
  Step stroke;
  stroke.kind = StepKind::Stroke;
  stroke.add = region.missed;
  stroke.radius = radius;
  stroke.points = std::move(points);
  return stroke;
}

// Whether a brush of `radius` centred on `p` stays inside the region.
bool brushFits(const WrongRegion& region, int radius, cv::Point p) {
  return region.depth.at<float>(p) >= radius + 1;
}

}  // namespace

const char* gestureName(Gesture gesture) {
  switch (gesture) {
    case Gesture::Dab:
      return "dab";
    case Gesture::Scribble:
      return "scribble";
    case Gesture::WiderScribble:
      return "wider scribble";
    case Gesture::Loop:
      return "loop";
    case Gesture::Paint:
      return "paint";
  }
  return "?";
}

Step dabOn(const WrongRegion& region) {
  // Every brush pixel lies within radius + halfLength < depth of the
  // deepest point, so inside the region.
  const int radius = scribbleRadius(region, kDabMaxRadius);
  const int halfLength =
      std::max(0, std::min(kDabMaxHalfLength, static_cast<int>(region.deepest) - radius - 1));
  std::vector<cv::Point> points{region.centre - cv::Point(halfLength, 0)};
  if (halfLength > 0) points.push_back(region.centre + cv::Point(halfLength, 0));
  return brush(region, radius, points);
}

int scribbleRadius(const WrongRegion& region, int maxRadius) {
  return std::min(maxRadius, static_cast<int>(region.deepest * kRadiusPerDepth));
}

int widerRadius(const WrongRegion& region, int previous) {
  const int widest = std::max(previous, static_cast<int>(region.deepest) - 1);  // see brushFits
  return std::min(widest, std::max(2 * previous, previous + 1));
}

Step scribbleAlong(const WrongRegion& region, int radius) {
  const std::vector<cv::Point> line = medialLine(region.pixels);
  const auto fits = [&](cv::Point p) { return brushFits(region, radius, p); };
  const auto first = std::find_if(line.begin(), line.end(), fits);
  const auto last = std::find_if(line.rbegin(), line.rend(), fits).base();
  if (first >= last) return brush(region, radius, {region.centre});
  return brush(region, radius, std::vector<cv::Point>(first, last));
}

Step loopInside(const WrongRegion& region, double pull) {
  cv::Mat inner = region.depth > pull;
  cv::floodFill(inner, region.centre, cv::Scalar(128), nullptr, cv::Scalar(), cv::Scalar(), 8);
  const cv::Mat part = inner == 128;
  std::vector<std::vector<cv::Point>> outlines;
  cv::findContours(part, outlines, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
  Step loop;
  loop.kind = StepKind::Loop;
  loop.add = region.missed;
  loop.points = outlines.empty() ? std::vector<cv::Point>{region.centre} : outlines.front();
  return loop;
}

Step paintOver(const WrongRegion& region, double pull, int radius) {
  Step paint = region.deepest > pull ? loopInside(region, pull) : scribbleAlong(region, radius);
  paint.kind = StepKind::Cut;
  return paint;
}
