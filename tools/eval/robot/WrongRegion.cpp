#include "WrongRegion.h"

#include <opencv2/imgproc.hpp>

#include "Score.h"

namespace {

// The largest 8-connected part of `wrong` (255 inside, area set); area 0
// when there is none.
WrongRegion largestPart(const cv::Mat& wrong) {
  cv::Mat labels, stats, centroids;
  const int count = cv::connectedComponentsWithStats(wrong, labels, stats, centroids, 8, CV_32S);
  WrongRegion best;
  int bestLabel = 0;
  for (int label = 1; label < count; ++label) {
    const int area = stats.at<int>(label, cv::CC_STAT_AREA);
    if (area > best.area) {
      best.area = area;
      bestLabel = label;
    }
  }
  if (best.area > 0) best.pixels = labels == bestLabel;
  return best;
}

}  // namespace

std::optional<WrongRegion> largestWrongRegion(const cv::Mat& object, const cv::Mat& truth) {
  cv::Mat missed, extra;
  wrongPixels(object, truth, missed, extra);
  WrongRegion missedPart = largestPart(missed), extraPart = largestPart(extra);
  if (missedPart.area == 0 && extraPart.area == 0) return std::nullopt;
  missedPart.missed = true;
  extraPart.missed = false;
  WrongRegion region = missedPart.area >= extraPart.area ? missedPart : extraPart;

  // A zero frame makes the photo's edge an edge of the region too.
  cv::Mat framed, distance;
  cv::copyMakeBorder(region.pixels, framed, 1, 1, 1, 1, cv::BORDER_CONSTANT, cv::Scalar(0));
  cv::distanceTransform(framed, distance, cv::DIST_L2, cv::DIST_MASK_PRECISE);
  region.depth = distance(cv::Rect(1, 1, region.pixels.cols, region.pixels.rows)).clone();
  cv::minMaxLoc(region.depth, nullptr, &region.deepest, nullptr, &region.centre);
  return region;
}
