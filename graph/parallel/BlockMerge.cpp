// Phase 4 of the block max-flow: merging two regions, and the bookkeeping of
// the pair records afterwards. A merged region is named by its lowest block
// id; its block view holds the queues and flow of the search that goes on over
// the region.
#include <algorithm>

#include "graph/parallel/ParallelGC.h"
#include "support/KORULog.h"

void ParallelGC::freeRecord(blockEdges* record) {
  while (record->edges) {
    RemovedEdge* next = record->edges->next;
    delete record->edges;
    record->edges = next;
  }
  delete record;
}

// Writes back every edge still held and frees the records, so that the graph
// is whole again (after a failed partition, or a ParallelGC dropped halfway).
void ParallelGC::restoreAllEdges() {
  for (blockEdges* record : pairList) {
    for (RemovedEdge* e = record->edges; e; e = e->next) {
      arcArray[e->arc] = e->capacity;
      arcArray[e->sister] = e->sisterCapacity;
    }
    freeRecord(record);
  }
  pairList.clear();
  if (!pairMatrix) return;
  for (int a = 0; a < threadCount; ++a)
    if (pairMatrix[a])
      for (int b = 0; b < threadCount; ++b) pairMatrix[a][b] = nullptr;
}

int ParallelGC::MergeBlocks(int a, int b) {
  if (!validPair(a, b, "MergeBlocks")) return a >= 0 && a < threadCount ? a : 0;
  const int lo = std::min(a, b), hi = std::max(a, b);
  KORUSEGraph* region = blockGraphs[lo];
  region->activeFirst = region->activeLast = kNotQueued;
  region->orphanFirst = region->orphanLast = kNotQueued;
  region->flowValue = 0.0f;
  blockEdges* record = pairMatrix[lo][hi];
  if (!record) return lo;
  while (RemovedEdge* e = record->edges) {
    arcArray[e->arc] = e->capacity;
    arcArray[e->sister] = e->sisterCapacity;
    // Both ends may now reach across: tail first, then head.
    region->AddToActiveQueue(region->arcHead(e->sister));
    region->AddToActiveQueue(region->arcHead(e->arc));
    record->edges = e->next;
    delete e;
  }
  return lo;
}

void ParallelGC::MakeNeighbourChanges(int a, int b) {
  if (!validPair(a, b, "MakeNeighbourChanges")) return;
  const int lo = std::min(a, b), hi = std::max(a, b);
  auto unlist = [this](blockEdges* record) {
    auto at = std::find(pairList.begin(), pairList.end(), record);
    if (at != pairList.end()) pairList.erase(at);
  };
  if (blockEdges* merged = pairMatrix[lo][hi]) {
    unlist(merged);
    freeRecord(merged);
  }
  pairMatrix[lo][hi] = pairMatrix[hi][lo] = nullptr;

  for (int k = 0; k < threadCount; ++k) {
    blockEdges* p = pairMatrix[hi][k];
    if (!p) continue;
    if (p->blockA == hi) p->blockA = lo;
    if (p->blockB == hi) p->blockB = lo;
    if (blockEdges* kept = pairMatrix[lo][k]) {
      // lo already borders k: one record for the pair, p's edges at its end.
      RemovedEdge** tail = &kept->edges;
      while (*tail) tail = &(*tail)->next;
      *tail = p->edges;
      p->edges = nullptr;
      unlist(p);
      freeRecord(p);
    } else {
      pairMatrix[lo][k] = pairMatrix[k][lo] = p;
    }
    pairMatrix[hi][k] = pairMatrix[k][hi] = nullptr;
  }
}
