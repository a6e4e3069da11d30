#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <queue>
#include <random>
#include <vector>

#include "LogCapture.h"
#include "graph/KORUSEGraph.h"
#include "interface/KORUSEMarker.h"
#include "support/KORUTimer.h"

namespace {

// Offsets (dx, dy) of the eight directions in visiting order: left,
// upper-left, upper, upper-right, right, lower-right, lower, lower-left.
// The first four are the edge slots a node owns.
const int kDx[8] = {-1, -1, 0, 1, 1, 1, 0, -1};
const int kDy[8] = {0, -1, -1, -1, 0, 1, 1, 1};

bool inside(int x, int y, int w, int h) { return x >= 0 && y >= 0 && x < w && y < h; }

// Builds a w x h grid the way the engine does: nodes, four edges per node in
// slot order (symmetric capacity edgeCap(node, slot)), then terminal weights.
void build(KORUSEGraph& g, int w, int h, const std::vector<float>& cs, const std::vector<float>& ct,
           const std::function<float(int, int)>& edgeCap) {
  g.addNode(w * h);
  for (int n = 0; n < w * h; ++n)
    for (int k = 0; k < 4; ++k) {
      const bool absent = !inside(n % w + kDx[k], n / w + kDy[k], w, h);
      const float cap = absent ? 0.0f : edgeCap(n, k);
      g.addEdge(n, n + kDy[k] * w + kDx[k], cap, cap, absent);
    }
  for (int n = 0; n < w * h; ++n) g.addtWeights(n, cs[n], ct[n]);
}

// 3 x 3 bottleneck:  S20  -9-  .  -1-  T20     column 0 tied to the source,
//                    S20  -9-  .  -1-  T20     column 2 to the sink; every
//                    S20  -9-  .  -1-  T20     edge 9 except the 7 edges
// (3 straight, 4 diagonal) between columns 1 and 2, which carry 1.
// Min cut: those 7 edges (the 0|1 border would cost 63, terminals 60).
void buildBottleneck(KORUSEGraph& g) {
  std::vector<float> cs(9, 0.f), ct(9, 0.f);
  for (int r = 0; r < 3; ++r) cs[3 * r] = ct[3 * r + 2] = 20;
  build(g, 3, 3, cs, ct, [](int n, int k) {
    const int c = n % 3, cn = c + kDx[k];
    return (std::min(c, cn) == 1 && std::max(c, cn) == 2) ? 1.0f : 9.0f;
  });
}

std::vector<bool> sides(const KORUSEGraph& g) {
  std::vector<bool> s(g.nodeCount);
  for (int n = 0; n < g.nodeCount; ++n) s[n] = g.getTreeofNode(n);
  return s;
}

// Dinic's algorithm on an explicit adjacency list, in double: the
// reference (shortest augmenting paths by levels; plain Edmonds-Karp is too
// slow for 64 x 48 under the sanitizers).
struct Reference {
  struct Arc {
    int to;
    double cap;
  };
  std::vector<Arc> arcs;  // arc a ^ 1 is the reverse of a
  std::vector<std::vector<int>> out;
  std::vector<int> level, next;
  explicit Reference(int n) : out(n) {}
  void add(int u, int v, double cap) {
    out[u].push_back(static_cast<int>(arcs.size()));
    arcs.push_back({v, cap});
    out[v].push_back(static_cast<int>(arcs.size()));
    arcs.push_back({u, 0.0});
  }
  bool levels(int s, int t) {
    level.assign(out.size(), -1);
    std::queue<int> q;
    level[s] = 0;
    for (q.push(s); !q.empty(); q.pop())
      for (int a : out[q.front()])
        if (arcs[a].cap > 1e-9 && level[arcs[a].to] < 0) {
          level[arcs[a].to] = level[q.front()] + 1;
          q.push(arcs[a].to);
        }
    return level[t] >= 0;
  }
  double push(int u, int t, double f) {
    if (u == t) return f;
    for (int& k = next[u]; k < static_cast<int>(out[u].size()); ++k) {
      Arc& arc = arcs[out[u][k]];
      if (arc.cap <= 1e-9 || level[arc.to] != level[u] + 1) continue;
      const double got = push(arc.to, t, std::min(f, arc.cap));
      if (got > 0) {
        arc.cap -= got;
        arcs[out[u][k] ^ 1].cap += got;
        return got;
      }
    }
    return 0.0;
  }
  double maxFlow(int s, int t) {
    double total = 0.0;
    while (levels(s, t)) {
      next.assign(out.size(), 0);
      while (double f = push(s, t, std::numeric_limits<double>::infinity())) total += f;
    }
    return total;
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
        const int x = n % w + kDx[k], y = n / w + kDy[k];
        if (!inside(x, y, w, h)) {
          EXPECT_EQ(arcs[k], NO_CANDIDATE);
          continue;
        }
        const int m = y * w + x, a = arcs[k];
        EXPECT_EQ(g.arcHead(a), m) << w << "x" << h << " node " << n << " dir " << k;
        EXPECT_EQ(g.arcHead(KORUSEGraph::sisterArc(a)), n);
        EXPECT_EQ(a >> 3, std::max(n, m));
        EXPECT_EQ(a % 2 == 0, n > m);
      }
    }
  }
}

