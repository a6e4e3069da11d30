// The region's flow graph for one cut: data capacities from the two colour
// models and the labels, smoothness capacities from the stored contrast
// weights scaled by m_lambda.
//
// constructGraphKORU_Whole_Image is the plain build, every soft pixel's
// densities computed on the spot; buildRegionGraph, which the driver uses,
// takes them from the edit's RegionSamples and must give the same graph.
#include "engine/KORUSEHybrid.h"
#include "engine/RegionGraph.h"
#include "engine/RegionSamples.h"
#include "graph/KORUSEGraph.h"
#include "interface/session/KORUSEMarker.h"
#include "support/ImageRows.h"
#include "support/Marks.h"

namespace {
const DataTerm kHardBackground = {0.0, kHardCapacity};
const DataTerm kHardObject = {kHardCapacity, 0.0};

// The smoothness edges of every region node, in node order: m_lambda times
// the stored weight at the pixel's place in the working image.
void addRegionEdges(KORUSEHybrid& e) {
  const int w = e.m_roiWidth, h = e.m_roiHeight;
  const int x0 = KORUSEMarker::m_xMinBBox, y0 = KORUSEMarker::m_yMinBBox;
  const double lambda = e.m_lambda;
  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) {
      const float* weights = e.m_nlinks + 4 * (static_cast<size_t>(y0 + r) * e.m_imageWidth + x0 + c);
      addGridEdges(*e.m_graph, w, r, c, [&](int slot) { return static_cast<float>(lambda * weights[slot]); });
    }
}

// The same edges, row by row: which of a node's four neighbours lie in the
// region depends only on whether it is in the first row, the first or the
// last column, so the inner columns need no test per edge.
void addRegionEdgesByRow(KORUSEHybrid& e) {
  KORUSEGraph& graph = *e.m_graph;
  const int w = e.m_roiWidth, h = e.m_roiHeight;
  const int x0 = KORUSEMarker::m_xMinBBox, y0 = KORUSEMarker::m_yMinBBox;
  const double lambda = e.m_lambda;
  const float kAbsent = ABSENT_CAPACITY;
  auto cap = [lambda](float weight) { return static_cast<float>(lambda * weight); };
  for (int r = 0; r < h; ++r) {
    const float* weights = e.m_nlinks + 4 * (static_cast<size_t>(y0 + r) * e.m_imageWidth + x0);
    if (r == 0) {  // only left neighbours
      for (int c = 0; c < w; ++c) {
        const float caps[4] = {c > 0 ? cap(weights[4 * c]) : kAbsent, kAbsent, kAbsent, kAbsent};
        graph.addNodeEdges(caps);
      }
      continue;
    }
    {  // column 0: upper and upper-right only
      const float caps[4] = {kAbsent, kAbsent, cap(weights[2]), w > 1 ? cap(weights[3]) : kAbsent};
      graph.addNodeEdges(caps);
    }
    for (int c = 1; c < w - 1; ++c) {
      const float* s = weights + 4 * c;
      const float caps[4] = {cap(s[0]), cap(s[1]), cap(s[2]), cap(s[3])};
      graph.addNodeEdges(caps);
    }
    if (w > 1) {  // last column: no upper-right
      const float* s = weights + 4 * (w - 1);
      const float caps[4] = {cap(s[0]), cap(s[1]), cap(s[2]), kAbsent};
      graph.addNodeEdges(caps);
    }
  }
}
}  // namespace

void KORUSEHybrid::constructGraphKORU() {}

void KORUSEHybrid::constructGraphKORU_Whole_Image() {
  const int w = m_roiWidth, h = m_roiHeight;
  m_graph->reset();
  m_graph->addNode(w * h);

  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) {
      const uint8_t label = *imagePixel(m_roiLabel, c, r);
      DataTerm term;
      if (label == MARK_BACKGROUND) {
        term = kHardBackground;
      } else if (label == MARK_OBJECT) {
        term = kHardObject;
      } else {
        uint8_t sample[3];
        regionSample(*this, r, c, sample);
        term = sampleDataTerm(m_fgModel, m_bgModel, KORUSEMarker::m_isGreyScale, sample);
      }
      addDataTerm(*m_graph, r * w + c, term);
    }
  addRegionEdges(*this);
}

void buildRegionGraph(KORUSEHybrid& e, RegionSamples& samples) {
  if (!samples.ready()) return e.constructGraphKORU_Whole_Image();
  const int w = e.m_roiWidth, h = e.m_roiHeight;
  KORUSEGraph& graph = *e.m_graph;
  graph.rewind();
  graph.addNode(w * h);

  samples.follow(e.m_fgModel, e.m_bgModel);
  const TerminalCapacities background = terminalCapacities(kHardBackground);
  const TerminalCapacities object = terminalCapacities(kHardObject);
  for (int r = 0; r < h; ++r) {
    const uint8_t* labels = imageRow(e.m_roiLabel, r);
    for (int c = 0; c < w; ++c) {
      const int node = r * w + c;
      const TerminalCapacities t = labels[c] == MARK_BACKGROUND ? background
                                   : labels[c] == MARK_OBJECT   ? object
                                                                : samples.at(node).capacities;
      graph.addtWeights(node, t.source, t.sink);
    }
  }
  addRegionEdgesByRow(e);
}
