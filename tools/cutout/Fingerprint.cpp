#include "Fingerprint.h"

#include <SegmentationCore.h>
#include <android/log.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <opencv2/imgproc.hpp>

#include "testing/SyntheticScene.h"
#include "tools/eval/robot/RobotUser.h"
#include "tools/host/BenchmarkFolder.h"
#include "tools/host/Failure.h"
#include "tools/host/Fnv1a.h"
#include "tools/host/FreshGenerator.h"
#include "tools/host/Photo.h"
#include "tools/host/Replay.h"

namespace {

// The library's log lines since the last take(), timings left out (they
// differ from run to run by nature).
class StepLog {
 public:
  StepLog() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(&StepLog::receive);
  }
  ~StepLog() { __android_log_set_logger(__android_log_stderr_logger); }
  static std::pair<unsigned long long, int> take() {
    std::lock_guard<std::mutex> lock(mutex());
    const auto result = std::make_pair(hash().value(), lines());
    hash() = Fnv1a();
    lines() = 0;
    return result;
  }

 private:
  static void receive(const __android_logger_data* data, const char* message) {
    const std::string tag = data->tag ? data->tag : "";
    if (tag == "GTime") return;
    const std::string line = std::to_string(data->priority) + " " + tag + " " + message + "\n";
    std::lock_guard<std::mutex> lock(mutex());
    hash().add(line.data(), line.size());
    ++lines();
  }
  static std::mutex& mutex() {
    static std::mutex m;
    return m;
  }
  static Fnv1a& hash() {
    static Fnv1a h;
    return h;
  }
  static int& lines() {
    static int n = 0;
    return n;
  }
};

void report(const std::string& session, const std::string& step, const Shown& shown) {
  Fnv1a mask, preview, outline;
  mask.add(shown.mask.data(), shown.mask.size());
  preview.add(shown.preview.data(), shown.preview.size() * sizeof(unsigned int));
  for (const auto& contour : shown.outline) {
    const size_t n = contour.size();
    outline.add(&n, sizeof n);
    outline.add(contour.data(), n * sizeof(cv::Point));
  }
  size_t object = 0;
  for (unsigned char m : shown.mask) object += m == 0;
  const auto log = StepLog::take();
  std::printf("%-24s %-16s object %7.3f%%  mask %016llx  preview %016llx  outline %016llx  log %016llx (%d)\n",
              session.c_str(), step.c_str(), 100.0 * object / std::max<size_t>(1, shown.mask.size()),
              mask.value(), preview.value(), outline.value(), log.first, log.second);
  std::fflush(stdout);
}

// One step on the open session, reported; a session the library closed is a
// result too.
void step(Replay& replay, const std::string& session, const Step& s, int number) {
  restartOpenCvGenerator();
  const std::string label = std::to_string(number) + ":" + stepKindName(s.kind);
  try {
    replay.apply(s);
    report(session, label, replay.shown());
  } catch (const CutoutError& e) {
    std::printf("%-24s %-16s %s\n", session.c_str(), label.c_str(), e.what());
  }
}

cv::Mat objectOf(const Shown& shown, cv::Size size) {
  cv::Mat object(size, CV_8UC1);
  auto out = object.begin<uchar>();
  for (unsigned char m : shown.mask) *out++ = m == 0 ? 255 : 0;
  return object;
}

Step makeStep(StepKind kind, bool add, std::vector<cv::Point> points, int radius = -1) {
  Step s;
  s.kind = kind;
  s.add = add;
  s.points = std::move(points);
  s.radius = radius;
  return s;
}

std::vector<cv::Point> rectangle(int x0, int y0, int x1, int y1) { return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}; }

// A fixed mix of every kind of edit, placed by fractions of the box so that
// it means the same at every size.
std::vector<Step> mixedSession(const std::array<int, 4>& b, int width, int height) {
  const int x1 = b[0], y1 = b[1], x2 = b[2], y2 = b[3], bw = x2 - x1, bh = y2 - y1;
  const int r = std::max(2, std::min(width, height) / 100);
  const Step box = boxStep(b);
  return {box,
          makeStep(StepKind::Stroke, false, {{x1 + bw / 4, y1 + bh / 8}, {x2 - bw / 4, y1 + bh / 8}}, r),
          makeStep(StepKind::Loop, true, rectangle(x1 + bw / 10, y1 + bh / 2, x1 + bw / 2, y2 - bh / 20)),
          makeStep(StepKind::Stroke, true, {{x1 + bw / 2, y1 + bh / 2}, {x1 + 3 * bw / 4, y1 + 3 * bh / 4}}, r),
          makeStep(StepKind::Loop, false, rectangle(x2 - bw / 5, y1, x2, y1 + bh / 5)),
          makeStep(StepKind::Undo, true, {}),
          makeStep(StepKind::Redo, true, {}),
          makeStep(StepKind::Cut, false, {{x1, y1}, {x1 + bw / 3, y1 + bh / 3}}, r),
          makeStep(StepKind::Cut, true, {{x1 + bw / 3, y1 + bh / 3}, {x1 + bw / 2, y1 + bh / 3}, {x1 + bw / 3, y1 + bh / 2}}),
          makeStep(StepKind::Undo, true, {}),
          makeStep(StepKind::Undo, true, {}),
          makeStep(StepKind::Redo, true, {}),
          makeStep(StepKind::Reset, true, {}),
          box};
}