TEST(GraphBuild, TerminalWeightsEdgesAndReset) {
  KORUSEGraph g(9, 72, 3, 3, 0);
  build(g, 3, 3, std::vector<float>(9, 0.f), std::vector<float>(9, 0.f),
        [](int n, int k) { return 10.0f * n + k; });
  // (5, 3) on a fresh node: 3 can pass through both links, 2 remain from
  // the source. Then (0, 4): sink side 4 against source 2 -> 2 more, 2 to the sink.
  g.addtWeights(4, 5, 3);
  EXPECT_FLOAT_EQ(g.nodeArray[4].residualTerminalCapacity, 2.0f);
  EXPECT_FLOAT_EQ(g.flowValue, 3.0f);
  g.addtWeights(4, 0, 4);
  EXPECT_FLOAT_EQ(g.nodeArray[4].residualTerminalCapacity, -2.0f);
  EXPECT_FLOAT_EQ(g.flowValue, 5.0f);

  // 0 and 2 are not neighbours; 2 and 3 are consecutive indices but on
  // opposite borders of the 3-wide grid: neither changes anything.
  const std::vector<float> before(g.arcArray, g.arcArray + g.arcFloatCount);
  g.addToEdge(0, 2, 1, 1);
  g.addToEdge(2, 3, 1, 1);
  EXPECT_EQ(std::vector<float>(g.arcArray, g.arcArray + g.arcFloatCount), before);
  // An edge absent inside the grid (as the band cut builds them) stays absent.
  g.arcArray[8 * 4 + 4] = g.arcArray[8 * 4 + 5] = ABSENT_CAPACITY;  // 4 <-> 1
  g.addToEdge(4, 1, 1, 1);
  EXPECT_EQ(g.arcArray[8 * 4 + 4], ABSENT_CAPACITY);
  EXPECT_EQ(g.arcArray[8 * 4 + 5], ABSENT_CAPACITY);
  // 4 -> 0 is node 4's upper-left slot (1): arcs 8*4+2 (4->0) and 8*4+3 (0->4),
  // built with 41. Asked from node 0's side, the roles swap.
  g.addToEdge(4, 0, 2, 3);
  g.addToEdge(0, 4, 100, 1000);
  EXPECT_FLOAT_EQ(g.arcArray[34], 41 + 2 + 1000);
  EXPECT_FLOAT_EQ(g.arcArray[35], 41 + 3 + 100);

  g.reset();
  EXPECT_EQ(g.nodeCount, 0);
  EXPECT_EQ(g.arcFloatCount, 0);
  EXPECT_FLOAT_EQ(g.flowValue, 0.0f);
  // A new build appends from the start of the arrays again.
  build(g, 3, 3, std::vector<float>(9, 7.f), std::vector<float>(9, 0.f),
        [](int, int) { return 0.5f; });
  EXPECT_EQ(g.nextFreeNode, g.nodeArray + 9);
  EXPECT_EQ(g.arcFloatCount, 72);
  EXPECT_EQ(g.arcArray[0], ABSENT_CAPACITY);  // node 0: nothing to its left
  EXPECT_FLOAT_EQ(g.arcArray[8], 0.5f);       // node 1: its left edge
  EXPECT_FLOAT_EQ(g.nodeArray[0].residualTerminalCapacity, 7.0f);
}

