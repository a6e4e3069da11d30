// The peer a user would pick instead: OpenCV's cv::grabCut, given the same
// box and the same strokes as our library, for `cutout eval`.
#pragma once

#include <array>
#include <opencv2/core.hpp>

#include "OurCuts.h"
#include "tools/host/Marks.h"
#include "tools/host/Photo.h"

// What cv::grabCut carries from one call to the next.
struct PeerState {
  cv::Mat mask;                // GC_BGD, GC_FGD, GC_PR_BGD, GC_PR_FGD per pixel
  cv::Mat bgdModel, fgdModel;  // its two colour models
  cv::Rect rect;               // the box
};

// The iterations of every call: the count its box mode is usually run with.
constexpr int kPeerIterations = 5;

// cv::grabCut in GC_INIT_WITH_RECT mode with the box (x1, y1, x2, y2
// inclusive), kPeerIterations, on one thread. Timed: the one call. No result
// when it throws (a box leaving no background, say).
CutResult peerBoxCut(const Photo& photo, const std::array<int, 4>& box, PeerState& state);

// The edit's marks written into the previous mask: hard ones (object 2,
// background 1) as GC_FGD / GC_BGD, probable ones (object 4, background 3)
// as GC_PR_FGD / GC_PR_BGD; then cv::grabCut in GC_INIT_WITH_MASK mode,
// kPeerIterations, one thread. Replaces `object` and returns true unless
// it throws.
bool peerEdit(const Photo& photo, const Edit& edit, PeerState& state, cv::Mat& object);

// The direct tool, as a person sets cv::grabCut's result mask by hand: the
// edit's hard marks written into the mask as GC_FGD / GC_BGD, no grabCut
// call; `object` becomes the mask's object. Later edits keep them as hard.
void peerPaint(const Edit& edit, PeerState& state, cv::Mat& object);
