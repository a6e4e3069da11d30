// An 8-bit sample in one word: values 0, 1 and 2 in bits 0-7, 8-15 and
// 16-23. What a pixel of an 8-bit image gives (its colour, or in grey mode
// its grey level and texture values) kept in 4 bytes instead of a pixelVal's
// 24; unpacked, each value is the same double extractTrainingData makes.
#pragma once

#include <cstdint>

#include "colormodel/KORUSEColorModel.h"

inline uint32_t packSample(uint8_t v0, uint8_t v1, uint8_t v2) {
  return uint32_t(v0) | uint32_t(v1) << 8 | uint32_t(v2) << 16;
}

inline pixelVal unpackSample(uint32_t s) {
  return {{double(s & 0xFF), double(s >> 8 & 0xFF), double(s >> 16 & 0xFF)}};
}
