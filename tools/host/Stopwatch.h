// CPU and wall time of one call, for `cutout eval`. CPU time is std::clock:
// the process's CPU time, so that the library's worker threads (k-means runs
// four) are counted as well as the calling thread.
#pragma once

#include <chrono>
#include <ctime>

struct Stopwatch {
  std::clock_t cpuStart = std::clock();
  std::chrono::steady_clock::time_point wallStart = std::chrono::steady_clock::now();

  double cpuMs() const { return 1000.0 * static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC; }
  double wallMs() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - wallStart).count();
  }
};
