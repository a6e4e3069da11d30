// The serial search-tree max-flow, written once for both kinds of grid
// (GridTopology.h): a source tree and a sink tree grow from the nodes with
// terminal capacity; when they touch, the path is augmented and the nodes
// cut off by saturation (orphans) are re-attached or freed. Neighbours are
// always visited in the fixed order of the topology's arcs, so the cut is
// reproducible bit for bit.
//
//   MaxFlow.cpp    the loop and the growth of the trees
//   Augment.cpp    augmentation along the path the trees share
//   Adoption.cpp   re-attaching or freeing orphans
//
// A SearchTree is a short-lived view of a graph's arrays; the queues and the
// flow stay in the graph.
#pragma once

#include "graph/GridTopology.h"
#include "graph/KORUSEGraph.h"

template <class Grid>
class SearchTree {
 public:
  SearchTree(KORUSEGraph& graph, Grid grid)
      : g(graph),
        grid(grid),
        parent(graph.parentArc),
        parentNode(graph.parentNode),
        tree(graph.treeLabel),
        terminal(graph.residualTerminalCapacity),
        nextActive(graph.nextActive),
        nextOrphan(graph.nextOrphan),
        cap(graph.arcArray) {}

  // The loop on the current trees and queues, until no node is active or
  // the search is cancelled; returns the graph's flow.
  float run();
  // Pushes the bottleneck along the path through `middle`; returns the
  // path's length in nodes (the work it took).
  int augment(int middle);
  // An orphan of `treeOf`: re-attached, or freed; returns the walk steps it took.
  int adopt(int orphan, uint8_t treeOf);

  // A node with source capacity hangs from the source, with sink capacity
  // from the sink, both queued as active; the rest is free.
  void initTerminal(int node) {
    const float r = terminal[node];
    if (r > 0.0f || r < 0.0f) {
      setParent(node, TERMINAL_ARC, TERMINAL_ARC);
      tree[node] = r > 0.0f ? kSourceTree : kSinkTree;
      addActive(node);
    } else {
      setParent(node, NO_PARENT, NO_PARENT);
      tree[node] = kFreeNode;
    }
  }

  // The arc to the parent, and the node it points to.
  void setParent(int node, int arc, int to) {
    parent[node] = arc;
    parentNode[node] = to;
  }

  void addActive(int node) {
    if (nextActive[node] != kNotQueued) return;
    nextActive[node] = node;
    if (g.activeFirst == kNotQueued) {
      g.activeFirst = g.activeLast = node;
    } else {
      nextActive[g.activeLast] = node;
      g.activeLast = node;
    }
  }
  // The removed node keeps its link: the search clears it when it takes the
  // node up, and until then the node cannot be queued twice.
  void popActive() {
    if (g.activeFirst == kNotQueued) return;
    if (g.activeFirst == g.activeLast)
      g.activeFirst = g.activeLast = kNotQueued;
    else
      g.activeFirst = nextActive[g.activeFirst];
  }
  void addOrphan(int node) {
    setParent(node, NO_PARENT, NO_PARENT);
    if (nextOrphan[node] != kNotQueued) return;
    nextOrphan[node] = node;
    if (g.orphanFirst == kNotQueued) {
      g.orphanFirst = g.orphanLast = node;
    } else {
      nextOrphan[g.orphanLast] = node;
      g.orphanLast = node;
    }
  }
  void popOrphan() {
    const int front = g.orphanFirst;
    if (front == kNotQueued) return;
    if (front == g.orphanLast)
      g.orphanFirst = g.orphanLast = kNotQueued;
    else
      g.orphanFirst = nextOrphan[front];
    nextOrphan[front] = kNotQueued;
  }

 private:
  int growSource(int node);
  int growSink(int node);
  int adoptOrphans();
  void release(int orphan, const int arcs[8], const int heads[8]);

  // One side of an augmenting path as the bottleneck pass found it, for the
  // update pass: the first kPathRecord nodes and their parent arcs (a longer
  // side is walked again from where the record ends).
  static constexpr int kPathRecord = 512;
  struct PathSide {
    int nodes[kPathRecord];
    int arcs[kPathRecord];
    int length;  // steps recorded
    int rest;    // the node the record stops at (its root when the side is whole)
  };
  template <bool kSinkSide>
  float bottleneck(int start, float f, PathSide& side);
  template <bool kSinkSide>
  void push(float f, const PathSide& side);

  KORUSEGraph& g;
  const Grid grid;
  int32_t* const parent;
  int32_t* const parentNode;
  uint8_t* const tree;
  float* const terminal;
  int32_t* const nextActive;
  int32_t* const nextOrphan;
  float* const cap;
};
