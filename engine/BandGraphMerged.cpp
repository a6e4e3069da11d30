// The band graph with its rings merged into the terminals (BandRings::merged):
// only the band's pixels are nodes. Each one's terminal capacities are its
// data term plus its edges to the inner ring (from the source) and to the
// outer ring (to the sink), added in visiting order; its edges to band
// pixels are stored as in the graph with the rings kept. Rows are built in
// parallel ranges: a node's records depend on its own pixel and neighbours.
#include <atomic>
#include <memory>
#include <vector>

#include "engine/BandPixels.h"
#include "engine/KORUSEHybrid.h"
#include "engine/RegionGraph.h"
#include "graph/KORUSEGraph.h"
#include "interface/session/Cancellation.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"
#include "support/WorkerPool.h"

namespace {
// Fewer band pixels than this a thread are not worth handing out.
constexpr int kMinNodesPerThread = 4096;

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

// Calls visit(node, x, y) for the band pixels of rows [y0, y1).
template <typename Visit>
void forBandPixels(const BandPicture& band, int y0, int y1, int node, Visit visit) {
  for (int y = y0; y < y1; ++y)
    for (int s = band.rowFirstSegment[y]; s < band.rowFirstSegment[y + 1]; ++s) {
      const TrimapSegment& seg = band.segments[s];
      if (seg.value != kTrimapBand) continue;
      for (int x = seg.begin; x < seg.end; ++x) visit(node++, x, y);
    }
}

// Splits the box's rows into ranges of about equal band pixels, at most one
// per thread, and runs body(part, y0, y1, firstNode) on each. Returns the
// number of parts.
template <typename Body>
int inRowRanges(const std::vector<int32_t>& first, int threads, Body body) {
  const int rows = static_cast<int>(first.size()) - 1, nodes = first.back();
  const int parts = std::max(1, std::min(threads, nodes / kMinNodesPerThread));
  std::vector<int> cut(parts + 1, rows);
  cut[0] = 0;
  for (int p = 1, y = 0; p < parts; ++p) {
    while (y < rows && first[y] < static_cast<int64_t>(nodes) * p / parts) ++y;
    cut[p] = y;
  }
  runTasks(parts, parts, [&](int p) { body(p, cut[p], cut[p + 1], first[cut[p]]); });
  return parts;
}

// The band pixels of rows [y0, y1), node `node` the first: each one's side
// by its data term alone into `sides` (when given) and, while `view` is
// given, its terminals and edges, `view` (of the graph's arrays) counting
// the flow they add. With `stopOnCancel`, a cancel seen at a row's start
// ends the building: the rest get their sides only, and `stopped` is set.
void buildRows(const KORUSEHybrid& e, const BandPicture& band, const float* table, int y0, int y1, int node,
               KORUSEGraph* view, uint8_t* sides, bool stopOnCancel, std::atomic<bool>& stopped) {
  BandDataTerms dataTerms(e.m_fgModel, e.m_bgModel);
  const BandEdgeCapacities capacity(e.m_lambda, table);
  TrimapRows rows(band);
  int centred = -1;
  forBandPixels(band, y0, y1, node, [&](int n, int x, int y) {
    if (y != centred) {
      if (view && stopOnCancel && cancelRequested()) {
        view = nullptr;
        stopped = true;
      }
      if (view) rows.centreOn(y);
      centred = y;
    }
    TerminalCapacities t = dataTerms.at(band, x, y);
    if (sides) sides[n] = t.source - t.sink < 0.0f;  // as addtWeights stores it: where the trees start
    if (!view) return;
    const uint8_t* p = bandColour(band, x, y);
    float caps[4] = {ABSENT_CAPACITY, ABSENT_CAPACITY, ABSENT_CAPACITY, ABSENT_CAPACITY};
    for (int k = 0; k < 8; ++k) {
      const uint8_t v = rows.at(x, kSlotDx[k], kSlotDy[k]);
      if (v == kTrimapLeftOut) continue;
      const float cap = capacity(k, p, bandColour(band, x + kSlotDx[k], y + kSlotDy[k]));
      if (v == kTrimapInnerRing)
        t.source += cap;
      else if (v == kTrimapOuterRing)
        t.sink += cap;
      else if (k < 4)
        caps[k] = cap;  // the band pixel's own edge; the others' own the rest
    }
    view->addtWeights(n, t.source, t.sink);
    view->writeNodeEdges(n, caps);
  });
}
}  // namespace

int buildMergedBandGraph(KORUSEHybrid& e, const BandPicture& band, int threads, std::vector<uint8_t>* dataSides,
                         bool stopOnCancel, bool* finished) {
  const std::vector<int32_t> first = band.firstBandPixelOfRow();
  const int nodes = first.back();
  if (dataSides) dataSides->assign(nodes, 0);
  e.m_trimapGraph = new KORUSEGraph(nodes, 4 * nodes, band.width, band.height, 0);
  KORUSEGraph& g = *e.m_trimapGraph;
  if (!g.parentArc || !g.arcArray || g.setBand(band.runs(BandRings::merged)) != nodes) return 1;
  float* table = static_cast<float*>(KORU_Malloc_Msg(1024, site::bandContrastTable));
  if (!table) return 2;
  g.addNode(nodes);
  fillContrastTable(table, e.m_beta);
  // Each range counts the flow of its terminals in a view of its own; the
  // graph's flow is their sum, in range order.
  std::vector<std::unique_ptr<KORUSEGraph>> views;
  for (int t = 0; t < std::max(threads, 1); ++t) views.emplace_back(new KORUSEGraph(&g, 0, 0, g.width, g.height));
  std::atomic<bool> stopped{false};
  const int parts = inRowRanges(first, threads, [&](int part, int y0, int y1, int node) {
    views[part]->flowValue = 0.0f;
    buildRows(e, band, table, y0, y1, node, views[part].get(), dataSides ? dataSides->data() : nullptr,
              stopOnCancel, stopped);
  });
  for (int part = 0; part < parts; ++part) g.flowValue += views[part]->flowValue;
  g.arcFloatCount = 8 * nodes;
  KORU_Free_Msg(table, site::bandContrastTableFreed);
  if (finished) *finished = !stopped;
  return 0;
}

std::vector<uint8_t> bandSidesOfDataTerms(const KORUSEHybrid& e, const BandPicture& band, int threads) {
  const std::vector<int32_t> first = band.firstBandPixelOfRow();
  std::vector<uint8_t> sides(first.back());
  std::atomic<bool> unused{false};
  inRowRanges(first, threads, [&](int, int y0, int y1, int node) {
    buildRows(e, band, nullptr, y0, y1, node, nullptr, sides.data(), false, unused);
  });
  return sides;
}
