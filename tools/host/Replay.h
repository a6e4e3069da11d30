// Drives one library session through a list of steps, exactly as the phone
// app does, and keeps what the app would show after each step.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "Marks.h"
#include "Photo.h"
#include "SessionFile.h"

// What the host shows after a step.
struct Shown {
  bool any = false;                             // false: no result yet, the plain photo
  std::vector<unsigned char> mask;              // library convention: 0 object, 255 background
  std::vector<unsigned int> preview;            // 0xAARRGGBB, outline painted yellow; empty
                                                // when previews are skipped
  std::vector<std::vector<cv::Point>> outline;  // the polygons of fetch_path_array
};

// The library writes only 0 and 255 into a mask; a mask still holding this
// after an output call was not written, meaning "no result".
constexpr unsigned char kUntouched = 128;

// The outline of the last result as fetch_path_array hands it over, one
// polygon per contour; empty when there is none or it was already fetched.
std::vector<std::vector<cv::Point>> takeOutline();

// Whether the library paints previews. A host that draws the outline
// itself skips them, and with them a photo-sized buffer per result.
enum class Previews { Kept, Skipped };

// The library keeps one session per process: one Replay at a time.
class Replay {
 public:
  // setSourceImage + initSegmentationEngine. With previews skipped the
  // photo's pixels are read only here: the host may release them after.
  explicit Replay(const Photo& photo, Previews previews = Previews::Kept);
  ~Replay();                            // deinitSegmentation
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  // Applies one step and returns what happened, for the progress line.
  // Throws CutoutError(kExitInternal) if the library tears the session down.
  std::string apply(const Step& step);

  // From now on the marks of an edit are filled under `control`; an edit
  // whose filling is stopped gives no result, as a cancelled cut.
  void controlFilling(FillControl control) { filling_ = std::move(control); }

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
  size_t pixelCount() const { return static_cast<size_t>(photo_.width()) * photo_.height(); }
  // The buffer an output call paints the preview into: the photo, or none.
  std::vector<unsigned int> previewBuffer() const;

  const Photo& photo_;
  const Previews previews_;
  FillControl filling_;
  Shown shown_;
  bool gaveResult_ = false;
};
