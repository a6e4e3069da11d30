#include "EvalReport.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "PeerCuts.h"
#include "tools/eval/robot/RobotUser.h"
#include "tools/host/Failure.h"

namespace {

const int kCell = 8;      // width of a number column
const int kStrokes = 11;  // width of a strokes column: "not reached"

std::string format(const char* pattern, double value) {
  char text[64];
  std::snprintf(text, sizeof text, pattern, value);
  return text;
}

std::string pad(const std::string& text, int width, bool right = true) {
  const int fill = std::max(0, width - static_cast<int>(text.size()));
  return right ? std::string(fill, ' ') + text : text + std::string(fill, ' ');
}

std::string strokes(const PhotoReport& p, RobotSide side) {
  if (!p.robotRan) return "-";
  const int count = p.robot[side].strokes;
  return count < 0 ? "not reached" : std::to_string(count);
}

// Corrections per photo, kRobotMaxStrokes + 1 for one that did not reach.
double medianStrokes(const std::vector<PhotoReport>& photos, RobotSide side) {
  std::vector<int> counts;
  for (const PhotoReport& p : photos)
    if (p.robotRan) counts.push_back(p.robot[side].strokes < 0 ? kRobotMaxStrokes + 1 : p.robot[side].strokes);
  if (counts.empty()) return 0.0;
  std::sort(counts.begin(), counts.end());
  const size_t half = counts.size() / 2;
  return counts.size() % 2 ? counts[half] : 0.5 * (counts[half - 1] + counts[half]);
}

std::string medianText(double median) {
  return median > kRobotMaxStrokes ? ">" + std::to_string(kRobotMaxStrokes) : format("%g", median);
}

// "ours          12 of 15 photos, median 3 (scribble 20, loop 3; 4 failed)"
std::string robotLine(const EvalSummary& s, RobotSide side) {
  std::string line = pad(side == kRobotOurs ? "  ours" : "  cv::grabCut", 14, false) +
                     std::to_string(s.robotReached[side]) + " of " + std::to_string(s.robotRuns) +
                     " photos, median " + medianText(s.robotMedian[side]) + " (";
  for (int g = 0; g < kGestureCount; ++g) {
    if (!s.robotGestures[side][g]) continue;
    if (line.back() != '(') line += ", ";
    line += std::string(gestureName(static_cast<Gesture>(g))) + " " + std::to_string(s.robotGestures[side][g]);
  }
  if (line.back() == '(') return line + "no corrections)\n";
  return line + "; " + std::to_string(s.robotFailed[side]) + " failed)\n";
}

bool anyRan(const std::vector<PhotoReport>& photos, Method method) {
  return std::any_of(photos.begin(), photos.end(),
                     [&](const PhotoReport& p) { return p.methods[method].ran; });
}

// The methods with columns: the saved masks only when there were any.
std::vector<Method> shownMethods(const std::vector<PhotoReport>& photos) {
  std::vector<Method> shown = {kOurBox, kOurLasso, kGrabCut};
  if (anyRan(photos, kSavedMasks)) shown.push_back(kSavedMasks);
  return shown;
}

struct Columns {
  int name;
  std::vector<Method> methods, timed;
};

std::string row(const Columns& c, const std::string& name, const std::string& size,
                const std::array<MethodScore, kMethodCount>& scores, const std::string& ours,
                const std::string& peer) {
  std::string line = pad(name, c.name, false) + " " + pad(size, 9, false);
  for (Method m : c.methods) {
    const MethodScore& s = scores[m];
    line += " |" + pad(s.ran ? format("%.2f", s.errImage) : "-", kCell) + " " +
            pad(s.ran ? format("%.2f", s.errBox) : "-", kCell);
  }
  line += " |";
  for (Method m : c.timed) line += pad(scores[m].ran ? format("%.0f", scores[m].cpuMs) : "-", kCell) + " ";
  return line + "| " + pad(ours, kStrokes) + " " + pad(peer, kStrokes) + "\n";
}

std::string header(const Columns& c) {
  std::string top = pad("", c.name + 10, false), bottom = pad("photo", c.name, false) + " " + pad("size", 9, false);
  for (Method m : c.methods) {
    top += " | " + pad(methodInfo(m).title, 2 * kCell, false);
    bottom += " |" + pad("image %", kCell) + " " + pad("in box %", kCell);
  }
  top += " | " + pad("CPU ms", static_cast<int>(c.timed.size()) * (kCell + 1) - 1, false);
  bottom += " |";
  for (Method m : c.timed) bottom += pad(methodInfo(m).key, kCell) + " ";
  top += "| strokes to IoU " + format("%.2f", kRobotGoalIoU) + "\n";
  bottom += "| " + pad("ours", kStrokes) + " " + pad("grabCut", kStrokes) + "\n";
  return top + bottom;
}

void addTo(MethodScore& sum, const MethodScore& s) {
  sum.errImage += s.errImage;
  sum.errBox += s.errBox;
  sum.cpuMs += s.cpuMs;
  sum.wallMs += s.wallMs;
}

}  // namespace

