#include "graph/KORUSEGraph.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "support/KORULog.h"
#include "support/KORUMemory.h"

namespace {

// Bytes of `count` records of `size`, or 0 when that does not fit size_t
// (possible on a 32-bit phone for absurd node counts).
size_t storageBytes(int count, size_t size) {
  const uint64_t bytes = static_cast<uint64_t>(count) * size;
  return bytes > SIZE_MAX ? 0 : static_cast<size_t>(bytes);
}

template <typename T>
T* allocateRecords(int count, size_t recordSize, int line) {
  const size_t bytes = storageBytes(count, recordSize);
  if (bytes == 0) {
    logBadCall("KORUSEGraph", "graph too large for this address space");
    return nullptr;
  }
  return static_cast<T*>(KORU_Malloc_Msg(bytes, "KORUSEGraph", line));
}

bool usableCapacity(float cap) { return cap >= 0.0f && std::isfinite(cap); }

}  // namespace

KORUSEGraph::KORUSEGraph(int nodeMax, int edgeMax, int width, int height, int threadCount)
    : nodeCount(0),
      arcFloatCount(0),
      flowValue(0.0f),
      threadCount(threadCount),
      blockWidth(0),
      blockHeight(0),
      blockRow(0),
      blockColumn(0),
      width(width),
      height(height),
      ownsStorage(true) {
  const int nodeRecords = nodeMax > MIN_GRAPH_RECORDS ? nodeMax : MIN_GRAPH_RECORDS;
  const int edgeRecords = edgeMax > MIN_GRAPH_RECORDS ? edgeMax : MIN_GRAPH_RECORDS;
  nodeArray = allocateRecords<nodes>(nodeRecords, sizeof(nodes), 53);
  arcArray = allocateRecords<float>(edgeRecords, 2 * sizeof(float), 54);
  nextFreeNode = nodeArray;
  nodeArrayEnd = nodeArray ? nodeArray + nodeRecords : nullptr;
  nextFreeArc = arcArray;
  arcArrayEnd = arcArray ? arcArray + 2 * static_cast<size_t>(edgeRecords) : nullptr;
  emptyQueues();
  buildOffsetTable();
}

KORUSEGraph::KORUSEGraph(KORUSEGraph* whole, int blockRow, int blockColumn, int blockWidth,
                         int blockHeight)
    : nodeCount(0),
      arcFloatCount(0),
      nodeArray(nullptr),
      nextFreeNode(nullptr),
      nodeArrayEnd(nullptr),
      arcArray(nullptr),
      nextFreeArc(nullptr),
      arcArrayEnd(nullptr),
      flowValue(0.0f),
      threadCount(0),  // a block view never runs maxFlow itself
      blockWidth(blockWidth),
      blockHeight(blockHeight),
      blockRow(blockRow),
      blockColumn(blockColumn),
      width(0),
      height(0),
      ownsStorage(false) {
  if (!whole) {
    logBadCall("KORUSEGraph", "block view of a null graph");
  } else {
    nodeCount = whole->nodeCount;
    arcFloatCount = whole->arcFloatCount;
    nodeArray = whole->nodeArray;
    nextFreeNode = whole->nextFreeNode;
    nodeArrayEnd = whole->nodeArrayEnd;
    arcArray = whole->arcArray;
    nextFreeArc = whole->nextFreeArc;
    arcArrayEnd = whole->arcArrayEnd;
    flowValue = whole->flowValue;
    width = whole->width;
    height = whole->height;
  }
  emptyQueues();
  buildOffsetTable();
}

KORUSEGraph::~KORUSEGraph() {
  if (!ownsStorage) return;
  reset();
  if (nodeArray) KORU_Free_Msg(nodeArray, "~KORUSEGraph", 128);
  if (arcArray) KORU_Free_Msg(arcArray, "~KORUSEGraph", 129);
  nodeArray = nullptr;
  arcArray = nullptr;
}

void KORUSEGraph::buildOffsetTable() {
  const int32_t table[8] = {-1, -1, 0, -(width + 1), 0, -width, 0, 1 - width};
  std::memcpy(neighbourOffsetTable, table, sizeof(table));
}

void KORUSEGraph::emptyQueues() {
  activeFirst = activeLast = nullptr;
  orphanFirst = orphanLast = nullptr;
}

