// Band graphs: only the pixels of a mask are nodes, in raster order, with
// the tables that let the search find their neighbours (GridTopology.h).
#include <algorithm>
#include <new>
#include <vector>

#include "graph/GridTopology.h"
#include "graph/KORUSEGraph.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"

namespace {

// prefix[c] = band pixels of the row left of column c: the pixel (c, row)
// is or would be node rowStart + prefix[c].
void countRow(const uint8_t* row, int width, int32_t* prefix) {
  prefix[0] = 0;
  for (int x = 0; x < width; ++x) prefix[x + 1] = prefix[x] + (row[x] ? 1 : 0);
}

bool at(const uint8_t* row, int x, int width) { return row && x >= 0 && x < width && row[x]; }

// The first node at or after column x - 1 in a row starting at `start`: the
// index the upper-left (lower-left) neighbour has or would have.
int32_t baseOf(int32_t start, const int32_t* prefix, int x) { return start + prefix[std::max(x - 1, 0)]; }

}  // namespace

void KORUSEGraph::releaseBand() {
  if (!band) return;
  KORU_Free_Msg(band->present, "setBand", __LINE__);
  delete band;
  band = nullptr;
}

int KORUSEGraph::setBand(const uint8_t* mask, size_t stride) {
  if (!ownsStorage || nodeCount != 0 || !mask || width < 1 || height < 1) {
    logBadCall("setBand", "needs an empty whole graph and a mask");
    return -1;
  }
  releaseBand();
  int64_t nodes = 0;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) nodes += mask[y * stride + x] ? 1 : 0;
  if (nodes > nodeCapacity) {
    logBadCall("setBand", "more band pixels than the graph was allocated for");
    return -1;
  }
  // present, then baseUp, baseDown, columns (per node) and rowStart (per row).
  const size_t n = static_cast<size_t>(nodes), bytes = (n + 7) & ~size_t(7);
  auto* block = static_cast<unsigned char*>(KORU_Malloc_Msg(
      bytes + 3 * n * sizeof(int32_t) + (height + 1) * sizeof(int32_t), "setBand", __LINE__));
  band = block ? new (std::nothrow) BandTopology : nullptr;
  if (!band) {
    if (block) KORU_Free_Msg(block, "setBand", __LINE__);
    logBadCall("setBand", "no memory for the band's tables");
    return -1;
  }
  band->present = block;
  band->baseUp = reinterpret_cast<int32_t*>(block + bytes);
  band->baseDown = band->baseUp + n;
  band->columns = band->baseDown + n;
  band->rowStart = band->columns + n;
  band->nodes = static_cast<int32_t>(nodes);

  std::vector<int32_t> above(width + 1), here(width + 1), below(width + 1);
  band->rowStart[0] = 0;
  countRow(mask, width, here.data());
  if (height > 1) countRow(mask + stride, width, below.data());
  int32_t i = 0;
  for (int y = 0; y < height; ++y) {
    const uint8_t* up = y > 0 ? mask + (y - 1) * stride : nullptr;
    const uint8_t* row = mask + y * stride;
    const uint8_t* down = y + 1 < height ? mask + (y + 1) * stride : nullptr;
    const int32_t startUp = y > 0 ? band->rowStart[y - 1] : 0;
    const int32_t startDown = band->rowStart[y] + here[width];
    for (int x = 0; x < width; ++x) {
      if (!row[x]) continue;
      band->present[i] = (at(row, x - 1, width) ? BAND_LEFT : 0) | (at(up, x - 1, width) ? BAND_UPPER_LEFT : 0) |
                         (at(up, x, width) ? BAND_UPPER : 0) | (at(up, x + 1, width) ? BAND_UPPER_RIGHT : 0) |
                         (at(row, x + 1, width) ? BAND_RIGHT : 0) |
                         (at(down, x + 1, width) ? BAND_LOWER_RIGHT : 0) | (at(down, x, width) ? BAND_LOWER : 0) |
                         (at(down, x - 1, width) ? BAND_LOWER_LEFT : 0);
      band->baseUp[i] = up ? baseOf(startUp, above.data(), x) : 0;
      band->baseDown[i] = down ? baseOf(startDown, below.data(), x) : 0;
      band->columns[i] = x;
      ++i;
    }
    band->rowStart[y + 1] = i;
    std::swap(above, here);
    std::swap(here, below);
    if (y + 2 < height) countRow(mask + (y + 2) * stride, width, below.data());
  }
  return band->nodes;
}

int KORUSEGraph::nodeAt(int x, int y) const {
  if (x < 0 || y < 0 || x >= width || y >= height) return -1;
  if (!band) return y * width + x;
  const int32_t* first = band->columns + band->rowStart[y];
  const int32_t* last = band->columns + band->rowStart[y + 1];
  const int32_t* found = std::lower_bound(first, last, x);
  return found != last && *found == x ? static_cast<int>(found - band->columns) : -1;
}
