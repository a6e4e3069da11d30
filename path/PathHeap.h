// The heap of the fast path search: the same indexed binary min-heap as
// MinPriorityQueue, entry for entry and slot for slot, made lean for a
// search that pushes every pixel once and pops each exactly once.
//
// It moves entries the way MinPriorityQueue swaps them (parent wins ties on
// the way up, left child on the way down), so every pop returns what
// MinPriorityQueue would. It differs only where nobody can see: sifts carry
// the moving entry instead of swapping it step by step, access is unchecked
// (ids and slots are correct by construction), and a popped entry is kept in
// the slot the pop frees at the end of the array, its slot stored as ~slot,
// so the final costs need no array of their own. 20 bytes per pixel.
#pragma once

#include <cstdint>
#include <vector>

#include "path/MinPriorityQueue.h"

class PathHeap {
 public:
  // Ids 0..n-1 pushed in order with key DBL_MAX, except `first`, which has
  // key 0.0: the queue the search starts from. Needs 0 <= first < n.
  PathHeap(int n, int first);

  bool empty() const { return last_ == 0; }

  // Heap slot of id, or a negative number once id has been popped.
  int32_t slotOf(int32_t id) const { return slot_[id]; }

  // Key of the entry in `slot` (a slot of an id not yet popped).
  double keyAt(int32_t slot) const { return heap_[slot].key; }

  // Removes and returns the entry with the smallest key. Needs !empty().
  Qnode popMin();

  // Gives id, whose entry is in `slot`, the key `key`, no greater than its
  // current one, and sifts it up (decrease-key).
  void lowerKeyAt(int32_t slot, int32_t id, double key) { siftUp(slot, Qnode{id, key}); }

  // The key id had when it was popped. Needs id popped.
  double poppedKey(int32_t id) const { return heap_[~slot_[id]].key; }

 private:
  void siftUp(int32_t slot, Qnode entry);
  void siftDown(int32_t slot, Qnode entry);

  std::vector<Qnode> heap_;    // slots 1..last_ live, then the popped; 0 and n + 1 unused
  std::vector<int32_t> slot_;  // heap slot of each id; ~slot of its popped entry
  int32_t last_ = 0;           // last live slot; 0 when empty
};

// ---- inline: the search calls these for every pixel ----------------------------

// Where MinPriorityQueue swaps entry and parent while the parent's key is
// strictly greater, this moves the parent down and drops the entry once.
inline void PathHeap::siftUp(int32_t slot, Qnode entry) {
  Qnode* const heap = heap_.data();
  while (slot >= 2) {
    const int32_t parent = slot / 2;
    if (!(heap[parent].key > entry.key)) break;
    heap[slot] = heap[parent];
    slot_[heap[slot].id] = slot;
    slot = parent;
  }
  heap[slot] = entry;
  slot_[entry.id] = slot;
}

// The smaller child, the left one on a tie, rises while the entry's key is
// strictly greater.
inline void PathHeap::siftDown(int32_t slot, Qnode entry) {
  Qnode* const heap = heap_.data();
  const int32_t last = last_;  // a local: the slot_ stores could alias the member
  while (slot <= last / 2) {
    int32_t child = 2 * slot;
    // Picked without a branch: which child is smaller is a coin toss no
    // predictor learns. At child == last, slot last + 1 is read in vain.
    child += (child != last) & (heap[child + 1].key < heap[child].key);
    if (!(entry.key > heap[child].key)) break;
    heap[slot] = heap[child];
    slot_[heap[slot].id] = slot;
    slot = child;
  }
  heap[slot] = entry;
  slot_[entry.id] = slot;
}

inline Qnode PathHeap::popMin() {
  const Qnode top = heap_[1];
  const int32_t freed = last_--;
  // The last entry moves to the root and sinks; the freed slot keeps `top`.
  if (freed > 1) siftDown(1, heap_[freed]);
  heap_[freed] = top;
  slot_[top.id] = ~freed;
  return top;
}
