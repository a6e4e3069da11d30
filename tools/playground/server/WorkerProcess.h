// One worker process, seen from the server: this program started again with
// --worker, its requests on one pipe and its replies on another.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "tools/playground/worker/WorkerProtocol.h"

// How a worker is started: this program again, with --worker.
struct WorkerCommand {
  std::string exe;
  int threads = 1;  // for each segmentation (setSegmentationThreads)
};

class WorkerProcess {
 public:
  // Starts `exe --worker --threads N`. Throws std::runtime_error when it cannot.
  explicit WorkerProcess(const WorkerCommand& command);
  // Ends the process: closes its pipes, which it takes as the end, and
  // kills it if it has not exited within two seconds.
  ~WorkerProcess();
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  // Sends a request and waits for its reply, one caller at a time. Empty
  // when the process died (crashed or was killed) before replying.
  std::optional<Message> call(const nlohmann::json& header, std::string_view payload = {});
  // Sends "cancel" for edit `number` at once, also while a call waits for
  // its reply.
  void cancel(uint64_t number);

  pid_t pid() const { return pid_; }

  // Whether a call is under way / how long since the last one ended.
  bool busy() const { return calls_ > 0; }
  std::chrono::steady_clock::duration idleFor() const;
  // Whether the process has exited (it is then reaped).
  bool exited();
  // Kills the process now; a call waiting for its reply then returns empty.
  void stop();

 private:
  void reap(bool wait);

  pid_t pid_ = -1;
  int to_ = -1, from_ = -1;
  std::mutex call_, write_, reap_;
  bool reaped_ = false;
  std::atomic<int> calls_{0};
  std::atomic<std::chrono::steady_clock::rep> lastUsed_;
};
