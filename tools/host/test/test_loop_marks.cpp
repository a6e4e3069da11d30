// What a loop marks, worked out by hand on a 6 x 5 photo: its inside (border
// included) probable object when it adds, background outright when it
// removes, nothing outside; its corners as the points.
#include <gtest/gtest.h>

#include "tools/host/Marks.h"

namespace {

constexpr int kWidth = 6, kHeight = 5;

std::vector<int> loopMarks(bool add) {
  Step loop;
  loop.kind = StepKind::Loop;
  loop.add = add;
  loop.points = {{1, 1}, {4, 1}, {4, 3}, {1, 3}};
  const Edit edit = markEdit(loop, kWidth, kHeight);
  EXPECT_EQ(edit.points, (std::vector<int>{1, 1, 4, 1, 4, 3, 1, 3}));
  EXPECT_EQ(edit.strokeType, add ? kLoopAdd : kLoopRemove);
  return edit.markers;
}

TEST(LoopMarks, AddMarksProbableObjectRemoveMarksBackground) {
  const int o = kMarkProbableObject, b = kMarkBackground;
  EXPECT_EQ(loopMarks(true), (std::vector<int>{0, 0, 0, 0, 0, 0,  //
                                               0, o, o, o, o, 0,  //
                                               0, o, o, o, o, 0,  //
                                               0, o, o, o, o, 0,  //
                                               0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(loopMarks(false), (std::vector<int>{0, 0, 0, 0, 0, 0,  //
                                                0, b, b, b, b, 0,  //
                                                0, b, b, b, b, 0,  //
                                                0, b, b, b, b, 0,  //
                                                0, 0, 0, 0, 0, 0}));
}

}  // namespace
