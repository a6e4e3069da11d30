// Byte access into 8-bit IplImages without OpenCV's per-pixel accessors.
#pragma once

#include <opencv2/core/core_c.h>

#include <cstdint>

// Start of row y.
inline uint8_t* imageRow(const IplImage* image, int y) {
  return reinterpret_cast<uint8_t*>(image->imageData + y * image->widthStep);
}

// First byte of pixel (x, y).
inline uint8_t* imagePixel(const IplImage* image, int x, int y) {
  return imageRow(image, y) + x * image->nChannels;
}

// The smallest rectangle holding every nonzero byte of an 8-bit, 1-channel
// image; width and height 0 when there is none.
CvRect nonzeroBox(const IplImage* image);
