// The Java values the glue reads and makes. Each throws JavaPending when a
// JNI call leaves an exception, std::invalid_argument for a value the Java
// side should have refused.
#pragma once

#include <jni.h>

#include <opencv2/core.hpp>
#include <vector>

#include "EditOutcome.h"
#include "tools/host/Replay.h"

// The first `count` pixels of an int[] (0xAARRGGBB), copied.
std::vector<unsigned int> pixelsOf(JNIEnv* env, jintArray argb, size_t count);

// An int[] of x, y pairs as points.
std::vector<cv::Point> pointsOf(JNIEnv* env, jintArray xy);

// A host mask (0 object, 255 background) into a direct buffer of at least
// its size, as Java's masks are: 255 on the object, 0 elsewhere.
void writeAlpha(JNIEnv* env, jobject buffer, const std::vector<unsigned char>& hostMask);

// Pixels into the first pixels.size() ints of an int[].
void writePixels(JNIEnv* env, jintArray out, const std::vector<unsigned int>& pixels);

// A Delivery: the outcome, whether an object is shown, the outline as
// int[][] (x, y, x, y, ... per contour).
jobject delivery(JNIEnv* env, EditOutcome outcome, bool hasObject,
                 const std::vector<std::vector<cv::Point>>& outline);

// The delivery of a history step: what a session shows now, its mask
// written into `alpha`.
jobject shownDelivery(JNIEnv* env, const Shown& shown, jobject alpha);
