#include "RequestBody.h"

#include <cstdlib>

#include "Replies.h"

namespace {

void refuseTooLarge(httplib::Response& res, size_t limit, const std::string& what) {
  sendError(res, 413, what + " is too large: the playground takes up to " + sizeText(limit) + ".");
}

}  // namespace

std::optional<std::string> readBody(const httplib::Request& req, httplib::Response& res,
                                    const httplib::ContentReader& reader, size_t limit, const std::string& what) {
  if (req.has_header("Content-Length") &&
      std::strtoull(req.get_header_value("Content-Length").c_str(), nullptr, 10) > limit) {
    refuseTooLarge(res, limit, what);
    return std::nullopt;
  }
  // A request with neither a length nor chunks has no body (httplib would
  // read on until the client closes the connection).
  if (!req.has_header("Content-Length") && req.get_header_value("Transfer-Encoding") != "chunked") return "";
  std::string body;
  bool over = false;
  const bool whole = reader([&](const char* data, size_t length) {
    over = body.size() + length > limit;
    if (!over) body.append(data, length);
    return !over;
  });
  if (over) {
    refuseTooLarge(res, limit, what);
    return std::nullopt;
  }
  if (!whole) {
    sendError(res, 400, what + " broke off before its end.");
    return std::nullopt;
  }
  return body;
}

std::string sizeText(size_t bytes) {
  return bytes >= (1u << 20) ? std::to_string(bytes >> 20) + " MB" : std::to_string(bytes >> 10) + " KB";
}
