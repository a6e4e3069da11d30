// Cancelling from another thread while an edit runs. `make test-tsan` runs
// this under ThreadSanitizer: the cancel flag is the only state the two
// threads share, so any report is a real race.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include "graph/KORUSEGraph.h"
#include "interface/session/KORUSEMarker.h"
#include "SessionFixture.h"
#include "testing/SyntheticScene.h"

class CancelRace : public SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    cv::setNumThreads(0);  // OpenCV's own pool is not ours to check
  }
};

// A cancel lands at a different moment in each round, from the start of the
// edit to twice its length later. The cut is checked after every pass, the
// last check after the last pass, so each round either delivers exactly the
// uncancelled result or nothing: the mask untouched, the preview the photo.
TEST_F(CancelRace, CancelDuringAnEditGivesAllOrNothing) {
  const Scene scene = discScene(96, 72);
  open(scene.width, scene.height, scene.pixels);
  HostMask reference = blankMask();
  ASSERT_EQ(boxEdit(20, 8, 76, 64, &reference), 0);
  ASSERT_GE(hostMaskIoU(reference, scene), 0.9);

  const auto start = std::chrono::steady_clock::now();
  resetSegmentationInterface();
  HostMask timing = blankMask();
  boxEdit(20, 8, 76, 64, &timing);
  const auto editTime = std::chrono::steady_clock::now() - start;
  ASSERT_EQ(timing, reference);  // a reset session repeats itself

  const int kRounds = 50;
  int cancelled = 0;
  for (int round = 0; round < kRounds; ++round) {
    resetSegmentationInterface();  // clears the previous round's cancel
    HostMask mask = blankMask(9);
    Pixels preview = photo_;
    std::thread canceller([&] {
      std::this_thread::sleep_for(editTime * round / (kRounds / 2));
      EXPECT_EQ(cancelSegmentation(), 1);
    });
    std::vector<int> marks(size_t(w_) * h_, 0);
    for (int y = 8; y <= 64; ++y)
      for (int x = 20; x <= 76; ++x) marks[y * w_ + x] = 4;
    EXPECT_EQ(edit({20, 8, 76, 8, 76, 64, 20, 64}, marks, 0, &mask, &preview), 0);
    canceller.join();
    if (mask == blankMask(9)) {
      ++cancelled;
      EXPECT_EQ(preview, photo_) << "round " << round;
    } else {
      EXPECT_EQ(mask, reference) << "round " << round;
    }
  }
  // The early rounds cancel before the cut can finish.
  EXPECT_GT(cancelled, 0);
}

// The block max-flow's workers poll the same flag. Whether a round's search
// ends or stops, every edge the partition took out between blocks must be
// back: present in the grid means not ABSENT_CAPACITY, and never negative.
TEST_F(CancelRace, CancelDuringTheBlockMaxFlowRestoresEveryEdge) {
  const int w = 120, h = 90, n = w * h;
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> capacity(0.5f, 4.0f), terminal(-6.0f, 6.0f);
  for (int round = 0; round < 50; ++round) {
    KORUSEGraph g(n, 8 * n, w, h, 4);
    g.addNode(n);
    for (int i = 0; i < n; ++i) {
      const int x = i % w, y = i / w;
      const bool present[4] = {x > 0, x > 0 && y > 0, y > 0, y > 0 && x < w - 1};
      for (bool p : present) {
        const float c = capacity(rng);
        g.addEdge(i, -1, p ? c : ABSENT_CAPACITY, p ? c : ABSENT_CAPACITY, !p);
      }
      const float t = terminal(rng);
      g.addtWeights(i, std::max(t, 0.0f), std::max(-t, 0.0f));
    }
    std::thread canceller([round] {
      std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
      cancelSegmentation();
    });
    g.maxFlow();
    canceller.join();
    KORUSEMarker::m_exitApp = false;
    for (int i = 0; i < n; ++i) {
      const int x = i % w, y = i / w;
      const bool present[4] = {x > 0, x > 0 && y > 0, y > 0, y > 0 && x < w - 1};
      for (int slot = 0; slot < 4; ++slot)
        for (int d = 0; d < 2; ++d) {
          const float c = g.arcArray[8 * i + 2 * slot + d];
          if (present[slot]) ASSERT_GE(c, 0.0f) << "round " << round << " node " << i << " slot " << slot;
          else ASSERT_EQ(c, ABSENT_CAPACITY);
        }
    }
  }
}
