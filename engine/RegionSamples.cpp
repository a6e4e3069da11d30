#include "engine/RegionSamples.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "colormodel/PackedSample.h"
#include "engine/KORUSEHybrid.h"
#include "interface/session/KORUSEMarker.h"
#include "support/ImageRows.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"

void regionSample(const KORUSEHybrid& engine, int r, int c, uint8_t sample[3]) {
  const uint8_t* p = imagePixel(engine.m_roiImage, c, r);
  sample[0] = p[0];
  if (!KORUSEMarker::m_isGreyScale) {
    sample[1] = p[1];
    sample[2] = p[2];
    return;
  }
  const int x = KORUSEMarker::m_xMinBBox + c, y = KORUSEMarker::m_yMinBBox + r;
  sample[1] = *imagePixel(KORUSEMarker::m_texHor, x, y);
  sample[2] = *imagePixel(KORUSEMarker::m_texVer, x, y);
}

DataTerm sampleDataTerm(const KORUSEColorModel& fg, const KORUSEColorModel& bg, bool grey,
                        const uint8_t sample[3]) {
  const pixelVal x{{double(sample[0]), double(sample[1]), double(sample[2])}};
  return dataTermOfDensities(fg.GMMProb(x), bg.GMMProb(x), grey);
}

RegionSamples::~RegionSamples() { release(); }

void RegionSamples::release() {
  if (m_sampleOf) KORU_Free_Msg(m_sampleOf, LOG_SITE_HERE("RegionSamples"));
  if (m_samples) KORU_Free_Msg(m_samples, LOG_SITE_HERE("RegionSamples"));
  if (m_evaluations) KORU_Free_Msg(m_evaluations, LOG_SITE_HERE("RegionSamples"));
  if (m_evaluatedIn) KORU_Free_Msg(m_evaluatedIn, LOG_SITE_HERE("RegionSamples"));
  m_sampleOf = nullptr;
  m_samples = nullptr;
  m_evaluations = nullptr;
  m_evaluatedIn = nullptr;
  m_distinct = 0;
  m_following = false;
}

namespace {
// The distinct samples found so far, by open addressing with linear
// probing: a slot holds a sample's index + 1, 0 when free. Kept at most
// half full; it starts at twice the region's pixels rounded up to a power
// of two, between 16 and 64 K slots, and doubles whenever the distinct
// colours fill half of it.
class SampleTable {
 public:
  ~SampleTable() {
    if (m_slots) KORU_Free_Msg(m_slots, LOG_SITE_HERE("RegionSamples"));
  }
  bool reserve(std::size_t samples) {
    m_bits = 4;
    while (m_bits < 16 && (std::size_t(1) << m_bits) < 2 * samples) ++m_bits;
    return allocate();
  }
  // Index of `key` among samples[0 .. distinct), added at the end when new;
  // -1 when the table could not grow.
  int32_t find(uint32_t key, uint32_t* samples, int32_t& distinct) {
    uint32_t slot = slotOf(key);
    while (m_slots[slot] != 0 && samples[m_slots[slot] - 1] != key) slot = (slot + 1) & m_mask;
    if (m_slots[slot] != 0) return m_slots[slot] - 1;
    samples[distinct] = key;
    m_slots[slot] = ++distinct;
    if (std::size_t(2) * distinct > m_mask && !grow(samples, distinct)) return -1;
    return distinct - 1;
  }

 private:
  // Fibonacci hashing of a 24-bit sample.
  uint32_t slotOf(uint32_t key) const { return (key * 2654435761u) >> (32 - m_bits); }
  bool allocate() {
    m_slots = static_cast<int32_t*>(KORU_Calloc_Msg(std::size_t(1) << m_bits, sizeof(int32_t), LOG_SITE_HERE("RegionSamples")));
    m_mask = (uint32_t(1) << m_bits) - 1;
    return m_slots != nullptr;
  }
  bool grow(const uint32_t* samples, int32_t distinct) {
    KORU_Free_Msg(m_slots, LOG_SITE_HERE("RegionSamples"));
    ++m_bits;
    if (!allocate()) return false;
    for (int32_t i = 0; i < distinct; ++i) {
      uint32_t slot = slotOf(samples[i]);
      while (m_slots[slot] != 0) slot = (slot + 1) & m_mask;
      m_slots[slot] = i + 1;
    }
    return true;
  }