TEST(MaxFlowTiny, HandWorkedGrids) {
  // [S5]--4--[T3]   one path, bottleneck the sink link 3. Afterwards the
  // second node still has residual 1 from the first: it joins the source side.
  {
    KORUSEGraph g(2, 16, 2, 1, 0);
    build(g, 2, 1, {5, 0}, {0, 3}, [](int, int) { return 4.0f; });
    EXPECT_FLOAT_EQ(g.maxFlow(), 3.0f);
    EXPECT_FALSE(g.getTreeofNode(0));
    EXPECT_FALSE(g.getTreeofNode(1));
    EXPECT_EQ(g.nodeArray[1].treeLabel, SOURCE_TREE);
  }
  // Same with an infinite source link (-ln 0 from a model): still 3.
  {
    KORUSEGraph g(2, 16, 2, 1, 0);
    build(g, 2, 1, {INFINITY, 0}, {0, 3}, [](int, int) { return 4.0f; });
    EXPECT_FLOAT_EQ(g.maxFlow(), 3.0f);
  }
  // 1 x 1: flow min(source, sink); the side is the sign of what remains.
  for (auto [s, t] : {std::pair{2.f, 7.f}, {7.f, 2.f}}) {
    KORUSEGraph g(1, 8, 1, 1, 0);
    build(g, 1, 1, {s}, {t}, [](int, int) { return 1.0f; });
    EXPECT_FLOAT_EQ(g.maxFlow(), 2.0f);
    EXPECT_EQ(g.getTreeofNode(0), t > s);
  }
  // No terminal capacity anywhere: no flow, every node free, object side.
  {
    KORUSEGraph g(6, 48, 3, 2, 0);
    build(g, 3, 2, std::vector<float>(6, 0.f), std::vector<float>(6, 0.f),
          [](int, int) { return 1.0f; });
    EXPECT_FLOAT_EQ(g.maxFlow(), 0.0f);
    for (int n = 0; n < 6; ++n) EXPECT_EQ(g.nodeArray[n].treeLabel, FREE_NODE);
    EXPECT_EQ(sides(g), std::vector<bool>(6, false));
  }
  // The bottleneck: flow 7, column 2 on the sink side.
  {
    KORUSEGraph g(9, 72, 3, 3, 0);
    buildBottleneck(g);
    EXPECT_FLOAT_EQ(g.maxFlow(), 7.0f);
    for (int n = 0; n < 9; ++n) EXPECT_EQ(g.getTreeofNode(n), n % 3 == 2) << n;
  }
}

