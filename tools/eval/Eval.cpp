#include "Eval.h"

#include <filesystem>
#include <iostream>

#include "Chart.h"
#include "EvalReport.h"
#include "OurCuts.h"
#include "PeerCuts.h"
#include "Progress.h"
#include "tools/eval/robot/RobotUser.h"
#include "tools/eval/robot/Score.h"
#include "tools/host/BenchmarkFolder.h"
#include "tools/host/Failure.h"
#include "tools/host/Marks.h"
#include "tools/host/Outputs.h"
#include "tools/host/Photo.h"

namespace fs = std::filesystem;

namespace {

// Box cut, robot, lasso cut, grabCut, robot on grabCut.
constexpr int kStagesPerPhoto = 5;

MethodScore scoreOf(const CutResult& cut, const cv::Mat& truth, const cv::Rect& box) {
  MethodScore s;
  s.ran = true;
  s.errImage = errorPercent(cut.object, truth);
  s.errBox = errorPercent(cut.object, truth, box);
  s.cpuMs = cut.cpuMs;
  s.wallMs = cut.wallMs;
  return s;
}

cv::Rect boxRect(const std::array<int, 4>& box) {
  return cv::Rect(cv::Point(box[0], box[1]), cv::Point(box[2] + 1, box[3] + 1));
}

// A saved mask MASKS/NAME.*, scored untimed; not run when there is none.
MethodScore savedScore(const std::string& masks, const std::string& name, const cv::Mat& truth,
                       const cv::Rect& box) {
  if (masks.empty()) return {};
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(masks, error)) {
    if (entry.path().stem() != name) continue;
    CutResult saved;
    saved.object = readGreyOfSize(entry.path().string(), truth.size()) > 127;
    return scoreOf(saved, truth, box);
  }
  return {};
}

// How one side takes an edit: a segmentation, or the direct tool (a "cut"
// step, painted into the mask).
struct SideEdits {
  std::function<void(const Edit&, cv::Mat&)> segment, paint;
};

// The robot on one method, each correction marked as the phone app marks it.
RobotOutcome robotOn(const Photo& photo, const cv::Mat& start, const cv::Mat& truth, RobotStyle style,
                     const SideEdits& side) {
  return runRobot(start.clone(), truth, style, [&](const Step& step, cv::Mat& object) {
    const Edit edit = markEdit(step, photo.width(), photo.height());
    (step.kind == StepKind::Cut ? side.paint : side.segment)(edit, object);
  });
}

PhotoReport evaluatePhoto(const BenchmarkPhoto& entry, const EvalArguments& args, Progress& progress) {
  const Photo photo = readPhoto(entry.image);
  const cv::Rect box = boxRect(entry.box);
  if ((box & cv::Rect(0, 0, photo.width(), photo.height())) != box)
    throw CutoutError(kExitBenchmark, "the box of " + entry.name + " reaches outside its photo");
  const cv::Mat truth = readGreyOfSize(entry.truth, photo.bgr.size());
  PhotoReport report;
  report.name = entry.name;
  report.size = photo.bgr.size();

  progress.begin(entry.name + ": our box cut");
  const CutResult ours = ourBoxCut(photo, entry.box);
  report.methods[kOurBox] = scoreOf(ours, truth, box);
  progress.begin(entry.name + ": robot user on our cut");
  report.robotRan = true;
  report.robot[kRobotOurs] =
      robotOn(photo, ours.object, truth, args.robot,
              {[&](const Edit& e, cv::Mat& object) { ourEdit(photo, e, object); },
               [&](const Edit& e, cv::Mat& object) { ourPaint(photo, e, object); }});
  progress.begin(entry.name + ": our lasso cut");
  if (!entry.lasso.empty()) {
    const cv::Mat trimap = readGreyOfSize(entry.lasso, photo.bgr.size());
    report.methods[kOurLasso] = scoreOf(ourLoopCut(photo, lassoEdit(trimap)), truth, box);
  }
  closeOurSession();

  progress.begin(entry.name + ": cv::grabCut");
  PeerState peer;
  const CutResult theirs = peerBoxCut(photo, entry.box, peer);
  report.methods[kGrabCut] = scoreOf(theirs, truth, box);
  progress.begin(entry.name + ": robot user on cv::grabCut");
  report.robot[kRobotPeer] =
      robotOn(photo, theirs.object, truth, args.robot,
              {[&](const Edit& e, cv::Mat& object) { peerEdit(photo, e, peer, object); },
               [&](const Edit& e, cv::Mat& object) { peerPaint(e, peer, object); }});
  report.methods[kSavedMasks] = savedScore(args.masks, entry.name, truth, box);
  return report;
}

}  // namespace

int runEval(const EvalArguments& args) {
  const std::vector<BenchmarkPhoto> entries = readBenchmarkFolder(args.dir);
  if (!args.masks.empty() && !fs::is_directory(args.masks))
    throw CutoutError(kExitBenchmark, "mask folder " + args.masks + " does not exist");
  prepareOutputDir(args.outDir);

  std::cout << args.dir << ": " << entries.size() << (entries.size() == 1 ? " photo\n" : " photos\n")
            << std::flush;
  std::vector<PhotoReport> reports;
  Progress progress(static_cast<int>(entries.size()) * kStagesPerPhoto);
  for (const BenchmarkPhoto& entry : entries) reports.push_back(evaluatePhoto(entry, args, progress));
  progress.finish();

  const EvalSummary summary = summarize(reports, args.robot);
  printTable(std::cout, reports, summary);
  const fs::path out(args.outDir);
  writeTextFile((out / "eval.csv").string(), csvText(reports, summary));
  writeTextFile((out / "robot.csv").string(), robotCsvText(reports));
  writeTextFile((out / "eval.svg").string(), chartSvg(reports));
  std::cout << "Results in " << args.outDir << "/: eval.csv, robot.csv, eval.svg\n";
  return kExitOk;
}
