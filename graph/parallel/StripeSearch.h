// The maximum flow of one graph, a whole grid or a band, on several
// threads: the engine's parallel cut.
//
// The graph's rows are cut into stripes of about equal node counts. The
// edges between neighbouring stripes are taken out (kept aside), each stripe
// is searched from its terminal trees (the threads take them in turn), then
// neighbouring stripes are merged pairwise in passes: their edges written
// back, the nodes at both ends of each activated, and the search goes on
// over the merged rows from the trees it has, until one region is left. Each
// search is the serial one, on a view of the shared arrays that holds its
// own queues and flow.
//
// Where the trees meet, the final cut is a minimum cut, as the serial
// search's is: the same labels but where two cuts agree within float
// rounding. A cancel stops every search as it stops the serial one: the
// stripes then keep their terminal trees (or as far as they got), and the
// edges taken out are written back all the same.
#pragma once

class KORUSEGraph;

// Below this many nodes a stripe is not worth a thread.
constexpr int kMinStripeNodes = 16384;
// Stripes per thread: a stripe's search takes anything from half to twice
// the mean, so two each let a thread that finishes early take another
// (the astronaut's 12 MP band on two threads: 428 ms with two stripes, 396
// with four), and smaller searches stay in the cache (their sum falls by a
// tenth); the merges cost a few ms.
constexpr int kStripesPerThread = 2;

// The minimum cut of a complete graph (every node added, four edges each)
// on `threads` threads, with up to kStripesPerThread stripes each of at
// least `minNodes` nodes; read it with getTreeofNode. One thread, fewer
// than two stripes or a graph not complete: graph.maxFlow(). Returns the flow: the graph's flow from its terminal
// capacities plus what every search pushed.
float stripedMaxFlow(KORUSEGraph& graph, int threads, int minNodes = kMinStripeNodes);
