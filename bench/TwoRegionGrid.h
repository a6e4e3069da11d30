// Grids built the way a segmentation builds them, from a generated
// two-region image: an elliptical object on a background, each region one
// colour plus noise and a soft gradient.
//
//   edges:      lambda * exp(-beta * |c_p - c_q|^2), diagonals / sqrt(2),
//               beta = 1 / (2 * mean |c_p - c_q|^2)
//   data terms: source = |c - mean_bg|^2 / (2 sigma^2),
//               sink   = |c - mean_fg|^2 / (2 sigma^2)
#pragma once

#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "graph/KORUSEGraph.h"

namespace two_region {

constexpr double kLambda = 50.0;
constexpr double kSigma = 30.0;
constexpr double kNoise = 18.0;
const std::array<double, 3> kObject = {200, 80, 60};
const std::array<double, 3> kBackground = {60, 120, 170};

using Pixel = std::array<double, 3>;

inline std::vector<Pixel> twoRegionImage(int w, int h) {
  std::mt19937 rng(12345);
  std::normal_distribution<double> noise(0.0, kNoise);
  std::vector<Pixel> image(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const double dx = (x - 0.5 * w) / (0.3 * w), dy = (y - 0.55 * h) / (0.35 * h);
      const Pixel& base = dx * dx + dy * dy < 1.0 ? kObject : kBackground;
      const double shade = 20.0 * x / w;  // soft gradient across the image
      for (int c = 0; c < 3; ++c) image[y * w + x][c] = base[c] + shade + noise(rng);
    }
  return image;
}

inline double distance2(const Pixel& a, const Pixel& b) {
  double d = 0;
  for (int c = 0; c < 3; ++c) d += (a[c] - b[c]) * (a[c] - b[c]);
  return d;
}

// Left, upper-left, upper, upper-right: the four edges a node owns.
const int kDx[4] = {-1, -1, 0, 1};
const int kDy[4] = {0, -1, -1, -1};

struct Capacities {
  std::vector<float> source, sink, edges;  // edges: 4 per node, -1 = absent
};

inline Capacities segmentationCapacities(int w, int h) {
  const std::vector<Pixel> image = twoRegionImage(w, h);
  Capacities caps;
  caps.edges.assign(4 * image.size(), -1.0f);
  double sum = 0;
  long count = 0;
  for (int p = 0; p < w * h; ++p)
    for (int k = 0; k < 4; ++k) {
      const int x = p % w + kDx[k], y = p / w + kDy[k];
      if (x < 0 || y < 0 || x >= w) continue;
      sum += distance2(image[p], image[y * w + x]);
      ++count;
    }
  const double beta = count && sum > 0 ? count / (2.0 * sum) : 0.0;
  for (int p = 0; p < w * h; ++p) {
    caps.source.push_back(
        static_cast<float>(distance2(image[p], kBackground) / (2 * kSigma * kSigma)));
    caps.sink.push_back(static_cast<float>(distance2(image[p], kObject) / (2 * kSigma * kSigma)));
    for (int k = 0; k < 4; ++k) {
      const int x = p % w + kDx[k], y = p / w + kDy[k];
      if (x < 0 || y < 0 || x >= w) continue;
      const double diagonal = kDx[k] && kDy[k] ? 1.0 / std::sqrt(2.0) : 1.0;
      caps.edges[4 * p + k] = static_cast<float>(
          kLambda * diagonal * std::exp(-beta * distance2(image[p], image[y * w + x])));
    }
  }
  return caps;
}

inline void build(KORUSEGraph& g, const Capacities& caps, int n) {
  g.reset();
  g.addNode(n);
  for (int p = 0; p < n; ++p)
    for (int k = 0; k < 4; ++k) {
      const float c = caps.edges[4 * p + k];
      g.addEdge(p, 0, c < 0 ? 0.0f : c, c < 0 ? 0.0f : c, c < 0);
    }
  for (int p = 0; p < n; ++p) g.addtWeights(p, caps.source[p], caps.sink[p]);
}

}  // namespace two_region
