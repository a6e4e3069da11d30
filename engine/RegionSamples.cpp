#include "engine/RegionSamples.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "colormodel/ModelUpdate.h"
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

DataTerm dataTermOfDensities(double objectDensity, double backgroundDensity, bool grey) {
  if (!grey) return {-std::log(backgroundDensity), -std::log(objectDensity)};
  double a = std::log(backgroundDensity);
  const double b = std::log(objectDensity);
  if (static_cast<float>(std::fabs(b - a)) < kGreyTieTolerance) a = b;
  return {-a, -b};
}

DataTerm sampleDataTerm(const KORUSEColorModel& fg, const KORUSEColorModel& bg, bool grey,
                        const uint8_t sample[3]) {
  const pixelVal x{{double(sample[0]), double(sample[1]), double(sample[2])}};
  return dataTermOfDensities(fg.GMMProb(x), bg.GMMProb(x), grey);
}

RegionSamples::~RegionSamples() { release(); }

void RegionSamples::release() {
  if (m_sampleOf) KORU_Free_Msg(m_sampleOf, "RegionSamples", __LINE__);
  if (m_samples) KORU_Free_Msg(m_samples, "RegionSamples", __LINE__);
  if (m_evaluations) KORU_Free_Msg(m_evaluations, "RegionSamples", __LINE__);
  if (m_evaluatedIn) KORU_Free_Msg(m_evaluatedIn, "RegionSamples", __LINE__);
  m_sampleOf = nullptr;
  m_samples = nullptr;
  m_evaluations = nullptr;
  m_evaluatedIn = nullptr;
  m_following = false;
}

bool RegionSamples::index(const KORUSEHybrid& engine) {
  release();
  const int w = engine.m_roiWidth, h = engine.m_roiHeight;
  if (!engine.m_roiImage || w < 1 || h < 1) return false;
  const size_t n = static_cast<size_t>(w) * h;
  int bits = 4;
  while ((size_t(1) << bits) < 2 * n) ++bits;
  // Open addressing, linear probing; a slot holds its sample's index + 1.
  auto* table = static_cast<int32_t*>(KORU_Calloc_Msg(size_t(1) << bits, sizeof(int32_t), "RegionSamples", __LINE__));
  m_sampleOf = static_cast<int32_t*>(KORU_Malloc_Msg(n * sizeof(int32_t), "RegionSamples", __LINE__));
  m_samples = static_cast<uint32_t*>(KORU_Malloc_Msg(n * sizeof(uint32_t), "RegionSamples", __LINE__));
  if (!table || !m_sampleOf || !m_samples) {
    if (table) KORU_Free_Msg(table, "RegionSamples", __LINE__);
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
  KORU_Free_Msg(table, "RegionSamples", __LINE__);
  m_evaluations = static_cast<Evaluation*>(KORU_Malloc_Msg(distinct * sizeof(Evaluation), "RegionSamples", __LINE__));
  m_evaluatedIn = static_cast<uint32_t*>(KORU_Calloc_Msg(distinct, sizeof(uint32_t), "RegionSamples", __LINE__));
  if (!m_evaluations || !m_evaluatedIn) {
    release();
    return false;
  }
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
  ++m_generation;  // every stored value is stale
}

void RegionSamples::evaluate(int32_t s) {
  const uint32_t key = m_samples[s];
  const pixelVal x{{double(key & 0xFF), double(key >> 8 & 0xFF), double(key >> 16)}};
  int objectComponent, backgroundComponent;
  const double objectDensity = densityAndNearest(m_fgPacked, x, &objectComponent);
  const double backgroundDensity = densityAndNearest(m_bgPacked, x, &backgroundComponent);
  Evaluation& e = m_evaluations[s];
  e.capacities = terminalCapacities(dataTermOfDensities(objectDensity, backgroundDensity, m_grey));
  e.objectComponent = static_cast<uint8_t>(objectComponent);
  e.backgroundComponent = static_cast<uint8_t>(backgroundComponent);
  m_evaluatedIn[s] = m_generation;
}

namespace {
inline bool isObject(uint8_t label) { return label == MARK_OBJECT || label == MARK_PROBABLE_OBJECT; }
inline bool isBackground(uint8_t label) { return label == MARK_BACKGROUND || label == MARK_PROBABLE_BACKGROUND; }

// The pixel's sample as extractTrainingData makes it, bit for bit.
inline bool sameSample(const uint8_t bytes[3], const pixelVal& s) {
  const pixelVal mine{{double(bytes[0]), double(bytes[1]), double(bytes[2])}};
  return std::memcmp(mine.v, s.v, sizeof mine.v) == 0;
}

}  // namespace

bool refitRegionModels(KORUSEHybrid& engine, RegionSamples& samples, const std::vector<pixelVal>& object,
                       const std::vector<pixelVal>& background) {
  const IplImage* labels = engine.m_roiLabel;
  if (!samples.ready() || !labels || labels->width != engine.m_roiWidth || labels->height != engine.m_roiHeight)
    return false;
  // extractTrainingData's order: raster order, object samples to one set,
  // background samples to the other; each sample summed into its component
  // as it comes.
  samples.follow(engine.m_fgModel, engine.m_bgModel);
  ClusterInfo objectSums, backgroundSums;
  std::size_t o = 0, b = 0;
  for (int r = 0; r < labels->height; ++r) {
    const uint8_t* row = imageRow(labels, r);
    for (int c = 0; c < labels->width; ++c) {
      const bool toObject = isObject(row[c]);
      if (!toObject && !isBackground(row[c])) continue;
      const std::vector<pixelVal>& set = toObject ? object : background;
      std::size_t& next = toObject ? o : b;
      uint8_t bytes[3];
      regionSample(engine, r, c, bytes);
      if (next >= set.size() || !sameSample(bytes, set[next])) return false;
      const RegionSamples::Evaluation& e = samples.at(r * labels->width + c);
      if (toObject)
        objectSums.add(e.objectComponent, set[next]);
      else
        backgroundSums.add(e.backgroundComponent, set[next]);
      ++next;
    }
  }
  for (; o < object.size(); ++o) objectSums.add(engine.m_fgModel.assignCluster(object[o]), object[o]);
  for (; b < background.size(); ++b) backgroundSums.add(engine.m_bgModel.assignCluster(background[b]), background[b]);
  objectSums.complete();
  backgroundSums.complete();
  refitModel(objectSums, object.size(), engine.m_fgModel);
  refitModel(backgroundSums, background.size(), engine.m_bgModel);
  return true;
}
