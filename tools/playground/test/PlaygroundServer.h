// What the playground's server tests share: the server run as a program on
// a free port, requests through httplib's client and through a bare socket
// (for what that client will not send), photos made in the test, and
// cutout's masks to compare with.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tools/host/Photo.h"

namespace playground_test {

namespace fs = std::filesystem;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

inline const std::string kCoffee = std::string(SEG_SAMPLES_DIR) + "/coffee.png";
inline const std::string kCoffeeBox = R"({"kind": "box", "box": [72, 14, 482, 392]})";
inline const std::string kBigBox = R"({"kind": "box", "box": [500, 100, 3400, 2770]})";

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

inline std::string slurp(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

// PNG files compared whole, without printing them.
inline testing::AssertionResult sameFile(const std::string& a, const std::string& b) {
  if (!a.empty() && a == b) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "files of " << a.size() << " and " << b.size() << " bytes differ";
}

// Runs a program to its end: its exit status (as waitpid gives it) and what
// it wrote on stderr.
struct Ran {
  int status = -1;
  std::string stderrText;
};

inline Ran run(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  int err[2];
  Ran ran;
  if (pipe(err) != 0) return ran;
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, err[1], 2);
  posix_spawn_file_actions_addclose(&files, err[0]);
  pid_t pid = 0;
  const bool started = posix_spawn(&pid, argv[0], &files, nullptr, argv.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&files);
  close(err[1]);
  char buffer[4096];
  for (ssize_t n; (n = read(err[0], buffer, sizeof buffer)) > 0;) ran.stderrText.append(buffer, n);
  close(err[0]);
  if (started) waitpid(pid, &ran.status, 0);
  return ran;
}

// cutout's mask.png for `photo` and a --box or --edits argument.
inline std::string cutoutMask(const std::string& photo, const std::string& option, const std::string& value) {
  const fs::path out = fs::temp_directory_path() / ("playground-ref-" + std::to_string(getpid()));
  run({SEG_CUTOUT_EXE, photo, option, value, "-o", out.string()});
  const std::string mask = slurp(out / "mask.png");
  fs::remove_all(out);
  return mask;
}

// The server on a free port (or the one given), ended with SIGTERM.
class Server {
 public:
  explicit Server(std::vector<std::string> args = {}) {
    // A server may refuse a body while it is being sent: a write then
    // fails, and must not end the test.
    signal(SIGPIPE, SIG_IGN);
    int out[2];
    EXPECT_EQ(pipe(out), 0);
    args.insert(args.begin(), {SEG_PLAYGROUND_EXE, "--port", "0"});
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, out[1], 1);
    posix_spawn_file_actions_addclose(&files, out[0]);
    EXPECT_EQ(posix_spawn(&pid_, argv[0], &files, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&files);
    close(out[1]);
    char line[200] = {};
    FILE* stream = fdopen(out[0], "r");
    if (fgets(line, sizeof line, stream)) std::sscanf(line, "Playground at http://127.0.0.1:%d/", &port_);
    fclose(stream);
    EXPECT_GT(port_, 0) << "no address in: " << line;
  }
  ~Server() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  int port() const { return port_; }

  httplib::Client client() const {
    httplib::Client c("127.0.0.1", port_);
    c.set_read_timeout(60);
    return c;
  }

  // The worker processes: the server's children.
  std::set<pid_t> workers() const {
    std::set<pid_t> children;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      std::ifstream stat(entry.path() / "stat");
      std::string pid, name, state;
      pid_t parent = 0;
      if (stat >> pid >> name >> state >> parent && parent == pid_) children.insert(std::stoi(pid));
    }
    return children;
  }

 private:
  pid_t pid_ = 0;
  int port_ = 0;
};

// A bare connection: bytes as they are written, and what comes back.
class Connection {
 public:
  explicit Connection(int port) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  ~Connection() { close(fd_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // False once the server has closed its end.
  bool send(const std::string& bytes) {
    return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }
  // Whether an answer (or the close) is waiting to be read.
  bool answered(int waitMs = 0) {
    pollfd p{fd_, POLLIN, 0};
    return poll(&p, 1, waitMs) > 0;
  }
  // What the server sent within `waitMs`.
  std::string answer(int waitMs) {
    std::string text;
    char buffer[4096];
    while (answered(waitMs)) {
      const ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
      if (n <= 0) break;
      text.append(buffer, n);
    }
    return text;
  }

 private:
  int fd_;
};

// Status, the "error" words when there are any, and the body.
struct Reply {
  int status = 0;
  std::string error, body;
  json parsed() const { return json::parse(body, nullptr, false); }
};

inline Reply reply(const httplib::Result& result) {
  if (!result) return {};
  Reply r{result->status, "", result->body};
  const json body = json::parse(r.body, nullptr, false);
  if (body.is_object() && body.contains("error")) r.error = body["error"];
  return r;
}

inline std::string openSample(const Server& server, const std::string& name = "coffee.png") {
  auto result = server.client().Post("/api/sessions", json{{"sample", name}}.dump(), "application/json");
  EXPECT_TRUE(result && result->status == 201) << (result ? result->body : "no answer");
  return result && result->status == 201 ? json::parse(result->body)["id"].get<std::string>() : "";
}

inline std::string openUpload(const Server& server, const std::string& bytes) {
  auto result = server.client().Post("/api/sessions", bytes, "image/jpeg");
  EXPECT_TRUE(result && result->status == 201) << (result ? result->body : "no answer");
  return result && result->status == 201 ? json::parse(result->body)["id"].get<std::string>() : "";
}

inline Reply step(const Server& server, const std::string& id, const std::string& text) {
  return reply(server.client().Post("/api/sessions/" + id + "/steps", text, "application/json"));
}

inline std::string download(const Server& server, const std::string& id, const std::string& name) {
  auto result = server.client().Get("/api/sessions/" + id + "/" + name);
  return result && result->status == 200 ? result->body : "";
}

inline std::string jpegOf(const cv::Mat& bgr) {
  std::vector<uchar> bytes;
  cv::imencode(".jpg", bgr, bytes, {cv::IMWRITE_JPEG_QUALITY, 90});
  return std::string(bytes.begin(), bytes.end());
}

// The sample photo at 12 megapixels, as a JPEG file's bytes.
inline const std::string& bigJpeg() {
  static const std::string jpeg = [] {
    std::array<int, 4> box{};
    return jpegOf(resizedPhoto(readPhoto(kCoffee), 12.0, box).bgr);
  }();
  return jpeg;
}

// On the 12-megapixel photo: a brush 2,001 pixels wide along a trace of
// some 100,000 pixels. Its marks take minutes to fill, so the step runs
// until it is stopped (or reaches the 10-second limit).
inline std::string longFill() {
  json zigzag = json::array();
  for (int i = 0; i < 30; ++i) zigzag.push_back(i % 2 ? json{4000, 2700} : json{100, 100});
  return json{{"kind", "stroke"}, {"mode", "add"}, {"radius", 1000}, {"points", zigzag}}.dump();
}

// A PNG that is all header: it claims `width` x `height` pixels.
inline std::string pngClaiming(uint32_t width, uint32_t height) {
  std::string png("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16);
  for (uint32_t v : {width, height})
    for (int shift = 24; shift >= 0; shift -= 8) png += static_cast<char>((v >> shift) & 0xFF);
  return png + std::string("\x08\x02\0\0\0", 5) + std::string(4, '\0');
}

}  // namespace playground_test
