#include "engine/MaskRuns.h"

#include <algorithm>
#include <cstring>

namespace {
// First column >= x whose byte differs from v, or cols: eight bytes at a
// time across long runs.
int endOfRun(const uchar* row, int x, int cols, uchar v) {
  const uint64_t same = 0x0101010101010101ull * v;
  while (x + 8 <= cols) {
    uint64_t word;
    std::memcpy(&word, row + x, 8);
    if (word != same) break;
    x += 8;
  }
  while (x < cols && row[x] == v) ++x;
  return x;
}

class UnionFind {
 public:
  int32_t add() {
    parent_.push_back(static_cast<int32_t>(parent_.size()));
    return parent_.back();
  }
  int32_t find(int32_t i) {
    while (parent_[i] != i) i = parent_[i] = parent_[parent_[i]];
    return i;
  }
  void unite(int32_t a, int32_t b) {
    a = find(a), b = find(b);
    if (a != b) parent_[std::max(a, b)] = std::min(a, b);
  }

 private:
  std::vector<int32_t> parent_;
};

// Collects the runs row by row (rowRuns(y, add) calls add(x0, x1) for each
// run of row y, left to right), joins each run with the runs of the row
// above that share a column, and numbers the components.
template <typename RowRuns>
bool connect(int rows, size_t maxRuns, RowRuns rowRuns, RunComponents& out) {
  out = RunComponents();
  out.rowStart.reserve(rows + 1);
  UnionFind sets;
  bool tooMany = false;
  for (int y = 0; y < rows && !tooMany; ++y) {
    out.rowStart.push_back(static_cast<int32_t>(out.runs.size()));
    const size_t above = y > 0 ? out.rowStart[y - 1] : out.runs.size(), aboveEnd = out.runs.size();
    size_t first = above;
    rowRuns(y, [&](int x0, int x1) {
      if (out.runs.size() >= maxRuns) {
        tooMany = true;
        return;
      }
      const int32_t r = sets.add();
      out.runs.push_back({y, x0, x1});
      while (first < aboveEnd && out.runs[first].x1 < x0) ++first;
      for (size_t a = first; a < aboveEnd && out.runs[a].x0 <= x1; ++a)
        sets.unite(r, static_cast<int32_t>(a));
    });
  }
  if (tooMany) return false;
  out.rowStart.push_back(static_cast<int32_t>(out.runs.size()));
  // Roots are the smallest run of their set, so components are numbered in
  // the raster order of their first pixel.
  out.component.resize(out.runs.size());
  for (size_t r = 0; r < out.runs.size(); ++r) {
    const int32_t root = sets.find(static_cast<int32_t>(r));
    if (root == static_cast<int32_t>(r)) {
      out.component[r] = static_cast<int32_t>(out.size.size());
      out.size.push_back(0);
    } else {
      out.component[r] = out.component[root];
    }
    out.size[out.component[r]] += out.runs[r].x1 - out.runs[r].x0 + 1;
  }
  return true;
}
}  // namespace

bool componentsOfValue(const cv::Mat& mask, uchar value, size_t maxRuns, RunComponents& out) {
  const int cols = mask.cols;
  return connect(mask.rows, maxRuns, [&](int y, auto add) {
    const uchar* row = mask.ptr<uchar>(y);
    for (int x = 0; x < cols;) {
      const void* hit = std::memchr(row + x, value, cols - x);
      if (!hit) break;
      const int x0 = static_cast<int>(static_cast<const uchar*>(hit) - row);
      x = endOfRun(row, x0, cols, value);
      add(x0, x - 1);
    }
  }, out);
}

bool componentsOfChange(const cv::Mat& mask, uchar now, const cv::Mat& before, uchar then,
                        size_t maxRuns, RunComponents& out) {
  const int cols = mask.cols;
  return connect(mask.rows, maxRuns, [&](int y, auto add) {
    const uchar* m = mask.ptr<uchar>(y);
    const uchar* b = before.ptr<uchar>(y);
    for (int x = 0; x < cols;) {
      while (x < cols && !(m[x] == now && b[x] == then)) ++x;
      if (x == cols) break;
      const int x0 = x;
      while (x < cols && m[x] == now && b[x] == then) ++x;
      add(x0, x - 1);
    }
  }, out);
}

int runAt(const RunComponents& c, int x, int y) {
  const auto first = c.runs.begin() + c.rowStart[y], last = c.runs.begin() + c.rowStart[y + 1];
  // The last run starting at or before x.
  auto it = std::upper_bound(first, last, x, [](int v, const MaskRun& r) { return v < r.x0; });
  if (it == first) return -1;
  --it;
  return x <= it->x1 ? static_cast<int>(it - c.runs.begin()) : -1;
}
