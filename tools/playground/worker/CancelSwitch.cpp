#include "CancelSwitch.h"

#include <SegmentationCore.h>

#include <algorithm>

void CancelSwitch::begin(uint64_t number) {
  std::lock_guard<std::mutex> lock(mutex_);
  running_ = number;
  cancelled_ = number != 0 && asked_ == number;
}

bool CancelSwitch::end() {
  std::lock_guard<std::mutex> lock(mutex_);
  running_ = 0;
  return cancelled_;
}

bool CancelSwitch::requested() {
  std::lock_guard<std::mutex> lock(mutex_);
  return cancelled_;
}

void CancelSwitch::cancel(uint64_t number) {
  std::lock_guard<std::mutex> lock(mutex_);
  asked_ = std::max(asked_, number);
  if (number == 0 || running_ != number || cancelled_) return;
  cancelled_ = true;
  cancelSegmentation();
}
