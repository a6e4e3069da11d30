// ParallelGC: construction, the block grid and the four phases of the block
// max-flow with their worker threads.
#include "graph/parallel/ParallelGC.h"

#include <cerrno>
#include <cmath>
#include <new>

#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"

namespace {

// Each block lists at most four borders (right, upper-right, lower-right,
// lower), so the pair list never holds more than this many records per block.
constexpr int kPairsPerBlock = 4;

// The block grid rule (see the header): columns x rows with product n.
void blockGrid(int n, int32_t* columns, int32_t* rows) {
  const float s = ceilf(sqrtf(static_cast<float>(n)));
  for (int i = 1;; ++i) {
    int c = static_cast<int>(s + static_cast<float>(i));
    if (n % c == 0) {
      *rows = 1;
      if (c == n) {
        *columns = c;
        return;
      }
      continue;
    }
    while (n % c != 0) --c;
    const int r = static_cast<int>(ceilf(static_cast<float>(n) / static_cast<float>(c)));
    if (c * r == n) {
      *columns = c;
      *rows = r;
      return;
    }
  }
}

int clampedBlockCount(int n) {
  if (n < 1) {
    logBadCall("ParallelGC", "thread count below 1, using one block");
    return 1;
  }
  if (n > kMaxParallelBlocks) {
    logBadCall("ParallelGC", "thread count above the block limit, clamped");
    return kMaxParallelBlocks;
  }
  return n;
}

}  // namespace

ParallelGC::ParallelGC(KORUSEGraph* wholeGraph, int requestedThreads)
    : graph(wholeGraph),
      threadCount(clampedBlockCount(requestedThreads)),
      blockGraphs(nullptr),
      pairMatrix(nullptr),
      busy(nullptr),
      treeLabel(nullptr),
      arcArray(nullptr),
      nodeCount(0),
      arcFloatCount(0),
      width(0),
      height(0),
      blockColumns(1),
      blockRows(1),
      blockWidth(0),
      blockHeight(0),
      ready(false),
      partitionFailed(false) {
  // Initialised here rather than per maxFlow: the destructor destroys it
  // whatever operations ran.
  sem_init(&pairLock, 0, 1);
  blockGrid(threadCount, &blockColumns, &blockRows);
  if (!graph) {
    logBadCall("ParallelGC", "null graph");
    return;
  }
  treeLabel = graph->treeLabel;
  arcArray = graph->arcArray;
  nodeCount = graph->nodeCount;
  arcFloatCount = graph->arcFloatCount;
  width = graph->width;
  height = graph->height;
  blockWidth = static_cast<int32_t>(
      ceilf(static_cast<float>(width) / static_cast<float>(blockColumns)));
  blockHeight = static_cast<int32_t>(
      ceilf(static_cast<float>(height) / static_cast<float>(blockRows)));

  const size_t n = static_cast<size_t>(threadCount);
  busy = static_cast<uint8_t*>(KORU_Calloc_Msg(n, 1, LOG_SITE_HERE("ParallelGC")));
  pairMatrix = static_cast<blockEdges***>(KORU_Calloc_Msg(n, sizeof(blockEdges**), LOG_SITE_HERE("ParallelGC")));
  blockGraphs = static_cast<KORUSEGraph**>(KORU_Calloc_Msg(n, sizeof(KORUSEGraph*), LOG_SITE_HERE("ParallelGC")));
  bool allocated = busy && pairMatrix && blockGraphs;
  for (int id = 0; allocated && id < threadCount; ++id) {
    pairMatrix[id] = static_cast<blockEdges**>(
        KORU_Calloc_Msg(n, sizeof(blockEdges*), LOG_SITE_HERE("ParallelGC")));
    blockGraphs[id] = new (std::nothrow)
        KORUSEGraph(graph, id / blockColumns, id % blockColumns, blockWidth, blockHeight);
    allocated = pairMatrix[id] && blockGraphs[id];
  }
  try {
    pairList.reserve(n * kPairsPerBlock);  // so that appending under the lock never allocates
  } catch (...) {
    allocated = false;
  }
  if (!allocated) logBadCall("ParallelGC", "allocation failed, the serial search will run");
  ready = allocated;
}

