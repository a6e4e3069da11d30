// The playground server, run as a program on a free port: bad requests,
// sessions side by side, a worker killed mid-edit, cancel, the limits on
// workers and idle time. Masks are checked against the cutout tool's.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tools/host/Photo.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const std::string kCoffee = std::string(SEG_SAMPLES_DIR) + "/coffee.png";
const std::string kCoffeeBox = R"({"kind": "box", "box": [72, 14, 482, 392]})";

std::string slurp(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

// PNG files compared whole, without printing them.
testing::AssertionResult sameFile(const std::string& a, const std::string& b) {
  if (!a.empty() && a == b) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "files of " << a.size() << " and " << b.size() << " bytes differ";
}

int run(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  int status = -1;
  if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) == 0) waitpid(pid, &status, 0);
  return status;
}

// cutout's mask.png for `photo` and a --box or --edits argument.
std::string cutoutMask(const std::string& photo, const std::string& option, const std::string& value) {
  const fs::path out = fs::temp_directory_path() / ("playground-ref-" + std::to_string(getpid()));
  run({SEG_CUTOUT_EXE, photo, option, value, "-o", out.string()});
  const std::string mask = slurp(out / "mask.png");
  fs::remove_all(out);
  return mask;
}

// The server on a free port, ended with SIGTERM.
class Server {
 public:
  explicit Server(std::vector<std::string> args = {}) {
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

// Status, the "error" words when there are any, and the body.
struct Reply {
  int status = 0;
  std::string error, body;
};

Reply reply(const httplib::Result& result) {
  if (!result) return {};
  Reply r{result->status, "", result->body};
  const json body = json::parse(r.body, nullptr, false);
  if (body.is_object() && body.contains("error")) r.error = body["error"];
  return r;
}

std::string openSample(const Server& server, const std::string& name = "coffee.png") {
  auto result = server.client().Post("/api/sessions", json{{"sample", name}}.dump(), "application/json");
  EXPECT_TRUE(result && result->status == 201) << (result ? result->body : "no answer");
  return result && result->status == 201 ? json::parse(result->body)["id"].get<std::string>() : "";
}

std::string openUpload(const Server& server, const std::string& bytes) {
  auto result = server.client().Post("/api/sessions", bytes, "image/jpeg");
  EXPECT_TRUE(result && result->status == 201) << (result ? result->body : "no answer");
  return result && result->status == 201 ? json::parse(result->body)["id"].get<std::string>() : "";
}

Reply step(const Server& server, const std::string& id, const std::string& text) {
  return reply(server.client().Post("/api/sessions/" + id + "/steps", text, "application/json"));
}

std::string download(const Server& server, const std::string& id, const std::string& name) {
  auto result = server.client().Get("/api/sessions/" + id + "/" + name);
  return result && result->status == 200 ? result->body : "";
}

// The sample photo at 12 megapixels, as a JPEG file's bytes.
const std::string& bigJpeg() {
  static const std::string jpeg = [] {
    std::array<int, 4> box{};
    const Photo big = resizedPhoto(readPhoto(kCoffee), 12.0, box);
    std::vector<uchar> bytes;
    cv::imencode(".jpg", big.bgr, bytes, {cv::IMWRITE_JPEG_QUALITY, 90});
    return std::string(bytes.begin(), bytes.end());
  }();
  return jpeg;
}
const std::string kBigBox = R"({"kind": "box", "box": [500, 100, 3400, 2770]})";

}  // namespace

TEST(Playground, BadRequestsGetA4xxWithWordsAndChangeNothing) {
  Server server({"--max-upload-mb", "1"});
  auto c = server.client();
  std::vector<uchar> huge;
  cv::imencode(".png", cv::Mat(7000, 8000, CV_8UC3, cv::Scalar(90, 120, 150)), huge);
  const std::string png(huge.begin(), huge.end());
  const std::string coffee = slurp(kCoffee);

  const struct {
    const char* what;
    Reply r;
    int status;
  } uploads[] = {
      {"over the size cap", reply(c.Post("/api/sessions", std::string(1100000, 'x'), "image/png")), 413},
      {"not an image", reply(c.Post("/api/sessions", "hello, world", "image/png")), 415},
      {"too many pixels", reply(c.Post("/api/sessions", png, "image/png")), 413},
      {"damaged image", reply(c.Post("/api/sessions", coffee.substr(0, 2000), "image/png")), 422},
      {"malformed JSON", reply(c.Post("/api/sessions", "{\"sample\": ", "application/json")), 400},
      {"unknown sample", reply(c.Post("/api/sessions", R"({"sample": "../../CMakeLists.txt"})", "application/json")), 404},
      {"unknown session", step(server, "0123456789abcdef0123456789abcdef", kCoffeeBox), 404},
      {"path out of the web folder", reply(c.Get("/../../CMakeLists.txt")), 400},
      {"encoded path out of it", reply(c.Get("/%2e%2e/%2e%2e/CMakeLists.txt")), 400},
      {"another host's name", reply(c.Get("/api/samples", {{"Host", "example.test"}})), 403},
  };
  for (const auto& u : uploads) {
    EXPECT_EQ(u.r.status, u.status) << u.what << ": " << u.r.body;
    EXPECT_GT(u.r.error.size(), 20u) << u.what;
  }
  EXPECT_NE(uploads[2].r.error.find("56.0 megapixels"), std::string::npos) << uploads[2].r.error;
  EXPECT_TRUE(server.workers().empty()) << "a refused photo started a worker";

  const std::string id = openSample(server);
  EXPECT_EQ(step(server, id, kCoffeeBox).status, 200);
  const std::string mask = download(server, id, "mask.png");
  const struct {
    const char* what;
    std::string text;
    int status;
  } steps[] = {
      {"box past the right edge", R"({"kind": "box", "box": [72, 14, 600, 392]})", 400},
      {"stroke above the top", R"({"kind": "stroke", "mode": "add", "radius": 4, "points": [[10, 10], [20, -1]]})", 400},
      {"malformed JSON", R"({"kind": "box", "box": [72, 14)", 400},
      {"unknown kind", R"({"kind": "lasso", "points": [[1, 1]]})", 400},
      {"empty box", R"({"kind": "box", "box": [72, 14, 72, 392]})", 400},
      {"redo with nothing undone", R"({"kind": "redo"})", 409},
  };
  for (const auto& s : steps) {
    const Reply r = step(server, id, s.text);
    EXPECT_EQ(r.status, s.status) << s.what << ": " << r.body;
    EXPECT_GT(r.error.size(), 10u) << s.what;
  }
  EXPECT_TRUE(sameFile(download(server, id, "mask.png"), mask));
  EXPECT_EQ(json::parse(step(server, id, R"({"kind": "undo"})").body)["steps"], 2);
}

TEST(Playground, TwoSessionsEditingAtOnceGetTheirOwnMasks) {
  Server server;
  const std::string boxes[] = {"72,14,482,392", "250,150,560,395"};
  std::future<std::string> masks[2];
  for (int i = 0; i < 2; ++i)
    masks[i] = std::async(std::launch::async, [&, i] {
      const std::string id = openSample(server);
      const std::string box = boxes[i];
      EXPECT_EQ(step(server, id, R"({"kind": "box", "box": [)" + box + "]}").status, 200);
      return download(server, id, "mask.png");
    });
  const std::string first = masks[0].get(), second = masks[1].get();
  EXPECT_FALSE(sameFile(first, second));
  EXPECT_TRUE(sameFile(first, cutoutMask(kCoffee, "--box", boxes[0])));
  EXPECT_TRUE(sameFile(second, cutoutMask(kCoffee, "--box", boxes[1])));
}

TEST(Playground, AWorkerKilledMidEditAnswersWithAnErrorAndTheServerStaysUp) {
  Server server;
  const std::string big = openUpload(server, bigJpeg());
  const std::set<pid_t> workers = server.workers();
  ASSERT_EQ(workers.size(), 1u);
  const std::string other = openSample(server);

  auto edit = std::async(std::launch::async, [&] { return step(server, big, kBigBox); });
  std::this_thread::sleep_for(std::chrono::milliseconds(800));
  kill(*workers.begin(), SIGKILL);
  const Reply killed = edit.get();
  EXPECT_EQ(killed.status, 502);
  EXPECT_NE(killed.error.find("stopped"), std::string::npos) << killed.body;

  EXPECT_EQ(step(server, big, kCoffeeBox).status, 410);
  EXPECT_EQ(step(server, other, kCoffeeBox).status, 200);
  EXPECT_TRUE(sameFile(download(server, other, "mask.png"), cutoutMask(kCoffee, "--box", "72,14,482,392")));
}

TEST(Playground, CancelDuringA12MegapixelEditReturnsWithinASecondAndTheNextEditWorks) {
  Server server;
  const std::string id = openUpload(server, bigJpeg());
  auto edit = std::async(std::launch::async, [&] { return step(server, id, kBigBox); });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const auto asked = std::chrono::steady_clock::now();
  EXPECT_EQ(reply(server.client().Post("/api/sessions/" + id + "/cancel", "", "text/plain")).status, 200);
  const Reply cancelled = edit.get();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - asked;
  EXPECT_LT(took.count(), 1.0);
  ASSERT_EQ(cancelled.status, 200) << cancelled.body;
  const json shown = json::parse(cancelled.body);
  EXPECT_TRUE(shown["cancelled"].get<bool>()) << "the edit finished before the cancel";
  EXPECT_FALSE(shown["canUndo"].get<bool>() || shown["canRedo"].get<bool>()) << "a cancelled edit left a result";

  // The next edit runs on a new engine; the session file leaves the
  // cancelled edit out, and cutout replays it to the same mask.
  const Reply next = step(server, id, R"({"kind": "box", "box": [1500, 300, 2600, 1500]})");
  ASSERT_EQ(next.status, 200);
  EXPECT_TRUE(json::parse(next.body)["result"].get<bool>());
  const fs::path files = fs::temp_directory_path() / ("playground-" + std::to_string(getpid()));
  std::ofstream(files.string() + ".json") << download(server, id, "session.json");
  std::ofstream(files.string() + ".jpg", std::ios::binary) << bigJpeg();
  EXPECT_TRUE(sameFile(download(server, id, "mask.png"),
                       cutoutMask(files.string() + ".jpg", "--edits", files.string() + ".json")));
  fs::remove(files.string() + ".json");
  fs::remove(files.string() + ".jpg");
}

TEST(Playground, AFifthSessionWaitsAndIdleSessionsEnd) {
  Server server({"--idle-seconds", "2"});
  std::vector<std::string> ids;
  for (int i = 0; i < 4; ++i) ids.push_back(openSample(server));
  const auto full = server.client().Post("/api/sessions", R"({"sample": "coffee.png"})", "application/json");
  ASSERT_TRUE(full);
  EXPECT_EQ(full->status, 503);
  EXPECT_TRUE(full->has_header("Retry-After"));
  EXPECT_NE(reply(full).error.find("wait"), std::string::npos);

  EXPECT_EQ(server.client().Delete("/api/sessions/" + ids[0])->status, 204);
  const std::string fifth = openSample(server);
  EXPECT_EQ(step(server, fifth, kCoffeeBox).status, 200);

  std::this_thread::sleep_for(std::chrono::milliseconds(3500));
  const Reply ended = step(server, fifth, kCoffeeBox);
  EXPECT_EQ(ended.status, 410);
  EXPECT_NE(ended.error.find("not used"), std::string::npos) << ended.body;
  EXPECT_TRUE(server.workers().empty());
}
