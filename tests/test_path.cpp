#include <gtest/gtest.h>
#include <opencv2/core/core_c.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <memory>
#include <queue>
#include <random>
#include <stdexcept>
#include <vector>

#include "LogCapture.h"
#include "path/MinPriorityQueue.h"
#include "path/PathSearch.h"

namespace {

struct ImageDeleter {
  void operator()(IplImage* p) const { cvReleaseImage(&p); }
};
using Image = std::unique_ptr<IplImage, ImageDeleter>;

Image makeImage(int w, int h, int channels, int depth = IPL_DEPTH_8U) {
  Image image(cvCreateImage(cvSize(w, h), depth, channels));
  cvSetZero(image.get());
  return image;
}

Image makeLabels(const std::vector<std::vector<int>>& rows) {
  Image labels = makeImage((int)rows[0].size(), (int)rows.size(), 1);
  for (size_t r = 0; r < rows.size(); ++r)
    for (size_t c = 0; c < rows[r].size(); ++c) cvSet2D(labels.get(), r, c, cvScalar(rows[r][c]));
  return labels;
}

double at(const Image& image, int r, int c) { return cvGet2D(image.get(), r, c).val[0]; }

// Ids in pop order after pushing these keys as ids 0, 1, 2, ...
std::vector<int> popOrder(std::vector<double> keys) {
  MinPriorityQueue q;
  for (size_t i = 0; i < keys.size(); ++i) q.push(Qnode{(int)i, keys[i]});
  std::vector<int> ids;
  while (q.heap.size() > 1) ids.push_back(q.pop_min().id);
  return ids;
}

}  // namespace

TEST(MinPriorityQueue, AgreesWithStdPriorityQueueAndKeepsTieRules) {
  // Keys from a small range so ties are frequent. The reference is a lazy
  // std::priority_queue (stale entries skipped), so only keys are compared;
  // ids are checked through position.
  std::mt19937 rng(20240611);
  for (int round = 0; round < 30; ++round) {
    MinPriorityQueue q;
    std::priority_queue<std::pair<double, int>, std::vector<std::pair<double, int>>, std::greater<>>
        ref;
    std::vector<double> key;  // current key per id, NAN once popped
    for (int step = 0; step < 300; ++step) {
      const int op = rng() % 3, id = key.empty() ? 0 : rng() % key.size();
      if (op == 0) {
        key.push_back(rng() % 16);
        q.push(Qnode{(int)key.size() - 1, key.back()});
        ref.push({key.back(), (int)key.size() - 1});
      } else if (op == 1 && q.heap.size() > 1) {
        while (key[ref.top().second] != ref.top().first) ref.pop();
        const Qnode got = q.pop_min();
        ASSERT_EQ(got.key, ref.top().first);
        ASSERT_EQ(got.key, key[got.id]);
        key[got.id] = NAN;
        ASSERT_EQ(q.position[got.id], -1);
      } else if (op == 2 && !key.empty() && !std::isnan(key[id])) {
        key[id] -= rng() % 6;
        q.heap.at(q.position.at(id)).key = key[id];
        q.prelocate_up(q.position[id]);
        ref.push({key[id], id});
      }
      for (size_t i = 2; i < q.heap.size(); ++i) ASSERT_LE(q.heap[i / 2].key, q.heap[i].key);
      for (size_t i = 1; i < q.heap.size(); ++i) ASSERT_EQ(q.position.at(q.heap[i].id), (int)i);
    }
  }
  // Worked by hand. Parent wins ties going up: id 2 (3) stays under id 1 (3).
  EXPECT_EQ(popOrder({5, 3, 3}), (std::vector<int>{1, 2, 0}));
  // Left child wins ties going down: after id 0 pops, id 3 (9) sinks under id 1.
  EXPECT_EQ(popOrder({0, 2, 2, 9}), (std::vector<int>{0, 1, 2, 3}));
  // An entry equal to its smaller child stays: id 3 (5) moved to the root stays over id 1 (5).
  EXPECT_EQ(popOrder({0, 5, 7, 5}), (std::vector<int>{0, 3, 1, 2}));

  MinPriorityQueue empty;
  testing::internal::CaptureStdout();
  const Qnode none = empty.pop_min();
  empty.pop_min();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Empty queue\nEmpty queue\n");
  EXPECT_TRUE(none.id == -1 && none.key == -1.0);
  EXPECT_THROW(empty.prelocate_up(7), std::out_of_range);
}

