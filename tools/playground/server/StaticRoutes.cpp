#include "StaticRoutes.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "PhotoHeader.h"
#include "Replies.h"
#include "tools/host/BenchmarkFolder.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

const char* contentType(const fs::path& path) {
  static const std::map<std::string, const char*> types = {
      {".html", "text/html; charset=utf-8"}, {".css", "text/css; charset=utf-8"},
      {".js", "text/javascript; charset=utf-8"}, {".svg", "image/svg+xml"},
      {".png", "image/png"}, {".ico", "image/x-icon"}};
  const auto it = types.find(path.extension().string());
  return it == types.end() ? "application/octet-stream" : it->second;
}

// A request path names a file under the web folder only if no segment
// climbs out of it; anything else is refused rather than resolved.
bool staysInside(const std::string& path) {
  if (path.find('\0') != std::string::npos || path.find('\\') != std::string::npos) return false;
  for (const fs::path& part : fs::path(path).relative_path())
    if (part == "..") return false;
  return true;
}

void serveFile(const ServerConfig& config, const httplib::Request& req, httplib::Response& res) {
  if (!staysInside(req.path)) {
    sendError(res, 400, "The path " + req.path + " leaves the folder the page is served from.");
    return;
  }
  fs::path file = fs::path(config.webDir) / fs::path(req.path).relative_path();
  std::error_code error;
  if (fs::is_directory(file, error)) file /= "index.html";
  if (!fs::is_regular_file(file, error)) {
    sendError(res, 404, "There is no file " + req.path + ".");
    return;
  }
  res.set_header("Cache-Control", "no-cache");
  res.set_content(readFile(file), contentType(file));
}

json sampleList(const ServerConfig& config) {
  json list = json::array();
  for (const BenchmarkPhoto& sample : readSampleFolder(config.samplesDir)) {
    const auto header = readPhotoHeader(readFile(sample.image));
    if (!header) continue;
    list.push_back({{"name", fs::path(sample.image).filename().string()},
                    {"width", header->width},
                    {"height", header->height},
                    {"box", sample.box}});
  }
  return list;
}

}  // namespace

void addStaticRoutes(httplib::Server& server, const ServerConfig& config) {
  server.Get("/api/samples", [&config](const httplib::Request&, httplib::Response& res) {
    sendJson(res, 200, sampleList(config));
  });
  server.Get(R"(/.*)", [&config](const httplib::Request& req, httplib::Response& res) {
    serveFile(config, req, res);
  });
}

std::string sampleBytes(const ServerConfig& config, const std::string& name) {
  for (const BenchmarkPhoto& sample : readSampleFolder(config.samplesDir))
    if (fs::path(sample.image).filename() == name) return readFile(sample.image);
  return {};
}
