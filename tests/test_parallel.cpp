// The block max-flow and the block data terms, checked against the serial
// search and the serial data-term formula on seeded random inputs.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <vector>

#include "colormodel/KORUSEColorModel.h"
#include "graph/KORUSEGraph.h"
#include "graph/parallel/ParallelGC.h"
#include "graph/parallel/StripeSearch.h"
#include "interface/session/KORUSEMarker.h"
#include "support/KORUTimer.h"

namespace {

// Directions in visiting order: left, upper-left, upper, upper-right, right,
// lower-right, lower, lower-left. The first four are the slots a node owns.
const int kDx[8] = {-1, -1, 0, 1, 1, 1, 0, -1};
const int kDy[8] = {0, -1, -1, -1, 0, 1, 1, 1};

// A grid's capacities: terminal links per node; per node and owned slot the
// capacity towards the neighbour (fwd) and back (rev).
struct Grid {
  int w, h;
  std::vector<float> cs, ct, fwd, rev;
  bool present(int n, int k) const {
    const int x = n % w + kDx[k], y = n / w + kDy[k];
    return x >= 0 && y >= 0 && x < w && y < h;
  }
  int neighbour(int n, int k) const { return n + kDy[k] * w + kDx[k]; }
};

// exact: small integers, so every sum is exact in float and the serial and
// block searches must agree to the bit. Otherwise generic continuous values,
// so that the minimum cut is unique.
Grid randomGrid(int w, int h, unsigned seed, bool exact) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(0.0f, 1.0f);
  auto value = [&](float scale) { return exact ? std::floor(u(rng) * scale) : u(rng) * scale; };
  Grid g{w, h, {}, {}, {}, {}};
  for (int n = 0; n < w * h; ++n) {
    g.cs.push_back(u(rng) < 0.4f ? value(10) : 0.0f);
    g.ct.push_back(u(rng) < 0.4f ? value(10) : 0.0f);
    for (int k = 0; k < 4; ++k) {
      g.fwd.push_back(value(6));
      g.rev.push_back(value(6));
    }
  }
  return g;
}

void build(KORUSEGraph& g, const Grid& c) {
  g.addNode(c.w * c.h);
  for (int n = 0; n < c.w * c.h; ++n)
    for (int k = 0; k < 4; ++k)
      g.addEdge(n, 0, c.fwd[4 * n + k], c.rev[4 * n + k], !c.present(n, k));
  for (int n = 0; n < c.w * c.h; ++n) g.addtWeights(n, c.cs[n], c.ct[n]);
}

// Capacity of the cut that puts the nodes marked true on the sink side, from
// the capacities the grid was built with (in double).
double cutCapacity(const Grid& c, const std::vector<bool>& sink) {
  double cut = 0;
  for (int n = 0; n < c.w * c.h; ++n) {
    cut += sink[n] ? c.cs[n] : c.ct[n];
    for (int k = 0; k < 4; ++k) {
      if (!c.present(n, k)) continue;
      const int m = c.neighbour(n, k);
      if (!sink[n] && sink[m]) cut += c.fwd[4 * n + k];
      if (sink[n] && !sink[m]) cut += c.rev[4 * n + k];
    }
  }
  return cut;
}

std::vector<bool> sides(const KORUSEGraph& g) {
  std::vector<bool> s(g.nodeCount);
  for (int n = 0; n < g.nodeCount; ++n) s[n] = g.getTreeofNode(n);
  return s;
}

#if defined(__SANITIZE_THREAD__)
constexpr bool kThreadSanitizer = true;
#elif defined(__has_feature)
constexpr bool kThreadSanitizer = __has_feature(thread_sanitizer);
#else
constexpr bool kThreadSanitizer = false;
#endif

// A broken search is stopped by the 10 s cancel limit rather than hanging the
// run; the test then fails on the flag. Not under ThreadSanitizer: every
// block search writes the shared timer record when it reads it.
struct RunawayGuard {
  RunawayGuard() {
    if (kThreadSanitizer) return;
    g_cancelTimer = create_timer();
    start_cpu_timer(g_cancelTimer);
  }
  ~RunawayGuard() {
    destroy_timer(g_cancelTimer);
    g_cancelTimer = nullptr;
    KORUSEMarker::m_exitApp = false;
  }
};

