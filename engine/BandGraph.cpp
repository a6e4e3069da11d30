#include "engine/BandGraph.h"

#include "colormodel/ComponentDensity.h"
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
// (source, sink) of a band pixel: -log of the other side's density, in both
// modes without the grey tie rule. The models packed give GMMProb's densities
// bit for bit, two components at a time.
DataTerm bandDataTerm(const PackedComponents& fg, const PackedComponents& bg, const pixelVal& sample) {
  int nearest;
  const double object = densityAndNearest(fg, sample, &nearest);
  return dataTermOfDensities(object, densityAndNearest(bg, sample, &nearest), false);
}

const uint8_t* colourAt(const BandPicture& band, int x, int y) {
  return imagePixel(band.image, band.imageX + x, band.imageY + y);
}

// The three values a band pixel is judged by: its colour, or in a grey image
// its grey value with the two texture values.
pixelVal sampleAt(const BandPicture& band, int x, int y) {
  const uint8_t* c = colourAt(band, x, y);
  if (!band.texHor) return pixelVal{{double(c[0]), double(c[1]), double(c[2])}};
  return pixelVal{{double(c[0]), double(*imagePixel(band.texHor, band.texColumn[x], band.texRow[y])),
                   double(*imagePixel(band.texVer, band.texColumn[x], band.texRow[y]))}};
}

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
          term = bandDataTerm(fg, bg, sampleAt(band, x, y));
        addDataTerm(g, node, term);
      }
    }
}

// Four edges per node in slot order; towards a pixel outside the band the
// graph has no node and the edge is absent.
void addEdges(KORUSEHybrid& e, const BandPicture& band, const float* table) {
  KORUSEGraph& g = *e.m_trimapGraph;
  const float diagonal = static_cast<float>(e.m_lambda * kBandDiagonalFactor);
  int node = 0;
  for (int y = 0; y < band.height; ++y)
    for (int s = band.rowFirstSegment[y]; s < band.rowFirstSegment[y + 1]; ++s)
      for (int x = band.segments[s].begin; x < band.segments[s].end; ++x, ++node) {
        const unsigned present = g.neighbourMask(node);
        const uint8_t* p = colourAt(band, x, y);
        float caps[4];
        for (int slot = 0; slot < 4; ++slot) {
          if (!((present >> slot) & 1)) {
            caps[slot] = ABSENT_CAPACITY;
            continue;
          }
          const uint8_t* q = colourAt(band, x + kSlotDx[slot], y + kSlotDy[slot]);
          if (slot == 0)
            // The left edge has never had a contrast term: the band's cuts
            // are known with it as it is.
            caps[slot] = static_cast<float>(e.m_lambda);
          else if (slot == 2)
            caps[slot] = static_cast<float>(scaledContrast(e.m_lambda, table, p, q));
          else
            caps[slot] = scaledContrast(diagonal, table, p, q);
        }
        g.addNodeEdges(caps);
      }
}

}  // namespace

BandRuns BandPicture::runs() const {
  BandRuns rows;
  rows.start(width, height);
  for (int y = 0; y < height; ++y) {
    for (int s = rowFirstSegment[y]; s < rowFirstSegment[y + 1]; ++s) rows.add(segments[s].begin, segments[s].end);
    rows.endRow();
  }
  return rows;
}

int buildBandGraph(KORUSEHybrid& e, const BandPicture& band) {
  const BandRuns rows = band.runs();
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
