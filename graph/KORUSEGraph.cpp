#include "graph/KORUSEGraph.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "graph/GridTopology.h"
#include "graph/SearchTree.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/FreshPages.h"
#include "support/LogSites.h"

namespace {

// Bytes of `count` records of `size`, or 0 when that does not fit size_t
// (possible on a 32-bit phone for absurd node counts).
size_t storageBytes(int64_t count, size_t size) {
  const uint64_t bytes = static_cast<uint64_t>(count) * size;
  return bytes > SIZE_MAX / 2 ? 0 : static_cast<size_t>(bytes);
}

// The per-node arrays share one allocation; each starts on an 8-byte boundary.
size_t aligned(size_t bytes) { return (bytes + 7) & ~size_t(7); }

// A residual capacity is a non-negative number; +inf is one (an edge no cut
// may sever), NaN and negatives are not.
bool usableCapacity(float cap) { return cap >= 0.0f; }

}  // namespace

void KORUSEGraph::allocateStorage(int nodeRecords, int edgeRecords) {
  const size_t words = aligned(storageBytes(nodeRecords, sizeof(int32_t)));
  const size_t bytes = aligned(storageBytes(nodeRecords, 1));
  const size_t arcBytes = storageBytes(2 * static_cast<int64_t>(edgeRecords), sizeof(float));
  // Five word arrays and a byte array in one block: with a 32-bit size_t
  // their sum can wrap where each alone fits.
  if (words == 0 || arcBytes == 0 || words > (SIZE_MAX / 2 - bytes) / 5) {
    logBadCall("KORUSEGraph", "graph too large for this address space");
    return;
  }
  // parentArc, parentNode, residualTerminalCapacity, nextActive, nextOrphan, treeLabel.
  auto* block = static_cast<unsigned char*>(KORU_Malloc_Msg(5 * words + bytes, site::graphNodes));
  arcArray = static_cast<float*>(KORU_Malloc_Msg(arcBytes, site::graphArcs));
  if (!block || !arcArray) {
    if (block) KORU_Free_Msg(block, site::graphNodes);
    if (arcArray) KORU_Free_Msg(arcArray, site::graphArcs);
    arcArray = nullptr;
    return;
  }
  mapPagesForWriting(block, 5 * words + bytes);
  mapPagesForWriting(arcArray, arcBytes);
  parentArc = reinterpret_cast<int32_t*>(block);
  parentNode = reinterpret_cast<int32_t*>(block + words);
  residualTerminalCapacity = reinterpret_cast<float*>(block + 2 * words);
  nextActive = reinterpret_cast<int32_t*>(block + 3 * words);
  nextOrphan = reinterpret_cast<int32_t*>(block + 4 * words);
  treeLabel = block + 5 * words;
  nodeCapacity = nodeRecords;
  arcCapacity = 2 * edgeRecords;
}

KORUSEGraph::KORUSEGraph(int nodeMax, int edgeMax, int width, int height, int threadCount)
    : threadCount(threadCount), width(width), height(height) {
  allocateStorage(nodeMax > kMinGraphRecords ? nodeMax : kMinGraphRecords,
                  edgeMax > kMinGraphRecords ? edgeMax : kMinGraphRecords);
  buildOffsetTable();
}

// A block view never runs maxFlow itself: its thread count stays 0.
KORUSEGraph::KORUSEGraph(KORUSEGraph* whole, int blockRow, int blockColumn, int blockWidth,
                         int blockHeight)
    : blockWidth(blockWidth),
      blockHeight(blockHeight),
      blockRow(blockRow),
      blockColumn(blockColumn),
      ownsStorage(false) {
  if (!whole) {
    logBadCall("KORUSEGraph", "block view of a null graph");
  } else {
    nodeCount = whole->nodeCount;
    arcFloatCount = whole->arcFloatCount;
    nodeCapacity = whole->nodeCapacity;
    arcCapacity = whole->arcCapacity;
    parentArc = whole->parentArc;
    parentNode = whole->parentNode;
    treeLabel = whole->treeLabel;
    residualTerminalCapacity = whole->residualTerminalCapacity;
    nextActive = whole->nextActive;
    nextOrphan = whole->nextOrphan;
    arcArray = whole->arcArray;
    flowValue = whole->flowValue;
    width = whole->width;
    height = whole->height;
    band = whole->band;
  }
  buildOffsetTable();
}

KORUSEGraph::~KORUSEGraph() {
  if (!ownsStorage) return;
  releaseBand();
  if (parentArc) KORU_Free_Msg(parentArc, site::graphNodesFreed);
  if (arcArray) KORU_Free_Msg(arcArray, site::graphArcsFreed);
  parentArc = nullptr;
  arcArray = nullptr;
}

