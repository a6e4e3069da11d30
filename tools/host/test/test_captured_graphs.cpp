// Graphs captured from real box edits on the sample photos (the five cuts at
// working size and the band, at 0.24 and 2.5 megapixels), cut serially and
// in stripes on 2, 3, 4 and 8 threads: every node lands on the serial
// search's side, and the flows agree within float rounding (a flow of half
// a million summed in float over a million pushes drifts by 1e-5 of it).
// Stripes of any size are allowed here, so that small graphs are striped too.
#include <gtest/gtest.h>

#include <android/log.h>

#include <cmath>
#include <string>

#include "graph/parallel/StripeSearch.h"
#include "interface/session/KORUSEMarker.h"
#include "testing/CapturedGraphs.h"

TEST(CapturedGraphs, StripedCutsLeaveEveryNodeWhereTheSerialSearchDoes) {
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  int graphs = 0;
  for (const char* photo : {"coffee", "astronaut"})
    for (double megapixels : {0.24, 2.5})
      for (const CapturedGraph& c : captureBoxEdit(photo, megapixels)) {
        ++graphs;
        const auto serial = rebuild(c);
        const float flow = serial->maxFlow();
        for (int threads : {2, 3, 4, 8}) {
          const auto striped = rebuild(c);
          const float stripedFlow = stripedMaxFlow(*striped, threads, 1024);
          ASSERT_FALSE(KORUSEMarker::m_exitApp);
          EXPECT_NEAR(stripedFlow, flow, 1e-4 * std::fabs(flow)) << c.name << ", " << threads << " threads";
          int differing = 0;
          for (int n = 0; n < serial->nodeCount; ++n) differing += serial->getTreeofNode(n) != striped->getTreeofNode(n);
          EXPECT_EQ(differing, 0) << c.name << ", " << threads << " threads";
        }
      }
  EXPECT_EQ(graphs, 2 * 2 * 6);  // five cuts and a band each
}
