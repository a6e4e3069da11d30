#include <gtest/gtest.h>

#include "LogCapture.h"
#include "support/KORULog.h"
#include "support/KORUMemory.h"
#include "support/KORUTimer.h"

TEST(Support, ProbeLog) {
  LogCapture log;
  checkImageSize(0, 3, "probe", 7);
  EXPECT_TRUE(log.contains({ANDROID_LOG_ERROR, "Error", "MEMORY_CRASH : probe 7"}));
}
