#include "Progress.h"

#include <unistd.h>

#include <cstdio>

namespace {
const int kBarWidth = 30;
}

Progress::Progress(int stages) : stages_(stages > 0 ? stages : 1), terminal_(::isatty(2) == 1) {}

void Progress::begin(const std::string& what) {
  ++done_;
  draw(what);
}

void Progress::finish() {
  done_ = stages_;
  draw("done");
  if (terminal_) std::fputc('\n', stderr);
}

void Progress::draw(const std::string& what) const {
  const int filled = kBarWidth * done_ / stages_;
  const std::string bar = std::string(filled, '#') + std::string(kBarWidth - filled, '.');
  // \033[K clears what a longer previous label left on the line.
  std::fprintf(stderr, terminal_ ? "\r[%s] %3d%% %s\033[K" : "[%s] %3d%% %s\n", bar.c_str(),
               100 * done_ / stages_, what.c_str());
  std::fflush(stderr);
}
