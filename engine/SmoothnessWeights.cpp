// Contrast weights of the whole working image, once per photo: for every
// pixel and its left, upper-left, upper and upper-right neighbour,
// w = exp(-beta * ||colour(p) - colour(q)||^2), diagonals times 1/sqrt(2).
#include <cstdlib>

#include "engine/KORUSEHybrid.h"
#include "engine/RegionGraph.h"
#include "engine/SmoothnessTable.h"
#include "interface/KORUSEMarker.h"
#include "support/KORUMemory.h"
#include "support/ImageRows.h"

namespace {
inline int squaredDistance(const uint8_t* a, const uint8_t* b) {
  const int d0 = a[0] - b[0], d1 = a[1] - b[1], d2 = a[2] - b[2];
  return d0 * d0 + d1 * d1 + d2 * d2;
}

// beta = pairs / (2 * sum of squared distances over all 8-neighbour pairs).
// The sum wraps in 32 bits like the phone build's; a sum below 1 gives 0.
double contrastBeta(const IplImage* image) {
  const int w = image->width, h = image->height;
  uint32_t sum = 0;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int s = 0; s < 4; ++s) {
        const int nx = x + kSlotDx[s], ny = y + kSlotDy[s];
        if (nx >= 0 && nx < w && ny >= 0)
          sum += static_cast<uint32_t>(squaredDistance(imagePixel(image, x, y), imagePixel(image, nx, ny)));
      }
  const int32_t s = static_cast<int32_t>(sum);
  if (w < 1 || h < 1 || s < 1) return 0.0;
  const double pairs = 4.0 * w * h - 3.0 * w - 3.0 * h + 2.0;
  return pairs / (2.0 * s);
}
}  // namespace

void KORUSEHybrid::computeNlinks() {
  const IplImage* image = KORUSEMarker::m_srcImage;
  m_beta = 0.0;
  if (!image || m_imageWidth < 1 || m_imageHeight < 1) return;
  const int w = m_imageWidth, h = m_imageHeight;
  m_beta = contrastBeta(image);

  m_nlinks = static_cast<float*>(
      KORU_Malloc_Msg(static_cast<size_t>(w) * h * 16, "computeNlinks", 503));
  float* table = static_cast<float*>(KORU_Malloc_Msg(1024, "computeNlinks", 509));
  if (!m_nlinks || !table) {
    if (table) KORU_Free_Msg(table, "computeNlinks", 651);
    return;
  }
  fillContrastTable(table, m_beta);

  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* slots = m_nlinks + 4 * (static_cast<size_t>(y) * w + x);
      const uint8_t* p = imagePixel(image, x, y);
      for (int s = 0; s < 4; ++s) {
        const int nx = x + kSlotDx[s], ny = y + kSlotDy[s];
        if (nx < 0 || nx >= w || ny < 0) {
          slots[s] = 0.0f;
          continue;
        }
        const float weight = contrastWeight(table, p, imagePixel(image, nx, ny));
        slots[s] = (s == 1 || s == 3) ? static_cast<float>(weight * double(kDiagonalFactor)) : weight;
      }
    }
  KORU_Free_Msg(table, "computeNlinks", 651);
}
