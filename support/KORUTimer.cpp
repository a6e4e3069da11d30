#include "support/KORUTimer.h"

#include <sys/time.h>

#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/LogSites.h"

KORU_Timer* g_timer = nullptr;
KORU_Timer* g_totalTimer = nullptr;
KORU_Timer* g_cancelTimer = nullptr;

double g_t_TotalTime = 0.0;
double g_t_colEst = 0.0;
double g_t_tAndNLinks = 0.0;
double g_t_maxflow = 0.0;
double g_t_nLinksComputation = 0.0;
double g_t_colUpd = 0.0;
double g_t_preProcess = 0.0;
double g_t_postProcess = 0.0;

static void now(int32_t* sec, int32_t* usec) {
  timeval tv;
  gettimeofday(&tv, nullptr);
  *sec = static_cast<int32_t>(tv.tv_sec);
  *usec = static_cast<int32_t>(tv.tv_usec);
}

extern "C" {

KORU_Timer* create_timer() {
  static_assert(sizeof(KORU_Timer) == 40, "the timer record is 40 bytes");
  return static_cast<KORU_Timer*>(KORU_Calloc_Msg(1, 40, site::createTimer));
}

void destroy_timer(KORU_Timer* timer) {
  if (timer) KORU_Free_Msg(timer, site::destroyTimer);
}

void start_cpu_timer(KORU_Timer* timer) {
  if (!timer) return;
  timer->stopped = 0;
  now(&timer->startSec, &timer->startUsec);
}

void stop_cpu_timer(KORU_Timer* timer) {
  if (!timer) return;
  timer->stopped = 1;
  now(&timer->stopSec, &timer->stopUsec);
}

// Reads only: the block searches of a parallel cut read the cancel timer
// from several threads at once.
double get_elapsed_time_in_microsec(KORU_Timer* timer) {
  if (!timer) return -1.0;
  int32_t stopSec = timer->stopSec, stopUsec = timer->stopUsec;
  if (!timer->stopped) now(&stopSec, &stopUsec);
  const double startMicros = timer->startSec * 1e6 + timer->startUsec;
  return stopSec * 1e6 + stopUsec - startMicros;
}

double get_elapsed_time_in_millisec(KORU_Timer* timer) {
  return get_elapsed_time_in_microsec(timer) * 0.001;
}

double get_elapsed_time_in_sec(KORU_Timer* timer) {
  return get_elapsed_time_in_microsec(timer) * 1e-6;
}

}  // extern "C"

KORU_Timer* init_timer() {
  g_timer = create_timer();
  return g_timer;
}

void exit_timer() {
  if (g_timer) KORU_Free_Msg(g_timer, site::destroyTimer);
}

CGElapsedTime::CGElapsedTime(const char* name) : m_name(name) {
  now(&m_startSec, &m_startUsec);
}

CGElapsedTime::~CGElapsedTime() {
  int32_t sec, usec;
  now(&sec, &usec);
  int32_t dUsec = usec - m_startUsec;
  int32_t dSec = sec - m_startSec;
  if (dUsec < 0) {
    dUsec += 1000000;
    dSec -= 1;
  }
  float ms = static_cast<float>(dUsec) * 0.001f + static_cast<float>(dSec) * 1000.0f;
  logLine(ANDROID_LOG_INFO, kTagTime, "%s =%f", m_name, ms);
}
