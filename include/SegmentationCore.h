// SegmentationCore: cut an object out of a photo with a few marks.
//
// One editing session at a time, driven from one thread (only
// cancelSegmentation/exitSegmentation may come from another).
//
//   setSourceImage(w, h, pixels);          // the photo, 0xAARRGGBB per pixel
//   initSegmentationEngine(0);
//   per edit:
//     setCurrentMarkerVector(2 * n, xy);   // the stroke's n points, x,y pairs
//     setMarkerImage(w, h, markers, type); // per-pixel marks 0..4, stroke type 0..3
//     processSegment(0, 0, 0, preview, mask);
//     fetch_path_array(&points, &length);  // outline; free with delete[]
//   undo / redo / canUndo / canRedo at any time;
//   resetSegmentationInterface() to start over on the same photo;
//   deinitSegmentation() at the end.
//
// Buffers are row-major with stride = width and belong to the caller; the
// library never keeps a pointer to them. Host masks are 0 for the object and
// 255 for the background. Previews get the outline painted in opaque yellow.
#pragma once

// ---- session ------------------------------------------------------------------

// Creates the engine for the photo set by setSourceImage. The int is ignored.
int initSegmentationEngine(int unused);
// Copies the photo (alpha ignored) and sizes the undo history for it.
int setSourceImage(int width, int height, unsigned int* pixels);
// The current stroke's points, `count` ints as x,y pairs in photo pixels.
// Points outside the photo are clamped, and the clamped values are written
// back into `xy`.
int setCurrentMarkerVector(int count, int* xy);
// The per-pixel marks of this edit (0 none, 1 background, 2 object,
// 3 probable background, 4 probable object; saturated to 0..255) and the
// stroke type (0 loop add, 1 loop remove, 2 stroke add, 3 stroke remove).
int setMarkerImage(int width, int height, int* markers, int strokeType);
// Runs the segmentation for the pending edit. Writes the mask and the
// preview (`blended` holds the photo on entry; outline pixels are painted).
// Without a result, `blended` gets the plain photo and `mask` is untouched.
// Returns -1 when the session was torn down after cancel + exit, else 0.
int processSegment(int, int, int, unsigned int* blended, unsigned char* mask);
// One-shot cut from a box (corners inclusive): a fresh session on `pixels`.
int doSegmentationBB(int width, int height, unsigned int* pixels, int x1, int y1, int x2, int y2,
                     unsigned char* mask);
// Asks a running segmentation to stop (any thread). Before its last cut
// ends it then yields no result; later, only the full-resolution refinement
// is cut short (its band labelled as far as its search got) and that result
// is delivered and recorded. The request stays in force, so later edits
// yield none, until resetSegmentationInterface or a new engine. Returns 1.
int cancelSegmentation();
// After cancelSegmentation: the next output call tears the session down.
// Returns 1 when that is now pending, else 0.
int exitSegmentation();
// Starts over on the same photo and engine: marks and history emptied.
int resetSegmentationInterface();
// Releases the photo, the history and the engine.
int deinitSegmentation();
// Releases a pending edit's marks and any undelivered result.
int freeLocalBuffers();
// Writes the photo as opaque 0xFFRRGGBB pixels.
void copySourceImage(unsigned int* out);

// ---- threads: not one of the system's original calls, added for hosts with cores to spare --

// How many threads a segmentation may use, for every session of the process
// from now on (sessions, teardowns and doSegmentationBB leave it as it is).
// 1, the default, keeps every stage on the calling thread; with more, the
// stages that can share their work do, and the cut is the same minimum
// cut. Values below 1 count as 1, above 16 as 16. Returns the value kept.
// Call it between edits, not while one runs.
int setSegmentationThreads(int n);

// ---- results ------------------------------------------------------------------

// Writes the current result as a host mask (0 = object, 255 = background).
void loadMaskImageInfo(unsigned char* mask);
// Paints the current result's outline into `blended` and keeps the outline
// for fetch_path_array.
void loadBlendedImageInfo(unsigned int* blended);
// Applies the pending marks (2 object, 1 background) to the last mask
// directly, without a segmentation, and records the result. Either output
// may be null. The ints are ignored.
void cutOutImage(int, int, int, unsigned int* blended, unsigned char* mask);
// The outline of the last result: [N, then per contour n, x1, y1, ... xn, yn,
// -1], length 2 * (N + points) + 1; [0] when there is none (or it was
// already fetched). The caller frees *array with delete[].
int fetch_path_array(int** array, int* length);

// ---- history ------------------------------------------------------------------

// Step back / forward through the recorded results; outputs as processSegment.
int undo(unsigned int* blended, unsigned char* mask);
int redo(unsigned int* blended, unsigned char* mask);
int canUndo();
int canRedo();

// ---- timers (C linkage) -------------------------------------------------------

struct KORU_Timer;
extern "C" {
KORU_Timer* create_timer();
void destroy_timer(KORU_Timer* timer);
void start_cpu_timer(KORU_Timer* timer);
void stop_cpu_timer(KORU_Timer* timer);
double get_elapsed_time_in_microsec(KORU_Timer* timer);
double get_elapsed_time_in_millisec(KORU_Timer* timer);
double get_elapsed_time_in_sec(KORU_Timer* timer);
}