const MethodInfo& methodInfo(Method method) {
  static const MethodInfo info[kMethodCount] = {
      {"ours, box", "box", true},
      {"ours, lasso", "lasso", true},
      {"grabCut, box", "grabcut", true},
      {"saved masks", "saved", false},
  };
  return info[method];
}

EvalSummary summarize(const std::vector<PhotoReport>& photos, RobotStyle robotStyle) {
  EvalSummary s;
  s.robotStyle = robotStyle;
  double logRatios = 0.0, lassoMs = 0.0, peerLassoMs = 0.0;
  int ratios = 0;
  for (const PhotoReport& p : photos) {
    for (int m = 0; m < kMethodCount; ++m) {
      if (!p.methods[m].ran) continue;
      addTo(s.mean[m], p.methods[m]);
      ++s.photos[m];
    }
    const MethodScore &box = p.methods[kOurBox], &lasso = p.methods[kOurLasso], &peer = p.methods[kGrabCut];
    if (box.ran && peer.ran && box.cpuMs > 0 && peer.cpuMs > 0) {
      s.boxTotalMs += box.cpuMs;
      s.peerTotalMs += peer.cpuMs;
      logRatios += std::log(peer.cpuMs / box.cpuMs);
      ++ratios;
    }
    if (lasso.ran && peer.ran) {
      lassoMs += lasso.cpuMs;
      peerLassoMs += peer.cpuMs;
    }
    if (!p.robotRan) continue;
    ++s.robotRuns;
    for (int side = 0; side < kRobotSides; ++side) {
      const RobotOutcome& r = p.robot[side];
      s.robotReached[side] += r.strokes >= 0;
      for (const Correction& c : r.given) ++s.robotGestures[side][static_cast<int>(c.gesture)];
      s.robotFailed[side] += static_cast<int>(std::count(r.failed.begin(), r.failed.end(), true));
    }
  }
  for (int m = 0; m < kMethodCount; ++m) {
    MethodScore& mean = s.mean[m];
    mean.ran = s.photos[m] > 0;
    if (!mean.ran) continue;
    mean.errImage /= s.photos[m];
    mean.errBox /= s.photos[m];
    mean.cpuMs /= s.photos[m];
    mean.wallMs /= s.photos[m];
  }
  if (s.boxTotalMs > 0) s.peerOverBox = s.peerTotalMs / s.boxTotalMs;
  if (ratios > 0) s.peerOverBoxGeo = std::exp(logRatios / ratios);
  if (lassoMs > 0) s.peerOverLasso = peerLassoMs / lassoMs;
  for (int side = 0; side < kRobotSides; ++side) s.robotMedian[side] = medianStrokes(photos, RobotSide(side));
  return s;
}

