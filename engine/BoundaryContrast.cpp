#include "engine/BoundaryContrast.h"

#include <cmath>

#include "support/ImageRows.h"
#include "support/KORUMemory.h"

namespace {
const uint8_t kObject = 255;

// Euclidean colour distance: differences and squares in double, the square
// root in float.
inline float colourDistance(const uint8_t* a, const uint8_t* b) {
  const double d0 = a[0] - b[0], d1 = a[1] - b[1], d2 = a[2] - b[2];
  return std::sqrt(static_cast<float>(d0 * d0 + d1 * d1 + d2 * d2));
}

// The same distance from integer arithmetic: the squares and their sum are
// exact in double, so converting the integer sum gives the same float.
inline float colourDistanceExact(const uint8_t* a, const uint8_t* b) {
  const int d0 = a[0] - b[0], d1 = a[1] - b[1], d2 = a[2] - b[2];
  return std::sqrt(static_cast<float>(d0 * d0 + d1 * d1 + d2 * d2));
}

inline void addPair(ContrastSums& s, bool inside, float d) {
  if (inside) {
    s.inner += d;
    ++s.innerCount;
  } else {
    s.border += d;
    ++s.borderCount;
  }
}

bool usable(const IplImage* mask, const IplImage* image) {
  return mask && image && mask->width >= 3 && mask->height >= 3;
}
}  // namespace

ContrastSums contrastSums(const IplImage* mask, const IplImage* image) {
  ContrastSums s;
  if (!usable(mask, image)) return s;
  for (int y = 1; y < mask->height - 1; ++y)
    for (int x = 1; x < mask->width - 1; ++x) {
      if (imageRow(mask, y)[x] != kObject) continue;
      const uint8_t* c = imageRow(image, y) + 3 * x;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
          if (!dx && !dy) continue;
          const uint8_t* n = imageRow(image, y + dy) + 3 * (x + dx);
          addPair(s, imageRow(mask, y + dy)[x + dx] == kObject, colourDistance(c, n));
        }
    }
  return s;
}

int contrastVerdict(const ContrastSums& s) {
  if (s.innerCount == 0 || s.borderCount == 0) return 2;
  return s.border / s.borderCount - s.inner / s.innerCount >= 0.0 ? 1 : 2;
}

void contrastSumsOfMasks(const IplImage* const* masks, int count, const IplImage* image, ContrastSums* sums) {
  for (int k = 0; k < count; ++k) sums[k] = ContrastSums();
  if (count < 1 || count > kMaxSharedMasks || !usable(masks[0], image)) return;
  const int w = masks[0]->width, h = masks[0]->height;
  for (int k = 1; k < count; ++k)
    if (!masks[k] || masks[k]->width != w || masks[k]->height != h) return;
  for (int y = 1; y < h - 1; ++y) {
    const uint8_t* colours[3] = {imageRow(image, y - 1), imageRow(image, y), imageRow(image, y + 1)};
    const uint8_t* rows[kMaxSharedMasks][3];
    for (int k = 0; k < count; ++k)
      for (int r = 0; r < 3; ++r) rows[k][r] = imageRow(masks[k], y - 1 + r);
    for (int x = 1; x < w - 1; ++x) {
      unsigned inside = 0;  // bit k: an object pixel of mask k
      for (int k = 0; k < count; ++k) inside |= unsigned(rows[k][1][x] == kObject) << k;
      if (!inside) continue;
      // The eight neighbours in contrastSums' order: the row above left to
      // right, left, right, the row below left to right.
      const uint8_t* c = colours[1] + 3 * x;
      const float d[8] = {colourDistanceExact(c, colours[0] + 3 * (x - 1)), colourDistanceExact(c, colours[0] + 3 * x),
                          colourDistanceExact(c, colours[0] + 3 * (x + 1)), colourDistanceExact(c, c - 3),
                          colourDistanceExact(c, c + 3),                     colourDistanceExact(c, colours[2] + 3 * (x - 1)),
                          colourDistanceExact(c, colours[2] + 3 * x),       colourDistanceExact(c, colours[2] + 3 * (x + 1))};
      for (int k = 0; k < count; ++k) {
        if (!(inside >> k & 1)) continue;
        const uint8_t* const* m = rows[k];
        ContrastSums& s = sums[k];
        addPair(s, m[0][x - 1] == kObject, d[0]);
        addPair(s, m[0][x] == kObject, d[1]);
        addPair(s, m[0][x + 1] == kObject, d[2]);
        addPair(s, m[1][x - 1] == kObject, d[3]);
        addPair(s, m[1][x + 1] == kObject, d[4]);
        addPair(s, m[2][x - 1] == kObject, d[5]);
        addPair(s, m[2][x] == kObject, d[6]);
        addPair(s, m[2][x + 1] == kObject, d[7]);
      }
    }
  }
}
