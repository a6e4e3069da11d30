// How the search finds a node's eight arcs and an arc's head, for the two
// kinds of grid. Both give the same arcs in the same visiting order, so a
// band graph is searched exactly as its box would be: the pixels outside the
// band have no edges and no terminal capacity there, and are never visited.
#pragma once

#include <cstdint>
#include <vector>

#include "graph/BandRuns.h"
#include "graph/KORUSEGraph.h"

// Visiting order: left, upper-left, upper, upper-right, right, lower-right,
// lower, lower-left. A band node's presence mask has one bit per direction.
enum BandDirection : uint8_t {
  BAND_LEFT = 1 << 0,
  BAND_UPPER_LEFT = 1 << 1,
  BAND_UPPER = 1 << 2,
  BAND_UPPER_RIGHT = 1 << 3,
  BAND_RIGHT = 1 << 4,
  BAND_LOWER_RIGHT = 1 << 5,
  BAND_LOWER = 1 << 6,
  BAND_LOWER_LEFT = 1 << 7,
};

// The neighbour tables of a band graph. Nodes are the band's pixels in
// raster order, so the band pixels of one grid row are consecutive nodes and
// a node's neighbours in the row above (below) follow from one base index:
//   baseUp[i]: the node index (x - 1, y - 1) has or would have, that is the
//   number of band pixels before it in raster order; then
//   upper-left = baseUp, upper = baseUp + [upper-left present],
//   upper-right = upper + [upper present]; the same below with baseDown.
struct BandNeighbours {
  int32_t baseUp;
  int32_t baseDown;
  uint32_t present;  // BandDirection bits of the neighbours in the band
};

struct BandTopology {
  BandNeighbours* node;               // per node, read together by the search
  int32_t nodes;                      // band pixels
  BandRuns rows;                      // the band itself, for nodeAt
  std::vector<int32_t> runFirstNode;  // per run: its first node
};

// Both grids answer, for node i:
//   presence(i)  the directions that lead to a node, one bit each (as above)
//   arc(i, k)    the arc from i in direction k (present directions only)
//   head(i, k)   the node it leads to
// Slots 0-3 are i's own edges, whose even arcs leave i; direction k >= 4
// belongs to the neighbour, whose odd arc of slot k - 4 leads back to it.
// The search visits the set bits of presence(i) in order.

// Whole grid: indices by arithmetic.
struct WholeGrid {
  WholeGrid(int32_t width, int32_t height, const int32_t* offsets)
      : width(width),
        height(height),
        offsets(offsets),
        reciprocal(width > 0 ? ((uint64_t(1) << 32) + uint64_t(width) - 1) / uint64_t(width) : 0),
        step{-1, -width - 1, -width, -width + 1, 1, width + 1, width, width - 1} {}
  int32_t width, height;
  const int32_t* offsets;  // neighbourOffsetTable
  uint64_t reciprocal;     // ceil(2^32 / width): row = i / width by a multiply
  int32_t step[8];         // node index offset of each direction

  // i / width for 0 <= i < 2^31: the product overshoots i / width by less
  // than one half, so the quotient is exact or one too high.
  int rowOf(int i) const {
    int row = static_cast<int>((uint64_t(uint32_t(i)) * reciprocal) >> 32);
    return row * width > i ? row - 1 : row;
  }
  unsigned presence(int i) const {
    const int row = rowOf(i);
    const int column = i - row * width;
    unsigned m = 0xFF;
    if (column == 0) m &= ~unsigned(BAND_LEFT | BAND_UPPER_LEFT | BAND_LOWER_LEFT);
    if (row == 0) m &= ~unsigned(BAND_UPPER_LEFT | BAND_UPPER | BAND_UPPER_RIGHT);
    if (column == width - 1) m &= ~unsigned(BAND_UPPER_RIGHT | BAND_RIGHT | BAND_LOWER_RIGHT);
    if (row == height - 1) m &= ~unsigned(BAND_LOWER_RIGHT | BAND_LOWER | BAND_LOWER_LEFT);
    return m;
  }
  int head(int i, int k) const { return i + step[k]; }
  int arc(int i, int k) const { return k < 4 ? 8 * i + 2 * k : 8 * (i + step[k]) + 2 * k - 7; }
  // All eight at once (meaningful where presence(i) has the bit).
  void neighbours(int i, int arcs[8], int heads[8]) const {
    for (int k = 0; k < 8; ++k) {
      heads[k] = i + step[k];
      arcs[k] = k < 4 ? 8 * i + 2 * k : 8 * heads[k] + 2 * k - 7;
    }
  }
  // Head of any arc, from its index alone.
  int head(int a) const { return ((a + 1) >> 3) + offsets[(a + 1) & 7]; }
};

// Band: indices from the neighbour tables.
struct BandGrid {
  const BandNeighbours* node;

  unsigned presence(int i) const { return node[i].present; }
  // Left and right are the next nodes; a diagonal or vertical neighbour is
  // its row's base plus the present neighbours before it in that row.
  int head(int i, int k) const {
    const BandNeighbours& n = node[i];
    const unsigned m = n.present;
    switch (k) {
      case 0: return i - 1;
      case 1: return n.baseUp;
      case 2: return n.baseUp + ((m >> 1) & 1);
      case 3: return n.baseUp + ((m >> 1) & 1) + ((m >> 2) & 1);
      case 4: return i + 1;
      case 5: return n.baseDown + ((m >> 7) & 1) + ((m >> 6) & 1);
      case 6: return n.baseDown + ((m >> 7) & 1);
      default: return n.baseDown;
    }
  }
  int arc(int i, int k) const { return k < 4 ? 8 * i + 2 * k : 8 * head(i, k) + 2 * k - 7; }
  // All eight at once (meaningful where presence(i) has the bit).
  void neighbours(int i, int arcs[8], int heads[8]) const {
    const BandNeighbours n = node[i];
    const unsigned m = n.present;
    const int upper = n.baseUp + ((m >> 1) & 1), lowerLeftCount = (m >> 7) & 1;
    heads[0] = i - 1;
    heads[1] = n.baseUp;
    heads[2] = upper;
    heads[3] = upper + ((m >> 2) & 1);
    heads[4] = i + 1;
    heads[7] = n.baseDown;
    heads[6] = n.baseDown + lowerLeftCount;
    heads[5] = n.baseDown + lowerLeftCount + ((m >> 6) & 1);
    for (int k = 0; k < 8; ++k) arcs[k] = k < 4 ? 8 * i + 2 * k : 8 * heads[k] + 2 * k - 7;
  }
  // Head of any arc: an odd arc points back to its owner, an even one to the
  // owner's neighbour in its slot.
  int head(int a) const { return (a & 1) ? a >> 3 : head(a >> 3, (a >> 1) & 3); }
};

// The grids of a graph.
inline WholeGrid wholeGridOf(const KORUSEGraph& g) { return WholeGrid(g.width, g.height, g.neighbourOffsetTable); }
inline BandGrid bandGridOf(const KORUSEGraph& g) { return BandGrid{g.band->node}; }

// Node i's eight arcs in visiting order, NO_CANDIDATE where there is none.
template <class Grid>
void arcsOf(const Grid& grid, int i, int arcs[8]) {
  const unsigned m = grid.presence(i);
  for (int k = 0; k < 8; ++k) arcs[k] = ((m >> k) & 1) ? grid.arc(i, k) : NO_CANDIDATE;
}
