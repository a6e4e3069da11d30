#include "Arguments.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <vector>

#include "tools/eval/PeerCuts.h"
#include "tools/eval/robot/RobotUser.h"
#include "tools/host/Failure.h"

namespace {

const char* kSessionHelp =
    "Session file (--edits): {\"steps\": [STEP, ...]}, replayed in order. Points are [x, y]\n"
    "pairs in photo pixels; MODE is \"add\" or \"remove\".\n"
    "  {\"kind\": \"box\", \"box\": [x1, y1, x2, y2]}           box around the object\n"
    "  {\"kind\": \"loop\", \"mode\": MODE, \"points\": [...]}     closed polygon, segmented\n"
    "  {\"kind\": \"stroke\", \"mode\": MODE, \"radius\": R, \"points\": [...]}  brush, segmented\n"
    "  {\"kind\": \"cut\", \"mode\": MODE, \"points\": [...]}      direct edit, no segmentation:\n"
    "        the polygon's inside, or with \"radius\" a brush line\n"
    "  {\"kind\": \"undo\"}  {\"kind\": \"redo\"}  {\"kind\": \"reset\"}\n";

const char* kOutputHelp =
    "Outputs in DIR: mask.png (object white), cutout.png (photo with transparent background),\n"
    "preview.png (outline drawn in yellow), outline.json (the outline's polygons); with\n"
    "--every-step also DIR/step-K-KIND/ for each step.\n";

void addCutOptions(CLI::App& app, CutArguments& cut, std::vector<int>& box) {
  app.add_option("PHOTO", cut.photo, "Photo to cut (PNG, JPEG, BMP, WebP, TIFF)");
  auto* boxOption = app.add_option("--box", box, "One-shot box cut, corners inclusive")
                        ->delimiter(',')
                        ->expected(4)
                        ->type_name("X1,Y1,X2,Y2");
  auto* editsOption =
      app.add_option("--edits", cut.edits, "Replay a session file")->type_name("SESSION.json");
  boxOption->excludes(editsOption);
  app.add_option("-o,--out", cut.outDir, "Output folder")->capture_default_str()->type_name("DIR");
  app.add_flag("--every-step", cut.everyStep, "Also write the outputs of every step");
}

// A folder the build knows of (tools/host/CMakeLists.txt names them), when it
// is there; "" otherwise.
std::string folderIfThere(const char* path) {
  std::error_code error;
  return path && std::filesystem::is_directory(path, error) ? path : "";
}

// The benchmark folder beside the repository, when it is there.
std::string defaultEvalDir() { return folderIfThere(SEG_DEFAULT_EVAL_DIR); }

CLI::App* addEvalCommand(CLI::App& app, EvalArguments& eval) {
  CLI::App* sub = app.add_subcommand(
      "eval", "Scores our box and lasso cuts and cv::grabCut on a benchmark folder, with a robot user");
  sub->add_option("DIR", eval.dir,
                  "Benchmark folder: images/NAME.png, truth/NAME.png (255 object, 0 background, 128 "
                  "not scored), boxes.tsv (NAME x1 y1 x2 y2), optional lasso/NAME.png")
      ->type_name("DIR");
  sub->add_option("-o,--out", eval.outDir, "Folder for eval.csv, robot.csv and eval.svg")
      ->capture_default_str()
      ->type_name("OUT");
  sub->add_option("--masks", eval.masks, "Also score the saved masks MASKS/NAME.png (object white)")
      ->type_name("MASKS");
  const auto setRobot = [&eval](const std::string& name) {
    eval.robot = name == robotStyleName(RobotStyle::Dab) ? RobotStyle::Dab : RobotStyle::Person;
  };
  sub->add_option_function<std::string>("--robot", setRobot,
                                        "How the robot user corrects: person (scribbles and loops) or dab")
      ->check(CLI::IsMember({robotStyleName(RobotStyle::Person), robotStyleName(RobotStyle::Dab)}))
      ->default_str(robotStyleName(RobotStyle::Person))
      ->type_name("STYLE");
  char goal[1024];
  std::snprintf(goal, sizeof goal,
                "cv::grabCut with the same box (%d iterations, one thread); the error rate over the photo and\n"
                "inside the box, the CPU time; then the robot user, which corrects each box cut until IoU\n"
                "%.2f (at most %d corrections), each side from its own result. Each correction goes to the\n"
                "largest wrong region: add where object was missed, remove where background was taken.\n"
                "--robot person (the default) scribbles along the region's medial line with a brush at\n"
                "most a fingertip wide, and circles a large, compact region with a loop just inside its\n"
                "outline; cv::grabCut gets the brush as hard marks, the loop's inside as probable ones.\n"
                "--robot dab puts a short dab at the region's deepest point. The summary gives, per side,\n"
                "the photos that reach IoU %.2f and the median number of corrections (a photo that never\n"
                "reaches it counts as more than %d).\n",
                kPeerIterations, kRobotGoalIoU, kRobotMaxStrokes, kRobotGoalIoU, kRobotMaxStrokes);
  sub->footer(
      "\nPer photo: our box cut, our lasso cut (the lasso's inside marked probable object), and\n" +
      std::string(goal) +
      "Outputs in OUT: eval.csv (one row per photo, then the means), robot.csv (every correction:\n"
      "its kind, mode, place, radius and the IoU after it), eval.svg (a chart of the error and the\n"
      "CPU time per photo).\n");
  sub->fallthrough();  // cutout eval -v
  return sub;
}

// The bundled sample photos, when the repository is there.
std::string defaultSamplesDir() { return folderIfThere(SEG_SAMPLES_DIR); }

CLI::App* addFingerprintCommand(CLI::App& app, FingerprintArguments& f) {
  CLI::App* sub = app.add_subcommand(
      "fingerprint", "Prints a hash of every result of a fixed set of sessions, to diff before and after a change");
  f.benchmarkDir = defaultEvalDir();
  f.samplesDir = defaultSamplesDir();
  sub->add_option("--benchmark", f.benchmarkDir, "Benchmark folder: the box, the dab robot's strokes, the lasso")
      ->type_name("DIR");
  sub->add_option("--samples", f.samplesDir, "Photos beside a boxes.tsv: a mixed session at each size")
      ->type_name("DIR");
  sub->add_option("--sizes", f.megapixels, "Megapixels the sample photos are resized to")
      ->delimiter(',')
      ->capture_default_str()
      ->type_name("MP,...");
  sub->add_flag("!--no-scenes", f.scenes, "Leave out the generated scenes");
  sub->footer(
      "\nOne line per step: the session, the step, the object's share, then hashes of the host mask,\n"
      "the preview, the outline and the library's log lines (timings left out). Progress on stderr.\n"
      "Pass --benchmark \"\" or --samples \"\" to leave those out.\n");
  sub->fallthrough();
  return sub;
}

void checkEval(EvalArguments& eval, const CutArguments& cut, const std::vector<int>& box) {
  if (!cut.photo.empty() || !box.empty() || !cut.edits.empty() || cut.everyStep)
    throw CutoutError(kExitUsage, "eval takes a folder, not a photo, --box or --edits (see cutout eval --help)");
  if (eval.dir.empty()) eval.dir = defaultEvalDir();
  if (eval.dir.empty()) throw CutoutError(kExitUsage, "no benchmark folder given (see cutout eval --help)");
}

}  // namespace

