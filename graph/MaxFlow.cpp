// The search loop and the growth of the two trees.
#include "graph/KORUSEGraph.h"
#include "graph/SearchTree.h"
#include "interface/session/Cancellation.h"
#include "support/KORULog.h"

namespace {
// Work between two readings of the clock: active nodes, path nodes and walk
// steps. A unit costs nanoseconds (a cache miss at most), so a time-out is
// noticed well within a millisecond while the clock costs next to nothing.
constexpr int kWorkPerClockReading = 4096;
}  // namespace

void KORUSEGraph::maxflowInit() {
  emptyQueues();
  if (!parentArc) return;
  SearchTree<WholeGrid> init(*this, wholeGridOf(*this));  // the grid is not read
  for (int node = 0; node < nodeCount; ++node) {
    nextActive[node] = kNotQueued;
    nextOrphan[node] = kNotQueued;
    init.initTerminal(node);
  }
}

float KORUSEGraph::maxFlowSerialCall() {
  if (band) return SearchTree<BandGrid>(*this, bandGridOf(*this)).run();
  return SearchTree<WholeGrid>(*this, wholeGridOf(*this)).run();
}

// A source node: grow over its arcs i -> j with residual capacity. Returns the
// arc that reaches the sink tree, or NO_CANDIDATE. Residual capacities are
// never negative and an absent edge holds -2 both ways, so "> 0" is "present
// and not saturated".
template <class Grid>
int SearchTree<Grid>::growSource(int node) {
  int arcs[8], heads[8];
  grid.neighbours(node, arcs, heads);
  for (unsigned m = grid.presence(node); m; m &= m - 1) {
    const int k = __builtin_ctz(m), a = arcs[k];
    if (!(cap[a] > 0.0f)) continue;
    const int j = heads[k];
    if (tree[j] == kSinkTree) return a;
    if (tree[j] == kFreeNode) {
      tree[j] = kSourceTree;
      addActive(j);
      setParent(j, KORUSEGraph::sisterArc(a), node);
    }
  }
  return NO_CANDIDATE;
}

// A sink node: grow over the arcs j -> i into it with residual capacity.
// Returns the arc j -> i from the source tree, or NO_CANDIDATE.
template <class Grid>
int SearchTree<Grid>::growSink(int node) {
  int arcs[8], heads[8];
  grid.neighbours(node, arcs, heads);
  for (unsigned m = grid.presence(node); m; m &= m - 1) {
    const int k = __builtin_ctz(m), a = arcs[k];
    if (!(cap[KORUSEGraph::sisterArc(a)] > 0.0f)) continue;
    const int j = heads[k];
    if (tree[j] == kSourceTree) return KORUSEGraph::sisterArc(a);
    if (tree[j] == kFreeNode) {
      tree[j] = kSinkTree;
      addActive(j);
      setParent(j, KORUSEGraph::sisterArc(a), node);
    }
  }
  return NO_CANDIDATE;
}

template <class Grid>
int SearchTree<Grid>::adoptOrphans() {
  int work = 0;
  while (!cancelRequested() && g.orphanFirst != kNotQueued) {
    const int orphan = g.orphanFirst;
    popOrphan();
    if (tree[orphan] == kSinkTree)
      work += adopt(orphan, kSinkTree);
    else if (tree[orphan] == kSourceTree)
      work += adopt(orphan, kSourceTree);
  }
  return work;
}

template <class Grid>
float SearchTree<Grid>::run() {
  if (cancelRequested()) return g.flowValue;
  int current = kNotQueued;
  int work = kWorkPerClockReading;  // the first iteration reads the clock
  for (;;) {
    if (current == kNotQueued) {
      current = g.activeFirst;
      if (current == kNotQueued) return g.flowValue;
      popActive();
    }
    nextActive[current] = kNotQueued;
    // A free node lost its tree since it was queued: nothing to grow.
    int middle = NO_CANDIDATE;
    if (tree[current] == kSourceTree)
      middle = growSource(current);
    else if (tree[current] == kSinkTree)
      middle = growSink(current);

    ++work;
    if (middle != NO_CANDIDATE) {
      nextActive[current] = current;  // stays current: keep it out of the queue
      work += augment(middle);
      work += adoptOrphans();
    } else {
      current = kNotQueued;
    }
    // The limit is on the whole segmentation, so passing it cancels that too.
    if (cancelRequested()) return g.flowValue;
    if (work >= kWorkPerClockReading) {
      work = 0;
      if (budgetSpent()) {
        KORUSEMarker::m_exitApp = true;  // the whole segmentation is over
        return g.flowValue;
      }
    }
  }
}

template float SearchTree<WholeGrid>::run();
template float SearchTree<BandGrid>::run();
