#include "WorkerMain.h"

#include <android/log.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <opencv2/core/utils/logger.hpp>
#include <optional>
#include <thread>

#include "tools/host/Failure.h"
#include "WorkerProtocol.h"
#include "WorkerSession.h"

namespace {

// Requests from the reading thread to the main thread, which alone drives
// the library.
class Inbox {
 public:
  void push(Message message) {
    std::lock_guard<std::mutex> lock(mutex_);
    queue_.push_back(std::move(message));
    ready_.notify_one();
  }
  void close() {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    ready_.notify_one();
  }
  std::optional<Message> pop() {
    std::unique_lock<std::mutex> lock(mutex_);
    ready_.wait(lock, [&] { return closed_ || !queue_.empty(); });
    if (queue_.empty()) return std::nullopt;
    Message message = std::move(queue_.front());
    queue_.pop_front();
    return message;
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<Message> queue_;
  bool closed_ = false;
};

// Answers the requests of one browser session.
class SessionHost {
 public:
  Message handle(const Message& request) {
    const std::string op = request.header.value("op", "");
    if (op == "open") return open(request.header.value("path", ""));
    if (!session_) throw RequestError(409, "No photo is open in this session yet.");
    if (op == "step") return session_->step(request.header.value("step", ""));
    if (op == "file") return session_->file(request.header.value("name", ""));
    if (op == "view") return session_->view(request.header.value("kind", ""), request.header.value("max", 2048));
    throw RequestError(400, "Unknown request \"" + op + "\".");
  }

  // From the reading thread, while handle() may be running.
  void cancel() {
    if (WorkerSession* session = live_.load()) session->cancel();
  }

 private:
  Message open(const std::string& path) {
    if (session_) throw RequestError(409, "This session already has its photo.");
    Photo photo;
    try {
      photo = readPhoto(path);
    } catch (const CutoutError&) {
      throw RequestError(422, "The photo could not be read: it is damaged, or not a JPEG, PNG or WebP image.");
    }
    session_ = std::make_unique<WorkerSession>(std::move(photo));
    live_ = session_.get();
    return {{{"status", 200}, {"width", session_->photo().width()}, {"height", session_->photo().height()}}, {}};
  }

  std::unique_ptr<WorkerSession> session_;
  std::atomic<WorkerSession*> live_{nullptr};
};

Message answer(SessionHost& host, const Message& request) {
  try {
    return host.handle(request);
  } catch (const RequestError& e) {
    return errorReply(e.status, e.what());
  } catch (const std::exception& e) {  // OpenCV, allocation: not the request's fault
    return errorReply(500, std::string("Internal failure in the worker: ") + e.what());
  }
}

}  // namespace

int runWorker(int in, int out) {
  // The server's other descriptors (its sockets) are none of a worker's
  // business, and must close when the server closes them.
  ::close_range(std::max(in, out) + 1, ~0u, 0);
  // The library logs for a phone's log buffer and the decoders complain on
  // stderr; the server's console wants only warnings and errors.
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);

  SessionHost host;
  Inbox inbox;
  std::thread reader([&] {
    while (std::optional<Message> message = readMessage(in)) {
      if (message->header.value("op", "") == "cancel")
        host.cancel();
      else
        inbox.push(std::move(*message));
    }
    // The server ended the session, or is gone: a running edit is for nobody.
    host.cancel();
    inbox.close();
  });
  while (std::optional<Message> request = inbox.pop()) {
    // The server has gone: nothing is left to save, and the reader may
    // still wait on the pipe.
    if (!writeMessage(out, answer(host, *request))) std::_Exit(0);
  }
  reader.join();
  return 0;
}
