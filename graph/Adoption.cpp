// Orphan adoption.
//
// An orphan looks among its neighbours of the same tree for the one whose
// walk up the tree to the terminal is shortest. Distances are not cached:
// each candidate is walked, which keeps the node record at five words and
// needs no timestamps. Ties go to the first neighbour in visiting order.
#include "graph/KORUSEGraph.h"

// Distance to the terminal through `arc` (orphan -> candidate): 2 when the
// candidate hangs from the terminal, one more per step further up;
// UNREACHABLE_DISTANCE when the chain ends in another orphan or free node.
int KORUSEGraph::walkedDistance(int arc) const {
  int d = 1;
  for (;;) {
    ++d;
    const int parent = nodeArray[arcHead(arc)].parentArc;
    if (parent == TERMINAL_ARC) return d;
    if (parent == NO_PARENT) return UNREACHABLE_DISTANCE;
    arc = parent;
  }
}

// No parent found: the orphan becomes free. Neighbours of its former tree
// that still have residual capacity towards it are queued as active, so the
// tree may grow back into it; children that hung from it become orphans.
void KORUSEGraph::releaseOrphan(nodes* orphan, const int arcs[8]) {
  const int i = nodeIndex(orphan);
  const int tree = orphan->treeLabel;
  const bool sinkTree = tree == SINK_TREE;
  orphan->parentArc = NO_PARENT;
  orphan->treeLabel = FREE_NODE;
  for (int k = 0; k < 8; ++k) {
    const int a = arcs[k];
    if (a == NO_CANDIDATE || arcArray[a] == ABSENT_CAPACITY) continue;
    nodes* j = &nodeArray[arcHead(a)];
    if (j->treeLabel != tree) continue;
    // Orphans of the tree are queued too: one that is adopted again must be
    // able to grow back into this node, or the node stays free although it
    // still reaches the terminal and the cut read back is not minimal.
    const float toward = sinkTree ? arcArray[a] : arcArray[sisterArc(a)];
    if (toward != 0.0f && !j->nextActive) AddToActiveQueue(j);
    if (j->parentArc >= 0 && arcHead(j->parentArc) == i) AddToOrphanQueue(j);
  }
}

// A valid parent j: present arc, residual capacity towards the terminal
// (j -> i in the source tree, i -> j in the sink tree), j in the orphan's
// tree and not itself an orphan.
void KORUSEGraph::adoptOrFree(nodes* orphan, int32_t tree) {
  int arcs[8];
  neighbourArcs(nodeIndex(orphan), arcs);
  int best = NO_CANDIDATE;
  int bestDistance = UNREACHABLE_DISTANCE;
  for (int k = 0; k < 8; ++k) {
    const int a = arcs[k];
    if (a == NO_CANDIDATE || arcArray[a] == ABSENT_CAPACITY) continue;
    const float residual = tree == SOURCE_TREE ? arcArray[sisterArc(a)] : arcArray[a];
    if (residual == 0.0f) continue;
    const nodes& j = nodeArray[arcHead(a)];
    if (j.parentArc == NO_PARENT || j.treeLabel != tree) continue;
    const int d = walkedDistance(a);
    if (d < bestDistance) {
      best = a;
      bestDistance = d;
    }
  }
  if (best != NO_CANDIDATE)
    orphan->parentArc = best;
  else
    releaseOrphan(orphan, arcs);
}

void KORUSEGraph::ProcessSourceOrphans(nodes* orphan) { adoptOrFree(orphan, SOURCE_TREE); }

void KORUSEGraph::ProcessSinkOrphans(nodes* orphan) { adoptOrFree(orphan, SINK_TREE); }
