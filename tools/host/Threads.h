// How many threads the host programs let a segmentation use unless told
// otherwise: the machine's cores, at most four (a phone's big cores).
#pragma once

constexpr int kMostDefaultThreads = 4;

// min(the cores this process may run on, kMostDefaultThreads), at least 1.
int defaultSegmentationThreads();
