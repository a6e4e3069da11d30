#include "WorkerMain.h"

#include <SegmentationCore.h>
#include <android/log.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <opencv2/core/utils/logger.hpp>
#include <thread>

#include "tools/host/Failure.h"
#include "tools/host/Photo.h"
#include "WorkerProtocol.h"
#include "WorkerSession.h"

using nlohmann::json;

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
  Message pop() {
    std::unique_lock<std::mutex> lock(mutex_);
    ready_.wait(lock, [&] { return !queue_.empty(); });
    Message message = std::move(queue_.front());
    queue_.pop_front();
    return message;
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<Message> queue_;
};

// Answers the requests of one browser session.
class SessionHost {
 public:
  Message handle(const Message& request) {
    const std::string op = request.header.value("op", "");
    if (op == "open") return open(request);
    if (!session_) throw RequestError(409, "No photo is open in this session yet.");
    if (op == "step") return session_->step(request.header.value("step", ""), request.header.value("seq", 0ull));
    if (op == "file") return session_->file(request.header.value("name", ""));
    if (op == "view") return session_->view(request.header.value("kind", ""), request.header.value("max", 2048));
    throw RequestError(400, "Unknown request \"" + op + "\".");
  }

  // After the reply to a request is written: the work it left, then the
  // memory it freed given back, so an idle worker holds only its session.
  void afterReply() {
    if (session_) session_->afterReply();
    malloc_trim(0);
  }

  // From the reading thread, while handle() may be running.
  void cancel(uint64_t number) {
    if (WorkerSession* session = live_.load()) session->cancel(number);
  }

 private:
  // The photo comes as its file's bytes; the steps, if any, are those of a
  // session whose worker died.
  Message open(const Message& request) {
    if (session_) throw RequestError(409, "This session already has its photo.");
    Photo photo;
    try {
      photo = decodePhoto(request.payload, "upload");
    } catch (const CutoutError&) {
      throw RequestError(422, "The photo could not be read: it is damaged, or not a JPEG, PNG or WebP image.");
    }
    session_ = std::make_unique<WorkerSession>(std::move(photo));
    live_ = session_.get();
    const json steps = request.header.value("steps", json::array());
    const std::vector<size_t> dropped =
        session_->replay(steps.is_array() ? steps.get<std::vector<std::string>>() : std::vector<std::string>());
    json reply = session_->shown();
    reply.update({{"status", 200},
                  {"width", session_->photo().width()},
                  {"height", session_->photo().height()},
                  {"dropped", dropped}});
    return {std::move(reply), {}};
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

void runWorker(int in, int out, int threads) {
  // The server's other descriptors (its sockets) are none of a worker's
  // business, and must close when the server closes them.
  ::close_range(std::max(in, out) + 1, ~0u, 0);
  // The photo lives in this process's memory only: a crash must not leave
  // it in a core file.
  ::prctl(PR_SET_DUMPABLE, 0);
  setSegmentationThreads(threads);
  // The library logs for a phone's log buffer and the decoders complain on
  // stderr; the server's console wants only warnings and errors.
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);

  SessionHost host;
  Inbox inbox;
  std::thread reader([&] {
    while (std::optional<Message> message = readMessage(in)) {
      if (message->header.value("op", "") == "cancel")
        host.cancel(message->header.value("seq", 0ull));
      else
        inbox.push(std::move(*message));
    }
    // The server ended the session, or is gone: whatever runs or waits is
    // for nobody, and nothing here needs saving.
    std::_Exit(0);
  });
  reader.detach();  // it ends the process when the server closes the pipe
  for (;;) {
    // The server has gone: nothing is left to save.
    if (!writeMessage(out, answer(host, inbox.pop()))) std::_Exit(0);
    try {
      host.afterReply();
    } catch (const std::exception& e) {
      // The session is in a state no step describes: better a worker that
      // dies, and a new one that replays the steps, than one that goes on.
      std::fprintf(stderr, "playground worker: clean-up after a step failed: %s\n", e.what());
      std::_Exit(1);
    }
  }
}
