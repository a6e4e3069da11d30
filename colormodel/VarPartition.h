// Variance partition: an alternative way to seed five centres by splitting
// the sample set along its direction of largest variance, and the small
// sample statistics it uses.
#pragma once

#include <vector>

#include "colormodel/KORUSEColorModel.h"

// Index (0, 1 or 2) of the value of largest variance found by the last
// varPartition call. Unguarded: one varPartition at a time.
extern int g_maxVarDir;

// Squared Euclidean distance.
double distSq(pixelVal a, pixelVal b);

// Per-value mean; all zero for no samples.
pixelVal findMean(const std::vector<pixelVal>& samples);

// Sum of squared distances of the samples to their mean; 0 for none.
double findSSE(const std::vector<pixelVal>& samples);

// Picks the value of largest population variance (ties: lower index; sets
// g_maxVarDir, 0 for no samples) and appends every sample whose value there
// is at least the mean to high, every other to low.
void varPartition(const std::vector<pixelVal>& samples, std::vector<pixelVal>& low,
                  std::vector<pixelVal>& high);

// Splits the samples four times, each time the partition with the largest
// SSE per sample (first one on ties), into low and high halves appended at
// the end of the list; writes the means of the five partitions, in list
// order, into centres[0..4] (three doubles each; (0,0,0) for an empty one).
void varParInit(const std::vector<pixelVal>& samples, double** centres);
