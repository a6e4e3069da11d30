// Augmentation along the path the two trees share.
//
// Every node's parentArc points from the node to its parent, in both trees.
// In the sink tree the residual that matters is the arc's own (flow runs
// node -> parent); in the source tree it is the sister's (parent -> node).
// Orphans enter the queue sink side first, each side from the middle out.
#include "graph/SearchTree.h"

namespace {
// The arc of a tree link in the direction the flow takes.
template <bool kSinkSide>
inline int flowArc(int arc) {
  return kSinkSide ? arc : KORUSEGraph::sisterArc(arc);
}
}  // namespace

// Walks one side from `start` to its root, lowering f to each link's
// residual (only a strictly smaller value replaces it) and recording the
// steps; the root's terminal capacity counts last.
template <class Grid>
template <bool kSinkSide>
float SearchTree<Grid>::bottleneck(int start, float f, PathSide& side) {
  const int32_t* const up = parent;
  const int32_t* const upNode = parentNode;
  const float* const c = cap;
  int v = start, n = 0;
  int p = up[v];
  for (; p != TERMINAL_ARC && n < kPathRecord; p = up[v], ++n) {
    side.nodes[n] = v;
    side.arcs[n] = p;
    const float r = c[flowArc<kSinkSide>(p)];
    if (r < f) f = r;
    v = upNode[v];
  }
  side.length = n;
  side.rest = v;
  for (; p != TERMINAL_ARC; p = up[v]) {  // beyond the record
    const float r = c[flowArc<kSinkSide>(p)];
    if (r < f) f = r;
    v = upNode[v];
  }
  const float root = kSinkSide ? -terminal[v] : terminal[v];
  return root < f ? root : f;
}

// Pushes f along one side; a link (or root) left with no residual orphans
// its node.
template <class Grid>
template <bool kSinkSide>
void SearchTree<Grid>::push(float f, const PathSide& side) {
  float* const c = cap;
  const int length = side.length;
  for (int k = 0; k < length; ++k) {
    const int along = flowArc<kSinkSide>(side.arcs[k]);
    c[along] -= f;
    c[KORUSEGraph::sisterArc(along)] += f;
    if (c[along] == 0.0f) addOrphan(side.nodes[k]);
  }
  int v = side.rest;
  for (int p = parent[v]; p != TERMINAL_ARC; p = parent[v]) {  // beyond the record
    const int along = flowArc<kSinkSide>(p);
    c[along] -= f;
    c[KORUSEGraph::sisterArc(along)] += f;
    const int next = parentNode[v];
    if (c[along] == 0.0f) addOrphan(v);
    v = next;
  }
  if (kSinkSide)
    terminal[v] += f;
  else
    terminal[v] -= f;
  if (terminal[v] == 0.0f) addOrphan(v);
}

template <class Grid>
int SearchTree<Grid>::augment(int middle) {
  const int sinkStart = grid.head(middle), sourceStart = grid.head(KORUSEGraph::sisterArc(middle));
  PathSide sink, source;
  float f = cap[middle];
  f = bottleneck<true>(sinkStart, f, sink);
  f = bottleneck<false>(sourceStart, f, source);

  cap[middle] -= f;
  cap[KORUSEGraph::sisterArc(middle)] += f;
  push<true>(f, sink);
  push<false>(f, source);
  g.flowValue += f;
  return sink.length + source.length + 2;
}

template int SearchTree<WholeGrid>::augment(int);
template int SearchTree<BandGrid>::augment(int);

void KORUSEGraph::AugmentPath(int middleArc) {
  syncParentNodes();
  if (band)
    SearchTree<BandGrid>(*this, bandGridOf(*this)).augment(middleArc);
  else
    SearchTree<WholeGrid>(*this, wholeGridOf(*this)).augment(middleArc);
}
