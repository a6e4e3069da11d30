#include "WorkerSession.h"

#include <SegmentationCore.h>

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "tools/host/Failure.h"
#include "tools/host/Outputs.h"
#include "tools/host/Stopwatch.h"

using nlohmann::json;

namespace {

bool isEdit(StepKind kind) {
  return kind == StepKind::Box || kind == StepKind::Loop || kind == StepKind::Stroke || kind == StepKind::Cut;
}

json outlineJson(const Shown& shown) {
  json contours = json::array();
  for (const auto& contour : shown.outline) {
    json points = json::array();
    for (const cv::Point& p : contour) points.push_back({p.x, p.y});
    contours.push_back(std::move(points));
  }
  return contours;
}

double objectShare(const Shown& shown) {
  if (!shown.any || shown.mask.empty()) return 0.0;
  const auto object = std::count(shown.mask.begin(), shown.mask.end(), 0);  // host mask: 0 = object
  return static_cast<double>(object) / static_cast<double>(shown.mask.size());
}

Message pngReply(const cv::Mat& image) {
  const std::vector<uchar> bytes = pngBytes(image);
  return {{{"status", 200}, {"type", "image/png"}}, std::string(bytes.begin(), bytes.end())};
}

// A screen's picture of a large photo: a tenth of the PNG's bytes and time,
// and the page draws the outline over it crisply anyway.
Message jpegReply(const cv::Mat& image) {
  std::vector<uchar> bytes;
  if (!cv::imencode(".jpg", image, bytes, {cv::IMWRITE_JPEG_QUALITY, 90}))
    throw RequestError(500, "The view could not be encoded.");
  return {{{"status", 200}, {"type", "image/jpeg"}}, std::string(bytes.begin(), bytes.end())};
}

}  // namespace

WorkerSession::WorkerSession(Photo photo) : photo_(std::move(photo)), replay_(photo_) {}

void WorkerSession::refuse(const Step& step) const {
  const cv::Rect inside(0, 0, photo_.width(), photo_.height());
  for (const cv::Point& p : step.points)
    if (!inside.contains(p))
      throw RequestError(400, "The mark reaches outside the photo: point (" + std::to_string(p.x) + ", " +
                                  std::to_string(p.y) + ") is not within its " + std::to_string(photo_.width()) +
                                  " x " + std::to_string(photo_.height()) + " pixels.");
  // The app offers undo only while a result is shown and redo only after an
  // undo; the session file should hold what a person could have done.
  if (step.kind == StepKind::Undo && !replay_.shown().any) throw RequestError(409, "There is nothing to undo.");
  if (step.kind == StepKind::Redo && redoable_ == 0) throw RequestError(409, "There is nothing to redo.");
}

Message WorkerSession::step(const std::string& text) {
  Step step;
  try {
    step = parseStep(text, "step");
  } catch (const CutoutError& e) {
    throw RequestError(400, e.what());
  }
  refuse(step);

  const bool edit = isEdit(step.kind);
  if (edit) cancel_.begin();
  const Stopwatch watch;
  replay_.apply(step);
  const double ms = watch.wallMs();
  const bool cancelled = edit && cancel_.end();
  const bool changed = !edit || (replay_.gaveResult() && !cancelled);
  // A cancel, and the time limit, stay in force until a new engine clears
  // them; the history is kept, so the next edit starts from what is shown.
  if (edit && !changed) initSegmentationEngine(0);
  // A cancel that comes during the full-size refinement stops the band's
  // cut early, and the library still records that unfinished mask. A
  // cancelled edit changes nothing: step back over it, and never redo to it.
  if (edit && cancelled && replay_.gaveResult()) replay_.apply(Step{StepKind::Undo, true, {}, -1});
  if (changed) {
    kept_.push_back(step);
    redoable_ = step.kind == StepKind::Undo ? redoable_ + 1 : step.kind == StepKind::Redo ? redoable_ - 1 : 0;
  }

  const Shown& shown = replay_.shown();
  json reply = {{"status", 200},
                {"kind", stepKindName(step.kind)},
                {"result", changed},
                {"cancelled", cancelled},
                {"ms", ms},
                {"share", objectShare(shown)},
                {"canUndo", shown.any},
                {"canRedo", redoable_ > 0},
                {"steps", kept_.size()},
                {"outline", outlineJson(shown)}};
  return {std::move(reply), {}};
}

Message WorkerSession::file(const std::string& name) const {
  const Shown& shown = replay_.shown();
  if (name == "mask.png") return pngReply(objectMask(photo_, shown));
  if (name == "cutout.png") return pngReply(cutoutImage(photo_, objectMask(photo_, shown)));
  if (name == "session.json") return {{{"status", 200}, {"type", "application/json"}}, sessionText(kept_)};
  throw RequestError(404, "There is no file " + name + " (mask.png, cutout.png, session.json).");
}

Message WorkerSession::view(const std::string& kind, int maxSide) const {
  const Shown& shown = replay_.shown();
  cv::Mat image;
  if (kind == "preview")
    image = previewImage(photo_, shown);
  else if (kind == "cutout")
    image = cutoutImage(photo_, objectMask(photo_, shown));
  else
    throw RequestError(400, "A view is \"preview\" or \"cutout\", not \"" + kind + "\".");
  const double scale = static_cast<double>(std::max(maxSide, 1)) / std::max(image.cols, image.rows);
  if (scale >= 1.0) return pngReply(image);
  cv::Mat small;
  cv::resize(image, small, cv::Size(), scale, scale, cv::INTER_AREA);
  return kind == "preview" ? jpegReply(small) : pngReply(small);  // the cut-out needs its alpha
}
