#include "Outputs.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <system_error>
#include <utility>
#include <vector>

#include "Failure.h"

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<uchar>;

Bytes outlineJson(const Photo& photo, const Shown& shown) {
  nlohmann::ordered_json contours = nlohmann::ordered_json::array();
  for (const auto& contour : shown.outline) {
    nlohmann::ordered_json points = nlohmann::ordered_json::array();
    for (const cv::Point& p : contour) points.push_back({p.x, p.y});
    contours.push_back(std::move(points));
  }
  const nlohmann::ordered_json doc = {
      {"width", photo.width()}, {"height", photo.height()}, {"contours", contours}};
  const std::string text = doc.dump() + "\n";
  return Bytes(text.begin(), text.end());
}

void writeFile(const fs::path& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (file)
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (file) file.close();
  if (!file) throw CutoutError(kExitOutput, "cannot write " + path.string() + ": " + std::strerror(errno));
}

}  // namespace

cv::Mat objectMask(const Photo& photo, const Shown& shown) {
  cv::Mat mask(photo.height(), photo.width(), CV_8UC1);
  std::transform(shown.mask.begin(), shown.mask.end(), mask.begin<uchar>(),
                 [](unsigned char host) { return host == 0 ? 255 : 0; });  // host: 0 = object
  return mask;
}

cv::Mat cutoutImage(const Photo& photo, const cv::Mat& mask) {
  cv::Mat bgra;
  cv::cvtColor(photo.bgr, bgra, cv::COLOR_BGR2BGRA);
  const int maskToAlpha[] = {0, 3};  // in place: no photo-sized copies on the way
  cv::mixChannels(&mask, 1, &bgra, 1, maskToAlpha, 1);
  return bgra;
}

cv::Mat previewImage(const Photo& photo, const Shown& shown) {
  cv::Mat bgr(photo.height(), photo.width(), CV_8UC3);
  std::transform(shown.preview.begin(), shown.preview.end(), bgr.begin<cv::Vec3b>(),
                 [](unsigned int p) { return cv::Vec3b(uchar(p), uchar(p >> 8), uchar(p >> 16)); });
  return bgr;
}

Bytes pngBytes(const cv::Mat& image) {
  Bytes bytes;
  if (!cv::imencode(".png", image, bytes)) throw CutoutError(kExitInternal, "PNG encoding failed");
  return bytes;
}

void prepareOutputDir(const std::string& dir) {
  std::error_code error;
  fs::create_directories(dir, error);
  if (!error && !fs::is_directory(dir, error)) error = std::make_error_code(std::errc::not_a_directory);
  if (!error && ::access(dir.c_str(), W_OK | X_OK) != 0)
    error = std::error_code(errno, std::generic_category());
  if (error) throw CutoutError(kExitOutput, "cannot create output folder " + dir + ": " + error.message());
}

void writeOutputs(const std::string& dir, const Photo& photo, const Shown& shown) {
  const cv::Mat mask = objectMask(photo, shown);
  const std::vector<std::pair<std::string, Bytes>> files = {
      {"mask.png", pngBytes(mask)},
      {"cutout.png", pngBytes(cutoutImage(photo, mask))},
      {"preview.png", pngBytes(previewImage(photo, shown))},
      {"outline.json", outlineJson(photo, shown)},
  };
  const std::string suffix = "." + std::to_string(::getpid()) + ".tmp";
  std::vector<fs::path> written;
  try {
    for (const auto& [name, bytes] : files) {
      written.push_back(fs::path(dir) / ("." + name + suffix));
      writeFile(written.back(), bytes);
    }
    for (size_t i = 0; i < files.size(); ++i) {
      std::error_code error;
      fs::rename(written[i], fs::path(dir) / files[i].first, error);
      if (error)
        throw CutoutError(kExitOutput, "cannot write " + (fs::path(dir) / files[i].first).string() + ": " +
                                           error.message());
    }
  } catch (...) {
    std::error_code ignored;
    for (const fs::path& path : written) fs::remove(path, ignored);
    throw;
  }
}
