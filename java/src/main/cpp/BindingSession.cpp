#include "BindingSession.h"

#include <SegmentationCore.h>

#include "tools/host/Stopwatch.h"

namespace {
const Step kUndo{StepKind::Undo, true, {}, -1};
}  // namespace

BindingSession::BindingSession(Photo photo) : photo_(std::move(photo)), replay_(photo_) {}

void BindingSession::apply(const Step& step) {
  settle();
  anyBefore_ = replay_.shown().any;
  outlineBefore_ = replay_.shown().outline;
  const Stopwatch watch;
  replay_.apply(step);
  applyMs_ = watch.wallMs();
}

EditOutcome BindingSession::finish(bool cancelled) {
  if (replay_.gaveResult() && !cancelled) {
    redoable_ = 0;
    return EditOutcome::Done;
  }
  // A cancel, and the time budget, stay in force until a new engine clears
  // them; the history stays.
  initSegmentationEngine(0);
  if (replay_.gaveResult()) {
    // Cancelled during the refinement: the result was recorded all the same,
    // and recording it discarded the redo steps, which do not come back.
    stepBackPending_ = true;
    redoable_ = 0;
  }
  return outcomeWithoutResult(cancelled, applyMs_);
}

EditOutcome BindingSession::edit(const Step& step) {
  apply(step);
  return finish(false);
}

void BindingSession::settle() {
  if (!stepBackPending_) return;
  stepBackPending_ = false;
  replay_.apply(kUndo);
}

const Shown& BindingSession::shown() {
  settle();
  return replay_.shown();
}

bool BindingSession::undo() {
  if (!canUndo()) return false;
  settle();
  replay_.apply(kUndo);
  ++redoable_;
  return true;
}

bool BindingSession::redo() {
  if (!canRedo()) return false;
  settle();
  replay_.apply(Step{StepKind::Redo, true, {}, -1});
  --redoable_;
  return true;
}

void BindingSession::reset() {
  settle();
  replay_.apply(Step{StepKind::Reset, true, {}, -1});
  redoable_ = 0;
}