ParallelGC::~ParallelGC() {
  restoreAllEdges();
  for (int id = 0; id < threadCount; ++id) {
    // A block view borrows the arrays: deleting it frees only the view.
    if (blockGraphs) delete blockGraphs[id];
    if (pairMatrix && pairMatrix[id]) KORU_Free_Msg(pairMatrix[id], LOG_SITE_HERE("~ParallelGC"));
  }
  if (pairMatrix) KORU_Free_Msg(pairMatrix, LOG_SITE_HERE("~ParallelGC"));
  if (blockGraphs) KORU_Free_Msg(blockGraphs, LOG_SITE_HERE("~ParallelGC"));
  if (busy) KORU_Free_Msg(busy, LOG_SITE_HERE("~ParallelGC"));
  sem_destroy(&pairLock);
}

bool ParallelGC::completeGraph() const {
  if (!treeLabel || !arcArray || width < 1 || height < 1 || graph->isBand()) return false;
  const int64_t gridNodes = static_cast<int64_t>(width) * height;
  return nodeCount == gridNodes && static_cast<int64_t>(arcFloatCount) >= 8 * gridNodes;
}

bool ParallelGC::validBlock(int blockRow, int blockColumn, const char* function) const {
  if (ready && completeGraph() && blockRow >= 0 && blockRow < blockRows && blockColumn >= 0 &&
      blockColumn < blockColumns)
    return true;
  logBadCall(function, "no such block, or the graph is not a complete grid");
  return false;
}

bool ParallelGC::validPair(int a, int b, const char* function) const {
  if (ready && a >= 0 && b >= 0 && a < threadCount && b < threadCount && a != b) return true;
  logBadCall(function, "no such pair of blocks");
  return false;
}

void ParallelGC::serialFallback() {
  graph->maxflowInit();
  graph->maxFlowSerialCall();
}

// A search cancelled earlier may have left queue links behind, and a linked
// node is never queued again: clear them before the block is initialised.
void ParallelGC::clearBlockLinks(const KORUSEGraph* view) {
  const int firstRow = view->blockRow * blockHeight, firstColumn = view->blockColumn * blockWidth;
  for (int y = firstRow; y < firstRow + blockHeight && y < height; ++y)
    for (int x = firstColumn; x < firstColumn + blockWidth && x < width; ++x) {
      graph->nextActive[y * width + x] = kNotQueued;
      graph->nextOrphan[y * width + x] = kNotQueued;
    }
}

// ---- maxFlow -----------------------------------------------------------------------

float ParallelGC::maxFlow() {
  if (!graph || !completeGraph()) {
    logBadCall("maxFlow", "graph is not a complete width x height grid");
    return 0.0f;
  }
  pthread_t* threads = ready ? new (std::nothrow) pthread_t[threadCount] : nullptr;
  ParallelThreadArgs* args = ready ? new (std::nothrow) ParallelThreadArgs[threadCount] : nullptr;
  bool* started = ready ? new (std::nothrow) bool[threadCount] : nullptr;
  if (!threads || !args || !started) {
    if (ready) logBadCall("maxFlow", "allocation failed, running the serial search");
    serialFallback();
  } else {
    restoreAllEdges();  // empties the pair list
    partitionFailed = false;
    runPerBlock(ThreadAssignBlockIDs, ASSIGN_IDS, threads, args, started);
    for (int a = 0; a < threadCount; ++a)
      for (int b = 0; b < threadCount; ++b) pairMatrix[a][b] = nullptr;
    runPerBlock(ThreadPartition, PARTITION, threads, args, started);
    if (partitionFailed) {
      // Some crossing edge could not be recorded, so blocks would share it:
      // put every edge back and cut the whole graph in one search.
      logBadCall("maxFlow", "partition allocation failed, running the serial search");
      restoreAllEdges();
      serialFallback();
    } else {
      runPerBlock(ThreadMaxFlow, BLOCK_SEARCH, threads, args, started);
      mergeAll(threads, args, started);
    }
  }
  delete[] threads;
  delete[] args;
  delete[] started;
  return 0.0f;
}

