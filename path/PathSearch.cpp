#include "path/PathSearch.h"

#include <android/log.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <new>
#include <opencv2/core.hpp>
#include <stdexcept>

#include "path/MinPriorityQueue.h"
#include "support/KORULog.h"

namespace {

// Neighbour table, k = 0..7 counter-clockwise from below right.
constexpr int kRowStep[kPathNeighbours] = {1, 0, -1, -1, -1, 0, 1, 1};
constexpr int kColStep[kPathNeighbours] = {1, 1, 1, 0, -1, -1, -1, 0};
constexpr double kStepLength2[kPathNeighbours] = {2.0, 1.0, 2.0, 1.0, 2.0, 1.0, 2.0, 1.0};

// Turns a sum of three squared channel differences into their mean.
constexpr double kOneThird = 0.3333333333333333;

// Cost of a step that must not be taken (and of an unreached pixel).
constexpr double kNoStep = DBL_MAX;

bool inside(const IplImage* image, int r, int c) {
  return r >= 0 && c >= 0 && r < image->height && c < image->width;
}

// The search reads three bytes per pixel at 3c of each row.
bool colourUsable(const IplImage* colour) {
  return colour && colour->imageData && colour->depth == IPL_DEPTH_8U && colour->nChannels >= 3 &&
         colour->width >= 0 && colour->height >= 0 && colour->widthStep >= 3LL * colour->width;
}

bool labelsMatch(const IplImage* labels, const IplImage* colour) {
  return labels->imageData && labels->depth == IPL_DEPTH_8U && labels->nChannels == 1 &&
         labels->width == colour->width && labels->height == colour->height &&
         labels->widthStep >= labels->width;
}

// The label image the search may read: null when there is none or when it
// does not fit the colour image (then it is logged and ignored).
IplImage* usableLabels(IplImage* labels, const IplImage* colour, const char* function) {
  if (!labels || labelsMatch(labels, colour)) return labels;
  logBadCall(function, "label image is not 8-bit 1-channel at the colour size; labels ignored");
  return nullptr;
}

const unsigned char* colourAt(const IplImage* colour, int r, int c) {
  return reinterpret_cast<const unsigned char*>(colour->imageData) +
         static_cast<long long>(r) * colour->widthStep + 3LL * c;
}

unsigned char labelAt(const IplImage* labels, int r, int c) {
  return reinterpret_cast<const unsigned char*>(
      labels->imageData)[static_cast<long long>(r) * labels->widthStep + c];
}

// Mean squared channel difference of two pixels.
double meanSquaredDifference(const unsigned char* a, const unsigned char* b) {
  const int d0 = a[0] - b[0], d1 = a[1] - b[1], d2 = a[2] - b[2];
  return (d0 * d0 + d1 * d1 + d2 * d2) * kOneThird;
}

// sqrt(alpha * d2 + (1 - alpha) * m), written as the blend below.
double stepCost(double m, double d2, double alpha) { return std::sqrt((d2 - m) * alpha + m); }

// 0 for no side, 1 for background (1, 3), 2 for object (2, 4).
int sideOf(unsigned char label) {
  if (label == 1 || label == 3) return 1;
  if (label == 2 || label == 4) return 2;
  return 0;
}

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
    if (side != 0) {
      const int other = sideOf(labelAt(labels, nr, nc));
      if (other != 0 && other != side) {
        // Deliberately weight 0, whatever k is: weight k itself stays as it was.
        node.neighbours[0].weight = kNoStep;
        continue;
      }
    }
    const double m = meanSquaredDifference(here, colourAt(colour, nr, nc));
    node.neighbours[k].weight = stepCost(m, kStepLength2[k], alpha);
  }
  return mismatched;
}

// Steps 1 and 2: one fresh node per pixel, indices and weights filled.
void buildNodes(const IplImage* colour, const IplImage* labels, double alpha,
                std::vector<Node_>& nodes) {
  const int width = colour->width, height = colour->height;
  // Each node starts zeroed and is appended once filled, so the large array
  // is written once rather than zeroed first and filled after.
  nodes.clear();
  nodes.reserve(static_cast<size_t>(width) * height);
  for (int r = 0; r < height; ++r) {
    for (int c = 0; c < width; ++c) {
      Node_ node;
      node.index = r * width + c;
      node.cost = kNoStep;
      node.parent = -1;
      fillIndices(node, height, width, r, c);
      fillWeights(colour, labels, node, r, c, alpha);
      nodes.push_back(node);
    }
  }
}

