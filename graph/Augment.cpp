// Augmentation along the path the two trees share.
//
// Every node's parentArc points from the node to its parent, in both trees.
// In the sink tree the residual that matters is the arc's own (flow runs
// node -> parent); in the source tree it is the sister's (parent -> node).
#include "graph/KORUSEGraph.h"

void KORUSEGraph::AugmentPath(int middleArc) {
  // Bottleneck; only a strictly smaller value replaces it.
  float f = arcArray[middleArc];
  nodes* v = &nodeArray[arcHead(middleArc)];
  for (int p = v->parentArc; p != TERMINAL_ARC; p = v->parentArc) {
    if (arcArray[p] < f) f = arcArray[p];
    v = &nodeArray[arcHead(p)];
  }
  if (-v->residualTerminalCapacity < f) f = -v->residualTerminalCapacity;
  nodes* u = &nodeArray[arcHead(sisterArc(middleArc))];
  for (int p = u->parentArc; p != TERMINAL_ARC; p = u->parentArc) {
    if (arcArray[sisterArc(p)] < f) f = arcArray[sisterArc(p)];
    u = &nodeArray[arcHead(p)];
  }
  if (u->residualTerminalCapacity < f) f = u->residualTerminalCapacity;

  arcArray[middleArc] -= f;
  arcArray[sisterArc(middleArc)] += f;

  // Sink side, from the middle towards the sink.
  v = &nodeArray[arcHead(middleArc)];
  for (int p = v->parentArc; p != TERMINAL_ARC; p = v->parentArc) {
    arcArray[p] -= f;
    arcArray[sisterArc(p)] += f;
    nodes* parent = &nodeArray[arcHead(p)];
    if (arcArray[p] == 0.0f) AddToOrphanQueue(v);
    v = parent;
  }
  v->residualTerminalCapacity += f;
  if (v->residualTerminalCapacity == 0.0f) AddToOrphanQueue(v);

  // Source side, from the middle towards the source.
  u = &nodeArray[arcHead(sisterArc(middleArc))];
  for (int p = u->parentArc; p != TERMINAL_ARC; p = u->parentArc) {
    arcArray[sisterArc(p)] -= f;
    arcArray[p] += f;
    nodes* parent = &nodeArray[arcHead(p)];
    if (arcArray[sisterArc(p)] == 0.0f) AddToOrphanQueue(u);
    u = parent;
  }
  u->residualTerminalCapacity -= f;
  if (u->residualTerminalCapacity == 0.0f) AddToOrphanQueue(u);

  flowValue += f;
}
