#include "path/PathSearch.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <new>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <utility>

#include "path/GridSearch.h"
#include "path/PathSteps.h"
#include "path/SearchInput.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"

using namespace path_detail;

namespace {

void fillIndices(Node_& node, int height, int width, int r, int c) {
  for (int k = 0; k < kPathNeighbours; ++k) {
    const long long index = (static_cast<long long>(r) + kRowStep[k]) * width +
                            (static_cast<long long>(c) + kColStep[k]);
    node.neighbours[k].index = static_cast<int32_t>(index);
  }
  const int kAbove[] = {2, 3, 4}, kLeft[] = {4, 5, 6}, kBelow[] = {6, 7, 0}, kRight[] = {0, 1, 2};
  if (r < 1)
    for (int k : kAbove) node.neighbours[k].index = -1;
  if (c < 1)
    for (int k : kLeft) node.neighbours[k].index = -1;
  if (r + 1LL >= height)
    for (int k : kBelow) node.neighbours[k].index = -1;
  if (c + 1LL >= width)
    for (int k : kRight) node.neighbours[k].index = -1;
}

// Weights of pixel (r, c), which must lie inside the colour image. A
// neighbour whose index is not -1 but which lies outside the image is also
// treated as absent, so a hand-filled node cannot make us read out of
// bounds; returns how many such neighbours there were.
int fillWeights(const IplImage* colour, const IplImage* labels, Node_& node, int r, int c,
                double alpha) {
  const unsigned char* here = colourAt(colour, r, c);
  const int side = labels ? sideOf(labelAt(labels, r, c)) : 0;
  int mismatched = 0;
  for (int k = 0; k < kPathNeighbours; ++k) {
    const int nr = r + kRowStep[k], nc = c + kColStep[k];
    if (node.neighbours[k].index == -1 || !inside(colour, nr, nc)) {
      if (node.neighbours[k].index != -1) ++mismatched;
      node.neighbours[k].weight = kNoStep;
      continue;
    }
    if (labels && blocks(side, sideOf(labelAt(labels, nr, nc)))) {
      // Deliberately weight 0, whatever k is: weight k itself stays as it was.
      node.neighbours[0].weight = kNoStep;
      continue;
    }
    const double m = meanSquaredDifference(here, colourAt(colour, nr, nc));
    node.neighbours[k].weight = stepCost(m, kStepLength2[k], alpha);
  }
  return mismatched;
}

// The largest value an element of this depth holds. OpenCV rounds through
// int before saturating, which turns DBL_MAX into garbage on integer images,
// and converting DBL_MAX to float is undefined; clamping first makes an
// unreached pixel read as the depth's maximum everywhere.
double depthMaximum(int depth) {
  switch (static_cast<unsigned>(depth)) {
    case IPL_DEPTH_8U:
      return UCHAR_MAX;
    case IPL_DEPTH_8S:
      return SCHAR_MAX;
    case IPL_DEPTH_16U:
      return USHRT_MAX;
    case IPL_DEPTH_16S:
      return SHRT_MAX;
    case IPL_DEPTH_32S:
      return INT_MAX;
    case IPL_DEPTH_32F:
      return FLT_MAX;
    default:
      return DBL_MAX;
  }
}

// Whether cvSet2D would store a pixel of this image as plain floats or
// doubles at imageData + r * widthStep + c * pixel size: a valid header with
// data, interleaved, no region of interest, 1 to 4 channels, 32F or 64F.
bool plainFloatingPoint(const IplImage* image) {
  return image->nSize == static_cast<int>(sizeof(IplImage)) && image->imageData && !image->roi &&
         image->dataOrder == 0 && image->nChannels >= 1 && image->nChannels <= 4 &&
         (image->depth == IPL_DEPTH_32F || image->depth == IPL_DEPTH_64F);
}

// What cvSet2D(image, r, c, cvScalar(cost, 0, 0, 0)) stores, stored directly:
// a call per pixel would cost a third of the search.
template <typename Element>
void storeCosts(const PathHeap& heap, int width, int height, IplImage* image, double most) {
  const int channels = image->nChannels;
  for (int r = 0; r < height; ++r) {
    Element* row = imageRow<Element>(image, r);
    for (int c = 0; c < width; ++c) {
      Element* pixel = row + static_cast<long long>(c) * channels;
      pixel[0] = static_cast<Element>(std::min(heap.poppedKey(r * width + c), most));
      for (int k = 1; k < channels; ++k) pixel[k] = 0;
    }
  }
}

// Each pixel's cost into costImage; a null one or one of another size than
// the colour image is logged and left unwritten. The parents stay valid when
// OpenCV refuses the image, so that is only logged.
void writeCosts(const PathHeap& heap, const IplImage* colour, IplImage* costImage, const char* function) {
  const int width = colour->width, height = colour->height;
  if (!costImage) {
    logBadCall(function, "no cost image; costs not written");
    return;
  }
  if (costImage->width != width || costImage->height != height) {
    logBadCall(function, "cost image size differs from the colour image; costs not written");
    return;
  }
  const double most = depthMaximum(costImage->depth);
  if (plainFloatingPoint(costImage)) {
    if (costImage->depth == IPL_DEPTH_64F)
      storeCosts<double>(heap, width, height, costImage, most);
    else
      storeCosts<float>(heap, width, height, costImage, most);
    return;
  }
  try {
    for (int r = 0; r < height; ++r)
      for (int c = 0; c < width; ++c) {
        const double cost = heap.poppedKey(r * width + c);
        cvSet2D(costImage, r, c, cvScalar(std::min(cost, most), 0, 0, 0));
      }
  } catch (const cv::Exception& e) {
    logBadCall(function, e.what());
  }
}

// Both find_parent_info overloads: the input checks, the search, then
// finish(result, function) before the parents are handed back. Running out
// of memory anywhere in that is logged and gives no parents.
template <typename Finish>
std::vector<int32_t> checkedSearch(IplImage* colour, IplImage* labels, int startRow, int startColumn,
                                   double alpha, Finish finish) {
  const char* const function = "find_parent_info";
  try {
    if (!searchableColour(colour, function)) return {};
    labels = usableLabels(labels, colour, function);
    const long long start = static_cast<long long>(startRow) * colour->width + startColumn;
    GridSearchResult found = searchGrid(colour, labels, start, alpha);
    finish(found, function);
    return std::move(found.parents);
  } catch (const std::bad_alloc&) {
    logNoMemory(function, colour);
  } catch (const std::length_error&) {
    logNoMemory(function, colour);
  }
  return {};
}

}  // namespace