int blockOf(const ParallelGC& p, int n) {
  return p.blockColumns * (n / p.width / p.blockHeight) + (n % p.width) / p.blockWidth;
}

}  // namespace

// Grids worked out with the rule by hand, e.g. N = 8: s = 3, c = 4 divides 8
// (rows 1, go on), c = 5 does not, down to 4, rows 2 -> 4 x 2; N = 7: c = 4,
// down to 1 -> 1 x 7; N = 12: c = 5, down to 4, rows 3.
TEST(ParallelBlocks, GridRuleAndBlockSizes) {
  KORUSEGraph g(100, 800, 10, 10, 0);
  const int expected[][3] = {{2, 2, 1}, {3, 3, 1}, {4, 2, 2}, {5, 1, 5},  {6, 3, 2},
                             {8, 4, 2}, {16, 4, 4}, {7, 1, 7}, {9, 3, 3}, {12, 4, 3}};
  for (const auto& e : expected) {
    ParallelGC p(&g, e[0]);
    EXPECT_EQ(p.blockColumns, e[1]) << "N = " << e[0];
    EXPECT_EQ(p.blockRows, e[2]) << "N = " << e[0];
  }
  ParallelGC two(&g, 2);
  EXPECT_EQ(two.blockWidth, 5);
  EXPECT_EQ(two.blockHeight, 10);
  KORUSEGraph big(101 * 101, 8 * 101 * 101, 101, 101, 0);
  ParallelGC four(&big, 4);
  EXPECT_EQ(four.blockWidth, 51);
  EXPECT_EQ(four.blockHeight, 51);
}

// The phases by hand. 10 x 10, N = 2: the border between columns 4 and 5
// carries 10 straight and 2 x 9 diagonal edges, 28 in one record (0, 1).
// 6 x 6, N = 4 (3 x 3 blocks): records (0,1) (0,3) (0,2) (1,3) (2,1) (2,3);
// merging 0 and 1 folds (1,3) into (0,3) and (2,1) into (0,2): 3 are left.
// Everywhere: each crossing edge is removed and recorded once with its
// capacities, and merging every pair writes the graph back bit for bit.
TEST(ParallelBlocks, PartitionRecordsCrossingEdgesAndMergesRestoreThem) {
  struct Case { int w, h, n; };
  for (Case c : {Case{10, 10, 2}, Case{6, 6, 4}, Case{23, 17, 6}, Case{5, 7, 8}, Case{9, 4, 5}}) {
    SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " N=" << c.n);
    const Grid grid = randomGrid(c.w, c.h, 7, false);
    KORUSEGraph g(c.w * c.h, 8 * c.w * c.h, c.w, c.h, 0);
    build(g, grid);
    const std::vector<float> built(g.arcArray, g.arcArray + g.arcFloatCount);
    ParallelGC p(&g, c.n);
    for (int id = 0; id < c.n; ++id) p.AssignIDs(id / p.blockColumns, id % p.blockColumns);
    for (int id = 0; id < c.n; ++id) p.PartitionGraph(id / p.blockColumns, id % p.blockColumns);

    std::set<int> recorded;
    for (blockEdges* r : p.pairList) {
      EXPECT_EQ(p.pairMatrix[r->blockA][r->blockB], r);
      EXPECT_EQ(p.pairMatrix[r->blockB][r->blockA], r);
      for (RemovedEdge* e = r->edges; e; e = e->next) {
        EXPECT_TRUE(recorded.insert(std::min(e->arc, e->sister)).second) << "recorded twice";
        EXPECT_EQ(e->capacity, built[e->arc]);
        EXPECT_EQ(e->sisterCapacity, built[e->sister]);
        EXPECT_EQ(g.arcArray[e->arc], ABSENT_CAPACITY);
      }
    }
    for (int n = 0; n < c.w * c.h; ++n)
      for (int k = 0; k < 4; ++k)
        if (grid.present(n, k) && blockOf(p, n) != blockOf(p, grid.neighbour(n, k)))
          EXPECT_EQ(recorded.count(8 * n + 2 * k), 1u) << "crossing edge kept " << n << "/" << k;
    if (c.n == 2) {
      ASSERT_EQ(p.pairList.size(), 1u);
      EXPECT_EQ(recorded.size(), 28u);
    }
    if (c.n == 4) {
      EXPECT_EQ(p.pairList.size(), 6u);
      p.MergeBlocks(0, 1);
      p.MakeNeighbourChanges(0, 1);
      EXPECT_EQ(p.pairList.size(), 3u);
      EXPECT_NE(p.pairMatrix[0][3], nullptr);
      EXPECT_NE(p.pairMatrix[0][2], nullptr);
      EXPECT_EQ(p.pairMatrix[1][3], nullptr);
    }
    while (!p.pairList.empty()) {
      const size_t before = p.pairList.size();
      const int a = p.pairList[0]->blockA, b = p.pairList[0]->blockB;
      EXPECT_EQ(p.MergeBlocks(a, b), std::min(a, b));
      p.MakeNeighbourChanges(a, b);
      ASSERT_LT(p.pairList.size(), before);
    }
    EXPECT_EQ(std::vector<float>(g.arcArray, g.arcArray + g.arcFloatCount), built);
  }
}

