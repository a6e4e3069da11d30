// The samples of one edit's region and what the two colour models make of
// them, kept across the edit's five cuts.
//
// A pixel's sample is three bytes: its colour, or in grey mode its grey
// level and the two texture values. Under a pair of models a sample has its
// data capacities (what a soft pixel's node gets) and, in each model, the
// component that explains it best (what updateModel assigns it to). Both
// depend on the sample and the models alone, so each distinct sample of the
// region is evaluated once per pair of models, and a cut or a refit whose
// models are bit for bit those of the previous evaluation reuses every
// value. The values are those of the plain computations (sampleDataTerm,
// assignCluster) exactly: same inputs, same operations.
#pragma once

#include <cstdint>

#include "colormodel/ComponentDensity.h"
#include "colormodel/KORUSEColorModel.h"
#include "engine/RegionGraph.h"

class KORUSEHybrid;

// Sample of region pixel (r, c): its three bytes in colour mode; in grey
// mode its first byte and the texture planes at the pixel's place in the
// working image.
void regionSample(const KORUSEHybrid& engine, int r, int c, uint8_t sample[3]);

// The plain computation: dataTermOfDensities of the two models' GMMProb.
DataTerm sampleDataTerm(const KORUSEColorModel& fg, const KORUSEColorModel& bg, bool grey,
                        const uint8_t sample[3]);

class RegionSamples {
 public:
  // What the models make of one sample.
  struct Evaluation {
    TerminalCapacities capacities;  // as addtWeights receives them for a soft pixel
    uint8_t objectComponent;        // m_fgModel.assignCluster of the sample
    uint8_t backgroundComponent;    // m_bgModel.assignCluster of the sample
  };

  RegionSamples() = default;
  ~RegionSamples();
  RegionSamples(const RegionSamples&) = delete;
  RegionSamples& operator=(const RegionSamples&) = delete;

  // Indexes the samples of the engine's region (m_roiImage, and the texture
  // planes in grey mode) for this edit. False when memory is short (the
  // allocator logs it) or there is no region: ready() stays false and the
  // callers compute every pixel the plain way. Cost: one hash probe per
  // pixel; 4 bytes per pixel and 17 per distinct sample, and a table of at
  // most 256 KB while indexing (more for a region of more than 32 K colours).
  bool index(const KORUSEHybrid& engine);
  bool ready() const { return m_sampleOf != nullptr; }

  // The models the next evaluations follow. When they differ from those of
  // the last evaluation in any bit, every sample is evaluated anew on first
  // use; otherwise the values computed with them are reused.
  void follow(const KORUSEColorModel& fg, const KORUSEColorModel& bg);

  // The packed sample (PackedSample.h) of region pixel p (row * region
  // width + column).
  uint32_t sampleAt(int p) const { return m_samples[m_sampleOf[p]]; }

  // Region pixel p under the models given to follow().
  const Evaluation& at(int p) {
    const int32_t s = m_sampleOf[p];
    if (m_evaluatedIn[s] != m_generation) evaluate(s);
    return m_evaluations[s];
  }

 private:
  void evaluate(int32_t s);
  void release();

  int32_t* m_sampleOf = nullptr;        // per pixel: index of its distinct sample
  uint32_t* m_samples = nullptr;        // per distinct sample: packed
  Evaluation* m_evaluations = nullptr;  // per distinct sample
  uint8_t* m_evaluatedIn = nullptr;     // per distinct sample: generation of its evaluation
  int32_t m_distinct = 0;               // number of distinct samples
  uint8_t m_generation = 0;             // bumped whenever the models change (0: never evaluated)
  bool m_grey = false;
  bool m_following = false;             // m_fg and m_bg hold models
  KORUSEColorModel m_fg, m_bg;          // copies of the models followed
  PackedComponents m_fgPacked{m_fg};    // the same, component by component side by side
  PackedComponents m_bgPacked{m_bg};
};

// The region's graph for one cut, node for node and edge for edge what
// constructGraphKORU_Whole_Image builds, with the soft pixels' capacities
// taken from `samples` (indexed for this edit; without an index the plain
// build runs). Every node and edge is rewritten, so the graph is rewound
// rather than cleared.
void buildRegionGraph(KORUSEHybrid& engine, RegionSamples& samples);
