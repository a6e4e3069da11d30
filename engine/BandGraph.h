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

  // The band's pixels, for the graph.
  BandRuns runs() const;
};

// Builds engine.m_trimapGraph from the picture: terminal capacities and
// edges exactly as the band cut defines them. 0 when built; 1 when the
// graph's storage is missing, 2 when the contrast table is.
int buildBandGraph(KORUSEHybrid& engine, const BandPicture& band);

// The picture of trimap, image and texture crops of the box's size.
BandPicture pictureOfCrops(const IplImage* image, const IplImage* trimap, const IplImage* texHor,
                           const IplImage* texVer);
