// The checks a path search makes on its input before it starts, and the
// message for a search that runs out of memory. Everything here logs under
// "Error" (memory under "TAG_MEM") and never throws.
#pragma once

#include <opencv2/core/core_c.h>

#include <cstddef>
#include <cstdint>

namespace path_detail {

// The search reads three bytes per pixel at 3c of each row.
bool colourUsable(const IplImage* colour);

// A colour image a whole-image search can run on: usable, and few enough
// pixels for int32 indices. Logs for `function` when not.
bool searchableColour(const IplImage* colour, const char* function);

// The label image the search may read: null when there is none or when it
// does not fit the colour image (then it is logged and ignored).
IplImage* usableLabels(IplImage* labels, const IplImage* colour, const char* function);

void logNoMemory(const char* function, const IplImage* colour);

// The start's row * width + column as an index to check with at(). With a
// 32-bit size_t a plain cast would wrap a start past 2^32 back into the
// image; such a start becomes SIZE_MAX, which misses it as it should.
inline size_t startIndex(long long start) {
  return static_cast<unsigned long long>(start) > SIZE_MAX ? SIZE_MAX : static_cast<size_t>(start);
}

}  // namespace path_detail
