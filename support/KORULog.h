// The library's log: every line it writes goes through here, to the Android
// log on the phone (stderr through liblog on a desktop).
//
// What a line says is part of what hosts see: their log filters and crash
// reports match the tags, the texts and, where a line names a place in the
// code, its function name and line number. So the texts are written out
// where they are logged, and the places are the named ones of
// support/LogSites.h, never this code's own line numbers.
#pragma once

#include <android/log.h>

// The four tags of the library's lines.
constexpr const char* kTagError = "Error";
constexpr const char* kTagInfo = "Info";
constexpr const char* kTagMemory = "TAG_MEM";
constexpr const char* kTagTime = "GTime";

// One printf-style line at an Android priority (ANDROID_LOG_INFO, _WARN,
// _ERROR) under a tag.
void logLine(int priority, const char* tag, const char* format, ...) __attribute__((format(printf, 3, 4)));

// A place a log line names: a function and a line number.
struct LogSite {
  const char* function;
  int line;
};

// The guard that precedes every image created from stored sizes: logs
// "MEMORY_CRASH : <function> <line>" (tag "Error", ERROR) when either side is
// below 1. Returns whether the size is usable; callers that must go on
// regardless ignore the answer.
bool checkImageSize(int width, int height, const char* function, int line);
inline bool checkImageSize(int width, int height, LogSite site) {
  return checkImageSize(width, height, site.function, site.line);
}

// Logs an error under "Error" for inputs the host should never send
// (null buffers, calls out of order, mismatched sizes).
void logBadCall(const char* function, const char* what);
