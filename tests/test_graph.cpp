#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "graph/KORUSEGraph.h"
#include "interface/session/KORUSEMarker.h"
#include "support/KORUTimer.h"
#include "testing/LogCapture.h"

namespace {

// Offsets (dx, dy) of the eight directions in visiting order: left,
// upper-left, upper, upper-right, right, lower-right, lower, lower-left.
// The first four are the edge slots a node owns.
const int kDx[8] = {-1, -1, 0, 1, 1, 1, 0, -1};
const int kDy[8] = {0, -1, -1, -1, 0, 1, 1, 1};

bool inside(int x, int y, int w, int h) { return x >= 0 && y >= 0 && x < w && y < h; }

// Builds g's grid the way the engine does: nodes, four edges per node in
// slot order (symmetric capacity edgeCap(node, slot), asked only for edges
// inside the grid), then terminal weights.
void build(KORUSEGraph& g, const std::vector<float>& cs, const std::vector<float>& ct,
           const std::function<float(int, int)>& edgeCap) {
  const int w = g.width, h = g.height;
  g.addNode(w * h);
  for (int n = 0; n < w * h; ++n)
    for (int k = 0; k < 4; ++k) {
      const bool absent = !inside(n % w + kDx[k], n / w + kDy[k], w, h);
      const float cap = absent ? 0.0f : edgeCap(n, k);
      g.addEdge(n, n + kDy[k] * w + kDx[k], cap, cap, absent);
    }
  for (int n = 0; n < w * h; ++n) g.addtWeights(n, cs[n], ct[n]);
}

std::unique_ptr<KORUSEGraph> grid(int w, int h, const std::vector<float>& cs, const std::vector<float>& ct,
                                  const std::function<float(int, int)>& edgeCap) {
  auto g = std::make_unique<KORUSEGraph>(w * h, 8 * w * h, w, h, 0);
  build(*g, cs, ct, edgeCap);
  return g;
}

// 3 x 3 bottleneck:  S20  -9-  .  -1-  T20     column 0 tied to the source,
//                    S20  -9-  .  -1-  T20     column 2 to the sink; every
//                    S20  -9-  .  -1-  T20     edge 9 except the 7 edges
// (3 straight, 4 diagonal) between columns 1 and 2, which carry 1.
// Min cut: those 7 edges (the 0|1 border would cost 63, terminals 60).
std::unique_ptr<KORUSEGraph> bottleneck() {
  return grid(3, 3, {20, 0, 0, 20, 0, 0, 20, 0, 0}, {0, 0, 20, 0, 0, 20, 0, 0, 20}, [](int n, int k) {
    const int c = n % 3, cn = c + kDx[k];
    return (std::min(c, cn) == 1 && std::max(c, cn) == 2) ? 1.0f : 9.0f;
  });
}

// The reference: Edmonds-Karp in double on explicit arcs, arc a ^ 1 the
// reverse of a.
struct Reference {
  std::vector<int> from, to;
  std::vector<double> cap;
  std::vector<std::vector<int>> out;
  explicit Reference(int n) : out(n) {}
  void add(int u, int v, double c) {
    out[u].push_back(static_cast<int>(to.size()));
    from.push_back(u), to.push_back(v), cap.push_back(c);
    out[v].push_back(static_cast<int>(to.size()));
    from.push_back(v), to.push_back(u), cap.push_back(0.0);
  }
  double maxFlow(int s, int t) {
    for (double total = 0.0;;) {
      std::vector<int> via(out.size(), -1), queue = {s};  // the arc that reached each node
      for (size_t i = 0; i < queue.size() && via[t] < 0; ++i)
        for (int a : out[queue[i]])
          if (cap[a] > 1e-9 && to[a] != s && via[to[a]] < 0) via[to[a]] = a, queue.push_back(to[a]);
      if (via[t] < 0) return total;
      double f = INFINITY;
      for (int v = t; v != s; v = from[via[v]]) f = std::min(f, cap[via[v]]);
      for (int v = t; v != s; v = from[via[v]]) cap[via[v]] -= f, cap[via[v] ^ 1] += f;
      total += f;
    }
  }
};

}  // namespace

