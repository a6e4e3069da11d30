// No C++ exception may unwind into the JVM: every JNI entry runs its body
// through javaGuard, which turns one into a Java exception.
#pragma once

#include <jni.h>

#include <new>
#include <stdexcept>

// A Java exception is already pending (a JNI call failed): unwinds to the
// entry, which returns and lets the JVM throw it.
struct JavaPending {};

// Throws `className` (e.g. "java/lang/IllegalStateException") in the caller
// once the native call returns.
void throwJava(JNIEnv* env, const char* className, const char* message);

// Throws JavaPending when a Java exception is pending.
void checkJava(JNIEnv* env);

// std::invalid_argument becomes IllegalArgumentException (a value the Java
// side should have refused), std::bad_alloc OutOfMemoryError, anything else
// IllegalStateException.
template <typename Result, typename Body>
Result javaGuard(JNIEnv* env, Result onFailure, Body&& body) noexcept {
  try {
    return body();
  } catch (const JavaPending&) {
  } catch (const std::bad_alloc&) {
    throwJava(env, "java/lang/OutOfMemoryError", "The native side ran out of memory.");
  } catch (const std::invalid_argument& e) {
    throwJava(env, "java/lang/IllegalArgumentException", e.what());
  } catch (const std::exception& e) {
    throwJava(env, "java/lang/IllegalStateException", e.what());
  } catch (...) {
    throwJava(env, "java/lang/IllegalStateException", "The native side failed.");
  }
  return onFailure;
}
