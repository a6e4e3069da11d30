// What the two band graph builds read of a band pixel: its colour, its
// sample and data term, and the capacity of its edge in each direction.
#pragma once

#include <cstdint>
#include <vector>

#include "colormodel/ComponentDensity.h"
#include "colormodel/PackedSample.h"
#include "engine/BandGraph.h"
#include "engine/SmoothnessTable.h"
#include "graph/DataTerms.h"
#include "support/ImageRows.h"

inline const uint8_t* bandColour(const BandPicture& band, int x, int y) {
  return imagePixel(band.image, band.imageX + x, band.imageY + y);
}

// The three values a band pixel is judged by, packed (PackedSample.h): its
// colour, or in a grey image its grey value with the two texture values.
inline uint32_t bandPackedSample(const BandPicture& band, int x, int y) {
  const uint8_t* c = bandColour(band, x, y);
  if (!band.texHor) return packSample(c[0], c[1], c[2]);
  return packSample(c[0], *imagePixel(band.texHor, band.texColumn[x], band.texRow[y]),
                    *imagePixel(band.texVer, band.texColumn[x], band.texRow[y]));
}
inline pixelVal bandSample(const BandPicture& band, int x, int y) { return unpackSample(bandPackedSample(band, x, y)); }

// (source, sink) of a band pixel: -log of the other side's density, in both
// modes without the grey tie rule. The models packed give GMMProb's densities
// bit for bit, two components at a time.
inline DataTerm bandDataTerm(const PackedComponents& fg, const PackedComponents& bg, const pixelVal& sample) {
  int nearest;
  const double object = densityAndNearest(fg, sample, &nearest);
  return dataTermOfDensities(object, densityAndNearest(bg, sample, &nearest), false);
}

// The terminal capacities of band pixels' data terms, the last 64 K samples'
// kept: a band repeats its colours (at 12 megapixels about half of its
// pixels find theirs kept, at 48 three in five). The same values as
// bandDataTerm's, as a cache only skips computing them again. One per thread.
class BandDataTerms {
 public:
  BandDataTerms(const KORUSEColorModel& fg, const KORUSEColorModel& bg)
      : fg_(fg), bg_(bg), samples_(kSlots, kNoSample), terms_(kSlots) {}
  TerminalCapacities at(const BandPicture& band, int x, int y) {
    const uint32_t sample = bandPackedSample(band, x, y);
    const uint32_t slot = (sample * 2654435761u) >> (32 - kBits);  // Fibonacci hashing
    if (samples_[slot] != sample) {
      samples_[slot] = sample;
      terms_[slot] = terminalCapacities(bandDataTerm(fg_, bg_, unpackSample(sample)));
    }
    return terms_[slot];
  }

 private:
  static constexpr int kBits = 16;
  static constexpr uint32_t kSlots = 1u << kBits;
  static constexpr uint32_t kNoSample = 0xFFFFFFFFu;  // packed samples use 24 bits
  const PackedComponents fg_, bg_;
  std::vector<uint32_t> samples_;
  std::vector<TerminalCapacities> terms_;
};

// The capacity of the edge between two band pixels of colours p and q, by
// its direction in visiting order (0 left, 1 upper-left, 2 upper, 3
// upper-right, 4 right, ... 7 lower-left): the same both ways, since the
// contrast reads absolute differences.
class BandEdgeCapacities {
 public:
  BandEdgeCapacities(double lambda, const float* table)
      : lambda_(lambda), diagonal_(static_cast<float>(lambda * kBandDiagonalFactor)), table_(table) {}
  float operator()(int direction, const uint8_t* p, const uint8_t* q) const {
    switch (direction & 3) {
      // Across columns there has never been a contrast term: the band's
      // cuts are known with the edge as it is.
      case 0: return static_cast<float>(lambda_);
      case 2: return static_cast<float>(scaledContrast(lambda_, table_, p, q));
      default: return scaledContrast(diagonal_, table_, p, q);
    }
  }

 private:
  double lambda_;
  float diagonal_;
  const float* table_;
};

class KORUSEHybrid;

// buildBandGraph with the rings merged into the terminals, its rows shared
// out among up to `threads` threads (BandGraphMerged.cpp). Every band
// pixel's side by its data term alone goes into `dataSides` (when given), as
// bandSidesOfDataTerms gives it. With `stopOnCancel`, a cancel ends the
// building (the rest of the rows get their sides only) and *finished is
// false: the graph is then not to be searched.
int buildMergedBandGraph(KORUSEHybrid& engine, const BandPicture& band, int threads, std::vector<uint8_t>* dataSides,
                         bool stopOnCancel, bool* finished);