// Every listed arc runs from the node to the neighbour at the direction's
// offset, its sister runs back, the owner is the later node in raster order
// and the even arc leaves the owner; directions off the grid give -2.
TEST(GraphLayout, ArcsFollowTheGridGeometry) {
  for (auto [w, h] : {std::pair{4, 3}, {1, 3}, {3, 1}, {1, 1}}) {
    KORUSEGraph g(w * h, 8 * w * h, w, h, 0);
    for (int n = 0; n < w * h; ++n) {
      int arcs[8];
      g.neighbourArcs(n, arcs);
      for (int k = 0; k < 8; ++k) {
        const int x = n % w + kDx[k], y = n / w + kDy[k], m = y * w + x, a = arcs[k];
        EXPECT_EQ(a == NO_CANDIDATE, !inside(x, y, w, h)) << w << "x" << h << " node " << n << " dir " << k;
        if (a == NO_CANDIDATE) continue;
        EXPECT_EQ(g.arcHead(a), m);
        EXPECT_EQ(g.arcHead(KORUSEGraph::sisterArc(a)), n);
        EXPECT_TRUE(a >> 3 == std::max(n, m) && (a % 2 == 0) == (n > m));
      }
    }
  }
}

// 250,000,000 nodes: five arrays of 10^9 bytes and one of 2.5 * 10^8 fit a
// 32-bit size_t one by one, but their sum wraps to 955,032,704, a block
// the arrays would overrun.
TEST(GraphLayout, NodeArraysPastA32BitSizeAreRefused) {
  if (sizeof(size_t) > 4) GTEST_SKIP() << "the sum fits a 64-bit size_t";
  LogCapture log;
  KORUSEGraph g(250000000, 16, 1, 1, 0);
  EXPECT_EQ(g.parentArc, nullptr);
  EXPECT_EQ(g.arcArray, nullptr);
  EXPECT_EQ(g.nodeCapacity, 0);
  EXPECT_TRUE(log.contains({ANDROID_LOG_ERROR, "Error", "KORUSEGraph: graph too large for this address space"}));
}

TEST(GraphBuild, TerminalWeightsEdgesAndReset) {
  auto g = grid(3, 3, std::vector<float>(9, 0.f), std::vector<float>(9, 0.f),
                [](int n, int k) { return 10.0f * n + k; });
  // (5, 3) on a fresh node: 3 can pass through both links, 2 remain from
  // the source. Then (0, 4): sink side 4 against source 2 -> 2 more, 2 to the sink.
  g->addtWeights(4, 5, 3);
  EXPECT_TRUE(g->residualTerminalCapacity[4] == 2.0f && g->flowValue == 3.0f);
  g->addtWeights(4, 0, 4);
  EXPECT_TRUE(g->residualTerminalCapacity[4] == -2.0f && g->flowValue == 5.0f);

  // addToEdge changes nothing for 0 and 2, not neighbours; 2 and 3,
  // consecutive but on opposite borders; 4 <-> 1, an edge absent inside the
  // grid (as the band cut builds them). (Its effect on present edges, from
  // either end, is covered by the random grids.)
  g->arcArray[8 * 4 + 4] = g->arcArray[8 * 4 + 5] = ABSENT_CAPACITY;
  const std::vector<float> before(g->arcArray, g->arcArray + g->arcFloatCount);
  for (auto [i, j] : {std::pair{0, 2}, {2, 3}, {4, 1}}) g->addToEdge(i, j, 1, 1);
  EXPECT_EQ(std::vector<float>(g->arcArray, g->arcArray + g->arcFloatCount), before);

  // After reset a new build appends from the start of the arrays again,
  // with the flow cleared.
  g->reset();
  build(*g, std::vector<float>(9, 7.f), std::vector<float>(9, 0.f), [](int, int) { return 0.5f; });
  EXPECT_EQ(g->nodeCount, 9);
  EXPECT_EQ(g->arcFloatCount, 72);
  EXPECT_FLOAT_EQ(g->arcArray[8], 0.5f);  // node 1: its left edge
  EXPECT_FLOAT_EQ(g->flowValue, 0.0f);
}

