// Building blocks shared by the region graph and the boundary band graph.
#pragma once

#include <cmath>

#include "graph/KORUSEGraph.h"

// The capacity that stands for an unbreakable tie to a terminal.
constexpr double kHardCapacity = 1000.0;

struct DataTerm {
  double source;  // capacity from the source (object side)
  double sink;    // capacity to the sink (background side)
};

// The two terminal capacities of a node as addtWeights receives them.
struct TerminalCapacities {
  float source;
  float sink;
};

// A colour neither model explains (both densities 0) would give inf - inf in
// the graph, a NaN the search cannot cut: kept apart on purpose, it prefers
// neither side, so it gets no terminal capacity.
inline TerminalCapacities terminalCapacities(DataTerm term) {
  if (std::isinf(term.source) && std::isinf(term.sink)) term = {0.0, 0.0};
  return {static_cast<float>(term.source), static_cast<float>(term.sink)};
}

inline void addDataTerm(KORUSEGraph& graph, int node, DataTerm term) {
  const TerminalCapacities c = terminalCapacities(term);
  graph.addtWeights(node, c.source, c.sink);
}

// Slot order of a node's four stored edges: left, upper-left, upper, upper-right.
constexpr int kSlotDx[4] = {-1, -1, 0, 1};
constexpr int kSlotDy[4] = {0, -1, -1, -1};

// The four edges of node (r, c) of a width-wide grid, in slot order; a
// neighbour outside the grid gets an absent edge. capacity(slot) gives the
// symmetric capacity of a present edge.
template <typename Capacity>
void addGridEdges(KORUSEGraph& graph, int width, int r, int c, Capacity capacity) {
  const int node = r * width + c;
  for (int slot = 0; slot < 4; ++slot) {
    const int nc = c + kSlotDx[slot], nr = r + kSlotDy[slot];
    const bool present = nr >= 0 && nc >= 0 && nc < width;
    if (!present) {
      graph.addEdge(node, -1, 0.0f, 0.0f, true);
      continue;
    }
    const float cap = capacity(slot);
    graph.addEdge(node, nr * width + nc, cap, cap, false);
  }
}
