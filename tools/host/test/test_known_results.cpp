// Known results: a box edit (doSegmentationBB) on each sample photo at its
// own size, which the engine reduces to the working size and refines in the
// band, and at 0.06 megapixels, which it cuts as it is. Each is pinned by a
// hash (FNV-1a) of the host mask. The hashes are those the library gave
// before any of its speed work (checked against cutout fingerprint of that
// build); speed work must not move a pixel, and nor may more threads.
// Regenerate only for a change meant to move results: run
// test_known_results, a failure prints the new hash.
#include <gtest/gtest.h>

#include <android/log.h>

#include <algorithm>
#include <vector>

#include "SegmentationCore.h"
#include "tools/host/BenchmarkFolder.h"
#include "tools/host/Fnv1a.h"
#include "tools/host/Photo.h"

namespace {

struct Known {
  const char* photo;
  double megapixels;  // 0: the photo as it is
  unsigned long long maskHash;
  double objectShareMin, objectShareMax;  // plausible share of object pixels
};

}  // namespace

TEST(KnownResults, SamplePhotoBoxEdits) {
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  const Known known[] = {
      {"coffee", 0, 2641565795541249584ull, 0.35, 0.60},
      {"coffee", 0.06, 15243184141594352332ull, 0.35, 0.60},
      {"astronaut", 0, 16357555196165272642ull, 0.25, 0.50},
      {"astronaut", 0.06, 3704700205445699719ull, 0.25, 0.50},
  };
  const std::vector<BenchmarkPhoto> samples = readSampleFolder(SEG_SAMPLES_DIR);
  for (int threads : {1, 2, 4})
  for (const Known& k : known) {
    setSegmentationThreads(threads);
    const auto sample = std::find_if(samples.begin(), samples.end(),
                                     [&](const BenchmarkPhoto& s) { return s.name == k.photo; });
    ASSERT_NE(sample, samples.end()) << k.photo;
    std::array<int, 4> box = sample->box;
    Photo photo = readPhoto(sample->image);
    if (k.megapixels > 0) photo = resizedPhoto(photo, k.megapixels, box);
    std::vector<unsigned char> mask(photo.pixels.size(), 128);
    doSegmentationBB(photo.width(), photo.height(), photo.pixels.data(), box[0], box[1], box[2], box[3],
                     mask.data());
    deinitSegmentation();
    Fnv1a hash;
    hash.add(mask.data(), mask.size());
    const double share = std::count(mask.begin(), mask.end(), 0) / double(mask.size());
    EXPECT_EQ(hash.value(), k.maskHash) << k.photo << " at " << photo.width() << "x" << photo.height() << ", "
                                        << threads << " threads";
    EXPECT_TRUE(share > k.objectShareMin && share < k.objectShareMax) << k.photo << ": " << share;
  }
  setSegmentationThreads(1);
}
