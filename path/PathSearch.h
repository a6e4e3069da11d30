// Edge-following path search for the host's boundary tools.
//
// From one start pixel, finds for every pixel its predecessor on the cheapest
// 8-connected path, where a step is cheap when it is short (alpha near 1) or
// joins pixels of similar colour (alpha near 0). An optional label image
// changes the steps between object pixels (labels 2, 4) and background
// pixels (labels 1, 3). The segmentation does not use any of this; the host
// reaches it through the exported symbols and walks the parents itself.
//
// Images: colour is 8-bit with at least 3 channels, pixel (r, c) at byte
// r * widthStep + 3c; labels are 8-bit, 1 channel, same size.
#pragma once

#include <opencv2/core/core_c.h>

#include <cstdint>
#include <vector>

// Neighbour k of a pixel, counter-clockwise on screen from below right:
//   k:   0 down-right, 1 right, 2 up-right, 3 up, 4 up-left, 5 left,
//        6 down-left, 7 down.
// Diagonal steps (even k) have squared length 2.0, straight steps 1.0.
constexpr int kPathNeighbours = 8;

// One pixel of the search. Every field is zero until the search fills it.
struct Node_ {
  struct Neighbour {
    int32_t index = 0;    // row * width + column; -1 outside the image
    double weight = 0.0;  // cost of the step to it
  };
  int32_t index = 0;                      // this pixel, row * width + column
  double cost = 0.0;                      // cheapest path cost so far; DBL_MAX until reached
  int32_t parent = 0;                     // predecessor on that path; -1 until reached
  Neighbour neighbours[kPathNeighbours];  // in the order above
};

// Step cost between pixel A (r1, c1) and pixel B (r2, c2):
//   sqrt((d2 - m) * alpha + m) = sqrt(alpha * d2 + (1 - alpha) * m),
// m the mean squared channel difference, d2 the squared distance from the
// coordinates. A null or unusable image, or a pixel outside it, is logged
// and answered with DBL_MAX (no step).
double find_weight(IplImage* colour, int r1, int c1, int r2, int c2, double alpha);

// Fills the eight neighbour indices of the pixel (r, c) of a height x width
// image; neighbours beyond an edge get -1. The last argument is unused.
void assign_index(Node_& node, int height, int width, int r, int c, double unused);

// Fills the eight neighbour weights of pixel (r, c); needs the neighbour
// indices already set (assign_index). A neighbour with index -1 gets DBL_MAX.
// A step from an object pixel to a background pixel or back is "blocked",
// with a deliberate asymmetry that is relied on and kept:
//   - blocked k = 0 (down-right): weight 0 becomes DBL_MAX;
//   - blocked k >= 1: weight 0 becomes DBL_MAX and weight k is left as it
//     was (0.0 in a fresh node), even if weight 0 was computed earlier.
// Labels 0 and above 4 never block. A null label image blocks nothing; a
// label image of another size, or an unusable colour image or pixel, is
// logged (the latter leaves the node untouched).
void assign_weight(IplImage* colour, IplImage* labels, Node_& node, int r, int c, double alpha);

// Single-source search from (startRow, startColumn). Returns one parent index
// per pixel in row-major order: the start is its own parent, unreached
// pixels have -1. Among equal costs the first relaxation wins (pop order,
// then neighbour order k = 0..7).
// Throws std::out_of_range when the start's index row * width + column is
// not inside the image; that is the one exception this library lets out.
// Other bad input (null or unusable colour image, too many pixels, no
// memory) is logged and gives an empty vector. Costs O(n log n) time and
// 24 bytes per pixel, the answer included; plainParentInfo
// (PlainPathSearch.h) is the same search written plainly.
std::vector<int32_t> find_parent_info(IplImage* colour, IplImage* labels, int startRow,
                                      int startColumn, double alpha);

// As above, and also writes each pixel's path cost into costImage at
// (row, column) as cvSet2D does, cost in the first channel, 0 in the others;
// unreached pixels get DBL_MAX as far as the image depth can hold it. A null
// cost image or one of another size is logged and left unwritten.
std::vector<int32_t> find_parent_info(IplImage* colour, IplImage* labels, int startRow,
                                      int startColumn, double alpha, IplImage* costImage);
