// Band graphs: only the pixels of a band are nodes, in raster order, with
// the tables that let the search find their neighbours (GridTopology.h).
#include <algorithm>
#include <new>
#include <vector>

#include "graph/GridTopology.h"
#include "graph/KORUSEGraph.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/FreshPages.h"
#include "support/LogSites.h"

namespace {

// Walks one row's runs left to right for the nodes of the row below or
// above: after advance(c), the run at the cursor is the first that ends
// after column c, so columns c, c + 1 and c + 2 lie in it, in the next run,
// or in no run (runs of a row never touch).
class RowCursor {
 public:
  RowCursor(const BandRuns& band, int row, const std::vector<int32_t>& rowFirstNode) {
    if (row < 0 || row >= band.height) return;
    run_ = band.runs.data() + band.rowFirstRun[row];
    end_ = band.runs.data() + band.rowFirstRun[row + 1];
    before_ = rowFirstNode[row];
  }
  void advance(int c) {
    while (run_ != end_ && run_->end <= c) {
      before_ += run_->end - run_->begin;
      ++run_;
    }
  }
  bool has(int c) const {
    for (const BandRun* r = run_; r != end_ && r <= run_ + 1; ++r)
      if (r->begin <= c && c < r->end) return true;
    return false;
  }
  // The node column c of this row has or would have (c is where the cursor stands).
  int32_t index(int c) const { return before_ + (run_ != end_ && run_->begin < c ? c - run_->begin : 0); }

 private:
  const BandRun* run_ = nullptr;
  const BandRun* end_ = nullptr;
  int32_t before_ = 0;  // nodes before the run at the cursor
};

// Sorted, inside the grid, not touching: what the tables rely on.
bool wellFormed(const BandRuns& band, int width, int height) {
  if (band.width != width || band.height != height || band.rowFirstRun.size() != size_t(height) + 1 ||
      band.rowFirstRun.front() != 0 || size_t(band.rowFirstRun.back()) != band.runs.size())
    return false;
  for (int y = 0; y < height; ++y) {
    if (band.rowFirstRun[y + 1] < band.rowFirstRun[y]) return false;
    int32_t last = -1;
    for (int r = band.rowFirstRun[y]; r < band.rowFirstRun[y + 1]; ++r) {
      const BandRun& run = band.runs[r];
      if (run.begin <= last || run.end <= run.begin || run.begin < 0 || run.end > width) return false;
      last = run.end;
    }
  }
  return true;
}

}  // namespace

void KORUSEGraph::releaseBand() {
  if (!band) return;
  KORU_Free_Msg(band->node, LOG_SITE_HERE("setBand"));
  delete band;
  band = nullptr;
}

int KORUSEGraph::setBand(const uint8_t* mask, size_t stride) {
  if (!mask || width < 1 || height < 1) {
    logBadCall("setBand", "no mask");
    return -1;
  }
  return setBand(BandRuns::ofMask(mask, stride, width, height));
}

int KORUSEGraph::setBand(const BandRuns& rows) {
  if (!ownsStorage || nodeCount != 0 || width < 1 || height < 1 || !wellFormed(rows, width, height)) {
    logBadCall("setBand", "needs an empty whole graph and runs of its grid");
    return -1;
  }
  releaseBand();
  std::vector<int32_t> rowFirstNode(height + 1, 0), runFirstNode(rows.runs.size());
  int64_t nodes = 0;
  for (int y = 0; y < height; ++y) {
    rowFirstNode[y] = static_cast<int32_t>(nodes);
    for (int r = rows.rowFirstRun[y]; r < rows.rowFirstRun[y + 1]; ++r) {
      runFirstNode[r] = static_cast<int32_t>(nodes);
      nodes += rows.runs[r].end - rows.runs[r].begin;
    }
  }
  rowFirstNode[height] = static_cast<int32_t>(nodes);
  if (nodes > nodeCapacity) {
    logBadCall("setBand", "more band pixels than the graph was allocated for");
    return -1;
  }
  const size_t n = static_cast<size_t>(nodes);
  auto* block = static_cast<BandNeighbours*>(
      KORU_Malloc_Msg(std::max<size_t>(n * sizeof(BandNeighbours), 1), LOG_SITE_HERE("setBand")));
  band = block ? new (std::nothrow) BandTopology : nullptr;
  if (!band) {
    if (block) KORU_Free_Msg(block, LOG_SITE_HERE("setBand"));
    logBadCall("setBand", "no memory for the band's tables");
    return -1;
  }
  mapPagesForWriting(block, n * sizeof(BandNeighbours));
  band->node = block;
  band->nodes = static_cast<int32_t>(nodes);
  band->rows = rows;
  band->runFirstNode.swap(runFirstNode);

  int32_t i = 0;
  for (int y = 0; y < height; ++y) {
    RowCursor up(rows, y - 1, rowFirstNode), down(rows, y + 1, rowFirstNode);
    for (int r = rows.rowFirstRun[y]; r < rows.rowFirstRun[y + 1]; ++r) {
      const BandRun run = rows.runs[r];
      for (int x = run.begin; x < run.end; ++x, ++i) {
        up.advance(x - 1);
        down.advance(x - 1);
        band->node[i].present = (x > run.begin ? BAND_LEFT : 0) | (up.has(x - 1) ? BAND_UPPER_LEFT : 0) |
                           (up.has(x) ? BAND_UPPER : 0) | (up.has(x + 1) ? BAND_UPPER_RIGHT : 0) |
                           (x + 1 < run.end ? BAND_RIGHT : 0) | (down.has(x + 1) ? BAND_LOWER_RIGHT : 0) |
                           (down.has(x) ? BAND_LOWER : 0) | (down.has(x - 1) ? BAND_LOWER_LEFT : 0);
        band->node[i].baseUp = up.index(x - 1);
        band->node[i].baseDown = down.index(x - 1);
      }
    }
  }
  return band->nodes;
}

int KORUSEGraph::nodeAt(int x, int y) const {
  if (x < 0 || y < 0 || x >= width || y >= height) return -1;
  if (!band) return y * width + x;
  const BandRun* first = band->rows.runs.data() + band->rows.rowFirstRun[y];
  const BandRun* last = band->rows.runs.data() + band->rows.rowFirstRun[y + 1];
  // The last run that begins at or before x.
  const BandRun* run = std::upper_bound(first, last, x, [](int c, const BandRun& r) { return c < r.begin; });
  if (run == first || x >= (run - 1)->end) return -1;
  --run;
  return band->runFirstNode[run - band->rows.runs.data()] + (x - run->begin);
}

unsigned KORUSEGraph::neighbourMask(int i) const {
  if (!validNode(i, "neighbourMask")) return 0;
  if (band) return band->node[i].present;
  return WholeGrid{width, height, neighbourOffsetTable}.presence(i);
}

int KORUSEGraph::firstNodeOfRow(int y) const {
  if (!band) return static_cast<int>(std::min<int64_t>(std::max(y, 0), height) * width);
  if (y >= height) return band->nodes;
  const int run = band->rows.rowFirstRun[std::max(y, 0)];
  return run < static_cast<int>(band->runFirstNode.size()) ? band->runFirstNode[run] : band->nodes;
}
