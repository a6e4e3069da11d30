#include "SessionFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "Failure.h"

using nlohmann::json;

namespace {

struct KindInfo {
  const char* name;
  StepKind kind;
  std::set<std::string> keys;  // the keys a step of this kind may have
};

const std::vector<KindInfo>& kinds() {
  static const std::vector<KindInfo> table = {
      {"box", StepKind::Box, {"kind", "box"}},
      {"loop", StepKind::Loop, {"kind", "mode", "points"}},
      {"stroke", StepKind::Stroke, {"kind", "mode", "points", "radius"}},
      {"cut", StepKind::Cut, {"kind", "mode", "points", "radius"}},
      {"undo", StepKind::Undo, {"kind"}},
      {"redo", StepKind::Redo, {"kind"}},
      {"reset", StepKind::Reset, {"kind"}},
  };
  return table;
}

// Error messages name the file and the step, 1-based as a person counts
// (0: a step on its own, not numbered).
struct Where {
  const std::string& path;
  size_t step;
  std::string prefix() const { return path + (step ? ": step " + std::to_string(step) : "") + ": "; }
  [[noreturn]] void fail(const std::string& what, ExitCode code = kExitSession) const {
    throw CutoutError(code, prefix() + what);
  }
};

int toInt(const json& v, const Where& at, const char* what) {
  if (!v.is_number_integer()) at.fail(std::string(what) + " must be whole numbers");
  const auto n = v.get<long long>();
  // Far outside any photo, but still clamped rather than overflowing.
  return static_cast<int>(std::clamp<long long>(n, -(1 << 30), 1 << 30));
}

std::vector<cv::Point> readPoints(const json& step, const Where& at) {
  if (!step.contains("points")) at.fail("needs \"points\"");
  const json& list = step["points"];
  if (!list.is_array() || list.empty()) at.fail("\"points\" must be a non-empty list of [x, y]");
  std::vector<cv::Point> points;
  for (const json& p : list) {
    if (!p.is_array() || p.size() != 2) at.fail("\"points\" must be a list of [x, y] pairs");
    points.emplace_back(toInt(p[0], at, "points"), toInt(p[1], at, "points"));
  }
  return points;
}

bool readMode(const json& step, const Where& at) {
  if (!step.contains("mode") || !step["mode"].is_string()) at.fail("needs \"mode\": \"add\" or \"remove\"");
  const std::string mode = step["mode"];
  if (mode != "add" && mode != "remove") at.fail("mode \"" + mode + "\" is neither \"add\" nor \"remove\"");
  return mode == "add";
}

std::string boxText(const Step& box) {
  const cv::Point a = box.points[0], b = box.points[1];
  return std::to_string(a.x) + "," + std::to_string(a.y) + "," + std::to_string(b.x) + "," +
         std::to_string(b.y);
}

void checkBox(const Step& box, const std::string& prefix) {
  const cv::Point a = box.points[0], b = box.points[1];
  if (b.x <= a.x || b.y <= a.y)
    throw CutoutError(kExitBox,
                      prefix + "box " + boxText(box) + " is empty: X2 must exceed X1 and Y2 exceed Y1");
}

Step readStep(const json& item, const Where& at) {
  if (!item.is_object() || !item.contains("kind") || !item["kind"].is_string())
    at.fail("each step must be an object with a \"kind\"");
  const std::string name = item["kind"];
  const auto info =
      std::find_if(kinds().begin(), kinds().end(), [&](const KindInfo& k) { return name == k.name; });
  if (info == kinds().end())
    at.fail("unknown kind \"" + name + "\" (box, loop, stroke, cut, undo, redo, reset)", kExitUnknownStep);
  for (const auto& [key, value] : item.items())
    if (!info->keys.count(key)) at.fail("a " + name + " step has no \"" + key + "\"");

  Step step;
  step.kind = info->kind;
  if (step.kind == StepKind::Box) {
    const json& box = item.value("box", json());
    if (!box.is_array() || box.size() != 4) at.fail("needs \"box\": [x1, y1, x2, y2]");
    step.points = {{toInt(box[0], at, "box corners"), toInt(box[1], at, "box corners")},
                   {toInt(box[2], at, "box corners"), toInt(box[3], at, "box corners")}};
    checkBox(step, at.prefix());
  } else if (step.kind == StepKind::Loop || step.kind == StepKind::Stroke || step.kind == StepKind::Cut) {
    step.add = readMode(item, at);
    step.points = readPoints(item, at);
    if (step.kind == StepKind::Stroke && !item.contains("radius")) at.fail("needs \"radius\"");
    if (item.contains("radius")) {
      step.radius = toInt(item["radius"], at, "radius");
      if (step.radius < 0 || step.radius > kMaxRadius)
        at.fail("radius must lie in 0.." + std::to_string(kMaxRadius));
    }
    if (step.kind == StepKind::Loop && step.points.size() < 3) at.fail("a loop needs at least 3 points");
  }
  return step;
}

json parseText(const std::string& text, const std::string& source) {
  try {
    return json::parse(text);
  } catch (const json::parse_error& e) {
    // what() is "[json.exception.parse_error.101] parse error at line L, column C: ..."
    std::string message = e.what();
    const size_t start = message.find("] ");
    if (start != std::string::npos) message = message.substr(start + 2);
    throw CutoutError(kExitSession, source + ": " + message);
  }
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file)
    throw CutoutError(kExitSession, "cannot read session file " + path + ": " + std::strerror(errno));
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Keys in the order a person writes them: the kind first.
nlohmann::ordered_json writeStep(const Step& step) {
  nlohmann::ordered_json item = {{"kind", stepKindName(step.kind)}};
  if (step.kind == StepKind::Box) {
    const cv::Point a = step.points[0], b = step.points[1];
    item["box"] = {a.x, a.y, b.x, b.y};
  } else if (step.kind == StepKind::Loop || step.kind == StepKind::Stroke || step.kind == StepKind::Cut) {
    item["mode"] = step.add ? "add" : "remove";
    if (step.radius >= 0) item["radius"] = step.radius;
    nlohmann::ordered_json points = nlohmann::ordered_json::array();
    for (const cv::Point& p : step.points) points.push_back({p.x, p.y});
    item["points"] = std::move(points);
  }
  return item;
}

}  // namespace

