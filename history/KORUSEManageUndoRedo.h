// Mask history: a ring of 32 bit-plane slots, one 32-bit word per pixel and
// one bit per slot, so the whole history of a photo costs four bytes a pixel.
//
// Slot (m_current - 1) is the mask on display; m_top is where redo stops and
// m_bottom where undo stops. The ring holds at most 31 masks: a push that
// reaches m_bottom drops the oldest. All members are static.
#pragma once

#include <opencv2/core/core_c.h>

#include <cstdint>
#include <vector>

class KORUSEManageUndoRedo {
 public:
  static constexpr int32_t kSlots = 32;  // bits of a plane word

  static uint32_t** m_bitPlane;  // [x][y]: column-major, bit k = object in slot k;
                                 // the columns lie in one block, column 0 first
  static int32_t m_maxSize;      // slots in the ring: kSlots
  static int32_t m_current;      // slot the next recorded mask will take
  static int32_t m_top;          // one past the newest recorded slot
  static int32_t m_bottom;       // the ring's lower limit
  static int32_t width, height;  // plane size: the source size at allocate()

  // Sizes the planes to the source and empties the ring. Planes of an earlier
  // photo are freed first, where forgetting them would leak them; the new
  // ones read as all background until written, so a slot never recorded
  // (redo on an empty history) gives an empty mask, not stale memory.
  static void allocate();
  // Frees the planes; indices and size back to 0.
  static void deallocate();
  // Empties the ring; the planes stay.
  static void reset();

  // Records a mask (nonzero = object) as the newest entry; discards redo steps.
  static void updateBitPlane(IplImage* mask);
  // Writes a mask into one slot without moving any index.
  static void setMask(int slot, IplImage* mask);
  // New 8-bit mask (255 = object) from one slot, or null for a negative slot.
  // Slots of 32 or more read as all 0. The caller releases it.
  static IplImage* getMask(int slot);
  // The mask on display, or null when nothing is recorded.
  static IplImage* prevMask();
  // The mask on display written into `mask` (8-bit, the source size); false,
  // and `mask` untouched, when nothing is recorded.
  static bool prevMaskInto(IplImage* mask);

  // ---- navigation ---------------------------------------------------------------

  // Steps back. Null when there was nothing to step back over, and also when
  // the step reaches the bottom (the host then shows the plain photo).
  static IplImage* undo();
  // Steps forward unless at the top; returns the mask now on display.
  static IplImage* redo();
  // False with one mask recorded, although undo() would still step back to
  // the plain photo: hosts rely on this answer.
  static bool canUndo();
  static bool canRedo();

 private:
  // Per column and per 64 rows of it: whether an object pixel was ever
  // written there. The words of a segment never used are all 0 and are
  // neither written nor read, so pages of background only stay untouched.
  // Hence planes are written through setMask only.
  static std::vector<uint8_t> m_segmentUsed;
  static int segmentsPerColumn(int h);
  static uint8_t& segmentUsed(int x, int y0);

  // Slot k into an 8-bit image; what the planes do not cover reads as 0.
  static void readSlot(int slot, IplImage* mask);
  static int32_t previous(int32_t slot) { return (slot - 1 + m_maxSize) % m_maxSize; }
  static int32_t next(int32_t slot) { return (slot + 1) % m_maxSize; }
};
