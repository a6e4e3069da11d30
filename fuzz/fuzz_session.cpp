// Fuzz target: the input is a script of exported calls, as a careless or
// hostile host could send them, run on a small generated photo.
//
// The input is read front to back; past its end every read gives 0. Each
// step is one opcode byte (taken modulo 18) followed by its arguments:
//   0 setSourceImage        1 initSegmentationEngine   2 setCurrentMarkerVector
//   3 setMarkerImage        4 processSegment           5 doSegmentationBB
//   6 undo                  7 redo                     8 cutOutImage
//   9 resetSegmentationInterface   10 cancelSegmentation   11 exitSegmentation
//  12 deinitSegmentation   13 freeLocalBuffers         14 fetch_path_array
//  15 copySourceImage      16 loadMaskImageInfo + loadBlendedImageInfo
//  17 canUndo + canRedo
//
// What must hold beyond "no crash, no leak, no undefined behaviour":
// a call made while the library holds no photo leaves the caller's buffers as
// they were, and every outline array is well formed with points on the photo.
// Output buffers are sized exactly to the photo the host last handed over, so
// the address sanitizer sees any write past them.
#include <android/log.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "interface/session/KORUSEMarker.h"
#include "interface/SessionGlobals.h"
#include "SegmentationCore.h"

namespace {

// Every undefined call is logged; thousands a second would drown the
// fuzzer's own report.
const bool kQuiet = [] {
  __android_log_set_logger([](const __android_logger_data*, const char*) {});
  return true;
}();

const int kMaxSteps = 64;
const int kMaxSegmentations = 6;  // keeps one input well under a second
const int kSmallSide = 40;
const int kMaxPoints = 256;
const unsigned int kCanaryPixel = 0x5A5A5A5Au;
const unsigned char kCanaryMask = 0xA5;

class Script {
 public:
  Script(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
  bool done() const { return p_ == end_; }
  uint8_t byte() { return p_ < end_ ? *p_++ : 0; }
  int32_t any() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
    return static_cast<int32_t>(v);
  }
  // Mostly in [lo - 1, hi + 1], now and then an extreme or any int.
  int pick(int lo, int hi) {
    const uint8_t b = byte();
    if (b < 224) return static_cast<int>(lo - 1 + b % (int64_t(hi) - lo + 3));
    switch (b & 3) {
      case 0: return INT_MIN;
      case 1: return INT_MAX;
      case 2: return b & 4 ? -100000 : 100000;
      default: return any();
    }
  }

 private:
  const uint8_t* p_;
  const uint8_t* end_;
};

// A disc of warm colour on cool stripes with speckle; `style` picks grey,
// flat or colour and seeds the speckle.
std::vector<unsigned int> makePhoto(int w, int h, uint8_t style) {
  std::vector<unsigned int> p(static_cast<size_t>(w) * h);
  uint32_t seed = style * 2654435761u + 1;
  const int cx = w / 2, cy = h / 2, r2 = (w * w + h * h) / 16;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      seed = seed * 1103515245u + 12345u;
      const int n = static_cast<int>((seed >> 16) % 33) - 16;
      const bool in = (x - cx) * (x - cx) + (y - cy) * (y - cy) <= r2;
      int red = in ? 210 + n : 60 + n, green = in ? 120 + n : 90 + n, blue = in ? 40 + n : 140 + n;
      if ((x + y) / 5 % 2) blue += 12;
      if (style % 4 == 1) red = green = blue;                 // grey
      if (style % 4 == 2) red = green = blue = 128;           // flat
      p[static_cast<size_t>(y) * w + x] = (uint32_t(style) << 24) | (uint32_t(red & 255) << 16) |
                                          (uint32_t(green & 255) << 8) | uint32_t(blue & 255);
    }
  return p;
}

// What the host knows: the size of the photo it last handed over.
struct Host {
  int w = 0, h = 0;
  int segmentations = 0;
  size_t pixels() const { return static_cast<size_t>(w) * h; }
};

