// One browser session, seen from the server: the photo it was opened with
// (its file's bytes, held in memory only), the steps that made what it
// shows, and the worker process that edits it. Its requests reach the
// worker one at a time and only a few may wait; a worker that dies is
// replaced and the steps are replayed into the new one, so a crash costs at
// most the edit that was running.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "WorkerProcess.h"

struct SessionLimits {
  size_t waiting = 2;                  // requests that may queue behind the running one
  size_t historyBytes = 16u << 20;     // the text of the steps a session keeps
};

class Session {
 public:
  Session(WorkerCommand command, std::string photo, SessionLimits limits);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  enum class Outcome {
    Replied,  // `reply` is the worker's (or the session's own refusal)
    Busy,     // too many requests wait already; nothing was sent
    Lost,     // the worker died and a new one could not take the session over
    Closed,   // the session was ended meanwhile
  };
  struct Answer {
    Outcome outcome = Outcome::Lost;
    Message reply;
    int restored = -1;         // steps replayed into a new worker first; -1: none was needed
    bool interrupted = false;  // the worker died running this step, which was not run again
  };

  // Starts the first worker and opens the photo in it; the reply has the
  // photo's size, or says why it cannot be opened.
  Answer open();
  // A request for the worker ("step", "view" or "file"). A step the worker
  // died on is not run again, since it may be what killed it: the reply is
  // then what the restored session shows, "result": false. Other requests
  // are sent again to the new worker.
  Answer call(const nlohmann::json& request);
  // Stops the step that runs or waits, at once (any thread); false when
  // there is none.
  bool cancel();
  // The page is still there (every request counts, as does its heartbeat).
  void heard();
  // Ends the session: its worker is killed at once, a request waiting for
  // it is answered Closed, and none is started again.
  void close();

  bool busy() const { return waiting_ > 0; }
  std::chrono::steady_clock::duration idleFor() const;
  std::chrono::steady_clock::duration unheardFor() const;
  // Collects a worker that exited, so that no zombie stays behind.
  void reap();

 private:
  Answer exchange(const nlohmann::json& request);  // call(), but for Closed
  // With queue_ held: a new worker, given the photo and the kept steps; its
  // reply. restart() also counts the replayed steps into `answer`.
  std::optional<Message> startWorker();
  std::optional<Message> restart(Answer& answer);
  std::shared_ptr<WorkerProcess> worker() const;
  bool historyFull(const std::string& step, Message& refusal) const;

  const WorkerCommand command_;
  const std::string photo_;
  const SessionLimits limits_;
  std::mutex queue_;  // held by the request at the worker
  std::atomic<size_t> waiting_{0};
  std::atomic<bool> closed_{false};
  // Steps are numbered, so that a cancel reaches the one the page waits
  // for even while it still waits behind another request.
  std::atomic<uint64_t> stepsAsked_{0}, pendingStep_{0};
  mutable std::mutex workerMutex_;
  std::shared_ptr<WorkerProcess> worker_;
  std::vector<std::string> kept_;  // steps that changed something, as sent; with queue_ held
  size_t keptBytes_ = 0;
  std::atomic<std::chrono::steady_clock::rep> lastUsed_, lastHeard_;
};
