#include "PhotoHeader.h"

#include <cstdint>
#include <cstring>

namespace {

uint32_t big16(const std::string& b, size_t at) { return uint8_t(b[at]) << 8 | uint8_t(b[at + 1]); }
uint32_t big32(const std::string& b, size_t at) { return big16(b, at) << 16 | big16(b, at + 2); }
uint32_t little16(const std::string& b, size_t at) { return uint8_t(b[at]) | uint8_t(b[at + 1]) << 8; }
uint32_t little24(const std::string& b, size_t at) { return little16(b, at) | uint8_t(b[at + 2]) << 16; }
uint32_t little32(const std::string& b, size_t at) { return little24(b, at) | uint32_t(uint8_t(b[at + 3])) << 24; }

// Whether the chunks (length, name, data, CRC) from `at` on reach IEND.
bool pngEnds(const std::string& b, size_t at) {
  while (at + 12 <= b.size()) {
    if (b.compare(at + 4, 4, "IEND") == 0) return true;
    at += 12ull + big32(b, at);
  }
  return false;
}

// Signature, then IHDR: width and height at 16 and 20.
std::optional<PhotoHeader> png(const std::string& b) {
  if (b.size() < 24 || b.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0 || b.compare(12, 4, "IHDR") != 0)
    return std::nullopt;
  return PhotoHeader{"PNG", big32(b, 16), big32(b, 20), pngEnds(b, 8)};
}

// After a start-of-scan segment, entropy-coded bytes run to the next marker:
// 0xFF followed by anything but a stuffed 0x00 or a restart marker.
size_t afterScan(const std::string& b, size_t at) {
  while (at + 1 < b.size()) {
    const void* ff = std::memchr(b.data() + at, 0xFF, b.size() - at - 1);
    if (!ff) return b.size();
    at = static_cast<size_t>(static_cast<const char*>(ff) - b.data());
    const uint8_t next = uint8_t(b[at + 1]);
    if (next != 0x00 && !(next >= 0xD0 && next <= 0xD7) && next != 0xFF) return at;
    at += next == 0xFF ? 1 : 2;
  }
  return b.size();
}

// Whether the segments from `at` on reach the end-of-image marker.
bool jpegEnds(const std::string& b, size_t at) {
  while (at + 2 <= b.size()) {
    if (uint8_t(b[at]) != 0xFF) return false;
    const uint8_t marker = uint8_t(b[at + 1]);
    if (marker == 0xD9) return true;
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    if ((marker >= 0xD0 && marker <= 0xD7) || marker == 0x01) {  // markers without a length
      at += 2;
      continue;
    }
    if (at + 4 > b.size()) return false;
    at += 2 + big16(b, at + 2);
    if (marker == 0xDA) at = afterScan(b, at);
  }
  return false;
}

// Segments from the start marker to the first start-of-frame (C0..CF but
// C4, C8 and CC, which are tables), whose height and width follow its
// precision byte.
std::optional<PhotoHeader> jpeg(const std::string& b) {
  if (b.size() < 4 || uint8_t(b[0]) != 0xFF || uint8_t(b[1]) != 0xD8) return std::nullopt;
  size_t at = 2;
  while (at + 4 <= b.size()) {
    if (uint8_t(b[at]) != 0xFF) return std::nullopt;
    const uint8_t marker = uint8_t(b[at + 1]);
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    const size_t length = big16(b, at + 2);
    const bool frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frame) {
      if (at + 9 > b.size()) return std::nullopt;
      return PhotoHeader{"JPEG", big16(b, at + 7), big16(b, at + 5), jpegEnds(b, at)};
    }
    if (length < 2) return std::nullopt;
    at += 2 + length;
  }
  return std::nullopt;
}

// RIFF container, whose length (after its first 8 bytes) is at 4; the first
// chunk is VP8 (lossy), VP8L (lossless) or VP8X (extended, with the canvas
// size).
std::optional<PhotoHeader> webp(const std::string& b) {
  if (b.size() < 30 || b.compare(0, 4, "RIFF") != 0 || b.compare(8, 4, "WEBP") != 0) return std::nullopt;
  const bool complete = b.size() >= 8ull + little32(b, 4);
  const std::string chunk = b.substr(12, 4);
  if (chunk == "VP8X") return PhotoHeader{"WebP", little24(b, 24) + 1ll, little24(b, 27) + 1ll, complete};
  if (chunk == "VP8L" && uint8_t(b[20]) == 0x2F) {
    const uint32_t bits = little32(b, 21);
    return PhotoHeader{"WebP", (bits & 0x3FFF) + 1ll, ((bits >> 14) & 0x3FFF) + 1ll, complete};
  }
  if (chunk == "VP8 " && uint8_t(b[23]) == 0x9D && uint8_t(b[24]) == 0x01 && uint8_t(b[25]) == 0x2A)
    return PhotoHeader{"WebP", little16(b, 26) & 0x3FFF, little16(b, 28) & 0x3FFF, complete};
  return std::nullopt;
}

}  // namespace

std::optional<PhotoHeader> readPhotoHeader(const std::string& bytes) {
  if (auto header = png(bytes)) return header;
  if (auto header = jpeg(bytes)) return header;
  return webp(bytes);
}