// 3 x 3, every edge 1:   0 1 2
//                        3 4 5      4 is the orphan in the source tree.
//                        6 7 8
TEST(MaxFlowAdoption, ShortestWalkThenVisitingOrderElseFree) {
  KORUSEGraph g(9, 72, 3, 3, 0);
  build(g, 3, 3, std::vector<float>(9, 0.f), std::vector<float>(9, 0.f),
        [](int, int) { return 1.0f; });
  g.maxflowInit();  // everything free
  auto hang = [&](int n, int tree, int parentArc) {
    g.nodeArray[n].treeLabel = tree;
    g.nodeArray[n].parentArc = parentArc;
  };
  auto orphan = [&] { hang(4, SOURCE_TREE, NO_PARENT); };
  // 3 (left) and 1 (upper) both hang from the source: distance 2 each;
  // left comes first in the visiting order.
  hang(3, SOURCE_TREE, TERMINAL_ARC);
  hang(1, SOURCE_TREE, TERMINAL_ARC);
  orphan();
  g.ProcessSourceOrphans(&g.nodeArray[4]);
  EXPECT_EQ(g.arcHead(g.nodeArray[4].parentArc), 3);
  // 3 now hangs from 0, a root: 3 is at distance 3, 0 (upper-left) at 2.
  hang(0, SOURCE_TREE, TERMINAL_ARC);
  hang(3, SOURCE_TREE, 8 * 3 + 4);  // 3's upper arc, 3 -> 0
  orphan();
  g.ProcessSourceOrphans(&g.nodeArray[4]);
  EXPECT_EQ(g.arcHead(g.nodeArray[4].parentArc), 0);
  // Only sink-tree neighbours and descendants: 5 hangs from 4, 8 from 5,
  // 7 from 8, so their walks end in the orphan. 4 is freed; its child 5
  // becomes an orphan; 5 and 8 can still feed 4 and are queued as active,
  // 7 cannot (its arc 7 -> 4 is saturated) and is not.
  for (int n : {0, 1, 3}) hang(n, SINK_TREE, TERMINAL_ARC);
  hang(5, SOURCE_TREE, 8 * 5);      // 5's left arc, 5 -> 4
  hang(8, SOURCE_TREE, 8 * 8 + 4);  // 8's upper arc, 8 -> 5
  hang(7, SOURCE_TREE, 8 * 8 + 1);  // 8's left edge, odd arc: 7 -> 8
  g.arcArray[8 * 7 + 4] = 0.0f;     // 7's upper edge, even arc: 7 -> 4
  orphan();
  g.ProcessSourceOrphans(&g.nodeArray[4]);
  EXPECT_EQ(g.nodeArray[4].treeLabel, FREE_NODE);
  EXPECT_EQ(g.nodeArray[4].parentArc, NO_PARENT);
  EXPECT_EQ(g.nodeArray[5].parentArc, NO_PARENT);
  EXPECT_EQ(g.orphanFirst, &g.nodeArray[5]);
  EXPECT_EQ(g.orphanLast, &g.nodeArray[5]);
  EXPECT_EQ(g.activeFirst, &g.nodeArray[5]);
  EXPECT_EQ(g.activeLast, &g.nodeArray[8]);
  EXPECT_EQ(g.nodeArray[7].nextActive, nullptr);
  // Sink mirror: 0, 1, 3 are sink roots at distance 2; left (3) would come
  // first but its arc 4 -> 3 is saturated, so upper-left (0) beats upper (1).
  g.arcArray[8 * 4] = 0.0f;
  hang(4, SINK_TREE, NO_PARENT);
  g.ProcessSinkOrphans(&g.nodeArray[4]);
  EXPECT_EQ(g.arcHead(g.nodeArray[4].parentArc), 0);
}