namespace {

// Nodes that can still reach the sink through residual capacity: the sink
// side of the minimum cut, the same for every maximum flow.
std::vector<bool> reachesSink(const KORUSEGraph& g) {
  std::vector<bool> in(g.nodeCount, false);
  std::vector<int> stack;
  for (int n = 0; n < g.nodeCount; ++n)
    if (g.residualTerminalCapacity[n] < 0) in[n] = true, stack.push_back(n);
  while (!stack.empty()) {
    int arcs[8];
    g.neighbourArcs(stack.back(), arcs);
    stack.pop_back();
    for (int a : arcs) {
      if (a == NO_CANDIDATE) continue;
      const int u = g.arcHead(a);
      if (g.arcArray[KORUSEGraph::sisterArc(a)] > 0 && !in[u]) in[u] = true, stack.push_back(u);
    }
  }
  return in;
}

}  // namespace

// The serial search is the reference. The block search must push the same
// flow (read off the terminal links: what left the source), leave the same
// nodes able to reach the sink (with exact sums that set is the same for every
// maximum flow; with generic values the minimum cut is unique), that set's
// cut must cost the serial flow, and its labels must match it.
TEST(ParallelMaxFlow, SameCutAsTheSerialSearch) {
  const int shapes[][2] = {{17, 13}, {40, 30}, {64, 48}, {1, 30}, {30, 1}, {5, 3}, {7, 5}};
  unsigned seed = 1;
  for (bool exact : {true, false})
    for (const auto& s : shapes)
      for (int n : {2, 3, 4, 5, 6, 8}) {
        SCOPED_TRACE(testing::Message() << s[0] << "x" << s[1] << " N=" << n << " exact=" << exact);
        const int w = s[0], h = s[1];
        const Grid grid = randomGrid(w, h, ++seed, exact);
        KORUSEGraph serial(w * h, 8 * w * h, w, h, 0), parallel(w * h, 8 * w * h, w, h, n);
        build(serial, grid);
        build(parallel, grid);
        double pushed = parallel.flowValue;
        for (int i = 0; i < w * h; ++i) pushed += std::max(0.0f, parallel.residualTerminalCapacity[i]);
        RunawayGuard guard;
        const float flow = serial.maxFlow();
        EXPECT_EQ(parallel.maxFlow(), 0.0f);
        ASSERT_FALSE(KORUSEMarker::m_exitApp) << "a search ran past the cancel limit";
        for (int i = 0; i < w * h; ++i) pushed -= std::max(0.0f, parallel.residualTerminalCapacity[i]);
        const double tolerance = exact ? 0.0 : 1e-5 * (1.0 + flow);
        EXPECT_NEAR(pushed, flow, tolerance);
        const std::vector<bool> sinkSide = reachesSink(parallel);
        EXPECT_EQ(sinkSide, reachesSink(serial));
        EXPECT_NEAR(cutCapacity(grid, sinkSide), flow, tolerance);
        for (int i = 0; i < w * h; ++i) {
          EXPECT_EQ(parallel.getTreeofNode(i), sinkSide[i]) << "node " << i;
          EXPECT_EQ(serial.getTreeofNode(i), sinkSide[i]) << "serial node " << i;
        }
        for (int a = 0; a < parallel.arcFloatCount; ++a)
          if (parallel.arcArray[a] == ABSENT_CAPACITY)
            ASSERT_FALSE(grid.present(a / 8, a % 8 / 2)) << "edge not restored: arc " << a;
      }
}