Arguments parseArguments(int argc, char** argv) {
  Arguments args;
  std::vector<int> box;
  CLI::App app{"Cuts an object out of a photo, from a box or a replayed editing session.", "cutout"};
  app.footer(std::string("\n") + kSessionHelp + "\n" + kOutputHelp + "\n" + exitCodeTable());
  app.add_flag("-v,--verbose", args.verbose, "Show the library's informational log lines");
  app.add_option("--threads", args.threads,
                 "Threads a segmentation may use (default: the machine's cores, at most 4); the cut is the same")
      ->check(CLI::Range(1, 16))
      ->type_name("N");
  addCutOptions(app, args.cut, box);
  CLI::App* eval = addEvalCommand(app, args.eval);
  CLI::App* fingerprint = addFingerprintCommand(app, args.fingerprint);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::cout << app.help();
    return args;
  } catch (const CLI::ParseError& e) {
    throw CutoutError(kExitUsage, std::string(e.what()) + " (see cutout --help)");
  }

  if (fingerprint->parsed()) {
    if (!args.cut.photo.empty() || !box.empty() || !args.cut.edits.empty())
      throw CutoutError(kExitUsage, "fingerprint takes no photo, --box or --edits (see cutout fingerprint --help)");
    args.command = Command::Fingerprint;
    return args;
  }
  if (eval->parsed()) {
    args.command = Command::Eval;
    checkEval(args.eval, args.cut, box);
    return args;
  }
  args.command = Command::Cut;
  if (args.cut.photo.empty()) throw CutoutError(kExitUsage, "no photo given (see cutout --help)");
  if (box.empty() && args.cut.edits.empty())
    throw CutoutError(kExitUsage, "give --box X1,Y1,X2,Y2 or --edits SESSION.json (see cutout --help)");
  if (!box.empty()) args.cut.box = std::array<int, 4>{box[0], box[1], box[2], box[3]};
  return args;
}
