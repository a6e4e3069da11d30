#include "WorkerPool.h"

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

WorkerPool::WorkerPool(std::string exe, PoolLimits limits)
    : exe_(std::move(exe)), limits_(limits), sweeper_([this] { sweep(); }) {}

WorkerPool::~WorkerPool() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    closing_.notify_all();
  }
  sweeper_.join();
  std::map<std::string, std::shared_ptr<WorkerProcess>> ending;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ending.swap(sessions_);
  }
  for (auto& [id, worker] : ending) worker->cancel();
}

std::string WorkerPool::start() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (sessions_.size() >= limits_.workers) return {};
  const std::string id = newId();
  sessions_[id] = std::make_shared<WorkerProcess>(exe_);
  return id;
}

std::shared_ptr<WorkerProcess> WorkerPool::find(const std::string& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = sessions_.find(id);
  return it == sessions_.end() ? nullptr : it->second;
}

void WorkerPool::end(const std::string& id, const std::string& why) {
  std::shared_ptr<WorkerProcess> worker;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = sessions_.find(id);
    if (it == sessions_.end()) return;
    worker = std::move(it->second);
    sessions_.erase(it);
    remember(id, why);
  }
  worker->cancel();  // a running edit need not finish for nobody
}

std::string WorkerPool::whyEnded(const std::string& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = ended_.find(id);
  return it == ended_.end() ? std::string() : it->second;
}

void WorkerPool::remember(const std::string& id, const std::string& why) {
  if (ended_.size() >= kEndedKept) ended_.erase(ended_.begin());
  ended_[id] = why;
}

void WorkerPool::sweep() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!closing_.wait_for(lock, kSweepEvery, [&] { return closed_; })) {
    std::vector<std::shared_ptr<WorkerProcess>> ending;  // ended outside the lock: it may take seconds
    for (auto it = sessions_.begin(); it != sessions_.end();) {
      WorkerProcess& worker = *it->second;
      const bool idle = !worker.busy() && worker.idleFor() > limits_.idle;
      if (idle || worker.exited()) {
        remember(it->first, idle ? "it was not used for " + duration(limits_.idle)
                                 : "its worker process stopped (it crashed or was killed)");
        std::fprintf(stderr, "playground: session %.8s ended: %s\n", it->first.c_str(), ended_[it->first].c_str());
        ending.push_back(std::move(it->second));
        it = sessions_.erase(it);
      } else {
        ++it;
      }
    }
    lock.unlock();
    ending.clear();
    lock.lock();
  }
}
