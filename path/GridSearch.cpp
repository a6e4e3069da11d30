#include "path/GridSearch.h"

#include <utility>

#include "path/PathSteps.h"
#include "path/SearchInput.h"

namespace path_detail {

namespace {

constexpr unsigned kAll = 0xFF;
constexpr unsigned bit(int k) { return 1u << k; }

// Bit k set when neighbour k of (r, c) lies inside the image; the edges drop
// the same neighbours assign_index marks -1.
unsigned neighboursInside(int r, int c, int height, int width) {
  unsigned inside = kAll;
  if (r < 1) inside &= ~(bit(2) | bit(3) | bit(4));
  if (c < 1) inside &= ~(bit(4) | bit(5) | bit(6));
  if (r + 1LL >= height) inside &= ~(bit(6) | bit(7) | bit(0));
  if (c + 1LL >= width) inside &= ~(bit(0) | bit(1) | bit(2));
  return inside;
}

// Bit k set when the labels block the step from (r, c) to neighbour k.
unsigned blockedSteps(const IplImage* labels, int r, int c, unsigned inside) {
  const int side = sideOf(labelAt(labels, r, c));
  if (side == 0) return 0;
  unsigned blocked = 0;
  for (int k = 0; k < kPathNeighbours; ++k)
    if ((inside & bit(k)) &&
        blocks(side, sideOf(labelAt(labels, r + kRowStep[k], c + kColStep[k]))))
      blocked |= bit(k);
  return blocked;
}

// Weight k as assign_weight leaves it in a fresh node: a blocked step
// k >= 1 keeps the node's 0.0, and any blocked step, whatever its k, makes
// the down-right weight kNoStep.
double weightOf(int k, unsigned blocked, const unsigned char* here, const unsigned char* there,
                double alpha) {
  if (k == 0 && blocked) return kNoStep;
  if (blocked & bit(k)) return 0.0;
  return stepCost(meanSquaredDifference(here, there), kStepLength2[k], alpha);
}

}  // namespace

GridSearchResult searchGrid(const IplImage* colour, const IplImage* labels, long long start,
                            double alpha) {
  const int width = colour->width, height = colour->height;
  std::vector<int32_t> parents(static_cast<size_t>(width) * height, -1);
  // No clamping: any index past the last pixel (or negative) is the caller's fault.
  parents.at(startIndex(start)) = static_cast<int32_t>(start);
  PathHeap heap(static_cast<int>(parents.size()), static_cast<int>(start));

  long long pixelStep[kPathNeighbours], byteStep[kPathNeighbours];
  for (int k = 0; k < kPathNeighbours; ++k) {
    pixelStep[k] = static_cast<long long>(kRowStep[k]) * width + kColStep[k];
    byteStep[k] = static_cast<long long>(kRowStep[k]) * colour->widthStep + 3LL * kColStep[k];
  }

  // Pop order, then neighbour order k = 0..7; a strictly lower cost wins, so
  // the first relaxation keeps the parent among equal costs.
  while (!heap.empty()) {
    const Qnode u = heap.popMin();
    const int r = u.id / width, c = u.id - r * width;
    const unsigned inside = neighboursInside(r, c, height, width);
    const unsigned blocked = labels ? blockedSteps(labels, r, c, inside) : 0;
    const unsigned char* here = colourAt(colour, r, c);
    for (int k = 0; k < kPathNeighbours; ++k) {
      if (!(inside & bit(k))) continue;
      const int32_t v = static_cast<int32_t>(u.id + pixelStep[k]);
      const int32_t slot = heap.slotOf(v);
      if (slot < 0) continue;  // popped
      const double alt = weightOf(k, blocked, here, here + byteStep[k], alpha) + u.key;
      // Without a parent v was never lowered: its key is still kNoStep, and
      // the heap, far away in memory, need not be read.
      const double cost = parents[v] < 0 ? kNoStep : heap.keyAt(slot);
      if (alt < cost) {
        parents[v] = u.id;
        heap.lowerKeyAt(slot, v, alt);
      }
    }
  }
  return GridSearchResult{std::move(parents), std::move(heap)};
}

}  // namespace path_detail
