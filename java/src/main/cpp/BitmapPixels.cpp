#include "BitmapPixels.h"

#include <opencv2/imgproc.hpp>

// A 0xAARRGGBB word lies in memory as B, G, R, A on every Android ABI.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "pixel words are read as little-endian bytes");

void argbFromBitmap(const uint8_t* rgba, int width, int height, size_t stride, uint32_t* argb) {
  const cv::Mat bitmap(height, width, CV_8UC4, const_cast<uint8_t*>(rgba), stride);
  cv::Mat pixels(height, width, CV_8UC4, argb);
  cv::cvtColor(bitmap, pixels, cv::COLOR_RGBA2BGRA);
  cv::cvtColor(pixels, pixels, cv::COLOR_mRGBA2RGBA);  // the colours' order does not matter to it
}

void bitmapFromArgb(const uint32_t* argb, int width, int height, uint8_t* rgba, size_t stride) {
  const cv::Mat pixels(height, width, CV_8UC4, const_cast<uint32_t*>(argb));
  cv::Mat bitmap(height, width, CV_8UC4, rgba, stride);
  cv::cvtColor(pixels, bitmap, cv::COLOR_BGRA2RGBA);
  cv::cvtColor(bitmap, bitmap, cv::COLOR_RGBA2mRGBA);
}
