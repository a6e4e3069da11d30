#include "PeerCuts.h"

#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include "tools/host/FreshGenerator.h"
#include "tools/host/Stopwatch.h"

namespace {

// cv::grabCut on one thread while it lives; the caller's setting after.
class OneThread {
 public:
  OneThread() : saved_(cv::getNumThreads()) { cv::setNumThreads(1); }
  ~OneThread() { cv::setNumThreads(saved_); }
  OneThread(const OneThread&) = delete;
  OneThread& operator=(const OneThread&) = delete;

 private:
  int saved_;
};

bool runGrabCut(const Photo& photo, PeerState& state, int mode) {
  const OneThread oneThread;
  restartOpenCvGenerator();
  try {
    cv::grabCut(photo.bgr, state.mask, state.rect, state.bgdModel, state.fgdModel, kPeerIterations, mode);
    return true;
  } catch (const cv::Exception&) {  // no object or no background samples left
    return false;
  }
}

cv::Mat objectOf(const cv::Mat& gcMask) {
  return (gcMask == cv::GC_FGD) | (gcMask == cv::GC_PR_FGD);
}

// The edit's marks written over grabCut's mask, each as its GC_ value.
void writeMarks(const Edit& edit, PeerState& state) {
  uchar* mask = state.mask.ptr<uchar>();  // continuous: made by grabCut or peerBoxCut
  for (size_t i = 0; i < edit.markers.size(); ++i) {
    if (edit.markers[i] == kMarkObject) mask[i] = cv::GC_FGD;
    if (edit.markers[i] == kMarkBackground) mask[i] = cv::GC_BGD;
    if (edit.markers[i] == kMarkProbableObject) mask[i] = cv::GC_PR_FGD;
    if (edit.markers[i] == kMarkProbableBackground) mask[i] = cv::GC_PR_BGD;
  }
}

}  // namespace

CutResult peerBoxCut(const Photo& photo, const std::array<int, 4>& box, PeerState& state) {
  state.rect = cv::Rect(cv::Point(box[0], box[1]), cv::Point(box[2] + 1, box[3] + 1));
  state.mask.release();
  state.bgdModel.release();
  state.fgdModel.release();
  CutResult cut;
  const Stopwatch clock;
  cut.any = runGrabCut(photo, state, cv::GC_INIT_WITH_RECT);
  cut.cpuMs = clock.cpuMs();
  cut.wallMs = clock.wallMs();
  if (!cut.any) state.mask = cv::Mat(photo.height(), photo.width(), CV_8UC1, cv::Scalar(cv::GC_BGD));
  cut.object = cut.any ? objectOf(state.mask) : cv::Mat::zeros(photo.height(), photo.width(), CV_8UC1);
  return cut;
}

bool peerEdit(const Photo& photo, const Edit& edit, PeerState& state, cv::Mat& object) {
  writeMarks(edit, state);
  if (!runGrabCut(photo, state, cv::GC_INIT_WITH_MASK)) return false;
  object = objectOf(state.mask);
  return true;
}

void peerPaint(const Edit& edit, PeerState& state, cv::Mat& object) {
  writeMarks(edit, state);
  object = objectOf(state.mask);
}
