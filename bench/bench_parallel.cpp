// The block max-flow against the serial search, on grids built the way a
// segmentation builds them from a generated two-region image (the same
// generator as bench_maxflow: an elliptical object on a background, each one
// colour plus noise and a soft gradient).
//
//   edges:      lambda * exp(-beta * |c_p - c_q|^2), diagonals / sqrt(2)
//   data terms: source = |c - mean_bg|^2 / (2 sigma^2),
//               sink   = |c - mean_fg|^2 / (2 sigma^2)
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

namespace {

constexpr double kLambda = 50.0;
constexpr double kSigma = 30.0;
constexpr double kNoise = 18.0;
using Pixel = std::array<double, 3>;
const Pixel kObject = {200, 80, 60};
const Pixel kBackground = {60, 120, 170};

// Left, upper-left, upper, upper-right: the four edges a node owns.
const int kDx[4] = {-1, -1, 0, 1};
const int kDy[4] = {0, -1, -1, -1};

double distance2(const Pixel& a, const Pixel& b) {
  double d = 0;
  for (int c = 0; c < 3; ++c) d += (a[c] - b[c]) * (a[c] - b[c]);
  return d;
}

std::vector<Pixel> twoRegionImage(int w, int h) {
  std::mt19937 rng(12345);
  std::normal_distribution<double> noise(0.0, kNoise);
  std::vector<Pixel> image(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const double dx = (x - 0.5 * w) / (0.3 * w), dy = (y - 0.55 * h) / (0.35 * h);
      const Pixel& base = dx * dx + dy * dy < 1.0 ? kObject : kBackground;
      for (int c = 0; c < 3; ++c) image[y * w + x][c] = base[c] + 20.0 * x / w + noise(rng);
    }
  return image;
}

struct Capacities {
  std::vector<float> source, sink, edges;  // edges: 4 per node, -1 = absent
};

Capacities segmentationCapacities(int w, int h) {
  const std::vector<Pixel> image = twoRegionImage(w, h);
  auto neighbour = [&](int p, int k) {
    const int x = p % w + kDx[k], y = p / w + kDy[k];
    return x < 0 || y < 0 || x >= w ? -1 : y * w + x;
  };
  double sum = 0;
  long count = 0;
  for (int p = 0; p < w * h; ++p)
    for (int k = 0; k < 4; ++k)
      if (neighbour(p, k) >= 0) sum += distance2(image[p], image[neighbour(p, k)]), ++count;
  const double beta = count && sum > 0 ? count / (2.0 * sum) : 0.0;
  Capacities caps;
  for (int p = 0; p < w * h; ++p) {
    caps.source.push_back(static_cast<float>(distance2(image[p], kBackground) / (2 * kSigma * kSigma)));
    caps.sink.push_back(static_cast<float>(distance2(image[p], kObject) / (2 * kSigma * kSigma)));
    for (int k = 0; k < 4; ++k) {
      const int q = neighbour(p, k);
      const double diagonal = kDx[k] && kDy[k] ? 1.0 / std::sqrt(2.0) : 1.0;
      caps.edges.push_back(
          q < 0 ? -1.0f
                : static_cast<float>(kLambda * diagonal * std::exp(-beta * distance2(image[p], image[q]))));
    }
  }
  return caps;
}

void build(KORUSEGraph& g, const Capacities& caps, int n) {
  g.reset();
  g.addNode(n);
  for (int p = 0; p < n; ++p)
    for (int k = 0; k < 4; ++k) {
      const float c = caps.edges[4 * p + k];
      g.addEdge(p, 0, c < 0 ? 0.0f : c, c < 0 ? 0.0f : c, c < 0);
    }
  for (int p = 0; p < n; ++p) g.addtWeights(p, caps.source[p], caps.sink[p]);
}

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
