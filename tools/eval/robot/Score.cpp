#include "Score.h"

namespace {
constexpr uchar kTruthObject = 255;
constexpr uchar kTruthBackground = 0;

bool scored(uchar truth) { return truth == kTruthObject || truth == kTruthBackground; }
}  // namespace

double errorPercent(const cv::Mat& object, const cv::Mat& truth, cv::Rect area) {
  const cv::Rect whole(0, 0, truth.cols, truth.rows);
  area = area.empty() ? whole : (area & whole);
  long long counted = 0, wrong = 0;
  for (int y = area.y; y < area.br().y; ++y) {
    const uchar* t = truth.ptr<uchar>(y);
    const uchar* m = object.ptr<uchar>(y);
    for (int x = area.x; x < area.br().x; ++x) {
      if (!scored(t[x])) continue;
      ++counted;
      wrong += (m[x] != 0) != (t[x] == kTruthObject);
    }
  }
  return counted ? 100.0 * static_cast<double>(wrong) / static_cast<double>(counted) : 0.0;
}

double scoredIoU(const cv::Mat& object, const cv::Mat& truth) {
  long long both = 0, either = 0;
  for (int y = 0; y < truth.rows; ++y) {
    const uchar* t = truth.ptr<uchar>(y);
    const uchar* m = object.ptr<uchar>(y);
    for (int x = 0; x < truth.cols; ++x) {
      if (!scored(t[x])) continue;
      const bool inMask = m[x] != 0, inTruth = t[x] == kTruthObject;
      both += inMask && inTruth;
      either += inMask || inTruth;
    }
  }
  return either ? static_cast<double>(both) / static_cast<double>(either) : 1.0;
}

void wrongPixels(const cv::Mat& object, const cv::Mat& truth, cv::Mat& missed, cv::Mat& extra) {
  missed = cv::Mat::zeros(truth.size(), CV_8UC1);
  extra = cv::Mat::zeros(truth.size(), CV_8UC1);
  for (int y = 0; y < truth.rows; ++y) {
    const uchar* t = truth.ptr<uchar>(y);
    const uchar* m = object.ptr<uchar>(y);
    uchar* miss = missed.ptr<uchar>(y);
    uchar* ext = extra.ptr<uchar>(y);
    for (int x = 0; x < truth.cols; ++x) {
      if (t[x] == kTruthObject && m[x] == 0) miss[x] = 255;
      if (t[x] == kTruthBackground && m[x] != 0) ext[x] = 255;
    }
  }
}
