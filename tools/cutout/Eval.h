// `cutout eval`: our box and lasso cuts beside cv::grabCut on a benchmark
// folder (see BenchmarkFolder.h), with the robot user of RobotUser.h.
#pragma once

#include "Arguments.h"

// Runs every photo of args.dir, prints the table, writes eval.csv,
// robot.csv (every robot stroke) and eval.svg into args.outDir. Returns the
// exit code; throws CutoutError for a bad folder (kExitBenchmark), photo
// (kExitPhoto) or output (kExitOutput).
int runEval(const EvalArguments& args);
