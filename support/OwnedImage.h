// Releasing OpenCV images: release-then-null, and a holder for images that
// must not outlive an early return.
#pragma once

#include <opencv2/core/core_c.h>

#include <memory>

// Releases an image if set and nulls the pointer.
void releaseImage(IplImage** image);

// Holds an image until it is handed on (release()) or the holder goes.
struct ImageReleaser {
  void operator()(IplImage* image) const { releaseImage(&image); }
};
using OwnedImage = std::unique_ptr<IplImage, ImageReleaser>;