TEST(MaxFlowTiny, HandWorkedGrids) {
  // Every edge 4. [S5]--4--[T3]: one path, bottleneck the sink link 3; the
  // second node keeps residual 1 from the first and joins the source tree.
  // The same with an infinite source link (-ln 0 from a model). 1 x 1: flow
  // min(source, sink), the tree the sign of what remains. No terminal
  // capacity: no flow, every node free (object side).
  struct Case { int w, h; std::vector<float> cs, ct; float flow; std::vector<int> trees; };
  const int S = kSourceTree, T = kSinkTree, F = kFreeNode;
  const std::vector<float> zeros(6, 0.f);
  const Case cases[] = {{2, 1, {5, 0}, {0, 3}, 3, {S, S}}, {2, 1, {INFINITY, 0}, {0, 3}, 3, {S, S}},
                        {1, 1, {2}, {7}, 2, {T}},          {1, 1, {7}, {2}, 2, {S}},
                        {3, 2, zeros, zeros, 0, {F, F, F, F, F, F}}};
  for (const Case& c : cases) {
    auto g = grid(c.w, c.h, c.cs, c.ct, [](int, int) { return 4.0f; });
    EXPECT_FLOAT_EQ(g->maxFlow(), c.flow);
    for (int n = 0; n < c.w * c.h; ++n)
      EXPECT_TRUE(g->treeLabel[n] == c.trees[n] && g->getTreeofNode(n) == (c.trees[n] == T)) << n;
  }
  // The bottleneck: flow 7, column 2 on the sink side.
  auto g = bottleneck();
  EXPECT_FLOAT_EQ(g->maxFlow(), 7.0f);
  for (int n = 0; n < 9; ++n) EXPECT_EQ(g->getTreeofNode(n), n % 3 == 2) << n;
}

// What the exported calls accept beyond the engine's own builds, on 2 x 1
// grids [S5]--e--[T5] (source 5 on node 0, sink 5 on node 1):
//   e = +inf: the terminals are the bottleneck, flow 5; both links saturate,
//     so both nodes end free: object side.
//   e = 3, then addToEdge -2 both ways: e = 1, flow 1. A further -5 would
//     leave -4: refused and logged, e stays 1.
//   NaN is no capacity: stored as 0, flow 0.
// And a grid built in part: 2 x 2 storage, only the top row added with its
// edges (left edge 4): flow min(5, 4, 3) = 3 through it, the rest unreached.
// Storage smaller than the grid: refused, nothing cut.
TEST(MaxFlowTiny, WhatTheExportedCallsAccept) {
  LogCapture log;
  auto pair = [](float edge) {
    auto g = std::make_unique<KORUSEGraph>(2, 8, 2, 1, 0);
    g->addNode(2);
    for (int n = 0; n < 2; ++n)
      for (int k = 0; k < 4; ++k) g->addEdge(n, n - 1, edge, edge, !(n == 1 && k == 0));
    g->addtWeights(0, 5, 0);
    g->addtWeights(1, 0, 5);
    return g;
  };
  auto infinite = pair(INFINITY);
  EXPECT_FLOAT_EQ(infinite->maxFlow(), 5.0f);
  EXPECT_TRUE(!infinite->getTreeofNode(0) && !infinite->getTreeofNode(1));
  EXPECT_EQ(infinite->arcArray[8], INFINITY);

  auto lowered = pair(3.0f);
  lowered->addToEdge(0, 1, -2.0f, -2.0f);
  lowered->addToEdge(1, 0, -5.0f, 0.0f);
  EXPECT_FLOAT_EQ(lowered->maxFlow(), 1.0f);
  EXPECT_FLOAT_EQ(pair(NAN)->maxFlow(), 0.0f);

  KORUSEGraph part(4, 16, 2, 2, 0);
  part.addNode(2);
  for (int n = 0; n < 2; ++n)
    for (int k = 0; k < 4; ++k) part.addEdge(n, n - 1, 4.0f, 4.0f, !(n == 1 && k == 0));
  part.addtWeights(0, 5, 0);
  part.addtWeights(1, 0, 3);
  EXPECT_FLOAT_EQ(part.maxFlow(), 3.0f);
  EXPECT_TRUE(!part.getTreeofNode(0) && !part.getTreeofNode(1));  // 1 still reached through e

  KORUSEGraph small(2, 8, 5, 5, 0);  // 5 x 5 grid, room for 16 nodes
  small.addNode(2);
  small.addtWeights(0, 5, 1);
  EXPECT_FLOAT_EQ(small.maxFlow(), 1.0f);  // addtWeights' share only
  EXPECT_EQ(small.treeLabel[0], kFreeNode);

  for (const char* refusal : {"addToEdge: capacity would go below 0 or become NaN: ignored",
                              "addEdge: negative or NaN edge capacity stored as 0",
                              "maxFlow: graph storage does not hold its width x height grid"})
    EXPECT_TRUE(log.contains({ANDROID_LOG_ERROR, "Error", refusal})) << refusal;
  EXPECT_EQ(log.count("Error"), 3u);
}

