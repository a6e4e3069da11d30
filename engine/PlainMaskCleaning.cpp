// The mask cleanings done plainly with flood fills: the reference.
#include <algorithm>

#include "engine/MaskCleaning.h"

namespace {
// A flipped pixel of the stroke cleaning, before and after a stroke point
// has reached its component.
const uchar kFlipped = 127;
const uchar kTouched = 255;

// Sets the 4-connected component of pixels equal to `from` around `seed`
// to `to` (from != to) and returns its size. A scanline fill: one run per
// stack entry, and the stack is the caller's, reused, so that thousands of
// specks cost no allocation each.
int fillComponent(cv::Mat& m, cv::Point seed, uchar from, uchar to, std::vector<cv::Point>& stack) {
  int area = 0;
  stack.clear();
  stack.push_back(seed);
  while (!stack.empty()) {
    const cv::Point p = stack.back();
    stack.pop_back();
    uchar* r = m.ptr<uchar>(p.y);
    if (r[p.x] != from) continue;  // reached through another run meanwhile
    int left = p.x, right = p.x;
    while (left > 0 && r[left - 1] == from) --left;
    while (right + 1 < m.cols && r[right + 1] == from) ++right;
    std::fill(r + left, r + right + 1, to);
    area += right - left + 1;
    for (const int y : {p.y - 1, p.y + 1}) {
      if (y < 0 || y >= m.rows) continue;
      const uchar* n = m.ptr<uchar>(y);
      for (int x = left; x <= right; ++x)
        if (n[x] == from && (x == left || n[x - 1] != from)) stack.push_back(cv::Point(x, y));
    }
  }
  return area;
}

// Calls visit(seed, area) once for every 4-connected component of the
// pixels equal to `value` in m. Components are filled in a 0/255 copy and
// marked visited with 1 there, so any number of them is counted.
template <typename Visit>
void forEachComponent(const cv::Mat& m, uchar value, std::vector<cv::Point>& stack, Visit visit) {
  cv::Mat work = (m == value);
  for (int y = 0; y < work.rows; ++y) {
    const uchar* r = work.ptr<uchar>(y);
    for (int x = 0; x < work.cols; ++x)
      if (r[x] == 255) visit(cv::Point(x, y), fillComponent(work, cv::Point(x, y), 255, 1, stack));
  }
}
}  // namespace

void plainDropIslands(cv::Mat& m) {
  std::vector<cv::Point> stack, fill;
  int largest = 0;
  forEachComponent(m, kObject, stack, [&](cv::Point, int area) { largest = std::max(largest, area); });
  const int threshold = static_cast<int>(largest * kIslandShare);
  forEachComponent(m, kObject, stack, [&](cv::Point seed, int area) {
    if (area < threshold) fillComponent(m, seed, kObject, kBackground, fill);
  });
}

void plainFillPinHoles(cv::Mat& m) {
  std::vector<cv::Point> stack, fill;
  forEachComponent(m, kBackground, stack, [&](cv::Point seed, int area) {
    if (area < kPinHoleLimit) fillComponent(m, seed, kBackground, kObject, fill);
  });
}

void plainStrokeCleaning(cv::Mat& m, const cv::Mat& prev, uchar fill,
                         const std::vector<int32_t>& points) {
  const uchar opposite = static_cast<uchar>(255 - fill);
  std::vector<cv::Point> stack;

  // The pixels the new result flipped towards the stroke's side.
  cv::Mat change(m.size(), CV_8UC1);
  for (int y = 0; y < m.rows; ++y) {
    const uchar* now = m.ptr<uchar>(y);
    const uchar* before = prev.ptr<uchar>(y);
    uchar* c = change.ptr<uchar>(y);
    for (int x = 0; x < m.cols; ++x) c[x] = now[x] == fill && before[x] == opposite ? kFlipped : 0;
  }

  // Keep the flipped components that a stroke point lies on. Points off the
  // mask (and a dangling x) reach nothing.
  for (size_t i = 0; i + 1 < points.size(); i += 2) {
    const int x = points[i], y = points[i + 1];
    if (x < 0 || y < 0 || x >= change.cols || y >= change.rows) continue;
    if (change.at<uchar>(y, x) == kFlipped) fillComponent(change, {x, y}, kFlipped, kTouched, stack);
  }

  for (int y = 0; y < m.rows; ++y) {
    const uchar* before = prev.ptr<uchar>(y);
    const uchar* c = change.ptr<uchar>(y);
    uchar* out = m.ptr<uchar>(y);
    for (int x = 0; x < m.cols; ++x) out[x] = c[x] >= kTouched ? fill : before[x];
  }
}
