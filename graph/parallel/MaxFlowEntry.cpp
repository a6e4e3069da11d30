// KORUSEGraph::maxFlow, the search's entry point: the serial search, or
// the block search for a whole grid built with two or more threads. It
// needs both, so it lives here, above the serial core of graph/.
#include "graph/KORUSEGraph.h"
#include "graph/parallel/ParallelGC.h"
#include "support/KORULog.h"

float KORUSEGraph::maxFlow() {
  const bool complete = completeGraph();
  if (!complete && !completeUnbuiltGrid()) {
    logBadCall("maxFlow", "graph storage does not hold its width x height grid");
    return flowValue;
  }
  // The block search partitions complete grids; a partial one is cut serially
  // (the same flow).
  if (threadCount >= 2 && !band && complete) {
    // The block search does not add up the flow: callers read the cut.
    ParallelGC parallel(this, threadCount);
    return parallel.maxFlow();
  }
  maxflowInit();
  return maxFlowSerialCall();
}