void KORUSEGraph::resetNew() {
  if (nodeArray) {
    for (nodes* node = nodeArray; node != nodeArray + nodeCount; ++node)
      *node = nodes{NO_PARENT, FREE_NODE, 0.0f, nullptr, nullptr};
  }
  if (arcArray && arcFloatCount > 0)
    std::memset(arcArray, 0, sizeof(float) * static_cast<size_t>(arcFloatCount));
  flowValue = 0.0f;
  emptyQueues();
}

void KORUSEGraph::reset() {
  resetNew();
  nodeCount = 0;
  arcFloatCount = 0;
  nextFreeNode = nodeArray;
  nextFreeArc = arcArray;
}

void KORUSEGraph::addNode(int n) {
  if (n < 1) return;
  if (!nodeArray || n > nodeArrayEnd - nextFreeNode) {
    logBadCall("addNode", "more nodes than the graph was allocated for");
    return;
  }
  for (nodes* node = nextFreeNode; node != nextFreeNode + n; ++node)
    *node = nodes{NO_PARENT, FREE_NODE, 0.0f, nullptr, nullptr};
  nextFreeNode += n;
  nodeCount += n;
}

void KORUSEGraph::addEdge(int /*i*/, int /*j*/, float cap, float revCap, bool absent) {
  if (!arcArray || arcArrayEnd - nextFreeArc < 2) {
    logBadCall("addEdge", "more edges than the graph was allocated for");
    return;
  }
  if (absent) {
    cap = revCap = ABSENT_CAPACITY;
  } else if (!usableCapacity(cap) || !usableCapacity(revCap)) {
    logBadCall("addEdge", "negative or non-finite edge capacity stored as 0");
    if (!usableCapacity(cap)) cap = 0.0f;
    if (!usableCapacity(revCap)) revCap = 0.0f;
  }
  nextFreeArc[0] = cap;
  nextFreeArc[1] = revCap;
  nextFreeArc += 2;
  arcFloatCount = static_cast<int32_t>(nextFreeArc - arcArray);
}

bool KORUSEGraph::validNode(int i, const char* function) const {
  if (nodeArray && i >= 0 && i < nodeCount) return true;
  logBadCall(function, "node index out of range");
  return false;
}

void KORUSEGraph::addToEdge(int i, int j, float cap, float revCap) {
  if (!validNode(i, "addToEdge") || width < 1) return;
  if (!usableCapacity(cap) || !usableCapacity(revCap)) {
    logBadCall("addToEdge", "negative or non-finite capacity ignored");
    return;
  }
  int arcs[8];
  neighbourArcs(i, arcs);
  for (int a : arcs) {
    // Arcs of nodes whose edges are not built yet are not there to add to.
    if (a == NO_CANDIDATE || a >= arcFloatCount || arcArray[a] == ABSENT_CAPACITY) continue;
    if (arcHead(a) != j) continue;
    arcArray[a] += cap;
    arcArray[sisterArc(a)] += revCap;
    return;
  }
}

// capSource' = capSource + max(r, 0), capSink' = capSink - min(r, 0);
// flow += min(capSource', capSink'); r = capSource' - capSink'.
void KORUSEGraph::addtWeights(int i, float capSource, float capSink) {
  if (!validNode(i, "addtWeights")) return;
  nodes& node = nodeArray[i];
  const float r = node.residualTerminalCapacity;
  if (r > 0.0f)
    capSource += r;
  else
    capSink -= r;
  flowValue += capSource < capSink ? capSource : capSink;
  node.residualTerminalCapacity = capSource - capSink;
}

bool KORUSEGraph::getTreeofNode(int i) const {
  if (!validNode(i, "getTreeofNode")) return false;
  return nodeArray[i].treeLabel == SINK_TREE;
}

bool KORUSEGraph::completeGrid() const {
  if (!nodeArray || !arcArray || width < 1 || height < 1) return false;
  const int64_t gridNodes = static_cast<int64_t>(width) * height;
  return nodeCount == gridNodes && static_cast<int64_t>(arcFloatCount) >= 8 * gridNodes;
}

void KORUSEGraph::InitBlock() {
  emptyQueues();
  flowValue = 0.0f;
  if (!nodeArray || width < 1) return;
  const int firstRow = blockRow * blockHeight;
  const int firstColumn = blockColumn * blockWidth;
  for (int row = firstRow; row < firstRow + blockHeight; ++row) {
    for (int column = firstColumn; column < firstColumn + blockWidth; ++column) {
      const int64_t index = static_cast<int64_t>(row) * width + column;
      if (row < 0 || column < 0 || column >= width || index >= nodeCount) continue;
      initTerminal(&nodeArray[index]);
    }
  }
}