// Seeded random grids: the flow equals the capacity of the cut read back
// with getTreeofNode, and the max-flow of the reference.
TEST(MaxFlowRandom, FlowEqualsCutCapacityAndReference) {
  g_cancelTimer = create_timer();  // a runaway search is stopped, not hung
  start_cpu_timer(g_cancelTimer);
  std::mt19937 rng(20240611);
  std::uniform_real_distribution<float> terminal(0.f, 10.f), edge(0.f, 5.f), coin(0.f, 1.f);
  for (auto [w, h] : {std::pair{1, 40}, {40, 1}, {7, 5}, {64, 48}}) {
    for (int trial = 0; trial < (w * h > 1000 ? 4 : 20); ++trial) {
      const int n = w * h;
      std::vector<float> cs(n), ct(n), extraS(n), extraT(n), caps(4 * n);
      for (int i = 0; i < n; ++i) {
        cs[i] = coin(rng) < 0.4f ? 0.f : terminal(rng);
        ct[i] = coin(rng) < 0.4f ? 0.f : terminal(rng);
        extraS[i] = coin(rng) < 0.8f ? 0.f : terminal(rng);  // a second addtWeights
        extraT[i] = coin(rng) < 0.8f ? 0.f : terminal(rng);
      }
      for (float& c : caps) c = coin(rng) < 0.2f ? 0.f : edge(rng);
      Reference ref(n + 2);
      KORUSEGraph g(n, 8 * n, w, h, 0);
      build(g, w, h, cs, ct, [&](int i, int k) { return caps[4 * i + k]; });
      for (int i = 0; i < n; ++i) {
        g.addtWeights(i, extraS[i], extraT[i]);
        ref.add(n, i, cs[i] + extraS[i]);
        ref.add(i, n + 1, ct[i] + extraT[i]);
      }
      // Directed edge list for the cut, including a few addToEdge extras.
      struct E {
        int u, v;
        float cap;
      };
      std::vector<E> edges;
      for (int i = 0; i < n; ++i)
        for (int k = 0; k < 4; ++k)
          if (inside(i % w + kDx[k], i / w + kDy[k], w, h)) {
            const int j = i + kDy[k] * w + kDx[k];
            edges.push_back({i, j, caps[4 * i + k]});
            edges.push_back({j, i, caps[4 * i + k]});
          }
      for (int x = 0; x < n / 4; ++x) {
        const int i = rng() % n, k = rng() % 8;
        if (!inside(i % w + kDx[k], i / w + kDy[k], w, h)) continue;
        const int j = i + kDy[k] * w + kDx[k];
        const float c = edge(rng), rc = edge(rng);
        g.addToEdge(i, j, c, rc);
        edges.push_back({i, j, c});
        edges.push_back({j, i, rc});
      }
      for (const E& e : edges) ref.add(e.u, e.v, e.cap);

      start_cpu_timer(g_cancelTimer);
      const double flow = g.maxFlow();
      const std::vector<bool> side = sides(g);
      double cut = 0.0;
      for (int i = 0; i < n; ++i) cut += side[i] ? cs[i] + extraS[i] : ct[i] + extraT[i];
      for (const E& e : edges)
        if (!side[e.u] && side[e.v]) cut += e.cap;
      const double expected = ref.maxFlow(n, n + 1);
      const double tol = 1e-4 * std::max(1.0, expected);  // float sums
      EXPECT_NEAR(flow, expected, tol) << w << "x" << h << " trial " << trial;
      EXPECT_NEAR(cut, expected, tol) << w << "x" << h << " trial " << trial;
      EXPECT_FALSE(KORUSEMarker::m_exitApp);
    }
  }
  destroy_timer(g_cancelTimer);
  g_cancelTimer = nullptr;
  KORUSEMarker::m_exitApp = false;
}

// The same graph cut twice gives the same sides; a thread count of 2 or more
// says it runs the serial search and gives that same cut.
TEST(MaxFlowRandom, RepeatableAndSerialForThreadCounts) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> u(0.f, 4.f);
  const int w = 20, h = 15, n = w * h;
  std::vector<float> cs(n), ct(n), caps(4 * n);
  for (int i = 0; i < n; ++i) (rng() % 2 ? cs[i] : ct[i]) = u(rng);
  for (float& c : caps) c = u(rng);
  std::vector<bool> first;
  for (int threads : {0, 0, 4}) {
    LogCapture log;
    KORUSEGraph g(n, 8 * n, w, h, threads);
    build(g, w, h, cs, ct, [&](int i, int k) { return caps[4 * i + k]; });
    g.maxFlow();
    if (first.empty()) first = sides(g);
    EXPECT_EQ(sides(g), first) << "threads " << threads;
    EXPECT_EQ(log.count("Error"), threads >= 2 ? 1u : 0u);
  }
}

