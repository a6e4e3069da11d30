// Whether the running segmentation is to stop: the one home of the question
// that the driver asks after every cut and the max-flow search asks while it
// runs.
//
// Two things stop a segmentation: the host's request (the exported setter
// cancelSegmentation() raises KORUSEMarker::m_exitApp, from any thread) and
// the time budget on g_cancelTimer, which segment() starts. The engine's
// own KORUSEHybrid::cancelSegmentation() is the question, not the request:
// it stops the timer, then asks segmentationStopped().
#pragma once

#include "interface/session/KORUSEMarker.h"

// One segmentation may run this long, in milliseconds, before it gives up.
constexpr double kSegmentationBudgetMs = 10000.0;

// The host asked to stop. One load: cheap enough to poll per node.
inline bool cancelRequested() { return KORUSEMarker::m_exitApp; }

// g_cancelTimer reads more than the budget (running or stopped). Costs a
// clock reading while the timer runs.
bool budgetSpent();

// cancelRequested() or budgetSpent().
bool segmentationStopped();
