#include "Session.h"

#include <cstdio>
#include <utility>

using nlohmann::json;

namespace {

std::chrono::steady_clock::rep now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

std::chrono::steady_clock::duration since(std::chrono::steady_clock::rep then) {
  return std::chrono::steady_clock::duration(now() - then);
}

int status(const Message& reply) { return reply.header.value("status", 500); }

// Counts a request in while it waits and runs, if fewer than `limit` are in.
class Waiting {
 public:
  Waiting(std::atomic<size_t>& count, size_t limit) : count_(count), admitted_(++count_ <= limit) {}
  ~Waiting() { --count_; }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;
  bool admitted() const { return admitted_; }

 private:
  std::atomic<size_t>& count_;
  const bool admitted_;
};

// Marks a step as the one a cancel is for, until it is answered.
class PendingStep {
 public:
  PendingStep(std::atomic<uint64_t>& pending, uint64_t number) : pending_(pending), number_(number) {
    if (number_) pending_ = number_;
  }
  ~PendingStep() {
    uint64_t expected = number_;
    if (number_) pending_.compare_exchange_strong(expected, 0);
  }
  PendingStep(const PendingStep&) = delete;
  PendingStep& operator=(const PendingStep&) = delete;

 private:
  std::atomic<uint64_t>& pending_;
  const uint64_t number_;
};

}  // namespace

Session::Session(WorkerCommand command, std::string photo, SessionLimits limits)
    : command_(std::move(command)), photo_(std::move(photo)), limits_(limits), lastUsed_(now()), lastHeard_(now()) {}

Session::Answer Session::open() {
  const Waiting counted(waiting_, 1);
  std::lock_guard<std::mutex> one(queue_);
  Answer answer;
  std::optional<Message> reply = startWorker();
  if (!reply) return answer;
  answer.outcome = Outcome::Replied;
  answer.reply = std::move(*reply);
  lastUsed_ = now();
  return answer;
}

Session::Answer Session::call(const json& request) {
  heard();
  Answer answer = exchange(request);
  if (answer.outcome == Outcome::Lost && closed_) answer.outcome = Outcome::Closed;
  return answer;
}

Session::Answer Session::exchange(const json& request) {
  Answer answer;
  const Waiting counted(waiting_, 1 + limits_.waiting);
  if (!counted.admitted()) {
    answer.outcome = Outcome::Busy;
    return answer;
  }
  const bool step = request.value("op", "") == "step";
  const uint64_t number = step ? ++stepsAsked_ : 0;
  json numbered = request;
  if (step) numbered["seq"] = number;
  const PendingStep pending(pendingStep_, number);
  std::lock_guard<std::mutex> one(queue_);
  const std::string text = step ? request.value("step", "") : std::string();
  if (step && historyFull(text, answer.reply)) {
    answer.outcome = Outcome::Replied;
    return answer;
  }

  std::shared_ptr<WorkerProcess> current = worker();
  const bool fresh = !current || current->exited();  // it died while no request ran
  if (fresh && !restart(answer)) return answer;
  std::optional<Message> reply = worker()->call(numbered);
  if (!reply && !fresh && !closed_) {  // it died on this request
    std::optional<Message> restored = restart(answer);
    if (!restored) return answer;
    if (step) {
      answer.interrupted = true;
      reply = Message{restored->header, {}};
      for (const char* key : {"width", "height", "dropped"}) reply->header.erase(key);
      reply->header.update({{"result", false}, {"cancelled", false}, {"ms", 0}});
    } else {
      reply = worker()->call(numbered);
    }
  }
  if (!reply) return answer;
  if (step && status(*reply) == 200 && reply->header.value("result", false)) {
    kept_.push_back(text);
    keptBytes_ += text.size();
  }
  answer.outcome = Outcome::Replied;
  answer.reply = std::move(*reply);
  lastUsed_ = now();
  return answer;
}

bool Session::cancel() {
  heard();
  const uint64_t step = pendingStep_;
  const auto current = worker();
  if (step == 0 || !current) return false;
  current->cancel(step);
  return true;
}

void Session::heard() { lastHeard_ = now(); }

void Session::close() {
  closed_ = true;
  if (const auto current = worker()) current->stop();
}

std::chrono::steady_clock::duration Session::idleFor() const { return since(lastUsed_); }

std::chrono::steady_clock::duration Session::unheardFor() const { return since(lastHeard_); }

void Session::reap() {
  if (const auto current = worker()) current->exited();
}

std::optional<Message> Session::startWorker() {
  if (closed_) return std::nullopt;
  std::shared_ptr<WorkerProcess> fresh;
  try {
    fresh = std::make_shared<WorkerProcess>(command_);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "playground: %s\n", e.what());
    return std::nullopt;
  }
  std::optional<Message> reply = fresh->call(json{{"op", "open"}, {"steps", kept_}}, photo_);
  if (!reply || status(*reply) != 200) return reply;
  // Steps that changed nothing this time (an edit now over the time limit)
  // are no longer part of what the session shows.
  const std::vector<size_t> dropped = reply->header.value("dropped", std::vector<size_t>());
  for (auto i = dropped.rbegin(); i != dropped.rend(); ++i) {
    if (*i >= kept_.size()) continue;
    keptBytes_ -= kept_[*i].size();
    kept_.erase(kept_.begin() + static_cast<std::ptrdiff_t>(*i));
  }
  std::shared_ptr<WorkerProcess> old;
  {
    std::lock_guard<std::mutex> lock(workerMutex_);
    old = std::exchange(worker_, fresh);
  }
  return reply;  // `old`, dead, is collected here, outside the lock
}

std::optional<Message> Session::restart(Answer& answer) {
  std::optional<Message> reply = startWorker();
  if (!reply || status(*reply) != 200) return std::nullopt;
  std::fprintf(stderr, "playground: a new worker took a session over, %zu steps replayed\n", kept_.size());
  answer.restored = static_cast<int>(kept_.size());
  return reply;
}

std::shared_ptr<WorkerProcess> Session::worker() const {
  std::lock_guard<std::mutex> lock(workerMutex_);
  return worker_;
}

bool Session::historyFull(const std::string& step, Message& refusal) const {
  if (keptBytes_ + step.size() <= limits_.historyBytes) return false;
  refusal = errorReply(413, "This session holds as many steps as it can keep (" +
                                std::to_string(limits_.historyBytes >> 20) +
                                " MB of marks). Download session.json to keep them, then open the photo "
                                "again to go on.");
  return true;
}
