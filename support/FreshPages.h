// Big buffers that are written from end to end right after they are made (a
// photo, a mask, a graph's arrays) have their pages mapped in one call
// instead of one page fault at a time: the first write into a fresh buffer
// is what costs most on a big photo. Huge pages are not asked for: where the
// kernel has to compact memory to find them, a fault can take a hundred
// times as long, and a phone's kernel seldom offers them.
#pragma once

#include <cstddef>

// Call before the buffer is first written, only for a buffer that will be
// written whole (a buffer written in part would cost pages it never needs).
// Where the kernel cannot (before Linux 5.14, elsewhere) nothing happens;
// the contents and the size are never affected.
void mapPagesForWriting(void* data, size_t bytes);
