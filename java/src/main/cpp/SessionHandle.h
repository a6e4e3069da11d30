// A Java session's native side travels as a jlong: the BindingSession's address.
#pragma once

#include <SegmentationCore.h>
#include <jni.h>

#include <memory>
#include <stdexcept>

#include "BindingSession.h"

inline jlong handleOf(std::unique_ptr<BindingSession> session) { return reinterpret_cast<jlong>(session.release()); }

// The session behind a live handle; the Java side never passes a closed one.
inline BindingSession& sessionOf(jlong handle) {
  if (handle == 0) throw std::logic_error("The session is closed.");
  return *reinterpret_cast<BindingSession*>(handle);
}

// Opens a session on a photo: the process's thread count, then the library session.
inline jlong openSession(Photo photo, int threads) {
  setSegmentationThreads(threads);
  return handleOf(std::make_unique<BindingSession>(std::move(photo)));
}
