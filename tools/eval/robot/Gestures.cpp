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

Step dabOn(const WrongRegion& region) {
  // Every brush pixel lies within radius + halfLength < depth of the
  // deepest point, so inside the region.
  const int radius = std::min(kDabMaxRadius, static_cast<int>(region.deepest * kRadiusPerDepth));
  const int halfLength =
      std::max(0, std::min(kDabMaxHalfLength, static_cast<int>(region.deepest) - radius - 1));
  std::vector<cv::Point> points{region.centre - cv::Point(halfLength, 0)};
  if (halfLength > 0) points.push_back(region.centre + cv::Point(halfLength, 0));
  return brush(region, radius, points);
}

Step scribbleAlong(const WrongRegion& region, int maxRadius) {
  const int radius = std::min(maxRadius, static_cast<int>(region.deepest * kRadiusPerDepth));
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
