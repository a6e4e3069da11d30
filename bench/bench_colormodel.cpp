// Colour model hot paths at the working size of 76,800 samples (320 x 240):
// the first-pass initialisation (k-means++ seeding, four-thread k-means,
// model set-up) on pixelVals and on packed samples, and the per-sample
// mixture density of the graph builders.
#include <benchmark/benchmark.h>

#include <vector>

#include "colormodel/KMeansInit.h"
#include "colormodel/KORUSEColorModel.h"
#include "colormodel/PackedSample.h"
#include "interface/session/KORUSEMarker.h"

namespace {

constexpr int kWorkingSamples = 320 * 240;

// Eight colour groups with a spread of +-12 (every value a byte), from a
// fixed sequence.
std::vector<pixelVal> makeSamples() {
  const double centres[8][3] = {{30, 40, 50},   {200, 60, 40},  {60, 180, 70},   {40, 60, 200},
                                {220, 220, 210}, {120, 110, 90}, {180, 140, 200}, {20, 20, 20}};
  std::vector<pixelVal> s(kWorkingSamples);
  unsigned state = 2024;
  for (int i = 0; i < kWorkingSamples; ++i)
    for (int c = 0; c < 3; ++c) {
      state = state * 1103515245u + 12345u;
      s[i].v[c] = centres[i % 8][c] + static_cast<int>((state >> 16) % 25) - 12;
    }
  return s;
}

void BM_KMeansModelSetup(benchmark::State& state) {
  KORUSEMarker::m_noiseLevel = 0.1;
  const std::vector<pixelVal> samples = makeSamples();
  for (auto _ : state) {
    KORUSEColorModel model;
    initModelWithKmeansKORU(samples, model);
    model.setInverseCovariance();
    benchmark::DoNotOptimize(model.m_determinants);
  }
  state.SetItemsProcessed(state.iterations() * kWorkingSamples);
}
BENCHMARK(BM_KMeansModelSetup)->Unit(benchmark::kMillisecond);

// The same clustering on the samples packed into words, as the driver runs
// it on the region's pixels.
void BM_KMeansPackedModelSetup(benchmark::State& state) {
  KORUSEMarker::m_noiseLevel = 0.1;
  const std::vector<pixelVal> samples = makeSamples();
  std::vector<uint32_t> packed;
  for (const pixelVal& s : samples)
    packed.push_back(packSample(uint8_t(s.v[0]), uint8_t(s.v[1]), uint8_t(s.v[2])));
  for (auto _ : state) {
    KORUSEColorModel model;
    initModelWithKmeansPacked(packed.data(), static_cast<int>(packed.size()), model);
    model.setInverseCovariance();
    benchmark::DoNotOptimize(model.m_determinants);
  }
  state.SetItemsProcessed(state.iterations() * kWorkingSamples);
}
BENCHMARK(BM_KMeansPackedModelSetup)->Unit(benchmark::kMillisecond);

void BM_GMMProb(benchmark::State& state) {
  KORUSEMarker::m_noiseLevel = 0.1;
  const std::vector<pixelVal> samples = makeSamples();
  KORUSEColorModel model;
  initModelWithKmeansKORU(samples, model);
  model.setInverseCovariance();
  for (auto _ : state) {
    double sum = 0.0;
    for (const pixelVal& s : samples) sum += model.GMMProb(s);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kWorkingSamples);
}
BENCHMARK(BM_GMMProb)->Unit(benchmark::kMicrosecond);

}  // namespace
