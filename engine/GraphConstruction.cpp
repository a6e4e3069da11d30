// The region's flow graph for one cut: data capacities from the two colour
// models and the labels, smoothness capacities from the stored contrast
// weights scaled by m_lambda.
#include <cmath>

#include "engine/KORUSEHybrid.h"
#include "engine/RegionGraph.h"
#include "graph/KORUSEGraph.h"
#include "interface/KORUSEMarker.h"
#include "support/ImageRows.h"

namespace {
// Below this the two log-likelihoods of a grey pixel count as equal.
const float kGreyTieTolerance = 0.0001f;
}  // namespace

void KORUSEHybrid::constructGraphKORU() {}

// (source, sink) capacities of one soft pixel: -ln of the other side's density.
static DataTerm colourDataTerm(const KORUSEColorModel& fg, const KORUSEColorModel& bg,
                               const uint8_t* c) {
  const pixelVal sample{{double(c[0]), double(c[1]), double(c[2])}};
  return {-std::log(bg.GMMProb(sample)), -std::log(fg.GMMProb(sample))};
}

static DataTerm greyDataTerm(const KORUSEColorModel& fg, const KORUSEColorModel& bg,
                             const pixelVal& sample) {
  double a = std::log(bg.GMMProb(sample));
  const double b = std::log(fg.GMMProb(sample));
  if (static_cast<float>(std::fabs(b - a)) < kGreyTieTolerance) a = b;
  return {-a, -b};
}

void KORUSEHybrid::constructGraphKORU_Whole_Image() {
  const int w = m_roiWidth, h = m_roiHeight;
  const int x0 = KORUSEMarker::m_xMinBBox, y0 = KORUSEMarker::m_yMinBBox;
  m_graph->reset();
  m_graph->addNode(w * h);

  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) {
      const uint8_t label = *imagePixel(m_roiLabel, c, r);
      DataTerm term;
      if (label == MARK_BACKGROUND) {
        term = {0.0, kHardCapacity};
      } else if (label == MARK_OBJECT) {
        term = {kHardCapacity, 0.0};
      } else if (!KORUSEMarker::m_isGreyScale) {
        term = colourDataTerm(m_fgModel, m_bgModel, imagePixel(m_roiImage, c, r));
      } else {
        const pixelVal sample{{double(*imagePixel(m_roiImage, c, r)),
                               double(*imagePixel(KORUSEMarker::m_texHor, x0 + c, y0 + r)),
                               double(*imagePixel(KORUSEMarker::m_texVer, x0 + c, y0 + r))}};
        term = greyDataTerm(m_fgModel, m_bgModel, sample);
      }
      addDataTerm(*m_graph, r * w + c, term);
    }

  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c) {
      const float* weights = m_nlinks + 4 * (static_cast<size_t>(y0 + r) * m_imageWidth + x0 + c);
      addGridEdges(*m_graph, w, r, c, [&](int slot) {
        return static_cast<float>(m_lambda * weights[slot]);
      });
    }
}
