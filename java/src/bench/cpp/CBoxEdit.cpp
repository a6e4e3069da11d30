// The benchmark's other side: the same box edit made straight through the
// library's C calls, as a C++ host makes it, on pixels already in native
// memory; and the clock both sides are timed by. Entry points of
// org.segmentationcore.BindingBenchmark.
#include <SegmentationCore.h>
#include <jni.h>
#include <org_segmentationcore_BindingBenchmark.h>

#include <ctime>
#include <vector>

#include "tools/host/Marks.h"

namespace {
int g_width = 0, g_height = 0;
std::vector<unsigned int> g_photo;
}  // namespace

extern "C" {

JNIEXPORT void JNICALL Java_org_segmentationcore_BindingBenchmark_openC(JNIEnv* env, jclass, jint width, jint height,
                                                                        jintArray argb, jint threads) {
  g_width = width;
  g_height = height;
  g_photo.resize(static_cast<size_t>(width) * height);
  env->GetIntArrayRegion(argb, 0, width * height, reinterpret_cast<jint*>(g_photo.data()));
  setSegmentationThreads(threads);
  setSourceImage(width, height, g_photo.data());
  initSegmentationEngine(0);
}

// Marks, the edit and its outputs, as a host keeps them for display.
JNIEXPORT jint JNICALL Java_org_segmentationcore_BindingBenchmark_boxEditC(JNIEnv*, jclass, jint x1, jint y1,
                                                                           jint x2, jint y2) {
  Edit edit = markEdit(Step{StepKind::Box, true, {{x1, y1}, {x2, y2}}, -1}, g_width, g_height);
  setCurrentMarkerVector(static_cast<int>(edit.points.size()), edit.points.data());
  setMarkerImage(g_width, g_height, edit.markers.data(), edit.strokeType);
  std::vector<unsigned int> preview = g_photo;
  std::vector<unsigned char> mask(g_photo.size());
  processSegment(0, 0, 0, preview.data(), mask.data());
  int* outline = nullptr;
  int length = 0;
  fetch_path_array(&outline, &length);
  const int contours = length > 0 ? outline[0] : 0;
  delete[] outline;
  return contours;
}

JNIEXPORT void JNICALL Java_org_segmentationcore_BindingBenchmark_closeC(JNIEnv*, jclass) {
  deinitSegmentation();
  g_photo = std::vector<unsigned int>();
}

// The process's CPU time to the nanosecond: the JVM's own reading counts
// clock ticks, a hundredth of a second, too coarse for one edit.
JNIEXPORT jlong JNICALL Java_org_segmentationcore_BindingBenchmark_processCpuNanos(JNIEnv*, jclass) {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<jlong>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

}  // extern "C"
