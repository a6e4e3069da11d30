#include "history/KORUSEManageUndoRedo.h"

#include <algorithm>

#include "interface/KORUSEMarker.h"
#include "support/KORULog.h"

uint32_t** KORUSEManageUndoRedo::m_bitPlane = nullptr;
int32_t KORUSEManageUndoRedo::m_maxSize = 32;
int32_t KORUSEManageUndoRedo::m_current = 0;
int32_t KORUSEManageUndoRedo::m_top = 0;
int32_t KORUSEManageUndoRedo::m_bottom = 0;
int32_t KORUSEManageUndoRedo::width = 0;
int32_t KORUSEManageUndoRedo::height = 0;

namespace {
const int32_t kSlots = 32;
}

void KORUSEManageUndoRedo::allocate() {
  deallocate();
  m_maxSize = kSlots;
  if (KORUSEMarker::m_originalWidth < 1 || KORUSEMarker::m_originalHeight < 1) return;
  width = KORUSEMarker::m_originalWidth;
  height = KORUSEMarker::m_originalHeight;
  // Zeroed, so that reading a never-written slot is defined.
  m_bitPlane = new uint32_t*[width];
  for (int x = 0; x < width; ++x) m_bitPlane[x] = new uint32_t[height]();
}

void KORUSEManageUndoRedo::deallocate() {
  if (m_bitPlane) {
    for (int x = 0; x < width; ++x) delete[] m_bitPlane[x];
    delete[] m_bitPlane;
    m_bitPlane = nullptr;
  }
  m_current = m_top = m_bottom = 0;
  width = height = 0;
}

void KORUSEManageUndoRedo::reset() { m_current = m_top = m_bottom = 0; }

void KORUSEManageUndoRedo::setMask(int slot, IplImage* mask) {
  if (slot < 0 || slot >= kSlots) return;
  if (!m_bitPlane || !mask || mask->nChannels != 1 || mask->depth != IPL_DEPTH_8U) {
    logBadCall("setMask", "no history planes or no 8-bit mask");
    return;
  }
  const int w = std::min({width, KORUSEMarker::m_originalWidth, mask->width});
  const int h = std::min({height, KORUSEMarker::m_originalHeight, mask->height});
  const uint32_t bit = 1u << slot;
  for (int y = 0; y < h; ++y) {
    const uint8_t* row = reinterpret_cast<const uint8_t*>(mask->imageData + y * mask->widthStep);
    for (int x = 0; x < w; ++x) {
      uint32_t& word = m_bitPlane[x][y];
      word = row[x] ? (word | bit) : (word & ~bit);
    }
  }
}

IplImage* KORUSEManageUndoRedo::getMask(int slot) {
  if (slot < 0) return nullptr;
  const int w = KORUSEMarker::m_originalWidth, h = KORUSEMarker::m_originalHeight;
  if (!checkImageSize(w, h, "getMask", 92)) return nullptr;
  IplImage* mask = cvCreateImage(cvSize(w, h), IPL_DEPTH_8U, 1);
  cvSetZero(mask);
  if (slot >= kSlots || !m_bitPlane) return mask;
  const int rw = std::min(w, width), rh = std::min(h, height);
  for (int y = 0; y < rh; ++y) {
    uint8_t* row = reinterpret_cast<uint8_t*>(mask->imageData + y * mask->widthStep);
    for (int x = 0; x < rw; ++x) row[x] = ((m_bitPlane[x][y] >> slot) & 1u) ? 255 : 0;
  }
  return mask;
}

void KORUSEManageUndoRedo::updateBitPlane(IplImage* mask) {
  if (!m_bitPlane || !mask) {
    logBadCall("updateBitPlane", "no history planes or no mask");
    return;
  }
  setMask(m_current, mask);
  m_current = next(m_current);
  m_top = m_current;
  if (m_bottom == m_current) m_bottom = next(m_current);
}

IplImage* KORUSEManageUndoRedo::prevMask() {
  if (m_current == m_bottom) return nullptr;
  return getMask(previous(m_current));
}

IplImage* KORUSEManageUndoRedo::undo() {
  if (m_current == m_bottom) return nullptr;
  m_current = previous(m_current);
  if (m_current == m_bottom) return nullptr;
  return getMask(previous(m_current));
}

IplImage* KORUSEManageUndoRedo::redo() {
  if (m_current != m_top) m_current = next(m_current);
  return getMask(previous(m_current));
}

bool KORUSEManageUndoRedo::canUndo() {
  return m_current != m_bottom && previous(m_current) != m_bottom;
}

bool KORUSEManageUndoRedo::canRedo() { return m_current != m_top; }
