// Lets a second thread stop the edit that the first one runs. The library's
// cancel request outlives the edit (it would stop the next one too), so the
// runner learns from the switch whether one came and then clears it.
#pragma once

#include <mutex>

class CancelSwitch {
 public:
  // Runner: an edit starts / is over. end() is true when a cancel reached it.
  void begin();
  bool end();
  // Any thread: asks the running edit to stop (cancelSegmentation). False
  // when no edit runs; then nothing is asked, so no request lingers.
  bool cancel();

 private:
  std::mutex mutex_;
  bool running_ = false;
  bool cancelled_ = false;
};
