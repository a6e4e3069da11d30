// The playground server, run as a program on a free port: bad requests,
// sessions side by side, a photo refused or replaced, a worker killed and
// its session taken over by a new one, cancel, the limits on places and on
// idle and closed pages. Masks are checked against the cutout tool's.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "PlaygroundServer.h"

using namespace playground_test;

TEST(Playground, BadRequestsGetA4xxWithWordsAndChangeNothing) {
  Server server({"--max-upload-mb", "1"});
  auto c = server.client();
  const std::string coffee = slurp(kCoffee);
  const std::string sample = R"({"sample": "coffee.png"})";

  const struct {
    const char* what;
    Reply r;
    int status;
  } uploads[] = {
      {"not an image", reply(c.Post("/api/sessions", "hello, world", "image/png")), 415},
      {"too many pixels", reply(c.Post("/api/sessions", pngClaiming(8000, 7000), "image/png")), 413},
      {"damaged image", reply(c.Post("/api/sessions", coffee.substr(0, 2000), "image/png")), 422},
      {"malformed JSON", reply(c.Post("/api/sessions", "{\"sample\": ", "application/json")), 400},
      {"unknown sample", reply(c.Post("/api/sessions", R"({"sample": "../../CMakeLists.txt"})", "application/json")), 404},
      {"unknown session", step(server, "0123456789abcdef0123456789abcdef", kCoffeeBox), 404},
      {"path out of the web folder", reply(c.Get("/../../CMakeLists.txt")), 400},
      {"encoded path out of it", reply(c.Get("/%2e%2e/%2e%2e/CMakeLists.txt")), 400},
      {"another host's name", reply(c.Get("/api/samples", {{"Host", "example.test"}})), 403},
      // A page on another local port, and requests a browser marks as
      // coming from another site: no session, no place taken.
      {"a page on another port",
       reply(c.Post("/api/sessions", {{"Origin", "http://127.0.0.1:9"}}, sample, "text/plain")), 403},
      {"a fetch from the same site",
       reply(c.Post("/api/sessions", {{"Sec-Fetch-Site", "same-site"}}, sample, "application/json")), 403},
      {"a cross-site image", reply(c.Get("/api/config", {{"Sec-Fetch-Site", "cross-site"}})), 403},
  };
  for (const auto& u : uploads) {
    EXPECT_EQ(u.r.status, u.status) << u.what << ": " << u.r.body;
    EXPECT_GT(u.r.error.size(), 20u) << u.what;
  }
  EXPECT_NE(uploads[1].r.error.find("56.0 megapixels"), std::string::npos) << uploads[1].r.error;
  EXPECT_TRUE(server.workers().empty()) << "a refused photo started a worker";
  EXPECT_EQ(reply(c.Get("/", {{"Sec-Fetch-Site", "cross-site"}})).status, 200) << "a link to the page must open it";
  const Reply own = reply(c.Post("/api/sessions", {{"Origin", "http://127.0.0.1:" + std::to_string(server.port())},
                                                   {"Sec-Fetch-Site", "same-origin"}},
                                 sample, "application/json"));
  EXPECT_EQ(own.status, 201) << own.body;

  const std::string id = openSample(server);
  // A stroke that zigzags across the photo 6,000 times: a short request,
  // but a trace of 3.6 million pixels to fill.
  json zigzag = json::array();
  for (int i = 0; i < 6000; ++i) zigzag.push_back(i % 2 ? json{599, 399} : json{0, 0});
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
      {"a trace too long to fill", json{{"kind", "stroke"}, {"mode", "add"}, {"radius", 1}, {"points", zigzag}}.dump(), 413},
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

// A worker that dies takes nothing with it: the server starts a new one and
// replays the session's steps into it, so the masks and the history are
// those from before. A step the worker died on is not run again.
TEST(Playground, AKilledWorkersSessionComesBackWithItsHistory) {
  Server server;
  const std::string id = openSample(server);
  ASSERT_EQ(step(server, id, kCoffeeBox).status, 200);
  const std::string boxMask = download(server, id, "mask.png");
  ASSERT_EQ(step(server, id, R"({"kind": "stroke", "mode": "remove", "radius": 6, "points": [[408, 80], [398, 160], [368, 290]]})").status, 200);
  const std::string strokeMask = download(server, id, "mask.png");
  ASSERT_EQ(step(server, id, R"({"kind": "undo"})").status, 200);

  kill(*server.workers().begin(), SIGKILL);  // while no request runs
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_TRUE(sameFile(download(server, id, "mask.png"), boxMask)) << "the undo was not replayed";
  const Reply redone = step(server, id, R"({"kind": "redo"})");
  ASSERT_EQ(redone.status, 200) << redone.body;
  EXPECT_EQ(redone.parsed()["steps"], 4);
  EXPECT_TRUE(sameFile(download(server, id, "mask.png"), strokeMask));

  // Killed in the middle of an edit of a 12-megapixel photo.
  const std::set<pid_t> small = server.workers();
  const std::string big = openUpload(server, bigJpeg());
  ASSERT_EQ(step(server, big, kBigBox).status, 200);
  const std::string bigMask = download(server, big, "mask.png");
  auto edit = std::async(std::launch::async, [&] { return step(server, big, longFill()); });
  std::this_thread::sleep_for(std::chrono::milliseconds(600));
  for (pid_t worker : server.workers())
    if (!small.count(worker)) kill(worker, SIGKILL);
  const std::string otherMask = download(server, id, "mask.png");
  const Reply interrupted = edit.get();
  ASSERT_EQ(interrupted.status, 200) << interrupted.body;
  const json shown = interrupted.parsed();
  EXPECT_TRUE(shown.value("interrupted", false));
  EXPECT_EQ(shown.value("restored", -1), 1);
  EXPECT_FALSE(shown["result"].get<bool>());
  EXPECT_EQ(shown["steps"], 1);
  EXPECT_TRUE(sameFile(download(server, big, "mask.png"), bigMask));
  EXPECT_TRUE(sameFile(otherMask, strokeMask)) << "another session was touched";
  EXPECT_EQ(step(server, big, R"({"kind": "undo"})").status, 200);
}

// The reply to a cancelled edit comes first; the clean-up after it (a new
// engine, a step back over what the library recorded) waits behind it.
TEST(Playground, CancelAt12MegapixelsAnswersWithin200msAndTheNextEditWorks) {
  Server server;
  const std::string id = openUpload(server, bigJpeg());
  const auto cancelAfter = [&](const std::string& text, int ms) {
    auto edit = std::async(std::launch::async, [&] { return step(server, id, text); });
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    const auto asked = Clock::now();
    EXPECT_EQ(reply(server.client().Post("/api/sessions/" + id + "/cancel", "", "text/plain")).status, 200);
    const Reply cancelled = edit.get();
    const double took = secondsSince(asked);
    EXPECT_LT(took, 0.2) << text.substr(0, 40);
    std::printf("cancel answered in %.0f ms\n", took * 1000);
    EXPECT_EQ(cancelled.status, 200) << cancelled.body;
    const json shown = cancelled.parsed();
    EXPECT_TRUE(shown.value("cancelled", false)) << "the edit finished before the cancel";
    EXPECT_FALSE(shown.value("canUndo", true) || shown.value("canRedo", true)) << "a cancelled edit left a result";
  };
  cancelAfter(kBigBox, 300);
  cancelAfter(longFill(), 300);  // the filling of the marks stops as a cut does

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

// Opening another photo goes through ?replaces=: the page's session, all it
// shows and its place stay until the new photo is open. Photos are kept in
// memory only: the server and its workers write nothing to the temporary
// folders, and a file that ends early is opened with a warning.
TEST(Playground, ARefusedPhotoLeavesTheSessionAsItWasAndNothingIsWrittenToDisk) {
  const fs::path spool = fs::temp_directory_path() / ("playground-spool-" + std::to_string(getpid()));
  fs::create_directories(spool);
  setenv("TMPDIR", spool.c_str(), 1);
  setenv("OPENCV_TEMP_PATH", spool.c_str(), 1);
  Server server;
  unsetenv("TMPDIR");
  unsetenv("OPENCV_TEMP_PATH");
  const std::string id = openSample(server);
  ASSERT_EQ(step(server, id, kCoffeeBox).status, 200);
  const std::string mask = download(server, id, "mask.png");

  auto c = server.client();
  const std::string replacing = "/api/sessions?replaces=" + id;
  EXPECT_EQ(reply(c.Post(replacing, pngClaiming(100000, 100000), "image/png")).status, 413);
  EXPECT_EQ(reply(c.Post(replacing, "not a photo at all", "image/jpeg")).status, 415);
  EXPECT_EQ(reply(c.Post(replacing, slurp(kCoffee).substr(0, 3000), "image/png")).status, 422);
  EXPECT_TRUE(sameFile(download(server, id, "mask.png"), mask));
  EXPECT_EQ(step(server, id, R"({"kind": "undo"})").parsed()["steps"], 2);
  EXPECT_EQ(step(server, id, R"({"kind": "redo"})").status, 200);

  // With every place taken, the page's own place goes to its new photo.
  for (int i = 0; i < 3; ++i) openSample(server);
  const std::string jpeg = jpegOf(readPhoto(kCoffee).bgr);
  const Reply whole = reply(c.Post(replacing, jpeg, "image/jpeg"));
  ASSERT_EQ(whole.status, 201) << whole.body;
  EXPECT_FALSE(whole.parsed().contains("warning"));
  EXPECT_EQ(whole.parsed()["inUse"], 4);
  EXPECT_NE(step(server, id, kCoffeeBox).error.find("another photo was opened"), std::string::npos);
  const std::string next = whole.parsed()["id"];
  const Reply cut = reply(c.Post("/api/sessions?replaces=" + next, jpeg.substr(0, jpeg.size() * 2 / 3), "image/jpeg"));
  ASSERT_EQ(cut.status, 201) << cut.body;
  EXPECT_NE(cut.parsed().value("warning", "").find("ends before its last pixels"), std::string::npos) << cut.body;
  EXPECT_EQ(download(server, cut.parsed()["id"], "cutout.png").substr(1, 3), "PNG");
  EXPECT_TRUE(fs::is_empty(spool)) << "a photo went to " << spool;
  fs::remove_all(spool);
}

// A page that closes says so (DELETE, or a beacon to /close); one that goes
// quiet (its heartbeat, /alive, stops) is ended after --page-seconds, one
// that only beats its heart after --idle-seconds.
TEST(Playground, AFifthSessionWaitsAndClosedOrIdlePagesGiveTheirPlacesBack) {
  Server server({"--idle-seconds", "3", "--page-seconds", "1"});
  std::vector<std::string> ids;
  for (int i = 0; i < 4; ++i) ids.push_back(openSample(server));
  auto c = server.client();
  const auto full = c.Post("/api/sessions", R"({"sample": "coffee.png"})", "application/json");
  ASSERT_TRUE(full);
  EXPECT_EQ(full->status, 503);
  EXPECT_TRUE(full->has_header("Retry-After"));
  EXPECT_NE(reply(full).error.find("wait"), std::string::npos);

  EXPECT_EQ(c.Delete("/api/sessions/" + ids[0])->status, 204);
  EXPECT_EQ(c.Post("/api/sessions/" + ids[1] + "/close", "", "text/plain")->status, 204);
  EXPECT_EQ(reply(c.Get("/api/config")).parsed()["inUse"], 2);
  const std::string beating = openSample(server);
  EXPECT_EQ(step(server, beating, kCoffeeBox).status, 200);
  for (int i = 0; i < 10; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    ASSERT_EQ(reply(c.Post("/api/sessions/" + beating + "/alive", "", "text/plain")).status, 200);
  }
  EXPECT_NE(step(server, ids[2], kCoffeeBox).error.find("its page was closed"), std::string::npos);
  EXPECT_EQ(step(server, beating, R"({"kind": "undo"})").status, 200) << "a page with a heartbeat was ended";

  for (int i = 0; i < 16; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    c.Post("/api/sessions/" + beating + "/alive", "", "text/plain");
  }
  const Reply ended = step(server, beating, kCoffeeBox);
  EXPECT_EQ(ended.status, 410);
  EXPECT_NE(ended.error.find("not used"), std::string::npos) << ended.body;
  EXPECT_TRUE(server.workers().empty());
}
