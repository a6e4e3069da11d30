// Android bitmaps (R, G, B, A bytes, premultiplied) to the library's
// 0xAARRGGBB pixels and back, on values worked out by hand.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "BitmapPixels.h"

namespace {

// Two rows of two pixels, with two bytes of padding after each row.
constexpr size_t kStride = 2 * 4 + 2;
constexpr uint8_t kPad = 0xEE;

}  // namespace

TEST(BitmapPixels, ReadsPremultipliedBytesAsStraightArgb) {
  const std::vector<uint8_t> bitmap = {
      0x11, 0x22, 0x33, 0xFF, /**/ 0x10, 0x40, 0x80, 0x80, /**/ kPad, kPad,  // opaque; alpha 128
      0x00, 0x00, 0x00, 0x00, /**/ 0x01, 0x02, 0x03, 0x04, /**/ kPad, kPad,  // clear; alpha 4
  };
  std::vector<uint32_t> argb(4);
  argbFromBitmap(bitmap.data(), 2, 2, kStride, argb.data());
  EXPECT_EQ(argb[0], 0xFF112233u);  // opaque: the bytes reordered
  // (c * 255 + 64) / 128, rounded down: 0x10 -> 32, 0x40 -> 128, 0x80 -> 255.
  EXPECT_EQ(argb[1], 0x802080FFu);
  EXPECT_EQ(argb[2], 0x00000000u);
  // (c * 255 + 2) / 4: 1 -> 64, 2 -> 128, 3 -> 191.
  EXPECT_EQ(argb[3], 0x044080BFu);
}

TEST(BitmapPixels, WritesArgbPremultipliedAndLeavesThePaddingAlone) {
  const std::vector<uint32_t> argb = {0xFF112233u, 0x80FF8000u, 0x00FFFFFFu, 0xFFFFFF00u};
  std::vector<uint8_t> bitmap(2 * kStride, kPad);
  bitmapFromArgb(argb.data(), 2, 2, bitmap.data(), kStride);
  const std::vector<uint8_t> expected = {
      0x11, 0x22, 0x33, 0xFF, /**/ 0x80, 0x40, 0x00, 0x80, /**/ kPad, kPad,  // (c * 128 + 128) / 255
      0x00, 0x00, 0x00, 0x00, /**/ 0xFF, 0xFF, 0x00, 0xFF, /**/ kPad, kPad,  // clear; opaque yellow
  };
  EXPECT_EQ(bitmap, expected);
}

TEST(BitmapPixels, OpaquePixelsMakeTheRoundTripUnchanged) {
  std::vector<uint32_t> argb;
  for (uint32_t v = 0; v < 4096; ++v) argb.push_back(0xFF000000u | (v * 0x9E3779B1u >> 8));
  std::vector<uint8_t> bitmap(argb.size() * 4);
  bitmapFromArgb(argb.data(), 64, 64, bitmap.data(), 64 * 4);
  std::vector<uint32_t> back(argb.size());
  argbFromBitmap(bitmap.data(), 64, 64, 64 * 4, back.data());
  EXPECT_EQ(back, argb);
}