// 3 x 3, every edge 1:   0 1 2
//                        3 4 5      4 is the orphan in the source tree.
//                        6 7 8
TEST(MaxFlowAdoption, ShortestWalkThenVisitingOrderElseFree) {
  auto g = grid(3, 3, std::vector<float>(9, 0.f), std::vector<float>(9, 0.f), [](int, int) { return 1.0f; });
  g->maxflowInit();  // everything free
  auto hang = [&](int n, int tree, int parentArc) { g->treeLabel[n] = tree, g->parentArc[n] = parentArc; };
  // 3 (left) and 1 (upper) both hang from the source: distance 2 each;
  // left comes first in the visiting order.
  for (int n : {3, 1}) hang(n, kSourceTree, TERMINAL_ARC);
  hang(4, kSourceTree, NO_PARENT);
  g->ProcessSourceOrphans(4);
  EXPECT_EQ(g->arcHead(g->parentArc[4]), 3);
  // 3 now hangs from 0, a root: 3 is at distance 3, 0 (upper-left) at 2.
  hang(0, kSourceTree, TERMINAL_ARC);
  hang(3, kSourceTree, 8 * 3 + 4);  // 3's upper arc, 3 -> 0
  hang(4, kSourceTree, NO_PARENT);
  g->ProcessSourceOrphans(4);
  EXPECT_EQ(g->arcHead(g->parentArc[4]), 0);
  // Only sink-tree neighbours and descendants: 5 hangs from 4, 8 from 5,
  // 7 from 8, so their walks end in the orphan. 4 is freed; its child 5
  // becomes an orphan; 5 and 8 can still feed 4 and are queued as active,
  // 7 cannot (its arc 7 -> 4 is saturated) and is not.
  for (int n : {0, 1, 3}) hang(n, kSinkTree, TERMINAL_ARC);
  hang(5, kSourceTree, 8 * 5);      // 5's left arc, 5 -> 4
  hang(8, kSourceTree, 8 * 8 + 4);  // 8's upper arc, 8 -> 5
  hang(7, kSourceTree, 8 * 8 + 1);  // 8's left edge, odd arc: 7 -> 8
  g->arcArray[8 * 7 + 4] = 0.0f;    // 7's upper edge, even arc: 7 -> 4
  hang(4, kSourceTree, NO_PARENT);
  g->ProcessSourceOrphans(4);
  EXPECT_TRUE(g->treeLabel[4] == kFreeNode && g->parentArc[4] == NO_PARENT && g->parentArc[5] == NO_PARENT);
  // Orphan queue: 5; active queue: 5, 8.
  EXPECT_EQ((std::vector<int>{g->orphanFirst, g->orphanLast, g->activeFirst, g->activeLast, g->nextActive[7]}),
            (std::vector<int>{5, 5, 5, 8, kNotQueued}));
  // Sink mirror: 0, 1, 3 are sink roots at distance 2; left (3) would come
  // first but its arc 4 -> 3 is saturated, so upper-left (0) beats upper (1).
  g->arcArray[8 * 4] = 0.0f;
  hang(4, kSinkTree, NO_PARENT);
  g->ProcessSinkOrphans(4);
  EXPECT_EQ(g->arcHead(g->parentArc[4]), 0);
}

