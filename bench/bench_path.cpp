// find_parent_info on a camera-preview and a full-size photo, and the plain
// search (plainParentInfo) beside it on the full-size ones, for the speed-up.
//
// Two inputs: "scene", a generated photo (a speckled disc on a striped,
// speckled background: flat areas, edges and noise, as a photo has), and
// "random", every pixel an independent random colour.
//
// Counters: "per_pixel", time per pixel (in seconds), and "bytes_per_pixel",
// the peak working memory of one call over its pixel count. That peak is
// measured, not estimated: this program replaces the global operator new and
// delete with ones that count the bytes alive (every std::vector of the
// library goes through them), and one untimed call records the highest count
// above the count it started from. The result vector is included; the input
// images (OpenCV's own allocator) are not.
#include <benchmark/benchmark.h>
#include <opencv2/core/core_c.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "path/PathSearch.h"
#include "path/PlainPathSearch.h"
#include "testing/SyntheticScene.h"

// ---- counting allocator ------------------------------------------------------

namespace {

size_t g_alive = 0, g_peak = 0;  // bytes; the benchmark runs on one thread

// Each block carries its size in front, so delete can subtract it.
struct alignas(std::max_align_t) BlockHeader {
  size_t size;
};

void* countedAlloc(size_t size) noexcept {
  auto* header = static_cast<BlockHeader*>(std::malloc(sizeof(BlockHeader) + size));
  if (!header) return nullptr;
  header->size = size;
  g_alive += size;
  g_peak = std::max(g_peak, g_alive);
  return header + 1;
}

void countedFree(void* p) noexcept {
  if (!p) return;
  auto* header = static_cast<BlockHeader*>(p) - 1;
  g_alive -= header->size;
  std::free(header);
}

void* countedAllocOrThrow(size_t size) {
  if (void* p = countedAlloc(size)) return p;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(size_t size) { return countedAllocOrThrow(size); }
void* operator new[](size_t size) { return countedAllocOrThrow(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return countedAlloc(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return countedAlloc(size); }
void operator delete(void* p) noexcept { countedFree(p); }
void operator delete[](void* p) noexcept { countedFree(p); }
void operator delete(void* p, size_t) noexcept { countedFree(p); }
void operator delete[](void* p, size_t) noexcept { countedFree(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { countedFree(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { countedFree(p); }

// ---- inputs ------------------------------------------------------------------

namespace {

enum Input { kScene, kRandom };

IplImage* makeColour(Input input, int width, int height) {
  IplImage* colour = cvCreateImage(cvSize(width, height), IPL_DEPTH_8U, 3);
  if (input == kRandom) {
    CvRNG rng = cvRNG(7);
    cvRandArr(&rng, colour, CV_RAND_UNI, cvScalarAll(0), cvScalarAll(256));
    return colour;
  }
  const Scene scene = discScene(width, height);
  for (int r = 0; r < height; ++r)
    for (int c = 0; c < width; ++c) {
      const unsigned px = scene.pixels[static_cast<size_t>(r) * width + c];
      auto* out = reinterpret_cast<unsigned char*>(colour->imageData + r * colour->widthStep) + 3 * c;
      out[0] = px & 0xFF;          // blue
      out[1] = (px >> 8) & 0xFF;   // green
      out[2] = (px >> 16) & 0xFF;  // red
    }
  return colour;
}

// ---- benchmarks --------------------------------------------------------------

template <typename Search>
void runSearch(benchmark::State& state, Search search) {
  const Input input = static_cast<Input>(state.range(0));
  const int width = static_cast<int>(state.range(1)), height = static_cast<int>(state.range(2));
  IplImage* colour = makeColour(input, width, height);
  state.SetLabel(input == kScene ? "scene" : "random");
  const double pixels = static_cast<double>(width) * height;

  const size_t before = g_alive;
  g_peak = g_alive;
  {
    auto parents = search(colour, height / 2, width / 2);
    benchmark::DoNotOptimize(parents.data());
  }
  state.counters["bytes_per_pixel"] = static_cast<double>(g_peak - before) / pixels;

  for (auto _ : state) {
    auto parents = search(colour, height / 2, width / 2);
    benchmark::DoNotOptimize(parents.data());
  }
  state.counters["per_pixel"] = benchmark::Counter(
      pixels, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  cvReleaseImage(&colour);
}

void BM_FindParentInfo(benchmark::State& state) {
  runSearch(state, [](IplImage* colour, int r, int c) {
    return find_parent_info(colour, nullptr, r, c, 0.5);
  });
}

// The overload that also writes every cost, into a double image.
void BM_FindParentInfoWithCosts(benchmark::State& state) {
  IplImage* costs = cvCreateImage(cvSize(static_cast<int>(state.range(1)), static_cast<int>(state.range(2))),
                                  IPL_DEPTH_64F, 1);
  runSearch(state, [costs](IplImage* colour, int r, int c) {
    return find_parent_info(colour, nullptr, r, c, 0.5, costs);
  });
  cvReleaseImage(&costs);
}

void BM_PlainParentInfo(benchmark::State& state) {
  runSearch(state, [](IplImage* colour, int r, int c) {
    return plainParentInfo(colour, nullptr, r, c, 0.5);
  });
}

}  // namespace

// Args: input, width, height. The plain search takes about a second a call:
// it runs at the full size only, each time straight after the fast one.
BENCHMARK(BM_FindParentInfo)->Args({kScene, 320, 240})->Args({kRandom, 320, 240})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FindParentInfo)->Args({kScene, 1280, 960})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FindParentInfoWithCosts)->Args({kScene, 1280, 960})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainParentInfo)->Args({kScene, 1280, 960})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FindParentInfo)->Args({kRandom, 1280, 960})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainParentInfo)->Args({kRandom, 1280, 960})->Unit(benchmark::kMillisecond);
