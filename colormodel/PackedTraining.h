// Training the colour models from packed samples (PackedSample.h) read
// straight from an image, without the pixelVal vectors of
// extractTrainingData: 4 bytes a sample instead of 24. Fed the same samples
// in the same order, each gives bit for bit the model its plain counterpart
// gives (initModel, updateModel).
#pragma once

#include <cstddef>
#include <cstdint>

#include "colormodel/ClusterInfo.h"
#include "colormodel/KORUSEColorModel.h"
#include "colormodel/PackedSample.h"

// A training set for a fresh model: initModel's k-means on packed samples.
class PackedTrainingSet {
 public:
  // Room for `room` samples and the filler; ready() is false when that
  // cannot be allocated (the allocator logs it).
  explicit PackedTrainingSet(std::size_t room);
  ~PackedTrainingSet();
  PackedTrainingSet(const PackedTrainingSet&) = delete;
  PackedTrainingSet& operator=(const PackedTrainingSet&) = delete;

  bool ready() const { return m_samples != nullptr; }
  // At most `room` of them.
  void add(uint32_t sample) { m_samples[m_count++] = sample; }
  // Tops the set up with the filler as extractTrainingData does, then
  // initModel(set, model).
  void initModel(KORUSEColorModel& model);

 private:
  uint32_t* m_samples;
  std::size_t m_count = 0;
};

// A training set whose samples already know their component (what
// model.assignCluster answers for them): updateModel without the
// assignment pass.
class AssignedTrainingSet {
 public:
  void add(int component, uint32_t sample) {
    m_sums.add(component, unpackSample(sample));
    ++m_count;
  }
  // Tops the set up with the filler (its component asked of `model`), then
  // re-estimates the model from the sums as updateModel does.
  void refit(KORUSEColorModel& model);

 private:
  ClusterInfo m_sums;
  std::size_t m_count = 0;
};
