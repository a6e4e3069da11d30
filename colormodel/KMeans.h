// k-means into kNumComponents clusters with reproducible k-means++ seeding;
// the distance pass of every iteration runs on kKMeansThreads threads at
// once (kept workers, support/WorkerPool.h), all finished before the
// iteration is reduced.
//
// Points are an array of n pointers, each to three doubles (or packed 8-bit
// samples, kMeansPacked); labels an array of n ints that receives the
// cluster (0..4) of every point.
#pragma once

#include <cstdint>

#include "colormodel/KORUSEColorModel.h"

// Threads of the distance pass; thread t takes points [t*q, (t+1)*q) with
// q = n / 4, and the last thread also takes the remainder.
constexpr int kKMeansThreads = 4;

// 2^-31: rand() * kRandScale lies in [0, 1) for a 31-bit generator.
constexpr double kRandScale = 4.656612873077393e-10;

// What one worker of the distance pass gets. The accumulators are private,
// so the workers need no lock; their label ranges are disjoint.
struct KMeansWork {
  double** points;                  // the n points, shared, read only
  int* labels;                      // shared; the worker writes only its range
  int n;                            // number of points
  int thread;                       // 0 .. kKMeansThreads-1
  const double* centres;            // kNumComponents x 3, shared, read only
  double sums[kNumComponents][3];   // sum of the values of the points taken per cluster
  double counts[kNumComponents];    // points taken per cluster
  double error;                     // sum of squared distances to the chosen centres
  const uint32_t* packed;           // or, with points null: the points as packed 8-bit samples
};

// Clusters the points: k-means++ seeds, then at most maxIterations passes,
// stopping early once the total squared error changes by no more than
// epsilon. A cluster left empty keeps its centre and gets its seed point
// forced back in (labels[seed] = k). Ties go to the lower cluster index.
// The last argument is accepted and ignored. Null arrays or n < 1 are
// logged and nothing is done. Cost per iteration: 5n distances, 4 threads.
void k_means(double** points, int* labels, int n, double epsilon, int maxIterations,
             double** centres);

// k_means on n packed 8-bit samples (bytes 0, 1, 2 of a word are the
// three values): the same clustering, labels and rand() use bit for bit as
// k_means on points holding those values as doubles, without them. Null
// arrays or n < 1 are logged and nothing is done.
void kMeansPacked(const uint32_t* samples, int* labels, int n, double epsilon, int maxIterations);

// k-means++ seeding of k centres, written as point indexes into chosen.
// Reproducible: the C library generator is seeded with n, then with the
// running sum of squared distances before every further draw (so a point
// may be chosen twice). Changes the process's rand() state. Cost: k*n.
void chooseCentersKMeanspp(double** points, int n, int k, int* chosen);

// Worker entry of the distance pass: labels the points of its range with
// the nearest centre and fills its accumulators (zeroed by the caller).
// Takes a KMeansWork*, returns null.
void* findMinDistance(void* work);
