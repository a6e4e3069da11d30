#include "support/WorkerPool.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace {

struct Job {
  const std::function<void(int)>* task;
  int count;
  int helpers;                  // workers that may join
  std::atomic<int> next{0};     // the next task to take
  std::atomic<int> finished{0};
};

class Pool {
 public:
  ~Pool() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
    for (std::thread& t : workers_) t.join();
  }

  void run(int count, int threads, const std::function<void(int)>& task) {
    std::lock_guard<std::mutex> turn(callers_);
    Job job;
    job.task = &task;
    job.count = count;
    job.helpers = std::min(threads, count) - 1;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      while (static_cast<int>(workers_.size()) < job.helpers) workers_.emplace_back([this] { work(); });
      job_ = &job;
      joined_ = 0;
      ++generation_;
    }
    wake_.notify_all();
    take(job);
    std::unique_lock<std::mutex> lock(mutex_);
    done_.wait(lock, [&] { return job.finished.load() == count && busy_ == 0; });
    job_ = nullptr;
  }

  // After fork() only the calling thread exists, and a lock a worker held
  // stays held: the child starts afresh, leaving the parent's thread
  // records and locks unused (neither joined nor destroyed).
  void forgetWorkers() {
    new (&mutex_) std::mutex();
    new (&callers_) std::mutex();
    new (&wake_) std::condition_variable();
    new (&done_) std::condition_variable();
    new (&workers_) std::vector<std::thread>();
    job_ = nullptr;
    busy_ = joined_ = 0;
  }

 private:
  static void take(Job& job) {
    for (int i; (i = job.next.fetch_add(1)) < job.count;) {
      (*job.task)(i);
      job.finished.fetch_add(1);
    }
  }

  void work() {
    unsigned seen = 0;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      wake_.wait(lock, [&] { return stopping_ || generation_ != seen; });
      if (stopping_) return;
      seen = generation_;
      if (!job_ || joined_ >= job_->helpers) continue;
      Job& job = *job_;
      ++joined_;
      ++busy_;
      lock.unlock();
      take(job);
      lock.lock();
      --busy_;
      done_.notify_all();
    }
  }

  std::mutex callers_;  // one job at a time
  std::mutex mutex_;
  std::condition_variable wake_, done_;
  std::vector<std::thread> workers_;
  Job* job_ = nullptr;
  unsigned generation_ = 0;
  int joined_ = 0, busy_ = 0;
  bool stopping_ = false;
};

Pool& pool() {
  static Pool* const instance = [] {
    static Pool kept;
    pthread_atfork(nullptr, nullptr, [] { pool().forgetWorkers(); });
    return &kept;
  }();
  return *instance;
}

}  // namespace

void runTasks(int count, int threads, const std::function<void(int)>& task) {
  if (count <= 0) return;
  if (threads <= 1 || count == 1) {
    for (int i = 0; i < count; ++i) task(i);
    return;
  }
  pool().run(count, threads, task);
}

void runRanges(int n, int threads, int grain, const std::function<void(int, int)>& body) {
  if (n <= 0) return;
  const int parts = std::max(1, std::min(threads, (n + std::max(grain, 1) - 1) / std::max(grain, 1)));
  const int size = (n + parts - 1) / parts;
  runTasks(parts, parts, [&](int p) {
    const int first = p * size, last = std::min(n, first + size);
    if (first < last) body(first, last);
  });
}
