#include "CancelSwitch.h"

#include <SegmentationCore.h>

void CancelSwitch::begin() {
  std::lock_guard<std::mutex> lock(mutex_);
  running_ = true;
  cancelled_ = false;
}

bool CancelSwitch::end() {
  std::lock_guard<std::mutex> lock(mutex_);
  running_ = false;
  return cancelled_;
}

bool CancelSwitch::cancel() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!running_) return false;
  cancelled_ = true;
  cancelSegmentation();
  return true;
}
