// The JNI entry points of org.segmentationcore.NativeCalls. The Java side has
// checked every argument and holds the session guard; each entry still
// refuses what would harm the process, and lets no C++ exception out.
#include <SegmentationCore.h>
#include <org_segmentationcore_NativeCalls.h>

#include "BoxCut.h"
#include "JavaErrors.h"
#include "JavaValues.h"
#include "SessionHandle.h"
#include "support/ThreadSetting.h"
#include "tools/host/Threads.h"

static_assert(org_segmentationcore_NativeCalls_DONE == static_cast<int>(EditOutcome::Done));
static_assert(org_segmentationcore_NativeCalls_CANCELLED == static_cast<int>(EditOutcome::Cancelled));
static_assert(org_segmentationcore_NativeCalls_TIMED_OUT == static_cast<int>(EditOutcome::TimedOut));
static_assert(org_segmentationcore_NativeCalls_NO_RESULT == static_cast<int>(EditOutcome::NoResult));

namespace {

StepKind stepKind(jint kind) {
  switch (kind) {
    case org_segmentationcore_NativeCalls_BOX:
      return StepKind::Box;
    case org_segmentationcore_NativeCalls_LOOP:
      return StepKind::Loop;
    case org_segmentationcore_NativeCalls_STROKE:
      return StepKind::Stroke;
    case org_segmentationcore_NativeCalls_CUT:
      return StepKind::Cut;
    default:
      throw std::invalid_argument("Unknown edit kind.");
  }
}

// A step whose points the Java side checked; checked again, since a point
// off the photo would be drawn outside the marks' image.
Step stepOf(JNIEnv* env, const Photo& photo, jint kind, jboolean add, jint radius, jintArray xy) {
  Step step{stepKind(kind), add == JNI_TRUE, pointsOf(env, xy), radius};
  const cv::Rect inside(0, 0, photo.width(), photo.height());
  for (const cv::Point& p : step.points)
    if (!inside.contains(p)) throw std::invalid_argument("A mark lies outside the photo.");
  if (step.kind == StepKind::Box && step.points.size() != 2) throw std::invalid_argument("A box has two corners.");
  if (step.radius > kMaxRadius) throw std::invalid_argument("The brush radius is too large.");
  return step;
}

// Undo or redo: null when there was nothing to step over.
jobject historyStep(JNIEnv* env, jlong handle, bool (BindingSession::*step)(), jobject alpha) {
  return javaGuard(env, jobject{}, [&]() -> jobject {
    BindingSession& session = sessionOf(handle);
    if (!(session.*step)()) return nullptr;
    return shownDelivery(env, session.shown(), alpha);
  });
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_org_segmentationcore_NativeCalls_maxRadius(JNIEnv*, jclass) { return kMaxRadius; }

JNIEXPORT jint JNICALL Java_org_segmentationcore_NativeCalls_maxThreads(JNIEnv*, jclass) {
  return kMaxSegmentationThreads;
}

JNIEXPORT jint JNICALL Java_org_segmentationcore_NativeCalls_defaultThreads(JNIEnv*, jclass) {
  return defaultSegmentationThreads();
}

JNIEXPORT jlong JNICALL Java_org_segmentationcore_NativeCalls_open(JNIEnv* env, jclass, jint width, jint height,
                                                                    jintArray argb, jint threads) {
  return javaGuard(env, jlong{0}, [&] {
    if (width < 1 || height < 1) throw std::invalid_argument("The photo is empty.");
    const std::vector<unsigned int> pixels = pixelsOf(env, argb, static_cast<size_t>(width) * height);
    return openSession(pixelPhoto(width, height, pixels.data(), "the photo"), threads);
  });
}

JNIEXPORT void JNICALL Java_org_segmentationcore_NativeCalls_close(JNIEnv* env, jclass, jlong session) {
  javaGuard(env, 0, [&] {
    delete &sessionOf(session);
    return 0;
  });
}

JNIEXPORT void JNICALL Java_org_segmentationcore_NativeCalls_edit(JNIEnv* env, jclass, jlong handle, jint kind,
                                                                   jboolean add, jint radius, jintArray xy) {
  javaGuard(env, 0, [&] {
    BindingSession& session = sessionOf(handle);
    session.apply(stepOf(env, session.photo(), kind, add, radius, xy));
    return 0;
  });
}

JNIEXPORT jobject JNICALL Java_org_segmentationcore_NativeCalls_finishEdit(JNIEnv* env, jclass, jlong handle,
                                                                            jboolean cancelled, jobject alpha) {
  return javaGuard(env, jobject{}, [&] {
    BindingSession& session = sessionOf(handle);
    const EditOutcome outcome = session.finish(cancelled == JNI_TRUE);
    // Without a new result the buffer still holds the mask shown before, which is shown still.
    if (outcome == EditOutcome::Done) writeAlpha(env, alpha, session.shown().mask);
    return delivery(env, outcome, session.anyShown(), session.outlineShown());
  });
}

JNIEXPORT void JNICALL Java_org_segmentationcore_NativeCalls_cancelEdit(JNIEnv*, jclass) { cancelSegmentation(); }

JNIEXPORT jobject JNICALL Java_org_segmentationcore_NativeCalls_undo(JNIEnv* env, jclass, jlong handle,
                                                                      jobject alpha) {
  return historyStep(env, handle, &BindingSession::undo, alpha);
}

JNIEXPORT jobject JNICALL Java_org_segmentationcore_NativeCalls_redo(JNIEnv* env, jclass, jlong handle,
                                                                      jobject alpha) {
  return historyStep(env, handle, &BindingSession::redo, alpha);
}

JNIEXPORT jobject JNICALL Java_org_segmentationcore_NativeCalls_reset(JNIEnv* env, jclass, jlong handle,
                                                                       jobject alpha) {
  return javaGuard(env, jobject{}, [&] {
    BindingSession& session = sessionOf(handle);
    session.reset();
    return shownDelivery(env, session.shown(), alpha);
  });
}

JNIEXPORT jboolean JNICALL Java_org_segmentationcore_NativeCalls_canUndo(JNIEnv* env, jclass, jlong handle) {
  return javaGuard(env, jboolean{JNI_FALSE}, [&] { return jboolean(sessionOf(handle).canUndo()); });
}

JNIEXPORT jboolean JNICALL Java_org_segmentationcore_NativeCalls_canRedo(JNIEnv* env, jclass, jlong handle) {
  return javaGuard(env, jboolean{JNI_FALSE}, [&] { return jboolean(sessionOf(handle).canRedo()); });
}

JNIEXPORT void JNICALL Java_org_segmentationcore_NativeCalls_drawPreview(JNIEnv* env, jclass, jlong handle,
                                                                          jintArray out) {
  javaGuard(env, 0, [&] {
    writePixels(env, out, sessionOf(handle).shown().preview);
    return 0;
  });
}

JNIEXPORT jobject JNICALL Java_org_segmentationcore_NativeCalls_cutBox(JNIEnv* env, jclass, jint width, jint height,
                                                                        jintArray argb, jint x1, jint y1, jint x2,
                                                                        jint y2, jint threads, jobject alpha) {
  return javaGuard(env, jobject{}, [&] {
    if (width < 1 || height < 1) throw std::invalid_argument("The photo is empty.");
    if (x1 < 0 || y1 < 0 || x2 >= width || y2 >= height || x2 <= x1 || y2 <= y1)
      throw std::invalid_argument("The box is empty or reaches outside the photo.");
    std::vector<unsigned int> pixels = pixelsOf(env, argb, static_cast<size_t>(width) * height);
    setSegmentationThreads(threads);
    const BoxCut cut = cutBox(width, height, std::move(pixels), {x1, y1}, {x2, y2});
    writeAlpha(env, alpha, cut.mask);
    return delivery(env, cut.outcome, cut.outcome == EditOutcome::Done, cut.outline);
  });
}

}  // extern "C"
