#include "Photo.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "Failure.h"

namespace {

// imread says only "empty" for every failure; ask the file system first so
// that a missing file and a file that is no image get different messages.
void checkReadable(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw CutoutError(kExitPhoto, "cannot read photo " + path + ": " + std::strerror(errno));
  char byte;
  if (!file.get(byte)) throw CutoutError(kExitPhoto, "photo " + path + " is empty or a folder");
}

// The codec libraries print their own complaints about a damaged file to
// stderr; the tool's one line says it instead.
class QuietStderr {
 public:
  QuietStderr() : saved_(::dup(2)) {
    const int null = ::open("/dev/null", O_WRONLY);
    if (null >= 0) {
      ::dup2(null, 2);
      ::close(null);
    }
  }
  ~QuietStderr() {
    if (saved_ < 0) return;
    ::dup2(saved_, 2);
    ::close(saved_);
  }
  QuietStderr(const QuietStderr&) = delete;
  QuietStderr& operator=(const QuietStderr&) = delete;

 private:
  int saved_;
};

std::vector<unsigned int> hostPixels(const cv::Mat& bgr) {
  std::vector<unsigned int> pixels(static_cast<size_t>(bgr.cols) * bgr.rows);
  for (int y = 0; y < bgr.rows; ++y) {
    const cv::Vec3b* in = bgr.ptr<cv::Vec3b>(y);
    unsigned int* out = pixels.data() + static_cast<size_t>(y) * bgr.cols;
    for (int x = 0; x < bgr.cols; ++x)
      out[x] = 0xFF000000u | unsigned(in[x][2]) << 16 | unsigned(in[x][1]) << 8 | in[x][0];
  }
  return pixels;
}

// The decoded image in both forms; `name` is for messages.
Photo fromDecoded(cv::Mat bgr, const std::string& name) {
  if (bgr.empty() || bgr.type() != CV_8UC3)
    throw CutoutError(kExitPhoto, "photo " + name + " is not an image that can be decoded");
  Photo photo;
  photo.path = name;
  photo.bgr = std::move(bgr);
  photo.pixels = hostPixels(photo.bgr);
  return photo;
}

}  // namespace

Photo readPhoto(const std::string& path) {
  checkReadable(path);
  cv::Mat bgr;
  try {
    QuietStderr quiet;
    bgr = cv::imread(path, cv::IMREAD_COLOR);
  } catch (const cv::Exception&) {  // a decoder that gave up: same as empty
    bgr.release();
  }
  return fromDecoded(std::move(bgr), path);
}

Photo decodePhoto(const std::string& bytes, const std::string& name) {
  if (bytes.empty()) throw CutoutError(kExitPhoto, "photo " + name + " is empty");
  if (bytes.size() > static_cast<size_t>(INT_MAX)) throw CutoutError(kExitPhoto, "photo " + name + " is too large");
  cv::Mat bgr;
  try {
    QuietStderr quiet;
    const cv::Mat file(1, static_cast<int>(bytes.size()), CV_8UC1, const_cast<char*>(bytes.data()));
    bgr = cv::imdecode(file, cv::IMREAD_COLOR);
  } catch (const cv::Exception&) {
    bgr.release();
  }
  return fromDecoded(std::move(bgr), name);
}

Photo pixelPhoto(int width, int height, const unsigned int* argb, const std::string& path) {
  Photo photo;
  photo.path = path;
  photo.bgr.create(height, width, CV_8UC3);
  for (int y = 0; y < height; ++y) {
    const unsigned int* in = argb + static_cast<size_t>(y) * width;
    cv::Vec3b* out = photo.bgr.ptr<cv::Vec3b>(y);
    for (int x = 0; x < width; ++x) out[x] = cv::Vec3b(in[x] & 0xFF, (in[x] >> 8) & 0xFF, (in[x] >> 16) & 0xFF);
  }
  photo.pixels = hostPixels(photo.bgr);
  return photo;
}

Photo resizedPhoto(const Photo& photo, double megapixels, std::array<int, 4>& box) {
  const double scale = std::sqrt(megapixels * 1e6 / static_cast<double>(photo.bgr.total()));
  if (std::abs(scale - 1.0) < 1e-3) return photo;
  Photo out;
  out.path = photo.path;
  cv::resize(photo.bgr, out.bgr, cv::Size(), scale, scale, cv::INTER_CUBIC);
  out.pixels = hostPixels(out.bgr);
  // Corners scale as the pixel edges they stand for: the far corner is the
  // last pixel before the scaled far edge.
  box = {int(box[0] * scale), int(box[1] * scale), int((box[2] + 1) * scale) - 1,
         int((box[3] + 1) * scale) - 1};
  return out;
}