void runSession(const std::string& name, const Photo& photo, const std::vector<Step>& steps) {
  const auto start = std::chrono::steady_clock::now();
  Replay replay(photo);
  for (size_t k = 0; k < steps.size(); ++k) step(replay, name, steps[k], static_cast<int>(k + 1));
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  std::cerr << name << ": " << steps.size() << " steps, " << took.count() << " s\n";
}

// Box, the robot's corrections (each computed from the last result), then the
// lasso as a loop on a fresh session.
void benchmarkPhoto(const BenchmarkPhoto& entry) {
  const Photo photo = readPhoto(entry.image);
  const cv::Mat truth = readGreyOfSize(entry.truth, photo.bgr.size());
  {
    Replay replay(photo);
    int number = 1;
    step(replay, entry.name, boxStep(entry.box), number++);
    // The dab robot: its corrections are what the fingerprint has always replayed.
    runRobot(objectOf(replay.shown(), photo.bgr.size()), truth, RobotStyle::Dab, [&](const Step& s, cv::Mat& object) {
      step(replay, entry.name, s, number++);
      object = objectOf(replay.shown(), photo.bgr.size());
    });
  }
  if (entry.lasso.empty()) return;
  const cv::Mat inside = readGreyOfSize(entry.lasso, photo.bgr.size()) >= 128;
  std::vector<std::vector<cv::Point>> contours;
  cv::findContours(inside, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
  const std::vector<cv::Point>* largest = nullptr;
  for (const auto& contour : contours)
    if (!largest || cv::contourArea(contour) > cv::contourArea(*largest)) largest = &contour;
  if (largest) runSession(entry.name + "/lasso", photo, {makeStep(StepKind::Loop, true, *largest)});
}

Photo photoOfScene(const Scene& scene) {
  Photo photo;
  photo.path = "generated";
  photo.pixels = scene.pixels;
  photo.bgr.create(scene.height, scene.width, CV_8UC3);
  for (int y = 0; y < scene.height; ++y)
    for (int x = 0; x < scene.width; ++x) {
      const unsigned int p = scene.pixels[size_t(y) * scene.width + x];
      photo.bgr.at<cv::Vec3b>(y, x) = cv::Vec3b(p & 0xFF, (p >> 8) & 0xFF, (p >> 16) & 0xFF);
    }
  return photo;
}

void generatedScenes() {
  struct Generated {
    const char* name;
    Scene scene;
  };
  const Generated scenes[] = {
      {"scene/disc-640", discScene(640, 480)},
      {"scene/grey-disc-1280", discScene(1280, 960, 0.3, 0.5, 0.5, true)},
      {"scene/corner-disc-2000", discScene(2000, 1500, 0.35, 0.3, 0.4)},
  };
  for (const Generated& g : scenes) {
    const Photo photo = photoOfScene(g.scene);
    const int w = g.scene.width, h = g.scene.height;
    runSession(g.name, photo, mixedSession({w / 8, h / 10, w - w / 8, h - h / 10}, w, h));
  }
}

}  // namespace

int runFingerprint(const FingerprintArguments& args) {
  StepLog log;
  if (!args.benchmarkDir.empty())
    for (const BenchmarkPhoto& entry : readBenchmarkFolder(args.benchmarkDir)) benchmarkPhoto(entry);
  if (!args.samplesDir.empty())
    for (const BenchmarkPhoto& entry : readSampleFolder(args.samplesDir)) {
      const Photo original = readPhoto(entry.image);
      for (double megapixels : args.megapixels) {
        std::array<int, 4> box = entry.box;
        const Photo photo = resizedPhoto(original, megapixels, box);
        char name[64];
        std::snprintf(name, sizeof name, "%s@%gMP", entry.name.c_str(), megapixels);
        runSession(name, photo, mixedSession(box, photo.width(), photo.height()));
      }
    }
  if (args.scenes) generatedScenes();
  return kExitOk;
}
