// Building blocks shared by the region graph and the boundary band graph:
// the grid edges. Their terminal capacities are in graph/DataTerms.h.
#pragma once

#include "graph/DataTerms.h"
#include "graph/KORUSEGraph.h"

// A node's four stored edges come in slot order: left, upper-left, upper,
// upper-right. All eight directions in visiting order: a node's four slots, then right,
// lower-right, lower and lower-left (the slots of the nodes that own them).
constexpr int kSlotDx[8] = {-1, -1, 0, 1, 1, 1, 0, -1};
constexpr int kSlotDy[8] = {0, -1, -1, -1, 0, 1, 1, 1};

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
