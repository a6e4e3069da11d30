#include "engine/BandGraph.h"

#include "engine/BandPixels.h"
#include "engine/KORUSEHybrid.h"
#include "engine/RegionGraph.h"
#include "engine/RegionSamples.h"
#include "engine/SmoothnessTable.h"
#include "graph/KORUSEGraph.h"
#include "interface/session/KORUSEMarker.h"
#include "support/ImageRows.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"

namespace {
void addTerminals(KORUSEHybrid& e, const BandPicture& band) {
  KORUSEGraph& g = *e.m_trimapGraph;
  const PackedComponents fg(e.m_fgModel), bg(e.m_bgModel);
  int node = 0;
  for (int y = 0; y < band.height; ++y)
    for (int s = band.rowFirstSegment[y]; s < band.rowFirstSegment[y + 1]; ++s) {
      const TrimapSegment& seg = band.segments[s];
      for (int x = seg.begin; x < seg.end; ++x, ++node) {
        DataTerm term{0.0, 0.0};
        if (seg.value == kTrimapOuterRing)
          term = {0.0, kHardCapacity};
        else if (seg.value == kTrimapInnerRing)
          term = {kHardCapacity, 0.0};
        else if (seg.value == kTrimapBand)
          term = bandDataTerm(fg, bg, bandSample(band, x, y));
        addDataTerm(g, node, term);
      }
    }
}

// Four edges per node in slot order; towards a pixel outside the band the
// graph has no node and the edge is absent.
void addEdges(KORUSEHybrid& e, const BandPicture& band, const float* table) {
  KORUSEGraph& g = *e.m_trimapGraph;
  const BandEdgeCapacities capacity(e.m_lambda, table);
  int node = 0;
  for (int y = 0; y < band.height; ++y)
    for (int s = band.rowFirstSegment[y]; s < band.rowFirstSegment[y + 1]; ++s)
      for (int x = band.segments[s].begin; x < band.segments[s].end; ++x, ++node) {
        const unsigned present = g.neighbourMask(node);
        const uint8_t* p = bandColour(band, x, y);
        float caps[4];
        for (int slot = 0; slot < 4; ++slot)
          caps[slot] = (present >> slot) & 1
                           ? capacity(slot, p, bandColour(band, x + kSlotDx[slot], y + kSlotDy[slot]))
                           : ABSENT_CAPACITY;
        g.addNodeEdges(caps);
      }
}

}  // namespace

BandRuns BandPicture::runs(BandRings rings) const {
  BandRuns rows;
  rows.start(width, height);
  for (int y = 0; y < height; ++y) {
    for (int s = rowFirstSegment[y]; s < rowFirstSegment[y + 1]; ++s)
      if (rings == BandRings::kept || segments[s].value == kTrimapBand) rows.add(segments[s].begin, segments[s].end);
    rows.endRow();
  }
  return rows;
}

std::vector<int32_t> BandPicture::firstBandPixelOfRow() const {
  std::vector<int32_t> first(height + 1, 0);
  for (int y = 0; y < height; ++y) {
    int32_t n = first[y];
    for (int s = rowFirstSegment[y]; s < rowFirstSegment[y + 1]; ++s)
      if (segments[s].value == kTrimapBand) n += segments[s].end - segments[s].begin;
    first[y + 1] = n;
  }
  return first;
}

int buildBandGraph(KORUSEHybrid& e, const BandPicture& band, BandRings rings, int threads) {
  if (rings == BandRings::merged) return buildMergedBandGraph(e, band, threads, nullptr, false, nullptr);
  const BandRuns rows = band.runs(BandRings::kept);
  int nodes = 0;
  for (const BandRun& r : rows.runs) nodes += r.end - r.begin;
  e.m_trimapGraph = new KORUSEGraph(nodes, 4 * nodes, band.width, band.height, 0);
  KORUSEGraph& g = *e.m_trimapGraph;
  if (!g.parentArc || !g.arcArray || g.setBand(rows) != nodes) return 1;
  float* table = static_cast<float*>(KORU_Malloc_Msg(1024, site::bandContrastTable));
  if (!table) return 2;
  g.addNode(nodes);
  addTerminals(e, band);
  fillContrastTable(table, e.m_beta);
  addEdges(e, band, table);
  KORU_Free_Msg(table, site::bandContrastTableFreed);
  return 0;
}

BandPicture pictureOfCrops(const IplImage* image, const IplImage* trimap, const IplImage* texHor,
                           const IplImage* texVer) {
  BandPicture band;
  band.width = trimap->width;
  band.height = trimap->height;
  band.image = image;
  band.rowFirstSegment.push_back(0);
  for (int y = 0; y < band.height; ++y) {
    const uint8_t* t = imageRow(trimap, y);
    for (int x = 0; x < band.width;) {
      const int begin = x;
      while (x < band.width && t[x] == t[begin]) ++x;
      if (t[begin] != kTrimapLeftOut) band.segments.push_back({begin, x, t[begin]});
    }
    band.rowFirstSegment.push_back(static_cast<int32_t>(band.segments.size()));
  }
  if (KORUSEMarker::m_isGreyScale && texHor && texVer) {
    band.texHor = texHor;
    band.texVer = texVer;
    for (int x = 0; x < band.width; ++x) band.texColumn.push_back(x);
    for (int y = 0; y < band.height; ++y) band.texRow.push_back(y);
  }
  return band;
}
