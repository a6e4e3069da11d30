// The exported history calls: step through recorded results and deliver the
// one on display the way processSegment delivers a new one.
#include "history/KORUSEManageUndoRedo.h"
#include "interface/ExportGuard.h"
#include "interface/SessionGlobals.h"
#include "SegmentationCore.h"
#include "support/KORULog.h"
#include "support/OwnedImage.h"

// A null step result means "show the plain photo"; the mask stays as it was.
static int deliver(const char* function, IplImage* (*step)(), unsigned int* blended,
                   unsigned char* mask) {
  return exportGuard(function, 0, [&] {
    if (!KORUSEManageUndoRedo::m_bitPlane) {
      logBadCall(function, "no history (call setSourceImage first)");
      return 0;
    }
    releaseImage(&resultMask);
    resultMask = step();
    deliverResult(blended, mask);
    endOfOutputCall();
    return 0;
  });
}

int undo(unsigned int* blended, unsigned char* mask) {
  return deliver("undo", &KORUSEManageUndoRedo::undo, blended, mask);
}

int redo(unsigned int* blended, unsigned char* mask) {
  return deliver("redo", &KORUSEManageUndoRedo::redo, blended, mask);
}

int canUndo() { return KORUSEManageUndoRedo::canUndo() ? 1 : 0; }

int canRedo() { return KORUSEManageUndoRedo::canRedo() ? 1 : 0; }
