#include "Threads.h"

#include <algorithm>
#include <thread>

int defaultSegmentationThreads() {
  const int cores = static_cast<int>(std::thread::hardware_concurrency());
  return std::max(1, std::min(cores, kMostDefaultThreads));
}