void printTable(std::ostream& out, const std::vector<PhotoReport>& photos, const EvalSummary& summary) {
  Columns c;
  c.name = 5;
  for (const PhotoReport& p : photos) c.name = std::max(c.name, static_cast<int>(p.name.size()));
  c.methods = shownMethods(photos);
  for (Method m : c.methods)
    if (methodInfo(m).timed) c.timed.push_back(m);

  std::string text = header(c);
  const std::string rule(text.find('\n'), '-');
  text += rule + "\n";
  for (const PhotoReport& p : photos)
    text += row(c, p.name, std::to_string(p.size.width) + "x" + std::to_string(p.size.height), p.methods,
                strokes(p, kRobotOurs), strokes(p, kRobotPeer));
  text += rule + "\n";
  text += row(c, "mean", "", summary.mean, "-", "-");
  out << text << "\n"
      << "Error: wrong pixels among the scored ones (mixed border pixels left out), over the whole photo\n"
      << "(image %) and inside the box (in box %). CPU: process CPU time (std::clock) of the cut alone;\n"
      << "cv::grabCut on one thread, " << kPeerIterations << " iterations.\n";
  if (summary.boxTotalMs > 0)
    out << format("Speed: cv::grabCut used %.1fx", summary.peerOverBox) << " the CPU time of our box cut ("
        << format("%.0f", summary.peerTotalMs) << " ms against " << format("%.0f", summary.boxTotalMs)
        << " ms in all; per photo, geometric mean " << format("%.1fx", summary.peerOverBoxGeo) << ")"
        << (summary.peerOverLasso > 0 ? format(", and %.1fx that of our lasso cut", summary.peerOverLasso) : "")
        << ".\n";
  if (summary.robotRuns > 0)
    out << "Robot: IoU " << format("%.2f", kRobotGoalIoU) << " within " << kRobotMaxStrokes << " corrections by the "
        << robotStyleName(summary.robotStyle) << " robot, each side from its own result:\n"
        << robotLine(summary, kRobotOurs) << robotLine(summary, kRobotPeer)
        << "The median is over all photos; one that never reaches IoU " << format("%.2f", kRobotGoalIoU)
        << " counts as more than " << kRobotMaxStrokes << ".\n";
}

std::string csvText(const std::vector<PhotoReport>& photos, const EvalSummary& summary) {
  const std::vector<Method> methods = shownMethods(photos);
  std::string text = "photo,width,height";
  for (Method m : methods) {
    const std::string key = methodInfo(m).key;
    text += "," + key + "_err_image_pct," + key + "_err_box_pct";
    if (methodInfo(m).timed) text += "," + key + "_cpu_ms," + key + "_wall_ms";
  }
  text += ",robot_strokes_ours,robot_strokes_grabcut\n";

  const auto cells = [&](const std::array<MethodScore, kMethodCount>& scores) {
    std::string line;
    for (Method m : methods) {
      const MethodScore& s = scores[m];
      const auto cell = [&](const char* pattern, double v) { return "," + (s.ran ? format(pattern, v) : ""); };
      line += cell("%.4f", s.errImage) + cell("%.4f", s.errBox);
      if (methodInfo(m).timed) line += cell("%.1f", s.cpuMs) + cell("%.1f", s.wallMs);
    }
    return line;
  };
  const auto count = [](const PhotoReport& p, RobotSide side) {
    return p.robotRan ? std::to_string(p.robot[side].strokes) : std::string();
  };
  for (const PhotoReport& p : photos)
    text += p.name + "," + std::to_string(p.size.width) + "," + std::to_string(p.size.height) + cells(p.methods) +
            "," + count(p, kRobotOurs) + "," + count(p, kRobotPeer) + "\n";
  text += "mean,," + cells(summary.mean) + ",,\n";
  return text;
}

std::string robotCsvText(const std::vector<PhotoReport>& photos) {
  std::string text = "photo,side,stroke,kind,mode,x,y,radius,iou,failed\n";
  for (const PhotoReport& p : photos) {
    if (!p.robotRan) continue;
    for (int side = 0; side < kRobotSides; ++side) {
      const RobotOutcome& r = p.robot[side];
      const std::string start = p.name + "," + (side == kRobotOurs ? "ours" : "grabcut") + ",";
      text += start + "0,box,,,,," + format("%.4f", r.startIoU) + ",\n";
      for (size_t k = 0; k < r.given.size(); ++k) {
        const Correction& c = r.given[k];
        text += start + std::to_string(k + 1) + "," + gestureName(c.gesture) + (c.step.add ? ",add," : ",remove,") +
                std::to_string(c.centre.x) + "," + std::to_string(c.centre.y) + "," +
                (c.step.radius < 0 ? "" : std::to_string(c.step.radius)) + "," + format("%.4f", r.iou[k]) +
                (r.failed[k] ? ",1\n" : ",0\n");
      }
    }
  }
  return text;
}

void writeTextFile(const std::string& path, const std::string& text) {
  const std::string temporary = path + "." + std::to_string(::getpid()) + ".tmp";
  std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
  if (file) file << text;
  if (file) file.close();
  std::error_code error;
  if (file) std::filesystem::rename(temporary, path, error);
  if (!file || error) {
    const std::string why = error ? error.message() : std::strerror(errno);
    std::filesystem::remove(temporary, error);
    throw CutoutError(kExitOutput, "cannot write " + path + ": " + why);
  }
}
