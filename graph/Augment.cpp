// Augmentation along the path the two trees share.
//
// Every node's parentArc points from the node to its parent, in both trees.
// In the sink tree the residual that matters is the arc's own (flow runs
// node -> parent); in the source tree it is the sister's (parent -> node).
#include "graph/SearchTree.h"

template <class Grid>
int SearchTree<Grid>::augment(int middle) {
  int length = 0;
  // Bottleneck; only a strictly smaller value replaces it.
  float f = cap[middle];
  int v = grid.head(middle);
  for (int p = parent[v]; p != TERMINAL_ARC; p = parent[v], ++length) {
    if (cap[p] < f) f = cap[p];
    v = grid.head(p);
  }
  if (-terminal[v] < f) f = -terminal[v];
  int u = grid.head(KORUSEGraph::sisterArc(middle));
  for (int p = parent[u]; p != TERMINAL_ARC; p = parent[u], ++length) {
    if (cap[KORUSEGraph::sisterArc(p)] < f) f = cap[KORUSEGraph::sisterArc(p)];
    u = grid.head(p);
  }
  if (terminal[u] < f) f = terminal[u];

  cap[middle] -= f;
  cap[KORUSEGraph::sisterArc(middle)] += f;

  // Sink side, from the middle towards the sink.
  v = grid.head(middle);
  for (int p = parent[v]; p != TERMINAL_ARC; p = parent[v]) {
    cap[p] -= f;
    cap[KORUSEGraph::sisterArc(p)] += f;
    const int next = grid.head(p);
    if (cap[p] == 0.0f) addOrphan(v);
    v = next;
  }
  terminal[v] += f;
  if (terminal[v] == 0.0f) addOrphan(v);

  // Source side, from the middle towards the source.
  u = grid.head(KORUSEGraph::sisterArc(middle));
  for (int p = parent[u]; p != TERMINAL_ARC; p = parent[u]) {
    cap[KORUSEGraph::sisterArc(p)] -= f;
    cap[p] += f;
    const int next = grid.head(p);
    if (cap[KORUSEGraph::sisterArc(p)] == 0.0f) addOrphan(u);
    u = next;
  }
  terminal[u] -= f;
  if (terminal[u] == 0.0f) addOrphan(u);

  g.flowValue += f;
  return length + 2;
}

template int SearchTree<WholeGrid>::augment(int);
template int SearchTree<BandGrid>::augment(int);

void KORUSEGraph::AugmentPath(int middleArc) {
  if (band)
    SearchTree<BandGrid>(*this, {band->present, band->baseUp, band->baseDown}).augment(middleArc);
  else
    SearchTree<WholeGrid>(*this, {width, height, neighbourOffsetTable}).augment(middleArc);
}
