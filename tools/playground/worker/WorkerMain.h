// The worker process: one browser session's library session, driven over
// two pipes (WorkerProtocol.h). The library keeps one session per process,
// which is why each browser session gets a process of its own.
#pragma once

// Serves requests read from `in`, replies on `out`, until `in` closes, and
// then ends the process; each segmentation may use `threads` threads.
[[noreturn]] void runWorker(int in, int out, int threads);
