// A long editing session on a 2-megapixel photo, as a user would drive it:
// boxes, loops, brush strokes, direct cuts, undo, redo, a reset every 60
// edits and one edit cancelled from another thread. `make soak` runs it
// twice: under LeakSanitizer (any lost byte fails the run at exit), and for
// resident memory, which after the last edit must stay within a few percent
// of that two thirds of the way in (a slow growth the sanitizer cannot see,
// e.g. into state that stays reachable, shows up there). The history's pages
// under an object are first touched when a mask reaches them, so resident
// memory climbs over the first edits by design: the reference comes after.
//
//   long_session [EDITS=300] [MAX_GROWTH_PERCENT]   (no resident check without it)
#include <unistd.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

#include "SegmentationCore.h"
#include "testing/SyntheticScene.h"

namespace {

const int kWidth = 1632, kHeight = 1224;  // 2.0 megapixels

double residentMiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * double(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

// Two objects: a disc and a wide ellipse, on striped background.
Scene photo() {
  return makeScene(kWidth, kHeight, [](int x, int y) {
    const double dx = x - 0.35 * kWidth, dy = y - 0.5 * kHeight;
    const double ex = (x - 0.75 * kWidth) / (0.15 * kWidth), ey = (y - 0.3 * kHeight) / (0.1 * kHeight);
    return dx * dx + dy * dy <= 0.09 * kHeight * kHeight || ex * ex + ey * ey <= 1.0;
  });
}

class Session {
 public:
  explicit Session(const Scene& s) : marks_(size_t(kWidth) * kHeight), rng_(11) {
    pixels_ = s.pixels;
    setSourceImage(kWidth, kHeight, pixels_.data());
    initSegmentationEngine(0);
  }
  ~Session() { deinitSegmentation(); }

  // One edit of the kind picked by `i`; returns its name.
  const char* edit(int i) {
    switch (i % 10) {
      case 0: box(); return "box";
      case 1: stroke(MARK_OBJECT_VALUE, 2); return "stroke add";
      case 2: stroke(MARK_BACKGROUND_VALUE, 3); return "stroke remove";
      case 3: loop(4, 0); return "loop add";
      case 4: cut(); return "cut";
      case 5: undo(preview(), mask_.data()); return "undo";
      case 6: redo(preview(), mask_.data()); return "redo";
      case 7: loop(3, 1); return "loop remove";
      case 8: undo(preview(), mask_.data()); return "undo";
      default:
        if (i % 60 == 59) {
          resetSegmentationInterface();
          return "reset";
        }
        redo(preview(), mask_.data());
        return "redo";
    }
  }

  // A box edit cancelled from another thread after `delay`.
  void cancelledBox(std::chrono::milliseconds delay) {
    std::thread canceller([delay] {
      std::this_thread::sleep_for(delay);
      cancelSegmentation();
    });
    box();
    canceller.join();
    resetSegmentationInterface();  // a cancel stays in force until then
  }

 private:
  static const int MARK_BACKGROUND_VALUE = 1, MARK_OBJECT_VALUE = 2;

  unsigned int* preview() {
    previewBuffer_ = pixels_;
    return previewBuffer_.data();
  }
  int coord(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(rng_); }

  void send(std::vector<int> points, int type) {
    setCurrentMarkerVector(static_cast<int>(points.size()), points.data());
    setMarkerImage(kWidth, kHeight, marks_.data(), type);
    processSegment(0, 0, 0, preview(), mask_.data());
    int* outline = nullptr;
    int length = 0;
    fetch_path_array(&outline, &length);
    delete[] outline;
  }
  void clearMarks() { std::fill(marks_.begin(), marks_.end(), 0); }
  cv::Mat markView() { return cv::Mat(kHeight, kWidth, CV_32S, marks_.data()); }

  void box() {
    const int x0 = coord(kWidth / 3), y0 = coord(kHeight / 3);
    const int x1 = x0 + kWidth / 3 + coord(kWidth / 3), y1 = y0 + kHeight / 3 + coord(kHeight / 3);
    clearMarks();
    cv::rectangle(markView(), {x0, y0}, {x1, y1}, cv::Scalar(4), cv::FILLED);
    send({x0, y0, x1, y0, x1, y1, x0, y1}, 0);
  }
  void stroke(int value, int type) {
    std::vector<int> points;
    for (int k = 0; k < 5; ++k) points.insert(points.end(), {coord(kWidth), coord(kHeight)});
    clearMarks();
    for (size_t k = 2; k < points.size(); k += 2)
      cv::line(markView(), {points[k - 2], points[k - 1]}, {points[k], points[k + 1]}, cv::Scalar(value), 9);
    send(points, type);
  }
  void loop(int value, int type) {
    std::vector<cv::Point> polygon;
    std::vector<int> points;
    const int cx = coord(kWidth), cy = coord(kHeight), r = 60 + coord(kHeight / 4);
    for (int k = 0; k < 12; ++k) {
      const double a = k * CV_PI / 6;
      polygon.emplace_back(cx + int(r * std::cos(a)), cy + int(r * std::sin(a)));
      points.insert(points.end(), {polygon.back().x, polygon.back().y});
    }
    clearMarks();
    cv::fillPoly(markView(), std::vector<std::vector<cv::Point>>{polygon}, cv::Scalar(value));
    send(points, type);
  }
  void cut() {
    clearMarks();
    const int x = coord(kWidth - 80), y = coord(kHeight - 80);
    cv::rectangle(markView(), {x, y}, {x + 79, y + 79}, cv::Scalar(1 + coord(2)), cv::FILLED);
    setMarkerImage(kWidth, kHeight, marks_.data(), 2);
    cutOutImage(0, 0, 0, preview(), mask_.data());
  }

  std::vector<unsigned int> pixels_, previewBuffer_;
  std::vector<int> marks_;
  std::vector<unsigned char> mask_ = std::vector<unsigned char>(size_t(kWidth) * kHeight);
  std::mt19937 rng_;
};

}  // namespace

int main(int argc, char** argv) {
  const int edits = argc > 1 ? std::atoi(argv[1]) : 300;
  const bool checkGrowth = argc > 2;
  const double allowedGrowth = checkGrowth ? std::atof(argv[2]) : 0.0;
  const int baselineEdit = std::max(1, 2 * edits / 3);
  double baseline = 0.0, last = 0.0;
  const auto start = std::chrono::steady_clock::now();
  {
    const Scene scene = photo();
    Session session(scene);
    for (int i = 1; i <= edits; ++i) {
      const auto t0 = std::chrono::steady_clock::now();
      const char* kind = i == edits / 2 ? (session.cancelledBox(std::chrono::milliseconds(40)), "cancelled box")
                                        : session.edit(i);
      const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
      if (i == baselineEdit) baseline = residentMiB();
      if (i == edits) last = residentMiB();
      if (i % 25 == 0 || i == baselineEdit || i == edits / 2)
        std::printf("edit %3d %-14s %7.1f ms  resident %7.1f MiB\n", i, kind, ms, residentMiB());
    }
  }
  const double total = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double growth = baseline > 0 ? 100.0 * (last - baseline) / baseline : 0.0;
  std::printf("%d edits in %.1f s; resident after edit %d: %.1f MiB, after the last: %.1f MiB (%+.1f%%)\n",
              edits, total, baselineEdit, baseline, last, growth);
  if (checkGrowth && growth > allowedGrowth) {
    std::printf("FAILED: resident memory grew by more than %.1f%%\n", allowedGrowth);
    return 1;
  }
  return 0;
}