// Undefined calls change nothing; a single block is a serial cut.
TEST(ParallelMaxFlow, BadInputsAreHarmless) {
  ParallelGC none(nullptr, 4);
  EXPECT_EQ(none.maxFlow(), 0.0f);
  none.MergeBlocks(0, 9);

  const Grid grid = randomGrid(12, 9, 5, true);
  KORUSEGraph serial(108, 864, 12, 9, 0), one(108, 864, 12, 9, 0);
  build(serial, grid);
  build(one, grid);
  ParallelGC p(&one, 0);  // taken as one block
  EXPECT_EQ(p.blockColumns * p.blockRows, 1);
  RunawayGuard guard;
  const float flow = serial.maxFlow();
  p.maxFlow();
  ASSERT_FALSE(KORUSEMarker::m_exitApp) << "a search ran past the cancel limit";
  EXPECT_EQ(sides(one), sides(serial));
  EXPECT_EQ(cutCapacity(grid, sides(one)), flow);

  cv::Mat small(3, 3, CV_8UC3), labels(9, 12, CV_8UC1, cv::Scalar(0));
  KORUSEColorModel m;
  const float before = one.flowValue;
  p.ComputeGMMProbsParallely(&small, &labels, 1000, 1, 2, &m, &m, &one);
  p.ComputeGMMProbsParallely(nullptr, &labels, 1000, 1, 2, &m, &m, &one);
  EXPECT_EQ(one.flowValue, before);
}

namespace {

// Five well-spread components with correlated covariances, wide enough that
// no 8-bit colour underflows a float density.
KORUSEColorModel randomModel(std::mt19937& rng) {
  std::uniform_real_distribution<double> u(0.0, 1.0);
  KORUSEColorModel m;
  for (int k = 0; k < kNumComponents; ++k) {
    m.m_weights[k] = 0.1 + 0.2 * u(rng);
    double sd[3];
    for (int c = 0; c < 3; ++c) {
      m.m_means[k][c] = 255 * u(rng);
      sd[c] = std::sqrt(1500 + 1500 * u(rng));
    }
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j)
        m.m_covariances[k][3 * i + j] = sd[i] * sd[j] * (i == j ? 1.0 : (u(rng) < 0.5 ? 0.3 : -0.3));
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < i; ++j) m.m_covariances[k][3 * i + j] = m.m_covariances[k][3 * j + i];
  }
  m.setDeterminant();
  m.setInverseCovariance();
  return m;
}

}  // namespace

// Block data terms against the serial formula, pixel by pixel: labels 2
// (object) and 1 (background) take (lambda, 0) and (0, lambda), the rest
// (-ln p_second, -ln p_first), combined with what the node already held.
// 101 x 101 with N = 4 has 51-wide blocks whose last column lies outside the
// image: column 0 must still get one term only.
TEST(ParallelDataTerms, MatchTheSerialFormulaPixelByPixel) {
  struct Case { int w, h, n; };
  std::mt19937 rng(2024);
  for (Case c : {Case{101, 101, 4}, Case{37, 23, 2}, Case{37, 23, 3}, Case{37, 23, 5},
                 Case{37, 23, 6}, Case{37, 23, 8}}) {
    SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " N=" << c.n);
    cv::Mat image(c.h, c.w, CV_8UC3), labels(c.h, c.w, CV_8UC1);
    cv::randu(image, 0, 256);
    cv::randu(labels, 0, 5);
    const KORUSEColorModel first = randomModel(rng), second = randomModel(rng);
    const int nodes = c.w * c.h;
    KORUSEGraph blocks(nodes, 8 * nodes, c.w, c.h, c.n), reference(nodes, 8 * nodes, c.w, c.h, 0);
    blocks.addNode(nodes);
    reference.addNode(nodes);
    for (int i = 0; i < nodes; ++i) {  // something already there, as in a rebuilt graph
      const float held = static_cast<float>(i % 7) - 3.0f;
      blocks.addtWeights(i, held, 0);
      reference.addtWeights(i, held, 0);
    }
    const double lambda = 1000.0;
    for (int y = 0; y < c.h; ++y)
      for (int x = 0; x < c.w; ++x) {
        const cv::Vec3b b = image.at<cv::Vec3b>(y, x);
        const pixelVal px{{double(b[0]), double(b[1]), double(b[2])}};
        const int v = labels.at<uchar>(y, x);
        const double source = v == 2 ? lambda : v == 1 ? 0.0 : -std::log(second.GMMProb(px));
        const double sink = v == 2 ? 0.0 : v == 1 ? lambda : -std::log(first.GMMProb(px));
        reference.addtWeights(y * c.w + x, float(source), float(sink));
      }
    ParallelGC p(&blocks, c.n);
    p.ComputeGMMProbsParallely(&image, &labels, lambda, 1, 2, &first, &second, &blocks);
    for (int i = 0; i < nodes; ++i) {
      const float want = reference.residualTerminalCapacity[i];
      ASSERT_NEAR(blocks.residualTerminalCapacity[i], want, 1e-4 * (1 + std::fabs(want)))
          << "pixel " << i;
    }
    EXPECT_NEAR(blocks.flowValue, reference.flowValue, 1e-5 * reference.flowValue);
  }
}

