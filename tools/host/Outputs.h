// The files a run leaves behind. Each is written under a temporary name in
// its folder and renamed only when all of them are complete, so a failed run
// never leaves a truncated file under a final name.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "Photo.h"
#include "Replay.h"

// Creates `dir` and its parents if missing. Throws CutoutError(kExitOutput)
// when it cannot be created or is not a writable folder.
void prepareOutputDir(const std::string& dir);

// Writes into `dir` (which must exist):
//   mask.png     8-bit grey, object 255, background 0
//   cutout.png   the photo as BGRA, alpha 255 on the object and 0 elsewhere
//   preview.png  the library's preview: the photo with the outline in yellow
//   outline.json {"width": W, "height": H, "contours": [[[x, y], ...], ...]}
// Throws CutoutError(kExitOutput) and removes its temporary files on failure.
void writeOutputs(const std::string& dir, const Photo& photo, const Shown& shown);

// The images of those files, for hosts that serve them instead:
cv::Mat objectMask(const Photo& photo, const Shown& shown);    // mask.png
cv::Mat cutoutImage(const Photo& photo, const cv::Mat& mask);  // cutout.png, from objectMask
cv::Mat previewImage(const Photo& photo, const Shown& shown);  // preview.png
// PNG bytes as the files hold them. Throws CutoutError(kExitInternal).
std::vector<uchar> pngBytes(const cv::Mat& image);
