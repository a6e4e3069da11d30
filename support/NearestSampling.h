// Which source pixel cvResize with CV_INTER_NN copies to each destination
// column and row. Code that needs only some pixels of an enlarged (or
// reduced) image reads them through these maps and gets exactly what the
// whole cvResize would have given, without making that image.
#pragma once

#include <cstdint>
#include <vector>

struct NearestSampling {
  std::vector<int32_t> column;  // per destination column: its source column
  std::vector<int32_t> row;     // per destination row: its source row
  // Destination columns (rows) taking source column c: first..last, inclusive;
  // first > last for a source column no destination column takes.
  std::vector<int32_t> firstColumn, lastColumn;
};

// The maps from a source of sw x sh pixels to a destination of dw x dh.
// They are asked of cvResize itself, on index images one pixel high (wide),
// so they follow whatever rule the installed OpenCV uses.
NearestSampling nearestSampling(int sw, int sh, int dw, int dh);
