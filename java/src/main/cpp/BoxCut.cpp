#include "BoxCut.h"

#include <SegmentationCore.h>

#include "tools/host/Replay.h"
#include "tools/host/Stopwatch.h"

BoxCut cutBox(int width, int height, std::vector<unsigned int> argb, cv::Point first, cv::Point last) {
  BoxCut cut;
  cut.mask.assign(argb.size(), kUntouched);
  const Stopwatch watch;
  doSegmentationBB(width, height, argb.data(), first.x, first.y, last.x, last.y, cut.mask.data());
  const double wallMs = watch.wallMs();
  if (cut.mask.empty() || cut.mask[0] == kUntouched) {
    cut.mask.assign(argb.size(), 255);
    cut.outcome = outcomeWithoutResult(false, wallMs);
  } else {
    cut.outline = takeOutline();
    cut.outcome = EditOutcome::Done;
  }
  deinitSegmentation();
  return cut;
}
