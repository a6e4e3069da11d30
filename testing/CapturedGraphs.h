// Flow graphs taken from real edits: a box edit on a sample photo runs with a
// stage tracer that copies the engine's graph each time a search is about to
// start (the five cuts at working size, then the refinement's band graph).
// A copy is the grid as the engine built it: residual terminal capacities
// after addtWeights and the four edges of every node, absent ones as -2.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "engine/KORUSEHybrid.h"
#include "graph/KORUSEGraph.h"
#include "interface/SessionGlobals.h"
#include "SegmentationCore.h"
#include "support/StageTrace.h"
#include "tools/host/BenchmarkFolder.h"
#include "tools/host/Photo.h"

struct CapturedGraph {
  std::string name;             // "coffee@0.24MP cut 3", "coffee@2.5MP band"
  int width = 0, height = 0;    // the grid (a band's box)
  std::vector<float> terminal;  // per pixel: > 0 from the source, < 0 to the sink
  std::vector<float> edges;     // per pixel, both arcs of left, upper-left, upper, upper-right; -2 absent
  std::vector<uint8_t> band;    // band graphs: 1 for the pixels that are nodes; empty for a whole grid
  float initialFlow = 0;        // what addtWeights counted before the search
  size_t pixels() const { return terminal.size(); }
  bool inGraph(size_t i) const { return band.empty() || band[i]; }
  size_t nodes() const { return band.empty() ? pixels() : std::count(band.begin(), band.end(), 1); }
};

// The engine's graph as a grid: a band graph's pixels outside the band get
// no terminal capacity and absent edges, as in the box they stand for.
inline CapturedGraph copyGraph(const KORUSEGraph& g, const std::string& name) {
  CapturedGraph c;
  c.name = name;
  c.width = g.width;
  c.height = g.height;
  c.initialFlow = g.flowValue;
  const size_t n = static_cast<size_t>(g.width) * g.height;
  c.terminal.assign(n, 0.0f);
  c.edges.assign(8 * n, ABSENT_CAPACITY);
  if (g.isBand()) c.band.assign(n, 0);
  for (int y = 0; y < g.height; ++y)
    for (int x = 0; x < g.width; ++x) {
      const int node = g.nodeAt(x, y);
      if (node < 0) continue;
      const size_t i = static_cast<size_t>(y) * g.width + x;
      if (g.isBand()) c.band[i] = 1;
      c.terminal[i] = g.residualTerminalCapacity[node];
      std::copy(g.arcArray + 8 * size_t(node), g.arcArray + 8 * size_t(node) + 8, c.edges.begin() + 8 * i);
    }
  return c;
}

// A graph built from the capture as the engine built it: a band graph for a
// band, a whole grid otherwise.
inline std::unique_ptr<KORUSEGraph> rebuild(const CapturedGraph& c) {
  const int n = static_cast<int>(c.nodes());
  auto g = std::make_unique<KORUSEGraph>(n, 4 * n, c.width, c.height, 0);
  if (!c.band.empty()) g->setBand(c.band.data(), c.width);
  g->addNode(n);
  for (size_t i = 0; i < c.pixels(); ++i)
    if (c.inGraph(i))
      for (int k = 0; k < 4; ++k) {
        const float cap = c.edges[8 * i + 2 * k], rev = c.edges[8 * i + 2 * k + 1];
        g->addEdge(0, 0, cap, rev, cap == ABSENT_CAPACITY);
      }
  int node = 0;
  for (size_t i = 0; i < c.pixels(); ++i)
    if (c.inGraph(i))
      g->addtWeights(node++, c.terminal[i] > 0 ? c.terminal[i] : 0.0f, c.terminal[i] < 0 ? -c.terminal[i] : 0.0f);
  g->flowValue = c.initialFlow;
  return g;
}

namespace captured_detail {
inline std::vector<CapturedGraph>& sink() {
  static std::vector<CapturedGraph> graphs;
  return graphs;
}
inline std::string& prefix() {
  static std::string p;
  return p;
}
inline void take(const char* stage, int index) {
  const std::string s = stage;
  if (s == "search" && pHybrid && pHybrid->m_graph)
    sink().push_back(copyGraph(*pHybrid->m_graph, prefix() + " cut " + std::to_string(index)));
  else if (s == "refinement: search" && pHybrid && pHybrid->m_trimapGraph)
    sink().push_back(copyGraph(*pHybrid->m_trimapGraph, prefix() + " band"));
}
}  // namespace captured_detail

// The graphs of one box edit on the sample photo `name` (data/samples) at
// about `megapixels`.
inline std::vector<CapturedGraph> captureBoxEdit(const std::string& name, double megapixels) {
  for (const BenchmarkPhoto& sample : readSampleFolder(SEG_SAMPLES_DIR)) {
    if (sample.name != name) continue;
    std::array<int, 4> box = sample.box;
    Photo photo = resizedPhoto(readPhoto(sample.image), megapixels, box);
    std::vector<unsigned char> mask(photo.pixels.size());
    char label[64];
    std::snprintf(label, sizeof label, "%s@%gMP", name.c_str(), megapixels);
    captured_detail::prefix() = label;
    captured_detail::sink().clear();
    setStageTracer(captured_detail::take);
    doSegmentationBB(photo.width(), photo.height(), photo.pixels.data(), box[0], box[1], box[2], box[3],
                     mask.data());
    setStageTracer(nullptr);
    deinitSegmentation();
    return std::move(captured_detail::sink());
  }
  return {};
}
