// One browser session's editing, inside its worker process. Every step goes
// through cutout's Replay, so it is marked and applied exactly as
// `cutout --edits` applies it, and the steps that changed something are kept
// as a session file that replays to the same masks. The page draws the
// outline itself, so the library paints no previews here.
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
  // Starts the library session on the photo. Only the photo's BGR form is
  // kept: the library holds its own copy of the pixels.
  explicit WorkerSession(Photo photo);
  WorkerSession(const WorkerSession&) = delete;
  WorkerSession& operator=(const WorkerSession&) = delete;

  const Photo& photo() const { return photo_; }

  // Runs one step, given as a session file's step object; `number` is what
  // a cancel for it names (0: none can reach it). Throws
  // RequestError, and changes nothing, for malformed JSON or a bad step
  // (400), points outside the photo (400), a trace too long to fill (413),
  // and undo or redo with nothing to go back or forward to (409). The reply
  // says what is shown now (shown()) and
  //   {"status": 200, "kind", "result": the step changed what is shown,
  //    "cancelled": a cancel stopped it (nothing changed), "ms": its wall time}
  Message step(const std::string& text, uint64_t number);

  // Runs the steps of a session whose worker died, in order; returns the
  // indices of those that changed nothing this time (an edit that now ran
  // past the time limit), which the session no longer holds.
  std::vector<size_t> replay(const std::vector<std::string>& steps);

  // What need not hold up the reply to a step: after a cancelled edit, a
  // new engine (the library's cancel outlives the edit) and stepping back
  // over the unfinished mask the library may have recorded.
  void afterReply();

  // Any thread: stops edit `number`, its filling or its cut, or, if it has
  // not begun yet, stops it as it begins.
  void cancel(uint64_t number) { cancel_.cancel(number); }

  // What is shown: {"share": the object's share of the photo (0..1),
  // "canUndo", "canRedo", "steps": steps kept, "outline": [[[x, y], ...], ...]
  // in photo pixels}.
  const nlohmann::json& shown() const { return shown_; }

  // mask.png, cutout.png (full size) or session.json; 404 for other names.
  Message file(const std::string& name) const;

  // "photo" (as it is) or "cutout" (transparent background), scaled down to
  // fit `maxSide` pixels: PNG, or JPEG for a photo that had to be scaled.
  Message view(const std::string& kind, int maxSide) const;

 private:
  void refuse(const Step& step) const;
  nlohmann::json describeShown() const;

  Photo photo_;
  Replay replay_;  // after photo_, which it reads
  CancelSwitch cancel_;
  std::vector<Step> kept_;
  // Redo steps that lead to results of kept steps. The library's canRedo
  // would also count the unfinished mask of a cancelled edit.
  int redoable_ = 0;
  nlohmann::json shown_;
  // Left by a step that changed nothing, for afterReply.
  bool newEngine_ = false, stepBack_ = false;
};
