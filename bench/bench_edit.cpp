// The stage table of one box edit (doSegmentationBB) on each sample photo at
// 0.24, 1.2, 12 and 48 megapixels, as a phone of that resolution shoots it,
// with one thread and with N (bench_edit --threads N, 2 by default). Each
// row is one stage as the engine marks it (support/StageTrace.h) and
// carries, for 1 and for N threads, the process CPU time (every thread
// counts) and the wall time of the stage, and the process's peak resident
// memory during it, host buffers (the photo's pixels and the mask)
// included. The row's time is the wall time with N threads.
//
// Each photo, size and thread count runs in a child process of its own: the
// photo is made there, the peak is reset, then the edit runs three times and
// each stage's median is reported. One run's freed memory cannot then count
// in another's peak. The "whole edit" row says whether the band was cut
// (refined = 1) or the mask merely enlarged. The last row is the time an edit
// takes to return after a cancel (wall time): the worst of a cancel at the
// start of each stage and ten from another thread spread over the edit, with
// where it came.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "SegmentationCore.h"
#include "support/StageTrace.h"
#include "tools/host/BenchmarkFolder.h"
#include "tools/host/Photo.h"

namespace {

const int kRuns = 3;

struct Row {
  std::string stage;
  double cpuMs = 0;
  double wallMs = 0;
  double peakMB = 0;
};
using Table = std::vector<Row>;

double clockMs(clockid_t clock) {
  timespec t;
  clock_gettime(clock, &t);
  return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}
double cpuMs() { return clockMs(CLOCK_PROCESS_CPUTIME_ID); }
double wallMs() { return clockMs(CLOCK_MONOTONIC); }

// VmHWM: the resident peak since the last reset, in MB.
double peakMB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("VmHWM:", 0) == 0) return std::atof(line.c_str() + 6) / 1024.0;
  return 0.0;
}

void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

// The engine's marks as the table's rows: each cut has three (models, graph,
// search); setting up the photo and the engine is one.
std::string rowOf(const char* stage, int index) {
  const std::string s = stage;
  if (index > 0) return "cut " + std::to_string(index) + ": " + s;
  if (s == "photo" || s == "engine") return "photo and engine";
  if (s == "refinement: trimap" || s == "refinement: labels") return "refinement: trimap and labels";
  if (s == "refinement: graph") return "refinement: construction";
  if (s == "mask") return "mask from labels";
  return s;
}

Table g_run;
int g_current = -1;  // the row the running stage adds to
double g_markCpu = 0, g_markWall = 0;

// Closes the running stage and opens the next one.
void mark(const char* stage, int index) {
  const double now = cpuMs(), wall = wallMs(), peak = peakMB();
  if (g_current >= 0) {
    g_run[g_current].cpuMs += now - g_markCpu;
    g_run[g_current].wallMs += wall - g_markWall;
    g_run[g_current].peakMB = std::max(g_run[g_current].peakMB, peak);
  }
  resetPeak();
  g_current = -1;
  if (std::string(stage) != "done") {
    const std::string row = rowOf(stage, index);
    const auto it = std::find_if(g_run.begin(), g_run.end(), [&](const Row& r) { return r.stage == row; });
    g_current = static_cast<int>(it - g_run.begin());
    if (it == g_run.end()) g_run.push_back({row});
  }
  g_markCpu = cpuMs();
  g_markWall = wallMs();
}

// One edit, its rows in the order first met, plus "whole edit".
Table tracedEdit(cv::Size size, std::vector<unsigned int>& pixels, const std::array<int, 4>& box,
                 std::vector<unsigned char>& mask) {
  g_run.clear();
  g_current = -1;
  resetPeak();
  const double start = cpuMs(), startWall = wallMs();
  setStageTracer(mark);
  doSegmentationBB(size.width, size.height, pixels.data(), box[0], box[1], box[2], box[3], mask.data());
  setStageTracer(nullptr);
  Table t = g_run;
  double peak = 0;
  for (const Row& r : t) peak = std::max(peak, r.peakMB);
  t.push_back({"whole edit", cpuMs() - start, wallMs() - startWall, peak});
  deinitSegmentation();
  return t;
}

