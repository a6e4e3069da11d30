// State of the interface layer between calls, and the steps that several
// exported functions share.
#pragma once

#include <opencv2/core/core_c.h>

#include <cstdint>

class KORUSEHybrid;

extern KORUSEHybrid* pHybrid;       // the one engine; null when none exists
extern int32_t g_exitStatus;        // copy of m_exitApp taken by exitSegmentation
extern CvMemStorage* storage;       // holds the outline contours of the last result
extern CvSeq* contours;             // first outline contour, chained by h_next
extern uint8_t pathAvailable;       // 1 while `contours` has not been fetched
extern IplImage* markerImage;       // marks of the pending edit (8-bit)
extern IplImage* resultMask;        // mask being delivered (255 = object)

// Releases the outline storage if set.
void releaseStorage();

// An 8-bit image of the photo's size, contents undefined: the one kept
// from the last edit when there is one, else a new one. A new photo-sized
// image each edit would cost its pages afresh.
IplImage* photoSizedImage();
// Releases *image (and nulls it), but keeps it for photoSizedImage when it
// is 8-bit of the photo's size and none is kept yet.
void retireImage(IplImage** image);
// Releases the kept image: with the photo, or when the host frees buffers.
void releaseKeptImage();
// Everything of a session: outline, session images, history, engine.
void tearDownSession();
// The end of processSegment: tears down when the host cancelled and then
// exited, and returns true (g_exitStatus and m_exitApp stay set: the host
// sees -1 and starts afresh); otherwise clears g_exitStatus.
bool endOfSegmentCall();
// The end of cutOutImage, undo and redo: the same teardown, but g_exitStatus
// is cleared in every case, so a later session's cancel is a plain cancel.
void endOfOutputCall();
// Hands resultMask to the host (mask, then preview with its outline) and
// releases it, or shows the plain photo when there is none (mask untouched);
// then drops the pending marks.
void deliverResult(unsigned int* blended, unsigned char* mask);
// True when a photo has been handed over (logs under "Error" otherwise).
bool haveSource(const char* function);
// Writes the photo into a host buffer as opaque pixels.
void writeSourcePixels(unsigned int* out);
// Whether OpenCV can hold a photo of this size; false (logged) for widths
// past its arithmetic, OpenCV's own error thrown for sizes it refuses. Its
// refusal inside cvCreateImage would lose the image header, so a header of
// ours is tried first, before anything of the session changes.
bool photoSizeHoldable(int width, int height, const char* function);
// loadBlendedImageInfo for a result about to go, then releases resultMask:
// the outline search may work on resultMask itself instead of a copy.
void deliverOutlineAndRelease(unsigned int* blended);
// Creates a new engine for the current photo into pHybrid.
void createEngine();
// The checks setMarkerImage makes, logged under its name, before it takes
// marks of this size for the current photo.
bool marksFitPhoto(int width, int height, bool haveMarks);
// Makes `marks` (8-bit, the photo's size) the pending edit's marker image,
// releasing an earlier one, and sets the stroke type.
void adoptMarkerImage(IplImage* marks, int strokeType);
