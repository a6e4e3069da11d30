// Contrast weights of the whole working image, once per photo: for every
// pixel and its left, upper-left, upper and upper-right neighbour,
// w = exp(-beta * ||colour(p) - colour(q)||^2), diagonals times 1/sqrt(2).
#include <cstdlib>

#include "engine/KORUSEHybrid.h"
#include "engine/SmoothnessTable.h"
#include "interface/session/KORUSEMarker.h"
#include "support/ImageRows.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"

namespace {
inline int squaredDistance(const uint8_t* a, const uint8_t* b) {
  const int d0 = a[0] - b[0], d1 = a[1] - b[1], d2 = a[2] - b[2];
  return d0 * d0 + d1 * d1 + d2 * d2;
}

// beta = pairs / (2 * sum of squared distances over all 8-neighbour pairs).
// The sum wraps in 32 bits like the phone build's; a sum below 1 gives 0.
double contrastBeta(const IplImage* image) {
  const int w = image->width, h = image->height;
  uint32_t sum = 0;  // wrapping integer sum: the order of the pairs does not matter
  for (int y = 0; y < h; ++y) {
    const uint8_t* row = imageRow(image, y);
    const uint8_t* up = y > 0 ? imageRow(image, y - 1) : nullptr;
    for (int x = 0; x < w; ++x) {
      const uint8_t* p = row + 3 * x;
      if (x > 0) sum += static_cast<uint32_t>(squaredDistance(p, p - 3));
      if (!up) continue;
      if (x > 0) sum += static_cast<uint32_t>(squaredDistance(p, up + 3 * (x - 1)));
      sum += static_cast<uint32_t>(squaredDistance(p, up + 3 * x));
      if (x < w - 1) sum += static_cast<uint32_t>(squaredDistance(p, up + 3 * (x + 1)));
    }
  }
  const int32_t s = static_cast<int32_t>(sum);
  if (w < 1 || h < 1 || s < 1) return 0.0;
  const double pairs = 4.0 * w * h - 3.0 * w - 3.0 * h + 2.0;
  return pairs / (2.0 * s);
}

inline float diagonal(float weight) { return static_cast<float>(weight * double(kDiagonalFactor)); }
}  // namespace

void KORUSEHybrid::computeNlinks() {
  const IplImage* image = KORUSEMarker::m_srcImage;
  m_beta = 0.0;
  if (!image || m_imageWidth < 1 || m_imageHeight < 1) return;
  const int w = m_imageWidth, h = m_imageHeight;
  m_beta = contrastBeta(image);

  m_nlinks = static_cast<float*>(
      KORU_Malloc_Msg(static_cast<size_t>(w) * h * 16, site::computeNlinksWeights));
  float* table = static_cast<float*>(KORU_Malloc_Msg(1024, site::computeNlinksTable));
  if (!m_nlinks || !table) {
    if (table) KORU_Free_Msg(table, site::computeNlinksTableFreed);
    return;
  }
  fillContrastTable(table, m_beta);

  // Slots left, upper-left, upper, upper-right; a neighbour outside the
  // image gives 0 (row 0 has only left neighbours).
  for (int y = 0; y < h; ++y) {
    const uint8_t* row = imageRow(image, y);
    const uint8_t* up = y > 0 ? imageRow(image, y - 1) : nullptr;
    float* slots = m_nlinks + 4 * static_cast<size_t>(y) * w;
    for (int x = 0; x < w; ++x, slots += 4) {
      const uint8_t* p = row + 3 * x;
      slots[0] = x > 0 ? contrastWeight(table, p, p - 3) : 0.0f;
      if (!up) {
        slots[1] = slots[2] = slots[3] = 0.0f;
        continue;
      }
      slots[1] = x > 0 ? diagonal(contrastWeight(table, p, up + 3 * (x - 1))) : 0.0f;
      slots[2] = contrastWeight(table, p, up + 3 * x);
      slots[3] = x < w - 1 ? diagonal(contrastWeight(table, p, up + 3 * (x + 1))) : 0.0f;
    }
  }
  KORU_Free_Msg(table, site::computeNlinksTableFreed);
}
