// KORUSEGraph: the grid flow network every segmentation pass is cut on.
//
// Not a general graph. The nodes are pixels of a width x height grid in
// raster order; every node is joined to its eight neighbours. Each node owns
// four undirected edges, towards its left, upper-left, upper and upper-right
// neighbours; its other four directions live in the records of the right,
// lower-right, lower and lower-left nodes. There are no adjacency lists and
// no arc records: an arc's end nodes and its reverse come from its index.
//
// Two kinds of grid:
//   whole grid  every pixel is a node: index = row * width + column, and an
//               arc's head is pure arithmetic (neighbourOffsetTable);
//   band        only the pixels of a mask are nodes (setBand), numbered in
//               raster order; the refinement cuts a thin band around an
//               outline this way without storing the rest of its box.
//
// Arc layout (the contract shared with the block search and the band cut):
//   arc index = 8 * owner + 2 * slot + d
//   slot 0 left, 1 upper-left, 2 upper, 3 upper-right;
//   d = 0: owner -> neighbour, d = 1: neighbour -> owner.
//   sister(a) = a ^ 1
//   head(a)   whole grid: ((a + 1) >> 3) + neighbourOffsetTable[(a + 1) & 7];
//             band: from the neighbour tables (GridTopology.h)
//   A capacity of exactly ABSENT_CAPACITY (-2.0) marks a missing edge; 0 is
//   saturated.
//
// Per-node state is kept in parallel arrays (parentArc, treeLabel, ...), so
// that the search's walks up the trees read four bytes per node: parentNode
// mirrors parentArc with the node the arc points to. Whoever sets parentArc
// directly (rather than through the search) calls syncParentNodes.
//
// Typical use:
//   KORUSEGraph g(n, 4 * n, w, h, 0);
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

#include <cstddef>
#include <cstdint>

// ---- the named values of the layout and of the search -----------------------
// In capitals, the values hosts know by name; k-names are this library's own.
constexpr int32_t TERMINAL_ARC = -1;      // parentArc: hangs directly from its terminal
constexpr int32_t NO_PARENT = -3;         // parentArc: free node or orphan
constexpr int32_t NO_CANDIDATE = -2;      // an arc list entry whose direction leaves the grid
constexpr float ABSENT_CAPACITY = -2.0f;  // both arcs of an edge that does not exist
constexpr int32_t kNotQueued = -1;        // queue link: not in that queue
constexpr uint8_t kSourceTree = 0;        // treeLabel: object side
constexpr uint8_t kSinkTree = 1;          // treeLabel: background side
constexpr uint8_t kFreeNode = 2;          // treeLabel: in neither tree
constexpr int32_t kMinGraphRecords = 16;  // smallest node and edge allocation

struct BandTopology;
struct BandRuns;

class KORUSEGraph {
 public:
  // ---- construction and building --------------------------------------------

  // Whole-image graph. Allocates max(nodeMax, 16) nodes and max(edgeMax, 16)
  // edges of two floats each; a whole grid uses 4 edges per node. Nodes are
  // left uninitialised for addNode. On allocation failure the storage stays
  // null (the allocator logs it) and every later call is a logged no-op.
  KORUSEGraph(int nodeMax, int edgeMax, int width, int height, int threadCount);

  // Block view: borrows the storage, counts, flowValue and size of `whole`
  // and remembers its block (block row/column, block size in nodes). Allocates
  // nothing and never frees what it borrows.
  KORUSEGraph(KORUSEGraph* whole, int blockRow, int blockColumn, int blockWidth, int blockHeight);

  // Whole-image graph: frees its storage. Block view: nothing.
  ~KORUSEGraph();

  KORUSEGraph(const KORUSEGraph&) = delete;
  KORUSEGraph& operator=(const KORUSEGraph&) = delete;

  // Frees every counted node, zeroes the used arc floats, sets both counts to
  // 0 so the next build appends from the start of the storage, clears
  // flowValue and both queues. Cost: one pass over the used storage.
  void reset();

  // Like reset, but keeps the counts: the topology stays in place and only
  // capacities are to be rewritten.
  void resetNew();

