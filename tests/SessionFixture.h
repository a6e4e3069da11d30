// Helpers for tests that drive the library through its exported functions.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "engine/KORUSEHybrid.h"
#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SegmentationCore.h"

using Pixels = std::vector<unsigned int>;
using HostMask = std::vector<unsigned char>;

// A photo whose pixel (x, y) has red x, green y, blue 7 and a varying alpha.
inline Pixels gradientPhoto(int w, int h) {
  Pixels p(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      p[y * w + x] = (uint32_t(x * 13 % 256) << 24) | (uint32_t(x) << 16) | (uint32_t(y) << 8) | 7u;
  return p;
}

// What copySourceImage must give for gradientPhoto: the same, opaque.
inline Pixels opaque(Pixels p) {
  for (auto& v : p) v |= 0xFF000000u;
  return p;
}

// Starts every test from an empty session and leaves none behind.
class SessionTest : public ::testing::Test {
 protected:
  void SetUp() override { deinitSegmentation(); }
  void TearDown() override { deinitSegmentation(); }

  void open(int w, int h) { open(w, h, gradientPhoto(w, h)); }
  void open(int w, int h, Pixels photo) {
    w_ = w;
    h_ = h;
    photo_ = std::move(photo);
    deinitSegmentation();
    ASSERT_EQ(setSourceImage(w, h, photo_.data()), 0);
    ASSERT_EQ(initSegmentationEngine(0), 0);
  }
  // Direct edit: cells set to `value` inside the rectangle, 0 elsewhere.
  void cut(int x0, int y0, int x1, int y1, int value, HostMask* mask = nullptr,
           Pixels* preview = nullptr) {
    std::vector<int> marks(static_cast<size_t>(w_) * h_, 0);
    for (int y = y0; y <= y1; ++y)
      for (int x = x0; x <= x1; ++x) marks[y * w_ + x] = value;
    setMarkerImage(w_, h_, marks.data(), STROKE_ADD_TYPE);
    cutOutImage(0, 0, 0, preview ? preview->data() : nullptr, mask ? mask->data() : nullptr);
  }
  HostMask blankMask(unsigned char v = 77) const { return HostMask(size_t(w_) * h_, v); }
  // The engine, its region set by hand: w x h at the working image's origin.
  KORUSEHybrid& engineWithRegion(int w, int h) {
    KORUSEMarker::m_xMinBBox = KORUSEMarker::m_yMinBBox = 0;
    pHybrid->m_roiWidth = w;
    pHybrid->m_roiHeight = h;
    return *pHybrid;
  }

  // A segmentation edit as a host sends it: stroke points, marks, process.
  int edit(std::vector<int> points, const std::vector<int>& marks, int type, HostMask* mask,
           Pixels* preview = nullptr) {
    Pixels scratch;
    if (!preview) {
      scratch = photo_;
      preview = &scratch;
    }
    setCurrentMarkerVector(static_cast<int>(points.size()), points.data());
    std::vector<int> copy = marks;
    setMarkerImage(w_, h_, copy.data(), type);
    return processSegment(0, 0, 0, preview->data(), mask->data());
  }
  // A box (corners inclusive): its inside probable object, its corners the loop.
  int boxEdit(int x0, int y0, int x1, int y1, HostMask* mask) {
    std::vector<int> marks(size_t(w_) * h_, 0);
    for (int y = y0; y <= y1; ++y)
      for (int x = x0; x <= x1; ++x) marks[y * w_ + x] = 4;
    return edit({x0, y0, x1, y0, x1, y1, x0, y1}, marks, 0, mask);
  }

  static const int STROKE_ADD_TYPE = 2;
  int w_ = 0, h_ = 0;
  Pixels photo_;
};
