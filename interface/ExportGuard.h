// Nothing may escape an exported function into the host's native layer:
// OpenCV reports errors by throwing, so every entry point runs its body here.
#pragma once


#include <exception>
#include <new>

#include "support/KORULog.h"

template <typename Result, typename Body>
Result exportGuard(const char* function, Result onFailure, Body&& body) noexcept {
  try {
    return body();
  } catch (const std::exception& e) {
    logLine(ANDROID_LOG_ERROR, kTagError, "%s failed: %s", function, e.what());
  } catch (...) {
    logLine(ANDROID_LOG_ERROR, kTagError, "%s failed", function);
  }
  return onFailure;
}

template <typename Body>
void exportGuardVoid(const char* function, Body&& body) noexcept {
  exportGuard(function, 0, [&] {
    body();
    return 0;
  });
}
