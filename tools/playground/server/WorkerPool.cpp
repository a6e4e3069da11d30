#include "WorkerPool.h"

#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>

namespace {

constexpr auto kSweepEvery = std::chrono::seconds(1);
constexpr size_t kEndedKept = 256;

// 128 random bits: a session's id is all that lets a request into it.
std::string newId() {
  std::random_device random;
  char text[33];
  for (int i = 0; i < 4; ++i) std::snprintf(text + 8 * i, 9, "%08x", static_cast<unsigned>(random()));
  return text;
}

// "10 minutes", "90 seconds".
std::string duration(std::chrono::seconds time) {
  const long long s = time.count();
  return s % 60 == 0 && s >= 60 ? std::to_string(s / 60) + " minutes" : std::to_string(s) + " seconds";
}

}  // namespace

WorkerPool::WorkerPool(WorkerCommand command, PoolLimits limits, SessionLimits sessionLimits)
    : command_(std::move(command)), limits_(limits), sessionLimits_(sessionLimits), sweeper_([this] { sweep(); }) {}

WorkerPool::~WorkerPool() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    closing_.notify_all();
  }
  sweeper_.join();
  std::map<std::string, std::shared_ptr<Session>> ending;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ending.swap(sessions_);
  }
  for (auto& [id, session] : ending) session->close();
}

std::string WorkerPool::add(std::string photo, const std::string& replaces) {
  std::lock_guard<std::mutex> lock(mutex_);
  const bool lends = sessions_.count(replaces) > 0 &&
                     std::none_of(lending_.begin(), lending_.end(), [&](const auto& l) { return l.second == replaces; });
  if (!lends && sessions_.size() - lending_.size() >= limits_.workers) return {};
  const std::string id = newId();
  sessions_[id] = std::make_shared<Session>(command_, std::move(photo), sessionLimits_);
  if (lends) lending_[id] = replaces;
  return id;
}

std::shared_ptr<Session> WorkerPool::find(const std::string& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = sessions_.find(id);
  return it == sessions_.end() ? nullptr : it->second;
}

void WorkerPool::end(const std::string& id, const std::string& why) {
  std::shared_ptr<Session> session;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = sessions_.find(id);
    if (it == sessions_.end()) return;
    session = std::move(it->second);
    sessions_.erase(it);
    for (auto l = lending_.begin(); l != lending_.end();)
      l = l->first == id || l->second == id ? lending_.erase(l) : std::next(l);
    remember(id, why);
  }
  session->close();  // a running edit need not finish for nobody
}

std::string WorkerPool::whyEnded(const std::string& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = ended_.find(id);
  return it == ended_.end() ? std::string() : it->second;
}

size_t WorkerPool::inUse() {
  std::lock_guard<std::mutex> lock(mutex_);
  return sessions_.size() - lending_.size();
}

void WorkerPool::remember(const std::string& id, const std::string& why) {
  if (ended_.size() >= kEndedKept) ended_.erase(ended_.begin());
  ended_[id] = why;
}

void WorkerPool::sweep() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!closing_.wait_for(lock, kSweepEvery, [&] { return closed_; })) {
    std::vector<std::pair<std::string, std::string>> ending;  // ended outside the lock: it may take seconds
    for (auto& [id, session] : sessions_) {
      session->reap();
      if (session->busy()) continue;
      if (session->idleFor() > limits_.idle)
        ending.emplace_back(id, "it was not used for " + duration(limits_.idle));
      else if (session->unheardFor() > limits_.unheard)
        ending.emplace_back(id, "its page was closed (nothing was heard from it for " + duration(limits_.unheard) + ")");
    }
    lock.unlock();
    for (const auto& [id, why] : ending) {
      std::fprintf(stderr, "playground: session %.8s ended: %s\n", id.c_str(), why.c_str());
      end(id, why);
    }
    lock.lock();
  }
}
