// What a box edit hands the engine: the loop around the box and its marks.
#pragma once

#include <opencv2/core/core_c.h>

#include <vector>

// The box border clockwise, each corner once, as x, y pairs; an empty span
// adds nothing.
std::vector<int> traceBoxBorder(int x1, int y1, int x2, int y2);

// New 8-bit marker image of width x height: MARK_PROBABLE_OBJECT inside the
// box (corners inclusive, clipped to the image), MARK_NONE elsewhere and
// everywhere for an inverted box. The caller releases it.
IplImage* boxMarkerImage(int width, int height, int x1, int y1, int x2, int y2);
