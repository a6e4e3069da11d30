// Where an edit's stages begin, for programs that tabulate them (the stage
// table of bench_edit). Nothing is recorded unless a host installs a tracer;
// without one a mark costs a load and a branch.
//
// A stage lasts from its mark to the next one. The interface and the engine
// mark "box marks", "photo", "engine" (doSegmentationBB only), "labels", "region", "models" / "graph" / "search" of each cut (index 1-5),
//   "mask", "refinement: trimap" / "graph" / "search" / "labels",
//   "post-processing", "history", "outline", "done".
#pragma once

// stage: a static string; index: the cut's number, or 0.
using StageTracer = void (*)(const char* stage, int index);

// Installs (or, with null, removes) the tracer. One at a time, set between edits.
void setStageTracer(StageTracer tracer);

void traceStage(const char* stage, int index = 0);
