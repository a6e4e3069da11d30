#include "BenchmarkFolder.h"

#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <sstream>

#include "Failure.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::string& message) { throw CutoutError(kExitBenchmark, message); }

// The file in `folder` whose name without extension is `name`, or "".
std::string findByStem(const fs::path& folder, const std::string& name) {
  std::error_code error;
  if (!fs::is_directory(folder, error)) return "";
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, error))
    if (entry.is_regular_file(error) && entry.path().stem() == name) return entry.path().string();
  return "";
}

BenchmarkPhoto parseBoxLine(const std::string& line, const std::string& where) {
  std::istringstream fields(line);
  BenchmarkPhoto photo;
  std::array<int, 4>& b = photo.box;
  std::string rest;
  if (!(fields >> photo.name >> b[0] >> b[1] >> b[2] >> b[3]) || (fields >> rest))
    fail(where + ": expected NAME x1 y1 x2 y2");
  if (b[0] < 0 || b[1] < 0 || b[2] < b[0] || b[3] < b[1]) fail(where + ": empty or negative box");
  return photo;
}

}  // namespace

std::vector<BenchmarkPhoto> readBoxList(const std::string& path) {
  std::ifstream boxes(path);
  if (!boxes) fail("cannot read " + path);
  std::vector<BenchmarkPhoto> photos;
  std::string line;
  for (int number = 1; std::getline(boxes, line); ++number) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    if (number == 1 && line.rfind("name", 0) == 0) continue;  // the header
    photos.push_back(parseBoxLine(line, path + ": line " + std::to_string(number)));
  }
  if (photos.empty()) fail(path + " lists no photo");
  return photos;
}

std::vector<BenchmarkPhoto> readBenchmarkFolder(const std::string& dir) {
  const fs::path root(dir);
  std::error_code error;
  if (!fs::is_directory(root, error)) fail("benchmark folder " + dir + " does not exist");
  std::vector<BenchmarkPhoto> photos = readBoxList((root / "boxes.tsv").string());
  for (BenchmarkPhoto& photo : photos) {
    photo.image = findByStem(root / "images", photo.name);
    photo.truth = findByStem(root / "truth", photo.name);
    photo.lasso = findByStem(root / "lasso", photo.name);
    if (photo.image.empty()) fail("no photo images/" + photo.name + ".* in " + dir);
    if (photo.truth.empty()) fail("no truth truth/" + photo.name + ".* in " + dir);
  }
  return photos;
}

std::vector<BenchmarkPhoto> readSampleFolder(const std::string& dir) {
  std::vector<BenchmarkPhoto> photos = readBoxList((fs::path(dir) / "boxes.tsv").string());
  for (BenchmarkPhoto& photo : photos) {
    photo.image = findByStem(dir, photo.name);
    if (photo.image.empty()) fail("no photo " + photo.name + ".* in " + dir);
  }
  return photos;
}

cv::Mat readGreyOfSize(const std::string& path, cv::Size size) {
  cv::Mat grey;
  try {
    grey = cv::imread(path, cv::IMREAD_GRAYSCALE);
  } catch (const cv::Exception&) {
    grey.release();
  }
  if (grey.empty()) fail(path + " is not an image that can be decoded");
  if (grey.size() != size)
    fail(path + " is " + std::to_string(grey.cols) + "x" + std::to_string(grey.rows) + ", the photo " +
         std::to_string(size.width) + "x" + std::to_string(size.height));
  return grey;
}
