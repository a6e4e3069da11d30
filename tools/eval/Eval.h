// `cutout eval`: our box and lasso cuts beside cv::grabCut on a benchmark
// folder (see tools/host/BenchmarkFolder.h), with the robot user of
// robot/RobotUser.h.
#pragma once

#include <string>

#include "tools/eval/robot/RobotUser.h"

// What `cutout eval` is asked for (tools/cutout/Arguments.cpp fills it).
struct EvalArguments {
  std::string dir;                 // benchmark folder: images/, truth/, boxes.tsv, lasso/
  std::string outDir = "out/eval";  // eval.csv and eval.svg; created when missing
  std::string masks;               // optional folder of saved masks NAME.png, scored beside
  RobotStyle robot = RobotStyle::Person;  // how the robot user corrects
};

// Runs every photo of args.dir, prints the table, writes eval.csv,
// robot.csv (every robot stroke) and eval.svg into args.outDir. Returns the
// exit code; throws CutoutError for a bad folder (kExitBenchmark), photo
// (kExitPhoto) or output (kExitOutput).
int runEval(const EvalArguments& args);
