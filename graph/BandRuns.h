// The pixels of a band, row by row, as runs of consecutive columns: what a
// band graph is made of (KORUSEGraph::setBand). A band around an outline
// crosses each row a few times, so a handful of runs describe a row however
// wide its box is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct BandRun {
  int32_t begin;  // first column
  int32_t end;    // one past the last
};

struct BandRuns {
  int32_t width = 0, height = 0;     // the grid the band lies in
  std::vector<int32_t> rowFirstRun;  // per row, and one past the last row: index of its first run
  std::vector<BandRun> runs;         // left to right within a row; runs of one row never touch

  // Starts a grid of `w` x `h` with no run yet; rows are then added in order.
  void start(int w, int h) {
    width = w;
    height = h;
    rowFirstRun.assign(1, 0);
    runs.clear();
  }
  // Appends a run to the current row, merging it into the previous one when
  // they touch (begin == previous end). Runs must come left to right.
  void add(int32_t begin, int32_t end) {
    if (end <= begin) return;
    if (runs.size() > size_t(rowFirstRun.back()) && runs.back().end == begin)
      runs.back().end = end;
    else
      runs.push_back({begin, end});
  }
  // Closes the current row.
  void endRow() { rowFirstRun.push_back(static_cast<int32_t>(runs.size())); }

  // The pixels whose mask byte is nonzero (row y at mask + y * stride).
  static BandRuns ofMask(const uint8_t* mask, size_t stride, int w, int h) {
    BandRuns band;
    band.start(w, h);
    for (int y = 0; y < h; ++y) {
      const uint8_t* row = mask + y * stride;
      for (int x = 0; x < w;) {
        if (!row[x]) {
          ++x;
          continue;
        }
        const int begin = x;
        while (x < w && row[x]) ++x;
        band.add(begin, x);
      }
      band.endRow();
    }
    return band;
  }
};
