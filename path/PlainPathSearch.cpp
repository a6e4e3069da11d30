#include "path/PlainPathSearch.h"

#include <cfloat>
#include <new>
#include <stdexcept>

#include "path/MinPriorityQueue.h"
#include "path/PathSearch.h"
#include "path/SearchInput.h"

namespace {

// One fresh node per pixel: index, no cost, no parent, neighbours and weights.
std::vector<Node_> buildNodes(IplImage* colour, IplImage* labels, double alpha) {
  const int width = colour->width, height = colour->height;
  std::vector<Node_> nodes(static_cast<size_t>(width) * height);
  for (int r = 0; r < height; ++r)
    for (int c = 0; c < width; ++c) {
      Node_& node = nodes[static_cast<size_t>(r) * width + c];
      node.index = r * width + c;
      node.cost = DBL_MAX;
      node.parent = -1;
      assign_index(node, height, width, r, c, 0.0);
      assign_weight(colour, labels, node, r, c, alpha);
    }
  return nodes;
}

// Every node into the queue in index order, then n pops; the start already
// has cost 0.
void relaxAll(std::vector<Node_>& nodes) {
  const int n = static_cast<int>(nodes.size());
  MinPriorityQueue queue;
  // Reserved so that vector growth does not pad the memory it is measured by.
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
      if (alt < nodes.at(v).cost) {
        nodes[v].parent = u.index;
        const int slot = queue.position[v];
        queue.heap.at(slot).key = alt;
        queue.prelocate_up(slot);
        nodes[v].cost = alt;
      }
    }
  }
}

}  // namespace

std::vector<int32_t> plainParentInfo(IplImage* colour, IplImage* labels, int startRow,
                                     int startColumn, double alpha, std::vector<double>* costs) {
  const char* const function = "plainParentInfo";
  try {
    if (!path_detail::searchableColour(colour, function)) return {};
    std::vector<Node_> nodes =
        buildNodes(colour, path_detail::usableLabels(labels, colour, function), alpha);

    // No clamping: any index past the last pixel (or negative) is the caller's fault.
    const long long s = static_cast<long long>(startRow) * colour->width + startColumn;
    Node_& start = nodes.at(path_detail::startIndex(s));
    start.cost = 0.0;
    start.parent = start.index;

    relaxAll(nodes);
    std::vector<int32_t> parents;
    parents.reserve(nodes.size());
    for (const Node_& node : nodes) parents.push_back(node.parent);
    if (costs) {
      costs->clear();
      for (const Node_& node : nodes) costs->push_back(node.cost);
    }
    return parents;
  } catch (const std::bad_alloc&) {
    path_detail::logNoMemory(function, colour);
  } catch (const std::length_error&) {
    path_detail::logNoMemory(function, colour);
  }
  return {};
}
