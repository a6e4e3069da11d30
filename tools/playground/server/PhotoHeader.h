// What the first bytes of an uploaded file say: whether it is a JPEG, PNG
// or WebP photo, and its size in pixels. Read before anything decodes it, so
// that a file that is no photo, or a photo too large to edit, is turned away
// without starting a worker.
#pragma once

#include <optional>
#include <string>

struct PhotoHeader {
  const char* format;  // "JPEG", "PNG" or "WebP"
  long long width = 0, height = 0;
  // The file holds all its header announces: a JPEG reaches its end marker,
  // a PNG its last chunk, a WebP the length its RIFF header gives. Decoders
  // open a file cut short without a word and fill in grey.
  bool complete = true;
};

// Empty when the bytes are none of the three formats, or their header is
// damaged before the size.
std::optional<PhotoHeader> readPhotoHeader(const std::string& bytes);