// The smallest case found (this file's Edmonds-Karp against the search with
// freed nodes' orphaned neighbours left unqueued) where that rule leaves nodes
// free that still reach the sink, and the cut read back is not minimal:
//
//   nodes  0 1 2 3     terminals: 3 from the source, 2; to the sink 0 and 4: 3,
//          4 5 6 7                1, 2 and 5: 1
//   edges (both ways): 1-2: 1, 5-2: 1, 6-1: 2, 6-2: 2, 6-3: 2, 7-3: 1
//
// All of 3's source capacity flows through 6: the flow and the minimum cut
// (source -> 3) are 2. Without the re-activation, 1 and 6 stay free and read
// as object side, and the cut read back is 4.
TEST(MaxFlowAdoption, FreedNodesOrphanedNeighboursCanGrowBack) {
  const std::vector<float> cs = {0, 0, 0, 2, 0, 0, 0, 0}, ct = {3, 1, 1, 0, 3, 1, 0, 0};
  const std::vector<std::vector<int>> edges = {{1, 2, 1}, {5, 2, 1}, {6, 1, 2}, {6, 2, 2}, {6, 3, 2}, {7, 3, 1}};
  auto g = grid(4, 2, cs, ct, [&](int n, int k) {
    const int m = n + kDy[k] * 4 + kDx[k];
    for (const auto& e : edges)
      if ((e[0] == n && e[1] == m) || (e[0] == m && e[1] == n)) return float(e[2]);
    return 0.0f;
  });
  g_cancelTimer = create_timer();
  start_cpu_timer(g_cancelTimer);
  EXPECT_FLOAT_EQ(g->maxFlow(), 2.0f);
  destroy_timer(g_cancelTimer);
  g_cancelTimer = nullptr;
  Reference ref(10);
  for (int i = 0; i < 8; ++i) ref.add(8, i, cs[i]), ref.add(i, 9, ct[i]);
  for (const auto& e : edges) ref.add(e[0], e[1], e[2]), ref.add(e[1], e[0], e[2]);
  auto sink = [&](int v) { return v == 9 || (v < 8 && g->getTreeofNode(v)); };
  double cut = 0.0;
  for (size_t a = 0; a < ref.cap.size(); a += 2) cut += !sink(ref.from[a]) && sink(ref.to[a]) ? ref.cap[a] : 0.0;
  EXPECT_DOUBLE_EQ(ref.maxFlow(8, 9), 2.0);
  EXPECT_DOUBLE_EQ(cut, 2.0);
  EXPECT_TRUE(g->getTreeofNode(1) && g->getTreeofNode(6) && !g->getTreeofNode(3) && !g->getTreeofNode(7));
}

// Seeded random grids, with second terminal weights and addToEdge extras:
// the flow equals the reference's max-flow and the capacity of the cut read
// back with getTreeofNode.
TEST(MaxFlowRandom, FlowEqualsCutCapacityAndReference) {
  g_cancelTimer = create_timer();  // a runaway search fails after 10 s, not hangs
  std::mt19937 rng(20240611);
  std::uniform_real_distribution<float> terminal(0.f, 10.f), edge(0.f, 5.f), coin(0.f, 1.f);
  auto maybe = [&](float zeroChance, auto& dist) { return coin(rng) < zeroChance ? 0.f : dist(rng); };
  for (auto [w, h] : {std::pair{1, 40}, {40, 1}, {7, 5}, {40, 30}}) {
    for (int trial = 0; trial < (w * h > 1000 ? 4 : 20); ++trial) {
      const int n = w * h, s = n, t = n + 1;
      Reference ref(n + 2);
      std::vector<float> cs(n), ct(n);
      for (int i = 0; i < n; ++i)
        ref.add(s, i, cs[i] = maybe(0.4f, terminal)), ref.add(i, t, ct[i] = maybe(0.4f, terminal));
      auto g = grid(w, h, cs, ct, [&](int i, int k) {
        const float c = maybe(0.2f, edge);
        ref.add(i, i + kDy[k] * w + kDx[k], c), ref.add(i + kDy[k] * w + kDx[k], i, c);
        return c;
      });
      for (int i = 0; i < n; ++i) {
        const float extraS = maybe(0.8f, terminal), extraT = maybe(0.8f, terminal);
        g->addtWeights(i, extraS, extraT);
        ref.add(s, i, extraS), ref.add(i, t, extraT);
      }
      for (int x = 0; x < n / 4; ++x) {
        const int i = rng() % n, k = rng() % 8, j = i + kDy[k] * w + kDx[k];
        if (!inside(i % w + kDx[k], i / w + kDy[k], w, h)) continue;
        const float c = edge(rng), rc = edge(rng);
        g->addToEdge(i, j, c, rc);
        ref.add(i, j, c), ref.add(j, i, rc);
      }
      start_cpu_timer(g_cancelTimer);
      const double flow = g->maxFlow();
      auto sink = [&](int v) { return v == t || (v < n && g->getTreeofNode(v)); };
      double cut = 0.0;
      for (size_t a = 0; a < ref.cap.size(); a += 2)  // original capacities: ref has not run yet
        cut += !sink(ref.from[a]) && sink(ref.to[a]) ? ref.cap[a] : 0.0;
      const double expected = ref.maxFlow(s, t), tol = 1e-4 * std::max(1.0, expected);  // float sums
      EXPECT_NEAR(flow, expected, tol) << w << "x" << h << " trial " << trial;
      EXPECT_NEAR(cut, expected, tol) << w << "x" << h << " trial " << trial;
      EXPECT_FALSE(KORUSEMarker::m_exitApp);
      if (KORUSEMarker::m_exitApp) break;  // later searches then stop at once
    }
  }
  destroy_timer(g_cancelTimer);
  g_cancelTimer = nullptr;
  KORUSEMarker::m_exitApp = false;
}

