// playground: cut an object out of a photo in a browser page, as a person
// does on the phone. Serves the page and an editing API on 127.0.0.1; each
// browser session is edited by a worker process of its own, which is this
// program started again with --worker.
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "Connections.h"
#include "Replies.h"
#include "RequestGuard.h"
#include "ServerConfig.h"
#include "SessionRoutes.h"
#include "StaticRoutes.h"
#include "tools/playground/worker/WorkerMain.h"
#include "WorkerPool.h"

namespace {

// Where a worker finds its pipes (WorkerProcess.cpp puts them there).
constexpr int kWorkerIn = 3, kWorkerOut = 4;
// Only this machine may connect: the page can read any photo it is given.
const char* const kHost = "127.0.0.1";

struct Options {
  bool worker = false;
  int port = 8080;
  ServerConfig config;
  size_t maxUploadMb = 128;
  size_t workers = 4;
  int idleSeconds = 600;
  int pageSeconds = 180;
  // The machine's cores, up to four: more gain little on a photo's edit.
  int threads = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 4u));
};

Options parse(int argc, char** argv) {
  Options o;
  o.config.webDir = SEG_PLAYGROUND_WEB_DIR;
  o.config.samplesDir = SEG_SAMPLES_DIR;
  CLI::App app("playground: cut an object out of a photo in a browser page, served on " + std::string(kHost));
  app.add_option("--port", o.port, "Port to listen on; 0 picks a free one")->capture_default_str();
  app.add_option("--web", o.config.webDir, "Folder of the page")->capture_default_str();
  app.add_option("--samples", o.config.samplesDir, "Folder of the bundled photos")->capture_default_str();
  app.add_option("--max-upload-mb", o.maxUploadMb, "Largest photo file accepted, in MB")->capture_default_str();
  app.add_option("--max-megapixels", o.config.maxMegapixels, "Largest photo accepted")->capture_default_str();
  app.add_option("--workers", o.workers, "Sessions edited at once")->capture_default_str();
  app.add_option("--idle-seconds", o.idleSeconds, "A session unused this long ends")->capture_default_str();
  app.add_option("--page-seconds", o.pageSeconds, "A session whose page is not heard from this long ends")
      ->capture_default_str();
  app.add_option("--threads", o.threads, "Threads for each segmentation in a worker")->capture_default_str();
  app.add_flag("--worker", o.worker, "Internal: serve one session on descriptors 3 and 4");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    std::exit(app.exit(e));
  }
  o.config.maxUploadBytes = o.maxUploadMb << 20;
  return o;
}

void addErrorHandlers(httplib::Server& server, const ServerConfig& config) {
  server.set_error_handler([&config](const httplib::Request& req, httplib::Response& res) {
    fillEmptyError(req, res, config.maxUploadBytes);
  });
  server.set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr e) {
    std::string what = "unknown";
    try {
      std::rethrow_exception(e);
    } catch (const std::exception& x) {
      what = x.what();
    } catch (...) {
    }
    std::fprintf(stderr, "playground: internal failure: %s\n", what.c_str());
    sendError(res, 500, "Internal failure in the server: " + what);
  });
}

int serve(const Options& o) {
  // Ctrl+C and kill are waited for by one thread, which stops the server;
  // a worker that dies must not take the server down through SIGPIPE.
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGINT);
  sigaddset(&stops, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stops, nullptr);
  signal(SIGPIPE, SIG_IGN);
  // Photos live in this process's memory (and its workers'): a crash must
  // not leave one in a core file.
  prctl(PR_SET_DUMPABLE, 0);

  WorkerPool pool(WorkerCommand{std::filesystem::canonical("/proc/self/exe").string(), o.threads},
                  PoolLimits{o.workers, std::chrono::seconds(o.idleSeconds), std::chrono::seconds(o.pageSeconds)},
                  SessionLimits{});
  httplib::Server server;
  configureConnections(server);
  server.set_payload_max_length(o.config.maxUploadBytes);
  addErrorHandlers(server, o.config);
  addSessionRoutes(server, pool, o.config);
  addStaticRoutes(server, o.config);

  const int port = o.port == 0 ? server.bind_to_any_port(kHost) : (server.bind_to_port(kHost, o.port) ? o.port : -1);
  if (port < 0) {
    std::fprintf(stderr, "playground: cannot listen on %s:%d (taken? try PORT=%d make playground)\n", kHost, o.port,
                 o.port + 1);
    return 1;
  }
  guardRequests(server, kHost, port);
  std::printf("Playground at http://%s:%d/  (Ctrl+C stops it)\n", kHost, port);
  std::fflush(stdout);

  std::atomic<bool> signalled{false};
  std::thread stopper([&server, &signalled, stops] {
    int signal = 0;
    sigwait(&stops, &signal);
    signalled = true;
    server.stop();
  });
  const bool listened = server.listen_after_bind();
  if (!signalled) kill(getpid(), SIGTERM);  // ends the waiting thread
  stopper.join();
  return listened ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  if (o.worker) runWorker(kWorkerIn, kWorkerOut, o.threads);
  return serve(o);
}