  // Counts back to 0 and flowValue cleared, nothing else written: for a
  // rebuild that writes every node (addNode) and every edge (addEdge) again.
  void rewind();

  // Appends n free nodes with zero terminal capacity (n < 1 does nothing).
  // More than the allocation holds is logged and ignored.
  void addNode(int n);

  // Appends one edge: first float cap, second revCap, both ABSENT_CAPACITY
  // when absent. i and j are not read: edges must come strictly in node
  // order, four per node, in slot order left, upper-left, upper, upper-right,
  // absent for neighbours outside the grid (in a band: outside the band,
  // which is enforced). +inf is an edge no cut severs; a capacity that is
  // negative or NaN means nothing to the search and is logged and stored as 0.
  void addEdge(int i, int j, float cap, float revCap, bool absent);

  // The four edges of the next node at once, in slot order, each the same
  // capacity both ways or ABSENT_CAPACITY: what four addEdge calls would
  // store, for builders that have a whole node's edges at hand.
  void addNodeEdges(const float caps[4]);
  // The same for node i wherever it is, the edge count left as it is: for
  // builders that write nodes out of order (several threads at once), which
  // set arcFloatCount themselves when all are written.
  void writeNodeEdges(int i, const float caps[4]);

  // Adds cap to the arc i -> j and revCap to j -> i when j is a present
  // 8-neighbour of i inside the grid; otherwise nothing changes. The adds may
  // be negative; one that would leave either arc below 0 (or NaN) is logged
  // and changes nothing. Cost: a scan of i's eight arcs.
  void addToEdge(int i, int j, float cap, float revCap);

  // Combines terminal capacities with what node i already holds: the flow
  // both terminals could push through the node is counted in flowValue at
  // once and only the difference is stored (positive = from the source).
  void addtWeights(int i, float capSource, float capSink);

  // True when node i ended in the sink tree (background side). Free nodes
  // and source-tree nodes read false (object side).
  bool getTreeofNode(int i) const;

  // ---- band graphs (BandTopology.cpp) -------------------------------------------

  // Makes an empty graph (no node added yet) a band graph: of the width x
  // height grid only the band's pixels are nodes, in raster order; build it
  // then as a whole grid of those nodes (addNode, four edges per node with
  // absent ones towards pixels outside the band, addtWeights). Returns the
  // number of band nodes, or -1 (logged) when the graph is not empty, is a
  // block view, the runs are not of its grid, or the band's tables cannot be
  // allocated. Cost: one pass over the band's nodes; 12 bytes per node.
  int setBand(const BandRuns& rows);
  // The same for the pixels whose mask byte is nonzero (row y at mask + y * stride).
  int setBand(const uint8_t* mask, size_t stride);

  // The node at (x, y), or -1 when that pixel is not one. Whole grid: the
  // raster index. Band: a binary search in the row's runs.
  int nodeAt(int x, int y) const;

  // The directions in which node i has a neighbouring node, one bit each in
  // visiting order (bit 0 left ... bit 7 lower-left).
  unsigned neighbourMask(int i) const;

  bool isBand() const { return band != nullptr; }

  // The first node of row y or of the first row after it that has one;
  // nodeCount-like totals for y past the last row (width * height for a
  // whole grid, the band's nodes for a band).
  int firstNodeOfRow(int y) const;

  // Every node added and four edges each: what the search needs.
  bool completeGraph() const;

  // ---- maximum flow (MaxFlow.cpp; the entry point in parallel/MaxFlowEntry.cpp) --

  // Entry point: maxflowInit, then the serial search; returns the flow.
  // A whole grid may be built in part: nodes not added count as free with no
  // terminal capacity and edges not added as saturated (the storage must
  // hold width x height nodes; a band must be complete). Stops early (flag
  // set, partial cut) when the segmentation is cancelled or over its budget
  // (interface/session/Cancellation.h); callers check the flag and discard
  // the result. With a thread count of 2 or more a whole grid is cut by the
  // block search of ParallelGC instead and 0 is returned (the cut is what
  // counts there).
  // Cost: no allocation; the cancel flag is read after every active node and
  // the clock after at most about a millisecond of work; each adoption walks
  // its candidates' chains towards the terminal as long as they can still
  // beat the best found.
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

