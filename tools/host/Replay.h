// Drives one library session through a list of steps, exactly as the phone
// app does, and keeps what the app would show after each step.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "Photo.h"
#include "SessionFile.h"

// What the host shows after a step.
struct Shown {
  bool any = false;                             // false: no result yet, the plain photo
  std::vector<unsigned char> mask;              // library convention: 0 object, 255 background
  std::vector<unsigned int> preview;            // 0xAARRGGBB, outline painted yellow
  std::vector<std::vector<cv::Point>> outline;  // the polygons of fetch_path_array
};

// The library writes only 0 and 255 into a mask; a mask still holding this
// after an output call was not written, meaning "no result".
constexpr unsigned char kUntouched = 128;

// The outline of the last result as fetch_path_array hands it over, one
// polygon per contour; empty when there is none or it was already fetched.
std::vector<std::vector<cv::Point>> takeOutline();

// The library keeps one session per process: one Replay at a time.
class Replay {
 public:
  explicit Replay(const Photo& photo);  // setSourceImage + initSegmentationEngine
  ~Replay();                            // deinitSegmentation
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  // Applies one step and returns what happened, for the progress line.
  // Throws CutoutError(kExitInternal) if the library tears the session down.
  std::string apply(const Step& step);

  const Shown& shown() const { return shown_; }
  // Whether the last step delivered a result; false when an edit gave none
  // (cancelled, over the time limit) and when the history went back to the
  // plain photo.
  bool gaveResult() const { return gaveResult_; }

 private:
  std::string edit(const Step& step);
  std::string history(const Step& step);
  // Reads the library's outputs after an output call. False when the library
  // had no mask to give (its mask output untouched).
  bool collect(std::vector<unsigned char>& mask, std::vector<unsigned int>& preview);
  void showNothing();
  std::string describeShown() const;

  const Photo& photo_;
  Shown shown_;
  bool gaveResult_ = false;
};
