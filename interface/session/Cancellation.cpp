#include "interface/session/Cancellation.h"

#include "support/KORUTimer.h"

bool budgetSpent() { return get_elapsed_time_in_millisec(g_cancelTimer) > kSegmentationBudgetMs; }

bool segmentationStopped() { return cancelRequested() || budgetSpent(); }
