// Threads: cancelling from another thread while an edit runs, and a session
// edited with several threads. `make test-tsan` runs these under
// ThreadSanitizer: any report is a real race.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include "graph/KORUSEGraph.h"
#include "interface/session/KORUSEMarker.h"
#include "SessionFixture.h"
#include "support/ThreadSetting.h"
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

// One session, edited with 1, 2, 3 and 4 threads: a box, a remove stroke
// across the object, an undo and a redo, on a photo the engine reduces and
// refines. Every mask and preview equals the one-thread session's, byte for
// byte. Under ThreadSanitizer this runs each threaded stage of an edit.
TEST_F(SessionTest, SeveralThreadsGiveTheOneThreadSessionByteForByte) {
  const Scene scene = discScene(1280, 960);
  std::vector<std::vector<unsigned char>> reference;
  for (int threads : {1, 2, 3, 4}) {
    SCOPED_TRACE(testing::Message() << threads << " threads");
    EXPECT_EQ(setSegmentationThreads(threads), threads);
    open(scene.width, scene.height, scene.pixels);
    std::vector<std::vector<unsigned char>> results;
    const auto keep = [&](const HostMask& mask, const Pixels& preview) {
      results.push_back(mask);
      results.emplace_back(reinterpret_cast<const unsigned char*>(preview.data()),
                           reinterpret_cast<const unsigned char*>(preview.data() + preview.size()));
    };
    HostMask mask = blankMask();
    Pixels preview = photo_;
    ASSERT_EQ(boxEdit(320, 150, 960, 810, &mask), 0);
    results.push_back(mask);
    std::vector<int> line = {600, 480, 900, 480}, marks(size_t(w_) * h_, 0);
    for (int x = 600; x <= 900; ++x)
      for (int y = 476; y <= 484; ++y) marks[size_t(y) * w_ + x] = 1;
    preview = photo_;
    ASSERT_EQ(edit(line, marks, 3, &mask, &preview), 0);
    keep(mask, preview);
    preview = photo_;
    undo(preview.data(), mask.data());
    keep(mask, preview);
    preview = photo_;
    redo(preview.data(), mask.data());
    keep(mask, preview);
    if (threads == 1)
      reference = results;
    else
      for (size_t i = 0; i < results.size(); ++i) EXPECT_TRUE(results[i] == reference[i]) << "result " << i;
  }
  // The setting is the process's: sessions come and go, it stays.
  EXPECT_EQ(setSegmentationThreads(3), 3);
  deinitSegmentation();
  HostMask small(64 * 48);
  Pixels photo(64 * 48, 0xFF808080u);
  doSegmentationBB(64, 48, photo.data(), 8, 8, 40, 30, small.data());
  deinitSegmentation();
  EXPECT_EQ(segmentationThreads(), 3);
  EXPECT_EQ(setSegmentationThreads(0), 1);
  EXPECT_EQ(setSegmentationThreads(99), 16);
  EXPECT_EQ(setSegmentationThreads(1), 1);
}
