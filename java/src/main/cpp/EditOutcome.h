// What became of an edit, in the order of Java's Outcome (NativeCalls holds
// the same numbers; the JNI glue checks them against its generated header).
#pragma once

enum class EditOutcome : int {
  Done = 0,       // a new result is shown and recorded
  Cancelled = 1,  // a cancel reached it: what is shown and the history are as before
  TimedOut = 2,   // the time budget ran out before a result: nothing changed
  NoResult = 3,   // the library gave none for these marks: nothing changed
};

// An edit that gave no result of its own: cancelled when a cancel reached
// it, else timed out when it ran for the whole budget.
EditOutcome outcomeWithoutResult(bool cancelled, double wallMs);
