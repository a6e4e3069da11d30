// How the search finds a node's eight arcs and an arc's head, for the two
// kinds of grid. Both give the same arcs in the same visiting order, so a
// band graph is searched exactly as its box would be: the pixels outside the
// band have no edges and no terminal capacity there, and are never visited.
#pragma once

#include <cstdint>

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
struct BandTopology {
  uint8_t* present;    // per node: BandDirection bits of the neighbours in the band
  int32_t* baseUp;     // per node
  int32_t* baseDown;   // per node
  int32_t* rowStart;   // per grid row, and one past the last: first node of the row
  int32_t* columns;    // per node: its column, for nodeAt and the block-free checks
  int32_t nodes;       // band pixels
};

// Whole grid: indices by arithmetic.
struct WholeGrid {
  WholeGrid(int32_t width, int32_t height, const int32_t* offsets)
      : width(width), height(height), offsets(offsets),
        reciprocal(width > 0 ? ((uint64_t(1) << 32) + uint64_t(width) - 1) / uint64_t(width) : 0) {}
  int32_t width, height;
  const int32_t* offsets;  // neighbourOffsetTable
  uint64_t reciprocal;     // ceil(2^32 / width): row = i / width by a multiply

  // i / width for 0 <= i < 2^31: the product overshoots i / width by less
  // than one half, so the quotient is exact or one too high.
  int rowOf(int i) const {
    int row = static_cast<int>((uint64_t(uint32_t(i)) * reciprocal) >> 32);
    return row * width > i ? row - 1 : row;
  }

  // Node i's eight arcs in visiting order and the nodes they lead to;
  // NO_CANDIDATE for both where the direction leaves the grid.
  void neighbours(int i, int arcs[8], int heads[8]) const {
    const int row = rowOf(i);
    const int column = i - row * width;
    const bool left = column > 0, right = column < width - 1;
    const bool up = row > 0, down = row < height - 1;
    const bool present[8] = {left, left && up, up, up && right, right, right && down, down, down && left};
    const int node[8] = {i - 1, i - width - 1, i - width, i - width + 1,
                         i + 1, i + width + 1, i + width, i + width - 1};
    for (int k = 0; k < 8; ++k) {
      // Slots 0-3 are i's own edges (even arcs leave i); 4-7 belong to the
      // neighbour, whose odd arc of the mirrored slot leads back to it.
      const int arc = k < 4 ? 8 * i + 2 * k : 8 * node[k] + 2 * (k - 4) + 1;
      arcs[k] = present[k] ? arc : NO_CANDIDATE;
      heads[k] = present[k] ? node[k] : NO_CANDIDATE;
    }
  }
  int head(int a) const { return ((a + 1) >> 3) + offsets[(a + 1) & 7]; }
};

// Band: indices from the neighbour tables.
struct BandGrid {
  const uint8_t* present;
  const int32_t* baseUp;
  const int32_t* baseDown;

  void neighbours(int i, int arcs[8], int heads[8]) const {
    const unsigned m = present[i];
    const int upperLeft = baseUp[i];
    const int upper = upperLeft + ((m & BAND_UPPER_LEFT) ? 1 : 0);
    const int upperRight = upper + ((m & BAND_UPPER) ? 1 : 0);
    const int lowerLeft = baseDown[i];
    const int lower = lowerLeft + ((m & BAND_LOWER_LEFT) ? 1 : 0);
    const int lowerRight = lower + ((m & BAND_LOWER) ? 1 : 0);
    const int node[8] = {i - 1, upperLeft, upper, upperRight, i + 1, lowerRight, lower, lowerLeft};
    for (int k = 0; k < 8; ++k) {
      const bool here = (m >> k) & 1;
      const int arc = k < 4 ? 8 * i + 2 * k : 8 * node[k] + 2 * (k - 4) + 1;
      arcs[k] = here ? arc : NO_CANDIDATE;
      heads[k] = here ? node[k] : NO_CANDIDATE;
    }
  }
  // An odd arc points back to its owner; an even one to the owner's
  // neighbour in its slot.
  int head(int a) const {
    const int owner = a >> 3;
    if (a & 1) return owner;
    switch ((a >> 1) & 3) {
      case 0:
        return owner - 1;
      case 1:
        return baseUp[owner];
      case 2:
        return baseUp[owner] + ((present[owner] & BAND_UPPER_LEFT) ? 1 : 0);
      default:
        return baseUp[owner] + ((present[owner] & BAND_UPPER_LEFT) ? 1 : 0) +
               ((present[owner] & BAND_UPPER) ? 1 : 0);
    }
  }
};
