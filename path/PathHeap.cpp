#include "path/PathHeap.h"

#include <cfloat>
#include <cstddef>

// Slot n + 1 is read in vain by siftDown.
PathHeap::PathHeap(int n, int first)
    : heap_(static_cast<size_t>(n) + 2, Qnode{-1, -1.0}), slot_(static_cast<size_t>(n)), last_(n) {
  for (int32_t id = 0; id < n; ++id) {
    heap_[id + 1] = Qnode{id, DBL_MAX};
    slot_[id] = id + 1;
  }
  // Pushes of DBL_MAX never move (the parent is not greater), so only the
  // start's push sifts, and the entries pushed after it stay where they land.
  siftUp(first + 1, Qnode{first, 0.0});
}