const char* stepKindName(StepKind kind) {
  for (const KindInfo& k : kinds())
    if (k.kind == kind) return k.name;
  return "?";
}

std::vector<Step> readSessionFile(const std::string& path) { return parseSession(readFile(path), path); }

std::vector<Step> parseSession(const std::string& text, const std::string& source) {
  const json doc = parseText(text, source);
  const json* list = &doc;
  if (doc.is_object() && doc.contains("steps") && doc.size() == 1) list = &doc["steps"];
  if (!list->is_array())
    throw CutoutError(kExitSession, source + ": expected {\"steps\": [...]} or a list of steps");
  if (list->empty()) throw CutoutError(kExitSession, source + ": the session has no steps");

  std::vector<Step> steps;
  for (size_t i = 0; i < list->size(); ++i) steps.push_back(readStep((*list)[i], Where{source, i + 1}));
  return steps;
}

Step parseStep(const std::string& text, const std::string& source) {
  return readStep(parseText(text, source), Where{source, 0});
}

std::string sessionText(const std::vector<Step>& steps) {
  std::string text = "{\"steps\": [";
  for (size_t i = 0; i < steps.size(); ++i) text += (i ? ",\n  " : "\n  ") + writeStep(steps[i]).dump();
  return text + "\n]}\n";
}

Step boxStep(const std::array<int, 4>& box) {
  Step step;
  step.kind = StepKind::Box;
  step.points = {{box[0], box[1]}, {box[2], box[3]}};
  checkBox(step, "");
  return step;
}

std::vector<std::string> clampToPhoto(std::vector<Step>& steps, int width, int height,
                                      const std::string& source) {
  std::vector<std::string> warnings;
  const cv::Rect photo(0, 0, width, height);
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  for (size_t i = 0; i < steps.size(); ++i) {
    Step& step = steps[i];
    const std::string box = step.kind == StepKind::Box ? boxText(step) : "";
    const bool fromOption = source == "--box";
    const std::string where =
        fromOption ? "" : source + ": step " + std::to_string(i + 1) + " (" + stepKindName(step.kind) + "): ";
    size_t moved = 0;
    for (cv::Point& p : step.points) {
      if (photo.contains(p)) continue;
      ++moved;
      p = {std::clamp(p.x, 0, width - 1), std::clamp(p.y, 0, height - 1)};
    }
    if (step.kind == StepKind::Box &&
        (step.points[1].x <= step.points[0].x || step.points[1].y <= step.points[0].y))
      throw CutoutError(kExitBox, where + "box " + box + " lies outside the " + size + " photo");
    if (moved)
      warnings.push_back("warning: " + (fromOption ? "--box " + box + ": " : where) + std::to_string(moved) +
                         " of " + std::to_string(step.points.size()) + " points lie outside the " + size +
                         " photo; clamped to its edge");
  }
  return warnings;
}