// The cancel latency's set-up: the session, and one edit through
// processSegment as a phone app makes it.
struct CancelSession {
  CancelSession(cv::Size size, std::vector<unsigned int>& pixels, const std::array<int, 4>& box)
      : size(size), marks(pixels.size(), 0), preview(pixels), mask(pixels.size()) {
    for (int y = box[1]; y <= box[3]; ++y)
      std::fill_n(marks.begin() + size_t(y) * size.width + box[0], box[2] - box[0] + 1, 4);
    loop = {box[0], box[1], box[2], box[1], box[2], box[3], box[0], box[3]};
    setSourceImage(size.width, size.height, pixels.data());
    initSegmentationEngine(0);
  }
  ~CancelSession() { deinitSegmentation(); }
  void edit() {
    resetSegmentationInterface();
    setCurrentMarkerVector(8, loop.data());
    setMarkerImage(size.width, size.height, marks.data(), 0);
    processSegment(0, 0, 0, preview.data(), mask.data());
  }
  cv::Size size;
  std::vector<int> marks, loop;
  std::vector<unsigned int> preview;
  std::vector<unsigned char> mask;
};

using Clock = std::chrono::steady_clock;

// A cancel that arrives exactly as a stage begins: the tracer raises the flag
// when the stage is marked, as cancelSegmentation from another thread would
// at that moment.
struct StageCancel {
  std::string stage;
  int index = 0;
  bool fired = false;
  Clock::time_point at;
};
StageCancel g_stageCancel;
std::vector<std::pair<std::string, int>> g_marksSeen;

void cancelAtStage(const char* stage, int index) {
  if (!g_stageCancel.fired && index == g_stageCancel.index && g_stageCancel.stage == stage) {
    g_stageCancel.fired = true;
    g_stageCancel.at = Clock::now();
    cancelSegmentation();
  }
}

void recordMark(const char* stage, int index) { g_marksSeen.emplace_back(stage, index); }

struct CancelWait {
  double ms = 0;
  std::string where;
};

// How long processSegment takes to return after a cancel (wall time, ms), the
// worst of two kinds: a cancel at the start of every stage the edit marks
// (the stages that do not poll the flag are found so, however short), and
// ten from another thread spread over the edit's length. The session is set
// up first: a cancel that comes before the engine exists is cleared by its
// creation, as the engine is made to.
CancelWait worstCancelLatency(cv::Size size, std::vector<unsigned int>& pixels, const std::array<int, 4>& box) {
  CancelSession session(size, pixels, box);
  g_marksSeen.clear();
  setStageTracer(recordMark);
  const auto start = Clock::now();
  session.edit();
  const auto length = Clock::now() - start;
  setStageTracer(nullptr);
  CancelWait worst;
  const auto keep = [&](double ms, const std::string& where) {
    if (ms > worst.ms) worst = {ms, where};
  };
  const std::vector<std::pair<std::string, int>> marks = g_marksSeen;
  for (const auto& mark : marks) {
    if (mark.first == "done") continue;
    g_stageCancel = {mark.first, mark.second};
    setStageTracer(cancelAtStage);
    session.edit();
    const auto returned = Clock::now();
    setStageTracer(nullptr);
    if (g_stageCancel.fired)
      keep(std::chrono::duration<double, std::milli>(returned - g_stageCancel.at).count(), rowOf(mark.first.c_str(), mark.second));
  }
  const int kCancels = 10;
  for (int k = 1; k <= kCancels; ++k) {
    Clock::time_point cancelled;
    std::thread canceller([&] {
      std::this_thread::sleep_for(length * k / (kCancels + 1));
      cancelled = Clock::now();
      cancelSegmentation();
    });
    session.edit();
    const auto returned = Clock::now();
    canceller.join();
    if (returned > cancelled)
      keep(std::chrono::duration<double, std::milli>(returned - cancelled).count(), "spread over the edit");
  }
  return worst;
}

// In the child: the photo at `megapixels`, three edits, the median per row,
// then the cancel latency.
std::string measure(const std::string& name, double megapixels, int threads) {
  setSegmentationThreads(threads);
  const std::vector<BenchmarkPhoto> samples = readSampleFolder(SEG_SAMPLES_DIR);
  const auto sample =
      std::find_if(samples.begin(), samples.end(), [&](const BenchmarkPhoto& p) { return p.name == name; });
  if (sample == samples.end()) return "";
  std::array<int, 4> box = sample->box;
  cv::Size size;
  std::vector<unsigned int> pixels;
  {
    Photo photo = resizedPhoto(readPhoto(sample->image), megapixels, box);
    size = photo.bgr.size();
    pixels.swap(photo.pixels);
  }  // the host holds its pixels and the mask, nothing else
  std::vector<unsigned char> mask(pixels.size());
  std::vector<Table> runs;
  for (int k = 0; k < kRuns; ++k) runs.push_back(tracedEdit(size, pixels, box, mask));
  std::ostringstream out;
  const auto median = [](std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  };
  for (size_t i = 0; i < runs[0].size(); ++i) {
    std::vector<double> cpu, wall;
    double peak = 0;
    for (const Table& t : runs) {
      const auto it = std::find_if(t.begin(), t.end(), [&](const Row& r) { return r.stage == runs[0][i].stage; });
      if (it == t.end()) continue;
      cpu.push_back(it->cpuMs);
      wall.push_back(it->wallMs);
      peak = std::max(peak, it->peakMB);
    }
    out << runs[0][i].stage << '\t' << median(cpu) << '\t' << median(wall) << '\t' << peak << '\n';
  }
  const CancelWait cancel = worstCancelLatency(size, pixels, box);
  out << "cancel: worst wait (wall), at " << cancel.where << "\t0\t" << cancel.ms << "\t0\n";
  return out.str();
}

