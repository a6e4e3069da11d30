// The data capacities of one edit's region, kept across its five cuts.
//
// A soft pixel's capacities depend only on its sample (three bytes: the
// colour, or in grey mode the grey level and the two texture values) and on
// the two colour models. So each distinct sample of the region is evaluated
// once per pair of models, and a cut whose models are bit for bit those of
// the previous evaluation (the passes that keep them) reuses every value.
// The values are those of sampleDataTerm, exactly: same inputs, same code.
#pragma once

#include <cstdint>

#include "colormodel/KORUSEColorModel.h"
#include "engine/RegionGraph.h"

class KORUSEHybrid;

// Sample of region pixel (r, c): its three bytes in colour mode; in grey
// mode its first byte and the texture planes at the pixel's place in the
// working image.
void regionSample(const KORUSEHybrid& engine, int r, int c, uint8_t sample[3]);

// (source, sink) of a soft pixel with this sample: -ln of the background
// and of the object density. Grey mode: log-likelihoods closer than 0.0001
// count as equal (the background's is replaced by the object's).
DataTerm sampleDataTerm(const KORUSEColorModel& fg, const KORUSEColorModel& bg, bool grey,
                        const uint8_t sample[3]);

class RegionDataTerms {
 public:
  RegionDataTerms() = default;
  ~RegionDataTerms();
  RegionDataTerms(const RegionDataTerms&) = delete;
  RegionDataTerms& operator=(const RegionDataTerms&) = delete;

  // Indexes the samples of the engine's region (m_roiImage, and the texture
  // planes in grey mode) for this edit. False when memory is short (the
  // allocator logs it) or there is no region: ready() stays false and the
  // caller computes every pixel the plain way. Cost: one hash probe per
  // pixel; 4 bytes per pixel and 16 per distinct sample.
  bool index(const KORUSEHybrid& engine);
  bool ready() const { return m_sampleOf != nullptr; }

  // The models the next capacities follow. When they differ from those of
  // the last evaluation in any bit, every sample is evaluated anew on first
  // use; otherwise the values computed with them are reused.
  void follow(const KORUSEColorModel& fg, const KORUSEColorModel& bg);

  // Capacities of region pixel p (row * region width + column) as
  // addtWeights receives them, for the models given to follow().
  TerminalCapacities at(int p) {
    const int32_t s = m_sampleOf[p];
    if (m_evaluatedIn[s] != m_generation) evaluate(s);
    return m_terms[s];
  }

 private:
  void evaluate(int32_t s);
  void release();

  int32_t* m_sampleOf = nullptr;         // per pixel: index of its distinct sample
  uint32_t* m_samples = nullptr;         // per distinct sample: bytes 0, 1, 2 in bits 0-23
  TerminalCapacities* m_terms = nullptr; // per distinct sample: its capacities
  uint32_t* m_evaluatedIn = nullptr;     // per distinct sample: generation of m_terms
  uint32_t m_generation = 0;             // bumped whenever the models change
  bool m_grey = false;
  bool m_following = false;              // m_fg and m_bg hold models
  KORUSEColorModel m_fg, m_bg;           // copies of the models followed
};

// The region's graph for one cut, node for node and edge for edge what
// constructGraphKORU_Whole_Image builds, with the soft pixels' capacities
// taken from `terms` (indexed for this edit; without an index the plain
// build runs). Every node and edge is rewritten, so the graph is rewound
// rather than cleared.
void buildRegionGraph(KORUSEHybrid& engine, RegionDataTerms& terms);
