#include "Arguments.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <vector>

#include "Failure.h"

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

}  // namespace

Arguments parseArguments(int argc, char** argv) {
  Arguments args;
  std::vector<int> box;
  CLI::App app{"Cuts an object out of a photo, from a box or a replayed editing session.", "cutout"};
  app.footer(std::string("\n") + kSessionHelp + "\n" + kOutputHelp + "\n" + exitCodeTable());
  app.add_flag("-v,--verbose", args.verbose, "Show the library's informational log lines");
  addCutOptions(app, args.cut, box);
  // Further commands go here as app.add_subcommand(...), checked below.

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::cout << app.help();
    return args;
  } catch (const CLI::ParseError& e) {
    throw CutoutError(kExitUsage, std::string(e.what()) + " (see cutout --help)");
  }

  args.command = Command::Cut;
  if (args.cut.photo.empty()) throw CutoutError(kExitUsage, "no photo given (see cutout --help)");
  if (box.empty() && args.cut.edits.empty())
    throw CutoutError(kExitUsage, "give --box X1,Y1,X2,Y2 or --edits SESSION.json (see cutout --help)");
  if (!box.empty()) args.cut.box = std::array<int, 4>{box[0], box[1], box[2], box[3]};
  return args;
}
