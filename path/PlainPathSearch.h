// The path search written the plain way, step by step, kept beside the fast
// one in find_parent_info as its reference: the tests require both to give
// the same bits and the path benchmark times them side by side.
#pragma once

#include <opencv2/core/core_c.h>

#include <cstdint>
#include <vector>

// One zeroed Node_ per pixel filled by assign_index and assign_weight, every
// pixel pushed into a MinPriorityQueue, then n pops, each relaxing its eight
// neighbours in order with checked access. Arguments, answer, logs and the
// std::out_of_range for a bad start are those of find_parent_info. When
// `costs` is given it receives every pixel's path cost in row-major order
// (DBL_MAX when unreached). About 176 bytes per pixel; O(n log n).
std::vector<int32_t> plainParentInfo(IplImage* colour, IplImage* labels, int startRow,
                                     int startColumn, double alpha,
                                     std::vector<double>* costs = nullptr);
