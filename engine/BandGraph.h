// The refinement's band graph, built from a picture of the band: its box,
// the trimap values inside it as runs, the colours and (grey images) the
// texture values. Only the band's pixels become nodes; everything outside it
// would have had no edge and no terminal capacity anyway.
//
// Two pictures give the same graph: one made from crops of the full-size
// trimap, image and textures (constructGraphTrimapKORU), and one read from
// the working-size trimap through the nearest-neighbour maps, straight from
// the full-size image (intelligentUpscaling), so that no full-size work image
// is made.
#pragma once

#include <opencv2/core/core_c.h>

#include <cstdint>
#include <vector>

#include "graph/BandRuns.h"

class KORUSEHybrid;

// Trimap values.
constexpr uint8_t kTrimapBand = 0;       // decided by the cut
constexpr uint8_t kTrimapOuterRing = 1;  // hard background
constexpr uint8_t kTrimapInnerRing = 2;  // hard object
constexpr uint8_t kTrimapLeftOut = 7;    // deep inside or outside: not in the graph

// What the band graph makes of the two rings of hard labels around the band.
//
// A ring pixel's terminal capacity is 1000, while all its edges together
// carry at most 6.83 times the smoothness weight (at most 50): no cut
// separates it from its terminal, so it is that terminal as far as the cut
// is concerned. Merged, the rings are not nodes: a band pixel's edges to
// the inner ring are added to its source capacity, those to the outer ring
// to its sink capacity, and edges between ring pixels go. The band's
// minimum cut is the same; the graph has a third of the nodes.
enum class BandRings {
  kept,    // every ring pixel a node: the graph as the band cut defines it
  merged,  // the rings merged into the terminals: what the refinement cuts
};

// Consecutive pixels of one row with one trimap value (never kTrimapLeftOut).
struct TrimapSegment {
  int32_t begin, end;  // columns of the box, end exclusive
  uint8_t value;
};

struct BandPicture {
  int width = 0, height = 0;                // the box
  std::vector<int32_t> rowFirstSegment;     // per row, and one past the last
  std::vector<TrimapSegment> segments;      // left to right within a row
  const IplImage* image = nullptr;          // 8-bit, 3 channels: box pixel (x, y) at
  int imageX = 0, imageY = 0;               //   (imageX + x, imageY + y)
  const IplImage* texHor = nullptr;         // grey images: texture of box pixel (x, y) at
  const IplImage* texVer = nullptr;         //   (texColumn[x], texRow[y]); null for colour
  std::vector<int32_t> texColumn, texRow;

  // The pixels of the graph: every pixel of the picture, or (merged rings)
  // the band's only.
  BandRuns runs(BandRings rings) const;
  // Per row, and one past the last: how many band pixels (value
  // kTrimapBand) come before it, i.e. its first band pixel's node with the
  // rings merged.
  std::vector<int32_t> firstBandPixelOfRow() const;
};

// Builds engine.m_trimapGraph from the picture: terminal capacities and
// edges as the band cut defines them, with the rings kept or merged. Its
// nodes are the picture's pixels (kept) or band pixels (merged) in raster
// order. The merged build shares its rows out among up to `threads`
// threads. 0 when built; 1 when the graph's storage is missing, 2 when the
// contrast table is.
int buildBandGraph(KORUSEHybrid& engine, const BandPicture& band, BandRings rings, int threads = 1);

// The band pixels' sides as their data terms alone give them, one byte per
// band pixel in raster order (1: background): where the search's first trees
// put them, and so the cut a cancel before the search leaves. Sink side
// where the sink capacity is the larger; a tie leaves the pixel free, which
// reads as object. Rows shared out among up to `threads` threads.
std::vector<uint8_t> bandSidesOfDataTerms(const KORUSEHybrid& engine, const BandPicture& band, int threads);

// The picture of trimap, image and texture crops of the box's size.
BandPicture pictureOfCrops(const IplImage* image, const IplImage* trimap, const IplImage* texHor,
                           const IplImage* texVer);
