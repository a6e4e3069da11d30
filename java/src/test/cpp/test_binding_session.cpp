// The binding's rules for edits that a cancel reaches, with the cancel
// raised as the edit arrives at a stage (the stage tracer), not after a
// sleep: early, before the last cut, the library gives no result; late,
// during the refinement, it records one all the same. Either way the edit
// is Cancelled, what is shown and the history are as before, and the same
// edit then gives what it gives without a cancel.
#include <gtest/gtest.h>

#include <SegmentationCore.h>

#include <cstring>

#include "BindingSession.h"
#include "BoxCut.h"
#include "support/StageTrace.h"
#include "testing/SyntheticScene.h"

namespace {

// Larger than the working size, so that edits are refined at full size.
const Scene kScene = discScene(800, 600);

const char* g_stage = "";
int g_index = 0;
void cancelOnArrival(const char* stage, int index) {
  if (std::strcmp(stage, g_stage) == 0 && index == g_index) cancelSegmentation();
}

const Step kBox{StepKind::Box, true, {{200, 100}, {600, 500}}, -1};
const Step kStroke{StepKind::Stroke, false, {{230, 300}, {400, 300}}, 12};
const Step kCut{StepKind::Cut, false, {{300, 200}, {500, 200}}, 6};

std::unique_ptr<BindingSession> openScene() {
  return std::make_unique<BindingSession>(pixelPhoto(kScene.width, kScene.height, kScene.pixels.data(), "scene"));
}

// The edit, with the library's cancel request raised as it reaches a stage,
// as the Java side raises it while an edit runs.
EditOutcome cancelledEdit(BindingSession& session, const Step& step, const char* stage, int index) {
  g_stage = stage;
  g_index = index;
  setStageTracer(cancelOnArrival);
  session.apply(step);
  setStageTracer(nullptr);
  return session.finish(true);
}

void expectSameShown(const Shown& a, const Shown& b) {
  EXPECT_EQ(a.any, b.any);
  EXPECT_EQ(a.mask, b.mask);
  EXPECT_EQ(a.preview, b.preview);
  EXPECT_EQ(a.outline, b.outline);
}

// A session that shows the box's result, with the cut's ahead to redo.
struct BoxAndUndoneCut {
  std::unique_ptr<BindingSession> session = openScene();
  Shown boxed, cut;
  BoxAndUndoneCut() {
    EXPECT_EQ(session->edit(kBox), EditOutcome::Done);
    boxed = session->shown();
    EXPECT_EQ(session->edit(kCut), EditOutcome::Done);
    cut = session->shown();
    EXPECT_TRUE(session->undo());
  }
};

// The box, then the stroke, never cancelled.
Shown uncancelledStroke() {
  auto session = openScene();
  EXPECT_EQ(session->edit(kBox), EditOutcome::Done);
  EXPECT_EQ(session->edit(kStroke), EditOutcome::Done);
  return session->shown();
}

}  // namespace

TEST(BindingSession, ACancelBeforeTheLastCutKeepsTheHistoryAndItsRedoSteps) {
  const Shown expected = uncancelledStroke();
  BoxAndUndoneCut start;
  BindingSession* session = start.session.get();

  EXPECT_EQ(cancelledEdit(*session, kStroke, "models", 1), EditOutcome::Cancelled);
  expectSameShown(session->shown(), start.boxed);
  EXPECT_TRUE(session->canUndo());
  EXPECT_TRUE(session->canRedo());
  ASSERT_TRUE(session->redo());
  expectSameShown(session->shown(), start.cut);

  ASSERT_TRUE(session->undo());
  EXPECT_EQ(session->edit(kStroke), EditOutcome::Done);
  expectSameShown(session->shown(), expected);
}

TEST(BindingSession, ACancelDuringTheRefinementStepsBackOverTheRecordedResult) {
  const Shown expected = uncancelledStroke();
  BoxAndUndoneCut start;
  BindingSession* session = start.session.get();

  EXPECT_EQ(cancelledEdit(*session, kStroke, "refinement: search", 0), EditOutcome::Cancelled);
  // Answered before stepping back over the recorded result: what was shown.
  EXPECT_TRUE(session->anyShown());
  EXPECT_EQ(session->outlineShown(), start.boxed.outline);
  expectSameShown(session->shown(), start.boxed);
  EXPECT_TRUE(session->canUndo());
  // Recording the result discarded the cut's redo step; the library's
  // canRedo now leads to the cancelled result, the binding's nowhere.
  EXPECT_EQ(canRedo(), 1);
  EXPECT_FALSE(session->canRedo());
  EXPECT_FALSE(session->redo());

  EXPECT_EQ(session->edit(kStroke), EditOutcome::Done);
  expectSameShown(session->shown(), expected);
  ASSERT_TRUE(session->undo());
  ASSERT_TRUE(session->undo());
  EXPECT_FALSE(session->shown().any) << "box and stroke recorded, nothing else";
}

TEST(BindingSession, ACancelBeforeTheLibraryStartsStopsTheEditAndDoesNotLinger) {
  auto session = openScene();
  cancelSegmentation();  // while the marks are being filled
  session->apply(kBox);
  EXPECT_EQ(session->finish(true), EditOutcome::Cancelled);
  EXPECT_FALSE(session->canUndo());
  EXPECT_EQ(session->edit(kBox), EditOutcome::Done);
}

TEST(BindingSession, TheOneShotBoxCutIsTheSessionsBoxEdit) {
  Shown boxed;
  {
    auto session = openScene();
    ASSERT_EQ(session->edit(kBox), EditOutcome::Done);
    boxed = session->shown();
  }
  const BoxCut cut = cutBox(kScene.width, kScene.height, kScene.pixels, kBox.points[0], kBox.points[1]);
  EXPECT_EQ(cut.outcome, EditOutcome::Done);
  EXPECT_EQ(cut.mask, boxed.mask);
  EXPECT_EQ(cut.outline, boxed.outline);
}
