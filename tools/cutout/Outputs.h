// The files a run leaves behind. Each is written under a temporary name in
// its folder and renamed only when all of them are complete, so a failed run
// never leaves a truncated file under a final name.
#pragma once

#include <string>

#include "Photo.h"
#include "Replay.h"

// Creates `dir` and its parents if missing. Throws CutoutError(kExitOutput)
// when it cannot be created or is not a writable folder.
void prepareOutputDir(const std::string& dir);

// Writes into `dir` (which must exist):
//   mask.png     8-bit grey, object 255, background 0
//   cutout.png   the photo as BGRA, alpha 255 on the object and 0 elsewhere
//   preview.png  the library's preview: the photo with the outline in yellow
//   outline.json {"width": W, "height": H, "contours": [[[x, y], ...], ...]}
// Throws CutoutError(kExitOutput) and removes its temporary files on failure.
void writeOutputs(const std::string& dir, const Photo& photo, const Shown& shown);
