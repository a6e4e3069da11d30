// The contrast term shared by the region graph and the boundary band graph:
// exp(-beta * d^2) per channel difference d, from a 256-entry table so that no
// exponential is computed per pixel.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>

// 1/sqrt(2): diagonal neighbours are that much further. The working-size
// weights use it in single precision; the band graph has always used this
// slightly different double, and its cuts are known with it.
constexpr float kDiagonalFactor = 0.70710677f;
constexpr double kBandDiagonalFactor = 0.7071067932881648;

// table[d] = expf(-(d * d) * beta) for d = 0 .. 255 (product in double).
inline void fillContrastTable(float* table, double beta) {
  for (int d = 0; d < 256; ++d) table[d] = expf(static_cast<float>(-(d * d) * beta));
}

// scale * exp(-beta * ||a - b||^2) as three look-ups on the channel
// differences, multiplied left to right in Real: the band graph scales its
// upper edges in double and its diagonals in float.
template <typename Real>
inline Real scaledContrast(Real scale, const float* table, const uint8_t* a, const uint8_t* b) {
  return scale * table[std::abs(a[0] - b[0])] * table[std::abs(a[1] - b[1])] * table[std::abs(a[2] - b[2])];
}

// exp(-beta * ||a - b||^2) as three look-ups on the channel differences.
inline float contrastWeight(const float* table, const uint8_t* a, const uint8_t* b) {
  return table[std::abs(a[0] - b[0])] * table[std::abs(a[1] - b[1])] * table[std::abs(a[2] - b[2])];
}
