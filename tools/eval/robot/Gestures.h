// The three corrections the robot user can make on a wrong region, each as
// the step a person's finger would give: add on a missed part, remove on a
// false one. They only draw; RobotUser.h decides which one and how big.
#pragma once

#include "tools/host/SessionFile.h"
#include "WrongRegion.h"

// A short dab at the region's deepest point: a brush at most 7 pixels long
// and of radius at most 12, never leaving the region.
Step dabOn(const WrongRegion& region);

// A brush stroke along the region's medial line (MedialLine.h), of radius
// half the region's depth but at most `maxRadius`. Its ends stop where the
// brush would reach past the region's edge; just the deepest point when the
// line has no such room.
Step scribbleAlong(const WrongRegion& region, int maxRadius);

// A closed loop along the region's outline pulled `pull` pixels inward: the
// outer border of the pixels deeper than `pull` that hang together with the
// deepest point. Needs region.deepest > pull.
Step loopInside(const WrongRegion& region, double pull);
