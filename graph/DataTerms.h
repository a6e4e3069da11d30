// Data (terminal) capacities: what a node's two terminal arcs get. A soft
// pixel's are the negative logs of the two colour models' densities of its
// sample (-ln of the background density from the source, -ln of the object
// density to the sink); a hard label's are kHardCapacity on one side. The
// one home of that meaning, in the two precisions the library computes it.
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

// (source, sink) of a soft pixel from the mixture densities of its sample,
// in double. Grey mode: log-likelihoods closer than 0.0001 count as equal
// (the background's is replaced by the object's).
DataTerm dataTermOfDensities(double objectDensity, double backgroundDensity, bool grey);

// The same in single precision, as the block data terms compute it (no grey
// rule, no guard against two zero densities).
inline TerminalCapacities blockDataTerm(float objectDensity, float backgroundDensity) {
  return {-logf(backgroundDensity), -logf(objectDensity)};
}
