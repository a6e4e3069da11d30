#include "WorkerProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

extern char** environ;

namespace {

// The worker finds its pipes at these descriptors (see main.cpp).
constexpr int kWorkerIn = 3, kWorkerOut = 4;
constexpr auto kExitGrace = std::chrono::seconds(2);

std::chrono::steady_clock::rep now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

// A pipe whose ends close on exec and sit above the worker's 3 and 4, so
// that the dup2 of one never lands on the other.
void highPipe(int ends[2]) {
  int raw[2];
  if (::pipe2(raw, O_CLOEXEC) != 0) throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
  for (int i = 0; i < 2; ++i) {
    ends[i] = ::fcntl(raw[i], F_DUPFD_CLOEXEC, 10);
    ::close(raw[i]);
  }
  if (ends[0] < 0 || ends[1] < 0) throw std::runtime_error(std::string("fcntl: ") + std::strerror(errno));
}

}  // namespace

WorkerProcess::WorkerProcess(const WorkerCommand& command) : lastUsed_(now()) {
  int requests[2], replies[2];
  highPipe(requests);
  try {
    highPipe(replies);
  } catch (...) {
    ::close(requests[0]);
    ::close(requests[1]);
    throw;
  }

  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, requests[0], kWorkerIn);
  posix_spawn_file_actions_adddup2(&files, replies[1], kWorkerOut);
  // The server blocks its stop signals for its waiting thread and ignores
  // SIGPIPE; a worker starts with neither.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, pipe;
  sigemptyset(&none);
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &pipe);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::string program = command.exe, flag = "--worker", option = "--threads",
              threads = std::to_string(command.threads);
  std::vector<char*> argv = {program.data(), flag.data(), option.data(), threads.data(), nullptr};
  const int error = posix_spawn(&pid_, program.c_str(), &files, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  ::close(requests[0]);
  ::close(replies[1]);
  to_ = requests[1];
  from_ = replies[0];
  if (error != 0) {
    ::close(to_);
    ::close(from_);
    throw std::runtime_error("cannot start a worker (" + command.exe + "): " + std::strerror(error));
  }
}

WorkerProcess::~WorkerProcess() {
  ::close(to_);
  ::close(from_);
  const auto deadline = std::chrono::steady_clock::now() + kExitGrace;
  while (!exited() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  if (!exited()) {
    ::kill(pid_, SIGKILL);
    reap(true);
  }
}

std::optional<Message> WorkerProcess::call(const nlohmann::json& header, std::string_view payload) {
  std::lock_guard<std::mutex> one(call_);
  ++calls_;
  bool sent;
  {
    std::lock_guard<std::mutex> lock(write_);
    sent = writeMessage(to_, header, payload);
  }
  std::optional<Message> reply = sent ? readMessage(from_) : std::nullopt;
  lastUsed_ = now();
  --calls_;
  return reply;
}

void WorkerProcess::cancel(uint64_t number) {
  std::lock_guard<std::mutex> lock(write_);
  writeMessage(to_, nlohmann::json{{"op", "cancel"}, {"seq", number}}, {});
}

std::chrono::steady_clock::duration WorkerProcess::idleFor() const {
  return std::chrono::steady_clock::duration(now() - lastUsed_.load());
}

bool WorkerProcess::exited() {
  reap(false);
  std::lock_guard<std::mutex> lock(reap_);
  return reaped_;
}

void WorkerProcess::stop() {
  std::lock_guard<std::mutex> lock(reap_);
  if (!reaped_) ::kill(pid_, SIGKILL);  // not yet reaped: the pid is still ours
}

void WorkerProcess::reap(bool wait) {
  std::lock_guard<std::mutex> lock(reap_);
  if (reaped_) return;
  int status = 0;
  pid_t done;
  do {
    done = ::waitpid(pid_, &status, wait ? 0 : WNOHANG);
  } while (done < 0 && errno == EINTR);
  reaped_ = done == pid_ || (done < 0 && errno == ECHILD);
}
