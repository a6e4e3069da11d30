// One browser session's editing, inside its worker process. Every step goes
// through cutout's Replay, so it is marked and applied exactly as
// `cutout --edits` applies it, and the steps that changed something are kept
// as a session file that replays to the same masks.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CancelSwitch.h"
#include "tools/host/Photo.h"
#include "tools/host/Replay.h"
#include "tools/host/SessionFile.h"
#include "WorkerProtocol.h"

class WorkerSession {
 public:
  explicit WorkerSession(Photo photo);  // starts the library session
  WorkerSession(const WorkerSession&) = delete;
  WorkerSession& operator=(const WorkerSession&) = delete;

  const Photo& photo() const { return photo_; }

  // Runs one step, given as a session file's step object. Throws
  // RequestError, and changes nothing, for malformed JSON or a bad step
  // (400), points outside the photo (400), and undo or redo with nothing to
  // go back or forward to (409). The reply says what is shown now:
  //   {"status": 200, "kind", "result": the step changed what is shown,
  //    "cancelled": a cancel stopped it (nothing changed), "ms": its wall time,
  //    "share": the object's share of the photo (0..1), "canUndo", "canRedo",
  //    "steps": steps kept, "outline": [[[x, y], ...], ...] in photo pixels}
  Message step(const std::string& text);

  // Any thread: stops the running edit; false when none runs.
  bool cancel() { return cancel_.cancel(); }

  // mask.png, cutout.png (full size) or session.json; 404 for other names.
  Message file(const std::string& name) const;

  // "preview" (the library's, outline in yellow) or "cutout" (transparent
  // background), scaled down to fit `maxSide` pixels: PNG, or JPEG for a
  // preview that had to be scaled.
  Message view(const std::string& kind, int maxSide) const;

 private:
  void refuse(const Step& step) const;

  Photo photo_;
  Replay replay_;  // after photo_, which it reads
  CancelSwitch cancel_;
  std::vector<Step> kept_;
  // Redo steps that lead to results of kept steps. The library's canRedo
  // would also count the unfinished mask of a cancelled edit.
  int redoable_ = 0;
};
