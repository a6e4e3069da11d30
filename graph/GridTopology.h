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
  int32_t width, height;
  const int32_t* offsets;  // neighbourOffsetTable

  void arcs(int i, int out[8]) const {
    const int row = i / width;
    const int column = i - row * width;
    const bool left = column > 0, right = column < width - 1;
    const bool up = row > 0, down = row < height - 1;
    out[0] = left ? 8 * i : NO_CANDIDATE;
    out[1] = left && up ? 8 * i + 2 : NO_CANDIDATE;
    out[2] = up ? 8 * i + 4 : NO_CANDIDATE;
    out[3] = up && right ? 8 * i + 6 : NO_CANDIDATE;
    out[4] = right ? 8 * (i + 1) + 1 : NO_CANDIDATE;
    out[5] = right && down ? 8 * (i + width + 1) + 3 : NO_CANDIDATE;
    out[6] = down ? 8 * (i + width) + 5 : NO_CANDIDATE;
    out[7] = down && left ? 8 * (i + width - 1) + 7 : NO_CANDIDATE;
  }
  int head(int a) const { return ((a + 1) >> 3) + offsets[(a + 1) & 7]; }
};

// Band: indices from the neighbour tables.
struct BandGrid {
  const uint8_t* present;
  const int32_t* baseUp;
  const int32_t* baseDown;

  void arcs(int i, int out[8]) const {
    const unsigned m = present[i];
    const int lowerLeft = baseDown[i];
    const int lower = lowerLeft + ((m & BAND_LOWER_LEFT) ? 1 : 0);
    const int lowerRight = lower + ((m & BAND_LOWER) ? 1 : 0);
    out[0] = (m & BAND_LEFT) ? 8 * i : NO_CANDIDATE;
    out[1] = (m & BAND_UPPER_LEFT) ? 8 * i + 2 : NO_CANDIDATE;
    out[2] = (m & BAND_UPPER) ? 8 * i + 4 : NO_CANDIDATE;
    out[3] = (m & BAND_UPPER_RIGHT) ? 8 * i + 6 : NO_CANDIDATE;
    out[4] = (m & BAND_RIGHT) ? 8 * (i + 1) + 1 : NO_CANDIDATE;
    out[5] = (m & BAND_LOWER_RIGHT) ? 8 * lowerRight + 3 : NO_CANDIDATE;
    out[6] = (m & BAND_LOWER) ? 8 * lower + 5 : NO_CANDIDATE;
    out[7] = (m & BAND_LOWER_LEFT) ? 8 * lowerLeft + 7 : NO_CANDIDATE;
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
