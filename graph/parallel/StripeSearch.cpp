#include "graph/parallel/StripeSearch.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "graph/KORUSEGraph.h"
#include "graph/SearchTree.h"
#include "support/WorkerPool.h"

namespace {

// An edge taken out between two stripes: the arc leaving its owner (in the
// lower stripe's first row) and both capacities.
struct TakenEdge {
  int arc;
  float capacity, sisterCapacity;
};

struct Stripe {
  int firstRow, firstNode, endNode;
  std::vector<TakenEdge> above;  // the edges to the stripe above, taken out
  std::unique_ptr<KORUSEGraph> view;
};

// Rows cut where the nodes before them pass k / count of all, never an empty stripe.
std::vector<Stripe> cutIntoStripes(const KORUSEGraph& g, int count) {
  std::vector<Stripe> stripes;
  const int64_t nodes = g.nodeCount;
  int row = 0;
  for (int k = 0; k < count; ++k) {
    Stripe s;
    s.firstRow = row;
    s.firstNode = g.firstNodeOfRow(row);
    const int64_t target = nodes * (k + 1) / count;
    while (row < g.height && (k == count - 1 || g.firstNodeOfRow(row + 1) <= target)) ++row;
    if (row == s.firstRow && row < g.height) ++row;  // at least one row
    s.endNode = g.firstNodeOfRow(row);
    if (s.endNode > s.firstNode) stripes.push_back(std::move(s));
    if (row >= g.height) break;
  }
  return stripes;
}

// Takes out the edges from the stripe's first row to the row above.
template <class Grid>
void takeOutEdgesAbove(KORUSEGraph& g, const Grid& grid, Stripe& s) {
  const int endOfRow = g.firstNodeOfRow(s.firstRow + 1);
  for (int node = s.firstNode; node < endOfRow; ++node) {
    const unsigned present = grid.presence(node);
    for (int slot = 1; slot <= 3; ++slot) {
      if (!((present >> slot) & 1)) continue;
      const int arc = 8 * node + 2 * slot;
      if (g.arcArray[arc] == ABSENT_CAPACITY) continue;
      s.above.push_back({arc, g.arcArray[arc], g.arcArray[arc + 1]});
      g.arcArray[arc] = g.arcArray[arc + 1] = ABSENT_CAPACITY;
    }
  }
}

// The stripe's nodes from their terminal capacities, its queues and flow
// empty: what maxflowInit does for the whole graph.
template <class Grid>
void initStripe(KORUSEGraph& g, const Grid& grid, Stripe& s) {
  KORUSEGraph& view = *s.view;
  view.activeFirst = view.activeLast = view.orphanFirst = view.orphanLast = kNotQueued;
  view.flowValue = 0.0f;
  SearchTree<Grid> init(view, grid);
  for (int node = s.firstNode; node < s.endNode; ++node) {
    g.nextActive[node] = kNotQueued;
    g.nextOrphan[node] = kNotQueued;
    init.initTerminal(node);
  }
}

// Writes back the edges between `upper` and the stripe `lower` that follows
// it and activates both ends of each, in upper's view, which goes on.
template <class Grid>
void writeBack(const Grid& grid, Stripe& upper, Stripe& lower, float* arcs) {
  KORUSEGraph& view = *upper.view;
  SearchTree<Grid> tree(view, grid);
  for (const TakenEdge& e : lower.above) {
    arcs[e.arc] = e.capacity;
    arcs[e.arc + 1] = e.sisterCapacity;
    tree.addActive(e.arc >> 3);              // the tail, in the lower stripe
    tree.addActive(grid.head(e.arc));        // the head, in the upper one
  }
  lower.above.clear();
}

template <class Grid>
float searchStriped(KORUSEGraph& g, const Grid& grid, int count, int threads) {
  std::vector<Stripe> stripes = cutIntoStripes(g, count);
  for (size_t k = 1; k < stripes.size(); ++k) takeOutEdgesAbove(g, grid, stripes[k]);
  for (Stripe& s : stripes) s.view.reset(new KORUSEGraph(&g, 0, 0, g.width, g.height));
  const int n = static_cast<int>(stripes.size());
  runTasks(n, threads, [&](int k) {
    initStripe(g, grid, stripes[k]);
    SearchTree<Grid>(*stripes[k].view, grid).run();
  });
  float flow = g.flowValue;
  for (const Stripe& s : stripes) flow += s.view->flowValue;
  // Passes of merges: stripe k takes in the region that starts `span` stripes on.
  for (int span = 1; span < n; span *= 2) {
    std::vector<int> merging;
    for (int k = 0; k + span < n; k += 2 * span) merging.push_back(k);
    const int m = static_cast<int>(merging.size());
    runTasks(m, threads, [&](int i) {
      Stripe& upper = stripes[merging[i]];
      upper.view->flowValue = 0.0f;
      writeBack(grid, upper, stripes[merging[i] + span], g.arcArray);
      SearchTree<Grid>(*upper.view, grid).run();
    });
    for (int k : merging) flow += stripes[k].view->flowValue;
  }
  g.flowValue = flow;
  return flow;
}

}  // namespace

float stripedMaxFlow(KORUSEGraph& g, int threads, int minNodes) {
  if (threads < 2) return g.maxFlow();
  const int stripes = std::min(kStripesPerThread * threads, g.nodeCount / std::max(minNodes, 1));
  if (stripes < 2 || !g.completeGraph()) return g.maxFlow();
  if (g.isBand()) return searchStriped(g, bandGridOf(g), stripes, threads);
  return searchStriped(g, wholeGridOf(g), stripes, threads);
}
