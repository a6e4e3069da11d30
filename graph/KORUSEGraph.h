// KORUSEGraph: the grid flow network every segmentation pass is cut on.
//
// Not a general graph. The nodes are the width x height pixels of a region in
// raster order (index = row * width + column); every node is joined to its
// eight neighbours. Each node owns four undirected edges, towards its left,
// upper-left, upper and upper-right neighbours; its other four directions
// live in the records of the right, lower-right, lower and lower-left nodes.
// There are no adjacency lists and no arc records: an arc's end nodes and its
// reverse come from its index by arithmetic.
//
// Arc layout (the contract shared with the block search and the band cut):
//   arc index = 8 * owner + 2 * slot + d
//   slot 0 left, 1 upper-left, 2 upper, 3 upper-right;
//   d = 0: owner -> neighbour, d = 1: neighbour -> owner.
//   sister(a) = a ^ 1
//   head(a)   = ((a + 1) >> 3) + neighbourOffsetTable[(a + 1) & 7]
//   A capacity of exactly ABSENT_CAPACITY (-2.0) marks a missing edge; 0 is
//   saturated.
//
// Typical use:
//   KORUSEGraph g(n, 8 * n, w, h, 0);
//   g.addNode(n);
//   for each node in raster order: four addEdge calls in slot order;
//   for each node: g.addtWeights(i, source, sink);
//   g.maxFlow();
//   g.getTreeofNode(i)   // true = sink side (background)
//
// Capacities are single-precision floats. Nothing here throws; undefined
// calls (indices out of range, missing storage) are logged under "Error"
// and ignored.
#pragma once

#include <cstdint>

// Per-pixel record: five 32-bit words on 32-bit ARM (20 bytes). On a 64-bit
// host the two links are 8-byte pointers and the record is 32 bytes.
struct nodes {
  int32_t parentArc;               // arc from this node to its parent; TERMINAL_ARC or NO_PARENT
  int32_t treeLabel;               // SOURCE_TREE, SINK_TREE or FREE_NODE
  float residualTerminalCapacity;  // > 0 from the source, < 0 to the sink (magnitude), 0 none
  nodes* nextActive;               // active FIFO: next node, itself when last, null when not queued
  nodes* nextOrphan;               // orphan FIFO, same convention
};

static_assert(sizeof(void*) != 4 || sizeof(nodes) == 20, "the node record is five words");

// ---- the named values of the layout and of the search -----------------------
constexpr int32_t TERMINAL_ARC = -1;      // parentArc: hangs directly from its terminal
constexpr int32_t NO_PARENT = -3;         // parentArc: free node or orphan
constexpr int32_t NO_CANDIDATE = -2;      // an arc list entry whose direction leaves the image
constexpr float ABSENT_CAPACITY = -2.0f;  // both arcs of an edge that does not exist
constexpr int32_t SOURCE_TREE = 0;        // object side
constexpr int32_t SINK_TREE = 1;          // background side
constexpr int32_t FREE_NODE = 2;
constexpr int32_t MIN_GRAPH_RECORDS = 16;          // smallest node and edge allocation
constexpr double MAXFLOW_TIME_LIMIT_MS = 10000.0;  // on g_cancelTimer; past it the cut is cancelled
constexpr int32_t UNREACHABLE_DISTANCE = 2147483647;  // adoption: chain ends in an orphan

class KORUSEGraph {
 public:
  // ---- construction and building --------------------------------------------

  // Whole-image graph. Allocates max(nodeMax, 16) node records and
  // max(edgeMax, 16) edges of two floats each (callers pass 8 x nodes, twice
  // what the layout uses). Node records are left uninitialised for addNode.
  // On allocation failure the arrays stay null (the allocator logs it) and
  // every later call is a logged no-op.
  KORUSEGraph(int nodeMax, int edgeMax, int width, int height, int threadCount);

  // Block view: borrows the storage, counts, flowValue and size of `whole`
  // and remembers its block (block row/column, block size in nodes). Allocates
  // nothing and never frees what it borrows.
  KORUSEGraph(KORUSEGraph* whole, int blockRow, int blockColumn, int blockWidth, int blockHeight);

  // Whole-image graph: reset, then frees both arrays. Block view: nothing.
  ~KORUSEGraph();

  KORUSEGraph(const KORUSEGraph&) = delete;
  KORUSEGraph& operator=(const KORUSEGraph&) = delete;

  // Frees every counted node, zeroes the used arc floats, sets both counts to
  // 0 so the next build appends from the start of the arrays, clears flowValue
  // and both queues. Cost: one pass over the used storage.
  void reset();

  // Like reset, but keeps the counts and the next-free pointers: the topology
  // stays in place and only capacities are to be rewritten.
  void resetNew();

  // Appends n free nodes with zero terminal capacity (n < 1 does nothing).
  // More than the allocation holds is logged and ignored.
  void addNode(int n);

  // Appends one edge: first float cap, second revCap, both ABSENT_CAPACITY
  // when absent. i and j are not read: edges must come strictly in node
  // order, four per node, in slot order left, upper-left, upper, upper-right,
  // absent for neighbours outside the image. A capacity that is negative or
  // not finite is logged and stored as 0 (it would stall the search).
  void addEdge(int i, int j, float cap, float revCap, bool absent);

  // Adds cap to the arc i -> j and revCap to j -> i when j is a present
  // 8-neighbour of i inside the image; otherwise nothing changes. Cost: a
  // scan of i's eight arcs.
  void addToEdge(int i, int j, float cap, float revCap);

  // Combines terminal capacities with what node i already holds: the flow
  // both terminals could push through the node is counted in flowValue at
  // once and only the difference is stored (positive = from the source).
  void addtWeights(int i, float capSource, float capSink);

