// The colour test of a labelling's object (intensityTest): the mean colour
// distance between 8-neighbours across its boundary against the mean inside
// it. optimalLamda asks it of three labellings of one region image, so their
// sums are made in one pass (contrastSumsOfMasks); contrastSums is the plain
// computation they must match bit for bit.
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

// contrastSums of several masks of one image (each of the image's size) in
// one pass: a pair's distance is computed once for all the masks that need
// it, and each mask's sums are accumulated in contrastSums' order, so they
// are its sums bit for bit. At most kMaxSharedMasks masks.
constexpr int kMaxSharedMasks = 8;
void contrastSumsOfMasks(const IplImage* const* masks, int count, const IplImage* image, ContrastSums* sums);
