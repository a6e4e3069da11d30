#include <gtest/gtest.h>
#include <opencv2/core/core_c.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <memory>
#include <queue>
#include <random>
#include <stdexcept>
#include <vector>

#include "path/MinPriorityQueue.h"
#include "path/PathSearch.h"
#include "path/PlainPathSearch.h"

namespace {

using Image = std::unique_ptr<IplImage, void (*)(IplImage*)>;

// A zeroed image; labels, when given, fill a one-channel image row by row.
Image makeImage(int w, int h, int channels, std::vector<int> labels = {}, int depth = IPL_DEPTH_8U) {
  Image image(cvCreateImage(cvSize(w, h), depth, channels), [](IplImage* p) { cvReleaseImage(&p); });
  cvSetZero(image.get());
  for (size_t i = 0; i < labels.size(); ++i) cvSet1D(image.get(), static_cast<int>(i), cvScalar(labels[i]));
  return image;
}

double at(const Image& image, int r, int c) { return cvGet2D(image.get(), r, c).val[0]; }

}  // namespace

TEST(MinPriorityQueue, AgreesWithStdPriorityQueueAndKeepsTieRules) {
  // Random pushes, pops and decrease-keys on keys from a small range (many
  // ties) against a lazy std::priority_queue (stale entries skipped); ids
  // are checked through their recorded positions.
  std::mt19937 rng(20240611);
  for (int round = 0; round < 30; ++round) {
    MinPriorityQueue q;
    std::priority_queue<std::pair<double, int>, std::vector<std::pair<double, int>>, std::greater<>> ref;
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
        ASSERT_TRUE(got.key == ref.top().first && got.key == key[got.id] && q.position[got.id] == -1);
        key[got.id] = NAN;
      } else if (op == 2 && !key.empty() && !std::isnan(key[id])) {
        key[id] -= rng() % 6;
        q.heap.at(q.position.at(id)).key = key[id];
        q.prelocate_up(q.position[id]);
        ref.push({key[id], id});
      }
    }
  }
  // Worked by hand, ids in pop order. Parent wins ties going up: id 2 (3)
  // stays under id 1 (3). Left child wins going down: after id 0 pops, id 3
  // (9) sinks under id 1. An entry equal to its smaller child stays: id 3
  // (5), moved to the root, stays over id 1 (5). Popping the emptied queue
  // prints a notice and gives the sentinel; its slots are bounds-checked.
  const std::vector<std::pair<std::vector<double>, std::vector<int>>> cases = {
      {{5, 3, 3}, {1, 2, 0}}, {{0, 2, 2, 9}, {0, 1, 2, 3}}, {{0, 5, 7, 5}, {0, 3, 1, 2}}};
  for (const auto& [keys, order] : cases) {
    MinPriorityQueue q;
    for (size_t i = 0; i < keys.size(); ++i) q.push(Qnode{(int)i, keys[i]});
    std::vector<int> ids;
    while (q.heap.size() > 1) ids.push_back(q.pop_min().id);
    EXPECT_EQ(ids, order);
    testing::internal::CaptureStdout();
    const Qnode none = q.pop_min();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Empty queue\n");
    EXPECT_TRUE(none.id == -1 && none.key == -1.0);
    EXPECT_THROW(q.prelocate_up(7), std::out_of_range);
  }
}

