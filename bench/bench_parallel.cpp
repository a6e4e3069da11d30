// The block max-flow against the serial search, on grids built the way a
// segmentation builds them (TwoRegionGrid.h).
//
// Third argument: the graph's thread count (0 = serial search). Wall-clock
// time, since the work is spread over threads; the graph is rebuilt with the
// timer paused. Compare the rows of one size: the ratio is the speed-up.
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "graph/KORUSEGraph.h"
#include "TwoRegionGrid.h"

using namespace two_region;

namespace {

void BM_BlockMaxFlow(benchmark::State& state) {
  const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
  const int threads = static_cast<int>(state.range(2));
  const int n = w * h;
  const Capacities caps = segmentationCapacities(w, h);
  KORUSEGraph g(n, 8 * n, w, h, threads);
  for (auto _ : state) {
    state.PauseTiming();
    build(g, caps, n);
    state.ResumeTiming();
    benchmark::DoNotOptimize(g.maxFlow());
  }
  int objectSide = 0;
  for (int p = 0; p < n; ++p) objectSide += !g.getTreeofNode(p);
  state.counters["object_fraction"] = static_cast<double>(objectSide) / n;
  state.SetLabel(threads < 2 ? "serial" : std::to_string(threads) + " blocks");
}

BENCHMARK(BM_BlockMaxFlow)
    ->ArgsProduct({{320}, {240}, {0, 2, 4}})
    ->Args({1280, 960, 0})
    ->Args({1280, 960, 2})
    ->Args({1280, 960, 4})
    ->ArgNames({"w", "h", "threads"})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
