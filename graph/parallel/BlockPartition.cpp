// Phases 1 and 2 of the block max-flow: mark the block borders, then remove
// and record every edge that crosses one.
//
// The border marks live in the treeLabel bytes (phase 3 rewrites every one of
// them). A node's edge is removed for the pair (id, b) when the node at its
// other end is marked b. Nodes inside a block keep whatever label they had, so
// an inner edge next to the border can be taken along with the crossing ones
// when that label happens to equal b; it stays in the pair's record and comes
// back with the merge, which only costs the block search a detour.
#include <cerrno>
#include <new>

#include "graph/parallel/ParallelGC.h"
#include "support/KORULog.h"

// Marks the nodes of the rectangle x0..x1, y0..y1 that lie inside the grid.
void ParallelGC::labelSpan(int x0, int y0, int x1, int y1, int id) {
  for (int y = y0; y <= y1 && y < height; ++y)
    for (int x = x0; x <= x1 && x < width; ++x) {
      const int64_t index = static_cast<int64_t>(y) * width + x;
      if (index < nodeCount) treeLabel[index] = static_cast<uint8_t>(id);
    }
}

void ParallelGC::AssignIDs(int blockRow, int blockColumn) {
  if (!validBlock(blockRow, blockColumn, "AssignIDs")) return;
  const int id = blockColumns * blockRow + blockColumn;
  const int top = blockRow * blockHeight, bottom = top + blockHeight - 1;
  const int left = blockColumn * blockWidth, right = left + blockWidth - 1;
  labelSpan(left, top, right, top, id);
  labelSpan(left, bottom, right, bottom, id);
  labelSpan(left, top, left, bottom, id);
  labelSpan(right, top, right, bottom, id);
}

void ParallelGC::PartitionGraph(int blockRow, int blockColumn) {
  if (!validBlock(blockRow, blockColumn, "PartitionGraph")) return;
  const int id = blockColumns * blockRow + blockColumn;
  const int top = blockRow * blockHeight, bottom = top + blockHeight - 1;
  const int left = blockColumn * blockWidth, right = left + blockWidth - 1;
  if (blockColumn <= blockColumns - 2) {
    if (blockRow >= 1) pairBorder(id, id - blockColumns + 1, right, top, right, top);
    pairBorder(id, id + 1, right, top, right, bottom);
    if (blockRow <= blockRows - 2)
      pairBorder(id, id + blockColumns + 1, right, bottom, right, bottom);
  }
  if (blockRow <= blockRows - 2) pairBorder(id, id + blockColumns, left, bottom, right, bottom);
}

// The pair (id, other) over the listed rectangle of id's border. A border
// column or row past the grid has no nodes (a block cut off at the image
// edge has no neighbour beyond it).
void ParallelGC::pairBorder(int id, int other, int x0, int y0, int x1, int y1) {
  blockEdges* record = new (std::nothrow) blockEdges{id, other, nullptr};
  if (!record) {
    partitionFailed = true;
    return;
  }
  int removed = 0;
  for (int y = y0; y <= y1 && y < height; ++y)
    for (int x = x0; x <= x1 && x < width; ++x) {
      const int64_t index = static_cast<int64_t>(y) * width + x;
      if (index < nodeCount) removed += RemoveAndStoreEdges(static_cast<int>(index), record);
    }
  if (removed > 0) {
    pairMatrix[id][other] = pairMatrix[other][id] = record;
    storePair(record);
  } else {
    delete record;
    pairMatrix[id][other] = pairMatrix[other][id] = nullptr;
  }
}

void ParallelGC::storePair(blockEdges* record) {
  while (sem_wait(&pairLock) != 0 && errno == EINTR) {
  }
  pairList.push_back(record);  // capacity reserved at construction: no allocation here
  sem_post(&pairLock);
}

int ParallelGC::RemoveAndStoreEdges(int node, blockEdges* record) {
  if (!record || !graph || node < 0 || node >= nodeCount) {
    logBadCall("RemoveAndStoreEdges", "no such node or no record");
    return 0;
  }
  int arcs[8];
  graph->neighbourArcs(node, arcs);
  int removed = 0;
  for (int k = 0; k < 8; ++k) {
    const int a = arcs[k];
    if (a == NO_CANDIDATE) continue;
    // The mark is read before the capacity: an arc whose far end is not
    // marked b may belong to another block's border and be written by its
    // thread right now.
    if (treeLabel[graph->arcHead(a)] != record->blockB) continue;
    const int s = KORUSEGraph::sisterArc(a);
    if (arcArray[a] == ABSENT_CAPACITY) continue;
    RemovedEdge* element =
        new (std::nothrow) RemovedEdge{a, s, arcArray[a], arcArray[s], record->edges};
    if (!element) {
      partitionFailed = true;
      return removed;
    }
    record->edges = element;
    arcArray[a] = arcArray[s] = ABSENT_CAPACITY;
    ++removed;
  }
  return removed;
}