TEST(PathSearch, UniformImageGivesOctileDistances) {
  // alpha = 1 on one colour: a step costs its length, so every cost and every
  // parent chain's length is the octile distance |dr - dc| + sqrt(2) min(dr, dc).
  const int w = 7, h = 5;
  Image colour = makeImage(w, h, 3), zeroLabels = makeImage(w, h, 1);
  Image cost = makeImage(w, h, 1, IPL_DEPTH_64F);
  cvSet(colour.get(), cvScalar(40, 80, 120));
  for (auto start : {std::make_pair(2, 3), std::make_pair(4, 6), std::make_pair(0, 0)}) {
    const int s = start.first * w + start.second;
    const auto parents =
        find_parent_info(colour.get(), nullptr, start.first, start.second, 1.0, cost.get());
    ASSERT_EQ(parents.size(), size_t(w * h));
    EXPECT_EQ(parents[s], s);
    EXPECT_EQ(find_parent_info(colour.get(), zeroLabels.get(), start.first, start.second, 1.0),
              parents);
    for (int p = 0; p < w * h; ++p) {
      const int dr = std::abs(p / w - start.first), dc = std::abs(p % w - start.second);
      const double octile = std::abs(dr - dc) + std::sqrt(2.0) * std::min(dr, dc);
      EXPECT_NEAR(at(cost, p / w, p % w), octile, 1e-12);
      double chain = 0.0;
      for (int v = p, steps = 0; v != s; v = parents[v], ++steps) {
        const int u = parents[v], sr = std::abs(u / w - v / w), sc = std::abs(u % w - v % w);
        ASSERT_TRUE(u >= 0 && sr <= 1 && sc <= 1 && sr + sc > 0 && steps < w * h);
        chain += (sr + sc == 2) ? std::sqrt(2.0) : 1.0;
      }
      EXPECT_NEAR(chain, octile, 1e-12);
    }
  }
  // Ties keep the first relaxation. 3x3 from the corner: 1 and 3 (cost 1) pop
  // before 4 (sqrt 2), so 5 and 7, at 1 + sqrt 2 either way, get parents 1 and 3.
  Image small = makeImage(3, 3, 3);
  EXPECT_EQ(find_parent_info(small.get(), nullptr, 0, 0, 1.0),
            (std::vector<int32_t>{0, 0, 1, 0, 0, 1, 3, 3, 4}));
}

TEST(PathSearch, PureColourCostFollowsALineOfItsOwnColour) {
  // alpha = 0: equal colours step for free; crossing between the two colours
  // costs sqrt(((200-30)^2 + (10-60)^2 + (50-90)^2) / 3) = sqrt(11000). From
  // one end of a winding line, every line pixel is reached along the line.
  const int n = 9;
  Image colour = makeImage(n, n, 3), cost = makeImage(n, n, 1, IPL_DEPTH_64F);
  cvSet(colour.get(), cvScalar(30, 60, 90));
  std::vector<bool> onLine(n * n, false);
  for (int p : {10, 11, 12, 22, 31, 40, 48, 56, 65, 66, 67, 59, 51, 43}) {
    onLine[p] = true;
    cvSet2D(colour.get(), p / n, p % n, cvScalar(200, 10, 50));
  }
  const auto parents = find_parent_info(colour.get(), nullptr, 1, 1, 0.0, cost.get());
  ASSERT_EQ(parents.size(), size_t(n * n));
  for (int p = 0; p < n * n; ++p) {
    EXPECT_NEAR(at(cost, p / n, p % n), onLine[p] ? 0.0 : std::sqrt(11000.0), 1e-9);
    for (int v = p, steps = 0; onLine[p] && v != 10; v = parents[v], ++steps)
      ASSERT_TRUE(parents[v] >= 0 && onLine[parents[v]] && steps < n * n) << "from " << p;
  }
}

