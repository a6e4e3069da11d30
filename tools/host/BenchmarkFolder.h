// A benchmark folder for `cutout eval`: photos, their hand-made truth, one
// box each and, optionally, a lasso trimap.
//
//   images/NAME.png   the photo (any format imgcodecs reads, any extension)
//   truth/NAME.png    8-bit grey: 255 object, 0 background, anything else
//                     (128: mixed pixels on the border) is not scored
//   boxes.tsv         NAME x1 y1 x2 y2 per line, corners inclusive; a first
//                     line starting with "name" is a header
//   lasso/NAME.png    optional trimap: 0 and 64 outside the lasso, 128 and
//                     255 inside it
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

struct BenchmarkPhoto {
  std::string name;          // as in boxes.tsv
  std::string image;         // path of the photo
  std::string truth;         // path of the truth mask
  std::string lasso;         // path of the trimap; empty when there is none
  std::array<int, 4> box{};  // x1, y1, x2, y2, inclusive
};

// The photos in the order of boxes.tsv. Throws CutoutError(kExitBenchmark)
// when the folder, boxes.tsv, a photo or a truth file is missing, or a line
// of boxes.tsv is malformed.
std::vector<BenchmarkPhoto> readBenchmarkFolder(const std::string& dir);

// NAME x1 y1 x2 y2 per line (a first line starting with "name" is a header),
// names and boxes only. Throws CutoutError(kExitBenchmark) when the file is
// missing, empty or has a malformed line.
std::vector<BenchmarkPhoto> readBoxList(const std::string& path);

// The sample photos: NAME.* beside a boxes.tsv, no truth and no lasso.
std::vector<BenchmarkPhoto> readSampleFolder(const std::string& dir);

// An 8-bit grey image of exactly `size` (truth, trimap or saved mask).
// Throws CutoutError(kExitBenchmark) when it is unreadable or of another size.
cv::Mat readGreyOfSize(const std::string& path, cv::Size size);
