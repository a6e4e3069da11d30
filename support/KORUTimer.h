// Wall-clock stopwatches on gettimeofday.
//
// The one that matters to behaviour is g_cancelTimer: each segmentation
// creates and starts it, and the cancellation test stops it, reads the
// elapsed milliseconds and gives up past 10000 ms. The C-linkage functions
// keep plain symbols so hosts written in C can call them.
#pragma once

#include <cstdint>

#include "SegmentationCore.h"

struct KORU_Timer {
  int32_t startSec;    // as filled by gettimeofday
  int32_t startUsec;
  int32_t stopSec;
  int32_t stopUsec;
  // Readings in microseconds. Never written: the readers compute them into
  // locals, as the block searches of a parallel cut read one running timer
  // from several threads at once; writing here would race.
  double startMicros;
  double stopMicros;
  int32_t stopped;     // 1 after stop_cpu_timer, 0 after start_cpu_timer
};

// create_timer, destroy_timer, start_cpu_timer, stop_cpu_timer and the
// get_elapsed_time_in_* readers are declared in the public header: a running
// timer is read against "now" and keeps running; a null timer reads -1 us.

// create_timer() that is also kept in g_timer.
KORU_Timer* init_timer();
// Frees g_timer (the pointer itself is left as it is).
void exit_timer();

extern KORU_Timer* g_timer;
extern KORU_Timer* g_totalTimer;
extern KORU_Timer* g_cancelTimer;  // bounds one segmentation to 10 s

// Profiling slots, kept at zero.
extern double g_t_TotalTime;
extern double g_t_colEst;
extern double g_t_tAndNLinks;
extern double g_t_maxflow;
extern double g_t_nLinksComputation;
extern double g_t_colUpd;
extern double g_t_preProcess;
extern double g_t_postProcess;

// Scoped timer: logs "<name> =<ms>" under "GTime" when it goes out of scope.
class CGElapsedTime {
 public:
  explicit CGElapsedTime(const char* name);
  ~CGElapsedTime();

  int32_t m_startSec;
  int32_t m_startUsec;
  const char* m_name;  // not copied
};
