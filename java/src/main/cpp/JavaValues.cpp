#include "JavaValues.h"

#include <algorithm>
#include <string>

#include "JavaErrors.h"

std::vector<unsigned int> pixelsOf(JNIEnv* env, jintArray argb, size_t count) {
  if (!argb || static_cast<size_t>(env->GetArrayLength(argb)) < count)
    throw std::invalid_argument("The pixel array is missing or shorter than the photo.");
  std::vector<unsigned int> pixels(count);
  env->GetIntArrayRegion(argb, 0, static_cast<jsize>(count), reinterpret_cast<jint*>(pixels.data()));
  checkJava(env);
  return pixels;
}

std::vector<cv::Point> pointsOf(JNIEnv* env, jintArray xy) {
  const jsize length = xy ? env->GetArrayLength(xy) : 0;
  if (length < 2 || length % 2) throw std::invalid_argument("The points are missing or not x, y pairs.");
  std::vector<jint> values(length);
  env->GetIntArrayRegion(xy, 0, length, values.data());
  checkJava(env);
  std::vector<cv::Point> points;
  points.reserve(length / 2);
  for (jsize i = 0; i < length; i += 2) points.emplace_back(values[i], values[i + 1]);
  return points;
}

void writeAlpha(JNIEnv* env, jobject buffer, const std::vector<unsigned char>& hostMask) {
  auto* out = buffer ? static_cast<unsigned char*>(env->GetDirectBufferAddress(buffer)) : nullptr;
  if (!out || env->GetDirectBufferCapacity(buffer) < static_cast<jlong>(hostMask.size()))
    throw std::invalid_argument("The mask buffer is not a direct buffer of the photo's size.");
  std::transform(hostMask.begin(), hostMask.end(), out, [](unsigned char v) { return v == 0 ? 255 : 0; });
}

void writePixels(JNIEnv* env, jintArray out, const std::vector<unsigned int>& pixels) {
  if (!out || static_cast<size_t>(env->GetArrayLength(out)) < pixels.size())
    throw std::invalid_argument("The pixel array is missing or shorter than the photo.");
  env->SetIntArrayRegion(out, 0, static_cast<jsize>(pixels.size()), reinterpret_cast<const jint*>(pixels.data()));
  checkJava(env);
}

namespace {

jintArray contourArray(JNIEnv* env, const std::vector<cv::Point>& contour) {
  std::vector<jint> xy;
  xy.reserve(2 * contour.size());
  for (const cv::Point& p : contour) {
    xy.push_back(p.x);
    xy.push_back(p.y);
  }
  jintArray array = env->NewIntArray(static_cast<jsize>(xy.size()));
  checkJava(env);
  env->SetIntArrayRegion(array, 0, static_cast<jsize>(xy.size()), xy.data());
  return array;
}

jobjectArray outlineArray(JNIEnv* env, const std::vector<std::vector<cv::Point>>& outline) {
  jclass intArray = env->FindClass("[I");
  checkJava(env);
  jobjectArray contours = env->NewObjectArray(static_cast<jsize>(outline.size()), intArray, nullptr);
  checkJava(env);
  for (size_t i = 0; i < outline.size(); ++i) {
    jintArray contour = contourArray(env, outline[i]);
    env->SetObjectArrayElement(contours, static_cast<jsize>(i), contour);
    env->DeleteLocalRef(contour);  // a large outline would use up the frame's local references
  }
  return contours;
}

}  // namespace

jobject delivery(JNIEnv* env, EditOutcome outcome, bool hasObject,
                 const std::vector<std::vector<cv::Point>>& outline) {
  jobjectArray contours = outlineArray(env, outline);
  jclass type = env->FindClass("org/segmentationcore/Delivery");
  checkJava(env);
  jmethodID make = env->GetMethodID(type, "<init>", "(IZ[[I)V");
  checkJava(env);
  jobject made = env->NewObject(type, make, static_cast<jint>(outcome), static_cast<jboolean>(hasObject), contours);
  checkJava(env);
  return made;
}

jobject shownDelivery(JNIEnv* env, const Shown& shown, jobject alpha) {
  writeAlpha(env, alpha, shown.mask);
  return delivery(env, EditOutcome::Done, shown.any, shown.outline);
}