TEST(PathSearch, OctileDistancesAndColourLines) {
  // 9 x 8, one colour with a winding line of another; the line's first
  // pixel is (1, 1), index 10.
  const int w = 9, h = 8;
  Image colour = makeImage(w, h, 3), cost = makeImage(w, h, 1, {}, IPL_DEPTH_64F);
  cvSet(colour.get(), cvScalar(30, 60, 90));
  for (int p : {10, 11, 12, 22, 31, 40, 48, 56, 65, 66, 67, 59, 51, 43})
    cvSet2D(colour.get(), p / w, p % w, cvScalar(200, 10, 50));
  auto onLine = [&](int p) { return at(colour, p / w, p % w) == 200; };
  // alpha = 1 ignores colour: a step costs its length, so every cost is the
  // octile distance |dr - dc| + sqrt(2) min(dr, dc). (Parents are checked
  // exactly on the small grid below.)
  for (auto [sr, sc] : {std::pair{2, 3}, {7, 8}, {0, 0}}) {
    const auto parents = find_parent_info(colour.get(), nullptr, sr, sc, 1.0, cost.get());
    EXPECT_EQ(parents.at(sr * w + sc), sr * w + sc);
    // Labels of 0 change nothing.
    EXPECT_EQ(find_parent_info(colour.get(), makeImage(w, h, 1).get(), sr, sc, 1.0), parents);
    for (int p = 0; p < w * h; ++p) {
      const int dr = std::abs(p / w - sr), dc = std::abs(p % w - sc);
      EXPECT_NEAR(at(cost, p / w, p % w), std::abs(dr - dc) + std::sqrt(2.0) * std::min(dr, dc), 1e-12) << p;
    }
  }
  // alpha = 0: equal colours step for free; crossing between the two costs
  // sqrt(((200-30)^2 + (10-60)^2 + (50-90)^2) / 3) = sqrt(11000). From the
  // line's end, every line pixel is reached along the line.
  const auto parents = find_parent_info(colour.get(), nullptr, 1, 1, 0.0, cost.get());
  for (int p = 0; p < w * h; ++p) {
    EXPECT_NEAR(at(cost, p / w, p % w), onLine(p) ? 0.0 : std::sqrt(11000.0), 1e-9);
    if (onLine(p) && p != 10) EXPECT_TRUE(parents[p] >= 0 && onLine(parents[p])) << p;
  }
}

TEST(PathSearch, EqualCostsKeepTheFirstRelaxation) {
  // 5 x 4, one colour, alpha = 1: a step costs its length, 1 or r = sqrt 2.
  // From 6 at (1, 1), costs and parents by hand (pixel p at row p / 5):
  //
  //    r    1    r    r+1   r+2          6  6  6  7  8
  //    1    0    1    2     3            6  6  6  7  8
  //    r    1    r    r+1   r+2          6  6  6  7  8
  //   r+1   2   r+1   r+r   r+(r+1)     11 11 11 12 13
  //
  // 3 is reached at the same cost from 7 (1, then a diagonal) and from 2
  // (r, then a straight step); 7 pops first and keeps it. So do 13 (7
  // before 12), 15 and 17 (11 before 10 and 12), 4 and 14 (8, at 2, before
  // 3 and 13, at r+1). The pairs agree bit for bit: r + 1 == 1 + r, and
  // 1 + (r + 1) == r + 2, both rounding r at the same place. 19 takes
  // r + (r + 1) from 13, one ulp below 18's 1 + (r + r).
  const double r = std::sqrt(2.0);
  const std::vector<double> costs = {r,     1, r,     r + 1, r + 2,
                                     1,     0, 1,     2,     3,
                                     r,     1, r,     r + 1, r + 2,
                                     r + 1, 2, r + 1, r + r, r + (r + 1)};
  const std::vector<int32_t> parents = {6, 6, 6, 7, 8, 6, 6, 6, 7, 8, 6, 6, 6, 7, 8, 11, 11, 11, 12, 13};
  Image colour = makeImage(5, 4, 3), cost = makeImage(5, 4, 1, {}, IPL_DEPTH_64F);
  EXPECT_EQ(find_parent_info(colour.get(), nullptr, 1, 1, 1.0, cost.get()), parents);
  EXPECT_EQ(plainParentInfo(colour.get(), nullptr, 1, 1, 1.0), parents);
  for (int p = 0; p < 20; ++p) EXPECT_EQ(at(cost, p / 5, p % 5), costs[p]) << p;
  EXPECT_LT(costs[19], 1 + (r + r));

  // 4 x 4, one colour, alpha = 0: every step is free and every key 0 once
  // reached, so a pixel's parent is its first popped neighbour and the pops
  // follow the heap's tie rules alone. By hand: the start 0 at the root, ids
  // 1..15 below it in order. Pop 0 (15 moves to the root and stays): 5 rises
  // to the root, 1 and 4 stay under equal parents. Pop 5: 10, 6, 2, 8, 9.
  // Pops 1 and 4 reach nothing new; each time the last entry sinks and takes
  // the left child on a tie, so 8 rises ahead of 6. Pop 8: 13, 12 (before 9,
  // of equal key). Pop 10: 15, 11, 7, 14. Then 9, 11, 13 and 7, which reaches
  // 3 before the equal 2 and 6 are popped. Parents, row by row:
  Image uniform = makeImage(4, 4, 3);
  const std::vector<int32_t> tieOrder = {0, 0, 5, 7, 0, 0, 5, 10, 5, 5, 5, 10, 8, 8, 10, 10};
  EXPECT_EQ(find_parent_info(uniform.get(), nullptr, 0, 0, 0.0), tieOrder);
  EXPECT_EQ(plainParentInfo(uniform.get(), nullptr, 0, 0, 0.0), tieOrder);
}

