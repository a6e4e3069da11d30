#include "engine/RegionDataTerms.h"

#include <cmath>
#include <cstring>

#include "engine/KORUSEHybrid.h"
#include "interface/KORUSEMarker.h"
#include "support/ImageRows.h"
#include "support/KORUMemory.h"

namespace {
// Below this the two log-likelihoods of a grey pixel count as equal.
const float kGreyTieTolerance = 0.0001f;

// Fibonacci hashing of a 24-bit sample into a table of 2^bits slots.
inline uint32_t slotOf(uint32_t key, int bits) { return (key * 2654435761u) >> (32 - bits); }
}  // namespace

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
  if (!grey) return {-std::log(bg.GMMProb(x)), -std::log(fg.GMMProb(x))};
  double a = std::log(bg.GMMProb(x));
  const double b = std::log(fg.GMMProb(x));
  if (static_cast<float>(std::fabs(b - a)) < kGreyTieTolerance) a = b;
  return {-a, -b};
}

RegionDataTerms::~RegionDataTerms() { release(); }

void RegionDataTerms::release() {
  if (m_sampleOf) KORU_Free_Msg(m_sampleOf, "RegionDataTerms", __LINE__);
  if (m_samples) KORU_Free_Msg(m_samples, "RegionDataTerms", __LINE__);
  if (m_terms) KORU_Free_Msg(m_terms, "RegionDataTerms", __LINE__);
  if (m_evaluatedIn) KORU_Free_Msg(m_evaluatedIn, "RegionDataTerms", __LINE__);
  m_sampleOf = nullptr;
  m_samples = nullptr;
  m_terms = nullptr;
  m_evaluatedIn = nullptr;
  m_following = false;
}

bool RegionDataTerms::index(const KORUSEHybrid& engine) {
  release();
  const int w = engine.m_roiWidth, h = engine.m_roiHeight;
  if (!engine.m_roiImage || w < 1 || h < 1) return false;
  const size_t n = static_cast<size_t>(w) * h;
  int bits = 4;
  while ((size_t(1) << bits) < 2 * n) ++bits;
  // Open addressing, linear probing; a slot holds its sample's index + 1.
  auto* table = static_cast<int32_t*>(KORU_Calloc_Msg(size_t(1) << bits, sizeof(int32_t), "RegionDataTerms", __LINE__));
  m_sampleOf = static_cast<int32_t*>(KORU_Malloc_Msg(n * sizeof(int32_t), "RegionDataTerms", __LINE__));
  m_samples = static_cast<uint32_t*>(KORU_Malloc_Msg(n * sizeof(uint32_t), "RegionDataTerms", __LINE__));
  if (!table || !m_sampleOf || !m_samples) {
    if (table) KORU_Free_Msg(table, "RegionDataTerms", __LINE__);
    release();
    return false;
  }
  const uint32_t mask = (uint32_t(1) << bits) - 1;
  int32_t distinct = 0;
  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) {
      uint8_t s[3];
      regionSample(engine, r, c, s);
      const uint32_t key = s[0] | uint32_t(s[1]) << 8 | uint32_t(s[2]) << 16;
      uint32_t slot = slotOf(key, bits);
      while (table[slot] != 0 && m_samples[table[slot] - 1] != key) slot = (slot + 1) & mask;
      if (table[slot] == 0) {
        m_samples[distinct] = key;
        table[slot] = ++distinct;
      }
      m_sampleOf[size_t(r) * w + c] = table[slot] - 1;
    }
  KORU_Free_Msg(table, "RegionDataTerms", __LINE__);
  m_terms = static_cast<TerminalCapacities*>(
      KORU_Malloc_Msg(distinct * sizeof(TerminalCapacities), "RegionDataTerms", __LINE__));
  m_evaluatedIn = static_cast<uint32_t*>(KORU_Calloc_Msg(distinct, sizeof(uint32_t), "RegionDataTerms", __LINE__));
  if (!m_terms || !m_evaluatedIn) {
    release();
    return false;
  }
  m_grey = KORUSEMarker::m_isGreyScale;
  m_generation = 0;
  return true;
}

void RegionDataTerms::follow(const KORUSEColorModel& fg, const KORUSEColorModel& bg) {
  if (m_following && std::memcmp(&fg, &m_fg, sizeof fg) == 0 && std::memcmp(&bg, &m_bg, sizeof bg) == 0)
    return;
  m_fg = fg;
  m_bg = bg;
  m_following = true;
  ++m_generation;  // every stored value is stale
}

void RegionDataTerms::evaluate(int32_t s) {
  const uint32_t key = m_samples[s];
  const uint8_t sample[3] = {uint8_t(key), uint8_t(key >> 8), uint8_t(key >> 16)};
  m_terms[s] = terminalCapacities(sampleDataTerm(m_fg, m_bg, m_grey, sample));
  m_evaluatedIn[s] = m_generation;
}
