#include "Thinning.h"

namespace {

// One sub-iteration: marks, then removes, the border pixels whose removal
// keeps the region connected. With the neighbours p2 (north) clockwise to
// p9 (north-west): A = the 0 -> 1 steps around p2 .. p9, p2; B = their sum.
// Pass 0 removes south-east border pixels (p2 p4 p6 = 0 and p4 p6 p8 = 0),
// pass 1 north-west ones (p2 p4 p8 = 0 and p2 p6 p8 = 0). Returns whether
// any pixel went.
bool thinningPass(cv::Mat& image, int pass) {
  cv::Mat marker = cv::Mat::zeros(image.size(), CV_8U);
  for (int y = 1; y < image.rows - 1; ++y) {
    const uchar* above = image.ptr<uchar>(y - 1);
    const uchar* row = image.ptr<uchar>(y);
    const uchar* below = image.ptr<uchar>(y + 1);
    uchar* mark = marker.ptr<uchar>(y);
    for (int x = 1; x < image.cols - 1; ++x) {
      if (!row[x]) continue;
      const int p2 = above[x], p3 = above[x + 1], p4 = row[x + 1], p5 = below[x + 1];
      const int p6 = below[x], p7 = below[x - 1], p8 = row[x - 1], p9 = above[x - 1];
      const int a = (!p2 && p3) + (!p3 && p4) + (!p4 && p5) + (!p5 && p6) + (!p6 && p7) +
                    (!p7 && p8) + (!p8 && p9) + (!p9 && p2);
      const int b = p2 + p3 + p4 + p5 + p6 + p7 + p8 + p9;
      const int m1 = pass == 0 ? p2 * p4 * p6 : p2 * p4 * p8;
      const int m2 = pass == 0 ? p4 * p6 * p8 : p2 * p6 * p8;
      if (a == 1 && b >= 2 && b <= 6 && !m1 && !m2) mark[x] = 1;
    }
  }
  image &= ~marker;
  return cv::countNonZero(marker) > 0;
}

}  // namespace

cv::Mat zhangSuenThinning(const cv::Mat& region) {
  cv::Mat image = (region != 0) / 255;  // 0 and 1
  for (bool changed = true; changed;) {
    const bool first = thinningPass(image, 0);
    const bool second = thinningPass(image, 1);
    changed = first || second;
  }
  return image * 255;
}
