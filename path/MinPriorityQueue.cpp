#include "path/MinPriorityQueue.h"

#include <iostream>
#include <utility>

namespace {
const Qnode kSentinel{-1, -1.0};
}

MinPriorityQueue::MinPriorityQueue() : heap{kSentinel} {}

void MinPriorityQueue::swap(Qnode& a, Qnode& b, std::vector<int>& position) {
  std::swap(a, b);
  // Ids are read after the exchange: each id now lives in the other's slot.
  std::swap(position.at(a.id), position.at(b.id));
}

void MinPriorityQueue::push(Qnode q) {
  heap.push_back(q);
  const int slot = static_cast<int>(heap.size() - 1);
  position.push_back(slot);
  prelocate_up(slot);
}

void MinPriorityQueue::prelocate_up(int i) {
  while (i >= 2) {
    const int parent = i / 2;
    if (!(heap.at(parent).key > heap.at(i).key)) return;
    swap(heap.at(parent), heap.at(i), position);
    i = parent;
  }
}

void MinPriorityQueue::prelocate_down(int i) {
  // 64-bit child slots: 2i must not wrap for a caller's large i.
  const long long last = static_cast<long long>(heap.size()) - 1;
  long long slot = i;
  while (2 * slot <= last) {
    long long child = 2 * slot;
    if (child != last && heap.at(child + 1).key < heap.at(child).key) ++child;
    if (!(heap.at(slot).key > heap.at(child).key)) return;
    swap(heap.at(slot), heap.at(child), position);
    slot = child;
  }
}

Qnode MinPriorityQueue::pop_min() {
  if (heap.size() <= 1) {
    std::cout << "Empty queue" << std::endl;
    return kSentinel;
  }
  const Qnode r = heap.at(1);
  position.at(r.id) = -1;
  if (heap.size() == 2) {
    heap.pop_back();
    return r;
  }
  heap.at(1) = heap.back();
  heap.pop_back();
  position.at(heap.at(1).id) = 1;
  prelocate_down(1);
  return r;
}
