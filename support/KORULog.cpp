#include "support/KORULog.h"

#include <android/log.h>

bool checkImageSize(int width, int height, const char* function, int line) {
  if (width >= 1 && height >= 1) return true;
  __android_log_print(ANDROID_LOG_ERROR, "Error", "MEMORY_CRASH : %s %d", function, line);
  return false;
}

void logBadCall(const char* function, const char* what) {
  __android_log_print(ANDROID_LOG_ERROR, "Error", "%s: %s", function, what);
}
