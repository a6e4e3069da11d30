// Indexed binary min-heap of graph nodes keyed by a double cost.
//
// Besides the heap itself it keeps, for every node id, the heap slot that id
// currently occupies, so a caller that lowered a node's key can find the slot
// and sift it up (decrease-key). Serves the boundary path search.
//
// Ids must be handed out consecutively from 0 in push order: the k-th push
// owns position[k]. Every element access is bounds-checked, so a broken
// id/position invariant surfaces as std::out_of_range instead of corrupting
// memory.
#pragma once

#include <cstdint>
#include <vector>

struct Qnode {
  int32_t id = 0;    // node id; -1 only in the sentinel
  double key = 0.0;  // cost; smaller pops first
};

class MinPriorityQueue {
 public:
  std::vector<Qnode> heap;        // 1-based; heap[0] is the sentinel {-1, -1.0}, never removed
  std::vector<int32_t> position;  // position[id] = heap slot of id; -1 once popped

  // Empty queue: only the sentinel. Costs one small allocation.
  MinPriorityQueue();

  // Needs q.id == number of earlier pushes. Appends q, records its slot and
  // sifts it up. O(log n).
  void push(Qnode q);

  // Removes and returns the entry with the smallest key; its position becomes
  // -1. On an empty queue prints "Empty queue" to standard output and returns
  // the sentinel {-1, -1.0}. O(log n).
  Qnode pop_min();

  // ---- advanced: heap maintenance ---------------------------------------------

  // Sifts slot i up while its parent's key is strictly greater: equal keys
  // stay put, so the parent wins ties. Also the decrease-key step: lower
  // heap[position[id]].key, then call prelocate_up(position[id]). O(log n).
  void prelocate_up(int i);

  // Sifts slot i down while its key is strictly greater than the smaller
  // child's; between equal children the left one is taken. O(log n).
  void prelocate_down(int i);

  // Exchanges two heap entries and then the position entries of their ids,
  // keeping position consistent with the heap. O(1).
  static void swap(Qnode& a, Qnode& b, std::vector<int>& position);
};
