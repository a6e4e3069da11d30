// Orphan adoption.
//
// An orphan looks among its neighbours of the same tree for the one whose
// walk up the tree to the terminal is shortest. Distances are not cached:
// each candidate is walked, which keeps the per-node state small and needs
// no timestamps. Ties go to the first neighbour in visiting order, so a walk
// stops as soon as it can no longer be strictly shorter than the best.
#include "graph/SearchTree.h"

// Distance to the terminal through `arc` (orphan -> candidate): 2 when the
// candidate hangs from the terminal, one more per step further up;
// UNREACHABLE_DISTANCE when the chain ends in another orphan or free node.
// Once the distance reaches `limit` the walk ends with `limit`: the
// candidate can no longer win.
template <class Grid>
int SearchTree<Grid>::walkedDistance(int arc, int limit) const {
  int d = 1;
  for (;;) {
    if (++d >= limit) return limit;
    const int up = parent[grid.head(arc)];
    if (up == TERMINAL_ARC) return d;
    if (up == NO_PARENT) return UNREACHABLE_DISTANCE;
    arc = up;
  }
}

// No parent found: the orphan becomes free. Neighbours of its former tree
// that still have residual capacity towards it are queued as active, so the
// tree may grow back into it; children that hung from it become orphans.
template <class Grid>
void SearchTree<Grid>::release(int orphan, const int arcs[8]) {
  const uint8_t former = tree[orphan];
  const bool sinkTree = former == SINK_TREE;
  parent[orphan] = NO_PARENT;
  tree[orphan] = FREE_NODE;
  for (int k = 0; k < 8; ++k) {
    const int a = arcs[k];
    if (a == NO_CANDIDATE || cap[a] == ABSENT_CAPACITY) continue;
    const int j = grid.head(a);
    if (tree[j] != former) continue;
    // Orphans of the tree are queued too: one that is adopted again must be
    // able to grow back into this node, or the node stays free although it
    // still reaches the terminal and the cut read back is not minimal.
    const float toward = sinkTree ? cap[a] : cap[KORUSEGraph::sisterArc(a)];
    if (toward != 0.0f) addActive(j);
    if (parent[j] >= 0 && grid.head(parent[j]) == orphan) addOrphan(j);
  }
}

// A valid parent j: present arc, residual capacity towards the terminal
// (j -> i in the source tree, i -> j in the sink tree), j in the orphan's
// tree and not itself an orphan.
template <class Grid>
int SearchTree<Grid>::adopt(int orphan, uint8_t treeOf) {
  int arcs[8];
  grid.arcs(orphan, arcs);
  int best = NO_CANDIDATE;
  int bestDistance = UNREACHABLE_DISTANCE;
  int work = 8;
  for (int k = 0; k < 8; ++k) {
    const int a = arcs[k];
    if (a == NO_CANDIDATE || cap[a] == ABSENT_CAPACITY) continue;
    const float residual = treeOf == SOURCE_TREE ? cap[KORUSEGraph::sisterArc(a)] : cap[a];
    if (residual == 0.0f) continue;
    const int j = grid.head(a);
    if (parent[j] == NO_PARENT || tree[j] != treeOf) continue;
    const int d = walkedDistance(a, bestDistance);
    if (d < bestDistance) {
      best = a;
      bestDistance = d;
    }
    work += d < UNREACHABLE_DISTANCE ? d : 2;
  }
  if (best != NO_CANDIDATE)
    parent[orphan] = best;
  else
    release(orphan, arcs);
  return work;
}

template int SearchTree<WholeGrid>::adopt(int, uint8_t);
template int SearchTree<BandGrid>::adopt(int, uint8_t);

void KORUSEGraph::ProcessSourceOrphans(int orphan) {
  if (!validNode(orphan, "ProcessSourceOrphans")) return;
  if (band)
    SearchTree<BandGrid>(*this, {band->present, band->baseUp, band->baseDown}).adopt(orphan, SOURCE_TREE);
  else
    SearchTree<WholeGrid>(*this, {width, height, neighbourOffsetTable}).adopt(orphan, SOURCE_TREE);
}

void KORUSEGraph::ProcessSinkOrphans(int orphan) {
  if (!validNode(orphan, "ProcessSinkOrphans")) return;
  if (band)
    SearchTree<BandGrid>(*this, {band->present, band->baseUp, band->baseDown}).adopt(orphan, SINK_TREE);
  else
    SearchTree<WholeGrid>(*this, {width, height, neighbourOffsetTable}).adopt(orphan, SINK_TREE);
}
