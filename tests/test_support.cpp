#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/KORUTimer.h"
#include "support/NearestSampling.h"
#include "support/WorkerPool.h"
#include "testing/LogCapture.h"

#include <opencv2/imgproc/imgproc_c.h>

// The failure paths need malloc to answer null instead of aborting under ASan.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

static std::string fmt(const char* format, const void* p, const char* fn, int line) {
  char buf[256];
  snprintf(buf, sizeof buf, format, p, fn, line);
  return buf;
}

TEST(Memory, MessageFlavourLogsOnlyFailures) {
  LogCapture log;
  void* block = KORU_Malloc_Msg(64, "ok", 1);
  ASSERT_NE(block, nullptr);
  KORU_Free_Msg(block, "ok", 2);
  EXPECT_TRUE(log.lines().empty());

  // Both requests pass PTRDIFF_MAX, which malloc refuses whatever the word
  // size: a 32-bit process may well be granted 2^31 - 2 bytes.
  const bool wide = sizeof(size_t) == 8;
  EXPECT_EQ(KORU_Malloc_Msg(SIZE_MAX, "huge", 3), nullptr);
  EXPECT_EQ(KORU_Calloc_Msg(SIZE_MAX / 2, 2, "huger", 4), nullptr);
  KORU_Free_Msg(nullptr, "nothing", 5);
  EXPECT_TRUE(log.contains({ANDROID_LOG_ERROR, "TAG_MEM",
                            std::string("Failed to allocate ") +
                                (wide ? "18446744073709551615" : "4294967295") +
                                " bytes in function : huge, Line : 3 !"}));
  // count * size is reported as the product, SIZE_MAX - 1.
  EXPECT_TRUE(log.contains({ANDROID_LOG_ERROR, "TAG_MEM",
                            std::string("Failed to allocate ") +
                                (wide ? "18446744073709551614" : "4294967294") +
                                " bytes in function : huger, Line : 4 !"}));
  EXPECT_TRUE(log.contains(
      {ANDROID_LOG_WARN, "TAG_MEM",
       fmt("Trying to free invalid pointer : %p in function : %s, Line : %d !", nullptr,
           "nothing", 5)}));
}

TEST(Memory, TrackedFlavourFindsLeaksAndInvalidFrees) {
  LogCapture log;
  KORU_check_memory_status();  // start from an empty list
  log.clear();

  void* a = KORU_Malloc(10, "first", 11);
  void* b = KORU_Calloc(3, 4, "second", 12);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(static_cast<char*>(b)[i], 0);
  KORU_Free(a, "f", 20);
  KORU_Free(a, "f", 21);  // second time: warned, not freed again

  void* untracked = KORU_Malloc_Msg(8, "plain", 30);
  KORU_Free(untracked, "g", 31);  // unknown to the list: warned and left alone
  free(untracked);

  int* object = new int(7);
  EXPECT_EQ(KORU_New_Mngr(object, "obj", 40), object);
  EXPECT_EQ(KORU_Delete_Mngr(object, "obj", 41), 1);
  EXPECT_EQ(KORU_Delete_Mngr(object, "obj", 42), 0);
  EXPECT_EQ(KORU_Delete_Array_Mngr(object, "arr", 43), 0);
  delete object;
  EXPECT_EQ(KORU_New_Mngr(nullptr, "none", 44), nullptr);

  KORU_check_memory_status();
  KORU_check_memory_status();
  free(b);

  auto expected = std::vector<LogLine>{
      {ANDROID_LOG_WARN, "TAG_MEM",
       fmt("Trying to free invalid pointer : %p in function : %s, Line : %d !", a, "f", 21)},
      {ANDROID_LOG_WARN, "TAG_MEM",
       fmt("Trying to free invalid pointer : %p in function : %s, Line : %d !", untracked, "g",
           31)},
      {ANDROID_LOG_WARN, "TAG_MEM",
       fmt("Trying to delete invalid pointer : %p in function : %s, Line : %d", object, "obj",
           42)},
      {ANDROID_LOG_WARN, "TAG_MEM",
       fmt("Trying to delete invalid pointer array: %p in function : %s, Line : %d", object,
           "arr", 43)},
      {ANDROID_LOG_ERROR, "TAG_MEM", "Allocation failed in function : none, Line : 44 !"},
      // Only the calloc block is still live: 3 * 4 bytes.
      {ANDROID_LOG_ERROR, "TAG_MEM",
       "Failed to deallocate 12 bytes allocated in function : second, Line : 12"},
      {ANDROID_LOG_INFO, "TAG_MEM", "No memory Leak found "},
  };
  EXPECT_EQ(log.lines(), expected);
}

TEST(Timer, ElapsedTimeAndCancelCeiling) {
  EXPECT_EQ(get_elapsed_time_in_microsec(nullptr), -1.0);
  EXPECT_DOUBLE_EQ(get_elapsed_time_in_millisec(nullptr), -0.001);
  EXPECT_DOUBLE_EQ(get_elapsed_time_in_sec(nullptr), -1e-6);

  KORU_Timer* t = create_timer();
  ASSERT_NE(t, nullptr);
  start_cpu_timer(t);
  // Move the start back instead of sleeping: 10.5 s ago.
  t->startSec -= 10;
  t->startUsec -= 500000;
  double first = get_elapsed_time_in_millisec(t);
  double second = get_elapsed_time_in_millisec(t);
  EXPECT_GT(first, 10000.0);
  EXPECT_LT(first, 10600.0);
  EXPECT_GE(second, first);  // a running timer keeps running
  EXPECT_EQ(t->stopped, 0);

  stop_cpu_timer(t);
  double stopped = get_elapsed_time_in_microsec(t);
  EXPECT_EQ(get_elapsed_time_in_microsec(t), stopped);  // frozen once stopped
  EXPECT_DOUBLE_EQ(get_elapsed_time_in_sec(t), stopped * 1e-6);
  destroy_timer(t);
  destroy_timer(nullptr);
}

