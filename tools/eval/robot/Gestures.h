// The corrections the robot user can make on a wrong region, each as the
// step a person's finger would give: add on a missed part, remove on a
// false one. They only draw; RobotUser.h decides which one and how big.
#pragma once

#include "tools/host/SessionFile.h"
#include "WrongRegion.h"

// The kinds of correction, in the order the report lists them.
enum class Gesture { Dab, Scribble, WiderScribble, Loop, Paint };
constexpr int kGestureCount = 5;

// "dab", "scribble", "wider scribble", "loop", "paint".
const char* gestureName(Gesture gesture);

// A short dab at the region's deepest point: a brush at most 7 pixels long
// and of radius at most 12, never leaving the region.
Step dabOn(const WrongRegion& region);

// The brush a person picks for the region: half its depth, at most `maxRadius`.
int scribbleRadius(const WrongRegion& region, int maxRadius);

// A wider brush than `previous`: twice as wide, but no wider than fits
// inside the region at its deepest point (so `previous` when that is already
// the widest).
int widerRadius(const WrongRegion& region, int previous);

// A brush stroke of `radius` along the region's medial line (MedialLine.h).
// Its ends stop where the brush would reach past the region's edge; just the
// deepest point when the line has no such room.
Step scribbleAlong(const WrongRegion& region, int radius);

// A closed loop along the region's outline pulled `pull` pixels inward: the
// outer border of the pixels deeper than `pull` that hang together with the
// deepest point. Needs region.deepest > pull.
Step loopInside(const WrongRegion& region, double pull);

// The direct tool, which sets the mask without a segmentation (a "cut"
// step): the region's inside as loopInside traces it when it is deeper than
// `pull`, else a brush of `radius` along it as scribbleAlong draws it.
Step paintOver(const WrongRegion& region, double pull, int radius);
