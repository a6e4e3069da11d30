#include "support/KORULog.h"

#include <cstdarg>

void logLine(int priority, const char* tag, const char* format, ...) {
  va_list args;
  va_start(args, format);
  __android_log_vprint(priority, tag, format, args);
  va_end(args);
}

bool checkImageSize(int width, int height, const char* function, int line) {
  if (width >= 1 && height >= 1) return true;
  logLine(ANDROID_LOG_ERROR, kTagError, "MEMORY_CRASH : %s %d", function, line);
  return false;
}

void logBadCall(const char* function, const char* what) {
  logLine(ANDROID_LOG_ERROR, kTagError, "%s: %s", function, what);
}
