#include "history/KORUSEManageUndoRedo.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "interface/session/KORUSEMarker.h"
#include "support/ImageRows.h"
#include "support/KORULog.h"
#include "support/LogSites.h"
#include "support/ThreadSetting.h"
#include "support/WorkerPool.h"

uint32_t** KORUSEManageUndoRedo::m_bitPlane = nullptr;
int32_t KORUSEManageUndoRedo::m_maxSize = KORUSEManageUndoRedo::kSlots;
int32_t KORUSEManageUndoRedo::m_current = 0;
int32_t KORUSEManageUndoRedo::m_top = 0;
int32_t KORUSEManageUndoRedo::m_bottom = 0;
int32_t KORUSEManageUndoRedo::width = 0;
int32_t KORUSEManageUndoRedo::height = 0;
std::vector<uint8_t> KORUSEManageUndoRedo::m_segmentUsed;

namespace {
// Planes are column-major and masks row-major: both are walked in blocks of
// this many rows and columns, so that a block's mask rows stay in cache
// while its plane columns are visited.
const int kBlock = 64;

// An 8-bit mask's bytes, its address and row step read once: stores into the
// mask might otherwise alias them, and force a reload per pixel.
struct MaskBytes {
  explicit MaskBytes(const IplImage* mask)
      : data(reinterpret_cast<uint8_t*>(mask->imageData)), step(mask->widthStep) {}
  uint8_t* at(int x, int y) const { return data + static_cast<ptrdiff_t>(y) * step + x; }
  uint8_t* const data;
  const ptrdiff_t step;
};

// Calls visit(x, y0, y1) for every column x of every block of a w x h area,
// y0..y1 being the block's rows (its segment of column x is y0 / kBlock).
// Rows of blocks are shared out among the segmentation's threads: they
// touch disjoint words of the planes and disjoint segment flags.
template <typename Visit>
void forEachBlockColumn(int w, int h, Visit visit) {
  const int blockRows = (h + kBlock - 1) / kBlock;
  runRanges(blockRows, segmentationThreads(), 8, [&](int first, int last) {
    for (int y0 = first * kBlock; y0 < std::min(last * kBlock, h); y0 += kBlock) {
      const int y1 = std::min(y0 + kBlock, h);
      for (int x0 = 0; x0 < w; x0 += kBlock) {
        const int x1 = std::min(x0 + kBlock, w);
        for (int x = x0; x < x1; ++x) visit(x, y0, y1);
      }
    }
  });
}
}  // namespace

void KORUSEManageUndoRedo::allocate() {
  deallocate();
  m_maxSize = kSlots;
  if (KORUSEMarker::m_originalWidth < 1 || KORUSEMarker::m_originalHeight < 1) return;
  const int w = KORUSEMarker::m_originalWidth, h = KORUSEMarker::m_originalHeight;
  // One zeroed block for all columns: reading a never-written slot is
  // defined, and calloc hands out fresh pages without writing them. Only
  // the segments an object reaches are ever written: their pages come by
  // faults, the rest never cost memory.
  uint32_t* words =
      static_cast<uint32_t*>(std::calloc(static_cast<size_t>(w) * h, sizeof(uint32_t)));
  if (!words) throw std::bad_alloc();
  uint32_t** columns = new (std::nothrow) uint32_t*[w];
  if (!columns) {
    std::free(words);
    throw std::bad_alloc();
  }
  for (int x = 0; x < w; ++x) columns[x] = words + static_cast<size_t>(x) * h;
  m_segmentUsed.assign(static_cast<size_t>(w) * segmentsPerColumn(h), 0);
  m_bitPlane = columns;
  width = w;
  height = h;
}

int KORUSEManageUndoRedo::segmentsPerColumn(int h) { return (h + kBlock - 1) / kBlock; }

uint8_t& KORUSEManageUndoRedo::segmentUsed(int x, int y0) {
  return m_segmentUsed[static_cast<size_t>(x) * segmentsPerColumn(height) + y0 / kBlock];
}

void KORUSEManageUndoRedo::deallocate() {
  if (m_bitPlane) {
    std::free(m_bitPlane[0]);  // the block that holds every column
    delete[] m_bitPlane;
    m_bitPlane = nullptr;
  }
  m_segmentUsed = std::vector<uint8_t>();
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
  const MaskBytes bytes(mask);
  forEachBlockColumn(w, h, [&](int x, int y0, int y1) {
    uint32_t* const column = m_bitPlane[x];
    const uint8_t* in = bytes.at(x, y0);
    uint8_t& used = segmentUsed(x, y0);
    if (!used) {  // all words 0: only an object pixel changes them
      int y = y0;
      while (y < y1 && !in[(y - y0) * bytes.step]) ++y;
      if (y == y1) return;
      used = 1;
      // Words never written are 0: written without being read, so that
      // their fresh pages are not first mapped for reading.
      for (y = y0; y < y1; ++y, in += bytes.step) column[y] = *in ? bit : 0u;
      return;
    }
    for (int y = y0; y < y1; ++y, in += bytes.step) column[y] = (column[y] & ~bit) | (*in ? bit : 0u);
  });
}

void KORUSEManageUndoRedo::readSlot(int slot, IplImage* mask) {
  const int w = std::min(mask->width, width), h = std::min(mask->height, height);
  // Only what the planes do not cover needs clearing first.
  if (slot >= kSlots || !m_bitPlane || w < mask->width || h < mask->height) cvSetZero(mask);
  if (slot >= kSlots || !m_bitPlane) return;
  const MaskBytes bytes(mask);
  forEachBlockColumn(w, h, [&](int x, int y0, int y1) {
    uint8_t* out = bytes.at(x, y0);
    if (!segmentUsed(x, y0)) {
      for (int y = y0; y < y1; ++y, out += bytes.step) *out = 0;
      return;
    }
    const uint32_t* const column = m_bitPlane[x];
    for (int y = y0; y < y1; ++y, out += bytes.step) *out = ((column[y] >> slot) & 1u) ? 255 : 0;
  });
}

IplImage* KORUSEManageUndoRedo::getMask(int slot) {
  if (slot < 0) return nullptr;
  const int w = KORUSEMarker::m_originalWidth, h = KORUSEMarker::m_originalHeight;
  if (!checkImageSize(w, h, site::getMask)) return nullptr;
  IplImage* mask = cvCreateImage(cvSize(w, h), IPL_DEPTH_8U, 1);
  readSlot(slot, mask);
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

bool KORUSEManageUndoRedo::prevMaskInto(IplImage* mask) {
  if (m_current == m_bottom) return false;
  if (!mask || mask->nChannels != 1 || mask->depth != IPL_DEPTH_8U) {
    logBadCall("prevMaskInto", "no 8-bit mask");
    return false;
  }
  readSlot(previous(m_current), mask);
  return true;
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