void KORUSEGraph::buildOffsetTable() {
  const int32_t table[8] = {-1, -1, 0, -(width + 1), 0, -width, 0, 1 - width};
  std::memcpy(neighbourOffsetTable, table, sizeof(table));
}

void KORUSEGraph::emptyQueues() {
  activeFirst = activeLast = kNotQueued;
  orphanFirst = orphanLast = kNotQueued;
}

// A free node with no terminal capacity, in no queue.
static void freeNodes(KORUSEGraph& g, int first, int count) {
  for (int i = first; i < first + count; ++i) {
    g.parentArc[i] = NO_PARENT;
    g.parentNode[i] = NO_PARENT;
    g.treeLabel[i] = kFreeNode;
    g.residualTerminalCapacity[i] = 0.0f;
    g.nextActive[i] = kNotQueued;
    g.nextOrphan[i] = kNotQueued;
  }
}

void KORUSEGraph::resetNew() {
  if (parentArc) freeNodes(*this, 0, nodeCount);
  if (arcArray && arcFloatCount > 0)
    std::memset(arcArray, 0, sizeof(float) * static_cast<size_t>(arcFloatCount));
  flowValue = 0.0f;
  emptyQueues();
}

void KORUSEGraph::reset() {
  resetNew();
  rewind();
}

void KORUSEGraph::rewind() {
  nodeCount = 0;
  arcFloatCount = 0;
  flowValue = 0.0f;
  emptyQueues();
}

void KORUSEGraph::addNode(int n) {
  if (n < 1) return;
  const int limit = band ? band->nodes : nodeCapacity;
  if (!parentArc || !arcArray || n > limit - nodeCount) {
    logBadCall("addNode", "more nodes than the graph was allocated for");
    return;
  }
  freeNodes(*this, nodeCount, n);
  nodeCount += n;
}

void KORUSEGraph::addEdge(int /*i*/, int /*j*/, float cap, float revCap, bool absent) {
  if (!arcArray || arcCapacity - arcFloatCount < 2) {
    logBadCall("addEdge", "more edges than the graph was allocated for");
    return;
  }
  if (band) {
    // The node and slot this edge is appended for; a neighbour outside the
    // band has no node to point to.
    const int node = arcFloatCount / 8, slot = (arcFloatCount / 2) % 4;
    const uint8_t slotBit[4] = {BAND_LEFT, BAND_UPPER_LEFT, BAND_UPPER, BAND_UPPER_RIGHT};
    if (node >= band->nodes || !(band->node[node].present & slotBit[slot])) absent = true;
  }
  if (absent) {
    cap = revCap = ABSENT_CAPACITY;
  } else if (!usableCapacity(cap) || !usableCapacity(revCap)) {
    logBadCall("addEdge", "negative or NaN edge capacity stored as 0");
    if (!usableCapacity(cap)) cap = 0.0f;
    if (!usableCapacity(revCap)) revCap = 0.0f;
  }
  arcArray[arcFloatCount] = cap;
  arcArray[arcFloatCount + 1] = revCap;
  arcFloatCount += 2;
}

void KORUSEGraph::addNodeEdges(const float caps[4]) {
  if (!arcArray || arcCapacity - arcFloatCount < 8 || (arcFloatCount & 7)) {
    // Not at a node's first edge: one by one.
    for (int slot = 0; slot < 4; ++slot) addEdge(0, 0, caps[slot], caps[slot], caps[slot] == ABSENT_CAPACITY);
    return;
  }
  writeNodeEdges(arcFloatCount / 8, caps);
  arcFloatCount += 8;
}

void KORUSEGraph::writeNodeEdges(int node, const float caps[4]) {
  if (!arcArray || node < 0 || 8 * static_cast<int64_t>(node) + 8 > arcCapacity) {
    logBadCall("writeNodeEdges", "node outside the edge storage");
    return;
  }
  // A band has edges only towards its own pixels, as addEdge enforces.
  const unsigned present = !band ? 0xFu : node < band->nodes ? band->node[node].present : 0u;
  float* out = arcArray + 8 * static_cast<size_t>(node);
  for (int slot = 0; slot < 4; ++slot) {
    float cap = (present >> slot) & 1 ? caps[slot] : ABSENT_CAPACITY;
    if (cap != ABSENT_CAPACITY && !usableCapacity(cap)) {
      logBadCall("addEdge", "negative or NaN edge capacity stored as 0");
      cap = 0.0f;
    }
    out[2 * slot] = out[2 * slot + 1] = cap;
  }
}

