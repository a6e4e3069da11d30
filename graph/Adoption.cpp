// Orphan adoption.
//
// An orphan looks among its neighbours of the same tree for the one whose
// walk up the tree to the terminal is shortest. Distances are not cached:
// each candidate is walked, which keeps the per-node state small and needs
// no timestamps. Ties go to the first neighbour in visiting order.
#include "graph/SearchTree.h"

// No parent found: the orphan becomes free. Neighbours of its former tree
// that still have residual capacity towards it are queued as active, so the
// tree may grow back into it; children that hung from it become orphans.
template <class Grid>
void SearchTree<Grid>::release(int orphan, const int arcs[8], const int heads[8]) {
  const uint8_t former = tree[orphan];
  const bool sinkTree = former == kSinkTree;
  setParent(orphan, NO_PARENT, NO_PARENT);
  tree[orphan] = kFreeNode;
  for (unsigned m = grid.presence(orphan); m; m &= m - 1) {
    const int k = __builtin_ctz(m), a = arcs[k];
    if (cap[a] == ABSENT_CAPACITY) continue;
    const int j = heads[k];
    if (tree[j] != former) continue;
    // Orphans of the tree are queued too, on purpose: one that is adopted
    // again must be able to grow back into this node, or the node stays free
    // although it still reaches the terminal, and the cut is not minimal.
    const float toward = sinkTree ? cap[a] : cap[KORUSEGraph::sisterArc(a)];
    if (toward != 0.0f) addActive(j);
    if (parentNode[j] == orphan) addOrphan(j);
  }
}

// A valid parent j: present arc, residual capacity towards the terminal
// (j -> i in the source tree, i -> j in the sink tree), j in the orphan's
// tree and not itself an orphan. The chosen one has the shortest walk to
// the terminal: 2 when it hangs from the terminal, one more per step
// further up; a walk that ends in another orphan or a free node does not
// count. The candidates are walked side by side, one step each per round,
// so the first round in which one reaches the terminal decides, and among
// those reaching it then the first in visiting order wins: the same choice
// as walking each in full, for the length of the shortest walk.
template <class Grid>
int SearchTree<Grid>::adopt(int orphan, uint8_t treeOf) {
  int arcs[8], heads[8];
  grid.neighbours(orphan, arcs, heads);
  int walker[8];      // where each candidate's walk has got to
  unsigned live = 0;  // candidates still walking, bit k for direction k
  for (unsigned m = grid.presence(orphan); m; m &= m - 1) {
    const int k = __builtin_ctz(m), a = arcs[k];
    // Absent edges hold -2 both ways: "> 0" is present and not saturated.
    if (!(cap[treeOf == kSourceTree ? KORUSEGraph::sisterArc(a) : a] > 0.0f)) continue;
    const int j = heads[k];
    if (parent[j] == NO_PARENT || tree[j] != treeOf) continue;
    walker[k] = j;
    live |= 1u << k;
  }
  int work = 8;
  while (live) {
    for (unsigned rest = live; rest; rest &= rest - 1) {
      const int k = __builtin_ctz(rest);
      const int up = parentNode[walker[k]];
      if (up == TERMINAL_ARC) {
        setParent(orphan, arcs[k], heads[k]);
        return work;
      }
      ++work;
      if (up == NO_PARENT)
        live &= ~(1u << k);  // ends in an orphan: out
      else
        walker[k] = up;
    }
  }
  release(orphan, arcs, heads);
  return work;
}

template int SearchTree<WholeGrid>::adopt(int, uint8_t);
template int SearchTree<BandGrid>::adopt(int, uint8_t);

// One orphan of `tree` adopted outside the search, on the graph's own grid.
static void adoptOutsideSearch(KORUSEGraph& graph, int orphan, uint8_t tree) {
  graph.syncParentNodes();
  if (graph.band)
    SearchTree<BandGrid>(graph, bandGridOf(graph)).adopt(orphan, tree);
  else
    SearchTree<WholeGrid>(graph, wholeGridOf(graph)).adopt(orphan, tree);
}

void KORUSEGraph::ProcessSourceOrphans(int orphan) {
  if (validNode(orphan, "ProcessSourceOrphans")) adoptOutsideSearch(*this, orphan, kSourceTree);
}

void KORUSEGraph::ProcessSinkOrphans(int orphan) {
  if (validNode(orphan, "ProcessSinkOrphans")) adoptOutsideSearch(*this, orphan, kSinkTree);
}
