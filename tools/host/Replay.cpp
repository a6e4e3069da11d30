#include "Replay.h"

#include <SegmentationCore.h>

#include <algorithm>
#include <cstdio>

#include "Failure.h"
#include "Marks.h"

// Parses [N, then per contour n, x1, y1, ... xn, yn, -1].
std::vector<std::vector<cv::Point>> takeOutline() {
  int* array = nullptr;
  int length = 0;
  fetch_path_array(&array, &length);
  std::vector<std::vector<cv::Point>> contours;
  int at = 1;
  const int count = length > 0 && array ? array[0] : 0;
  for (int c = 0; c < count && at < length; ++c) {
    const int n = array[at++];
    if (n < 0 || at + 2 * n >= length) break;  // malformed: keep what was whole
    std::vector<cv::Point> contour;
    for (int i = 0; i < n; ++i, at += 2) contour.emplace_back(array[at], array[at + 1]);
    contours.push_back(std::move(contour));
    ++at;  // the -1 terminator
  }
  delete[] array;
  return contours;
}

namespace {

std::string corners(const Step& step) {
  const cv::Point a = step.points[0], b = step.points[1];
  char text[64];
  std::snprintf(text, sizeof text, "%d,%d,%d,%d", a.x, a.y, b.x, b.y);
  return text;
}

std::string describeStep(const Step& step) {
  std::string text = stepKindName(step.kind);
  switch (step.kind) {
    case StepKind::Box:
      return text + " " + corners(step);
    case StepKind::Loop:
    case StepKind::Stroke:
    case StepKind::Cut:
      text += step.add ? " add" : " remove";
      text += ", " + std::to_string(step.points.size()) + " points";
      if (step.radius >= 0) text += ", radius " + std::to_string(step.radius);
      return text;
    default:
      return text;
  }
}

}  // namespace

Replay::Replay(const Photo& photo, Previews previews) : photo_(photo), previews_(previews) {
  // The library only reads the pixels; its signature predates const.
  setSourceImage(photo.width(), photo.height(), const_cast<unsigned int*>(photo.pixels.data()));
  initSegmentationEngine(0);
  showNothing();
}

Replay::~Replay() { deinitSegmentation(); }

std::string Replay::apply(const Step& step) {
  const std::string what = describeStep(step);
  gaveResult_ = false;
  switch (step.kind) {
    case StepKind::Undo:
    case StepKind::Redo:
    case StepKind::Reset:
      return what + ": " + history(step);
    default:
      return what + ": " + edit(step);
  }
}

std::string Replay::edit(const Step& step) {
  std::optional<Edit> e = filling_.stop ? markEdit(step, photo_.width(), photo_.height(), filling_)
                                        : markEdit(step, photo_.width(), photo_.height());
  if (!e) return "no result (filling the marks was stopped); previous result kept";
  setCurrentMarkerVector(static_cast<int>(e->points.size()), e->points.data());
  setMarkerImage(photo_.width(), photo_.height(), e->markers.data(), e->strokeType);
  e.reset();  // the library has its own copy

  std::vector<unsigned char> mask(pixelCount(), kUntouched);
  std::vector<unsigned int> preview = previewBuffer();
  unsigned int* blended = preview.empty() ? nullptr : preview.data();
  if (step.kind == StepKind::Cut) {
    // A cut finds its outline only while it paints a preview: one it
    // paints into scratch when previews are skipped.
    if (!blended) preview.resize(pixelCount());
    cutOutImage(0, 0, 0, preview.data(), mask.data());
    if (!blended) std::vector<unsigned int>().swap(preview);
  } else if (processSegment(0, 0, 0, blended, mask.data()) < 0) {
    throw CutoutError(kExitInternal, "the library closed the session during " + describeStep(step));
  }
  if (!collect(mask, preview)) return "no result (cancelled or over the time limit); previous result kept";
  return describeShown();
}

std::string Replay::history(const Step& step) {
  if (step.kind == StepKind::Reset) {
    resetSegmentationInterface();
    showNothing();
    return "started over";
  }
  // The app offers redo only when there is something to redo; the library's
  // redo on an empty history would show a stale slot.
  if (step.kind == StepKind::Redo && !canRedo()) return "nothing to redo; " + describeShown();

  std::vector<unsigned char> mask(pixelCount(), kUntouched);
  std::vector<unsigned int> preview = previewBuffer();
  unsigned int* blended = preview.empty() ? nullptr : preview.data();
  if (step.kind == StepKind::Undo)
    undo(blended, mask.data());
  else
    redo(blended, mask.data());
  if (!collect(mask, preview)) showNothing();
  return describeShown();
}

bool Replay::collect(std::vector<unsigned char>& mask, std::vector<unsigned int>& preview) {
  std::vector<std::vector<cv::Point>> outline = takeOutline();
  if (mask.empty() || mask[0] == kUntouched) return false;
  gaveResult_ = true;
  shown_.any = true;
  shown_.mask.swap(mask);
  shown_.preview.swap(preview);
  shown_.outline.swap(outline);
  return true;
}

void Replay::showNothing() {
  takeOutline();  // drop a stale outline
  shown_.any = false;
  shown_.mask.assign(pixelCount(), 255);
  shown_.preview = previewBuffer();
  shown_.outline.clear();
}

std::vector<unsigned int> Replay::previewBuffer() const {
  return previews_ == Previews::Kept ? photo_.pixels : std::vector<unsigned int>();
}

std::string Replay::describeShown() const {
  if (!shown_.any) return "the plain photo, no object";
  const auto object = std::count(shown_.mask.begin(), shown_.mask.end(), 0);
  char text[96];
  std::snprintf(text, sizeof text, "object %.1f%% of the photo, %zu outline%s",
                100.0 * object / static_cast<double>(shown_.mask.size()), shown_.outline.size(),
                shown_.outline.size() == 1 ? "" : "s");
  return text;
}
