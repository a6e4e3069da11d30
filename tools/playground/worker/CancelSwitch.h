// Lets a second thread stop the edit that the first one runs. The library's
// cancel request outlives the edit (it would stop the next one too), so the
// runner learns from the switch whether one came and then clears it.
//
// Edits are numbered by the server. A cancel names the edit it is for: one
// that comes before its edit has begun (the edit still waits behind another
// request, or behind the clean-up of the last one) stops it as it begins,
// and one for an edit long over stops nothing.
#pragma once

#include <cstdint>
#include <mutex>

class CancelSwitch {
 public:
  // Runner: edit `number` starts (0: one no cancel can reach) / is over.
  // end() is true when a cancel reached it.
  void begin(uint64_t number);
  bool end();
  // Runner, while the edit runs: whether a cancel has come for it.
  bool requested();
  // Any thread: asks edit `number` to stop (cancelSegmentation when it
  // runs). No request lingers in the library for an edit that is not running.
  void cancel(uint64_t number);

 private:
  std::mutex mutex_;
  uint64_t running_ = 0;  // the running edit's number; 0 when none runs
  uint64_t asked_ = 0;    // the latest edit a cancel was for
  bool cancelled_ = false;
};
