// How the server answers: JSON, and every failure as {"error": "..."} in
// words the page can show as they are.
#pragma once

#include <httplib.h>

#include <nlohmann/json.hpp>
#include <string>

void sendJson(httplib::Response& res, int status, const nlohmann::json& body);
void sendError(httplib::Response& res, int status, const std::string& message);

// For replies that carry no body of their own (httplib's 404 for no route,
// 413 for a body over the limit, 400 for a request it cannot parse).
void fillEmptyError(const httplib::Request& req, httplib::Response& res, size_t maxUploadBytes);