TEST(PathSearch, BlockedStepsKeepTheDownRightAsymmetry) {
  // One colour, alpha = 1: an open step costs its length. Centre (1,1) is
  // object (2); up (k 3, label 1) and left (k 5, label 3) are background,
  // so blocked: each makes the down-right weight (k 0, computed first)
  // DBL_MAX and leaves its own weight as it was (7 here). 4 is object, 0,
  // 5 and 255 never block.
  Node_ node;
  assign_index(node, 3, 3, 1, 1, 0.0);
  for (auto& nb : node.neighbours) nb.weight = 7.0;
  assign_weight(makeImage(3, 3, 3).get(), makeImage(3, 3, 1, {0, 1, 4, 3, 2, 5, 255, 0, 0}).get(), node, 1, 1, 1.0);
  const double r2 = std::sqrt(2.0), expected[8] = {DBL_MAX, 1.0, r2, 7.0, r2, 7.0, r2, 1.0};
  for (int k = 0; k < 8; ++k) EXPECT_EQ(node.neighbours[k].weight, expected[k]) << "k " << k;

  // In a search a blocked step keeps the fresh node's 0.0: along a row
  // 2 2 1 1 it is free, so the costs are 0 1 1 2.
  Image row = makeImage(4, 1, 3), rowCost = makeImage(4, 1, 1, {}, IPL_DEPTH_64F);
  EXPECT_EQ(find_parent_info(row.get(), makeImage(4, 1, 1, {2, 2, 1, 1}).get(), 0, 0, 1.0, rowCost.get()),
            (std::vector<int32_t>{0, 0, 1, 2}));
  EXPECT_TRUE(at(rowCost, 0, 1) == 1.0 && at(rowCost, 0, 2) == 1.0 && at(rowCost, 0, 3) == 2.0);
}

TEST(PathSearch, StartAndBadInput) {
  Image colour = makeImage(7, 5, 3);
  EXPECT_THROW(find_parent_info(colour.get(), nullptr, 5, 0, 1.0), std::out_of_range);
  EXPECT_THROW(find_parent_info(colour.get(), nullptr, 0, -1, 1.0, nullptr), std::out_of_range);
  EXPECT_EQ(find_parent_info(colour.get(), nullptr, 0, 7, 1.0)[7], 7);  // an index: not clamped
  // Indices 2^32 + 3 and -2^32 + 4 (rows of 7): a 32-bit size_t would wrap
  // them onto pixels 3 and 4.
  for (int row : {613566757, -613566756}) {
    EXPECT_THROW(find_parent_info(colour.get(), nullptr, row, 0, 1.0), std::out_of_range) << row;
    EXPECT_THROW(plainParentInfo(colour.get(), nullptr, row, 0, 1.0), std::out_of_range) << row;
  }
  EXPECT_EQ(find_weight(colour.get(), 0, 0, 2, 1, 1.0), std::sqrt(5.0));

  // alpha = 2, black to white: 2 * 1 - 65025 < 0 under the root gives NaN, so
  // pixel 1 is never reached: parent -1, cost DBL_MAX, 255 in an 8-bit image.
  Image pair = makeImage(2, 1, 3), cost64 = makeImage(2, 1, 1, {}, IPL_DEPTH_64F), cost8 = makeImage(2, 1, 1);
  cvSet2D(pair.get(), 0, 1, cvScalar(255, 255, 255));
  EXPECT_EQ(find_parent_info(pair.get(), nullptr, 0, 0, 2.0, cost64.get()), (std::vector<int32_t>{0, -1}));
  find_parent_info(pair.get(), nullptr, 0, 0, 2.0, cost8.get());
  EXPECT_TRUE(at(cost64, 0, 1) == DBL_MAX && at(cost8, 0, 1) == 255.0);

  EXPECT_TRUE(find_parent_info(nullptr, nullptr, 0, 0, 1.0).empty());
  EXPECT_TRUE(find_parent_info(makeImage(7, 5, 1).get(), nullptr, 0, 0, 1.0).empty());
  EXPECT_EQ(find_weight(colour.get(), 0, 0, 5, 0, 1.0), DBL_MAX);
  // Labels of the wrong size are ignored and a missing cost image is skipped.
  EXPECT_EQ(find_parent_info(colour.get(), makeImage(3, 3, 1).get(), 0, 0, 1.0, nullptr).size(), 35u);
}

