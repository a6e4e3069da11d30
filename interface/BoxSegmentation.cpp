// One-shot cut from a box: a fresh session whose only edit is a loop around
// the box with the whole box marked probable object.
#include <algorithm>
#include <vector>

#include "history/KORUSEManageUndoRedo.h"
#include "interface/BoxMarks.h"
#include "interface/ExportGuard.h"
#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SegmentationCore.h"
#include "support/KORULog.h"
#include "support/Marks.h"
#include "support/OwnedImage.h"
#include "support/StageTrace.h"

int doSegmentationBB(int width, int height, unsigned int* pixels, int x1, int y1, int x2, int y2,
                     unsigned char* mask) {
  return exportGuard("doSegmentationBB", 0, [&] {
    if (!pixels || width < 1 || height < 1) {
      logBadCall("doSegmentationBB", "no pixels or an empty image");
      return 0;
    }
    if (!photoSizeHoldable(width, height, "doSegmentationBB")) return 0;
    traceStage("box marks");
    std::vector<int> points;
    if (x1 < 0 || y1 < 0 || x2 >= width || y2 >= height) {
      logBadCall("doSegmentationBB", "box reaches outside the image: marks clipped");
      // Traced points off the photo land on its border anyway; tracing the
      // clamped box keeps the list to the photo's size, not the box's.
      const auto inX = [&](int x) { return std::min(std::max(x, 0), width - 1); };
      const auto inY = [&](int y) { return std::min(std::max(y, 0), height - 1); };
      points = traceBoxBorder(inX(x1), inY(y1), inX(x2), inY(y2));
    } else {
      points = traceBoxBorder(x1, y1, x2, y2);
    }
    // Made in 8 bits directly: the marks are only ever 0 and 4.
    OwnedImage marks(boxMarkerImage(width, height, x1, y1, x2, y2));

    tearDownSession();
    KORUSEMarker::resetMarkers();
    KORUSEManageUndoRedo::reset();

    traceStage("photo");
    setSourceImage(width, height, pixels);
    traceStage("engine");
    createEngine();
    setCurrentMarkerVector(static_cast<int>(points.size()), points.data());
    if (marksFitPhoto(width, height, true)) adoptMarkerImage(marks.release(), LOOP_ADD);
    // Only the mask reaches the caller: no preview is painted, but the
    // outline is still found for fetch_path_array.
    processSegment(0, 0, 0, nullptr, mask);
    return 0;
  });
}