TEST(PathSearch, BlockedStepsKeepTheDownRightAsymmetry) {
  // One colour, alpha = 1: an open step costs its length. Centre (1,1) is
  // object; neighbours labelled 1 or 3 are blocked: down-right (k 0) becomes
  // DBL_MAX, up (k 3) and left (k 5) keep the fresh node's 0.0.
  Image colour = makeImage(3, 3, 3);
  const double r2 = std::sqrt(2.0);
  Node_ node;
  assign_index(node, 3, 3, 1, 1, 0.0);
  assign_weight(colour.get(), makeLabels({{0, 1, 4}, {3, 2, 0}, {2, 0, 1}}).get(), node, 1, 1, 1.0);
  const std::vector<double> all = {DBL_MAX, 1.0, r2, 0.0, r2, 0.0, r2, 1.0};
  for (int k = 0; k < 8; ++k) EXPECT_EQ(node.neighbours[k].weight, all[k]) << "k " << k;
  // Only the right one blocked (5 never blocks): the down-right weight computed
  // first is still overwritten, and the weight already in slot 1 survives.
  for (auto& nb : node.neighbours) nb.weight = 7.0;
  assign_weight(colour.get(), makeLabels({{0, 0, 0}, {0, 4, 1}, {0, 5, 0}}).get(), node, 1, 1, 1.0);
  const std::vector<double> right = {DBL_MAX, 7.0, r2, 1.0, r2, 1.0, r2, 1.0};
  for (int k = 0; k < 8; ++k) EXPECT_EQ(node.neighbours[k].weight, right[k]) << "k " << k;

  // In a search: along a row 2 2 1 1 the blocked step is free: costs 0 1 1 2.
  Image row = makeImage(4, 1, 3), rowCost = makeImage(4, 1, 1, IPL_DEPTH_64F);
  EXPECT_EQ(find_parent_info(row.get(), makeLabels({{2, 2, 1, 1}}).get(), 0, 0, 1.0, rowCost.get()),
            (std::vector<int32_t>{0, 0, 1, 2}));
  EXPECT_TRUE(at(rowCost, 0, 1) == 1.0 && at(rowCost, 0, 2) == 1.0 && at(rowCost, 0, 3) == 2.0);
  // 2x2 from object to background down-right: the diagonal (taken without
  // labels) is refused, two straight steps cost 2.
  Image square = makeImage(2, 2, 3), squareCost = makeImage(2, 2, 1, IPL_DEPTH_64F);
  EXPECT_EQ(find_parent_info(square.get(), nullptr, 0, 0, 1.0)[3], 0);
  EXPECT_NE(find_parent_info(square.get(), makeLabels({{2, 0}, {0, 1}}).get(), 0, 0, 1.0,
                             squareCost.get())[3],
            0);
  EXPECT_EQ(at(squareCost, 1, 1), 2.0);
}

TEST(PathSearch, StartAndBadInput) {
  Image colour = makeImage(7, 5, 3);
  EXPECT_THROW(find_parent_info(colour.get(), nullptr, 5, 0, 1.0), std::out_of_range);
  EXPECT_THROW(find_parent_info(colour.get(), nullptr, 0, -1, 1.0, nullptr), std::out_of_range);
  EXPECT_EQ(find_parent_info(colour.get(), nullptr, 0, 7, 1.0)[7], 7);  // an index: not clamped
  EXPECT_EQ(find_weight(colour.get(), 0, 0, 2, 1, 1.0), std::sqrt(5.0));

  // alpha = 2, black to white: 2 * 1 - 65025 < 0 under the root gives NaN, so
  // pixel 1 is never reached: parent -1, cost DBL_MAX, 255 in an 8-bit image.
  Image pair = makeImage(2, 1, 3), cost64 = makeImage(2, 1, 1, IPL_DEPTH_64F),
        cost8 = makeImage(2, 1, 1);
  cvSet2D(pair.get(), 0, 1, cvScalar(255, 255, 255));
  EXPECT_EQ(find_parent_info(pair.get(), nullptr, 0, 0, 2.0, cost64.get()),
            (std::vector<int32_t>{0, -1}));
  find_parent_info(pair.get(), nullptr, 0, 0, 2.0, cost8.get());
  EXPECT_TRUE(at(cost64, 0, 1) == DBL_MAX && at(cost8, 0, 1) == 255.0);

  LogCapture log;
  EXPECT_TRUE(find_parent_info(nullptr, nullptr, 0, 0, 1.0).empty());
  EXPECT_TRUE(find_parent_info(makeImage(7, 5, 1).get(), nullptr, 0, 0, 1.0).empty());
  EXPECT_EQ(find_weight(colour.get(), 0, 0, 5, 0, 1.0), DBL_MAX);
  // Labels of the wrong size are ignored and a missing cost image is skipped.
  EXPECT_EQ(find_parent_info(colour.get(), makeImage(3, 3, 1).get(), 0, 0, 1.0, nullptr).size(),
            35u);
  EXPECT_EQ(log.count("Error"), 5u);
}