TEST(MaxFlowCancel, FlagAndTenSecondCeiling) {
  // The bottleneck needs several iterations to reach its flow of 7. A flag
  // set beforehand (-1) stops it before any push; a clock started 11 s ago
  // stops it part way, one started 9 s ago does not. Run again, with the
  // flag cleared and a fresh clock, the search starts clean and completes.
  g_cancelTimer = create_timer();
  for (int secondsAgo : {-1, 9, 11}) {
    KORUSEMarker::m_exitApp = secondsAgo < 0;
    start_cpu_timer(g_cancelTimer);
    g_cancelTimer->startSec -= std::max(secondsAgo, 0);
    auto g = bottleneck();
    const float flow = g->maxFlow();
    EXPECT_EQ(KORUSEMarker::m_exitApp.load(), secondsAgo != 9);
    EXPECT_TRUE(secondsAgo < 0 ? flow == 0.0f : secondsAgo == 9 ? flow == 7.0f : flow < 7.0f) << flow;
    KORUSEMarker::m_exitApp = false;
    start_cpu_timer(g_cancelTimer);
    EXPECT_FLOAT_EQ(g->maxFlow(), 7.0f);
  }
  destroy_timer(g_cancelTimer);
  g_cancelTimer = nullptr;
}

// 5 x 4 grid; a 2 x 2 view at block (1, 1) covers nodes 12, 13, 17, 18; a
// 2 x 5 view at block (0, 2) covers columns 4 and 5 of rows 0 to 4: column 5
// is off the grid (its index would wrap to the next row) and row 4 is past
// the last node, so only 4, 9, 14, 19 remain.
TEST(GraphBlockView, SharesStorageAndInitialisesOnlyItsBlock) {
  std::vector<float> cs(20, 1.f), ct(20, 0.f);
  cs[13] = 0, ct[17] = 3;
  auto g = grid(5, 4, cs, ct, [](int, int) { return 1.0f; });
  auto queued = [](const KORUSEGraph& view) {
    std::vector<int> q;
    for (int p = view.activeFirst; p != kNotQueued; p = view.nextActive[p] == p ? kNotQueued : view.nextActive[p])
      q.push_back(p);
    return q;
  };
  {
    KORUSEGraph view(g.get(), 1, 1, 2, 2);
    view.InitBlock();
    EXPECT_FLOAT_EQ(view.flowValue, 0.0f);
    EXPECT_EQ(queued(view), (std::vector<int>{12, 17, 18}));
    EXPECT_EQ(g->treeLabel[17], kSinkTree);  // initialised in the shared storage
  }  // the view is gone, the storage is not (ASan would see a double free)
  KORUSEGraph edge(g.get(), 0, 2, 2, 5);
  edge.InitBlock();
  EXPECT_EQ(queued(edge), (std::vector<int>{4, 9, 14, 19}));
  // Only node 17 reaches the sink (3): 1 through itself, 2 from neighbours.
  EXPECT_FLOAT_EQ(g->maxFlow(), 3.0f);
}