  int32_t* m_slots = nullptr;
  uint32_t m_mask = 0;
  int m_bits = 0;
};
}  // namespace

namespace {
bool is8Bit(const IplImage* image, int channels) {
  return image && image->depth == IPL_DEPTH_8U && image->nChannels >= channels && image->imageData;
}

// The region's samples can be read: the crop of the region's size, and in
// grey mode texture planes that cover the region where it lies.
bool readableRegion(const KORUSEHybrid& engine) {
  const int w = engine.m_roiWidth, h = engine.m_roiHeight;
  const IplImage* image = engine.m_roiImage;
  if (w < 1 || h < 1 || !is8Bit(image, 3) || image->width != w || image->height != h) return false;
  if (!KORUSEMarker::m_isGreyScale) return true;
  const int x0 = KORUSEMarker::m_xMinBBox, y0 = KORUSEMarker::m_yMinBBox;
  for (const IplImage* plane : {KORUSEMarker::m_texHor, KORUSEMarker::m_texVer})
    if (!is8Bit(plane, 1) || x0 < 0 || y0 < 0 || x0 + w > plane->width || y0 + h > plane->height) return false;
  return true;
}
}  // namespace

bool RegionSamples::index(const KORUSEHybrid& engine) {
  release();
  const int w = engine.m_roiWidth, h = engine.m_roiHeight;
  if (!readableRegion(engine)) return false;
  const size_t n = static_cast<size_t>(w) * h;
  SampleTable table;
  m_sampleOf = static_cast<int32_t*>(KORU_Malloc_Msg(n * sizeof(int32_t), LOG_SITE_HERE("RegionSamples")));
  m_samples = static_cast<uint32_t*>(KORU_Malloc_Msg(n * sizeof(uint32_t), LOG_SITE_HERE("RegionSamples")));
  if (!table.reserve(n) || !m_sampleOf || !m_samples) {
    release();
    return false;
  }
  int32_t distinct = 0;
  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) {
      uint8_t s[3];
      regionSample(engine, r, c, s);
      const int32_t i = table.find(packSample(s[0], s[1], s[2]), m_samples, distinct);
      if (i < 0) {
        release();
        return false;
      }
      m_sampleOf[size_t(r) * w + c] = i;
    }
  m_evaluations = static_cast<Evaluation*>(KORU_Malloc_Msg(distinct * sizeof(Evaluation), LOG_SITE_HERE("RegionSamples")));
  m_evaluatedIn = static_cast<uint8_t*>(KORU_Calloc_Msg(distinct, sizeof(uint8_t), LOG_SITE_HERE("RegionSamples")));
  if (!m_evaluations || !m_evaluatedIn) {
    release();
    return false;
  }
  m_distinct = distinct;
  m_grey = KORUSEMarker::m_isGreyScale;
  m_generation = 0;
  return true;
}

void RegionSamples::follow(const KORUSEColorModel& fg, const KORUSEColorModel& bg) {
  if (m_following && std::memcmp(&fg, &m_fg, sizeof fg) == 0 && std::memcmp(&bg, &m_bg, sizeof bg) == 0)
    return;
  m_fg = fg;
  m_bg = bg;
  m_fgPacked = PackedComponents(fg);
  m_bgPacked = PackedComponents(bg);
  m_following = true;
  if (++m_generation == 0) {  // wrapped: forget every stamp
    std::memset(m_evaluatedIn, 0, m_distinct);
    m_generation = 1;
  }
}

void RegionSamples::evaluate(int32_t s) {
  const pixelVal x = unpackSample(m_samples[s]);
  int objectComponent, backgroundComponent;
  const double objectDensity = densityAndNearest(m_fgPacked, x, &objectComponent);
  const double backgroundDensity = densityAndNearest(m_bgPacked, x, &backgroundComponent);
  Evaluation& e = m_evaluations[s];
  e.capacities = terminalCapacities(dataTermOfDensities(objectDensity, backgroundDensity, m_grey));
  e.objectComponent = static_cast<uint8_t>(objectComponent);
  e.backgroundComponent = static_cast<uint8_t>(backgroundComponent);
  m_evaluatedIn[s] = m_generation;
}
