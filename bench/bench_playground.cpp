// The playground's worker process, for memory and for how fast it answers a
// cancel, at 12 and 48 megapixels: a worker started as the server starts it
// (this machine's cores, up to four, for each segmentation), the sample
// photo given to it as a JPEG, then a box and a remove stroke.
//
//   worker_peak_MB  its resident peak (VmHWM) over the open and both edits
//   worker_idle_MB  what it holds once idle after them (VmRSS)
//   library_MB      the peak of the library's own box edit of the same photo
//                   (doSegmentationBB, with only the host's pixels and mask),
//                   in a process of its own, as bench_edit measures it
//   x_library       worker_peak_MB / library_MB: at most 1.5
//   cancel_ms       the longest wait for the reply to a box edit after its
//                   cancel, of cancels 0.1 to 1.0 s into the edit
// The time column is the box edit's, as the worker reports it.
#include <SegmentationCore.h>
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <thread>

#include "tools/playground/server/WorkerProcess.h"
#include "tools/host/BenchmarkFolder.h"
#include "tools/host/Photo.h"

namespace {

using nlohmann::json;

double statusMB(pid_t pid, const std::string& key) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind(key, 0) == 0) return std::atof(line.c_str() + key.size()) / 1024.0;
  return 0.0;
}

struct Sample {
  std::string jpeg;
  cv::Size size;
  std::array<int, 4> box{};
};

Sample sampleAt(double megapixels) {
  const BenchmarkPhoto coffee = readSampleFolder(SEG_SAMPLES_DIR).front();
  Sample sample;
  sample.box = coffee.box;
  const Photo photo = resizedPhoto(readPhoto(coffee.image), megapixels, sample.box);
  std::vector<uchar> bytes;
  cv::imencode(".jpg", photo.bgr, bytes, {cv::IMWRITE_JPEG_QUALITY, 90});
  sample.jpeg.assign(bytes.begin(), bytes.end());
  sample.size = photo.bgr.size();
  return sample;
}

std::string boxStep(const std::array<int, 4>& b) {
  return json{{"kind", "box"}, {"box", {b[0], b[1], b[2], b[3]}}}.dump();
}

// Down the spoon's handle, scaled from the 600 x 400 sample.
std::string strokeStep(cv::Size size) {
  const double k = size.width / 600.0;
  json points = json::array();
  for (const auto& [x, y] : {std::pair{408, 80}, {398, 160}, {380, 235}, {368, 290}})
    points.push_back({int(x * k), int(y * k)});
  return json{{"kind", "stroke"}, {"mode", "remove"}, {"radius", int(6 * k)}, {"points", points}}.dump();
}

int threads() { return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 4u)); }

// The library's own peak for the box edit, in a child so that nothing else
// counts in it.
double libraryPeakMB(const Sample& sample) {
  int fds[2];
  if (pipe(fds) != 0) return 0;
  const pid_t child = fork();
  if (child == 0) {
    close(fds[0]);
    setSegmentationThreads(threads());
    std::vector<unsigned int> pixels = decodePhoto(sample.jpeg, "sample").pixels;
    std::vector<unsigned char> mask(pixels.size());
    const auto& b = sample.box;
    doSegmentationBB(sample.size.width, sample.size.height, pixels.data(), b[0], b[1], b[2], b[3], mask.data());
    const double peak = statusMB(getpid(), "VmHWM:");
    _exit(write(fds[1], &peak, sizeof peak) == sizeof peak ? 0 : 1);
  }
  close(fds[1]);
  double peak = 0;
  if (read(fds[0], &peak, sizeof peak) != sizeof peak) peak = 0;
  close(fds[0]);
  waitpid(child, nullptr, 0);
  return peak;
}

// The longest wait, in ms, from a cancel to the reply of the edit it stopped.
double worstCancelMs(WorkerProcess& worker, const std::string& step) {
  double worst = 0;
  for (int tenths = 1; tenths <= 10; tenths += 3) {
    const uint64_t number = 1000 + tenths;
    std::chrono::steady_clock::time_point asked;
    std::thread canceller([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(100 * tenths));
      asked = std::chrono::steady_clock::now();
      worker.cancel(number);
    });
    const auto reply = worker.call({{"op", "step"}, {"step", step}, {"seq", number}});
    const auto answered = std::chrono::steady_clock::now();
    canceller.join();
    if (reply && reply->header.value("cancelled", false))
      worst = std::max(worst, std::chrono::duration<double, std::milli>(answered - asked).count());
  }
  return worst;
}

void Worker(benchmark::State& state, double megapixels) {
  const Sample sample = sampleAt(megapixels);
  WorkerProcess worker(WorkerCommand{SEG_PLAYGROUND_EXE, threads()});
  double boxMs = 0;
  for (auto _ : state) {
    const auto opened = worker.call({{"op", "open"}, {"steps", json::array()}}, sample.jpeg);
    const auto box = worker.call({{"op", "step"}, {"step", boxStep(sample.box)}});
    const auto stroke = worker.call({{"op", "step"}, {"step", strokeStep(sample.size)}});
    if (!opened || !box || !stroke || !box->header.value("result", false))
      return state.SkipWithError("the worker did not edit the photo");
    boxMs = box->header.value("ms", 0.0);
    state.SetIterationTime(boxMs / 1e3);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the last reply's clean-up
  const double peak = statusMB(worker.pid(), "VmHWM:"), idle = statusMB(worker.pid(), "VmRSS:");
  const double library = libraryPeakMB(sample);
  state.counters["worker_peak_MB"] = peak;
  state.counters["worker_idle_MB"] = idle;
  state.counters["library_MB"] = library;
  state.counters["x_library"] = library > 0 ? peak / library : 0;
  state.counters["cancel_ms"] = worstCancelMs(worker, boxStep(sample.box));
}

const int kRegistered = [] {
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  for (double megapixels : {12.0, 48.0})
    benchmark::RegisterBenchmark(("Worker/" + std::to_string(int(megapixels)) + "MP").c_str(), Worker, megapixels)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
  return 0;
}();

}  // namespace
