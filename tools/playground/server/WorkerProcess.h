// One worker process, seen from the server: this program started again with
// --worker, its requests on one pipe and its replies on another.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "tools/playground/worker/WorkerProtocol.h"

class WorkerProcess {
 public:
  // Starts `exe --worker`. Throws std::runtime_error when it cannot.
  explicit WorkerProcess(const std::string& exe);
  // Ends the process: closes its pipes, which it takes as the end, and
  // kills it if it has not exited within two seconds.
  ~WorkerProcess();
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  // Sends a request and waits for its reply, one caller at a time. Empty
  // when the process died (crashed or was killed) before replying.
  std::optional<Message> call(const Message& request);
  // Sends "cancel" at once, also while a call waits for its reply.
  void cancel();

  // Whether a call is under way / how long since the last one ended.
  bool busy() const { return calls_ > 0; }
  std::chrono::steady_clock::duration idleFor() const;
  // Whether the process has exited (it is then reaped).
  bool exited();

 private:
  void reap(bool wait);

  pid_t pid_ = -1;
  int to_ = -1, from_ = -1;
  std::mutex call_, write_, reap_;
  bool reaped_ = false;
  std::atomic<int> calls_{0};
  std::atomic<std::chrono::steady_clock::rep> lastUsed_;
};
