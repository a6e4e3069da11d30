// The two FIFOs of the search, as exported operations: intrusive lists
// through the per-node links, so the search allocates nothing. A link equal
// to the node itself marks the last node; kNotQueued marks "not queued".
// The search uses SearchTree's inline copies of the same operations.
#include "graph/SearchTree.h"

namespace {
// The queues do not depend on the kind of grid.
SearchTree<WholeGrid> queuesOf(KORUSEGraph& g) { return SearchTree<WholeGrid>(g, wholeGridOf(g)); }
}  // namespace

void KORUSEGraph::AddToActiveQueue(int node) {
  if (validNode(node, "AddToActiveQueue")) queuesOf(*this).addActive(node);
}

void KORUSEGraph::GetTopActiveQueueNode() {
  if (parentArc) queuesOf(*this).popActive();
}

void KORUSEGraph::AddToOrphanQueue(int node) {
  if (validNode(node, "AddToOrphanQueue")) queuesOf(*this).addOrphan(node);
}

void KORUSEGraph::GetTopOrphanQueueNode() {
  if (parentArc) queuesOf(*this).popOrphan();
}
