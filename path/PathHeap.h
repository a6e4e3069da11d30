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

  // Gives the entry in `slot` the key `key`, no greater than its current
  // one, and sifts it up (decrease-key).
  void lowerKeyAt(int32_t slot, double key);

  // The key id had when it was popped. Needs id popped.
  double poppedKey(int32_t id) const { return heap_[~slot_[id]].key; }

 private:
  void siftUp(int32_t slot, Qnode entry);
  void siftDown(int32_t slot, Qnode entry);

  std::vector<Qnode> heap_;     // 1-based, slots 1..last_ live; slot 0 unused
  std::vector<int32_t> slot_;   // heap slot of each id; ~slot of its popped entry
  int32_t last_ = 0;            // last live slot; 0 when empty
};
