#include "MedialLine.h"

#include "Thinning.h"

#include <opencv2/imgproc.hpp>
#include <algorithm>
#include <cmath>
#include <queue>

namespace {

// The region's principal axis, as a unit vector: cos and sin of
// theta = atan2(2 mu11, mu20 - mu02) / 2.
cv::Point2d longAxis(const cv::Mat& region) {
  const cv::Moments m = cv::moments(region, true);
  const double theta = 0.5 * std::atan2(2.0 * m.mu11, m.mu20 - m.mu02);
  return {std::cos(theta), std::sin(theta)};
}

// Breadth-first over the 8-connected pixels of `skeleton` from `from`; each
// reached pixel's predecessor (its own index for `from`, -1 if unreached).
std::vector<int> walk(const cv::Mat& skeleton, cv::Point from) {
  const int w = skeleton.cols, h = skeleton.rows;
  std::vector<int> previous(static_cast<size_t>(w) * h, -1);
  std::queue<cv::Point> queue;
  previous[from.y * w + from.x] = from.y * w + from.x;
  queue.push(from);
  while (!queue.empty()) {
    const cv::Point p = queue.front();
    queue.pop();
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx) {
        const cv::Point q(p.x + dx, p.y + dy);
        if (q.x < 0 || q.y < 0 || q.x >= w || q.y >= h || !skeleton.at<uchar>(q)) continue;
        int& before = previous[q.y * w + q.x];
        if (before >= 0) continue;
        before = p.y * w + p.x;
        queue.push(q);
      }
  }
  return previous;
}

}  // namespace

std::vector<cv::Point> medialLine(const cv::Mat& region) {
  // A zero frame: thinning leaves the outermost rows and columns alone.
  const cv::Rect box = cv::boundingRect(region);
  cv::Mat framed, skeleton;
  cv::copyMakeBorder(region(box), framed, 1, 1, 1, 1, cv::BORDER_CONSTANT, cv::Scalar(0));
  skeleton = zhangSuenThinning(framed);
  const cv::Point offset = box.tl() - cv::Point(1, 1);

  std::vector<cv::Point> pixels;
  cv::findNonZero(skeleton, pixels);
  if (pixels.empty()) return {};
  const cv::Point2d axis = longAxis(framed);
  const auto along = [&](cv::Point p) { return p.x * axis.x + p.y * axis.y; };
  const cv::Point start = *std::min_element(pixels.begin(), pixels.end(),
                                            [&](cv::Point a, cv::Point b) { return along(a) < along(b); });

  const int w = skeleton.cols;
  const std::vector<int> previous = walk(skeleton, start);
  cv::Point end = start;
  for (const cv::Point& p : pixels)
    if (previous[p.y * w + p.x] >= 0 && along(p) > along(end)) end = p;

  std::vector<cv::Point> line;
  for (int at = end.y * w + end.x;; at = previous[at]) {
    line.push_back(cv::Point(at % w, at / w) + offset);
    if (previous[at] == at) break;
  }
  std::reverse(line.begin(), line.end());
  return line;
}