  // True when node i ended in the sink tree (background side). Free nodes
  // and source-tree nodes read false (object side).
  bool getTreeofNode(int i) const;

  // ---- maximum flow (MaxFlow.cpp) ---------------------------------------------

  // Entry point: maxflowInit, then the serial search; returns the flow.
  // Needs a complete grid: width x height nodes and their four edges each.
  // Stops early (flag set, partial cut) when KORUSEMarker::m_exitApp is set
  // or g_cancelTimer passes 10 s; callers check the flag and discard the
  // result. With a thread count of 2 or more the block search of ParallelGC
  // cuts the graph instead and 0 is returned (the cut is what counts there).
  // Cost: no allocation; one clock read per iteration; each adoption walks
  // its candidates' chains to the terminal.
  float maxFlow();

  // Terminal initialisation: a node with source capacity hangs from the
  // source, with sink capacity from the sink, both queued as active; the rest
  // is free. Both queues start empty and every queue link is cleared first,
  // so a graph whose earlier search was cancelled starts clean.
  void maxflowInit();

  // The search loop on the current trees and queues; returns flowValue.
  // Needs maxflowInit (or InitBlock) first.
  float maxFlowSerialCall();

  // ---- advanced: the pieces of the search, shared with the block search -------

  // Block view only: empties the queues, clears flowValue and applies the
  // terminal initialisation to the nodes of its block (cut off at the grid).
  void InitBlock();

  // Append to the active FIFO unless already linked.
  void AddToActiveQueue(nodes* node);
  // Drop the front of the active FIFO; its link is left for the search to clear.
  void GetTopActiveQueueNode();
  // Mark as orphan (parentArc = NO_PARENT) and append unless already linked.
  void AddToOrphanQueue(nodes* node);
  // Drop the front of the orphan FIFO and clear its link.
  void GetTopOrphanQueueNode();

  // Pushes the bottleneck along the path through `middleArc` (tail in the
  // source tree, head in the sink tree) and queues the orphans it makes,
  // sink side first, each side from the middle outwards (Augment.cpp).
  void AugmentPath(int middleArc);

  // Re-attach an orphan to the neighbour of its tree with the shortest walk
  // to the terminal (first in visiting order on ties), or free it, queue its
  // neighbours that may reach it and orphan its children (Adoption.cpp).
  void ProcessSourceOrphans(nodes* orphan);
  void ProcessSinkOrphans(nodes* orphan);

  // ---- arc arithmetic -----------------------------------------------------------

  static int sisterArc(int arc) { return arc ^ 1; }
  int arcHead(int arc) const { return ((arc + 1) >> 3) + neighbourOffsetTable[(arc + 1) & 7]; }
  int nodeIndex(const nodes* node) const { return static_cast<int>(node - nodeArray); }
  // The eight arcs leaving node i in the fixed visiting order: left,
  // upper-left, upper, upper-right, right, lower-right, lower, lower-left;
  // NO_CANDIDATE where the direction leaves the image.
  void neighbourArcs(int i, int arcs[8]) const {
    const int row = i / width;
    const int column = i - row * width;
    const bool left = column > 0, right = column < width - 1;
    const bool up = row > 0, down = row < height - 1;
    arcs[0] = left ? 8 * i : NO_CANDIDATE;
    arcs[1] = left && up ? 8 * i + 2 : NO_CANDIDATE;
    arcs[2] = up ? 8 * i + 4 : NO_CANDIDATE;
    arcs[3] = up && right ? 8 * i + 6 : NO_CANDIDATE;
    arcs[4] = right ? 8 * (i + 1) + 1 : NO_CANDIDATE;
    arcs[5] = right && down ? 8 * (i + width + 1) + 3 : NO_CANDIDATE;
    arcs[6] = down ? 8 * (i + width) + 5 : NO_CANDIDATE;
    arcs[7] = down && left ? 8 * (i + width - 1) + 7 : NO_CANDIDATE;
  }

  // ---- members ------------------------------------------------------------------
  int32_t nodeCount;      // nodes added so far
  int32_t arcFloatCount;  // floats of the arc array in use (2 per edge)
  nodes* nodeArray;       // start of node storage
  nodes* nextFreeNode;    // where addNode writes next
  nodes* nodeArrayEnd;    // end of node storage
  float* arcArray;        // residual capacities, 8 per node
  float* nextFreeArc;     // where addEdge writes next
  float* arcArrayEnd;     // end of arc storage
  float flowValue;        // from addtWeights and the augmentations
  nodes* activeFirst;     // FIFO of active nodes
  nodes* activeLast;
  nodes* orphanFirst;  // FIFO of orphans
  nodes* orphanLast;
  int32_t neighbourOffsetTable[8];  // head formula; the only place width enters arcs
  int32_t threadCount;              // below 2: serial search
  int32_t blockWidth;               // block view: block size in nodes
  int32_t blockHeight;
  int32_t blockRow;  // block view: position in the grid of blocks
  int32_t blockColumn;
  int32_t width;  // grid size in nodes
  int32_t height;
  bool ownsStorage;  // false for a block view: it must never free the arrays

 private:
  void buildOffsetTable();
  void emptyQueues();
  void initTerminal(nodes* node);
  bool validNode(int i, const char* function) const;
  bool completeGrid() const;
  int growSourceTree(const int arcs[8]);
  int growSinkTree(const int arcs[8]);
  void adoptOrphans();
  int walkedDistance(int arc) const;
  void adoptOrFree(nodes* orphan, int32_t tree);
  void releaseOrphan(nodes* orphan, const int arcs[8]);
};