// A photo size: mostly small, sometimes above the working size so that the
// full-resolution refinement runs, sometimes not a size at all.
void photoSize(Script& in, int& w, int& h) {
  const uint8_t kind = in.byte();
  if (kind >= 240) {
    w = 330 + in.byte() % 64;
    h = 240 + in.byte() % 64;
  } else if (kind >= 232) {
    w = kind & 1 ? 0 : (kind & 2 ? -1 : INT_MIN);
    h = in.pick(-1, kSmallSide);
  } else {
    w = 1 + in.byte() % kSmallSide;
    h = 1 + in.byte() % kSmallSide;
  }
}

// Output buffers of the host's size, filled with a canary.
struct Outputs {
  std::vector<unsigned int> blended;
  std::vector<unsigned char> mask;
  bool nullBlended, nullMask;
  Outputs(const Host& host, uint8_t flags)
      : blended(host.pixels() ? host.pixels() : 1, kCanaryPixel),
        mask(host.pixels() ? host.pixels() : 1, kCanaryMask),
        nullBlended(flags & 1),
        nullMask(flags & 2) {}
  unsigned int* b() { return nullBlended ? nullptr : blended.data(); }
  unsigned char* m() { return nullMask ? nullptr : mask.data(); }
  bool untouched() const {
    for (unsigned int v : blended)
      if (v != kCanaryPixel) return false;
    for (unsigned char v : mask)
      if (v != kCanaryMask) return false;
    return true;
  }
};

void require(bool condition) {
  if (!condition) abort();
}

bool havePhoto() { return KORUSEMarker::m_originalImage != nullptr; }

void markerVector(Script& in) {
  const uint8_t b = in.byte();
  // A count beyond the buffer would be the host's own overflow.
  const int count = std::min(b < 200 ? b % 41 - 1 : in.pick(-2, kMaxPoints), kMaxPoints);
  const bool null = (b & 0xF0) == 0xF0;
  std::vector<int> xy(count > 0 ? count : 1);
  for (int& v : xy) v = in.pick(-2, kSmallSide);
  setCurrentMarkerVector(count, null ? nullptr : xy.data());
}

void markerImage(Script& in, const Host& host) {
  const uint8_t shape = in.byte();
  int w = host.w, h = host.h;
  if (shape & 1) w = in.pick(0, kSmallSide);
  if (shape & 2) h = in.pick(0, kSmallSide);
  const bool usable = w > 0 && h > 0 && static_cast<size_t>(w) * h <= 1u << 20;
  std::vector<int> marks(usable ? static_cast<size_t>(w) * h : 1, 0);
  for (int rects = in.byte() % 4; usable && rects > 0; --rects) {
    const int x0 = in.pick(0, w), y0 = in.pick(0, h), x1 = in.pick(0, w), y1 = in.pick(0, h);
    const int value = in.pick(0, 4);
    for (int y = std::max(y0, 0); y <= std::min(y1, h - 1); ++y)
      for (int x = std::max(x0, 0); x <= std::min(x1, w - 1); ++x)
        marks[static_cast<size_t>(y) * w + x] = value;
  }
  const int type = in.pick(0, 3);
  // A size without a buffer behind it is sent only now and then: it never
  // matches a photo (those stay small), so it must be refused before a read.
  if (!usable && (shape & 4) == 0) w = h = 0;
  setMarkerImage(w, h, (shape & 8) ? nullptr : marks.data(), type);
}

bool wellFormedOutline(const int* array, int length, const Host& host) {
  if (length < 1) return false;
  int k = 1;
  for (int c = 0; c < array[0]; ++c) {
    if (k >= length) return false;
    const int n = array[k++];
    if (n < 1 || k + 2 * n >= length) return false;
    for (int i = 0; i < n; ++i, k += 2)
      if (array[k] < 0 || array[k] >= host.w || array[k + 1] < 0 || array[k + 1] >= host.h)
        return false;
    if (array[k++] != -1) return false;
  }
  return k == length;
}

