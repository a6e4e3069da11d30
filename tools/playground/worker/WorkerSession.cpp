#include "WorkerSession.h"

#include <SegmentationCore.h>

#include <algorithm>
#include <chrono>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "tools/host/Failure.h"
#include "tools/host/Outputs.h"
#include "tools/host/Stopwatch.h"

using nlohmann::json;

namespace {

// Filling the marks may take as long as the library gives a segmentation.
constexpr auto kFillBudget = std::chrono::seconds(10);
// Points handed to the library for one edit: far beyond a person's longest
// scribble, and a bound on the memory a trace takes (a brush line counts
// every pixel it crosses).
constexpr size_t kMaxTracedPoints = 2'000'000;

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

Message encoded(const cv::Mat& image, const char* extension, const char* type, std::vector<int> options = {}) {
  std::vector<uchar> bytes;
  if (!cv::imencode(extension, image, bytes, options)) throw RequestError(500, "The image could not be encoded.");
  return {{{"status", 200}, {"type", type}}, std::string(bytes.begin(), bytes.end())};
}

// The photo with the mask as its alpha, both scaled to `size` first: resize
// works channel by channel, so this is the full-size cut-out scaled, without
// making it.
cv::Mat smallCutout(const cv::Mat& bgr, const cv::Mat& mask, cv::Size size) {
  cv::Mat small, alpha, bgra;
  cv::resize(bgr, small, size, 0, 0, cv::INTER_AREA);
  cv::resize(mask, alpha, size, 0, 0, cv::INTER_AREA);
  cv::cvtColor(small, bgra, cv::COLOR_BGR2BGRA);
  const int maskToAlpha[] = {0, 3};
  cv::mixChannels(&alpha, 1, &bgra, 1, maskToAlpha, 1);
  return bgra;
}

}  // namespace

WorkerSession::WorkerSession(Photo photo) : photo_(std::move(photo)), replay_(photo_, Previews::Skipped) {
  std::vector<unsigned int>().swap(photo_.pixels);
  shown_ = describeShown();
}

void WorkerSession::refuse(const Step& step) const {
  const cv::Rect inside(0, 0, photo_.width(), photo_.height());
  for (const cv::Point& p : step.points)
    if (!inside.contains(p))
      throw RequestError(400, "The mark reaches outside the photo: point (" + std::to_string(p.x) + ", " +
                                  std::to_string(p.y) + ") is not within its " + std::to_string(photo_.width()) +
                                  " x " + std::to_string(photo_.height()) + " pixels.");
  const size_t traced = tracedPoints(step);
  if (traced > kMaxTracedPoints)
    throw RequestError(413, "The mark is too long to fill: its trace crosses " + std::to_string(traced) +
                                " pixels, and the playground takes up to " + std::to_string(kMaxTracedPoints) +
                                ". Draw it in shorter strokes.");
  // The app offers undo only while a result is shown and redo only after an
  // undo; the session file should hold what a person could have done.
  if (step.kind == StepKind::Undo && !replay_.shown().any) throw RequestError(409, "There is nothing to undo.");
  if (step.kind == StepKind::Redo && redoable_ == 0) throw RequestError(409, "There is nothing to redo.");
}

Message WorkerSession::step(const std::string& text, uint64_t number) {
  Step step;
  try {
    step = parseStep(text, "step");
  } catch (const CutoutError& e) {
    throw RequestError(400, e.what());
  }
  refuse(step);

  const bool edit = isEdit(step.kind);
  if (edit) cancel_.begin(number);
  const Stopwatch watch;
  const auto deadline = std::chrono::steady_clock::now() + kFillBudget;
  replay_.controlFilling({[this, deadline] {
    return cancel_.requested() || std::chrono::steady_clock::now() > deadline;
  }});
  replay_.apply(step);
  const double ms = watch.wallMs();
  const bool cancelled = edit && cancel_.end();
  const bool changed = !edit || (replay_.gaveResult() && !cancelled);
  // A cancel, and the time limit, stay in force until a new engine clears
  // them; the history is kept, so the next edit starts from what is shown.
  // A cancel that comes during the full-size refinement stops the band's
  // cut early, and the library still records that unfinished mask: a
  // cancelled edit changes nothing, so it is stepped back over, and never
  // redone. Both wait until the reply is on its way.
  newEngine_ = edit && !changed;
  stepBack_ = edit && cancelled && replay_.gaveResult();
  if (changed) {
    kept_.push_back(step);
    redoable_ = step.kind == StepKind::Undo ? redoable_ + 1 : step.kind == StepKind::Redo ? redoable_ - 1 : 0;
    shown_ = describeShown();
  }
  // Until afterReply, a cancelled edit's late result may be in the library;
  // the reply is what was shown before it, which is what stays.
  json reply = shown_;
  reply.update({{"status", 200},
                {"kind", stepKindName(step.kind)},
                {"result", changed},
                {"cancelled", cancelled},
                {"ms", ms}});
  return {std::move(reply), {}};
}

void WorkerSession::afterReply() {
  if (newEngine_) initSegmentationEngine(0);
  if (stepBack_) replay_.apply(Step{StepKind::Undo, true, {}, -1});
  newEngine_ = stepBack_ = false;
}

std::vector<size_t> WorkerSession::replay(const std::vector<std::string>& steps) {
  std::vector<size_t> dropped;
  for (size_t i = 0; i < steps.size(); ++i) {
    bool changed = false;
    try {
      changed = step(steps[i], 0).header.value("result", false);
    } catch (const RequestError&) {
    }
    afterReply();
    if (!changed) dropped.push_back(i);
  }
  return dropped;
}

json WorkerSession::describeShown() const {
  const Shown& shown = replay_.shown();
  return {{"share", objectShare(shown)},
          {"canUndo", shown.any},
          {"canRedo", redoable_ > 0},
          {"steps", kept_.size()},
          {"outline", outlineJson(shown)}};
}

Message WorkerSession::file(const std::string& name) const {
  const Shown& shown = replay_.shown();
  if (name == "mask.png") return encoded(objectMask(photo_, shown), ".png", "image/png");
  if (name == "cutout.png") return encoded(cutoutImage(photo_, objectMask(photo_, shown)), ".png", "image/png");
  if (name == "session.json") return {{{"status", 200}, {"type", "application/json"}}, sessionText(kept_)};
  throw RequestError(404, "There is no file " + name + " (mask.png, cutout.png, session.json).");
}

Message WorkerSession::view(const std::string& kind, int maxSide) const {
  if (kind != "photo" && kind != "cutout")
    throw RequestError(400, "A view is \"photo\" or \"cutout\", not \"" + kind + "\".");
  const cv::Mat& bgr = photo_.bgr;
  const double scale = std::min(1.0, static_cast<double>(std::max(maxSide, 1)) / std::max(bgr.cols, bgr.rows));
  const cv::Size size(std::max(1, cvRound(bgr.cols * scale)), std::max(1, cvRound(bgr.rows * scale)));
  if (kind == "cutout")  // PNG: the cut-out needs its alpha
    return encoded(smallCutout(bgr, objectMask(photo_, replay_.shown()), size), ".png", "image/png");
  if (scale >= 1.0) return encoded(bgr, ".png", "image/png");
  // A screen's picture of a large photo: a tenth of the PNG's bytes and time.
  cv::Mat small;
  cv::resize(bgr, small, size, 0, 0, cv::INTER_AREA);
  return encoded(small, ".jpg", "image/jpeg", {cv::IMWRITE_JPEG_QUALITY, 90});
}
