// Threads kept for the library's parallel work: started when first needed,
// parked between jobs, so that an edit does not start and join a thread for
// every k-means iteration or block of a cut.
#pragma once

#include <functional>

// Runs task(0) ... task(count - 1), each exactly once, spread over the
// calling thread and up to threads - 1 kept workers; returns when all have
// finished. Which thread runs which task is not fixed: tasks write disjoint
// state, and whatever depends on their order is combined by the caller
// afterwards. Tasks must not call runTasks themselves. Calls from several
// threads at once take turns.
void runTasks(int count, int threads, const std::function<void(int)>& task);

// Calls body(first, last) for consecutive ranges that cover [0, n), at most
// `threads` of them, each at least `grain` long (the last may be shorter).
void runRanges(int n, int threads, int grain, const std::function<void(int, int)>& body);