void checkOutline(const Host& host) {
  int* array = nullptr;
  int length = -1;
  fetch_path_array(&array, &length);
  if (!array) return;
  if (!wellFormedOutline(array, length, host)) {
    fprintf(stderr, "outline of a %d x %d photo:", host.w, host.h);
    for (int i = 0; i < length && i < 64; ++i) fprintf(stderr, " %d", array[i]);
    fprintf(stderr, "\n");
    abort();
  }
  delete[] array;
}

// A call that delivers results; with no photo it must write nothing.
template <typename Call>
void output(Script& in, const Host& host, Call call) {
  Outputs out(host, in.byte());
  const bool had = havePhoto();
  call(out);
  if (!had) require(out.untouched());
}

void step(Script& in, Host& host) {
  switch (in.byte() % 18) {
    case 0: {
      int w, h;
      photoSize(in, w, h);
      const uint8_t style = in.byte();
      std::vector<unsigned int> photo = w > 0 && h > 0 ? makePhoto(w, h, style) : std::vector<unsigned int>(1);
      const bool null = (style & 0xE0) == 0xE0;
      setSourceImage(w, h, null ? nullptr : photo.data());
      if (w > 0 && h > 0 && !null) host.w = w, host.h = h;
      break;
    }
    case 1: initSegmentationEngine(in.pick(0, 1)); break;
    case 2: markerVector(in); break;
    case 3: markerImage(in, host); break;
    case 4:
      if (host.segmentations++ >= kMaxSegmentations) break;
      output(in, host, [&](Outputs& out) {
        if (processSegment(0, 0, 0, out.b(), out.m()) == -1) require(!havePhoto());
      });
      break;
    case 5: {
      if (host.segmentations++ >= kMaxSegmentations) break;
      int w, h;
      photoSize(in, w, h);
      const uint8_t style = in.byte();
      const int x1 = in.pick(0, w), y1 = in.pick(0, h), x2 = in.pick(0, w), y2 = in.pick(0, h);
      const bool valid = w > 0 && h > 0;
      std::vector<unsigned int> photo = valid ? makePhoto(w, h, style) : std::vector<unsigned int>(1);
      std::vector<unsigned char> mask(valid ? photo.size() : 1, kCanaryMask);
      doSegmentationBB(w, h, photo.data(), x1, y1, x2, y2, (style & 1) ? nullptr : mask.data());
      if (valid) host.w = w, host.h = h;
      break;
    }
    case 6: output(in, host, [](Outputs& out) { undo(out.b(), out.m()); }); break;
    case 7: output(in, host, [](Outputs& out) { redo(out.b(), out.m()); }); break;
    case 8: output(in, host, [](Outputs& out) { cutOutImage(0, 0, 0, out.b(), out.m()); }); break;
    case 9: resetSegmentationInterface(); break;
    case 10: require(cancelSegmentation() == 1); break;
    case 11: {
      const int pending = exitSegmentation();
      require(pending == 0 || pending == 1);
      break;
    }
    case 12: deinitSegmentation(); break;
    case 13: freeLocalBuffers(); break;
    case 14: checkOutline(host); break;
    case 15: output(in, host, [](Outputs& out) { copySourceImage(out.b()); }); break;
    case 16:
      output(in, host, [](Outputs& out) {
        loadMaskImageInfo(out.m());
        loadBlendedImageInfo(out.b());
      });
      break;
    default: {
      const int u = canUndo(), r = canRedo();
      require((u == 0 || u == 1) && (r == 0 || r == 1));
      break;
    }
  }
}

// Every input starts from the state of a freshly loaded library.
void freshSession() {
  deinitSegmentation();
  freeLocalBuffers();
  setCurrentMarkerVector(0, nullptr);
  KORUSEMarker::m_exitApp = false;
  g_exitStatus = 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Script in(data, size);
  Host host;
  freshSession();
  for (int i = 0; i < kMaxSteps && !in.done(); ++i) step(in, host);
  freshSession();
  return 0;
}
