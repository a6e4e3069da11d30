#include "Replies.h"

void sendJson(httplib::Response& res, int status, const nlohmann::json& body) {
  res.status = status;
  res.set_header("Cache-Control", "no-store");
  res.set_content(body.dump(), "application/json");
}

void sendError(httplib::Response& res, int status, const std::string& message) {
  sendJson(res, status, {{"error", message}});
}

void fillEmptyError(const httplib::Request& req, httplib::Response& res, size_t maxUploadBytes) {
  if (!res.body.empty()) return;
  switch (res.status) {
    case 413:
      sendError(res, 413,
                "The file is too large to upload: the playground takes files up to " +
                    std::to_string(maxUploadBytes >> 20) + " MB.");
      break;
    case 404:
      sendError(res, 404, "Nothing is served at " + req.path + ".");
      break;
    default:
      if (res.status >= 400) sendError(res, res.status, "The request could not be understood (HTTP " +
                                                            std::to_string(res.status) + ").");
  }
}
