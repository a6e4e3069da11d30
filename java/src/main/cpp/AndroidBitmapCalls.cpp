// The JNI entry points of org.segmentationcore.AndroidBitmaps: the photo
// read from, and the preview drawn into, an ARGB_8888 Bitmap's own memory
// (<android/bitmap.h>, libjnigraphics). Built into the glue on Android;
// elsewhere only compiled, against Debian's copy of the NDK headers.
#include <android/bitmap.h>
#include <org_segmentationcore_AndroidBitmaps.h>

#include <vector>

#include "BitmapPixels.h"
#include "JavaErrors.h"
#include "SessionHandle.h"

namespace {

// A bitmap's pixels, locked for as long as this lives.
class LockedBitmap {
 public:
  LockedBitmap(JNIEnv* env, jobject bitmap) : env_(env), bitmap_(bitmap) {
    if (AndroidBitmap_getInfo(env, bitmap, &info_) != ANDROID_BITMAP_RESULT_SUCCESS)
      throw std::invalid_argument("The bitmap cannot be read.");
    if (info_.format != ANDROID_BITMAP_FORMAT_RGBA_8888)
      throw std::invalid_argument("Only ARGB_8888 bitmaps are read.");
    void* pixels = nullptr;
    if (AndroidBitmap_lockPixels(env, bitmap, &pixels) != ANDROID_BITMAP_RESULT_SUCCESS || !pixels)
      throw std::runtime_error("The bitmap's pixels cannot be locked.");
    pixels_ = static_cast<uint8_t*>(pixels);
  }
  ~LockedBitmap() { AndroidBitmap_unlockPixels(env_, bitmap_); }
  LockedBitmap(const LockedBitmap&) = delete;
  LockedBitmap& operator=(const LockedBitmap&) = delete;

  int width() const { return static_cast<int>(info_.width); }
  int height() const { return static_cast<int>(info_.height); }
  size_t stride() const { return info_.stride; }
  uint8_t* pixels() const { return pixels_; }

 private:
  JNIEnv* env_;
  jobject bitmap_;
  AndroidBitmapInfo info_{};
  uint8_t* pixels_ = nullptr;
};

}  // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_org_segmentationcore_AndroidBitmaps_openBitmap(JNIEnv* env, jclass, jobject bitmap,
                                                                             jint threads) {
  return javaGuard(env, jlong{0}, [&] {
    std::vector<uint32_t> argb;
    int width = 0, height = 0;
    {
      const LockedBitmap photo(env, bitmap);
      width = photo.width();
      height = photo.height();
      argb.resize(static_cast<size_t>(width) * height);
      argbFromBitmap(photo.pixels(), width, height, photo.stride(), argb.data());
    }
    return openSession(pixelPhoto(width, height, argb.data(), "the bitmap"), threads);
  });
}

JNIEXPORT void JNICALL Java_org_segmentationcore_AndroidBitmaps_drawBitmap(JNIEnv* env, jclass, jlong handle,
                                                                           jobject bitmap) {
  javaGuard(env, 0, [&] {
    BindingSession& session = sessionOf(handle);
    const LockedBitmap out(env, bitmap);
    if (out.width() != session.photo().width() || out.height() != session.photo().height())
      throw std::invalid_argument("The bitmap's size is not the photo's.");
    bitmapFromArgb(session.shown().preview.data(), out.width(), out.height(), out.pixels(), out.stride());
    return 0;
  });
}

}  // extern "C"
