#include "OurCuts.h"

#include <SegmentationCore.h>

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "tools/host/FreshGenerator.h"
#include "tools/host/Stopwatch.h"

namespace {

// The library writes only 0 and 255 into a host mask: one still holding
// this after the call was not written (no result).
constexpr unsigned char kUntouched = 128;
constexpr uchar kLassoInside = 128;  // trimap: 128 unknown and 255 object lie inside the lasso

// Host mask (0 = object) to object mask (255 = object).
cv::Mat objectFromHost(const std::vector<unsigned char>& host, const Photo& photo) {
  cv::Mat object(photo.height(), photo.width(), CV_8UC1);
  auto out = object.begin<uchar>();
  for (unsigned char h : host) *out++ = h == 0 ? 255 : 0;
  return object;
}

unsigned int* pixelsOf(const Photo& photo) {
  // The library only reads the pixels; its signature predates const.
  return const_cast<unsigned int*>(photo.pixels.data());
}

// The edit's marks and points, then processSegment, or cutOutImage when
// `direct`; the host mask, or kUntouched everywhere without a result.
std::vector<unsigned char> runEdit(const Photo& photo, Edit edit, bool direct = false) {
  restartOpenCvGenerator();
  setCurrentMarkerVector(static_cast<int>(edit.points.size()), edit.points.data());
  setMarkerImage(photo.width(), photo.height(), edit.markers.data(), edit.strokeType);
  std::vector<unsigned char> host(photo.pixels.size(), kUntouched);
  std::vector<unsigned int> preview = photo.pixels;
  if (direct)
    cutOutImage(0, 0, 0, preview.data(), host.data());
  else if (processSegment(0, 0, 0, preview.data(), host.data()) < 0)
    host.assign(host.size(), kUntouched);
  return host;
}

bool takeResult(const std::vector<unsigned char>& host, const Photo& photo, cv::Mat& object) {
  if (host.empty() || host[0] == kUntouched) return false;
  object = objectFromHost(host, photo);
  return true;
}

CutResult resultOf(const std::vector<unsigned char>& host, const Photo& photo, const Stopwatch& clock) {
  CutResult cut;
  cut.cpuMs = clock.cpuMs();
  cut.wallMs = clock.wallMs();
  cut.any = !host.empty() && host[0] != kUntouched;
  cut.object = cut.any ? objectFromHost(host, photo) : cv::Mat::zeros(photo.height(), photo.width(), CV_8UC1);
  return cut;
}

}  // namespace

CutResult ourBoxCut(const Photo& photo, const std::array<int, 4>& box) {
  std::vector<unsigned char> host(photo.pixels.size(), kUntouched);
  restartOpenCvGenerator();
  const Stopwatch clock;
  doSegmentationBB(photo.width(), photo.height(), pixelsOf(photo), box[0], box[1], box[2], box[3], host.data());
  return resultOf(host, photo, clock);
}

Edit lassoEdit(const cv::Mat& trimap) {
  Edit edit;
  const cv::Mat inside = trimap >= kLassoInside;
  edit.markers.resize(trimap.total());
  std::transform(inside.begin<uchar>(), inside.end<uchar>(), edit.markers.begin(),
                 [](uchar in) { return in ? kMarkProbableObject : kMarkNone; });
  std::vector<std::vector<cv::Point>> contours;
  cv::findContours(inside, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
  const std::vector<cv::Point>* largest = nullptr;
  for (const auto& contour : contours)
    if (!largest || cv::contourArea(contour) > cv::contourArea(*largest)) largest = &contour;
  if (largest)
    for (const cv::Point& p : *largest) edit.points.insert(edit.points.end(), {p.x, p.y});
  edit.strokeType = kLoopAdd;
  return edit;
}

CutResult ourLoopCut(const Photo& photo, const Edit& loop) {
  deinitSegmentation();
  const Stopwatch clock;
  setSourceImage(photo.width(), photo.height(), pixelsOf(photo));
  initSegmentationEngine(0);
  const std::vector<unsigned char> host = runEdit(photo, loop);
  return resultOf(host, photo, clock);
}

bool ourEdit(const Photo& photo, const Edit& edit, cv::Mat& object) {
  return takeResult(runEdit(photo, edit), photo, object);
}

bool ourPaint(const Photo& photo, const Edit& edit, cv::Mat& object) {
  return takeResult(runEdit(photo, edit, true), photo, object);
}

void closeOurSession() { deinitSegmentation(); }
