// A progress bar on stderr for long runs. On a terminal it is redrawn in
// place; otherwise (a log file, a pipe) each stage is one plain line.
#pragma once

#include <string>

class Progress {
 public:
  explicit Progress(int stages);
  // Stage `what` begins; the bar shows the stages already done.
  void begin(const std::string& what);
  // All done: the bar is completed and the line ended.
  void finish();

 private:
  void draw(const std::string& what) const;

  int stages_;
  int done_ = -1;
  bool terminal_;
};
