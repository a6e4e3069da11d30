#include "colormodel/PackedTraining.h"

#include "colormodel/KMeansInit.h"
#include "colormodel/TrainingData.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"

PackedTrainingSet::PackedTrainingSet(std::size_t room)
    : m_samples(static_cast<uint32_t*>(
          KORU_Malloc_Msg((room + kMinTrainingSamples) * sizeof(uint32_t), LOG_SITE_HERE("PackedTrainingSet")))) {}

PackedTrainingSet::~PackedTrainingSet() {
  if (m_samples) KORU_Free_Msg(m_samples, LOG_SITE_HERE("PackedTrainingSet"));
}

void PackedTrainingSet::initModel(KORUSEColorModel& model) {
  const uint32_t filler = packSample(static_cast<uint8_t>(kFillerSample.v[0]), static_cast<uint8_t>(kFillerSample.v[1]),
                                     static_cast<uint8_t>(kFillerSample.v[2]));
  while (m_count < static_cast<std::size_t>(kMinTrainingSamples)) m_samples[m_count++] = filler;
  initModelWithKmeansPacked(m_samples, static_cast<int>(m_count), model);
}

void AssignedTrainingSet::refit(KORUSEColorModel& model) {
  for (; m_count < static_cast<std::size_t>(kMinTrainingSamples); ++m_count)
    m_sums.add(model.assignCluster(kFillerSample), kFillerSample);
  m_sums.complete();
  setComponentsAndDeterminants(m_sums, static_cast<int>(m_count), model);
}
