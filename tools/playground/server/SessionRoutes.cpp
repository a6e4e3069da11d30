#include "SessionRoutes.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "PhotoHeader.h"
#include "Replies.h"
#include "RequestBody.h"
#include "StaticRoutes.h"

using nlohmann::json;

namespace {

const char* const kWorkerDied =
    "The worker for this session stopped (it crashed or was killed), and a new one could not take the "
    "session over. The server is still running: choose a photo to start a new session.";
const char* const kStartAgain = " Choose a photo to start a new session.";
// Cancel, heartbeat and close carry no body worth the name.
constexpr size_t kSmallBody = 4096;

class Routes {
 public:
  Routes(WorkerPool& pool, const ServerConfig& config) : pool_(pool), config_(config) {}

  void config(httplib::Response& res) const {
    sendJson(res, 200, {{"maxUploadBytes", config_.maxUploadBytes},
                        {"maxStepBytes", config_.maxStepBytes},
                        {"maxMegapixels", config_.maxMegapixels},
                        {"viewMaxSide", config_.viewMaxSide},
                        {"workers", pool_.limits().workers},
                        {"inUse", pool_.inUse()},
                        {"idleSeconds", pool_.limits().idle.count()}});
  }

  void create(const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& reader) {
    std::optional<std::string> body = readBody(req, res, reader, config_.maxUploadBytes, "The photo");
    if (!body) return;
    std::string photo, warning;
    if (req.get_header_value("Content-Type").rfind("application/json", 0) == 0) {
      const json asked = json::parse(*body, nullptr, false);
      if (asked.is_discarded() || !asked.is_object() || !asked.contains("sample") || !asked["sample"].is_string())
        return sendError(res, 400, "Expected {\"sample\": \"NAME\"}, the name of a bundled photo.");
      const std::string name = asked["sample"];
      photo = sampleBytes(config_, name);
      if (photo.empty()) return sendError(res, 404, "There is no bundled photo named \"" + name + "\".");
    } else {
      const std::optional<PhotoHeader> header = checkUpload(*body, res);
      if (!header) return;
      if (!header->complete)
        warning = std::string("The ") + header->format +
                  " file ends before its last pixels (it may have been cut off while it was copied or "
                  "downloaded): what is missing shows grey.";
      photo = std::move(*body);
    }
    open(std::move(photo), req.has_param("replaces") ? req.get_param_value("replaces") : "", warning, res);
  }

  void step(const std::string& id, const httplib::Request& req, httplib::Response& res,
            const httplib::ContentReader& reader) {
    const std::optional<std::string> body = readBody(req, res, reader, config_.maxStepBytes, "The step");
    if (body) forward(id, {{"op", "step"}, {"step", *body}}, res);
  }

  void cancel(const std::string& id, httplib::Response& res) {
    const auto session = find(id, res);
    if (session) sendJson(res, 200, {{"running", session->cancel()}});
  }

  void alive(const std::string& id, httplib::Response& res) {
    const auto session = find(id, res);
    if (!session) return;
    session->heard();
    sendJson(res, 200, {{"workers", pool_.limits().workers}, {"inUse", pool_.inUse()}});
  }

  void view(const std::string& id, const httplib::Request& req, httplib::Response& res) {
    const std::string kind = req.has_param("kind") ? req.get_param_value("kind") : "photo";
    // The page asks for its screen's size; a bad number gets the largest.
    const int asked = req.has_param("max") ? std::atoi(req.get_param_value("max").c_str()) : 0;
    const int max = asked >= 64 && asked < config_.viewMaxSide ? asked : config_.viewMaxSide;
    forward(id, {{"op", "view"}, {"kind", kind}, {"max", max}}, res);
  }

  void download(const std::string& id, const std::string& name, httplib::Response& res) {
    forward(id, {{"op", "file"}, {"name", name}}, res);
    if (res.status == 200) res.set_header("Content-Disposition", "attachment; filename=\"" + name + "\"");
  }

  void end(const std::string& id, httplib::Response& res) {
    if (!find(id, res)) return;
    pool_.end(id, "its page was closed");
    res.status = 204;
  }

 private:
  // Turns away what is no photo, or too large, before a worker starts.
  std::optional<PhotoHeader> checkUpload(const std::string& bytes, httplib::Response& res) const {
    if (bytes.empty()) {
      sendError(res, 400, "The request holds no photo.");
      return std::nullopt;
    }
    const auto header = readPhotoHeader(bytes);
    if (!header) {
      sendError(res, 415, "This file is not a photo the playground can open: it takes JPEG, PNG and WebP.");
      return std::nullopt;
    }
    const double megapixels = header->width * static_cast<double>(header->height) / 1e6;
    if (megapixels > config_.maxMegapixels) {
      char text[200];
      std::snprintf(text, sizeof text,
                    "The photo is too large: %lld x %lld pixels is %.1f megapixels, and the playground "
                    "takes up to %g.",
                    header->width, header->height, megapixels, config_.maxMegapixels);
      sendError(res, 413, text);
      return std::nullopt;
    }
    if (header->width < 1 || header->height < 1) {
      sendError(res, 415, std::string("The ") + header->format + " file has no pixels.");
      return std::nullopt;
    }
    return header;
  }

