// Big buffers that are written from end to end (a photo, the history planes,
// a graph's arrays) are asked to be backed by huge pages where the kernel
// offers them on request: one page fault per 2 MB instead of one per 4 KB,
// and the first write into a fresh buffer is what costs most on a phone's
// photo. Elsewhere, or for a buffer under 2 MB, nothing happens.
#pragma once

#include <cstddef>

// Call before the buffer is first written. Only the 2 MB-aligned middle of
// it is affected; the contents and the size are not.
void preferLargePages(void* data, size_t bytes);