bool KORUSEGraph::validNode(int i, const char* function) const {
  if (parentArc && i >= 0 && i < nodeCount) return true;
  logBadCall(function, "node index out of range");
  return false;
}

void KORUSEGraph::addToEdge(int i, int j, float cap, float revCap) {
  if (!validNode(i, "addToEdge") || width < 1) return;
  int arcs[8];
  neighbourArcs(i, arcs);
  for (int a : arcs) {
    // Arcs of nodes whose edges are not built yet are not there to add to.
    if (a == NO_CANDIDATE || a >= arcFloatCount || arcArray[a] == ABSENT_CAPACITY) continue;
    if (arcHead(a) != j) continue;
    // Removing capacity is fine as long as some remains: a negative residual
    // (or NaN) has no meaning to the search.
    const float forward = arcArray[a] + cap, backward = arcArray[sisterArc(a)] + revCap;
    if (!usableCapacity(forward) || !usableCapacity(backward)) {
      logBadCall("addToEdge", "capacity would go below 0 or become NaN: ignored");
      return;
    }
    arcArray[a] = forward;
    arcArray[sisterArc(a)] = backward;
    return;
  }
}

// capSource' = capSource + max(r, 0), capSink' = capSink - min(r, 0);
// flow += min(capSource', capSink'); r = capSource' - capSink'.
void KORUSEGraph::addtWeights(int i, float capSource, float capSink) {
  if (!validNode(i, "addtWeights")) return;
  const float r = residualTerminalCapacity[i];
  if (r > 0.0f)
    capSource += r;
  else
    capSink -= r;
  flowValue += capSource < capSink ? capSource : capSink;
  residualTerminalCapacity[i] = capSource - capSink;
}

void KORUSEGraph::syncParentNodes() {
  if (!parentArc) return;
  for (int i = 0; i < nodeCount; ++i) parentNode[i] = parentArc[i] < 0 ? parentArc[i] : arcHead(parentArc[i]);
}

bool KORUSEGraph::getTreeofNode(int i) const {
  if (!validNode(i, "getTreeofNode")) return false;
  return treeLabel[i] == kSinkTree;
}

int KORUSEGraph::arcHead(int arc) const {
  if (band) return bandGridOf(*this).head(arc);
  return ((arc + 1) >> 3) + neighbourOffsetTable[(arc + 1) & 7];
}

void KORUSEGraph::neighbourArcs(int i, int arcs[8]) const {
  if (band)
    arcsOf(bandGridOf(*this), i, arcs);
  else
    arcsOf(wholeGridOf(*this), i, arcs);
}

bool KORUSEGraph::completeGraph() const {
  if (!parentArc || !arcArray || width < 1 || height < 1) return false;
  const int64_t nodes = band ? band->nodes : static_cast<int64_t>(width) * height;
  return nodeCount == nodes && static_cast<int64_t>(arcFloatCount) >= 8 * nodes;
}

bool KORUSEGraph::completeUnbuiltGrid() {
  if (!parentArc || !arcArray || width < 1 || height < 1) return false;
  // A band has no layout for a part not built: only whole ones are cut.
  if (band) return completeGraph();
  const int64_t nodes = static_cast<int64_t>(width) * height;
  // The grid's arithmetic reaches every node of width x height: the storage
  // must hold them, and nodes past the grid have no place in it.
  if (nodeCount > nodes || nodeCapacity < nodes || arcCapacity < 8 * nodes) return false;
  // Nodes not added are free, edges not added saturated: nothing reaches them.
  freeNodes(*this, nodeCount, static_cast<int>(nodes - nodeCount));
  if (arcFloatCount < 8 * nodes)
    std::memset(arcArray + arcFloatCount, 0, sizeof(float) * static_cast<size_t>(8 * nodes - arcFloatCount));
  return true;
}

void KORUSEGraph::InitBlock() {
  emptyQueues();
  flowValue = 0.0f;
  if (!parentArc || width < 1 || band) return;
  SearchTree<WholeGrid> init(*this, wholeGridOf(*this));
  const int firstRow = blockRow * blockHeight;
  const int firstColumn = blockColumn * blockWidth;
  for (int row = firstRow; row < firstRow + blockHeight; ++row) {
    for (int column = firstColumn; column < firstColumn + blockWidth; ++column) {
      const int64_t index = static_cast<int64_t>(row) * width + column;
      if (row < 0 || column < 0 || column >= width || index >= nodeCount) continue;
      init.initTerminal(static_cast<int>(index));
    }
  }
}
