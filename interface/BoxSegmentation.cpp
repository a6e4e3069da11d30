// One-shot cut from a box: a fresh session whose only edit is a loop around
// the box with the whole box marked probable object.
#include <algorithm>
#include <vector>

#include "SegmentationCore.h"
#include "history/KORUSEManageUndoRedo.h"
#include "interface/ExportGuard.h"
#include "interface/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "support/KORULog.h"
#include "support/StageTrace.h"

// The box border clockwise, each corner once; an empty span adds nothing.
static std::vector<int> traceBoxBorder(int x1, int y1, int x2, int y2) {
  std::vector<int> points;
  const auto add = [&](int x, int y) {
    points.push_back(x);
    points.push_back(y);
  };
  for (int x = x1; x < x2; ++x) add(x, y1);
  for (int y = y1; y < y2; ++y) add(x2, y);
  for (int x = x2; x > x1; --x) add(x, y2);
  for (int y = y2; y > y1; --y) add(x1, y);
  return points;
}

int doSegmentationBB(int width, int height, unsigned int* pixels, int x1, int y1, int x2, int y2,
                     unsigned char* mask) {
  return exportGuard("doSegmentationBB", 0, [&] {
    if (!pixels || width < 1 || height < 1) {
      logBadCall("doSegmentationBB", "no pixels or an empty image");
      return 0;
    }
    if (!photoSizeHoldable(width, height, "doSegmentationBB")) return 0;
    traceStage("box marks");
    const size_t n = static_cast<size_t>(width) * height;
    std::vector<unsigned int> preview(pixels, pixels + n);
    std::vector<int> markers(n, MARK_NONE);
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
    if (x2 >= x1 && y2 >= y1) {
      for (int y = std::max(y1, 0); y <= std::min(y2, height - 1); ++y)
        for (int x = std::max(x1, 0); x <= std::min(x2, width - 1); ++x)
          markers[static_cast<size_t>(y) * width + x] = MARK_PROBABLE_OBJECT;
    }

    tearDownSession();
    KORUSEMarker::resetMarkers();
    KORUSEManageUndoRedo::reset();

    traceStage("photo");
    setSourceImage(width, height, pixels);
    traceStage("engine");
    createEngine();
    setCurrentMarkerVector(static_cast<int>(points.size()), points.data());
    setMarkerImage(width, height, markers.data(), LOOP_ADD);
    // Only the mask reaches the caller; the preview stays here.
    processSegment(0, 0, 0, preview.data(), mask);
    return 0;
  });
}
