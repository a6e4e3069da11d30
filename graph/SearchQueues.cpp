// The two FIFOs of the search: intrusive lists through the node records, so
// the search allocates nothing. A link equal to the node itself marks the
// last node; a null link marks "not queued".
#include "graph/KORUSEGraph.h"

void KORUSEGraph::AddToActiveQueue(nodes* node) {
  if (node->nextActive) return;
  node->nextActive = node;
  if (!activeFirst) {
    activeFirst = activeLast = node;
  } else {
    activeLast->nextActive = node;
    activeLast = node;
  }
}

// The removed node keeps its link: the search clears it when it takes the
// node up, and until then the node cannot be queued twice.
void KORUSEGraph::GetTopActiveQueueNode() {
  if (!activeFirst) return;
  if (activeFirst == activeLast)
    activeFirst = activeLast = nullptr;
  else
    activeFirst = activeFirst->nextActive;
}

void KORUSEGraph::AddToOrphanQueue(nodes* node) {
  node->parentArc = NO_PARENT;
  if (node->nextOrphan) return;
  node->nextOrphan = node;
  if (!orphanFirst) {
    orphanFirst = orphanLast = node;
  } else {
    orphanLast->nextOrphan = node;
    orphanLast = node;
  }
}

void KORUSEGraph::GetTopOrphanQueueNode() {
  nodes* front = orphanFirst;
  if (!front) return;
  if (front == orphanLast)
    orphanFirst = orphanLast = nullptr;
  else
    orphanFirst = front->nextOrphan;
  front->nextOrphan = nullptr;
}
