// The command line. The default command cuts one photo; more commands (such as
// an evaluation over many photos) are added as subcommands beside it, each
// with its own options struct (eval's lives with eval, in tools/eval/Eval.h)
// and its own value of Command.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "tools/eval/Eval.h"

enum class Command {
  Help,  // --help was asked for and has been printed
  Cut,   // cutout PHOTO (--box X1,Y1,X2,Y2 | --edits SESSION.json) [-o DIR] [--every-step]
  Eval,  // cutout eval [DIR] [-o OUT] [--masks MASKS] [--robot person|dab]
  Fingerprint,  // cutout fingerprint [--benchmark DIR] [--samples DIR] [--sizes MP,...] [--no-scenes]
};

struct CutArguments {
  std::string photo;                      // any format OpenCV's imgcodecs reads
  std::optional<std::array<int, 4>> box;  // x1, y1, x2, y2, corners inclusive
  std::string edits;                      // session file; empty with --box
  std::string outDir = "out";             // created when missing
  bool everyStep = false;                 // one set of outputs per step as well
};

struct FingerprintArguments {
  std::string benchmarkDir;                            // empty: no benchmark photos
  std::string samplesDir;                              // photos beside a boxes.tsv; empty: none
  std::vector<double> megapixels = {0.24, 2.5, 12.0};  // sizes the sample photos are resized to
  bool scenes = true;                                  // the generated scenes as well
};

struct Arguments {
  Command command = Command::Help;
  bool verbose = false;  // let the library's informational log lines through
  int threads = 0;       // threads a segmentation may use; 0: the host's default
  CutArguments cut;
  EvalArguments eval;
  FingerprintArguments fingerprint;
};

// Parses argv. Prints --help itself (Command::Help); throws CutoutError with
// kExitUsage and a one-line message for anything it cannot accept.
Arguments parseArguments(int argc, char** argv);
