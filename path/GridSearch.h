// The fast path search behind find_parent_info. It performs the plain
// search's heap operations in the same order on the same doubles, and so
// gives the same bits, but keeps no Node_: the step costs of a pixel are
// computed when it is popped, and only the heap and the parents are stored
// (24 bytes per pixel).
#pragma once

#include <opencv2/core/core_c.h>

#include <cstdint>
#include <vector>

#include "path/PathHeap.h"

namespace path_detail {

struct GridSearchResult {
  std::vector<int32_t> parents;  // per pixel; the start its own, -1 unreached
  PathHeap heap;                 // all popped: heap.poppedKey(pixel) is the cost
};

// The search from pixel index `start`. Needs a colour image that passed
// searchableColour and labels null or of its size (usableLabels). Throws
// std::out_of_range, from a checked access, when start is not a pixel index.
GridSearchResult searchGrid(const IplImage* colour, const IplImage* labels, long long start,
                            double alpha);

}  // namespace path_detail