double find_weight(IplImage* colour, int r1, int c1, int r2, int c2, double alpha) {
  if (!colourUsable(colour)) {
    logBadCall("find_weight", "colour image is null or not 8-bit with 3 channels");
    return kNoStep;
  }
  if (!inside(colour, r1, c1) || !inside(colour, r2, c2)) {
    logBadCall("find_weight", "pixel outside the image");
    return kNoStep;
  }
  const long long dr = static_cast<long long>(r2) - r1, dc = static_cast<long long>(c2) - c1;
  const double d2 = static_cast<double>(dr * dr + dc * dc);
  const double m = meanSquaredDifference(colourAt(colour, r1, c1), colourAt(colour, r2, c2));
  return stepCost(m, d2, alpha);
}

void assign_index(Node_& node, int height, int width, int r, int c, double /*unused*/) {
  fillIndices(node, height, width, r, c);
}

void assign_weight(IplImage* colour, IplImage* labels, Node_& node, int r, int c, double alpha) {
  if (!colourUsable(colour)) {
    logBadCall("assign_weight", "colour image is null or not 8-bit with 3 channels");
    return;
  }
  if (!inside(colour, r, c)) {
    logBadCall("assign_weight", "pixel outside the image");
    return;
  }
  if (fillWeights(colour, usableLabels(labels, colour, "assign_weight"), node, r, c, alpha) > 0)
    logBadCall("assign_weight",
               "neighbour index set for a pixel outside the image; treated as absent");
}

std::vector<int32_t> find_parent_info(IplImage* colour, IplImage* labels, int startRow,
                                      int startColumn, double alpha) {
  return checkedSearch(colour, labels, startRow, startColumn, alpha,
                       [](const GridSearchResult&, const char*) {});
}

std::vector<int32_t> find_parent_info(IplImage* colour, IplImage* labels, int startRow,
                                      int startColumn, double alpha, IplImage* costImage) {
  return checkedSearch(colour, labels, startRow, startColumn, alpha,
                       [colour, costImage](const GridSearchResult& found, const char* function) {
                         writeCosts(found.heap, colour, costImage, function);
                       });
}
