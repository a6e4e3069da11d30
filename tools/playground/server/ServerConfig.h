// What the server is told at start (main.cpp fills it from the command line).
#pragma once

#include <cstddef>
#include <string>

struct ServerConfig {
  std::string webDir;      // the page: served as it is
  std::string samplesDir;  // bundled photos, beside their boxes.tsv
  size_t maxUploadBytes = 128u << 20;
  // One step's JSON: some 80,000 points, far more than a hand draws at once.
  size_t maxStepBytes = 1u << 20;
  double maxMegapixels = 50.0;
  int viewMaxSide = 2048;  // views are scaled down to fit this; downloads are full size
};
