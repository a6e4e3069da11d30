// The playground server under load and abuse: a second server on its port,
// bodies over their limits, a session flooded with requests, clients that
// send their requests slowly. None may hold up anyone else.
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <memory>
#include <thread>

#include "PlaygroundServer.h"

using namespace playground_test;

namespace {

std::string head(const Server& server, const std::string& line, const std::string& headers) {
  return line + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) + "\r\n" + headers + "\r\n";
}

}  // namespace

TEST(PlaygroundGuards, ASecondServerOnATakenPortIsRefused) {
  Server first;
  const Ran second = run({SEG_PLAYGROUND_EXE, "--port", std::to_string(first.port())});
  EXPECT_TRUE(WIFEXITED(second.status) && WEXITSTATUS(second.status) == 1) << second.status;
  EXPECT_NE(second.stderrText.find("cannot listen on 127.0.0.1:" + std::to_string(first.port())), std::string::npos)
      << second.stderrText;
  EXPECT_EQ(openSample(first).size(), 32u);
}

// An announced length over the limit is answered before a byte of the body
// is sent; a chunked body is cut off soon after it passes the limit.
TEST(PlaygroundGuards, BodiesOverTheirLimitAreRefusedBeforeTheyAreRead) {
  Server server({"--max-upload-mb", "1"});
  const std::string id = openSample(server);

  const struct {
    const char* what;
    std::string target;
  } announced[] = {{"a photo", "POST /api/sessions"}, {"a step", "POST /api/sessions/" + id + "/steps"}};
  for (const auto& a : announced) {
    Connection connection(server.port());
    connection.send(head(server, a.target, "Content-Type: image/jpeg\r\nContent-Length: 1073741824\r\n"));
    const std::string answer = connection.answer(1000);
    EXPECT_EQ(answer.rfind("HTTP/1.1 413", 0), 0u) << a.what << ": " << answer.substr(0, 200);
    EXPECT_NE(answer.find("too large"), std::string::npos) << a.what;
  }

  Connection chunked(server.port());
  chunked.send(head(server, "POST /api/sessions", "Content-Type: image/jpeg\r\nTransfer-Encoding: chunked\r\n"));
  const std::string chunk = "10000\r\n" + std::string(0x10000, 'x') + "\r\n";
  size_t sent = 0;
  std::string answer;
  while (sent < (64u << 20) && chunked.send(chunk)) {
    sent += 0x10000;
    if (chunked.answered()) {
      answer = chunked.answer(200);
      break;
    }
  }
  EXPECT_LT(sent, 16u << 20) << "the server read a chunked body far past its limit";
  if (!answer.empty()) EXPECT_EQ(answer.rfind("HTTP/1.1 413", 0), 0u) << answer.substr(0, 200);
  EXPECT_EQ(step(server, id, kCoffeeBox).status, 200) << "the session suffered";
}

// One session with its queue full and twenty clients that trickle their
// requests in: another session's requests are answered as if alone.
TEST(PlaygroundGuards, ABusySessionAndSlowClientsHoldUpNoOneElse) {
  Server server;
  const std::string big = openUpload(server, bigJpeg());
  const std::string other = openSample(server);
  std::vector<std::future<std::pair<int, double>>> flood;
  const auto flooded = Clock::now();
  for (int i = 0; i < 5; ++i)
    flood.push_back(std::async(std::launch::async, [&] {
      const int status = step(server, big, longFill()).status;
      return std::make_pair(status, secondsSince(flooded));
    }));
  std::vector<std::unique_ptr<Connection>> slow;
  for (int i = 0; i < 20; ++i) slow.push_back(std::make_unique<Connection>(server.port()));
  const std::string request = head(server, "GET /api/config", "");
  std::thread trickle([&] {
    for (size_t k = 0; k < request.size() - 2; ++k) {  // never the last line end
      for (auto& c : slow) c->send(request.substr(k, 1));
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  });
  // Two of the five are told to wait at once: by then all five are in.
  const auto answered = [&] {
    return std::count_if(flood.begin(), flood.end(), [](auto& f) {
      return f.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    });
  };
  for (const auto deadline = Clock::now() + std::chrono::seconds(20); answered() < 2 && Clock::now() < deadline;)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_GE(answered(), 2);

  auto c = server.client();
  const auto start = Clock::now();
  EXPECT_EQ(reply(c.Get("/api/config")).status, 200);
  const double config = secondsSince(start);
  const Reply edit = step(server, other, kCoffeeBox);
  const double edited = secondsSince(start);
  std::printf("busy and trickled at: config in %.0f ms, another session's box in %.0f ms\n", config * 1000,
              edited * 1000);
  EXPECT_LT(config, 0.5);
  EXPECT_EQ(edit.status, 200);
  EXPECT_TRUE(sameFile(download(server, other, "mask.png"), cutoutMask(kCoffee, "--box", "72,14,482,392")));

  // The queue holds one running and two waiting: the others were told to
  // wait without waiting themselves. Closing the session ends the rest.
  const double closed = secondsSince(flooded);
  EXPECT_EQ(c.Delete("/api/sessions/" + big)->status, 204);
  std::vector<int> statuses;
  for (auto& f : flood) {
    const auto [status, seconds] = f.get();
    statuses.push_back(status);
    if (status == 429) EXPECT_LT(seconds, closed) << "told to wait only once the session closed";
  }
  std::sort(statuses.begin(), statuses.end());
  EXPECT_EQ(statuses, (std::vector<int>{410, 410, 410, 429, 429}));
  trickle.join();
}
