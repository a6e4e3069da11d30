// The band graph with its rings merged into the terminals (BandRings::merged):
// only the band's pixels are nodes. Each one's terminal capacities are its
// data term plus its edges to the inner ring (from the source) and to the
// outer ring (to the sink), added in visiting order; its edges to band
// pixels are stored as in the graph with the rings kept.
#include <vector>

#include "engine/BandPixels.h"
#include "engine/KORUSEHybrid.h"
#include "graph/KORUSEGraph.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"

namespace {
// Offsets of the eight directions in visiting order.
constexpr int kDx[8] = {-1, -1, 0, 1, 1, 1, 0, -1};
constexpr int kDy[8] = {0, -1, -1, -1, 0, 1, 1, 1};

// The trimap values of rows y - 1, y and y + 1 of the band's box, with
// kTrimapLeftOut outside it: what a band pixel's eight neighbours are.
class TrimapRows {
 public:
  explicit TrimapRows(const BandPicture& band)
      : band_(band), stride_(band.width + 2), values_(3 * static_cast<size_t>(stride_), kTrimapLeftOut) {}

  void centreOn(int y) {
    for (int dy = -1; dy <= 1; ++dy) {
      write(written_[dy + 1], dy + 1, kTrimapLeftOut);
      written_[dy + 1] = y + dy;
      write(y + dy, dy + 1, 0);
    }
  }
  // The value at column x + dx of row y + dy, for |dx|, |dy| <= 1.
  uint8_t at(int x, int dx, int dy) const { return values_[(dy + 1) * static_cast<size_t>(stride_) + x + dx + 1]; }

 private:
  // Row y's segments into line `line`: their values, or `fill` when not 0.
  void write(int y, int line, uint8_t fill) {
    if (y < 0 || y >= band_.height) return;
    uint8_t* out = values_.data() + line * static_cast<size_t>(stride_) + 1;
    for (int s = band_.rowFirstSegment[y]; s < band_.rowFirstSegment[y + 1]; ++s) {
      const TrimapSegment& seg = band_.segments[s];
      for (int x = seg.begin; x < seg.end; ++x) out[x] = fill ? fill : seg.value;
    }
  }

  const BandPicture& band_;
  int stride_;
  std::vector<uint8_t> values_;
  int written_[3] = {-1, -1, -1};
};

// Terminals and edges of the band pixels of rows [y0, y1), the first of
// them node `node`.
void buildRows(KORUSEHybrid& e, const BandPicture& band, const float* table, int y0, int y1, int node) {
  KORUSEGraph& g = *e.m_trimapGraph;
  const PackedComponents fg(e.m_fgModel), bg(e.m_bgModel);
  const BandEdgeCapacities capacity(e.m_lambda, table);
  TrimapRows rows(band);
  for (int y = y0; y < y1; ++y) {
    rows.centreOn(y);
    for (int s = band.rowFirstSegment[y]; s < band.rowFirstSegment[y + 1]; ++s) {
      const TrimapSegment& seg = band.segments[s];
      if (seg.value != kTrimapBand) continue;
      for (int x = seg.begin; x < seg.end; ++x, ++node) {
        const uint8_t* p = bandColour(band, x, y);
        TerminalCapacities t = terminalCapacities(bandDataTerm(fg, bg, bandSample(band, x, y)));
        float caps[4] = {ABSENT_CAPACITY, ABSENT_CAPACITY, ABSENT_CAPACITY, ABSENT_CAPACITY};
        for (int k = 0; k < 8; ++k) {
          const uint8_t v = rows.at(x, kDx[k], kDy[k]);
          if (v == kTrimapLeftOut) continue;
          const float cap = capacity(k, p, bandColour(band, x + kDx[k], y + kDy[k]));
          if (v == kTrimapInnerRing)
            t.source += cap;
          else if (v == kTrimapOuterRing)
            t.sink += cap;
          else if (k < 4)
            caps[k] = cap;  // the band pixel's own edge; the others' own the rest
        }
        g.addtWeights(node, t.source, t.sink);
        g.writeNodeEdges(node, caps);
      }
    }
  }
}
}  // namespace

int buildMergedBandGraph(KORUSEHybrid& e, const BandPicture& band) {
  const BandRuns rows = band.runs(BandRings::merged);
  int nodes = 0;
  for (const BandRun& r : rows.runs) nodes += r.end - r.begin;
  e.m_trimapGraph = new KORUSEGraph(nodes, 4 * nodes, band.width, band.height, 0);
  KORUSEGraph& g = *e.m_trimapGraph;
  if (!g.parentArc || !g.arcArray || g.setBand(rows) != nodes) return 1;
  float* table = static_cast<float*>(KORU_Malloc_Msg(1024, site::bandContrastTable));
  if (!table) return 2;
  g.addNode(nodes);
  fillContrastTable(table, e.m_beta);
  buildRows(e, band, table, 0, band.height, 0);
  g.arcFloatCount = 8 * nodes;
  KORU_Free_Msg(table, site::bandContrastTableFreed);
  return 0;
}
