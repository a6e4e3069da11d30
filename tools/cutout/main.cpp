// cutout: cuts an object out of a photo with the library, from a box or by
// replaying an editing session as the phone app would make it; `cutout eval`
// measures it beside cv::grabCut on a benchmark folder.
#include <android/log.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <opencv2/core/utils/logger.hpp>
#include <string>
#include <vector>

#include "Arguments.h"
#include "SegmentationCore.h"
#include "Fingerprint.h"
#include "tools/eval/Eval.h"
#include "tools/host/Failure.h"
#include "tools/host/Outputs.h"
#include "tools/host/Photo.h"
#include "tools/host/Replay.h"
#include "tools/host/SessionFile.h"
#include "tools/host/Threads.h"

namespace {

// Folder of step k's outputs under --every-step: DIR/step-03-loop.
std::string stepDir(const std::string& outDir, size_t k, size_t n, const Step& step) {
  const int width = static_cast<int>(std::to_string(n).size());
  char name[64];
  std::snprintf(name, sizeof name, "step-%0*zu-%s", width, k, stepKindName(step.kind));
  return (std::filesystem::path(outDir) / name).string();
}

int runCut(const CutArguments& args) {
  const Photo photo = readPhoto(args.photo);
  std::vector<Step> steps = args.box ? std::vector<Step>{boxStep(*args.box)} : readSessionFile(args.edits);
  const std::vector<std::string> warnings =
      clampToPhoto(steps, photo.width(), photo.height(), args.box ? "--box" : args.edits);
  for (const std::string& warning : warnings) std::cerr << "cutout: " << warning << '\n';
  prepareOutputDir(args.outDir);

  std::cout << args.photo << ": " << photo.width() << "x" << photo.height() << ", " << steps.size()
            << (steps.size() == 1 ? " step\n" : " steps\n");
  Replay replay(photo);
  for (size_t k = 1; k <= steps.size(); ++k) {
    const auto start = std::chrono::steady_clock::now();
    const std::string what = replay.apply(steps[k - 1]);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    std::printf("step %zu/%zu: %s (%.0f ms)\n", k, steps.size(), what.c_str(), took.count());
    std::fflush(stdout);
    if (args.everyStep) {
      const std::string dir = stepDir(args.outDir, k, steps.size(), steps[k - 1]);
      prepareOutputDir(dir);
      writeOutputs(dir, photo, replay.shown());
    }
  }
  writeOutputs(args.outDir, photo, replay.shown());
  std::cout << "Results in " << args.outDir << "/: mask.png, cutout.png, preview.png, outline.json"
            << (args.everyStep ? ", and one folder per step" : "") << '\n';
  return warnings.empty() ? kExitOk : kExitClamped;
}

int run(int argc, char** argv) {
  // Decoders report failures through OpenCV's log; ours is the one line.
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  const Arguments args = parseArguments(argc, argv);
  // The library logs for a phone's log buffer; on a terminal only its
  // warnings and errors are news.
  if (!args.verbose) __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  setSegmentationThreads(args.threads > 0 ? args.threads : defaultSegmentationThreads());
  switch (args.command) {
    case Command::Help:
      return kExitOk;
    case Command::Cut:
      return runCut(args.cut);
    case Command::Eval:
      return runEval(args.eval);
    case Command::Fingerprint:
      return runFingerprint(args.fingerprint);
  }
  return kExitInternal;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const CutoutError& e) {
    std::cerr << "cutout: " << e.what() << '\n';
    return e.code;
  } catch (const std::exception& e) {  // OpenCV, allocation: not the input's fault
    std::cerr << "cutout: internal failure: " << e.what() << '\n';
    return kExitInternal;
  }
}
