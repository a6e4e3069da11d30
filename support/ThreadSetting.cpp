#include "support/ThreadSetting.h"

#include <algorithm>
#include <atomic>

namespace {
std::atomic<int> g_threads{1};
}  // namespace

int segmentationThreads() { return g_threads.load(std::memory_order_relaxed); }

int setSegmentationThreadCount(int n) {
  const int kept = std::min(std::max(n, 1), kMaxSegmentationThreads);
  g_threads.store(kept, std::memory_order_relaxed);
  return kept;
}
