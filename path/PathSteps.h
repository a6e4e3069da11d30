// One step of the path search: the neighbour table, what a step costs and
// when the labels block it. Shared by the exported helpers and both
// searches, so the cost is one expression, evaluated in one order, everywhere.
#pragma once

#include <opencv2/core/core_c.h>

#include <cfloat>
#include <cmath>

#include "path/PathSearch.h"
#include "support/ImageRows.h"

namespace path_detail {

// Neighbour table, k = 0..7 counter-clockwise from below right.
constexpr int kRowStep[kPathNeighbours] = {1, 0, -1, -1, -1, 0, 1, 1};
constexpr int kColStep[kPathNeighbours] = {1, 1, 1, 0, -1, -1, -1, 0};
constexpr double kStepLength2[kPathNeighbours] = {2.0, 1.0, 2.0, 1.0, 2.0, 1.0, 2.0, 1.0};

// Turns a sum of three squared channel differences into their mean.
constexpr double kOneThird = 0.3333333333333333;

// Cost of a step that must not be taken (and of an unreached pixel).
constexpr double kNoStep = DBL_MAX;

inline bool inside(const IplImage* image, int r, int c) {
  return r >= 0 && c >= 0 && r < image->height && c < image->width;
}

inline const unsigned char* colourAt(const IplImage* colour, int r, int c) {
  return imageRow(colour, r) + 3LL * c;
}

inline unsigned char labelAt(const IplImage* labels, int r, int c) { return imageRow(labels, r)[c]; }

// Mean squared channel difference of two pixels.
inline double meanSquaredDifference(const unsigned char* a, const unsigned char* b) {
  const int d0 = a[0] - b[0], d1 = a[1] - b[1], d2 = a[2] - b[2];
  return (d0 * d0 + d1 * d1 + d2 * d2) * kOneThird;
}

// sqrt(alpha * d2 + (1 - alpha) * m), written as the blend below: the
// rounding of exactly this expression is part of every result.
inline double stepCost(double m, double d2, double alpha) { return std::sqrt((d2 - m) * alpha + m); }

// 0 for no side, 1 for background (1, 3), 2 for object (2, 4).
inline int sideOf(unsigned char label) {
  if (label == 1 || label == 3) return 1;
  if (label == 2 || label == 4) return 2;
  return 0;
}

// A step between sides: object to background or back. Side 0 never blocks.
inline bool blocks(int side, int otherSide) {
  return side != 0 && otherSide != 0 && otherSide != side;
}

}  // namespace path_detail