TEST(MaxFlowCancel, FlagAndTenSecondCeiling) {
  // The bottleneck needs several iterations to reach its flow of 7.
  {
    KORUSEGraph g(9, 72, 3, 3, 0);
    buildBottleneck(g);
    KORUSEMarker::m_exitApp = true;
    EXPECT_FLOAT_EQ(g.maxFlow(), 0.0f);  // nothing pushed
    EXPECT_TRUE(KORUSEMarker::m_exitApp);
  }
  g_cancelTimer = create_timer();
  for (int secondsAgo : {9, 11}) {
    KORUSEMarker::m_exitApp = false;
    start_cpu_timer(g_cancelTimer);
    g_cancelTimer->startSec -= secondsAgo;
    KORUSEGraph g(9, 72, 3, 3, 0);
    buildBottleneck(g);
    const float flow = g.maxFlow();
    EXPECT_EQ(KORUSEMarker::m_exitApp.load(), secondsAgo > 10);
    if (secondsAgo > 10) {
      EXPECT_LT(flow, 7.0f);
      // Run again after the cancel: the search starts clean and completes.
      KORUSEMarker::m_exitApp = false;
      start_cpu_timer(g_cancelTimer);
      EXPECT_FLOAT_EQ(g.maxFlow(), 7.0f);
    } else {
      EXPECT_FLOAT_EQ(flow, 7.0f);
    }
  }
  destroy_timer(g_cancelTimer);
  g_cancelTimer = nullptr;
  KORUSEMarker::m_exitApp = false;
}

// 5 x 4 grid; a 2 x 2 view at block (1, 1) covers nodes 12, 13, 17, 18; a
// 2 x 5 view at block (0, 2) covers columns 4 and 5 of rows 0 to 4: column 5
// is off the grid (its index would wrap to the next row) and row 4 is past
// the last node, so only 4, 9, 14, 19 remain.
TEST(GraphBlockView, SharesStorageAndInitialisesOnlyItsBlock) {
  KORUSEGraph g(20, 160, 5, 4, 0);
  std::vector<float> cs(20, 1.f), ct(20, 0.f);
  cs[13] = 0;
  ct[17] = 3;
  build(g, 5, 4, cs, ct, [](int, int) { return 1.0f; });
  auto queued = [](const KORUSEGraph& view) {
    std::vector<int> q;
    for (nodes* p = view.activeFirst; p; p = p->nextActive == p ? nullptr : p->nextActive)
      q.push_back(view.nodeIndex(p));
    return q;
  };
  {
    KORUSEGraph view(&g, 1, 1, 2, 2);
    EXPECT_EQ(view.nodeArray, g.nodeArray);
    EXPECT_EQ(view.arcArray, g.arcArray);
    EXPECT_FLOAT_EQ(view.flowValue, g.flowValue);
    view.InitBlock();
    EXPECT_FLOAT_EQ(view.flowValue, 0.0f);
    EXPECT_EQ(queued(view), (std::vector<int>{12, 17, 18}));
    EXPECT_EQ(g.nodeArray[17].treeLabel, SINK_TREE);
    EXPECT_EQ(g.nodeArray[13].treeLabel, FREE_NODE);
    EXPECT_EQ(g.nodeArray[11].nextActive, nullptr);  // outside the block
  }  // the view is gone, the storage is not (ASan would see a double free)
  KORUSEGraph edge(&g, 0, 2, 2, 5);
  edge.InitBlock();
  EXPECT_EQ(queued(edge), (std::vector<int>{4, 9, 14, 19}));
  // Only node 17 reaches the sink (3): 1 through itself, 2 from neighbours.
  EXPECT_FLOAT_EQ(g.maxFlow(), 3.0f);
}