// One worker per block in row-major order, then all joined in creation order.
void ParallelGC::runPerBlock(void* (*entry)(void*), Step step, pthread_t* threads,
                             ParallelThreadArgs* args, bool* started) {
  for (int id = 0; id < threadCount; ++id) {
    args[id] = {this, id, id / blockColumns, id % blockColumns};
    if (step == BLOCK_SEARCH) args[id].first = id;
    started[id] = startWorker(&threads[id], entry, step, &args[id]);
  }
  joinStarted(threads, started, threadCount);
}

// Passes of pairwise merges: in each pass every pair whose two regions are
// not yet busy is merged on its own thread; the bookkeeping follows the join.
void ParallelGC::mergeAll(pthread_t* threads, ParallelThreadArgs* args, bool* started) {
  int remaining = threadCount;
  while (remaining > 1) {
    int merges = 0;
    for (blockEdges* pair : pairList) {
      if (busy[pair->blockA] || busy[pair->blockB]) continue;
      busy[pair->blockA] = busy[pair->blockB] = 1;
      args[merges] = {this, merges, pair->blockA, pair->blockB};
      started[merges] = startWorker(&threads[merges], ThreadMerge, MERGE, &args[merges]);
      ++merges;
    }
    joinStarted(threads, started, merges);
    for (int m = 0; m < merges; ++m) MakeNeighbourChanges(args[m].first, args[m].second);
    for (int id = 0; id < threadCount; ++id) busy[id] = 0;
    // The first pair of the list can always start, so no merge means no pair
    // left: the other regions (blocks outside a tiny grid) touch nothing.
    if (merges == 0) break;
    remaining -= merges;
  }
}

void ParallelGC::joinStarted(pthread_t* threads, const bool* started, int count) {
  for (int i = 0; i < count; ++i)
    if (started[i]) pthread_join(threads[i], nullptr);
}

// Starts a worker; when no thread can be made, does its work on this one (the
// steps of one phase are independent, so the order does not matter).
bool ParallelGC::startWorker(pthread_t* thread, void* (*entry)(void*), Step step,
                             ParallelThreadArgs* args) {
  if (pthread_create(thread, nullptr, entry, args) == 0) return true;
  logBadCall("ParallelGC", "thread creation failed, running the block on the caller's thread");
  runStep(step, *args);
  return false;
}

void ParallelGC::runStep(Step step, const ParallelThreadArgs& args) {
  switch (step) {
    case ASSIGN_IDS:
      AssignIDs(args.first, args.second);
      break;
    case PARTITION:
      PartitionGraph(args.first, args.second);
      break;
    case BLOCK_SEARCH: {
      // Initialised here rather than on the caller's thread: blocks are
      // disjoint, so this is the same work, done in parallel.
      KORUSEGraph* view = blockGraphs[args.first];
      clearBlockLinks(view);
      view->InitBlock();
      view->maxFlowSerialCall();
      break;
    }
    case MERGE: {
      const int region = MergeBlocks(args.first, args.second);
      blockGraphs[region]->maxFlowSerialCall();
      break;
    }
  }
}

void* ParallelGC::ThreadAssignBlockIDs(void* args) {
  auto* a = static_cast<ParallelThreadArgs*>(args);
  a->parallel->runStep(ASSIGN_IDS, *a);
  pthread_exit(nullptr);
}

void* ParallelGC::ThreadPartition(void* args) {
  auto* a = static_cast<ParallelThreadArgs*>(args);
  a->parallel->runStep(PARTITION, *a);
  pthread_exit(nullptr);
}

void* ParallelGC::ThreadMaxFlow(void* args) {
  auto* a = static_cast<ParallelThreadArgs*>(args);
  a->parallel->runStep(BLOCK_SEARCH, *a);
  pthread_exit(nullptr);
}

void* ParallelGC::ThreadMerge(void* args) {
  auto* a = static_cast<ParallelThreadArgs*>(args);
  a->parallel->runStep(MERGE, *a);
  pthread_exit(nullptr);
}
