// The serial maxFlow on grids built the way a segmentation builds them
// (TwoRegionGrid.h). The graph is rebuilt with the timer paused; only the search is timed.
// Reported: time per node, and the storage one node and one edge take here.
#include <benchmark/benchmark.h>

#include <vector>

#include "TwoRegionGrid.h"
#include "graph/KORUSEGraph.h"

using namespace two_region;

namespace {

void BM_MaxFlow(benchmark::State& state) {
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  const int n = w * h;
  const Capacities caps = segmentationCapacities(w, h);
  KORUSEGraph g(n, 8 * n, w, h, 0);
  float flow = 0;
  int objectSide = 0;
  for (auto _ : state) {
    state.PauseTiming();
    build(g, caps, n);
    state.ResumeTiming();
    flow = g.maxFlow();
    benchmark::DoNotOptimize(flow);
  }
  for (int p = 0; p < n; ++p) objectSide += !g.getTreeofNode(p);
  // Seconds per node, printed with an SI prefix (ns).
  state.counters["time_per_node"] = benchmark::Counter(
      n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["bytes_per_node"] = sizeof(nodes);
  state.counters["bytes_per_edge"] = 2 * sizeof(float);
  state.counters["object_fraction"] = static_cast<double>(objectSide) / n;
  state.counters["flow"] = flow;
}

BENCHMARK(BM_MaxFlow)->Args({320, 240})->Args({1280, 960})->Unit(benchmark::kMillisecond);

}  // namespace