namespace {

// A seeded image for the comparison below: colours from [0, range) (a small
// range gives many equal costs), labels by `mix`: 0 none, 1 any of 0..5 per
// pixel, 2 object and background halves with 0 and 5 sprinkled in, so steps
// across the border block, 3 mostly unlabelled.
struct RandomInput {
  Image colour, labels;
  RandomInput(std::mt19937& rng, int w, int h, int range, int mix)
      : colour(makeImage(w, h, 3)), labels(mix ? makeImage(w, h, 1) : Image(nullptr, [](IplImage*) {})) {
    const int split = 1 + static_cast<int>(rng() % (w + h));
    for (int r = 0; r < h; ++r)
      for (int c = 0; c < w; ++c) {
        auto* px = reinterpret_cast<unsigned char*>(colour->imageData + r * colour->widthStep) + 3 * c;
        for (int ch = 0; ch < 3; ++ch) px[ch] = static_cast<unsigned char>(rng() % range);
        if (!mix) continue;
        const int any = rng() % 6, side = (r + c < split) ? 2 : 1;
        const int label = mix == 1 ? any : mix == 2 ? (any == 0 ? 0 : any == 5 ? 5 : side + 2 * (any % 2))
                                                    : (any == 0 ? static_cast<int>(1 + rng() % 4) : 0);
        labels->imageData[r * labels->widthStep + c] = static_cast<char>(label);
      }
  }
};

}  // namespace

TEST(PathSearch, SameBitsAsThePlainSearch) {
  // The fast search against plainParentInfo, which follows the steps one by
  // one with Node_, assign_weight and MinPriorityQueue: parents and every
  // cost, compared bit for bit.
  std::mt19937 rng(5021);
  const std::vector<std::pair<int, int>> sizes = {{1, 1}, {1, 9}, {9, 1}, {2, 2}, {3, 3}, {7, 5}, {5, 7}, {33, 17}, {120, 90}};
  const double alphas[] = {0.0, 1.0, 0.5, 0.3, 2.0, -0.25};  // 2 and -0.25 give NaN steps
  const int ranges[] = {1, 2, 3, 256};
  for (int round = 0; round < 400; ++round) {
    const auto [w, h] = round < 300 ? std::pair<int, int>(1 + rng() % 24, 1 + rng() % 24) : sizes[round % sizes.size()];
    const int range = ranges[rng() % 4], mix = rng() % 4;
    const double alpha = round % 7 == 6 ? std::uniform_real_distribution<double>(0, 1)(rng) : alphas[rng() % 6];
    RandomInput in(rng, w, h, range, mix);
    const int n = w * h, start = round % 3 == 0 ? static_cast<int>(rng() % n) : round % 3 == 1 ? 0 : n - 1;
    SCOPED_TRACE(testing::Message() << w << "x" << h << " range " << range << " mix " << mix << " alpha " << alpha << " start " << start);

    std::vector<double> plainCosts;
    const auto plain = plainParentInfo(in.colour.get(), in.labels.get(), start / w, start % w, alpha, &plainCosts);
    ASSERT_EQ(find_parent_info(in.colour.get(), in.labels.get(), start / w, start % w, alpha), plain);
    // Costs in double, one or two channels, stored directly or (with a
    // region of interest) through cvSet2D, and in float.
    const int kind = round % 4;
    Image cost = makeImage(w, h, kind == 3 ? 2 : 1, {}, kind == 2 ? IPL_DEPTH_32F : IPL_DEPTH_64F);
    cvSet(cost.get(), cvScalarAll(7));
    if (kind == 1) cvSetImageROI(cost.get(), cvRect(0, 0, w, h));
    ASSERT_EQ(find_parent_info(in.colour.get(), in.labels.get(), start / w, start % w, alpha, cost.get()), plain);
    for (int p = 0; p < n; ++p) {
      const CvScalar got = cvGet2D(cost.get(), p / w, p % w);
      const double want = kind == 2 ? static_cast<float>(std::min(plainCosts[p], double(FLT_MAX))) : plainCosts[p];
      ASSERT_TRUE(std::memcmp(&got.val[0], &want, sizeof want) == 0 && got.val[1] == 0.0) << p << ": " << got.val[0] << " vs " << want;
    }
  }
}
