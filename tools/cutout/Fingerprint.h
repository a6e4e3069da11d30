// `cutout fingerprint`: one line per result of a fixed set of editing
// sessions, each with a hash of what the host would receive (mask, preview,
// outline) and of the library's log lines. Speed work must not move a pixel:
// run it before and after a change and diff the two outputs.
//
// The sessions: every photo of a benchmark folder (the box, the robot user's
// corrections, the lasso as a loop), the sample photos resized to a few sizes
// (a box and a fixed mix of strokes, loops, cuts, undo and redo), and the
// generated scenes of the test suite.
#pragma once

#include "Arguments.h"

int runFingerprint(const FingerprintArguments& args);
