// The browser sessions: at most `workers` at once, each with a worker
// process of its own. A session unused for `idle`, or whose page has not
// been heard from for `unheard` (closed without a word, its browser gone),
// is ended; a worker that dies takes nothing with it (Session restores it).
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Session.h"

struct PoolLimits {
  size_t workers = 4;
  std::chrono::seconds idle{600};
  std::chrono::seconds unheard{180};
};

class WorkerPool {
 public:
  WorkerPool(WorkerCommand command, PoolLimits limits, SessionLimits sessionLimits);
  ~WorkerPool();  // ends every session
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // A new session on the photo (its file's bytes), not yet opened; its id,
  // empty when every place is taken. `replaces`, when it names a running
  // session, lends that session's place until the new one is open (the
  // caller then ends the old one), so a page can change photos when all
  // places are in use without giving up the one it has first.
  std::string add(std::string photo, const std::string& replaces = {});
  // The session; null when the id is unknown or the session ended.
  std::shared_ptr<Session> find(const std::string& id);
  // Ends the session (a running edit is cancelled); `why` is what later
  // requests for it are told.
  void end(const std::string& id, const std::string& why);
  // Why a session ended, for one that no longer runs; empty when the id
  // was never given out (or ended long ago).
  std::string whyEnded(const std::string& id);
  // Places taken now.
  size_t inUse();

  const PoolLimits& limits() const { return limits_; }

 private:
  void sweep();  // ends idle sessions and those whose page is gone, until the pool closes
  void remember(const std::string& id, const std::string& why);  // with mutex_ held

  const WorkerCommand command_;
  const PoolLimits limits_;
  const SessionLimits sessionLimits_;
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<Session>> sessions_;
  std::map<std::string, std::string> lending_;  // new session -> the one whose place it shares
  std::map<std::string, std::string> ended_;  // id -> why, the latest few
  std::condition_variable closing_;
  bool closed_ = false;
  std::thread sweeper_;
};
