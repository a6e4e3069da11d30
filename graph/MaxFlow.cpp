// Serial search-tree max-flow on the implicit 8-neighbour grid.
//
// A source tree and a sink tree grow from the nodes with terminal capacity;
// when they touch, the path is augmented and the nodes cut off by saturation
// (orphans) are re-attached or freed. Neighbours are always visited in the
// fixed order of neighbourArcs, so the cut is reproducible bit for bit.
// The search is bounded by the cancel flag and the cancel timer.
#include "graph/KORUSEGraph.h"
#include "graph/ParallelGC.h"
#include "interface/KORUSEMarker.h"
#include "support/KORULog.h"
#include "support/KORUTimer.h"

float KORUSEGraph::maxFlow() {
  if (!completeGrid()) {
    logBadCall("maxFlow", "graph is not a complete width x height grid");
    return flowValue;
  }
  if (threadCount >= 2) {
    // The block search does not add up the flow: callers read the cut.
    ParallelGC parallel(this, threadCount);
    return parallel.maxFlow();
  }
  maxflowInit();
  return maxFlowSerialCall();
}

void KORUSEGraph::initTerminal(nodes* node) {
  const float r = node->residualTerminalCapacity;
  if (r > 0.0f || r < 0.0f) {
    node->parentArc = TERMINAL_ARC;
    node->treeLabel = r > 0.0f ? SOURCE_TREE : SINK_TREE;
    AddToActiveQueue(node);
  } else {
    node->parentArc = NO_PARENT;
    node->treeLabel = FREE_NODE;
  }
}

void KORUSEGraph::maxflowInit() {
  emptyQueues();
  if (!nodeArray) return;
  for (nodes* node = nodeArray; node != nextFreeNode; ++node) {
    node->nextActive = nullptr;
    node->nextOrphan = nullptr;
    initTerminal(node);
  }
}

// A source node: grow over its arcs i -> j with residual capacity. Returns the
// arc that reaches the sink tree, or NO_CANDIDATE.
int KORUSEGraph::growSourceTree(const int arcs[8]) {
  for (int k = 0; k < 8; ++k) {
    const int a = arcs[k];
    if (a == NO_CANDIDATE) continue;
    const float cap = arcArray[a];
    if (cap == ABSENT_CAPACITY || cap == 0.0f) continue;
    nodes* j = &nodeArray[arcHead(a)];
    if (j->treeLabel == SINK_TREE) return a;
    if (j->treeLabel == FREE_NODE) {
      j->treeLabel = SOURCE_TREE;
      AddToActiveQueue(j);
      j->parentArc = sisterArc(a);
    }
  }
  return NO_CANDIDATE;
}

// A sink node: grow over the arcs j -> i into it with residual capacity.
// Returns the arc j -> i from the source tree, or NO_CANDIDATE.
int KORUSEGraph::growSinkTree(const int arcs[8]) {
  for (int k = 0; k < 8; ++k) {
    const int a = arcs[k];
    if (a == NO_CANDIDATE) continue;
    const float cap = arcArray[sisterArc(a)];
    if (cap == ABSENT_CAPACITY || cap == 0.0f) continue;
    nodes* j = &nodeArray[arcHead(a)];
    if (j->treeLabel == SOURCE_TREE) return sisterArc(a);
    if (j->treeLabel == FREE_NODE) {
      j->treeLabel = SINK_TREE;
      AddToActiveQueue(j);
      j->parentArc = sisterArc(a);
    }
  }
  return NO_CANDIDATE;
}

void KORUSEGraph::adoptOrphans() {
  while (!KORUSEMarker::m_exitApp && orphanFirst) {
    nodes* orphan = orphanFirst;
    GetTopOrphanQueueNode();
    if (orphan->treeLabel == SINK_TREE)
      ProcessSinkOrphans(orphan);
    else if (orphan->treeLabel == SOURCE_TREE)
      ProcessSourceOrphans(orphan);
  }
}

float KORUSEGraph::maxFlowSerialCall() {
  if (KORUSEMarker::m_exitApp) return flowValue;
  nodes* current = nullptr;
  for (;;) {
    if (!current) {
      current = activeFirst;
      if (!current) return flowValue;
      GetTopActiveQueueNode();
    }
    current->nextActive = nullptr;
    const int i = nodeIndex(current);
    int arcs[8];
    neighbourArcs(i, arcs);
    // A free node lost its tree since it was queued: nothing to grow.
    int middle = NO_CANDIDATE;
    if (current->treeLabel == SOURCE_TREE)
      middle = growSourceTree(arcs);
    else if (current->treeLabel == SINK_TREE)
      middle = growSinkTree(arcs);

    if (middle != NO_CANDIDATE) {
      current->nextActive = current;  // stays current: keep it out of the queue
      AugmentPath(middle);
      adoptOrphans();
    } else {
      current = nullptr;
    }
    // Read once per iteration: the price of a bounded response time. The
    // limit is on the whole segmentation, so passing it cancels that too.
    const double elapsed = get_elapsed_time_in_millisec(g_cancelTimer);
    if (KORUSEMarker::m_exitApp || elapsed > MAXFLOW_TIME_LIMIT_MS) {
      KORUSEMarker::m_exitApp = true;
      return flowValue;
    }
  }
}
