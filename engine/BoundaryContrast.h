// The colour test of a labelling's object (intensityTest): the mean colour
// distance between 8-neighbours across its boundary against the mean inside
// it. optimalLamda asks it of three labellings of one region image, so the
// neighbour distances are computed once and shared (NeighbourDistances);
// contrastSums is the plain computation they must match bit for bit.
#pragma once

#include <opencv2/core/core_c.h>

#include <cstdint>

// Distances summed over the interior object pixels (mask 255, not on the
// frame) and their eight neighbours, in raster order and neighbour order
// (row above left to right, left, right, row below left to right).
struct ContrastSums {
  double inner = 0.0;   // pairs with the neighbour inside the object
  double border = 0.0;  // pairs with the neighbour outside
  int innerCount = 0;
  int borderCount = 0;
};

// Plain: each pair's distance sqrtf(d0^2 + d1^2 + d2^2) computed when
// visited. mask: 8-bit, 1 channel; image: 8-bit, 3 channels, the same
// size. A side below 3 pixels gives all zeros.
ContrastSums contrastSums(const IplImage* mask, const IplImage* image);

// 1 when the mean across the boundary is not below the mean inside, else 2;
// an empty side has no mean and gives 2.
int contrastVerdict(const ContrastSums& sums);

// Every pixel's distance to its left, upper-left, upper and upper-right
// neighbour, the same floats contrastSums computes; the other four
// directions are the neighbours' own entries.
class NeighbourDistances {
 public:
  NeighbourDistances() = default;
  ~NeighbourDistances();
  NeighbourDistances(const NeighbourDistances&) = delete;
  NeighbourDistances& operator=(const NeighbourDistances&) = delete;

  // False when memory is short (the allocator logs it) or the image is not
  // 8-bit with 3 channels. Cost: 4 square roots and 16 bytes per pixel.
  bool compute(const IplImage* image);
  bool ready() const { return m_distances != nullptr; }

  // contrastSums(mask, image) for the image computed; mask of its size.
  ContrastSums sums(const IplImage* mask) const;

 private:
  float* m_distances = nullptr;  // 4 per pixel, raster order
  int m_width = 0;
  int m_height = 0;
};
