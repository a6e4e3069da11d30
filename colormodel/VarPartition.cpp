#include "colormodel/VarPartition.h"

#include <cstddef>
#include <limits>
#include <new>

#include "support/KORULog.h"

int g_maxVarDir = 0;

namespace {

// Splits made by varParInit: four splits turn one partition into five.
constexpr int kVarPartitionSplits = kNumComponents - 1;

}  // namespace

double distSq(pixelVal a, pixelVal b) {
  double sum = 0.0;
  for (int c = 0; c < 3; ++c) {
    const double d = a.v[c] - b.v[c];
    sum += d * d;
  }
  return sum;
}

pixelVal findMean(const std::vector<pixelVal>& samples) {
  pixelVal mean = {{0.0, 0.0, 0.0}};
  if (samples.empty()) return mean;
  for (const pixelVal& s : samples)
    for (int c = 0; c < 3; ++c) mean.v[c] += s.v[c];
  for (int c = 0; c < 3; ++c) mean.v[c] /= static_cast<double>(samples.size());
  return mean;
}

double findSSE(const std::vector<pixelVal>& samples) {
  const pixelVal mean = findMean(samples);
  double sse = 0.0;
  for (const pixelVal& s : samples) sse += distSq(s, mean);
  return sse;
}

void varPartition(const std::vector<pixelVal>& samples, std::vector<pixelVal>& low,
                  std::vector<pixelVal>& high) {
  if (samples.empty()) {
    g_maxVarDir = 0;
    return;
  }
  const double n = static_cast<double>(samples.size());
  double sum[3] = {0.0, 0.0, 0.0};
  double sumSq[3] = {0.0, 0.0, 0.0};
  for (const pixelVal& s : samples)
    for (int c = 0; c < 3; ++c) {
      sum[c] += s.v[c];
      sumSq[c] += s.v[c] * s.v[c];
    }
  int direction = 0;
  double bestVariance = -1.0;
  double splitMean = sum[0] / n;
  for (int c = 0; c < 3; ++c) {
    const double mean = sum[c] / n;
    const double variance = sumSq[c] / n - mean * mean;  // population variance
    if (variance > bestVariance) {
      bestVariance = variance;
      direction = c;
      splitMean = mean;
    }
  }
  g_maxVarDir = direction;
  try {
    for (const pixelVal& s : samples) (s.v[direction] >= splitMean ? high : low).push_back(s);
  } catch (const std::bad_alloc&) {
    logBadCall("varPartition", "out of memory; partition incomplete");
  }
}

void varParInit(const std::vector<pixelVal>& samples, double** centres) {
  if (!centres) {
    logBadCall("varParInit", "no centres to write");
    return;
  }
  for (int k = 0; k < kNumComponents; ++k)
    if (!centres[k]) {
      logBadCall("varParInit", "no centres to write");
      return;
    }
  try {
    std::vector<std::vector<pixelVal>> parts{samples};
    std::vector<double> sse{findSSE(samples)};
    for (int split = 0; split < kVarPartitionSplits; ++split) {
      // The partition with the largest SSE per sample; an empty one scores
      // NaN, which no later partition beats.
      auto spread = [&](std::size_t p) {
        return parts[p].empty() ? std::numeric_limits<double>::quiet_NaN()
                                : sse[p] / static_cast<double>(parts[p].size());
      };
      std::size_t selected = 0;
      double best = spread(0);
      for (std::size_t p = 1; p < parts.size(); ++p)
        if (spread(p) > best) {
          best = spread(p);
          selected = p;
        }
      std::vector<pixelVal> low, high;
      varPartition(parts[selected], low, high);
      parts.erase(parts.begin() + selected);
      sse.erase(sse.begin() + selected);
      sse.push_back(findSSE(low));
      sse.push_back(findSSE(high));
      parts.push_back(std::move(low));
      parts.push_back(std::move(high));
    }
    for (int k = 0; k < kNumComponents; ++k) {
      const pixelVal mean = findMean(parts[k]);
      for (int c = 0; c < 3; ++c) centres[k][c] = mean.v[c];
    }
  } catch (const std::bad_alloc&) {
    logBadCall("varParInit", "out of memory; centres not written");
  }
}
