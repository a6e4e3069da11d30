// One box edit on a big photo, for peak memory: `big_photo MEGAPIXELS
// [address-space-limit-MiB]`. Prints the resident peak before and after the
// edit, the edit's time, and the sizes of the structures that grow with the
// photo. With a limit, allocations past it fail and the edit must still end
// without a crash: refined, plainly enlarged (the refinement's fallback) or
// without a result.
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "engine/KORUSEHybrid.h"
#include "interface/SessionGlobals.h"
#include "SegmentationCore.h"
#include "testing/SyntheticScene.h"

namespace {

// VmHWM (peak) or VmRSS (now) from /proc, in MiB.
double statusMiB(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.compare(0, key.size(), key) == 0) return std::atof(line.c_str() + key.size() + 1) / 1024.0;
  return 0.0;
}

double mib(double bytes) { return bytes / (1 << 20); }

}  // namespace

int main(int argc, char** argv) {
  const double megapixels = argc > 1 ? std::atof(argv[1]) : 12.0;
  const long limitMiB = argc > 2 ? std::atol(argv[2]) : 0;
  const int h = static_cast<int>(std::lround(std::sqrt(megapixels * 1e6 * 3 / 4)));
  const int w = static_cast<int>(std::lround(h * 4.0 / 3.0));
  const Scene scene = discScene(w, h, 0.3);
  std::vector<unsigned char> mask(scene.pixels.size(), 77);
  std::vector<unsigned int> preview = scene.pixels;
  std::vector<int> marks(scene.pixels.size(), 0);
  const int x0 = w / 5, y0 = h / 10, x1 = w - w / 5, y1 = h - h / 10;
  for (int y = y0; y <= y1; ++y)
    for (int x = x0; x <= x1; ++x) marks[size_t(y) * w + x] = 4;
  std::vector<int> loop = {x0, y0, x1, y0, x1, y1, x0, y1};

  if (limitMiB > 0) {
    const rlimit limit{rlim_t(limitMiB) << 20, rlim_t(limitMiB) << 20};
    setrlimit(RLIMIT_AS, &limit);
  }
  setSourceImage(w, h, const_cast<unsigned int*>(scene.pixels.data()));
  initSegmentationEngine(0);
  const double before = statusMiB("VmHWM:"), settled = statusMiB("VmRSS:");
  const auto t0 = std::chrono::steady_clock::now();
  setCurrentMarkerVector(8, loop.data());
  setMarkerImage(w, h, marks.data(), 0);
  processSegment(0, 0, 0, preview.data(), mask.data());
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  const double peak = statusMiB("VmHWM:");

  size_t object = 0, truth = 0, both = 0;
  for (size_t i = 0; i < mask.size(); ++i) {
    object += mask[i] == 0;
    truth += scene.truth[i];
    both += mask[i] == 0 && scene.truth[i];
  }
  const bool delivered = mask[0] != 77;
  const double n = double(w) * h;
  const int bw = pHybrid ? pHybrid->m_trimapWidth : 0, bh = pHybrid ? pHybrid->m_trimapHeight : 0;
  const double band = double(bw) * bh;
  std::printf("%d x %d (%.1f MP)%s\n", w, h, n / 1e6,
              limitMiB ? (" under a " + std::to_string(limitMiB) + " MiB address-space limit").c_str() : "");
  std::printf("  edit: %.2f s, %s\n", seconds,
              !delivered ? "no result" : bw ? "refined in the band" : "plain enlargement (fallback)");
  if (delivered)
    std::printf("  object pixels %.0f, IoU with the truth %.3f\n", double(object),
                double(both) / double(object + truth - both));
  std::printf("  resident: %.0f MiB before the edit (peak so far %.0f), peak during it %.0f MiB\n", settled,
              before, peak);
  std::printf("  host buffers (photo, preview, mask, marks): %.0f MiB\n", mib(n * (4 + 4 + 1 + 4)));
  std::printf("  photo copy (3 B/px): %.0f MiB; history planes (4 B/px): %.0f MiB\n", mib(3 * n), mib(4 * n));
  std::printf("  band box %d x %d = %.1f MP (only the band's pixels are graph nodes)\n", bw, bh, band / 1e6);
  deinitSegmentation();
  return 0;
}
