// The words that cross every layer: the user's stroke types and the values of
// marker and label images.
#pragma once

#include <cstdint>

// Stroke types: bit 1 set = brush stroke (else a closed loop),
// bit 0 set = the mark is background (else it adds to the object).
enum StrokeType { LOOP_ADD = 0, LOOP_REMOVE = 1, STROKE_ADD = 2, STROKE_REMOVE = 3 };
inline bool isBrush(int type) { return (type & ~1) == 2; }       // STROKE_ADD, STROKE_REMOVE
inline bool addsToObject(int type) { return (type & ~2) == 0; }  // LOOP_ADD, STROKE_ADD

// Marker and label values. Object = 2 or 4, background = 1 or 3.
enum MarkValue {
  MARK_NONE = 0,
  MARK_BACKGROUND = 1,
  MARK_OBJECT = 2,
  MARK_PROBABLE_BACKGROUND = 3,
  MARK_PROBABLE_OBJECT = 4
};
inline bool isObject(uint8_t label) { return label == MARK_OBJECT || label == MARK_PROBABLE_OBJECT; }
inline bool isBackground(uint8_t label) {
  return label == MARK_BACKGROUND || label == MARK_PROBABLE_BACKGROUND;
}
