#include "path/SearchInput.h"

#include <climits>

#include "support/KORULog.h"

namespace path_detail {

bool colourUsable(const IplImage* colour) {
  return colour && colour->imageData && colour->depth == IPL_DEPTH_8U && colour->nChannels >= 3 &&
         colour->width >= 0 && colour->height >= 0 && colour->widthStep >= 3LL * colour->width;
}

bool searchableColour(const IplImage* colour, const char* function) {
  if (!colourUsable(colour)) {
    logBadCall(function, "colour image is null or not 8-bit with 3 channels");
    return false;
  }
  // Pixel indices are int32.
  if (static_cast<long long>(colour->width) * colour->height > INT_MAX) {
    logBadCall(function, "image has too many pixels for the search");
    return false;
  }
  return true;
}

namespace {
bool labelsMatch(const IplImage* labels, const IplImage* colour) {
  return labels->imageData && labels->depth == IPL_DEPTH_8U && labels->nChannels == 1 &&
         labels->width == colour->width && labels->height == colour->height &&
         labels->widthStep >= labels->width;
}
}  // namespace

IplImage* usableLabels(IplImage* labels, const IplImage* colour, const char* function) {
  if (!labels || labelsMatch(labels, colour)) return labels;
  logBadCall(function, "label image is not 8-bit 1-channel at the colour size; labels ignored");
  return nullptr;
}

void logNoMemory(const char* function, const IplImage* colour) {
  logLine(ANDROID_LOG_ERROR, kTagMemory, "%s: no memory for a %d x %d search", function,
                      colour->width, colour->height);
}

}  // namespace path_detail