// A band graph holds only the pixels of a mask; its box, built as a whole
// grid whose other pixels have no terminal capacity and only absent edges,
// must be cut by the very same steps: the same flow to the last bit and the
// same tree for every band pixel. Seeded masks: rings (as a band around an
// outline is), scattered pixels and single rows or columns.
TEST(BandGraph, SameCutAsItsBox) {
  g_cancelTimer = create_timer();
  std::mt19937 rng(99);
  std::uniform_real_distribution<float> u(0.f, 6.f), coin(0.f, 1.f);
  for (auto [w, h] : {std::pair{1, 1}, {1, 17}, {23, 1}, {7, 5}, {40, 30}, {64, 48}}) {
    for (int trial = 0; trial < 6; ++trial) {
      std::vector<uint8_t> mask(size_t(w) * h);
      const double cx = w * coin(rng), cy = h * coin(rng), r = 0.5 + 0.4 * std::max(w, h) * coin(rng);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const double d = std::hypot(x - cx, y - cy);
          mask[y * w + x] = (trial % 2 ? std::fabs(d - r) < 3.0 : d < r) || coin(rng) < 0.1;
        }
      std::vector<float> cs(w * h), ct(w * h), caps(4 * w * h);
      for (int i = 0; i < w * h; ++i) {
        (coin(rng) < 0.5 ? cs[i] : ct[i]) = coin(rng) < 0.3 ? 0.f : u(rng);
        for (int k = 0; k < 4; ++k) caps[4 * i + k] = coin(rng) < 0.2 ? 0.f : u(rng);
      }
      auto inBand = [&](int x, int y) { return inside(x, y, w, h) && mask[y * w + x]; };
      // The box: pixels outside the band get nothing, edges touching them are absent.
      KORUSEGraph box(w * h, 4 * w * h, w, h, 0);
      box.addNode(w * h);
      for (int n = 0; n < w * h; ++n)
        for (int k = 0; k < 4; ++k) {
          const bool present = inBand(n % w, n / w) && inBand(n % w + kDx[k], n / w + kDy[k]);
          box.addEdge(n, 0, present ? caps[4 * n + k] : 0.f, present ? caps[4 * n + k] : 0.f, !present);
        }
      for (int n = 0; n < w * h; ++n)
        if (mask[n]) box.addtWeights(n, cs[n], ct[n]);
      // The band: the same values in the band's own node order.
      KORUSEGraph band(w * h, 4 * w * h, w, h, 0);
      const int nodes = band.setBand(mask.data(), w);
      ASSERT_EQ(nodes, std::count(mask.begin(), mask.end(), 1));
      band.addNode(nodes);
      for (int n = 0; n < w * h; ++n)
        if (mask[n])
          for (int k = 0; k < 4; ++k) band.addEdge(0, 0, caps[4 * n + k], caps[4 * n + k], false);
      for (int n = 0; n < w * h; ++n)
        if (mask[n]) band.addtWeights(band.nodeAt(n % w, n / w), cs[n], ct[n]);
      // A node's four edges at once store what the four calls store: the
      // slots towards pixels off the band absent whatever is given for them.
      KORUSEGraph quad(w * h, 4 * w * h, w, h, 0);
      quad.setBand(mask.data(), w);
      quad.addNode(nodes);
      for (int n = 0; n < w * h; ++n)
        if (mask[n]) quad.addNodeEdges(&caps[4 * n]);
      ASSERT_EQ(quad.arcFloatCount, band.arcFloatCount);
      ASSERT_EQ(0, std::memcmp(quad.arcArray, band.arcArray, sizeof(float) * band.arcFloatCount));

      // Its arcs lead where the grid says; pixels off the band have no node.
      for (int n = 0; n < w * h; ++n) {
        const int node = band.nodeAt(n % w, n / w);
        ASSERT_EQ(node < 0, !mask[n]);
        if (node < 0) continue;
        int arcs[8];
        band.neighbourArcs(node, arcs);
        for (int k = 0; k < 8; ++k) {
          const int x = n % w + kDx[k], y = n / w + kDy[k];
          ASSERT_EQ(arcs[k] == NO_CANDIDATE, !inBand(x, y));
          if (arcs[k] == NO_CANDIDATE) continue;
          ASSERT_EQ(band.arcHead(arcs[k]), band.nodeAt(x, y));  // the search would loop otherwise
          ASSERT_EQ(band.arcHead(KORUSEGraph::sisterArc(arcs[k])), node);
        }
      }
      start_cpu_timer(g_cancelTimer);
      const float boxFlow = box.maxFlow(), bandFlow = band.maxFlow();
      EXPECT_EQ(std::memcmp(&boxFlow, &bandFlow, sizeof(float)), 0) << boxFlow << " vs " << bandFlow;
      for (int n = 0; n < w * h; ++n)
        if (mask[n]) ASSERT_EQ(box.treeLabel[n], band.treeLabel[band.nodeAt(n % w, n / w)]) << n;
    }
  }
  destroy_timer(g_cancelTimer);
  g_cancelTimer = nullptr;
}