// Dijkstra over the nodes from the start, which already has cost 0.
void relaxAll(std::vector<Node_>& nodes) {
  const int n = static_cast<int>(nodes.size());
  MinPriorityQueue queue;
  queue.heap.reserve(nodes.size() + 1);
  queue.position.reserve(nodes.size());
  for (int i = 0; i < n; ++i) queue.push(Qnode{i, nodes[i].cost});

  for (int popped = 0; popped < n; ++popped) {
    const Node_& u = nodes.at(queue.pop_min().id);
    for (const Node_::Neighbour& step : u.neighbours) {
      const int v = step.index;
      if (v == -1 || queue.position.at(v) == -1) continue;
      const double alt = step.weight + u.cost;
      // Strictly less: among equal costs the first relaxation keeps the parent.
      if (alt < nodes[v].cost) {
        nodes[v].parent = u.index;
        const int slot = queue.position[v];
        queue.heap.at(slot).key = alt;
        queue.prelocate_up(slot);
        nodes[v].cost = alt;
      }
    }
  }
}

// The whole search. False (after logging) for input it cannot work on; a
// start outside the image throws std::out_of_range from the checked access.
bool search(IplImage* colour, IplImage* labels, int startRow, int startColumn, double alpha,
            const char* function, std::vector<Node_>& nodes) {
  if (!colourUsable(colour)) {
    logBadCall(function, "colour image is null or not 8-bit with 3 channels");
    return false;
  }
  // Pixel indices are int32.
  if (static_cast<long long>(colour->width) * colour->height > INT_MAX) {
    logBadCall(function, "image has too many pixels for the search");
    return false;
  }
  buildNodes(colour, usableLabels(labels, colour, function), alpha, nodes);

  // No clamping: any index past the last pixel (or negative) is the caller's fault.
  const long long s = static_cast<long long>(startRow) * colour->width + startColumn;
  Node_& start = nodes.at(static_cast<size_t>(s));
  start.cost = 0.0;
  start.parent = start.index;

  relaxAll(nodes);
  return true;
}

void logNoMemory(const char* function, const IplImage* colour) {
  __android_log_print(ANDROID_LOG_ERROR, "TAG_MEM", "%s: no memory for a %d x %d search", function,
                      colour->width, colour->height);
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

// The parents stay valid when OpenCV refuses the image, so that is only logged.
void writeCosts(const std::vector<Node_>& nodes, int width, int height, IplImage* costImage,
                const char* function) {
  const double most = depthMaximum(costImage->depth);
  try {
    for (int r = 0; r < height; ++r)
      for (int c = 0; c < width; ++c) {
        const double cost = nodes[static_cast<size_t>(r) * width + c].cost;
        cvSet2D(costImage, r, c, cvScalar(std::min(cost, most), 0, 0, 0));
      }
  } catch (const cv::Exception& e) {
    logBadCall(function, e.what());
  }
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
  try {
    std::vector<Node_> nodes;
    if (!search(colour, labels, startRow, startColumn, alpha, "find_parent_info", nodes)) return {};
    std::vector<int32_t> parents;
    parents.reserve(nodes.size());
    for (const Node_& node : nodes) parents.push_back(node.parent);
    return parents;
  } catch (const std::bad_alloc&) {
    logNoMemory("find_parent_info", colour);
  } catch (const std::length_error&) {
    logNoMemory("find_parent_info", colour);
  }
  return {};
}

std::vector<int32_t> find_parent_info(IplImage* colour, IplImage* labels, int startRow,
                                      int startColumn, double alpha, IplImage* costImage) {
  const char* const function = "find_parent_info";
  try {
    std::vector<Node_> nodes;
    if (!search(colour, labels, startRow, startColumn, alpha, function, nodes)) return {};
    const int width = colour->width, height = colour->height;
    std::vector<int32_t> parents;
    parents.reserve(nodes.size());
    for (const Node_& node : nodes) parents.push_back(node.parent);

    if (!costImage)
      logBadCall(function, "no cost image; costs not written");
    else if (costImage->width != width || costImage->height != height)
      logBadCall(function, "cost image size differs from the colour image; costs not written");
    else
      writeCosts(nodes, width, height, costImage, function);
    return parents;
  } catch (const std::bad_alloc&) {
    logNoMemory(function, colour);
  } catch (const std::length_error&) {
    logNoMemory(function, colour);
  }
  return {};
}
