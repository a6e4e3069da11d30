// Generated photos whose true object is known: a textured disc (or any
// shape) on a differently textured background.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

struct Scene {
  int width = 0, height = 0;
  std::vector<unsigned int> pixels;  // 0xFFRRGGBB
  std::vector<uint8_t> truth;        // 1 = object
};

// Object: warm orange with speckle; background: cool blue-grey stripes with
// speckle. Each channel gets its own speckle: a shared one puts every colour
// of a class on a line, and the models' covariances turn near-singular. `inside(x, y)` decides the object. Seeded: the same call gives the
// same photo.
template <typename Inside>
Scene makeScene(int w, int h, Inside inside, bool grey = false, unsigned seed = 7) {
  Scene s;
  s.width = w;
  s.height = h;
  s.pixels.resize(static_cast<size_t>(w) * h);
  s.truth.resize(s.pixels.size());
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> speckle(-18, 18);
  auto clamp = [](int v) { return v < 0 ? 0 : v > 255 ? 255 : v; };
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const bool object = inside(x, y);
      const int n = speckle(rng), n2 = speckle(rng), n3 = speckle(rng);
      int r, g, b;
      if (object) {
        r = 215 + n; g = 120 + n2 / 2; b = 40 + n3 / 3;
        if (grey) r = g = b = 200 + n;
      } else {
        const int stripe = ((x + y) / 6) % 2 ? 14 : -14;
        r = 60 + stripe + n; g = 90 + stripe + n2; b = 140 + stripe + n3;
        if (grey) r = g = b = 70 + stripe + n;
      }
      const size_t i = static_cast<size_t>(y) * w + x;
      s.pixels[i] = 0xFF000000u | (clamp(r) << 16) | (clamp(g) << 8) | clamp(b);
      s.truth[i] = object;
    }
  return s;
}

// A disc of radius `fraction` of the shorter side, centred at (cx, cy) given
// as fractions of the width and height.
inline Scene discScene(int w, int h, double fraction = 0.3, double cx = 0.5, double cy = 0.5,
                       bool grey = false) {
  const double r = fraction * std::min(w, h), x0 = cx * w, y0 = cy * h;
  return makeScene(w, h, [=](int x, int y) { return std::hypot(x - x0, y - y0) <= r; }, grey);
}

// Intersection over union of a host mask (0 = object) with the truth.
inline double hostMaskIoU(const std::vector<unsigned char>& mask, const Scene& s) {
  size_t both = 0, either = 0;
  for (size_t i = 0; i < mask.size(); ++i) {
    const bool m = mask[i] == 0, t = s.truth[i] == 1;
    both += m && t;
    either += m || t;
  }
  return either ? double(both) / either : 1.0;
}