  void open(std::string photo, const std::string& replaces, const std::string& warning, httplib::Response& res) {
    const std::string id = pool_.add(std::move(photo), replaces);
    if (id.empty()) {
      res.set_header("Retry-After", "60");
      return sendError(res, 503,
                       "All " + std::to_string(pool_.limits().workers) +
                           " editing places are taken by other sessions. Please wait a minute and try "
                           "again; a place frees up when a session's page is closed or it stays unused "
                           "for a while.");
    }
    const auto session = pool_.find(id);
    const Session::Answer answer = session ? session->open() : Session::Answer{};
    if (answer.outcome != Session::Outcome::Replied) {
      pool_.end(id, "its worker stopped");
      return sendError(res, 502, kWorkerDied);
    }
    const json& reply = answer.reply.header;
    if (reply.value("status", 500) != 200) {
      pool_.end(id, "its photo could not be opened");
      return sendJson(res, reply.value("status", 500), {{"error", reply.value("error", "The photo could not be opened.")}});
    }
    if (!replaces.empty()) pool_.end(replaces, "another photo was opened in its place");
    std::fprintf(stderr, "playground: session %.8s opened a %d x %d photo\n", id.c_str(), reply.value("width", 0),
                 reply.value("height", 0));
    json created = {{"id", id},
                    {"width", reply["width"]},
                    {"height", reply["height"]},
                    {"workers", pool_.limits().workers},
                    {"inUse", pool_.inUse()}};
    if (!warning.empty()) created["warning"] = warning;
    sendJson(res, 201, created);
  }

  std::shared_ptr<Session> find(const std::string& id, httplib::Response& res) {
    auto session = pool_.find(id);
    if (session) return session;
    const std::string why = pool_.whyEnded(id);
    if (why.empty())
      sendError(res, 404, std::string("There is no editing session with this id.") + kStartAgain);
    else
      sendError(res, 410, "This editing session has ended: " + why + "." + kStartAgain);
    return nullptr;
  }

  // Passes a request to the session's worker and its reply to the browser.
  void forward(const std::string& id, const json& request, httplib::Response& res) {
    const auto session = find(id, res);
    if (!session) return;
    const Session::Answer answer = session->call(request);
    if (answer.outcome == Session::Outcome::Busy) {
      res.set_header("Retry-After", "1");
      return sendError(res, 429, "This session is still busy with earlier requests: wait until they are done.");
    }
    if (answer.outcome == Session::Outcome::Closed) {
      find(id, res);  // says why it ended
      return;
    }
    if (answer.outcome == Session::Outcome::Lost) {
      pool_.end(id, "its worker stopped and a new one could not take the session over");
      return sendError(res, 502, kWorkerDied);
    }
    const Message& reply = answer.reply;
    const int status = reply.header.value("status", 500);
    if (status != 200 || !reply.header.contains("type")) {
      json body = reply.header;
      body.erase("status");
      if (answer.restored >= 0) body["restored"] = answer.restored;
      if (answer.interrupted) body["interrupted"] = true;
      return sendJson(res, status, body);
    }
    res.status = 200;
    res.set_header("Cache-Control", "no-store");
    res.set_content(reply.payload, reply.header.value("type", "application/octet-stream"));
  }

  WorkerPool& pool_;
  const ServerConfig& config_;
};

}  // namespace

void addSessionRoutes(httplib::Server& server, WorkerPool& pool, const ServerConfig& config) {
  using httplib::ContentReader;
  using httplib::Request;
  using httplib::Response;
  auto routes = std::make_shared<Routes>(pool, config);
  const std::string session = R"(/api/sessions/([^/]+))";
  server.Get("/api/config", [routes](const Request&, Response& res) { routes->config(res); });
  // Every POST reads its body through a ContentReader, so that its limit is
  // checked before the body is read.
  server.Post("/api/sessions", [routes](const Request& req, Response& res, const ContentReader& reader) {
    routes->create(req, res, reader);
  });
  server.Post(session + "/steps", [routes](const Request& req, Response& res, const ContentReader& reader) {
    routes->step(req.matches[1], req, res, reader);
  });
  // Cancel, heartbeat and close: a body, if any, is read and set aside.
  const auto signal = [routes](void (Routes::*handle)(const std::string&, Response&)) {
    return [routes, handle](const Request& req, Response& res, const ContentReader& reader) {
      if (readBody(req, res, reader, kSmallBody, "The request")) (routes.get()->*handle)(req.matches[1], res);
    };
  };
  server.Post(session + "/cancel", signal(&Routes::cancel));
  server.Post(session + "/alive", signal(&Routes::alive));
  server.Post(session + "/close", signal(&Routes::end));
  server.Get(session + "/view", [routes](const Request& req, Response& res) {
    routes->view(req.matches[1], req, res);
  });
  server.Get(session + R"(/(mask\.png|cutout\.png|session\.json))", [routes](const Request& req, Response& res) {
    routes->download(req.matches[1], req.matches[2], res);
  });
  server.Delete(session, [routes](const Request& req, Response& res) { routes->end(req.matches[1], res); });
}
