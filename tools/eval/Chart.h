// The chart of `cutout eval`, as a self-contained SVG file a browser opens:
// the error rate per photo, methods side by side, and below it the CPU time
// per photo on a log scale (the methods differ by factors).
#pragma once

#include <string>
#include <vector>

#include "EvalReport.h"

// The whole SVG document.
std::string chartSvg(const std::vector<PhotoReport>& photos);
