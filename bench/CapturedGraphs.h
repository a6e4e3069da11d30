// Flow graphs taken from real edits: a box edit on a sample photo runs with a
// stage tracer that copies the engine's graph each time a search is about to
// start (the five cuts at working size, then the refinement's band graph).
// A copy is the grid as the engine built it: residual terminal capacities
// after addtWeights and the four edges of every node, absent ones as -2.
#pragma once

#include <string>
#include <vector>

#include "SegmentationCore.h"
#include "engine/KORUSEHybrid.h"
#include "graph/KORUSEGraph.h"
#include "interface/SessionGlobals.h"
#include "support/StageTrace.h"
#include "tools/cutout/BenchmarkFolder.h"
#include "tools/cutout/Photo.h"

struct CapturedGraph {
  std::string name;             // "coffee@0.24MP cut 3", "coffee@2.5MP band"
  int width = 0, height = 0;    // the grid
  std::vector<float> terminal;  // per node: > 0 from the source, < 0 to the sink
  std::vector<float> edges;     // per node, both arcs of left, upper-left, upper, upper-right; -2 absent
  float initialFlow = 0;        // what addtWeights counted before the search
  size_t nodes() const { return terminal.size(); }
  // Whether node i takes part: a terminal capacity or a present edge. Most
  // of a band graph's box is left out.
  bool inGraph(size_t i) const {
    if (terminal[i] != 0) return true;
    const int x = static_cast<int>(i % width), y = static_cast<int>(i / width);
    for (int k = 0; k < 4; ++k)
      if (edges[8 * i + 2 * k] != -2.0f) return true;
    // Edges owned by the right, lower-right, lower and lower-left neighbours.
    const int dx[4] = {1, 1, 0, -1}, dy[4] = {0, 1, 1, 1};
    for (int k = 0; k < 4; ++k) {
      const int nx = x + dx[k], ny = y + dy[k];
      if (nx < 0 || nx >= width || ny >= height) continue;
      if (edges[8 * (static_cast<size_t>(ny) * width + nx) + 2 * k] != -2.0f) return true;
    }
    return false;
  }
};

inline CapturedGraph copyGraph(const KORUSEGraph& g, const std::string& name) {
  CapturedGraph c;
  c.name = name;
  c.width = g.width;
  c.height = g.height;
  c.initialFlow = g.flowValue;
  for (int i = 0; i < g.nodeCount; ++i) c.terminal.push_back(g.residualTerminalCapacity[i]);
  c.edges.assign(g.arcArray, g.arcArray + 8 * static_cast<size_t>(g.nodeCount));
  return c;
}

// Builds `g` (sized for the capture) as the engine built it.
inline void rebuild(KORUSEGraph& g, const CapturedGraph& c) {
  g.reset();
  g.addNode(static_cast<int>(c.nodes()));
  for (size_t i = 0; i < c.nodes(); ++i)
    for (int k = 0; k < 4; ++k) {
      const float cap = c.edges[8 * i + 2 * k], rev = c.edges[8 * i + 2 * k + 1];
      g.addEdge(0, 0, cap, rev, cap == ABSENT_CAPACITY);
    }
  for (size_t i = 0; i < c.nodes(); ++i)
    g.addtWeights(static_cast<int>(i), c.terminal[i] > 0 ? c.terminal[i] : 0.0f,
                  c.terminal[i] < 0 ? -c.terminal[i] : 0.0f);
  g.flowValue = c.initialFlow;
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