TEST(Timer, ScopedTimerLogsAcrossASecondBoundary) {
  LogCapture log;
  {
    CGElapsedTime scope("edit");
    // Started at 999999 us of the previous second: the microsecond part of
    // the difference is negative and must borrow a second.
    scope.m_startSec -= 1;
    scope.m_startUsec = 999999;
  }
  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].tag, "GTime");
  EXPECT_EQ(lines[0].priority, ANDROID_LOG_INFO);
  float ms = -1;
  ASSERT_EQ(sscanf(lines[0].text.c_str(), "edit =%f", &ms), 1);
  EXPECT_GT(ms, 0.0f);
  EXPECT_LT(ms, 1001.0f);
}

TEST(Log, SizeGuard) {
  LogCapture log;
  EXPECT_TRUE(checkImageSize(1, 1, "fine", 1));
  EXPECT_FALSE(checkImageSize(0, 3, "probe", 7));
  EXPECT_FALSE(checkImageSize(3, -1, "probe", 8));
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{ANDROID_LOG_ERROR, "Error", "MEMORY_CRASH : probe 7"},
                                               {ANDROID_LOG_ERROR, "Error", "MEMORY_CRASH : probe 8"}}));
}

// The maps must pick exactly the pixels a whole cvResize copies: seeded
// random images, enlarged and reduced by odd factors, up to sizes whose
// indices need two bytes, compared pixel by pixel.
TEST(NearestSampling, SamePixelsAsCvResize) {
  std::srand(11);
  const int sizes[][4] = {{1, 1, 7, 5},     {320, 240, 640, 480}, {339, 226, 600, 400},  {300, 1, 1201, 3},
                          {1, 300, 2, 977}, {640, 480, 320, 240}, {301, 257, 4243, 2828}, {17, 9, 5, 4}};
  for (const auto& s : sizes) {
    IplImage* source = cvCreateImage(cvSize(s[0], s[1]), IPL_DEPTH_8U, 1);
    IplImage* whole = cvCreateImage(cvSize(s[2], s[3]), IPL_DEPTH_8U, 1);
    for (int y = 0; y < s[1]; ++y)
      for (int x = 0; x < s[0]; ++x) source->imageData[y * source->widthStep + x] = char(std::rand());
    cvResize(source, whole, CV_INTER_NN);
    const NearestSampling maps = nearestSampling(s[0], s[1], s[2], s[3]);
    int wrong = 0;
    for (int y = 0; y < s[3]; ++y)
      for (int x = 0; x < s[2]; ++x)
        wrong += whole->imageData[y * whole->widthStep + x] !=
                 source->imageData[maps.row[y] * source->widthStep + maps.column[x]];
    EXPECT_EQ(wrong, 0) << s[0] << "x" << s[1] << " -> " << s[2] << "x" << s[3];
    for (int c = 0; c < s[0]; ++c)  // the inverse: the columns taking c, or none
      for (int x = 0; x < s[2]; ++x)
        ASSERT_EQ(maps.column[x] == c, x >= maps.firstColumn[c] && x <= maps.lastColumn[c]) << c << " " << x;
    cvReleaseImage(&source);
    cvReleaseImage(&whole);
  }
}

// Every task runs exactly once, on however many threads, and runTasks
// returns only when all have finished; ranges cover [0, n) once, in at most
// `threads` parts of at least `grain`.
TEST(WorkerPool, EveryTaskOnceAndAllFinishedOnReturn) {
  for (int threads : {1, 2, 3, 8})
    for (int count : {1, 2, 7, 100}) {
      std::vector<std::atomic<int>> runs(count);
      runTasks(count, threads, [&](int i) {
        if (i % 3 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
        ++runs[i];
      });
      for (int i = 0; i < count; ++i) ASSERT_EQ(runs[i].load(), 1) << threads << " threads, task " << i << " of " << count;
    }
  for (int threads : {1, 2, 5})
    for (int n : {1, 9, 1000}) {
      std::vector<int> covered(n, 0);
      std::atomic<int> parts{0};
      runRanges(n, threads, 100, [&](int first, int last) {
        ++parts;
        for (int i = first; i < last; ++i) ++covered[i];
      });
      EXPECT_EQ(std::count(covered.begin(), covered.end(), 1), n);
      EXPECT_LE(parts.load(), std::min(threads, (n + 99) / 100));
    }
}

// Two threads that run jobs at once each get all of their own tasks done.
TEST(WorkerPool, CallersTakeTurns) {
  std::atomic<int> a{0}, b{0};
  std::thread other([&] {
    for (int k = 0; k < 50; ++k) runTasks(4, 4, [&](int) { ++b; });
  });
  for (int k = 0; k < 50; ++k) runTasks(4, 4, [&](int) { ++a; });
  other.join();
  EXPECT_EQ(a.load(), 200);
  EXPECT_EQ(b.load(), 200);
}
