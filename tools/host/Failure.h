// How cutout ends: every outcome has its own exit code, and every failure is
// one line on stderr. The table below is also what --help prints.
#pragma once

#include <stdexcept>
#include <string>

enum ExitCode : int {
  kExitOk = 0,
  kExitInternal = 1,     // the library or OpenCV failed where input was fine
  kExitUsage = 2,        // bad command line
  kExitPhoto = 3,        // photo missing, unreadable or not an image
  kExitBox = 4,          // box empty or outside the photo
  kExitSession = 5,      // session file missing, unreadable or malformed
  kExitUnknownStep = 6,  // a step of a kind cutout does not know
  kExitOutput = 7,       // output folder cannot be created or written
  kExitClamped = 8,      // finished and wrote everything, but points were clamped
  kExitBenchmark = 9,    // eval: benchmark folder missing, unreadable or malformed
};

// One line per exit code, for --help.
inline const char* exitCodeTable() {
  return "Exit codes:\n"
         "  0  done\n"
         "  1  internal failure (input was fine; please report)\n"
         "  2  bad command line\n"
         "  3  photo missing, unreadable or not an image\n"
         "  4  box empty or outside the photo\n"
         "  5  session file missing, unreadable or malformed\n"
         "  6  session step of an unknown kind\n"
         "  7  output folder cannot be created or written\n"
         "  8  done, but points outside the photo were clamped to its edge\n"
         "  9  eval: benchmark folder missing, unreadable or malformed\n";
}

// Thrown anywhere in the tool, caught once in main: the message is the whole
// stderr line (without the "cutout: " prefix).
struct CutoutError : std::runtime_error {
  CutoutError(ExitCode code, const std::string& message) : std::runtime_error(message), code(code) {}
  ExitCode code;
};
