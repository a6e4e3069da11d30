// The editing API: a browser session is a worker process with a photo.
//
//   GET    /api/config                     the limits the page shows
//   POST   /api/sessions                   {"sample": NAME}, or the photo's bytes
//                                          -> 201 {"id", "width", "height"}
//   POST   /api/sessions/ID/steps          one session-file step -> what is shown
//   POST   /api/sessions/ID/cancel         stops the running edit
//   GET    /api/sessions/ID/view?kind=preview|cutout&max=PIXELS   scaled for the screen
//   GET    /api/sessions/ID/mask.png | cutout.png | session.json   downloads
//   DELETE /api/sessions/ID
//
// A fifth session while four run is told to wait (503); a session whose
// worker dies gets 502, and later requests for it 410, with the reason.
#pragma once

#include <httplib.h>

#include "ServerConfig.h"
#include "WorkerPool.h"

void addSessionRoutes(httplib::Server& server, WorkerPool& pool, const ServerConfig& config);