namespace {
// The band of a grid's pixels for which keep(x, y) holds, built with the
// grid's capacities: edges towards pixels outside it are absent.
void buildBand(KORUSEGraph& g, const Grid& c, const std::vector<uint8_t>& mask) {
  const int nodes = g.setBand(mask.data(), c.w);
  g.addNode(nodes);
  for (int p = 0; p < c.w * c.h; ++p)
    if (mask[p])
      for (int k = 0; k < 4; ++k) g.addEdge(0, 0, c.fwd[4 * p + k], c.rev[4 * p + k], !c.present(p, k));
  for (int p = 0, node = 0; p < c.w * c.h; ++p)
    if (mask[p]) g.addtWeights(node++, c.cs[p], c.ct[p]);
}
}  // namespace

// The engine's striped cut against the serial search, on whole grids and on
// bands (a ring around an ellipse, as the refinement cuts), with 2, 3, 4 and
// 8 stripes of at least 64 nodes: the same flow (to the bit with small
// integer capacities), the same nodes able to reach the sink, the serial
// search's labels, and every edge taken out written back.
TEST(StripedMaxFlow, SameCutAsTheSerialSearch) {
  const int shapes[][2] = {{64, 48}, {40, 90}, {300, 7}, {9, 200}};
  unsigned seed = 100;
  for (bool band : {false, true})
    for (bool exact : {true, false})
      for (const auto& s : shapes)
        for (int n : {2, 3, 4, 8}) {
          SCOPED_TRACE(testing::Message() << s[0] << "x" << s[1] << " stripes " << n << (band ? " band" : "")
                                          << (exact ? " exact" : ""));
          const int w = s[0], h = s[1];
          const Grid grid = randomGrid(w, h, ++seed, exact);
          std::vector<uint8_t> ring(size_t(w) * h, 1);
          if (band)
            for (int y = 0; y < h; ++y)
              for (int x = 0; x < w; ++x) {
                const double dx = (x - w / 2.0) / (w / 3.0), dy = (y - h / 2.0) / (h / 3.0), r = dx * dx + dy * dy;
                ring[size_t(y) * w + x] = r > 0.5 && r < 1.6;
              }
          KORUSEGraph serial(w * h, 4 * w * h, w, h, 0), striped(w * h, 4 * w * h, w, h, 0);
          for (KORUSEGraph* g : {&serial, &striped}) band ? buildBand(*g, grid, ring) : build(*g, grid);
          std::vector<float> arcs(striped.arcArray, striped.arcArray + striped.arcFloatCount);
          RunawayGuard guard;
          const float flow = serial.maxFlow();
          const float stripedFlow = stripedMaxFlow(striped, n, 64);
          ASSERT_FALSE(KORUSEMarker::m_exitApp) << "a search ran past the cancel limit";
          const double tolerance = exact ? 0.0 : 1e-5 * (1.0 + flow);
          EXPECT_NEAR(stripedFlow, flow, tolerance);
          const std::vector<bool> sinkSide = reachesSink(striped);
          EXPECT_EQ(sinkSide, reachesSink(serial));
          EXPECT_EQ(sides(striped), sides(serial));
          if (!band) EXPECT_NEAR(cutCapacity(grid, sinkSide), flow, tolerance);
          for (int a = 0; a < striped.arcFloatCount; ++a)
            ASSERT_EQ(striped.arcArray[a] == ABSENT_CAPACITY, arcs[a] == ABSENT_CAPACITY) << "arc " << a;
        }
}
