// ParallelGC: the max-flow of one whole-image KORUSEGraph on several threads,
// and the data terms of such a graph filled block by block.
//
// The grid is cut into a rectangle of blocks (block grid rule below). Every
// edge that crosses a block border is removed and remembered; each block is
// then searched at once by the serial search on a block view (a KORUSEGraph
// that borrows the whole graph's node and arc arrays); then neighbouring
// blocks are merged pairwise in passes: their edges are written back, the end
// nodes of those edges are activated, and the serial search goes on over the
// merged region from the trees it already has, until one region is left.
//
// Block grid rule for N blocks (N >= 2; computed in float where it says so):
//   s = ceilf(sqrtf(N)); i = 1;
//   repeat: c = s + i; if N % c == 0 { rows = 1; ++i; stop when c == N }
//           else { --c until N % c == 0; rows = ceilf(N / c); ++i;
//                  stop when c * rows == N }
//   N = 2 -> 2 x 1 (columns x rows), 3 -> 3 x 1, 4 -> 2 x 2, 5 -> 1 x 5,
//   6 -> 3 x 2, 8 -> 4 x 2, 16 -> 4 x 4. Wide rather than tall, and a
//   single column for a prime above 3: these shapes are kept as they are.
//   Block width = ceilf(width / columns), block height = ceilf(height / rows);
//   block id = columns * block row + block column; a block is cut off at the
//   grid, and trailing blocks may lie wholly outside it (tiny grids).
//
// Threads: one POSIX thread per block (or per merge), all joined before the
// operation returns. Threads of one phase touch disjoint nodes and arcs; the
// only structure written concurrently is the pair list, under the pair lock.
// Nothing here throws; a thread that cannot be created is run on the caller's
// thread instead, and a failed allocation falls back to the serial search.
#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "graph/KORUSEGraph.h"

namespace cv {
class Mat;
}
class KORUSEColorModel;
class ParallelGC;

// One removed edge: both arcs and the capacities they held, so that the
// merge can write them back in place.
struct RemovedEdge {
  int32_t arc;           // the arc whose tail is on the listing node's side
  int32_t sister;        // arc ^ 1
  float capacity;        // residual of arc when it was removed
  float sisterCapacity;  // residual of sister when it was removed
  RemovedEdge* next;     // next element; new elements go on the head
};

// The removed edges between two blocks (after merges: two regions, each named
// by its lowest block id).
struct blockEdges {
  int32_t blockA;      // the block that listed the border
  int32_t blockB;      // its neighbour across the border
  RemovedEdge* edges;  // singly linked, newest first
};

// Start record of a max-flow worker: a block row and column, a block id, or
// the two block ids of a merge.
struct ParallelThreadArgs {
  ParallelGC* parallel;
  int32_t sequence;  // position in the phase, from 0
  int32_t first;
  int32_t second;
};

// Start record of a data-term worker.
struct DataTermThreadArgs {
  ParallelGC* parallel;
  int32_t sequence;  // row-major block position, from 0
  int32_t blockRow;
  int32_t blockColumn;
  const cv::Mat* image;          // 8-bit, 3 channels, the graph's size
  const cv::Mat* labels;         // 8-bit, 1 channel, at least the graph's size
  double lambda;                 // the hard capacity of a fixed label
  int backgroundLabel;
  int objectLabel;
  const KORUSEColorModel* firstModel;   // its density gives the sink capacity
  const KORUSEColorModel* secondModel;  // its density gives the source capacity
  KORUSEGraph* graph;
  float flow;  // out: what this block's terms added to the flow
};

constexpr int kMaxParallelBlocks = 64;  // more blocks than this is clamped (logged)

class ParallelGC {
 public:
  // ---- basic operations ---------------------------------------------------------

  // Needs a whole-image graph, built (the counts are copied now). Copies its
  // storage pointers, counts and size; computes the block grid; allocates
  // the busy flags, the N x N pair matrix (all null) and the N block views.
  // N below 1 is logged and taken as 1, above kMaxParallelBlocks logged and
  // clamped. A null graph or a failed allocation is logged and leaves the
  // object not `ready`: maxFlow then runs the serial search (on a null graph
  // nothing). Cost: O(N^2) pointers.
  ParallelGC(KORUSEGraph* graph, int threadCount);

  // Writes back and frees any removed edges still held (a partition that was
  // never merged), frees the block views (they borrow, so deleting them
  // frees nothing of the graph), the matrix and the flags, and destroys the
  // pair lock.
  ~ParallelGC();

  ParallelGC(const ParallelGC&) = delete;
  ParallelGC& operator=(const ParallelGC&) = delete;

  // The minimum cut of the whole graph; read it with getTreeofNode. Needs a
  // complete grid with terminal weights, as the serial search does. Returns
  // 0: the block flows are not accumulated (the caller reads the cut).
  // Phases: border ids, partition, one serial search per block, merges.
  // Cancellation (KORUSEMarker::m_exitApp, the 10 s cancel timer) stops every
  // search early; the removed edges are written back all the same.
  // Cost: N threads per phase, one block-sized allocation-free search each,
  // plus a heap element per removed edge.
  float maxFlow();

