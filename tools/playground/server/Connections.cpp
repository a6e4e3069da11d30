#include "Connections.h"

#include <sys/socket.h>

namespace {

// Connections served at once. Each waits only for its own request (a
// session admits a few at a time), so this bounds how many slow or idle
// clients it takes to keep others waiting; an idle thread costs next to
// nothing.
constexpr size_t kConnectionThreads = 128;
// A client silent for this long in the middle of a request is dropped; so
// is one that connects and sends nothing.
constexpr time_t kSilentSeconds = 5;
// A client that does not take its reply for this long is dropped.
constexpr time_t kStalledSeconds = 10;

}  // namespace

void configureConnections(httplib::Server& server) {
  // httplib's default also sets SO_REUSEPORT, with which a second server
  // binds the same port without an error.
  server.set_socket_options([](socket_t sock) {
    const int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  server.new_task_queue = [] { return new httplib::ThreadPool(kConnectionThreads); };
  server.set_read_timeout(kSilentSeconds);
  server.set_keep_alive_timeout(kSilentSeconds);
  server.set_write_timeout(kStalledSeconds);
  server.set_keep_alive_max_count(1);
}