Table parse(const std::string& text) {
  Table t;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    Row r;
    std::getline(fields, r.stage, '\t');
    fields >> r.cpuMs >> r.wallMs >> r.peakMB;
    t.push_back(r);
  }
  return t;
}

// The table of one photo, size and thread count, made once in a child process.
const Table& tableAt(const std::string& name, double megapixels, int threads) {
  static std::map<std::tuple<std::string, double, int>, Table> cache;
  const auto key = std::make_tuple(name, megapixels, threads);
  auto found = cache.find(key);
  if (found != cache.end()) return found->second;
  int fds[2];
  std::string text;
  if (pipe(fds) == 0) {
    const pid_t child = fork();
    if (child == 0) {
      close(fds[0]);
      const std::string result = measure(name, megapixels, threads);
      const ssize_t written = write(fds[1], result.data(), result.size());
      _exit(written == ssize_t(result.size()) ? 0 : 1);
    }
    close(fds[1]);
    char buffer[4096];
    for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;) text.append(buffer, n);
    close(fds[0]);
    int status = 0;
    if (child > 0) waitpid(child, &status, 0);
  }
  return cache[key] = parse(text);
}

int g_threads = 2;  // --threads N

void stage(benchmark::State& state, std::string name, double megapixels, int row) {
  const Table& one = tableAt(name, megapixels, 1);
  const Table& many = tableAt(name, megapixels, g_threads);
  if (row >= int(one.size()) || row >= int(many.size())) return state.SkipWithError("no such stage at this size");
  for (auto _ : state) state.SetIterationTime(many[row].wallMs / 1e3);
  const std::string n = std::to_string(g_threads);
  state.SetLabel(many[row].stage);
  state.counters["cpu_1t"] = one[row].cpuMs;
  state.counters["wall_1t"] = one[row].wallMs;
  state.counters["cpu_" + n + "t"] = many[row].cpuMs;
  state.counters["wall_" + n + "t"] = many[row].wallMs;
  if (one[row].stage.rfind("cancel", 0) != 0) state.counters["peak_MB"] = std::max(one[row].peakMB, many[row].peakMB);
  if (one[row].stage == "whole edit")  // 1 when the band was cut, 0 for the plain enlargement
    state.counters["refined"] =
        std::any_of(one.begin(), one.end(), [](const Row& r) { return r.stage == "refinement: search"; });
}

// The rows an edit has: box marks, photo and engine, labels, region, five
// cuts of three rows, the mask, the refinement's three rows, post-processing,
// history, outline, the whole edit, the cancel latency. A size without
// refinement reports fewer.
void registerRows() {
  const int kRows = 28;
  for (const char* name : {"coffee", "astronaut"})
    for (const auto& size : {std::make_pair(0.24, "0.24MP"), std::make_pair(1.2, "1.2MP"),
                             std::make_pair(12.0, "12MP"), std::make_pair(48.0, "48MP")})
      for (int row = 0; row < kRows; ++row) {
        char label[96];
        std::snprintf(label, sizeof label, "Edit/%s/%s/%dt/%02d", name, size.second, g_threads, row);
        benchmark::RegisterBenchmark(label, stage, std::string(name), size.first, row)
            ->UseManualTime()
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
      }
}

}  // namespace

int main(int argc, char** argv) {
  // --threads N: the second thread count beside 1.
  for (int i = 1; i + 1 < argc; ++i)
    if (std::string(argv[i]) == "--threads") {
      g_threads = std::max(2, std::atoi(argv[i + 1]));
      for (int j = i; j + 2 <= argc; ++j) argv[j] = argv[j + 2];
      argc -= 2;
      break;
    }
  benchmark::Initialize(&argc, argv);
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  registerRows();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
