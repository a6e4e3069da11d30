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

NeighbourDistances::~NeighbourDistances() {
  if (m_distances) KORU_Free_Msg(m_distances, "NeighbourDistances", __LINE__);
}

bool NeighbourDistances::compute(const IplImage* image) {
  if (m_distances) KORU_Free_Msg(m_distances, "NeighbourDistances", __LINE__);
  m_distances = nullptr;
  if (!image || image->depth != IPL_DEPTH_8U || image->nChannels != 3 || image->width < 1 ||
      image->height < 1)
    return false;
  const int w = image->width, h = image->height;
  m_distances = static_cast<float*>(
      KORU_Calloc_Msg(static_cast<size_t>(w) * h * 4, sizeof(float), "NeighbourDistances", __LINE__));
  if (!m_distances) return false;
  m_width = w;
  m_height = h;
  // Row 0 has no upper neighbours and its left ones are never asked for.
  for (int y = 1; y < h; ++y) {
    const uint8_t* row = imageRow(image, y);
    const uint8_t* up = imageRow(image, y - 1);
    float* d = m_distances + static_cast<size_t>(y) * w * 4;
    for (int x = 0; x < w; ++x, d += 4) {
      const uint8_t* p = row + 3 * x;
      if (x > 0) {
        d[0] = colourDistanceExact(p, p - 3);
        d[1] = colourDistanceExact(p, up + 3 * (x - 1));
      }
      d[2] = colourDistanceExact(p, up + 3 * x);
      if (x < w - 1) d[3] = colourDistanceExact(p, up + 3 * (x + 1));
    }
  }
  return true;
}

ContrastSums NeighbourDistances::sums(const IplImage* mask) const {
  ContrastSums s;
  if (!m_distances || !mask || mask->width != m_width || mask->height != m_height || m_width < 3 ||
      m_height < 3)
    return s;
  const size_t stride = static_cast<size_t>(m_width) * 4;
  for (int y = 1; y < m_height - 1; ++y) {
    const uint8_t* above = imageRow(mask, y - 1);
    const uint8_t* here = imageRow(mask, y);
    const uint8_t* below = imageRow(mask, y + 1);
    for (int x = 1; x < m_width - 1; ++x) {
      if (here[x] != kObject) continue;
      // The distance is symmetric: a pair seen from the other pixel is
      // that pixel's entry towards this one.
      const float* own = m_distances + y * stride + 4 * x;
      const float* next = own + stride;  // the pixel below
      addPair(s, above[x - 1] == kObject, own[1]);
      addPair(s, above[x] == kObject, own[2]);
      addPair(s, above[x + 1] == kObject, own[3]);
      addPair(s, here[x - 1] == kObject, own[0]);
      addPair(s, here[x + 1] == kObject, own[4]);        // right: its left entry
      addPair(s, below[x - 1] == kObject, next[-4 + 3]);  // lower-left: its upper-right
      addPair(s, below[x] == kObject, next[2]);           // below: its upper
      addPair(s, below[x + 1] == kObject, next[4 + 1]);   // lower-right: its upper-left
    }
  }
  return s;
}
