// Android's RGBA_8888 bitmaps hold each pixel as the bytes R, G, B, A, the
// colours premultiplied by alpha (0xAABBGGRR read as a little-endian word).
// The library and Java's int[] pixels (Bitmap.getPixels) are 0xAARRGGBB,
// not premultiplied.
#pragma once

#include <cstddef>
#include <cstdint>

// A bitmap's rows (`stride` bytes apart) into width x height 0xAARRGGBB
// pixels: colours divided by alpha, rounded, 0 where alpha is 0.
void argbFromBitmap(const uint8_t* rgba, int width, int height, size_t stride, uint32_t* argb);

// The other way: colours multiplied by alpha, rounded.
void bitmapFromArgb(const uint32_t* argb, int width, int height, uint8_t* rgba, size_t stride);
