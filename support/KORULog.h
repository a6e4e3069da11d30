// The guard that precedes every image created from stored sizes.
#pragma once

// Logs "MEMORY_CRASH : <function> <line>" (tag "Error", ERROR) when either
// side is below 1. Returns whether the size is usable; callers that must go
// on regardless ignore the answer.
bool checkImageSize(int width, int height, const char* function, int line);

// Logs an error under "Error" for inputs the host should never send
// (null buffers, calls out of order, mismatched sizes).
void logBadCall(const char* function, const char* what);
