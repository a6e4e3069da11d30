#include "JavaErrors.h"

void throwJava(JNIEnv* env, const char* className, const char* message) {
  if (env->ExceptionCheck()) return;  // the first one stands
  jclass type = env->FindClass(className);
  if (type) env->ThrowNew(type, message);  // else FindClass left its own pending
}

void checkJava(JNIEnv* env) {
  if (env->ExceptionCheck()) throw JavaPending{};
}
