// The library session behind a Java CutoutSession: the photo, every step
// applied as cutout and the playground apply it (Replay), and the rules that
// keep an edit's outcome honest: an edit that gives no result, or that a
// cancel reached, changes nothing, and neither a cancel nor the time budget
// outlives its edit.
//
// An edit runs in two calls, apply() then finish(). The host raises the
// library's cancel request (cancelSegmentation) only between the start of
// apply() and its own decision that the edit is over, and tells finish()
// whether it did: so a cancel is neither lost before the library starts to
// cut nor left over for the next edit.
#pragma once

#include "EditOutcome.h"
#include "tools/host/Photo.h"
#include "tools/host/Replay.h"
#include "tools/host/SessionFile.h"

using Outline = std::vector<std::vector<cv::Point>>;

// The library keeps one session per process: one BindingSession at a time.
class BindingSession {
 public:
  explicit BindingSession(Photo photo);  // setSourceImage + initSegmentationEngine
  BindingSession(const BindingSession&) = delete;
  BindingSession& operator=(const BindingSession&) = delete;

  // Marks the photo for a box, loop, stroke or cut whose points lie inside
  // it, and runs the library.
  void apply(const Step& step);
  // The applied edit's outcome, `cancelled` when a cancel was raised for it.
  EditOutcome finish(bool cancelled);
  // apply() and finish() for an edit nobody cancels.
  EditOutcome edit(const Step& step);

  // Steps through the history; false, and nothing changes, when there is
  // nothing to step over.
  bool undo();
  bool redo();
  // Starts over on the same photo: nothing shown, the history emptied.
  void reset();

  // Whether undo and redo would change what is shown. The library's own
  // answers differ: its canUndo is false while one result is recorded (undo
  // would still go back to the plain photo), and its canRedo counts the
  // result of a cancelled edit, which was stepped back over.
  bool canUndo() const { return anyShown(); }
  bool canRedo() const { return redoable_ > 0; }

  const Photo& photo() const { return photo_; }
  // What is shown now, mask and preview included.
  const Shown& shown();
  // Whether a result is shown, and its outline, without the work shown()
  // may do first: a cancel that comes while the edit's result is being
  // recorded is answered at once, and the stepping back over that result
  // waits for the next call.
  bool anyShown() const { return stepBackPending_ ? anyBefore_ : replay_.shown().any; }
  const Outline& outlineShown() const { return stepBackPending_ ? outlineBefore_ : replay_.shown().outline; }

 private:
  // Steps back over the result of an edit that a cancel reached late.
  void settle();

  Photo photo_;
  Replay replay_;  // after photo_, which it reads
  double applyMs_ = 0;  // the wall time of the last apply()
  // Redo steps that lead to results of finished edits. A new result drops
  // them all: the library discards its redo steps when it records one.
  int redoable_ = 0;
  // What was shown before the last edit, while its result waits to be
  // stepped back over.
  bool stepBackPending_ = false;
  bool anyBefore_ = false;
  Outline outlineBefore_;
};
