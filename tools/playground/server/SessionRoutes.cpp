#include "SessionRoutes.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "PhotoHeader.h"
#include "Replies.h"
#include "StaticRoutes.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const char* const kWorkerDied =
    "The worker for this session stopped while working on it (it crashed or was killed). "
    "The server is still running: choose a photo to start a new session.";
const char* const kStartAgain = " Choose a photo to start a new session.";

// An uploaded photo, written where its worker can read it and removed once
// the worker has.
class UploadFile {
 public:
  explicit UploadFile(const std::string& bytes) {
    std::string name = (fs::temp_directory_path() / "playground-upload-XXXXXX").string();
    const int fd = ::mkstemp(name.data());
    if (fd < 0) throw std::runtime_error("cannot create a temporary file for the upload");
    ::close(fd);
    path_ = name;
    std::ofstream(path_, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  ~UploadFile() {
    std::error_code ignored;
    fs::remove(path_, ignored);
  }
  UploadFile(const UploadFile&) = delete;
  UploadFile& operator=(const UploadFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class Routes {
 public:
  Routes(WorkerPool& pool, const ServerConfig& config) : pool_(pool), config_(config) {}

  void config(httplib::Response& res) const {
    sendJson(res, 200, {{"maxUploadBytes", config_.maxUploadBytes},
                        {"maxMegapixels", config_.maxMegapixels},
                        {"workers", pool_.limits().workers},
                        {"idleSeconds", pool_.limits().idle.count()}});
  }

  void create(const httplib::Request& req, httplib::Response& res) {
    const bool sample = req.get_header_value("Content-Type").rfind("application/json", 0) == 0;
    std::string path, name;
    std::unique_ptr<UploadFile> upload;
    if (sample) {
      const json body = json::parse(req.body, nullptr, false);
      if (body.is_discarded() || !body.is_object() || !body.contains("sample") || !body["sample"].is_string())
        return sendError(res, 400, "Expected {\"sample\": \"NAME\"}, the name of a bundled photo.");
      name = body["sample"];
      path = samplePath(config_, name);
      if (path.empty()) return sendError(res, 404, "There is no bundled photo named \"" + name + "\".");
    } else {
      if (!checkUpload(req.body, res)) return;
      upload = std::make_unique<UploadFile>(req.body);
      path = upload->path();
    }
    open(path, res);
  }

  void step(const std::string& id, const httplib::Request& req, httplib::Response& res) {
    forward(id, {{{"op", "step"}, {"step", req.body}}, {}}, res);
  }

  void cancel(const std::string& id, httplib::Response& res) {
    const auto worker = find(id, res);
    if (!worker) return;
    const bool running = worker->busy();
    if (running) worker->cancel();
    sendJson(res, 200, {{"running", running}});
  }

  void view(const std::string& id, const httplib::Request& req, httplib::Response& res) {
    const std::string kind = req.has_param("kind") ? req.get_param_value("kind") : "preview";
    // The page asks for its screen's size; a bad number gets the largest.
    const int asked = req.has_param("max") ? std::atoi(req.get_param_value("max").c_str()) : 0;
    const int max = asked >= 64 && asked < config_.viewMaxSide ? asked : config_.viewMaxSide;
    forward(id, {{{"op", "view"}, {"kind", kind}, {"max", max}}, {}}, res);
  }

  void download(const std::string& id, const std::string& name, httplib::Response& res) {
    forward(id, {{{"op", "file"}, {"name", name}}, {}}, res);
    if (res.status == 200) res.set_header("Content-Disposition", "attachment; filename=\"" + name + "\"");
  }

  void end(const std::string& id, httplib::Response& res) {
    if (!find(id, res)) return;
    pool_.end(id, "it was closed");
    res.status = 204;
  }

 private:
  // Turns away what is no photo, or too large, before a worker starts.
  bool checkUpload(const std::string& bytes, httplib::Response& res) const {
    if (bytes.empty()) {
      sendError(res, 400, "The request holds no photo.");
      return false;
    }
    const auto header = readPhotoHeader(bytes);
    if (!header) {
      sendError(res, 415, "This file is not a photo the playground can open: it takes JPEG, PNG and WebP.");
      return false;
    }
    const double megapixels = header->width * static_cast<double>(header->height) / 1e6;
    if (megapixels > config_.maxMegapixels) {
      char text[200];
      std::snprintf(text, sizeof text,
                    "The photo is too large: %lld x %lld pixels is %.1f megapixels, and the playground "
                    "takes up to %g.",
                    header->width, header->height, megapixels, config_.maxMegapixels);
      sendError(res, 413, text);
      return false;
    }
    if (header->width < 1 || header->height < 1) {
      sendError(res, 415, std::string("The ") + header->format + " file has no pixels.");
      return false;
    }
    return true;
  }

  void open(const std::string& path, httplib::Response& res) {
    const std::string id = pool_.start();
    if (id.empty()) {
      res.set_header("Retry-After", "60");
      return sendError(res, 503,
                       "All " + std::to_string(pool_.limits().workers) +
                           " editing places are taken by other sessions. Please wait a minute and try "
                           "again; a place frees up when a session closes or stays unused for a while.");
    }
    const auto worker = pool_.find(id);
    const auto reply = worker ? worker->call({{{"op", "open"}, {"path", path}}, {}}) : std::nullopt;
    if (!reply) {
      pool_.end(id, "its worker stopped");
      return sendError(res, 502, kWorkerDied);
    }
    const int status = reply->header.value("status", 500);
    if (status != 200) {
      pool_.end(id, "its photo could not be opened");
      return sendJson(res, status, {{"error", reply->header.value("error", "The photo could not be opened.")}});
    }
    std::fprintf(stderr, "playground: session %.8s opened a %d x %d photo\n", id.c_str(),
                 reply->header.value("width", 0), reply->header.value("height", 0));
    sendJson(res, 201, {{"id", id}, {"width", reply->header["width"]}, {"height", reply->header["height"]}});
  }

  std::shared_ptr<WorkerProcess> find(const std::string& id, httplib::Response& res) {
    auto worker = pool_.find(id);
    if (worker) return worker;
    const std::string why = pool_.whyEnded(id);
    if (why.empty())
      sendError(res, 404, std::string("There is no editing session with this id.") + kStartAgain);
    else
      sendError(res, 410, "This editing session has ended: " + why + "." + kStartAgain);
    return nullptr;
  }

  // Passes a request to the session's worker and its reply to the browser.
  void forward(const std::string& id, const Message& request, httplib::Response& res) {
    const auto worker = find(id, res);
    if (!worker) return;
    const auto reply = worker->call(request);
    if (!reply) {
      pool_.end(id, "its worker process stopped (it crashed or was killed)");
      return sendError(res, 502, kWorkerDied);
    }
    const int status = reply->header.value("status", 500);
    if (status != 200 || !reply->header.contains("type")) {
      json body = reply->header;
      body.erase("status");
      return sendJson(res, status, body);
    }
    res.status = 200;
    res.set_header("Cache-Control", "no-store");
    res.set_content(reply->payload, reply->header.value("type", "application/octet-stream"));
  }

  WorkerPool& pool_;
  const ServerConfig& config_;
};

}  // namespace

void addSessionRoutes(httplib::Server& server, WorkerPool& pool, const ServerConfig& config) {
  auto routes = std::make_shared<Routes>(pool, config);
  const std::string session = R"(/api/sessions/([^/]+))";
  server.Get("/api/config", [routes](const httplib::Request&, httplib::Response& res) { routes->config(res); });
  server.Post("/api/sessions",
              [routes](const httplib::Request& req, httplib::Response& res) { routes->create(req, res); });
  server.Post(session + "/steps", [routes](const httplib::Request& req, httplib::Response& res) {
    routes->step(req.matches[1], req, res);
  });
  server.Post(session + "/cancel", [routes](const httplib::Request& req, httplib::Response& res) {
    routes->cancel(req.matches[1], res);
  });
  server.Get(session + "/view", [routes](const httplib::Request& req, httplib::Response& res) {
    routes->view(req.matches[1], req, res);
  });
  server.Get(session + R"(/(mask\.png|cutout\.png|session\.json))",
             [routes](const httplib::Request& req, httplib::Response& res) {
               routes->download(req.matches[1], req.matches[2], res);
             });
  server.Delete(session, [routes](const httplib::Request& req, httplib::Response& res) {
    routes->end(req.matches[1], res);
  });
}
