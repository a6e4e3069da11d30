#include "RequestGuard.h"

#include <set>

#include "Replies.h"

namespace {

bool fromOurPage(const httplib::Request& req, const std::set<std::string>& origins) {
  if (req.has_header("Origin") && !origins.count(req.get_header_value("Origin"))) return false;
  // "none": typed in the address bar or opened from a bookmark.
  const std::string site = req.get_header_value("Sec-Fetch-Site");
  return site.empty() || site == "same-origin" || site == "none";
}

}  // namespace

void guardRequests(httplib::Server& server, const std::string& host, int port) {
  const std::string at = ":" + std::to_string(port);
  const std::set<std::string> hosts = {host + at, "localhost" + at};
  const std::set<std::string> origins = {"http://" + host + at, "http://localhost" + at};
  server.set_pre_routing_handler([hosts, origins](const httplib::Request& req, httplib::Response& res) {
    if (!hosts.count(req.get_header_value("Host"))) {
      sendError(res, 403, "The playground answers only requests addressed to " + *hosts.begin() + ".");
      return httplib::Server::HandlerResponse::Handled;
    }
    if (req.path.rfind("/api/", 0) == 0 && !fromOurPage(req, origins)) {
      sendError(res, 403, "The playground's API answers only its own page, at " + *origins.begin() + "/.");
      return httplib::Server::HandlerResponse::Handled;
    }
    return httplib::Server::HandlerResponse::Unhandled;
  });
}