  // Append node to the active FIFO unless already linked.
  void AddToActiveQueue(int node);
  // Drop the front of the active FIFO; its link is left for the search to clear.
  void GetTopActiveQueueNode();
  // Mark node as orphan (parentArc = NO_PARENT) and append unless already linked.
  void AddToOrphanQueue(int node);
  // Drop the front of the orphan FIFO and clear its link.
  void GetTopOrphanQueueNode();

  // Pushes the bottleneck along the path through `middleArc` (tail in the
  // source tree, head in the sink tree) and queues the orphans it makes,
  // sink side first, each side from the middle outwards (Augment.cpp).
  void AugmentPath(int middleArc);

  // Re-attach an orphan to the neighbour of its tree with the shortest walk
  // to the terminal (first in visiting order on ties), or free it, queue its
  // neighbours that may reach it and orphan its children (Adoption.cpp).
  void ProcessSourceOrphans(int orphan);
  void ProcessSinkOrphans(int orphan);

  // parentNode from parentArc for every node. AugmentPath and the orphan
  // steps above call it first, so that trees set up by hand are walked right.
  void syncParentNodes();

  // ---- arc arithmetic -----------------------------------------------------------

  static int sisterArc(int arc) { return arc ^ 1; }
  // The node an arc points to.
  int arcHead(int arc) const;
  // The eight arcs leaving node i in the fixed visiting order: left,
  // upper-left, upper, upper-right, right, lower-right, lower, lower-left;
  // NO_CANDIDATE where the direction leaves the grid (or the band).
  void neighbourArcs(int i, int arcs[8]) const;

  // ---- members ------------------------------------------------------------------
  int32_t nodeCount = 0;      // nodes added so far
  int32_t arcFloatCount = 0;  // floats of the arc array in use (2 per edge)
  int32_t nodeCapacity = 0;   // nodes the storage holds
  int32_t arcCapacity = 0;    // floats the arc array holds
  // Per node, index = node:
  int32_t* parentArc = nullptr;                 // arc from the node to its parent; TERMINAL_ARC or NO_PARENT
  int32_t* parentNode = nullptr;                // the node parentArc points to (TERMINAL_ARC, NO_PARENT alike)
  uint8_t* treeLabel = nullptr;                 // kSourceTree, kSinkTree or kFreeNode
  float* residualTerminalCapacity = nullptr;    // > 0 from the source, < 0 to the sink (magnitude), 0 none
  int32_t* nextActive = nullptr;                // active FIFO: next node, itself when last, kNotQueued
  int32_t* nextOrphan = nullptr;                // orphan FIFO, same convention
  float* arcArray = nullptr;                    // residual capacities, 8 per node
  float flowValue = 0.0f;                       // from addtWeights and the augmentations
  int32_t activeFirst = kNotQueued, activeLast = kNotQueued;  // FIFO of active nodes
  int32_t orphanFirst = kNotQueued, orphanLast = kNotQueued;  // FIFO of orphans
  int32_t neighbourOffsetTable[8] = {};  // whole grid's head formula; the only place width enters arcs
  int32_t threadCount = 0;               // below 2: serial search
  int32_t blockWidth = 0;                // block view: block size in nodes
  int32_t blockHeight = 0;
  int32_t blockRow = 0;  // block view: position in the grid of blocks
  int32_t blockColumn = 0;
  int32_t width = 0;  // grid size in pixels
  int32_t height = 0;
  BandTopology* band = nullptr;  // band graphs: the band's neighbour tables; null for a whole grid
  bool ownsStorage = true;       // false for a block view: it must never free the storage

 private:
  void buildOffsetTable();
  void emptyQueues();
  bool validNode(int i, const char* function) const;
  // Makes a whole grid built only in part searchable (see maxFlow); false
  // when the storage cannot hold the grid.
  bool completeUnbuiltGrid();
  void releaseBand();
  void allocateStorage(int nodeRecords, int edgeRecords);
};
