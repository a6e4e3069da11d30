#include "path/PathHeap.h"

#include <cfloat>
#include <cstddef>

PathHeap::PathHeap(int n, int first)
    : heap_(static_cast<size_t>(n) + 1), slot_(static_cast<size_t>(n)), last_(n) {
  for (int32_t id = 0; id < n; ++id) {
    heap_[id + 1] = Qnode{id, DBL_MAX};
    slot_[id] = id + 1;
  }
  // Pushes of DBL_MAX never move (the parent is not greater), so only the
  // start's push sifts, and the entries pushed after it stay where they land.
  siftUp(first + 1, Qnode{first, 0.0});
}

// Where MinPriorityQueue swaps entry and parent while the parent's key is
// strictly greater, this moves the parent down and drops the entry once.
void PathHeap::siftUp(int32_t slot, Qnode entry) {
  while (slot >= 2) {
    const int32_t parent = slot / 2;
    if (!(heap_[parent].key > entry.key)) break;
    heap_[slot] = heap_[parent];
    slot_[heap_[slot].id] = slot;
    slot = parent;
  }
  heap_[slot] = entry;
  slot_[entry.id] = slot;
}

// The smaller child, the left one on a tie, rises while the entry's key is
// strictly greater.
void PathHeap::siftDown(int32_t slot, Qnode entry) {
  while (slot <= last_ / 2) {
    int32_t child = 2 * slot;
    if (child != last_ && heap_[child + 1].key < heap_[child].key) ++child;
    if (!(entry.key > heap_[child].key)) break;
    heap_[slot] = heap_[child];
    slot_[heap_[slot].id] = slot;
    slot = child;
  }
  heap_[slot] = entry;
  slot_[entry.id] = slot;
}

Qnode PathHeap::popMin() {
  const Qnode top = heap_[1];
  const int32_t freed = last_--;
  // The last entry moves to the root and sinks; the freed slot keeps `top`.
  if (freed > 1) siftDown(1, heap_[freed]);
  heap_[freed] = top;
  slot_[top.id] = ~freed;
  return top;
}

void PathHeap::lowerKeyAt(int32_t slot, double key) { siftUp(slot, Qnode{heap_[slot].id, key}); }