  // Data terms of every pixel, one thread per block: a pixel labelled
  // objectLabel gets (lambda, 0), one labelled backgroundLabel (0, lambda),
  // any other (-logf(p2), -logf(p1)) with p1, p2 the densities of the first
  // and second model; each pair is combined into the graph by addtWeights.
  // `graph` must have this object's width and height. The block loops are
  // clipped to the image, so each pixel gets exactly one term. The flow the
  // terms add is summed per block and added after the join, in block order.
  void ComputeGMMProbsParallely(const cv::Mat* image, const cv::Mat* labels, double lambda,
                                int backgroundLabel, int objectLabel,
                                const KORUSEColorModel* firstModel,
                                const KORUSEColorModel* secondModel, KORUSEGraph* graph);

  // The same for one block. Adds its flow to graph->flowValue, or, when
  // flowOut is given, stores it there instead (the threads do that, so that
  // no two of them write flowValue).
  void ComputeGMMProbs(int blockRow, int blockColumn, const cv::Mat* image, const cv::Mat* labels,
                       double lambda, int backgroundLabel, int objectLabel,
                       const KORUSEColorModel* firstModel, const KORUSEColorModel* secondModel,
                       KORUSEGraph* graph, float* flowOut = nullptr);

  // ---- advanced: the phases of maxFlow, one block or pair at a time --------------

  // Phase 1: writes the block id into the treeLabel byte of the block's
  // border nodes (top and bottom row, left column, right column where inside
  // the grid). The label is scratch here; phase 3 overwrites it.
  void AssignIDs(int blockRow, int blockColumn);

  // Phase 2: removes the edges towards the right, upper-right, lower-right
  // and lower neighbour blocks (each border is listed by one block only) and
  // records them. A pair with removed edges is stored at [id][other] and
  // [other][id] of the matrix and appended to the pair list; otherwise both
  // entries stay null. Needs phase 1 on every block first.
  void PartitionGraph(int blockRow, int blockColumn);

  // Removes the present edges between `node` and the neighbours whose
  // treeLabel byte equals record->blockB, pushing one element per edge.
  // Returns how many it removed. An element that cannot be allocated leaves
  // its edge in place and marks the partition failed.
  int RemoveAndStoreEdges(int node, blockEdges* record);

  // Writes back the edges of the pair (a, b), activates their end nodes in
  // the lower block's view (queues emptied, flow cleared first) and frees
  // the elements. Returns the lower id, which names the merged region.
  int MergeBlocks(int a, int b);

  // After the merge of (a, b): drops their record; every record of the
  // higher id is renamed to the lower, and joined to the lower id's own
  // record with the same neighbour when there is one.
  void MakeNeighbourChanges(int a, int b);

  // Thread entry points: each runs its operation and ends with pthread_exit.
  static void* ThreadAssignBlockIDs(void* args);  // ParallelThreadArgs: row, column
  static void* ThreadPartition(void* args);       // row, column
  static void* ThreadMaxFlow(void* args);         // block id
  static void* ThreadMerge(void* args);           // the pair's two block ids
  static void* ThreadComputeGMMProbs(void* args);  // DataTermThreadArgs

  // ---- members ------------------------------------------------------------------
  KORUSEGraph* graph;         // the whole-image graph
  int32_t threadCount;        // N, number of blocks
  KORUSEGraph** blockGraphs;  // N block views, row-major by block id
  blockEdges*** pairMatrix;   // N x N; [a][b] = [b][a] = removed edges of (a, b) or null
  uint8_t* busy;              // per block: already merging in this pass
  uint8_t* treeLabel;         // copied from the graph
  float* arcArray;
  int32_t nodeCount;
  int32_t arcFloatCount;
  int32_t width;
  int32_t height;
  int32_t blockColumns;
  int32_t blockRows;
  int32_t blockWidth;   // ceilf(width / blockColumns)
  int32_t blockHeight;  // ceilf(height / blockRows)
  sem_t pairLock;       // guards pairList (a semaphore of 1 used as a mutex)
  std::vector<blockEdges*> pairList;  // pairs with removed edges, in order of discovery
  bool ready;                         // construction succeeded
  std::atomic<bool> partitionFailed;  // an element could not be allocated

 private:
  enum Step { ASSIGN_IDS, PARTITION, BLOCK_SEARCH, MERGE };
  void runStep(Step step, const ParallelThreadArgs& args);
  bool startWorker(pthread_t* thread, void* (*entry)(void*), Step step, ParallelThreadArgs* args);
  void runPerBlock(void* (*entry)(void*), Step step, pthread_t* threads,
                   ParallelThreadArgs* args, bool* started);
  void mergeAll(pthread_t* threads, ParallelThreadArgs* args, bool* started);
  void joinStarted(pthread_t* threads, const bool* started, int count);

  bool validBlock(int blockRow, int blockColumn, const char* function) const;
  bool validPair(int a, int b, const char* function) const;
  bool completeGraph() const;
  void serialFallback();
  void clearBlockLinks(const KORUSEGraph* view);
  void labelSpan(int x0, int y0, int x1, int y1, int id);
  void pairBorder(int id, int other, int x0, int y0, int x1, int y1);
  void storePair(blockEdges* record);
  void restoreAllEdges();
  static void freeRecord(blockEdges* record);
  bool dataTermInputs(const cv::Mat* image, const cv::Mat* labels, const KORUSEColorModel* first,
                      const KORUSEColorModel* second, const KORUSEGraph* target,
                      const char* function) const;
};
