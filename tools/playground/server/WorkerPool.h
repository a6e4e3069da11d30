// The browser sessions and their worker processes: one worker per session,
// at most `workers` at once. A worker unused for `idle` is ended; one that
// dies takes only its own session with it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "WorkerProcess.h"

struct PoolLimits {
  size_t workers = 4;
  std::chrono::seconds idle{600};
};

class WorkerPool {
 public:
  // `exe` is this program, started again with --worker.
  WorkerPool(std::string exe, PoolLimits limits);
  ~WorkerPool();  // ends every worker
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Starts a worker for a new session and returns the session's id; empty
  // when every place is taken. Throws std::runtime_error if it cannot start.
  std::string start();
  // The session's worker; null when the id is unknown or the session ended.
  std::shared_ptr<WorkerProcess> find(const std::string& id);
  // Ends the session (its worker stops once a running call is answered);
  // `why` is what later requests for it are told.
  void end(const std::string& id, const std::string& why);
  // Why a session ended, for one that no longer runs; empty when the id
  // was never given out (or ended long ago).
  std::string whyEnded(const std::string& id);

  const PoolLimits& limits() const { return limits_; }

 private:
  void sweep();  // ends idle and exited workers, until the pool closes
  void remember(const std::string& id, const std::string& why);  // with mutex_ held

  const std::string exe_;
  const PoolLimits limits_;
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<WorkerProcess>> sessions_;
  std::map<std::string, std::string> ended_;  // id -> why, the latest few
  std::condition_variable closing_;
  bool closed_ = false;
  std::thread sweeper_;
};
