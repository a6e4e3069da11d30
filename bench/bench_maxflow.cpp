// The serial max-flow on graphs taken from real edits (CapturedGraphs.h): the
// five cuts of a box edit on each sample photo at 0.24 MP, and the band graph
// of its refinement at 0.24 and 2.5 MP. Beside it, OpenCV's GCGraph (the
// search-tree max-flow behind cv::grabCut) on the very same capacities, its
// nodes the ones that take part. The graph is rebuilt with the timer paused;
// only the search is timed, ours with the cancel timer running as in an edit.
//
// Reported: CPU time per node per cut ("time_per_node"; nodes that take part),
// and on our rows the ratio GCGraph / ours measured in the same run
// ("x_gcgraph"). The two-region grid is a synthetic best case (no long
// paths, few orphans), kept as such.
#include <benchmark/benchmark.h>

#include <android/log.h>

#include <ctime>
#include <map>
#include <memory>
#include <opencv2/core.hpp>  // gcgraph.hpp needs it first
#include <opencv2/imgproc/detail/gcgraph.hpp>
#include <string>
#include <vector>

#include "testing/CapturedGraphs.h"
#include "interface/session/KORUSEMarker.h"
#include "support/KORUTimer.h"
#include "TwoRegionGrid.h"

namespace {

const std::vector<CapturedGraph>& graphs() {
  static const std::vector<CapturedGraph> all = [] {
    std::vector<CapturedGraph> out;
    for (const char* photo : {"coffee", "astronaut"})
      for (double mp : {0.24, 2.5})
        for (CapturedGraph& g : captureBoxEdit(photo, mp))
          if (mp < 1 || g.name.find("band") != std::string::npos) out.push_back(std::move(g));
    return out;
  }();
  return all;
}

std::map<std::string, double>& gcgraphSeconds() {
  static std::map<std::string, double> perCut;
  return perCut;
}

double cpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec + t.tv_nsec * 1e-9;
}

void ours(benchmark::State& state, size_t which) {
  const CapturedGraph& c = graphs()[which];
  std::unique_ptr<KORUSEGraph> g;
  float flow = 0;
  double searchSeconds = 0;
  for (auto _ : state) {
    state.PauseTiming();
    g = rebuild(c);
    KORUSEMarker::m_exitApp = false;
    g_cancelTimer = create_timer();
    start_cpu_timer(g_cancelTimer);
    state.ResumeTiming();
    const double start = cpuSeconds();
    flow = g->maxFlow();
    searchSeconds += cpuSeconds() - start;
    state.PauseTiming();
    destroy_timer(g_cancelTimer);
    g_cancelTimer = nullptr;
    state.ResumeTiming();
  }
  const double nodes = static_cast<double>(c.nodes());
  state.counters["nodes"] = nodes;
  state.counters["flow"] = flow;
  state.counters["time_per_node"] =
      benchmark::Counter(nodes, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  const auto peer = gcgraphSeconds().find(c.name);
  if (peer != gcgraphSeconds().end())
    state.counters["x_gcgraph"] = peer->second * state.iterations() / searchSeconds;
}

// GCGraph over the nodes that take part, in raster order.
void buildPeer(cv::detail::GCGraph<float>& peer, const CapturedGraph& c) {
  std::vector<int> id(c.pixels(), -1);
  int count = 0;
  for (size_t i = 0; i < c.pixels(); ++i)
    if (c.inGraph(i)) id[i] = count++;
  peer.create(count, 8 * count);
  for (int i = 0; i < count; ++i) peer.addVtx();
  const int dx[4] = {-1, -1, 0, 1}, dy[4] = {0, -1, -1, -1};
  for (size_t i = 0; i < c.pixels(); ++i) {
    if (id[i] < 0) continue;
    const int x = static_cast<int>(i % c.width), y = static_cast<int>(i / c.width);
    for (int k = 0; k < 4; ++k) {
      const float cap = c.edges[8 * i + 2 * k], rev = c.edges[8 * i + 2 * k + 1];
      if (cap == ABSENT_CAPACITY) continue;
      const size_t j = static_cast<size_t>(y + dy[k]) * c.width + (x + dx[k]);
      peer.addEdges(id[i], id[j], cap, rev);
    }
    peer.addTermWeights(id[i], c.terminal[i] > 0 ? c.terminal[i] : 0.0f, c.terminal[i] < 0 ? -c.terminal[i] : 0.0f);
  }
}

void gcgraph(benchmark::State& state, size_t which) {
  const CapturedGraph& c = graphs()[which];
  float flow = 0;
  std::unique_ptr<cv::detail::GCGraph<float>> peer;
  for (auto _ : state) {
    state.PauseTiming();
    peer = std::make_unique<cv::detail::GCGraph<float>>();  // the old one's release is not timed
    buildPeer(*peer, c);
    state.ResumeTiming();
    flow = peer->maxFlow() + c.initialFlow;
  }
  const double nodes = static_cast<double>(c.nodes());
  state.counters["nodes"] = nodes;
  state.counters["flow"] = flow;
  state.counters["time_per_node"] =
      benchmark::Counter(nodes, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

class PeerTimes : public benchmark::ConsoleReporter {
 public:
  PeerTimes() : ConsoleReporter(OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs)
      if (r.run_name.function_name.rfind("GCGraph/", 0) == 0 && r.iterations > 0)
        gcgraphSeconds()[r.run_name.function_name.substr(8)] =
            r.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(r.time_unit);
    ConsoleReporter::ReportRuns(runs);
  }
};

void BM_TwoRegionGridBestCase(benchmark::State& state) {
  using namespace two_region;
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  const int n = w * h;
  const Capacities caps = segmentationCapacities(w, h);
  KORUSEGraph g(n, 8 * n, w, h, 0);
  for (auto _ : state) {
    state.PauseTiming();
    build(g, caps, n);
    state.ResumeTiming();
    benchmark::DoNotOptimize(g.maxFlow());
  }
  state.counters["time_per_node"] =
      benchmark::Counter(n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_TwoRegionGridBestCase)->Args({320, 240})->Args({1280, 960})->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);  // the edits' informational lines
  // GCGraph first on each graph, so that our row can carry the ratio.
  for (size_t i = 0; i < graphs().size(); ++i) {
    benchmark::RegisterBenchmark(("GCGraph/" + graphs()[i].name).c_str(), gcgraph, i)
        ->Unit(benchmark::kMillisecond)->MinTime(0.5);
    benchmark::RegisterBenchmark(("ours/" + graphs()[i].name).c_str(), ours, i)
        ->Unit(benchmark::kMillisecond)->MinTime(0.5);
  }
  PeerTimes reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
