#include "colormodel/KMeans.h"


#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "colormodel/DoublePair.h"
#include "colormodel/PackedSample.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"
#include "support/WorkerPool.h"

namespace {

using Pair = DoublePair;

// One point's three values.
struct Point3 {
  double v[3];
};

// The points as k_means gets them: n pointers to three doubles.
struct PointerPoints {
  double* const* points;
  bool valid() const { return points != nullptr; }
  Point3 operator[](int i) const {
    const double* p = points[i];
    return {{p[0], p[1], p[2]}};
  }
};

// Packed 8-bit samples (PackedSample.h).
struct PackedPoints {
  const uint32_t* samples;
  bool valid() const { return samples != nullptr; }
  Point3 operator[](int i) const {
    const pixelVal s = unpackSample(samples[i]);
    return {{s.v[0], s.v[1], s.v[2]}};
  }
};

// ((0 + d0^2) + d1^2) + d2^2.
inline double squaredDistance(const Point3& a, const Point3& b) {
  const double d0 = a.v[0] - b.v[0], d1 = a.v[1] - b.v[1], d2 = a.v[2] - b.v[2];
  return ((0.0 + d0 * d0) + d1 * d1) + d2 * d2;
}

// The same per lane, e the point minus two centres.
inline Pair squaredDistances(Pair p0, Pair p1, Pair p2, Pair x, Pair y, Pair z) {
  const Pair e0 = p0 - x, e1 = p1 - y, e2 = p2 - z;
  return ((Pair{0.0, 0.0} + e0 * e0) + e1 * e1) + e2 * e2;
}

// The seed of the next draw is the distance sum as an unsigned integer.
// Beyond the unsigned range the value saturates (what the ARM conversion
// instruction does) instead of being undefined; NaN gives 0.
unsigned toSeed(double sum) {
  if (!(sum > 0)) return 0;
  if (sum >= 4294967295.0) return 4294967295u;
  return static_cast<unsigned>(sum);
}

int firstSeed(int n) {
  return static_cast<int>(std::floor(static_cast<double>(n) * std::rand() * kRandScale));
}

// chooseCentersKMeanspp for either kind of points.
template <class Points>
void seedCentres(const Points& points, int n, int k, int* chosen) {
  if (!chosen || k < 1) {
    logBadCall("chooseCentersKMeanspp", "no room for the centres");
    return;
  }
  std::srand(static_cast<unsigned>(n));
  chosen[0] = firstSeed(n);
  double* dist = nullptr;
  if (n >= 1 && points.valid())
    dist = static_cast<double*>(KORU_Malloc_Msg(sizeof(double) * n, LOG_SITE_HERE("chooseCentersKMeanspp")));
  if (!dist) {  // no points (or no memory): every further seed is point 0
    if (n >= 1) logBadCall("chooseCentersKMeanspp", "seeding without distances");
    for (int c = 1; c < k; ++c) {
      std::srand(0);
      std::rand();
      chosen[c] = 0;
    }
    return;
  }

  double sum = 0.0;
  const Point3 first = points[chosen[0]];
  for (int i = 0; i < n; ++i) {
    dist[i] = squaredDistance(points[i], first);
    sum += dist[i];
  }
  for (int c = 1; c < k; ++c) {
    // Draw a point with probability proportional to its squared distance
    // from the nearest seed so far.
    std::srand(toSeed(sum));
    const int r = std::rand();
    double target = sum * kRandScale * r;
    int i = 0;
    for (; i < n - 1; ++i) {
      if (!(target > dist[i])) break;
      target -= dist[i];
    }
    chosen[c] = i;
    sum = 0.0;
    const Point3 seed = points[i];
    for (int j = 0; j < n; ++j) {
      const double d = squaredDistance(points[j], seed);
      if (d < dist[j]) dist[j] = d;
      sum += dist[j];
    }
  }
  KORU_Free_Msg(dist, LOG_SITE_HERE("chooseCentersKMeanspp"));
}

// findMinDistance for either kind of points.
template <class Points>
void nearestCentres(const Points& points, KMeansWork* w) {
  const int quarter = w->n / kKMeansThreads;
  const int begin = w->thread * quarter;
  const int end = w->thread == kKMeansThreads - 1 ? w->n : begin + quarter;
  // Everything the loop touches is copied in: stores into labels (and into
  // the record) may alias the record, which would be reloaded after each of
  // them, and the four records share cache lines between the workers.
  int* labels = w->labels;
  // Centres value by value, two to a register (the sixth lane zero and
  // never chosen), so that the five distances of a point are computed side
  // by side; each is ((0 + d0^2) + d1^2) + d2^2 as before.
  static_assert(kNumComponents == 5, "centres are paired as 0-1, 2-3, 4");
  const double* c = w->centres;
  const Pair x01 = {c[0], c[3]}, y01 = {c[1], c[4]}, z01 = {c[2], c[5]};
  const Pair x23 = {c[6], c[9]}, y23 = {c[7], c[10]}, z23 = {c[8], c[11]};
  const Pair x4 = {c[12], 0.0}, y4 = {c[13], 0.0}, z4 = {c[14], 0.0};
  double sums[kNumComponents][3];
  double counts[kNumComponents];
  std::memcpy(sums, w->sums, sizeof sums);
  std::memcpy(counts, w->counts, sizeof counts);
  double error = w->error;
  for (int i = begin; i < end; ++i) {
    const Point3 p = points[i];
    const Pair p0 = {p.v[0], p.v[0]}, p1 = {p.v[1], p.v[1]}, p2 = {p.v[2], p.v[2]};
    const Pair d01 = squaredDistances(p0, p1, p2, x01, y01, z01);
    const Pair d23 = squaredDistances(p0, p1, p2, x23, y23, z23);
    const Pair d4 = squaredDistances(p0, p1, p2, x4, y4, z4);
    const double d[kNumComponents] = {d01[0], d01[1], d23[0], d23[1], d4[0]};
    double best = DBL_MAX;
    int cluster = 0;
#pragma GCC unroll 5
    for (int k = 0; k < kNumComponents; ++k) {
      if (d[k] < best) {  // strict: ties keep the lower index
        best = d[k];
        cluster = k;
      }
    }
    labels[i] = cluster;
    for (int v = 0; v < 3; ++v) sums[cluster][v] += p.v[v];
    counts[cluster] += 1.0;
    error += best;
  }
  std::memcpy(w->sums, sums, sizeof sums);
  std::memcpy(w->counts, counts, sizeof counts);
  w->error = error;
}

// One distance pass, its quarters on kKMeansThreads threads at once.
void distancePass(KMeansWork* work) {
  runTasks(kKMeansThreads, kKMeansThreads, [work](int t) { findMinDistance(&work[t]); });
}

// k_means for either kind of points; `record` is the workers' record with
// the points set and everything else to be filled in.
template <class Points>
void cluster(const Points& points, KMeansWork record, int* labels, int n, double epsilon, int maxIterations) {
  int chosen[kNumComponents];
  seedCentres(points, n, kNumComponents, chosen);
  double centres[kNumComponents * 3];
  for (int k = 0; k < kNumComponents; ++k) {
    const Point3 seed = points[chosen[k]];
    for (int c = 0; c < 3; ++c) centres[3 * k + c] = seed.v[c];
  }

  KMeansWork work[kKMeansThreads];
  double error = DBL_MAX;
  int iteration = 0;
  for (;;) {
    const double previousError = error;
    for (int t = 0; t < kKMeansThreads; ++t) {
      work[t] = KMeansWork{record.points, labels, n, t, centres, {}, {}, 0.0, record.packed};
    }
    distancePass(work);

    // Reduce in thread order, so the result does not depend on timing.
    error = 0.0;
    for (int t = 0; t < kKMeansThreads; ++t) error += work[t].error;
    for (int k = 0; k < kNumComponents; ++k) {
      double count = 0.0;
      double sum[3] = {0.0, 0.0, 0.0};
      for (int t = 0; t < kKMeansThreads; ++t) {
        count += work[t].counts[k];
        for (int c = 0; c < 3; ++c) sum[c] += work[t].sums[k][c];
      }
      if (count > 0) {
        for (int c = 0; c < 3; ++c) centres[3 * k + c] = sum[c] / count;
      } else {
        labels[chosen[k]] = k;  // keep the empty cluster alive with its seed
      }
    }
    if (std::fabs(error - previousError) <= epsilon) break;
    if (++iteration >= maxIterations) break;
  }
}

}  // namespace

void chooseCentersKMeanspp(double** points, int n, int k, int* chosen) {
  seedCentres(PointerPoints{points}, n, k, chosen);
}

void* findMinDistance(void* work) {
  KMeansWork* w = static_cast<KMeansWork*>(work);
  if (w->packed)
    nearestCentres(PackedPoints{w->packed}, w);
  else
    nearestCentres(PointerPoints{w->points}, w);
  return nullptr;
}

void k_means(double** points, int* labels, int n, double epsilon, int maxIterations,
             double** /*centres*/) {
  if (!points || !labels || n < 1) {
    logBadCall("k_means", "no points to cluster");
    return;
  }
  cluster(PointerPoints{points}, KMeansWork{points, nullptr, 0, 0, nullptr, {}, {}, 0.0, nullptr}, labels, n,
          epsilon, maxIterations);
}

void kMeansPacked(const uint32_t* samples, int* labels, int n, double epsilon, int maxIterations) {
  if (!samples || !labels || n < 1) {
    logBadCall("kMeansPacked", "no samples to cluster");
    return;
  }
  cluster(PackedPoints{samples}, KMeansWork{nullptr, nullptr, 0, 0, nullptr, {}, {}, 0.0, samples}, labels, n,
          epsilon, maxIterations);
}
