// The editing API: a browser session is a worker process with a photo.
//
//   GET    /api/config                     the limits the page shows, places in use
//   POST   /api/sessions[?replaces=ID]     {"sample": NAME}, or the photo's bytes
//                                          -> 201 {"id", "width", "height", "warning"?}
//   POST   /api/sessions/ID/steps          one session-file step -> what is shown
//   POST   /api/sessions/ID/cancel         stops the running edit
//   POST   /api/sessions/ID/alive          the page is still open -> places in use
//   GET    /api/sessions/ID/view?kind=photo|cutout&max=PIXELS   scaled for the screen
//   GET    /api/sessions/ID/mask.png | cutout.png | session.json   downloads
//   DELETE /api/sessions/ID, POST /api/sessions/ID/close   the page is done with it
//
// With ?replaces=ID the page's current session keeps its place, and all it
// shows, until the new photo is open; a photo that is refused changes
// nothing. A fifth session while four run is told to wait (503); a request
// while a session is busy with others is told to wait (429). A session
// whose worker died is taken over by a new worker first ("restored": the
// steps replayed), and one that cannot be gets 502, and later requests for
// it 410, with the reason.
#pragma once

#include <httplib.h>

#include "ServerConfig.h"
#include "WorkerPool.h"

void addSessionRoutes(httplib::Server& server, WorkerPool& pool, const ServerConfig& config);
